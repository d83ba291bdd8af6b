// Text, held against a plain FreeType rendering pixel by pixel, and everything that can go wrong with it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <random>

#include "support/faults.hpp"
#include "support/threads.hpp"
#include "video/plain_text.hpp"

namespace {

using kel_test::LogCapture;
using kel_test::Outcome;
using kel_test::PlainText;
using kel_test::Scene;

constexpr int32_t width = 300;
constexpr int32_t height = 120;

// A frame for one thread, and the library's calls on it.
class Frame {
  public:
    explicit Frame(kel_context* context) {
        const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_WRITE, width, height};
        slice = kel_slice_for_buffer(kel_create_pixmap_buffer(context, &format));
        memset(slice.buffer->ptr, 0x5A, slice.buffer->size);
    }
    ~Frame() { kel_release_buffer(slice.buffer); }
    golden::Picture picture() const {
        return golden::copy(slice.buffer->ptr, width, height, slice.buffer->stride);
    }
    Outcome draw(const Scene& scene) {
        Outcome outcome;
        slice.spec.video.width = scene.clip.x;
        slice.spec.video.height = scene.clip.y;
        const kel_rect box = {scene.at.x, scene.at.y, scene.box_size.x, scene.box_size.y};
        outcome.glyphs = scene.boxed
                             ? kel_text_draw_in_bb(&slice, scene.text, &box, &scene.style, &outcome.drawn)
                             : kel_text_draw(&slice, scene.text, &scene.at, &scene.style, &outcome.drawn);
        return outcome;
    }
    kel_slice slice;
};

class Text : public ::testing::Test {
  protected:
    void SetUp() override {
        context = kel_create_context();
        ASSERT_EQ(kel_text_init(context), 0);
        frame.emplace(context);
    }
    void TearDown() override {
        frame.reset();
        kel_destroy_context(&context);
    }
    kel_context* context = nullptr;
    std::optional<Frame> frame;
};

std::vector<std::string> errors(const LogCapture& log) {
    std::vector<std::string> texts;
    for (const auto& message : log.messages(2)) texts.push_back(message.text);
    return texts;
}

constexpr kel_point whole = {width, height};
constexpr char long_text[] = "The quick brown fox jumps over the lazy dog 0123456789";
const char* const texts[] = {long_text,
                             "AVAToyota Wave, LT.",
                             "Gr\u00FC\u00DFe \u20AC \U0001F600 \u03A9",
                             "",
                             "   ",
                             " x",
                             "A\xC3(cut here)",
                             "tail\xE2\x82",
                             "\x80no",
                             "\xC1\x81over"};

// Texts, colours, clips, positions, sizes and boxes at random, each drawn at a point and into a box, and then once
// more from what the first time left behind.
void compare_at_random(Frame& frame, const kel_test::TestFont& font, int rounds, unsigned long seed,
                       LogCapture* log) {
    PlainText plain(font.path);
    std::mt19937 random(static_cast<uint32_t>(seed));
    const auto between = [&](int low, int high) { return std::uniform_int_distribution(low, high)(random); };
    for (int round = 0; round < rounds; ++round) {
        Scene scene = {.text = texts[between(0, int(std::size(texts)) - 1)],
                       .style = {font.path.c_str(), uint32_t(random()), between(0, 9) ? between(1, 40) : 150,
                                 between(-1, 3), between(-1, 4)},
                       .at = {between(-200, width + 20), between(-30, height + 60)},
                       .clip = between(0, 2) ? whole : kel_point{between(0, width), between(0, height)},
                       .box_size = {between(-2, 400), between(0, 150)}};
        for (int call = 0; call < 4; ++call) {
            scene.boxed = call % 2 == 1;
            SCOPED_TRACE(testing::Message()
                         << font.name << " round " << round << " call " << call << ": " << scene.text);
            golden::Picture expected = frame.picture();
            if (log) log->clear();
            Outcome outcome = frame.draw(scene);
            Outcome wanted = plain.draw(expected, scene);
            if (log) outcome.messages = errors(*log);
            if (!log) wanted.messages.clear();
            ASSERT_EQ(outcome, wanted);
            ASSERT_TRUE(golden::same(frame.picture(), expected));
        }
    }
}

