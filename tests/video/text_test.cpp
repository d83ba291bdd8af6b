// Text, held against a plain FreeType rendering pixel by pixel.
#include <atomic>
#include <climits>
#include <random>

#include "video/text_fixture.hpp"

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

TEST_F(Text, MayHaveMoreGlyphsThanItRemembers) {
    kel_test::Watchdog watchdog(std::chrono::seconds(120));
    PlainText plain(kel_test::test_font("lato"));
    for (int round = 0; round < 240; ++round) {  // every width of the box has glyphs of its own
        const Scene scene = {long_text, {kel_test::test_font("lato").c_str(), 0xFF000000u + round, 0, 0, 2},
                             {0, 50},   whole,
                             true,      {50 + round, 60}};
        golden::Picture expected = frame->picture();
        ASSERT_EQ(frame->draw(scene), plain.draw(expected, scene));
        ASSERT_TRUE(golden::same(frame->picture(), expected)) << "round " << round;
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

TEST_F(Text, EndsWhereFreeTypeCannotReach) {
    const kel_text_style style = {kel_test::test_font("noto").c_str(), ~0u, 30, KEL_TEXT_HALIGN_LEFT, 0};
    const std::string line(2000, 'M');  // 120000 pixels; FreeType renders up to 32767
    PlainText plain(style.font_path);
    for (int x = 0; x >= -40000;
         x -= x > -4500 ? 300 : 35200) {  // first glyphs with every fraction of a pixel
        LogCapture log;
        golden::Picture expected = frame->picture();
        Outcome outcome = frame->draw({line.c_str(), style, {x, 60}, whole});
        outcome.messages = errors(log);
        EXPECT_EQ(outcome, plain.draw(expected, {line.c_str(), style, {x, 60}, whole}));
        EXPECT_EQ(outcome.messages.size(), x < -39000 ? 1u : 0u);
        EXPECT_TRUE(golden::same(frame->picture(), expected));
    }
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
        for (int i = 0; i < 5; ++i) {  // the same file under a new name each time
            const std::string path =
                std::string(size_t(i * 4 + thread), '/') + kel_test::test_font("liberation");
            Frame(context).draw({"", {path.c_str(), 0, 12, 0, 0}, {0, 0}, whole});
        }
    });
    EXPECT_EQ(overlaps, 0);
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

}  // namespace
