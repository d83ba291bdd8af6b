// Everything that can go wrong with text, and how it is reported.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "support/faults.hpp"
#include "text/plain_text.hpp"

namespace {

using kel_test::LogCapture;

std::vector<std::string> errors(const LogCapture& log) {
    std::vector<std::string> texts;
    for (const auto& message : log.messages(2)) texts.push_back(message.text);
    return texts;
}

TEST_F(Text, RefusesWhatIsNotThere) {
    const kel_text_style good = {kel_test::test_font("lato").c_str(), ~0u, 12, 0, 0}, no_path = {};
    const kel_point at = {0, 50};
    const kel_rect box = {0, 0, 50, 50};
    const kel_slice empty = {};
    const kel_slice* const slice = &frame->slice;
    const int drawn[] = {kel_text_draw(nullptr, "A", &at, &good, nullptr),
                         kel_text_draw(&empty, "A", &at, &good, nullptr),
                         kel_text_draw(slice, nullptr, &at, &good, nullptr),
                         kel_text_draw(slice, "A", nullptr, &good, nullptr),
                         kel_text_draw(slice, "A", &at, nullptr, nullptr),
                         kel_text_draw(slice, "A", &at, &no_path, nullptr),
                         kel_text_draw_in_bb(slice, nullptr, &box, &good, nullptr),
                         kel_text_draw_in_bb(slice, "A", nullptr, &good, nullptr),
                         kel_text_draw_in_bb(slice, "A", &box, nullptr, nullptr)};
    for (int glyphs : drawn) EXPECT_EQ(glyphs, 0);
    EXPECT_EQ(kel_text_create(nullptr, "A", &good, 0), nullptr);
    EXPECT_EQ(kel_text_create(context, nullptr, &good, 0), nullptr);
    EXPECT_EQ(kel_text_create(context, "A", nullptr, 0), nullptr);
    EXPECT_EQ(kel_text_init(nullptr), EINVAL);
    kel_text_deinit(nullptr);
    const LogCapture log;
    const std::string half = kel_test::file_of(kel_test::read_file(good.font_path).substr(0, 300));
    const std::string none = kel_test::file_of("");
    for (const char* path : {half.c_str(), none.c_str(), "/proc/self/fd", "/no/font"})
        EXPECT_EQ(frame->draw({"A", {path, ~0u, 12, 0, 0}}), Outcome{}) << path;
    EXPECT_TRUE(log.has_starting(2, "kel:  FT_New_Memory_Face() on '" + none));
    EXPECT_EQ(kel_text_create(context, "  ", &good, 0), nullptr) << "no ink";
    EXPECT_TRUE(log.has(2, "kel: allocate_video_buffers() invalid parameters."));
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
        {"no fault", 0, 0, 2, ""},
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
    golden::Picture usual;
    const int tried = kel_test::sweep_faults(text_fault_points(), [&](const kel_test::Fault* fault,
                                                                      auto& log) {
        const Scene scene = {"\u00C4V", style, {20, 60}};
        const int init = kel_text_init(context);
        const Outcome outcome = frame->draw(scene);
        frame->clear();
        const Outcome again = frame->draw(scene);
        if (!fault) usual = frame->picture();
        kel_text_deinit(context);
        const auto* row = rows;
        while (fault && row != std::end(rows) && !fault->is(row->function, row->occurrence)) ++row;
        ASSERT_NE(row, std::end(rows)) << fault->function << fault->occurrence;
        EXPECT_EQ(init, row->init);
        EXPECT_EQ(outcome.glyphs, row->glyphs);
        EXPECT_EQ(outcome.drawn.width != -1, outcome.glyphs != 0);
        EXPECT_EQ(errors(log), row->message.empty() ? std::vector<std::string>{} : std::vector{row->message});
        if (init != 0) return;
        EXPECT_EQ(again.glyphs, 2) << "usable afterwards";
        EXPECT_TRUE(golden::same(frame->picture(), usual));
    });
    EXPECT_EQ(tried, int(std::size(rows)) - 1);
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
    frame->draw({"A", {path.c_str(), ~0u, 12, 0, 0}, {0, 0}});
    const auto busy = +[](pthread_mutex_t* mutex) { return pthread_mutex_destroy(mutex), EBUSY; };
    const auto failing = kel_test::hook(busy, "pthread_mutex_destroy");
    LogCapture log;
    kel_text_deinit(context);
    const std::string state = "kel:  Unable to destroy mutex for kel_text: Device or resource busy.";
    const std::string font = "kel:  Unable to destroy mutex for font " + path + ": Device or resource busy.";
    EXPECT_EQ(errors(log), (std::vector{font, state, state}));
}

}  // namespace