TEST_F(Text, IsPixelForPixelFreeTypesRendering) {
    for (const auto& font : kel_test::test_fonts()) {
        LogCapture log;
        compare_at_random(*frame, font, kel_test::stress_rounds(200), kel_test::random_seed(), &log);
        if (HasFatalFailure()) return;
    }
}

TEST_F(Text, CreatesABufferAsLargeAsTheInk) {
    for (const auto& font : kel_test::test_fonts()) {
        PlainText plain(font.path);
        Scene scene = {.text = "Ink only, jg", .style = {font.path.c_str(), 0x80C0FFEE, 20, 2, 3}};
        kel_buffer* buffer = kel_text_create(context, scene.text, &scene.style, SCREEN_USAGE_WRITE);
        ASSERT_NE(buffer, nullptr);
        const kel_rect r = plain.layout(scene.text, 20).rect();
        const kel_video_format& format = kel_get_buffer_format(buffer)->video;
        golden::Picture expected{r.width, r.height, std::vector<uint8_t>(size_t(r.width) * r.height * 4)};
        scene.style.halign = scene.style.valign = -1;  // alignment is not applied
        scene.at = {0, -r.y};
        scene.clip = {r.width, r.height};
        plain.draw(expected, scene);
        EXPECT_EQ(format.format, SCREEN_FORMAT_RGBA8888);
        EXPECT_TRUE(
            golden::same(golden::copy(buffer->ptr, format.width, format.height, buffer->stride), expected));
        EXPECT_EQ(kel_release_buffer(buffer), 0);
    }
}

TEST_F(Text, KerningNeedsAKernTable) {
    for (const auto& font : kel_test::test_fonts()) {
        const kel_text_style style = {font.path.c_str(), ~0u, 30, KEL_TEXT_HALIGN_LEFT, 0};
        const Outcome tight = frame->draw({"AVAVAVAVAV", style, {0, 60}, whole});
        const Outcome loose = frame->draw({"AAAAAVVVVV", style, {0, 60}, whole});
        if (tight.glyphs < 10) continue;  // spoilt
        EXPECT_EQ(tight.drawn.width + 5 < loose.drawn.width, font.kerning) << font.name;
    }
}

TEST_F(Text, BadFontsAreRefusedAndTriedAgain) {
    const std::string good = kel_test::read_file(kel_test::test_font("dejavu"));
    const std::pair<std::string, std::string> rows[] = {
        {"/no/font", "kel:  could not open '/no/font': No such file or directory"},
        {"/proc/self/fd", "kel:  could not "},
        {kel_test::file_of(""), "failed: "},
        {kel_test::file_of(std::string(5000, '?')), "failed: unknown file format"},
        {kel_test::file_of(good.substr(0, 300)), "failed: "},
    };
    for (const auto& [path, message] : rows) {
        LogCapture log;
        const kel_text_style style = {path.c_str(), ~0u, 12, 0, 0};
        EXPECT_EQ(frame->draw({"A", style}), Outcome{});
        EXPECT_EQ(kel_text_create(context, "A", &style, 0), nullptr);
        ASSERT_EQ(errors(log).size(), 2u) << path;
        EXPECT_NE(errors(log)[1].find(message), std::string::npos) << errors(log)[1];
    }
}

TEST_F(Text, AFontIsReadOnceUnderAPathOfItsOwn) {
    kel_test::Faults faults({KEL_FAULT_POINT(FT_New_Memory_Face, 1, 0)});
    std::string path;
    for (const char* font : {"noto", "lato", "noto", "lato"}) {
        path = kel_test::test_font(font);  // the caller's string changes
        EXPECT_EQ(frame->draw({"ABC", {path.c_str(), ~0u, 12, 0, 0}, {100, 50}, whole}).glyphs, 3);
        EXPECT_EQ(kel_text_init(context), 0) << "keeps the state";
    }
    const auto calls = faults.passed();
    EXPECT_EQ(
        std::count_if(calls.begin(), calls.end(), [](auto& c) { return c.function == "FT_New_Memory_Face"; }),
        2);
    kel_text_deinit(context);
    EXPECT_EQ(context->text, nullptr);
    EXPECT_EQ(faults.holdings().blocks + faults.holdings().mutexes, 0);
    EXPECT_EQ(frame->draw({"ABC", {path.c_str(), ~0u, 12, 0, 0}, {100, 50}, whole}), Outcome{})
        << "no text state";
    kel_text_deinit(context);
}

