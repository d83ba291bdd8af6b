// Chains without a GPU: every GL call that libkel makes goes to a recorder.
#include <gtest/gtest.h>
#include <kel.h>

#include <cmath>

#include "support/faults.hpp"

namespace {

using namespace kel_test;

std::vector<std::string> calls;  // as they came
GLint compiles = GL_TRUE;

GLuint create_program() {
    return 7;
}
GLuint create_shader(GLenum type) {
    EXPECT_EQ(type, GLenum{GL_FRAGMENT_SHADER});
    return 9;
}
void shader_source(GLuint, GLsizei, const GLchar* const* source, const GLint*) {
    calls.push_back(*source);
}
void compile_shader(GLuint) {}
void get_shader(GLuint, GLenum, GLint* value) {
    *value = compiles;
}
void attach_shader(GLuint program, GLuint shader) {
    calls.push_back("attach " + std::to_string(program * 100 + shader));
}
void delete_one(GLuint name) {
    calls.push_back("delete " + std::to_string(name));
}
GLint get_location(GLuint program, const GLchar* name) {
    EXPECT_EQ(program, 7u);
    calls.push_back(std::string("? ") + name);
    return 5;
}
template <int count, typename T>
void uniform(GLint location, GLsizei size, const T* values) {
    EXPECT_EQ(size, 1);
    std::string text = std::to_string(location) + (std::is_same_v<T, GLint> ? " i" : " f");
    for (int i = 0; i < count; ++i) text += " " + std::to_string(std::llround(values[i] * 100.0));
    calls.push_back(text);
}

struct FilterChain : testing::Test {
    const ImportHook hooks[17] = {
        hook(create_program, "glCreateProgram"),    hook(create_shader, "glCreateShader"),
        hook(shader_source, "glShaderSource"),      hook(compile_shader, "glCompileShader"),
        hook(get_shader, "glGetShaderiv"),          hook(attach_shader, "glAttachShader"),
        hook(delete_one, "glDeleteShader"),         hook(delete_one, "glDeleteProgram"),
        hook(get_location, "glGetUniformLocation"), hook(uniform<1, GLfloat>, "glUniform1fv"),
        hook(uniform<2, GLfloat>, "glUniform2fv"),  hook(uniform<3, GLfloat>, "glUniform3fv"),
        hook(uniform<4, GLfloat>, "glUniform4fv"),  hook(uniform<1, GLint>, "glUniform1iv"),
        hook(uniform<2, GLint>, "glUniform2iv"),    hook(uniform<3, GLint>, "glUniform3iv"),
        hook(uniform<4, GLint>, "glUniform4iv")};
    kel_video_filter_chain* chain = nullptr;

    void SetUp() override {
        for (const ImportHook& each : hooks) ASSERT_TRUE(each.bound());
        compiles = GL_TRUE;
        chain = kel_create_video_filter_chain(nullptr);
        calls.clear();
    }
    void TearDown() override { kel_destroy_video_filter_chain(&chain); }

