// The text of a chain's fragment shader: uniforms, each filter's source once, and a main that calls them all.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "gles/filter_chain.hpp"
#include "gles/filter_text.hpp"

namespace {

constexpr const char* precision_words[] = {"", "lowp", "mediump", "highp"};
constexpr const char* type_words[][4] = {{"float ", "vec2 ", "vec3 ", "vec4 "},
                                         {"int ", "ivec2 ", "ivec3 ", "ivec4 "},
                                         {"sampler2D ", "", "", ""}};
static_assert(KEL_PARAM_FLOAT == 1 && KEL_PARAM_INT == 2 && KEL_PARAM_TEXTURE == 3);

// The caller's buffer, grown by doubling; one byte stays free for a NUL. Without memory the text is dropped, and
// so is whatever comes later.
class text_builder {
  public:
    text_builder(char*& buffer, size_t& capacity, size_t& length)
        : buffer_(buffer), capacity_(capacity), length_(length) {}

    void add(const char* piece) {
        const size_t size = strlen(piece);
        if (!buffer_ || !reserve(size)) return;
        memcpy(buffer_ + length_, piece, size);
        length_ += size;
    }

    void add_line(const char* piece) {
        if (!piece) return;
        add(piece);
        add("\n");
    }

    void add_uniform_name(const kel_video_filter_instance& instance, const kel_video_filter_param& param) {
        char name[kel::uniform_name_size] = {};
        _kel_gen_param_name(&instance, &param, name, sizeof name);
        add(name);
    }

  private:
    bool reserve(size_t size) {
        size_t capacity = capacity_ > 0 ? capacity_ : 1;
        while (length_ + size >= capacity - 1) capacity *= 2;
        if (capacity == capacity_) return true;
        auto* grown = static_cast<char*>(realloc(buffer_, capacity));
        if (!grown) {
            free(buffer_);
            length_ = 0;
        }
        buffer_ = grown;
        capacity_ = grown ? capacity : 0;
        return grown != nullptr;
    }

    char*& buffer_;
    size_t& capacity_;
    size_t& length_;
};

// The source of a filter that occurs several times comes with its first occurrence.
bool is_first_of_its_name(const kel_video_filter_chain& chain, const kel_video_filter_instance& instance) {
    for (const auto* earlier = chain.first; earlier && earlier != &instance; earlier = earlier->next) {
        if (strcmp(earlier->filter->name, instance.filter->name) == 0) return false;
    }
    return true;
}

void add_uniforms(text_builder& text, const kel_video_filter_instance& instance) {
    for (int p = 0; p < instance.filter->num_params; ++p) {
        const kel_video_filter_param& param = *instance.filter->params[p];
        text.add("uniform ");
        text.add(precision_words[param.precision]);
        text.add(" ");
        text.add(type_words[param.type - 1][param.count - 1]);
        text.add_uniform_name(instance, param);
        text.add(";\n");
    }
}

void add_call(text_builder& text, const kel_video_filter_instance& instance) {
    text.add("    ");
    text.add(instance.filter->main);
    text.add("(");
    for (int p = 0; p < instance.filter->num_params; ++p) {
        if (p > 0) text.add(", ");
        text.add_uniform_name(instance, *instance.filter->params[p]);
    }
    text.add(");\n");
}

bool is_alphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

}  // namespace

void _kel_build_shader(const kel_video_filter_chain* chain, const kel_video_filter_instance* first,
                       const kel_video_filter_instance* last, char** buffer, size_t* capacity,
                       size_t* length) {
    text_builder text(*buffer, *capacity, *length);
    text.add_line(chain->preamble);
    for (const auto* instance = first; instance; instance = instance->next) add_uniforms(text, *instance);
    for (const auto* instance = first; instance; instance = instance->next) {
        if (is_first_of_its_name(*chain, *instance)) text.add_line(instance->filter->source);
        if (instance == last) break;
    }
    text.add("void main(void)\n");
    text.add("{\n");
    text.add_line(chain->main_preamble);
    for (const auto* instance = first; instance; instance = instance->next) add_call(text, *instance);
    text.add("}\n");
}

int _kel_gen_param_name(const kel_video_filter_instance* instance, const kel_video_filter_param* param,
                        char* buffer, size_t size) {
    if (size == 0) return 0;
    buffer[0] = '\0';
    snprintf(buffer, size - 1, "filter%d_%s", instance->index, param->name);
    int length = 0;
    for (; buffer[length]; ++length) {
        if (!is_alphanumeric(buffer[length])) buffer[length] = '_';
    }
    return length;
}
