// Fonts that the tests use: packaged ones, and one that the tests make.
#pragma once

#include <string>
#include <vector>

namespace kel_test {

struct TestFont {
    const char* name;
    std::string path;
};

// Outline fonts with and without kerning, and a font of 1-bit bitmaps.
const std::vector<TestFont>& test_fonts();
const std::string& test_font(const char* name);

std::string read_file(const std::string& path);

// A path under which the bytes can be read while the process lives; nothing is left on disk.
std::string file_of(const std::string& bytes);

}  // namespace kel_test
