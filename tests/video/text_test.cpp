// Text, held against a plain FreeType rendering pixel by pixel, and everything that can go wrong with it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <random>

#include "support/faults.hpp"
#include "support/threads.hpp"
#include "video/plain_text.hpp"
#include "video/test_fonts.hpp"

#include FT_GLYPH_H

namespace {

using kel_test::Outcome;
using kel_test::PlainText;

constexpr int32_t width = 300;
constexpr int32_t height = 120;

// A frame of its own per test thread, filled with a pattern, and the library's calls on it.
class Frame {
  public:
    explicit Frame(kel_context* context) {
        const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_WRITE, width, height};
        buffer = kel_create_pixmap_buffer(context, &format);
        slice = kel_slice_for_buffer(buffer);
        clear();
    }
    ~Frame() { kel_release_buffer(buffer); }
    void clear() { memset(buffer->ptr, 0x5A, buffer->size); }
    golden::Picture picture() const { return golden::copy(buffer->ptr, width, height, buffer->stride); }
    Outcome draw(const char* utf8, kel_point at, const kel_text_style& style) {
        Outcome outcome;
        outcome.drawn = {-1, -1, -1, -1};
        outcome.glyphs = kel_text_draw(&slice, utf8, &at, &style, &outcome.drawn);
        return outcome;
    }
    Outcome draw_in_bb(const char* utf8, kel_rect box, const kel_text_style& style) {
        Outcome outcome;
        outcome.glyphs = kel_text_draw_in_bb(&slice, utf8, &box, &style, &outcome.drawn);
        return outcome;
    }
    kel_buffer* buffer;
    kel_slice slice;
};

class Text : public ::testing::Test {
  protected:
    void SetUp() override {
        context = kel_create_context();
        ASSERT_EQ(kel_text_init(context), 0);
    }
    void TearDown() override { kel_destroy_context(&context); }
    kel_context* context = nullptr;
};

std::vector<std::string> errors(const kel_test::LogCapture& log) {
    std::vector<std::string> texts;
    for (const auto& message : log.messages(2)) texts.push_back(message.text);
    return texts;
}

// The pixels that differ, as the golden comparison does on the same machine: none are allowed to.
::testing::AssertionResult same(const golden::Picture& a, const golden::Picture& b) {
    for (int y = 0; y < a.height; ++y) {
        for (int x = 0; x < a.width; ++x) {
            if (memcmp(a.pixel(x, y), b.pixel(x, y), 4) != 0) {
                return ::testing::AssertionFailure() << "pixel (" << x << ", " << y << ") differs";
            }
        }
    }
    return ::testing::AssertionSuccess();
}

const char* const texts[] = {
    "AVAToyota Wave, LT.",
    "The quick brown fox jumps over the lazy dog 0123456789",
    "",
    "   ",
    " x",
    "j",
    "Gr\xC3\xBC\xC3\x9F"
    "e \xE2\x82\xAC \xF0\x9F\x98\x80 \xCE\xA9",
    "A\xC3(cut here)",
    "tail\xE2\x82",
    "\x80no",
    "\xC1\x81over",
};

