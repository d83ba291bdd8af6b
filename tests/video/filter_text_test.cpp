// Filter texts: what is read, what is refused, and the registry.
#include <gtest/gtest.h>
#include <kel.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <thread>

#include "support/faults.hpp"
#include "support/threads.hpp"
#include "video/plain_filter_text.hpp"

namespace {

using namespace kel_test;

// What the library makes of a text, and of its unknown directives.
struct Reading {
    kel_video_filter* filter;
    std::string unknown;
    explicit Reading(const std::string& text) {
        testing::internal::CaptureStderr();
        filter = kel_load_video_filter_shader(text.c_str());
        unknown = testing::internal::GetCapturedStderr();
    }
    std::vector<PlainParam> params() const {
        std::vector<PlainParam> all;
        for (int i = 0; i < kel_get_video_filter_num_params(filter); ++i)
            all.push_back(plain(*kel_get_video_filter_param(filter, i)));
        return all;
    }
};

TEST(FilterText, IsAFilterOrNot) {
    const struct {
        const char* text;
        const char* name;  // null: not a filter
        const char* unknown = "";
    } rows[] = {{"", nullptr},
                {"/*", nullptr},
                {"/*/Filter: a", nullptr},
                {"// no\n/* Filter: a */", nullptr},
                {"void main() {} /* Filter: a */", nullptr},
                {"/* Parameter: float x\nParameter: int y */", nullptr},
                {"/*\nFilter:\nFilter: \t*/", nullptr},
                {"/*Filter:a*/", "a"},
                {"\n\t \r\n/* filter : Blur it */", "Blur"},
                {"/*\nFILTER:\nFilter: b\nFilter: c */", "b"},
                {"/*Filter:a:b;c*/", "a:b;c"},
                {"/*Filters: x\nFilter: d\n: y\nsome prose*/", "d",
                 "Unknown directive: Filters\nUnknown directive: \nUnknown directive: some prose\n"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const Reading reading(row.text);
        EXPECT_STREQ(kel_get_video_filter_name(reading.filter), row.name);
        EXPECT_EQ(reading.unknown, row.unknown);
    }
    EXPECT_EQ(kel_load_video_filter_shader(nullptr), nullptr);
}

TEST(FilterText, Parameters) {
    const auto low = [](std::vector<double> v) { return v.empty() ? std::vector<double>(4, DBL_MIN) : v; };
    const auto high = [](std::vector<double> v) { return v.empty() ? std::vector<double>(4, DBL_MAX) : v; };
    const struct {
        const char* value;
        int type, count, precision;  // type 0: no parameter
        std::vector<double> fallback = {0, 0, 0, 0}, min = {}, max = {};
    } rows[] = {
        {"vec3 n", 1, 3, 2},
        {"lowp\tivec2  n more words", 2, 2, 1},
        {"wrong ivec4 n", 2, 4, 0},
        {"texture n; default 1", 3, 1, 2, {1, 1, 1, 1}},
        {"n", 0, 0, 0},
        {"double n", 0, 0, 0},
        {"vec22 n", 0, 0, 0},
        {"; ;vec2 n;; default 1, 2 ; MIN 0;max 1,2,3,4,5", 1, 2, 2, {1, 2, 2, 2}, {0, 0, 0, 0}, {1, 2, 3, 4}},
        {"float n;default 0.25,-1;", 1, 1, 2, {0.25, -1, -1, -1}},
        {"float n;default 1;default ,2;default;defaults 3;default=4;other 5", 1, 1, 2, {1, 1, 1, 1}},
        {"vec4 n;default 1e3, +2, 1-2, 1.2.3", 1, 4, 2, {1, 0, -12, 1 + 2 * 0.1}},
        {"vec4 n;default 1-2-3, .5, -.-5, 7x", 1, 4, 2, {-12, 0.5, 0, 7}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        const Reading reading(std::string("/*Filter:p\nParameter:") + row.value + "*/");
        std::vector<PlainParam> expected;
        if (row.type)
            expected = {{"n", row.type, row.count, row.precision, low(row.min), high(row.max), row.fallback}};
        EXPECT_TRUE(reading.params() == expected);
    }
}

TEST(FilterText, WholeFilter) {
    const char* body = "\nvoid apply_tint() { /* one */ }\n*/ rest";
    const std::string header =
        "/*\nFilter: tint // named\nDescription:  Two: parts; and // a comment\nMain: apply_tint now\n"
        "Description: second\nMain: other\nParameter: vec2 dry/wet\nParameter: int n\n*/";
    for (const char* end : {"\n", "\r\n", "\r", "\n\r"}) {
        std::string text;
        for (const char c : header) text += c == '\n' ? std::string(end) : std::string(1, c);
        const Reading reading(text + body);
        kel_video_filter* filter = reading.filter;
        ASSERT_NE(filter, nullptr);
        EXPECT_STREQ(kel_get_video_filter_description(filter), "Two: parts; and");
        EXPECT_EQ(kel_get_video_filter_type(filter), 1);
        EXPECT_EQ(kel_get_video_filter_num_params(filter), 2);
        EXPECT_EQ(kel_get_video_filter_param_index(filter, "dry/wet"), 0);
        EXPECT_EQ(kel_get_video_filter_param_index(filter, "n"), 1);
        for (const char* name : {"N", "", "dry"})
            EXPECT_EQ(kel_get_video_filter_param_index(filter, name), -1);
        for (const int index : {-1, 2}) EXPECT_EQ(kel_get_video_filter_param(filter, index), nullptr);
    }
    const Reading bare("/*Filter:bare*/");
    EXPECT_STREQ(kel_get_video_filter_description(bare.filter), "");
    EXPECT_EQ(kel_get_video_filter_name(nullptr), nullptr);
    EXPECT_EQ(kel_get_video_filter_description(nullptr), nullptr);
    EXPECT_EQ(kel_get_video_filter_param(nullptr, 0), nullptr);
    EXPECT_EQ(kel_get_video_filter_type(nullptr) | kel_get_video_filter_num_params(nullptr), 0);
    EXPECT_EQ(kel_get_video_filter_param_index(nullptr, "n"), -1);
}

// Lines of likely and unlikely pieces, joined by all line ends.
TEST(FilterText, AgreesWithAPlainReading) {
    static const std::vector<std::string> parts = {"Filter",
                                                   "main",
                                                   "Description",
                                                   "PARAMETER",
                                                   "Parameter",
                                                   ":",
                                                   ":",
                                                   ":",
                                                   " ",
                                                   "\t",
                                                   ";",
                                                   ";",
                                                   ",",
                                                   "-",
                                                   ".",
                                                   "//",
                                                   "/",
                                                   "*",
                                                   "lowp",
                                                   "highp",
                                                   "float",
                                                   "vec3",
                                                   "ivec2",
                                                   "int",
                                                   "texture",
                                                   "min",
                                                   "MAX",
                                                   "default",
                                                   "1",
                                                   "25",
                                                   "0.5",
                                                   "name",
                                                   "x y",
                                                   "\n",
                                                   "\r\n",
                                                   "\n\r",
                                                   "\r",
                                                   "\n",
                                                   "Parameter: float a;default 1",
                                                   "\nFilter: f\n"};
    std::mt19937 random(static_cast<unsigned>(random_seed()));
    int filters = 0;
    for (int round = 0; round < stress_rounds(8000); ++round) {
        std::string text = random() % 8 ? "/*" : "";
        for (auto count = random() % 60; count > 0; --count) text += parts[random() % parts.size()];
        if (random() % 8) text += "*/void f() {}";
        std::string unknown;
        const auto expected = plain_filter(text, unknown);
        const Reading reading(text);
        ASSERT_EQ(reading.filter != nullptr, expected.has_value()) << text;
        ASSERT_EQ(reading.unknown, unknown) << text;
        if (!expected) continue;
        ++filters;
        ASSERT_EQ(kel_get_video_filter_name(reading.filter), expected->name) << text;
        ASSERT_EQ(kel_get_video_filter_description(reading.filter), expected->description) << text;
        ASSERT_TRUE(reading.params() == expected->params) << text;
    }
    EXPECT_GT(filters, 50);
}

TEST(FilterRegistry, FindsTheNewest) {
    EXPECT_EQ(kel_find_video_filter("twice"), nullptr);
    EXPECT_EQ(kel_find_video_filter(nullptr), nullptr);
    kel_video_filter* before = kel_get_first_video_filter();
    kel_video_filter* one = kel_load_video_filter_shader("/*Filter:twice*/");
    kel_video_filter* two = kel_load_video_filter_shader("/*Filter:twice*/");
    EXPECT_EQ(kel_find_video_filter("twice"), two);
    EXPECT_EQ(kel_find_video_filter("Twice"), nullptr);
    EXPECT_EQ(kel_get_first_video_filter(), two);
    EXPECT_EQ(kel_get_next_video_filter(two), one);
    EXPECT_EQ(kel_get_next_video_filter(one), before);
    EXPECT_EQ(kel_get_next_video_filter(nullptr), nullptr);
}

TEST(FilterRegistry, TakesFiltersFromSeveralThreads) {
    const auto count = [] {
        int n = 0;
        for (auto* f = kel_get_first_video_filter(); f; f = kel_get_next_video_filter(f)) ++n;
        return n;
    };
    const int before = count();
    run_together(4, [&](int) {
        for (int i = 0; i < 200; ++i) {
            EXPECT_NE(kel_load_video_filter_shader("/*Filter:many*/"), nullptr);
            EXPECT_NE(kel_find_video_filter("many"), nullptr);
        }
    });
    EXPECT_EQ(count(), before + 800);
}

struct FilterFile : testing::Test {
    std::string path = testing::TempDir() + "filter" + std::to_string(getpid());
    void TearDown() override { unlink(path.c_str()); }
    void write(const char* text) {
        FILE* file = fopen(path.c_str(), "w");
        fputs(text, file);
        fclose(file);
    }
};

TEST_F(FilterFile, LoadsOrSaysWhy) {
    errno = 0;
    EXPECT_EQ(kel_load_video_filter_shader_from_file(path.c_str()), nullptr);
    EXPECT_EQ(errno, ENOENT);
    for (const char* text : {"", "no filter"}) {
        write(text);
        EXPECT_EQ(kel_load_video_filter_shader_from_file(path.c_str()), nullptr);
    }
    write("/*Filter:of-a-file*/");
    kel_video_filter* filter = kel_load_video_filter_shader_from_file(path.c_str());
    EXPECT_NE(filter, nullptr);
    EXPECT_EQ(kel_find_video_filter("of-a-file"), filter);
}

// Every allocation fails once; then nothing is registered and nothing is left.
TEST_F(FilterFile, EveryStepFailsOnce) {
    write("/*Filter:f\nMain:m\nDescription:d\nParameter:float a\nParameter:int b\nParameter:int c*/");
    kel_video_filter* newest = kel_get_first_video_filter();
    Faults faults;
    int tried = 0;
    for (;; ++tried) {
        faults.fail_call(tried + 1);
        kel_video_filter* filter = kel_load_video_filter_shader_from_file(path.c_str());
        if (filter) break;
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_EQ(kel_get_first_video_filter(), newest);
        EXPECT_EQ(faults.holdings(), Holdings{}) << tried;
    }
    // The file's text, filter, 3 strings, 3 parameters with names and 3 growths, source.
    EXPECT_EQ(tried, 15);
}

}  // namespace
