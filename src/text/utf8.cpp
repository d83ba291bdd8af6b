// UTF-8, decoded one code point at a time.
#include "text/text.hpp"

int kel_utf8_next(const unsigned char* text, size_t* pos, size_t length, uint32_t* code_point) {
    if (*pos >= length) return 0;
    const unsigned char lead = text[(*pos)++];
    if (lead < 0x80) {
        *code_point = lead;
        return 1;
    }
    if (lead < 0xC0) return 0;
    int continuations = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    uint32_t value = lead & (lead < 0xE0 ? 0x1F : lead < 0xF0 ? 0x0F : 0x07);
    for (; continuations > 0; --continuations) {
        if (*pos >= length || (text[*pos] & 0xC0) != 0x80) return 0;
        value = value << 6 | (text[(*pos)++] & 0x3F);
    }
    *code_point = value;
    return 1;
}