// Colours, clips, positions, sizes and boxes at random, each drawn twice: the second time from what the first
// one left behind.
void compare_at_random(Frame& frame, const kel_test::TestFont& font, int rounds, unsigned seed,
                       kel_test::LogCapture* log) {
    PlainText plain(font.path);
    std::mt19937 random(seed);
    const auto between = [&](int low, int high) { return std::uniform_int_distribution(low, high)(random); };
    for (int round = 0; round < rounds; ++round) {
        const kel_text_style style = {font.path.c_str(), uint32_t(random()),
                                      between(0, 9) ? between(1, 40) : 150, between(-1, 3), between(-1, 4)};
        const char* text = texts[size_t(between(0, int(std::size(texts)) - 1))];
        const kel_point clip =
            between(0, 2) ? kel_point{width, height} : kel_point{between(0, width), between(0, height)};
        const kel_point at = {between(-200, width + 20), between(-30, height + 60)};
        const kel_rect box = {at.x, at.y, between(-2, 400), between(0, 150)};
        frame.slice.spec.video.width = clip.x;
        frame.slice.spec.video.height = clip.y;
        for (int repeat = 0; repeat < 2; ++repeat) {
            for (const bool boxed : {false, true}) {
                frame.clear();
                golden::Picture expected = frame.picture();
                if (log) log->clear();
                Outcome outcome = boxed ? frame.draw_in_bb(text, box, style) : frame.draw(text, at, style);
                Outcome wanted = boxed ? plain.draw_in_bb(expected, clip, text, box, style)
                                       : plain.draw(expected, clip, text, at, style);
                if (log) outcome.messages = errors(*log);
                if (!log) wanted.messages.clear();
                const bool good = outcome == wanted && same(frame.picture(), expected);
                ASSERT_EQ(outcome, wanted);
                ASSERT_TRUE(good && same(frame.picture(), expected))
                    << font.name << " round " << round << (boxed ? " boxed" : "") << " repeat " << repeat
                    << " \"" << text << "\" size " << style.size << " at (" << at.x << ", " << at.y
                    << ") clip " << clip.x << " x " << clip.y << " align " << style.halign << " "
                    << style.valign;
            }
        }
    }
}

TEST_F(Text, IsPixelForPixelFreeTypesRendering) {
    Frame frame(context);
    for (const auto& font : kel_test::test_fonts()) {
        kel_test::LogCapture log;
        SCOPED_TRACE(font.name);
        compare_at_random(frame, font, kel_test::stress_rounds(200), unsigned(kel_test::random_seed()), &log);
        if (HasFatalFailure()) return;
    }
}

TEST_F(Text, CreatesABufferAsLargeAsTheInk) {
    for (const auto& font : kel_test::test_fonts()) {
        PlainText plain(font.path);
        const kel_text_style style = {font.path.c_str(), 0x80C0FFEE, 20, KEL_TEXT_HALIGN_RIGHT,
                                      KEL_TEXT_VALIGN_TOP};
        const char* text = "Ink only, jg";
        kel_buffer* buffer = kel_text_create(context, text, &style, SCREEN_USAGE_WRITE);
        ASSERT_NE(buffer, nullptr);
        const kel_rect r = plain.measure(text, style.size);
        const kel_video_format& format = kel_get_buffer_format(buffer)->video;
        EXPECT_EQ(format.format, SCREEN_FORMAT_RGBA8888);
        ASSERT_TRUE(format.width == r.width && format.height == r.height) << font.name;
        golden::Picture expected{r.width, r.height, std::vector<uint8_t>(size_t(r.width) * r.height * 4)};
        const kel_text_style unaligned = {font.path.c_str(), style.color, style.size, KEL_TEXT_HALIGN_LEFT,
                                          KEL_TEXT_VALIGN_BASELINE};
        plain.draw(expected, {r.width, r.height}, text, {0, -r.y}, unaligned);
        EXPECT_TRUE(same(golden::copy(buffer->ptr, r.width, r.height, buffer->stride), expected))
            << font.name;
        EXPECT_EQ(kel_release_buffer(buffer), 0);
    }
}

TEST_F(Text, KerningNeedsAKernTable) {
    Frame frame(context);
    for (const auto& font : kel_test::test_fonts()) {
        const kel_text_style style = {font.path.c_str(), ~0u, 30, KEL_TEXT_HALIGN_LEFT, 0};
        const Outcome tight = frame.draw("AVAVAVAVAV", {0, 60}, style);
        const Outcome loose = frame.draw("AAAAAVVVVV", {0, 60}, style);
        if (tight.glyphs < 10) continue;  // spoilt
        EXPECT_EQ(tight.drawn.width + 5 < loose.drawn.width, font.kerning) << font.name;
    }
}

