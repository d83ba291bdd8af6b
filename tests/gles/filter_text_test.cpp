// Filter texts: what is read, what is refused, and the registry.
#include <gtest/gtest.h>
#include <kel.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include "gles/plain_filter_text.hpp"
#include "support/faults.hpp"
#include "support/threads.hpp"

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

void expect_plain_reading(const std::string& text) {
    std::string unknown;
    const auto expected = plain_filter(text, unknown);
    const Reading reading(text);
    ASSERT_EQ(reading.filter != nullptr, expected.has_value()) << text;
    ASSERT_EQ(reading.unknown, unknown) << text;
    if (!expected) return;
    ASSERT_EQ(kel_get_video_filter_name(reading.filter), expected->name) << text;
    ASSERT_EQ(kel_get_video_filter_description(reading.filter), expected->description) << text;
    ASSERT_TRUE(reading.params() == expected->params) << text;
}

// Texts that are nearly filters, then lines of likely and unlikely pieces.
TEST(FilterText, AgreesWithAPlainReading) {
    for (const char* text :
         {"", "/*", "/*/Filter: a", "// no\n/* Filter: a */", "void main() {} /* Filter: a */",
          "/*\nFilter:\nFilter: \t*/", "/*Filter:a*/", "\n\t \r\n/* filter : Blur it */", "/*Filter:a:b;c*/",
          "/*Filter:a\nParameter:lowp\tivec2  n more words; ;min 1*/",
          "/*Filter:a\nParameter:vec4 n;default 1e3, +2, 1-2, 1.2.3;MIN 0;max 1,2,3,4,5;default ,2*/",
          "/*Filters: x\nFilter: d\n: y\nsome prose*/"})
        expect_plain_reading(text);
    std::vector<std::string> parts = {"PARAMETER", "x y",           "\r\n",
                                      "\n\r",      "\nFilter: f\n", "Parameter: float a;default 1"};
    std::istringstream words(
        "Filter main Description Parameter : : : ; ; , - . // / * lowp highp float vec3 ivec2 "
        "int texture min MAX default 1 25 0.5 name");
    parts.insert(parts.end(), std::istream_iterator<std::string>(words), {});
    for (const char* blank : {" ", "\t", "\n", "\n", "\r"}) parts.emplace_back(blank);
    std::mt19937 random(static_cast<unsigned>(random_seed()));
    for (int round = 0; round < stress_rounds(8000) && !testing::Test::HasFatalFailure(); ++round) {
        std::string text = random() % 8 ? "/*" : "";
        for (auto count = random() % 60; count > 0; --count) text += parts[random() % parts.size()];
        if (random() % 8) text += "*/void f() {}";
        expect_plain_reading(text);
    }
}

TEST(FilterText, Accessors) {
    kel_video_filter* filter =
        Reading("/*Filter:a\nDescription: Two: parts // no\nParameter:vec2 dry/wet\nParameter:int n*/")
            .filter;
    EXPECT_STREQ(kel_get_video_filter_name(filter), "a");
    EXPECT_STREQ(kel_get_video_filter_description(filter), "Two: parts");
    EXPECT_EQ(kel_get_video_filter_type(filter), 1);
    EXPECT_EQ(kel_get_video_filter_num_params(filter), 2);
    EXPECT_EQ(kel_get_video_filter_param_index(filter, "n"), 1);
    for (const char* name : {"N", "", "dry"}) EXPECT_EQ(kel_get_video_filter_param_index(filter, name), -1);
    for (const int index : {-1, 2}) EXPECT_EQ(kel_get_video_filter_param(filter, index), nullptr);
    EXPECT_EQ(kel_load_video_filter_shader(nullptr), nullptr);
    EXPECT_EQ(kel_get_video_filter_name(nullptr), nullptr);
    EXPECT_EQ(kel_get_video_filter_description(nullptr), nullptr);
    EXPECT_EQ(kel_get_video_filter_param(nullptr, 0), nullptr);
    EXPECT_EQ(kel_get_video_filter_type(nullptr) | kel_get_video_filter_num_params(nullptr), 0);
    EXPECT_EQ(kel_get_video_filter_param_index(nullptr, "n"), -1);
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

TEST(FilterFile, LoadsOrSaysWhy) {
    const std::string path = testing::TempDir() + "filter" + std::to_string(getpid());
    const auto load = [&] { return kel_load_video_filter_shader_from_file(path.c_str()); };
    EXPECT_EQ(load(), nullptr);
    EXPECT_EQ(errno, ENOENT);
    std::ofstream(path) << "no filter";
    EXPECT_EQ(load(), nullptr);
    std::ofstream(path) << "/*Filter:f\nMain:m\nDescription:d\nParameter:float a\nParameter:int b\n"
                           "Parameter:int c*/";
    // Every allocation fails once; then nothing is registered and nothing is left.
    kel_video_filter* const newest = kel_get_first_video_filter();
    Faults faults;
    int tried = 0;
    while (faults.fail_call(tried + 1), !load()) {
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_EQ(kel_get_first_video_filter(), newest);
        EXPECT_EQ(faults.holdings(), Holdings{}) << tried;
        ++tried;
    }
    EXPECT_EQ(tried,
              15);  // the file's text, filter, 3 strings, 3 parameters with names and 3 growths, source
    EXPECT_EQ(kel_get_next_video_filter(kel_find_video_filter("f")), newest);
    unlink(path.c_str());
}

}  // namespace