TEST_F(Text, RefusesWhatIsNotThere) {
    const kel_text_style style = {kel_test::test_font("lato").c_str(), ~0u, 12, 0, 0};
    const kel_text_style no_path = {};
    const kel_point at = {0, 50};
    const kel_rect box = {0, 0, 50, 50};
    const kel_slice empty = {};
    const kel_slice* const slice = &frame->slice;
    EXPECT_EQ(
        kel_text_draw(nullptr, "A", &at, &style, nullptr) + kel_text_draw(&empty, "A", &at, &style, nullptr),
        0);
    EXPECT_EQ(kel_text_draw(slice, nullptr, &at, &style, nullptr) +
                  kel_text_draw(slice, "A", nullptr, &style, nullptr),
              0);
    EXPECT_EQ(
        kel_text_draw(slice, "A", &at, nullptr, nullptr) + kel_text_draw(slice, "A", &at, &no_path, nullptr),
        0);
    EXPECT_EQ(kel_text_draw_in_bb(slice, nullptr, &box, &style, nullptr), 0);
    EXPECT_EQ(kel_text_draw_in_bb(slice, "A", nullptr, &style, nullptr), 0);
    EXPECT_EQ(kel_text_draw_in_bb(slice, "A", &box, nullptr, nullptr), 0);
    EXPECT_EQ(kel_text_create(nullptr, "A", &style, 0), nullptr);
    EXPECT_EQ(kel_text_create(context, nullptr, &style, 0), nullptr);
    EXPECT_EQ(kel_text_create(context, "A", nullptr, 0), nullptr);
    EXPECT_EQ(kel_text_init(nullptr), EINVAL);
    kel_text_deinit(nullptr);
    LogCapture log;
    EXPECT_EQ(kel_text_create(context, "  ", &style, 0), nullptr) << "no ink";
    EXPECT_TRUE(log.has(2, "kel: allocate_video_buffers() invalid parameters."));
}

TEST_F(Text, StaysInsideTheBuffer) {
    kel_text_style style = {kel_test::test_font("dejavu").c_str(), ~0u, 30, KEL_TEXT_HALIGN_LEFT, 0};
    EXPECT_GT(frame->draw({"Larger than the buffer", style, {width - 20, height}, {INT_MAX, INT_MAX}}).glyphs,
              5);
    for (const kel_point far : {kel_point{INT_MAX, INT_MAX}, {INT_MIN, INT_MIN}, {INT_MIN, INT_MAX}}) {
        for (style.halign = style.valign = 0; style.valign < 4; style.halign = ++style.valign) {
            frame->draw({"far", style, far, {INT_MAX, INT_MAX}});
            frame->draw({"far", style, far, {INT_MAX, INT_MAX}, true, {INT_MAX, INT_MAX}});
        }
    }
    LogCapture log;
    style.size = 9000;  // a bitmap of 300 MB
    EXPECT_EQ(frame->draw({"W", style, {0, 10}, whole}), Outcome{});
    EXPECT_TRUE(log.has(2, "kel:  FT_New_Glyph_To_Bitmap() on glyph 58 failed: raster overflow"));
}

TEST_F(Text, WarmDrawingAllocatesNothing) {
    const kel_text_style style = {kel_test::test_font("dejavu").c_str(), 0xFF102030, 14, 0, 0};
    const auto draw = [&] {
        frame->draw({long_text, style, {150, 40}, whole});
        frame->draw({long_text, style, {10, 10}, whole, true, {200, 60}});
    };
    draw();
    static int blocks = 0;
    const auto counting = +[](size_t size) { return ++blocks, malloc(size); };
    const auto in_freetype = kel_test::hook(counting, "malloc", "libfreetype");
    ASSERT_TRUE(in_freetype.bound());
    kel_test::Faults faults;
    draw();
    EXPECT_EQ(faults.allocations() + blocks, 0);
}