TEST_F(Text, BadFontsAreRefusedAndTriedAgain) {
    const std::string good = kel_test::read_file(kel_test::test_font("dejavu"));
    const std::string directory = "/proc/self/fd";
    const struct {
        std::string path, message;
    } rows[] = {
        {"/no/font", "kel:  could not open '/no/font': No such file or directory"},
        {directory, ""},
        {kel_test::file_of(""), "failed: "},
        {kel_test::file_of(std::string(5000, '?')), "failed: unknown file format"},
        {kel_test::file_of(good.substr(0, 300)), "failed: "},
    };
    Frame frame(context);
    for (const auto& row : rows) {
        kel_test::LogCapture log;
        const kel_text_style style = {row.path.c_str(), ~0u, 12, 0, 0};
        for (size_t attempt = 1; attempt < 3; ++attempt) {
            EXPECT_EQ(frame.draw("A", {0, 50}, style).glyphs, 0);
            EXPECT_EQ(kel_text_create(context, "A", &style, 0), nullptr);
            ASSERT_EQ(errors(log).size(), 2 * attempt) << row.path;
            EXPECT_NE(errors(log).back().find(row.message), std::string::npos) << errors(log).back();
        }
    }
}

TEST_F(Text, AFontIsReadOnceUnderAPathOfItsOwn) {
    Frame frame(context);
    kel_test::Faults faults({KEL_FAULT_POINT(FT_New_Memory_Face, 1, 0)});
    std::string path = kel_test::test_font("noto");
    const kel_text_style style = {path.c_str(), ~0u, 12, 0, 0};
    const auto faces = [&] {
        int count = 0;
        for (const auto& call : faults.passed()) count += call.function == "FT_New_Memory_Face";
        return count;
    };
    EXPECT_EQ(frame.draw("ABC", {100, 50}, style).glyphs, 3);
    path = kel_test::test_font("lato");
    const kel_text_style other = {path.c_str(), ~0u, 12, 0, 0};
    EXPECT_EQ(frame.draw("ABC", {100, 50}, other).glyphs, 3);
    EXPECT_EQ(faces(), 2);
    path = kel_test::test_font("noto");
    EXPECT_EQ(frame.draw("ABC", {100, 50}, {path.c_str(), ~0u, 12, 0, 0}).glyphs, 3);
    EXPECT_EQ(faces(), 2);
    kel_text* state = context->text;
    EXPECT_EQ(kel_text_init(context), 0);
    EXPECT_EQ(context->text, state);
    kel_text_deinit(context);
    EXPECT_EQ(context->text, nullptr);
    EXPECT_EQ(faults.holdings().blocks + faults.holdings().mutexes, 0);
    EXPECT_EQ(frame.draw("ABC", {100, 50}, other).glyphs, 0) << "no text state";
    kel_text_deinit(context);
}

TEST_F(Text, RefusesWhatIsNotThere) {
    Frame frame(context);
    const kel_text_style style = {kel_test::test_font("lato").c_str(), ~0u, 12, 0, 0};
    const kel_text_style no_path = {nullptr, ~0u, 12, 0, 0};
    const kel_point at = {0, 50};
    const kel_rect box = {0, 0, 50, 50};
    const kel_slice empty = {};
    for (const auto& [slice, text, point, look] : {std::tuple{(const kel_slice*)nullptr, "A", &at, &style},
                                                   {&empty, "A", &at, &style},
                                                   {&frame.slice, (const char*)nullptr, &at, &style},
                                                   {&frame.slice, "A", (const kel_point*)nullptr, &style},
                                                   {&frame.slice, "A", &at, (const kel_text_style*)nullptr},
                                                   {&frame.slice, "A", &at, &no_path}}) {
        EXPECT_EQ(kel_text_draw(slice, text, point, look, nullptr), 0);
        EXPECT_EQ(kel_text_draw_in_bb(slice, text, point ? &box : nullptr, look, nullptr), 0);
        if (slice != &frame.slice || !point) continue;
        EXPECT_EQ(kel_text_create(context, text, look, 0), nullptr);
    }
    EXPECT_EQ(kel_text_create(nullptr, "A", &style, 0), nullptr);
    EXPECT_EQ(kel_text_init(nullptr), EINVAL);
    kel_text_deinit(nullptr);
    kel_test::LogCapture log;
    EXPECT_EQ(kel_text_create(context, "  ", &style, 0), nullptr) << "no ink";
    EXPECT_TRUE(log.has(2, "kel: allocate_video_buffers() invalid parameters."));
}

