// Text, held against a plain FreeType rendering pixel by pixel.
#include <atomic>
#include <climits>
#include <random>

#include "support/faults.hpp"
#include "support/threads.hpp"
#include "text/plain_text.hpp"

namespace {

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

kel_text_style style_of(const char* font, int32_t size, uint32_t color = ~0u) {
    return {kel_test::test_font(font).c_str(), color, size, KEL_TEXT_HALIGN_LEFT, KEL_TEXT_VALIGN_BASELINE};
}

// Draws over what the frame has.
void compare(Frame& frame, PlainText& plain, const Scene& scene) {
    golden::Picture expected = frame.picture();
    const Outcome outcome = frame.draw(scene);
    ASSERT_EQ(outcome, plain.draw(expected, scene));
    ASSERT_TRUE(golden::same(frame.picture(), expected));
}

// Texts, colours, clips, positions, sizes and boxes at random, each drawn at a point and into a box, and then once
// more from what the first time left behind.
void compare_at_random(Frame& frame, PlainText& plain, const char* font, int rounds, unsigned long seed) {
    std::mt19937 random(static_cast<uint32_t>(seed));
    const auto between = [&](int low, int high) { return std::uniform_int_distribution(low, high)(random); };
    for (int round = 0; round < rounds; ++round) {
        const int points = between(0, 9) ? between(1, 40) : between(100, 400);
        Scene scene = {.text = texts[between(0, int(std::size(texts)) - 1)],
                       .style = {kel_test::test_font(font).c_str(), uint32_t(random()), points,
                                 between(-1, 3), between(-1, 4)},
                       .at = {between(-200, width + 20), between(-30, height + 60)},
                       .clip = between(0, 2) ? whole : kel_point{between(0, width), between(0, height)},
                       .box_size = {between(-2, 400), between(0, 150)}};
        for (int call = 0; call < 4 && !testing::Test::HasFatalFailure(); ++call) {
            SCOPED_TRACE(testing::Message()
                         << font << " round " << round << " call " << call << ": " << scene.text);
            scene.boxed = call % 2 == 1;
            compare(frame, plain, scene);
        }
    }
}

TEST_F(Text, IsPixelForPixelFreeTypesRendering) {
    for (const auto& font : kel_test::test_fonts()) {
        const kel_test::LogCapture log;
        PlainText plain(font.path);
        compare_at_random(*frame, plain, font.name, kel_test::stress_rounds(200), kel_test::random_seed());
        EXPECT_EQ(log.messages(2).size(), 0u) << font.name;
    }
}

TEST_F(Text, MayHaveMoreGlyphsThanItRemembers) {
    const kel_test::Watchdog watchdog(std::chrono::seconds(120));
    PlainText plain(kel_test::test_font("lato"));
    for (int round = 0; round < 240; ++round)  // every width of the box has glyphs of its own
        compare(*frame, plain, {long_text, style_of("lato", 0), {0, 50}, whole, true, {50 + round, 60}});
}

TEST_F(Text, CreatesABufferAsLargeAsTheInk) {
    for (const auto& font : kel_test::test_fonts()) {
        PlainText plain(font.path);
        kel_text_style style = {font.path.c_str(), 0x80C0FFEE, 20, 2, 3};
        kel_buffer* buffer = kel_text_create(context, "Ink only, jg", &style, SCREEN_USAGE_WRITE);
        ASSERT_NE(buffer, nullptr);
        const kel_rect r = plain.layout("Ink only, jg", 20);
        const kel_video_format& format = kel_get_buffer_format(buffer)->video;
        EXPECT_EQ(format.format, SCREEN_FORMAT_RGBA8888);
        golden::Picture expected{r.width, r.height, std::vector<uint8_t>(size_t(r.width) * r.height * 4)};
        style.halign = style.valign = -1;  // alignment is not applied
        plain.draw(expected, {"Ink only, jg", style, {0, -r.y}, {r.width, r.height}});
        EXPECT_TRUE(
            golden::same(golden::copy(buffer->ptr, format.width, format.height, buffer->stride), expected));
        EXPECT_EQ(kel_release_buffer(buffer), 0);
    }
}

TEST_F(Text, AFontIsReadOnceUnderAPathOfItsOwn) {
    kel_test::Faults faults({KEL_FAULT_POINT(FT_New_Memory_Face, 1, 0)});
    std::string path;
    for (const char* font : {"noto", "lato", "noto", "lato"}) {
        path = kel_test::test_font(font);  // the caller's string changes
        EXPECT_EQ(frame->draw({"ABC", {path.c_str(), ~0u, 12, 0, 0}, {100, 50}}).glyphs, 3);
        EXPECT_EQ(kel_text_init(context), 0) << "keeps the state";
    }
    const auto calls = faults.passed();
    EXPECT_EQ(
        std::count_if(calls.begin(), calls.end(), [](auto& c) { return c.function == "FT_New_Memory_Face"; }),
        2);
    kel_text_deinit(context);
    EXPECT_EQ(faults.holdings().blocks + faults.holdings().mutexes, 0);
    EXPECT_EQ(frame->draw({"ABC", style_of("noto", 12), {100, 50}}), Outcome{}) << "no text state";
    kel_text_deinit(context);
}

TEST_F(Text, StaysInsideTheBuffer) {
    kel_text_style style = style_of("dejavu", 30);
    constexpr kel_point far_away = {INT_MAX, INT_MAX};
    EXPECT_GT(frame->draw({"Larger than the buffer", style, {width - 20, height}, far_away}).glyphs, 5);
    for (const kel_point at : {far_away, {INT_MIN, INT_MIN}, {INT_MIN, INT_MAX}}) {
        for (style.halign = style.valign = 0; style.valign < 4; style.halign = ++style.valign) {
            frame->draw({"far", style, at, far_away});
            frame->draw({"far", style, at, far_away, true, far_away});
        }
    }
    const kel_test::LogCapture log;
    EXPECT_EQ(frame->draw({"W", style_of("dejavu", 9000), {0, 10}}), Outcome{});  // a bitmap of 300 MB
    EXPECT_TRUE(log.has(2, "kel:  FT_New_Glyph_To_Bitmap() on glyph 58 failed: raster overflow"));
}

TEST_F(Text, EndsWhereFreeTypeCannotReach) {
    const std::string line(2000, 'M');  // 120000 pixels; FreeType renders up to 32767
    PlainText plain(kel_test::test_font("noto"));
    const kel_test::LogCapture log;
    for (int x = 0; x > -4500; x -= 300)  // first glyphs with every fraction of a pixel
        compare(*frame, plain, {line.c_str(), style_of("noto", 30), {x, 60}});
    EXPECT_EQ(log.messages(2).size(), 0u);
    compare(*frame, plain, {line.c_str(), style_of("noto", 30), {-40000, 60}});
    EXPECT_EQ(log.messages(2).size(), 1u);
}

TEST_F(Text, WarmDrawingAllocatesNothing) {
    const auto draw = [&] {
        frame->draw({long_text, style_of("dejavu", 14), {150, 40}});
        frame->draw({long_text, style_of("dejavu", 14), {10, 10}, whole, true, {200, 60}});
    };
    draw();
    static int blocks = 0;
    const auto counting = +[](size_t size) { return ++blocks, malloc(size); };
    const auto in_freetype = kel_test::hook(counting, "malloc", "libfreetype");
    ASSERT_TRUE(in_freetype.bound());
    const kel_test::Faults faults;
    draw();
    EXPECT_EQ(faults.allocations() + blocks, 0);
}

TEST_F(Text, ThreadsLoadAndDrawWithSameAndDifferentFonts) {
    const kel_test::Watchdog watchdog(std::chrono::seconds(280));
    const kel_test::LogCapture log;
    for (int round = 0; round < kel_test::stress_rounds(10); ++round) {
        kel_test::run_together(4, [&](int thread) {
            Frame own(context);
            for (int i = 0; i < 4; ++i) {
                const auto& font = kel_test::test_fonts()[size_t(i + thread / 2) % 4];
                PlainText plain(font.path);
                compare_at_random(own, plain, font.name, 4, unsigned(round * 64 + thread * 8 + i));
            }
        });
        kel_text_deinit(context);
        ASSERT_EQ(kel_text_init(context), 0);
    }
    EXPECT_EQ(log.messages(2).size(), 0u);
}

std::atomic<int> making_faces = 0;
std::atomic<int> overlaps = 0;

FT_Error watched_new_face(FT_Library library, const FT_Byte* bytes, FT_Long size, FT_Long index,
                          FT_Face* face) {
    overlaps += making_faces++;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const FT_Error error = FT_New_Memory_Face(library, bytes, size, index, face);
    --making_faces;
    return error;
}

TEST_F(Text, FacesOfOneLibraryAreMadeOneAfterTheOther) {
    const auto watched = kel_test::hook(watched_new_face, "FT_New_Memory_Face");
    kel_test::run_together(4, [&](int thread) {
        const std::string path = std::string(size_t(thread), '/') + kel_test::test_font("liberation");
        Frame(context).draw({"", {path.c_str(), 0, 12, 0, 0}});
    });
    EXPECT_EQ(overlaps, 0);
}

}  // namespace
