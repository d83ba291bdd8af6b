#include "base/text_file.hpp"

#include <cerrno>
#include <climits>
#include <cstdio>

kel::text_file kel::read_text_file(const char* path) {
    FILE* file = fopen(path, "r");
    if (!file) return {};
    scope_exit close([&] { fclose(file); });
    if (fseek(file, 0, SEEK_END) != 0) return {};
    const long length = ftell(file);
    if (length < 0) return {};
    if (length >= INT_MAX) {  // also what a directory reports
        errno = ENOMEM;
        return {};
    }
    rewind(file);
    text_file result{make_records<char>(static_cast<std::size_t>(length) + 1)};
    if (!result.text) {
        errno = ENOMEM;
        return {};
    }
    result.length = fread(result.text.get(), 1, static_cast<std::size_t>(length), file);
    return result;
}