TEST_F(Text, StaysInsideTheBuffer) {
    Frame frame(context);
    golden::Picture before = frame.picture();
    const kel_text_style style = {kel_test::test_font("dejavu").c_str(), ~0u, 30, KEL_TEXT_HALIGN_LEFT, 0};
    frame.slice.spec.video.width = frame.slice.spec.video.height = INT_MAX;
    EXPECT_GT(frame.draw("Larger than the buffer", {width - 20, height}, style).glyphs, 5);
    for (const kel_point far : {kel_point{INT_MAX, INT_MAX}, {INT_MIN, INT_MIN}, {INT_MIN, INT_MAX}}) {
        for (int align = 0; align < 4; ++align) {
            frame.draw("far", far, {style.font_path, ~0u, 30, align, align});
            frame.draw_in_bb("far", {far.x, far.y, INT_MAX, INT_MAX},
                             {style.font_path, ~0u, 30, align, align});
        }
    }
    kel_test::LogCapture log;
    const Outcome huge = frame.draw("W", {0, 0}, {style.font_path, ~0u, 9000, 1, 3});
    EXPECT_EQ(huge.glyphs, 0) << "a bitmap of 300 MB";
    EXPECT_EQ(errors(log),
              std::vector<std::string>{"kel:  FT_New_Glyph_To_Bitmap() on glyph 58 failed: raster overflow"});
}

TEST_F(Text, WarmDrawingAllocatesNothing) {
    Frame frame(context);
    const kel_text_style style = {kel_test::test_font("dejavu").c_str(), 0xFF102030, 14, 0, 0};
    const auto draw = [&] {
        frame.draw(texts[1], {150, 40}, style);
        frame.draw_in_bb(texts[0], {10, 10, 200, 60}, style);
    };
    draw();
    static int blocks;
    blocks = 0;
    const auto counting = +[](size_t size) { return ++blocks, malloc(size); };
    const auto in_freetype = kel_test::hook(counting, "malloc", "libfreetype");
    ASSERT_TRUE(in_freetype.bound());
    kel_test::Faults faults;
    draw();
    EXPECT_EQ(faults.allocations(), 0);
    EXPECT_EQ(blocks, 0);
}

TEST_F(Text, ThreadsLoadAndDrawWithSameAndDifferentFonts) {
    kel_test::Watchdog watchdog(std::chrono::seconds(280));
    const auto& fonts = kel_test::test_fonts();
    kel_test::LogCapture log;
    for (int round = 0; round < kel_test::stress_rounds(10); ++round) {
        kel_test::run_together(4, [&](int thread) {
            Frame frame(context);
            for (size_t i = 0; i < 4; ++i) {
                const auto& font = fonts[(i + size_t(thread) / 2) % 4];
                compare_at_random(frame, font, 4, unsigned(round * 64 + thread * 8) + unsigned(i), nullptr);
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
    Frame frame(context);
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
            const Outcome outcome = frame.draw("\xC3\x84V", {20, 60}, style);
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
    Frame frame(context);
    const std::string path = kel_test::test_font("lato");
    frame.draw("A", {0, 0}, {path.c_str(), ~0u, 12, 0, 0});
    const auto busy = +[](pthread_mutex_t* mutex) { return pthread_mutex_destroy(mutex), EBUSY; };
    const auto failing = kel_test::hook(busy, "pthread_mutex_destroy");
    kel_test::LogCapture log;
    kel_text_deinit(context);
    const std::string state = "kel:  Unable to destroy mutex for kel_text: Device or resource busy.";
    const std::string font = "kel:  Unable to destroy mutex for font " + path + ": Device or resource busy.";
    EXPECT_EQ(errors(log), (std::vector{font, state, state}));
}

}  // namespace