TEST_F(Text, ThreadsLoadAndDrawWithSameAndDifferentFonts) {
    kel_test::Watchdog watchdog(std::chrono::seconds(280));
    LogCapture log;
    for (int round = 0; round < kel_test::stress_rounds(10); ++round) {
        kel_test::run_together(4, [&](int thread) {
            Frame own(context);
            for (int i = 0; i < 4; ++i) {
                compare_at_random(own, kel_test::test_fonts()[(i + thread / 2) % 4], 4,
                                  round * 64 + thread * 8 + i, nullptr);
            }
        });
        kel_text_deinit(context);
        ASSERT_EQ(kel_text_init(context), 0);
    }
    EXPECT_EQ(errors(log), std::vector<std::string>{});
}

TEST(TextErrors, AreFreeTypesOwnList) {
    std::vector<std::pair<int, std::string>> header;
#undef FTERRORS_H_
#define FT_ERRORDEF(name, code, text) header.emplace_back(code, text);
#include FT_ERRORS_H
    ASSERT_EQ(header.front(), std::pair(0, std::string("no error")));
    for (size_t i = 0; i < header.size(); ++i) {
        ASSERT_NE(ft_errors[i].text, nullptr);
        EXPECT_EQ(header[i], std::pair(ft_errors[i].code, std::string(ft_errors[i].text)));
    }
    EXPECT_EQ(ft_errors[header.size()].text, nullptr);
}

int open_to_read(const char* path, int flags) {
    return open(path, flags);
}

off_t seek(int file, off_t offset, int whence) {
    return lseek(file, offset, whence);
}

constexpr int out_of_memory = 0x40;  // FreeType's code

// FreeType's calls and the file's, with the errors that they can be made to give.
std::vector<kel_test::FaultPoint> text_fault_points() {
    return {KEL_FAULT_POINT(FT_Init_FreeType, out_of_memory, 0),
            KEL_FAULT_POINT(FT_New_Memory_Face, out_of_memory, 0),
            KEL_FAULT_POINT(FT_Set_Char_Size, 0x17, 0),
            KEL_FAULT_POINT(FT_Load_Glyph, out_of_memory, 0),
            KEL_FAULT_POINT(FT_Get_Glyph, out_of_memory, 0),
            KEL_FAULT_POINT(FT_Glyph_To_Bitmap, 0x7777, 0),
            kel_test::fault_point<seek>("lseek", -1, EIO),
            KEL_FAULT_POINT(read, -1, EIO),
            kel_test::fault_point<open_to_read>("open", -1, EMFILE)};
}

