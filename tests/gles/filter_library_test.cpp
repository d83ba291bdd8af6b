// The filters of share/kel/filters on a drawn scene: buffer, texture, chain, surface, buffer, picture.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "gles_fixture.hpp"
#include "golden/golden.hpp"

namespace {

using namespace kel_test;

constexpr int width = 240, height = 150;
constexpr int tolerance = 5;  // rasterisers round differently

struct Setting {
    int instance;
    const char* param;
    std::vector<float> values;
};

std::string text_of(const char* name) {
    std::ifstream file(std::string(KEL_SHARE_FOLDER) + name);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

class FilterShelf : public Gles {
  protected:
    void SetUp() override {
        Gles::SetUp();
        canvas = make_buffer(width, height);
        surface = kel_gles_create_pixmap_surface(context, canvas);
        scene = draw(0, frame);
        other = draw(120, second);
    }
    void TearDown() override {
        kel_destroy_video_filter_chain(&chain);
        kel_gles_destroy_texture(&frame);
        kel_gles_destroy_texture(&second);
        for (kel_buffer* buffer : {scene, other, canvas}) kel_release_buffer(buffer);
        EXPECT_TRUE(eglDestroySurface(display, surface));
        Gles::TearDown();
    }
    // Discs and stripes on a gradient. The phase shifts its colours.
    kel_buffer* draw(int phase, kel_texture*& texture) {
        kel_buffer* buffer = make_buffer(width, height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                uint8_t colour[3] = {static_cast<uint8_t>(phase + x), static_cast<uint8_t>(255 - y),
                                     static_cast<uint8_t>(phase / 2 + y + x / 4)};
                for (int disc = 0; disc < 3; ++disc) {
                    const int dx = x - 40 - 80 * disc, dy = y - 40 - 30 * disc;
                    if (dx * dx + dy * dy > 30 * 30) continue;
                    for (int c = 0; c < 3; ++c) colour[c] = c == disc ? 230 : 40;
                }
                if (y > height - 30 && x / 5 % 2 == 0)
                    for (uint8_t& c : colour) c = static_cast<uint8_t>(c / 3);
                uint8_t* pixel = static_cast<uint8_t*>(buffer->ptr) + y * buffer->stride + 4 * x;
                std::copy(std::begin(colour), std::end(colour), pixel);
                pixel[3] = 255;
            }
        const kel_slice slice = kel_slice_for_buffer(buffer);
        texture = kel_gles_texture_from_slice(&slice);
        return buffer;
    }
    // Makes a chain of the shelf's filters the program in use.
    void use(const std::vector<std::string>& filters) {
        kel_destroy_video_filter_chain(&chain);
        chain = kel_create_video_filter_chain(context);
        kel_set_video_filter_chain_preamble(chain, preamble.c_str());
        kel_set_video_filter_chain_main_preamble(chain, main_preamble.c_str());
        for (const auto& name : filters) {
            const std::string path = std::string(KEL_SHARE_FOLDER) + "filters/" + name + ".glsl";
            kel_video_filter* filter = kel_load_video_filter_shader_from_file(path.c_str());
            EXPECT_STREQ(kel_get_video_filter_name(filter), name.c_str());
            EXPECT_STRNE(kel_get_video_filter_description(filter), "");
            kel_add_video_filter_to_chain(chain, filter);
        }
        ASSERT_EQ(kel_finalize_video_filter_chain(chain), 0);
        const GLuint program = kel_get_video_filter_chain_program_index(chain);
        GLint status = 0;
        const GLuint vertex = kel_gles_create_shader_from_file(context, GL_VERTEX_SHADER,
                                                               KEL_SHARE_FOLDER "vertex.glsl", &status);
        EXPECT_TRUE(status);
        glAttachShader(program, vertex);
        glDeleteShader(vertex);
        glBindAttribLocation(program, 0, "kel_corner");
        glLinkProgram(program);
        glGetProgramiv(program, GL_LINK_STATUS, &status);
        ASSERT_TRUE(status);
        glUseProgram(program);
        glUniform1i(glGetUniformLocation(program, "kel_frame"), 0);
        glUniform2f(glGetUniformLocation(program, "kel_pixel"), 1.0f / width, 1.0f / height);
        glUniform1i(glGetUniformLocation(program, "filter0_picture"), 1);
        glActiveTexture(GL_TEXTURE1);
        glBindTexture(GL_TEXTURE_2D, second->texture);
        glActiveTexture(GL_TEXTURE0);
        glBindTexture(GL_TEXTURE_2D, frame->texture);
        static const GLfloat corners[] = {-1, -1, 1, -1, -1, 1, 1, 1};
        glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, corners);
        glEnableVertexAttribArray(0);
    }
    void set(const Setting& setting) {
        kel_video_filter_instance* instance = kel_get_first_video_filter_instance(chain);
        for (int i = 0; i < setting.instance; ++i) instance = kel_get_next_video_filter_instance(instance);
        const kel_video_filter* filter = kel_get_video_filter_from_instance(instance);
        const int param = kel_get_video_filter_param_index(filter, setting.param);
        const int count = static_cast<int>(setting.values.size());
        EXPECT_EQ(kel_set_video_filter_param_fv(instance, param, setting.values.data(), count), 0);
    }

    const std::string preamble = text_of("preamble.glsl"), main_preamble = text_of("main_preamble.glsl");
    kel_buffer *canvas = nullptr, *scene = nullptr, *other = nullptr;
    kel_texture *frame = nullptr, *second = nullptr;
    EGLSurface surface = EGL_NO_SURFACE;
    kel_video_filter_chain* chain = nullptr;
};

TEST_F(FilterShelf, EveryFilterAloneAndThreeInARow) {
    struct Row {
        std::string picture;
        std::vector<std::string> filters;
        std::vector<Setting> settings;
    };
    std::vector<Row> rows = {
        {"none", {}, {}},
        {"chroma_key", {"chroma_key"}, {{0, "key", {0.2f, 0.9f, 0.2f}}, {0, "softness", {0.3f}}}},
        {"chain_pixelate_grayscale_vignette", {"pixelate", "grayscale", "vignette"}, {{1, "amount", {0.7f}}}},
        {"chain_tint_tint_fade",
         {"tint", "tint", "fade"},
         {{0, "color", {1, 0.5f, 0.5f}}, {1, "color", {0.5f, 1, 1}}, {2, "color", {0, 0, 1}}}},
    };
    for (const auto& entry : std::filesystem::directory_iterator(KEL_SHARE_FOLDER "filters")) {
        const std::string name = entry.path().stem();
        if (name != "chroma_key") rows.push_back({name, {name}, {}});
    }
    EXPECT_GT(rows.size(), 14u);
    const golden::Picture plain = golden::copy(scene->ptr, width, height, scene->stride);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.picture);
        use(row.filters);
        for (const Setting& setting : row.settings) set(setting);
        kel_apply_changed_video_filter_chain_params(chain);
        draw_quad();
        glFinish();
        const golden::Picture picture = golden::copy(canvas->ptr, width, height, canvas->stride);
        EXPECT_TRUE(golden::matches("filter_" + row.picture, picture, tolerance));
        EXPECT_EQ(golden::same(picture, plain, 1) == true, row.filters.empty());
    }
}

}  // namespace