    kel_video_filter_instance* add(const std::string& header, const char* source = "") {
        return kel_add_video_filter_to_chain(
            chain, kel_load_video_filter_shader(("/*" + header + "*/" + source).c_str()));
    }
    std::vector<std::string> take_calls() { return std::exchange(calls, {}); }
};

TEST_F(FilterChain, GeneratesTheShader) {
    EXPECT_EQ(kel_finalize_video_filter_chain(chain), 0);
    EXPECT_EQ(take_calls(), (std::vector<std::string>{"void main(void)\n{\n}\n", "attach 709"}));
    kel_destroy_video_filter_chain(&chain);
    EXPECT_EQ(take_calls(), (std::vector<std::string>{"delete 9", "delete 7"}));

    chain = kel_create_video_filter_chain(nullptr);
    const std::string tint =
        "Filter: tint\nMain: apply_tint\nParameter: lowp vec4 colour\nParameter: float amount";
    add(tint, "SRC0");
    add("Filter:x\nParameter: ? ivec3 dry/wet-1\nParameter:highp texture t\nParameter: int n", "SRC1");
    add(tint, "SRC0");
    kel_set_video_filter_chain_preamble(chain, "#p");
    kel_set_video_filter_chain_main_preamble(chain, "m");
    EXPECT_EQ(kel_finalize_video_filter_chain(chain), 0);
    EXPECT_EQ(take_calls()[0],
              "#p\nuniform lowp vec4 filter0_colour;\nuniform mediump float filter0_amount;\n"
              "uniform  ivec3 filter1_dry_wet_1;\nuniform highp sampler2D filter1_t;\n"
              "uniform mediump int filter1_n;\n"
              "uniform lowp vec4 filter2_colour;\nuniform mediump float filter2_amount;\n"
              "SRC0\nSRC1\nvoid main(void)\n{\nm\n    apply_tint(filter0_colour, filter0_amount);\n"
              "    x(filter1_dry_wet_1, filter1_t, filter1_n);\n"
              "    apply_tint(filter2_colour, filter2_amount);\n}\n");
    EXPECT_EQ(kel_get_video_filter_chain_shader_index(chain), 9u);
    EXPECT_EQ(kel_get_video_filter_chain_program_index(chain), 7u);
    EXPECT_EQ(kel_finalize_video_filter_chain(chain), 22);  // once only
    EXPECT_EQ(take_calls(), std::vector<std::string>{});
}

TEST_F(FilterChain, BuildsPartsAndGrowsTheBuffer) {
    kel_video_filter_instance *a = add("Filter:a", "A"), *b = add("Filter:b", "B");
    EXPECT_EQ(kel_get_next_video_filter_instance(a), b);
    add("Filter:c", "C");
    const std::string expected = "oB\nvoid main(void)\n{\n    b();\n    c();\n}\n";
    for (const size_t start : {1u, 41u, 42u, 1000u}) {
        size_t capacity = start, length = 1;
        auto* buffer = static_cast<char*>(malloc(capacity));
        buffer[0] = 'o';
        _kel_build_shader(chain, b, b, &buffer, &capacity, &length);
        EXPECT_EQ(std::string(buffer, length), expected);
        size_t grown = start;
        while (length >= grown - 1) grown *= 2;
        EXPECT_EQ(capacity, grown);
        free(buffer);
    }
}

TEST_F(FilterChain, NamesUniformsThatFit) {
    kel_video_filter_instance* instance = add("Filter:f\nParameter:float " + std::string(200, 'x'));
    const auto* param = kel_get_video_filter_param(kel_get_video_filter_from_instance(instance), 0);
    const std::string full = "filter0_" + std::string(200, 'x');
    for (const size_t size : {0, 1, 2, 3, 12, 128}) {
        std::string buffer(130, '#');
        const int length = _kel_gen_param_name(instance, param, buffer.data(), size);
        EXPECT_EQ(length, size < 2 ? 0 : static_cast<int>(size) - 2);
        EXPECT_TRUE(full.starts_with(buffer.substr(0, static_cast<size_t>(length))));
        EXPECT_EQ(buffer[static_cast<size_t>(length)], size == 0 ? '#' : '\0');
        EXPECT_EQ(buffer[size], '#');
    }
}

TEST_F(FilterChain, SetsAndLoadsParameters) {
    kel_video_filter_instance* instance = add(
        "Filter:f\nParameter:vec3 v;default 0.25\nParameter:ivec2 i;default 2.7,-2.7\nParameter:texture t\n"
        "Parameter:float f");
    kel_video_filter_instance* other =
        add("Filter:g\nParameter:ivec4 w;default 99999999999,-99999999999,1\n"
            "Parameter:vec4 x\nParameter:vec2 y\nParameter:ivec3 z\nParameter:int n");
    kel_apply_changed_video_filter_chain_params(chain);
    EXPECT_EQ(take_calls(), (std::vector<std::string>{"? filter0_v", "5 f 25 25 25", "? filter0_i",
                                                      "5 i 200 -200", "? filter0_t", "? filter0_f", "5 f 0",
                                                      "? filter1_w", "5 i 214748364700 -214748364800 100 100",
                                                      "? filter1_x", "5 f 0 0 0 0", "? filter1_y", "5 f 0 0",
                                                      "? filter1_z", "5 i 0 0 0", "? filter1_n", "5 i 0"}));
    kel_apply_changed_video_filter_chain_params(chain);
    EXPECT_EQ(take_calls(), std::vector<std::string>{});

    const struct {
        int param, component;
        double value;
        int result;
    } rows[] = {{0, 2, 0.5, 0}, {0, 3, 1, 22},  {0, -1, 1, 22},  {-1, 0, 1, 22}, {4, 0, 1, 22},
                {2, 0, 1, 22},  {1, 0, 2.9, 0}, {1, 1, -0.5, 0}, {1, 0, NAN, 0}};
    for (const auto& [param, component, value, result] : rows)
        EXPECT_EQ(kel_set_video_filter_param_value(instance, param, component, value), result);
    kel_apply_changed_video_filter_chain_params(chain);
    EXPECT_EQ(take_calls(), (std::vector<std::string>{"5 f 25 25 50", "5 i 0 0"}));

    const float floats[] = {1, 2, 3, 4};
    const int ints[] = {-1, 7, 8};
    EXPECT_EQ(kel_set_video_filter_param_fv(instance, 0, floats, 3), 0);
    EXPECT_EQ(kel_set_video_filter_param_fv(instance, 1, floats, 4), 22);  // the first two stay set
    EXPECT_EQ(kel_set_video_filter_param_iv(other, 0, ints, 3), 0);
    EXPECT_EQ(kel_set_video_filter_param_iv(other, 0, nullptr, 1), 22);
    EXPECT_EQ(kel_set_video_filter_param_fv(nullptr, 0, floats, 1), 22);
    kel_apply_changed_video_filter_chain_params(chain);
    EXPECT_EQ(take_calls(),
              (std::vector<std::string>{"5 f 100 200 300", "5 i 100 200", "5 i -100 700 800 100"}));
    kel_apply_video_filter_chain_params(chain);
    EXPECT_EQ(take_calls().size(), 8u);
}

TEST_F(FilterChain, RefusesWhatDoesNotCompileAndNullHandles) {
    compiles = GL_FALSE;
    EXPECT_EQ(kel_finalize_video_filter_chain(chain), 22);
    EXPECT_EQ(kel_get_video_filter_chain_shader_index(chain), 9u);
    EXPECT_EQ(take_calls().size(), 1u);  // the source; nothing attached
    EXPECT_EQ(kel_add_video_filter_to_chain(nullptr, nullptr), nullptr);
    EXPECT_EQ(kel_add_video_filter_to_chain(chain, nullptr), nullptr);
    EXPECT_EQ(kel_finalize_video_filter_chain(nullptr), 22);
    EXPECT_EQ(kel_get_first_video_filter_instance(nullptr), nullptr);
    EXPECT_EQ(kel_get_next_video_filter_instance(nullptr), nullptr);
    EXPECT_EQ(kel_get_video_filter_from_instance(nullptr), nullptr);
    EXPECT_EQ(kel_get_video_filter_chain_shader_index(nullptr), 0u);
    EXPECT_EQ(kel_get_video_filter_chain_program_index(nullptr), 0u);
    kel_set_video_filter_chain_preamble(nullptr, "");
    kel_set_video_filter_chain_main_preamble(nullptr, "");
    kel_apply_video_filter_chain_params(nullptr);
    kel_destroy_video_filter_chain(nullptr);
}

TEST_F(FilterChain, EveryStepFailsOnce) {
    kel_video_filter* filter = kel_load_video_filter_shader("/*Filter:f\nParameter:vec2 v*/");
    const std::string preamble(70000, 'p');  // makes the text grow
    const auto body = [&](const Fault* fault, LogCapture& log) {
        kel_video_filter_chain* made = kel_create_video_filter_chain(nullptr);
        const bool fails = fault && fault->function == "calloc";
        const int expected = !fault || fails ? 0 : fault->is("glCreateShader") ? 22 : 12;
        EXPECT_EQ(made == nullptr, fault && fault->is("calloc", 1));
        if (made) {
            kel_set_video_filter_chain_preamble(made, preamble.c_str());
            EXPECT_EQ(kel_add_video_filter_to_chain(made, filter) == nullptr, fails);
            EXPECT_EQ(kel_get_first_video_filter_instance(made) == nullptr, fails);
            EXPECT_EQ(kel_finalize_video_filter_chain(made), expected);
            EXPECT_EQ(kel_finalize_video_filter_chain(made),
                      expected == 12 ? 0 : 22);  // no memory: try again
        }
        EXPECT_EQ(log.messages(), std::vector<LogMessage>{});
        kel_destroy_video_filter_chain(&made);
    };
    // chain, instance, values, data, text, its growth, the shader
    EXPECT_EQ(sweep_faults({fault_point<create_shader>("glCreateShader", 0, 0)}, body), 7);
}

}  // namespace