TEST_F(Text, EveryFailureIsReportedAndLeavesNothingBehind) {
    kel_text_deinit(context);
    const std::string path = kel_test::test_font("noto");
    const std::string size = std::to_string(kel_test::read_file(path).size());
    const std::string list_mutex =
        "kel:  Unable to create font list mutex for kel_text: Cannot allocate memory.";
    const std::string not_read = "kel:  could not read font file '" + path + "': Input/output error";
    const std::string no_font = "kel:  could not allocate font '" + path + "'";
    const struct {
        const char* function;
        int occurrence, init, glyphs;
        std::string message;
    } rows[] = {
        {"calloc", 1, ENOMEM, 0, "kel:  could not allocate text context."},
        {"FT_Init_FreeType", 1, EINVAL, 0, "kel:  FT_Init_FreeType() failed: out of memory."},
        {"pthread_mutex_init", 1, EINVAL, 0, list_mutex},
        {"pthread_mutex_init", 2, EINVAL, 0, list_mutex},
        {"open", 1, 0, 0, "kel:  could not open '" + path + "': Too many open files"},
        {"lseek", 1, 0, 0, not_read},
        {"lseek", 2, 0, 0, not_read},
        {"malloc", 1, 0, 0,
         "kel:  could not allocate font buffer of size " + size + " for font '" + path + "'"},
        {"read", 1, 0, 0, not_read},
        {"FT_New_Memory_Face", 1, 0, 0, "kel:  FT_New_Memory_Face() on '" + path + "' failed: out of memory"},
        {"calloc", 2, 0, 0, no_font},
        {"strdup", 1, 0, 0, no_font},
        {"pthread_mutex_init", 3, 0, 0,
         "kel:  Unable to create mutex for font " + path + ": Cannot allocate memory."},
        {"FT_Set_Char_Size", 1, 0, 2, ""},
        {"calloc", 3, 0, 0, "kel:  could not allocate glyph run."},
        {"calloc", 4, 0, 2, ""},  // the cache: everything is drawn without it
        {"FT_Load_Glyph", 1, 0, 1, "kel:  FT_Load_Glyph() failed for index 2: out of memory."},
        {"FT_Load_Glyph", 2, 0, 1, "kel:  FT_Load_Glyph() failed for index 3: out of memory."},
        {"FT_Get_Glyph", 1, 0, 1, "kel:  FT_Get_Glyph() failed for index 2: out of memory."},
        {"FT_Get_Glyph", 2, 0, 1, "kel:  FT_Get_Glyph() failed for index 3: out of memory."},
        {"FT_Glyph_To_Bitmap", 1, 0, 0, "kel:  FT_New_Glyph_To_Bitmap() on glyph 134 failed: <unknown>"},
        {"FT_Glyph_To_Bitmap", 2, 0, 0, "kel:  FT_New_Glyph_To_Bitmap() on glyph 57 failed: <unknown>"},
    };
    const kel_text_style style = {path.c_str(), ~0u, 20, KEL_TEXT_HALIGN_LEFT, KEL_TEXT_VALIGN_BASELINE};
    const int tried =
        kel_test::sweep_faults(text_fault_points(), [&](const kel_test::Fault* fault, auto& log) {
            const int init = kel_text_init(context);
            const Outcome outcome = frame->draw({"\u00C4V", style, {20, 60}, whole});
            kel_text_deinit(context);
            const auto* row = std::find_if(std::begin(rows), std::end(rows), [&](const auto& candidate) {
                return fault && fault->is(candidate.function, candidate.occurrence);
            });
            ASSERT_TRUE(!fault || row != std::end(rows)) << fault->function << fault->occurrence;
            EXPECT_EQ(init, fault ? row->init : 0);
            EXPECT_EQ(outcome.glyphs, fault ? row->glyphs : 2);
            EXPECT_EQ(outcome.drawn.width != -1, outcome.glyphs != 0);
            const std::string message = fault ? row->message : "";
            EXPECT_EQ(errors(log), message.empty() ? std::vector<std::string>{} : std::vector{message});
        });
    EXPECT_EQ(tried, int(std::size(rows)));
}

TEST_F(Text, CreatingABufferFailsWhole) {
    auto points = text_fault_points();
    for (const auto& point : kel_test::screen_fault_points()) points.push_back(point);
    const kel_text_style style = {kel_test::test_font("lato").c_str(), ~0u, 20, 0, 0};
    kel_text_deinit(context);
    kel_test::sweep_faults(points, [&](const kel_test::Fault* fault, auto& log) {
        kel_text_init(context);
        kel_buffer* buffer = kel_text_create(context, "V", &style, SCREEN_USAGE_WRITE);
        EXPECT_TRUE(buffer || (fault && !errors(log).empty()));
        if (buffer) kel_release_buffer(buffer);
        kel_text_deinit(context);
    });
}

TEST_F(Text, MutexesThatCannotBeDestroyedAreReported) {
    const std::string path = kel_test::test_font("lato");
    frame->draw({"A", {path.c_str(), ~0u, 12, 0, 0}, {0, 0}, whole});
    const auto busy = +[](pthread_mutex_t* mutex) { return pthread_mutex_destroy(mutex), EBUSY; };
    const auto failing = kel_test::hook(busy, "pthread_mutex_destroy");
    LogCapture log;
    kel_text_deinit(context);
    const std::string state = "kel:  Unable to destroy mutex for kel_text: Device or resource busy.";
    const std::string font = "kel:  Unable to destroy mutex for font " + path + ": Device or resource busy.";
    EXPECT_EQ(errors(log), (std::vector{font, state, state}));
}

}  // namespace
