// Text as pictures: sizes, alignments, boxes and edges of the frame. Marks and box outlines are drawn over the text.
#include "text/text_fixture.hpp"

namespace {

// FreeType's coverage differs by 1 or 2 between processors.
#if defined(__x86_64__)
constexpr int tolerance = 0;
#else
constexpr int tolerance = 2;
#endif

class TextPictures : public Text {
  protected:
    void SetUp() override {
        Text::SetUp();
        memset(frame->slice.buffer->ptr, 0, frame->slice.buffer->size);
    }
    void draw(const char* text, kel_point at, int32_t size, uint32_t color, const char* font = "dejavu",
              int halign = KEL_TEXT_HALIGN_LEFT, int valign = KEL_TEXT_VALIGN_BASELINE) {
        const kel_text_style style = {kel_test::test_font(font).c_str(), color, size, halign, valign};
        EXPECT_GT(frame->draw({text, style, at}).glyphs, 0) << text;
    }
    void draw_in(const char* text, kel_rect box, int halign, int valign) {
        const kel_text_style style = {kel_test::test_font("lato").c_str(), 0xFF2060C0, 0, halign, valign};
        EXPECT_GT(frame->draw({text, style, {box.x, box.y}, whole, true, {box.width, box.height}}).glyphs, 0);
        fill({box.x, box.y, box.width, 1});
        fill({box.x, box.y + box.height - 1, box.width, 1});
        fill({box.x, box.y, 1, box.height});
        fill({box.x + box.width - 1, box.y, 1, box.height});
    }
    void fill(kel_rect r) {
        const kel_buffer& buffer = *frame->slice.buffer;
        for (int y = r.y; y < r.y + r.height; ++y) {
            for (int x = r.x; x < r.x + r.width; ++x) {
                const uint32_t red = 0xFFE02020;
                memcpy(static_cast<uint8_t*>(buffer.ptr) + y * buffer.stride + x * 4, &red, 4);
            }
        }
    }
    testing::AssertionResult matches(const char* name) {
        return golden::matches(name, frame->picture(), tolerance);
    }
};

TEST_F(TextPictures, SizesColoursAndFonts) {
    draw("4 points, AV Wa To.", {4, 12}, 4, 0xFF000000);
    draw("8 points, AV Wa To.", {4, 36}, 8, 0xFFC00000, "liberation");
    draw(
        "Gr\xC3\xBC\xC3\x9F"
        "e \xCE\xA9 16",
        {4, 80}, 16, 0xC0008040, "noto");
    draw("agj 32", {4, 145}, 32, 0x80202080, "lato");
    draw("bitmaps 1-2-3", {180, 30}, 5, 0xFF808000, "bitmap");
    EXPECT_TRUE(matches("text_sizes"));
}

TEST_F(TextPictures, Alignments) {
    for (int halign = 0; halign < 3; ++halign) {
        for (int valign = 0; valign < 4; ++valign) {
            const kel_point at = {60 + halign * 100, 20 + valign * 40};
            draw("Ajgy", at, 10, 0xFF204060, "dejavu", halign, valign);
            fill({at.x - 3, at.y, 7, 1});
            fill({at.x, at.y - 3, 1, 7});
        }
    }
    EXPECT_TRUE(matches("text_alignments"));
}

TEST_F(TextPictures, Boxes) {
    for (int align = 0; align < 4; ++align) {
        draw_in("Wide as the box", {5, 2 + align * 39, 150, 36}, 0, align);
        draw_in("High", {165, 2 + align * 39, 150, 36}, align, 0);
    }
    EXPECT_TRUE(matches("text_boxes"));
}

TEST_F(TextPictures, PartlyOutsideEachEdge) {
    draw("left", {-20, 90}, 16, 0xFF104080);
    draw("right", {width - 40, 90}, 16, 0xFF108040);
    draw("top", {140, 8}, 16, 0xFF801040);
    draw("bottom", {110, height + 6}, 16, 0xFF804010);
    draw("corner", {-16, 12}, 16, 0xFF401080);
    draw("corner", {width - 60, height + 8}, 16, 0xFF408010);
    draw("a blank ends what follows", {-30, 50}, 10, 0xFF404040);
    EXPECT_TRUE(matches("text_edges"));
}

}  // namespace
