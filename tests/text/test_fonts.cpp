#include "text/test_fonts.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace kel_test {
namespace {

// Printable ASCII, 10 x 12 pixels each; rows of bits made from the character's code, so that all differ.
std::string bitmap_font() {
    std::string font =
        "STARTFONT 2.1\nFONT -test-blocks-medium-r-normal--12-54-160-160-c-110-iso10646-1\n"
        "SIZE 5 160 160\nFONTBOUNDINGBOX 10 12 0 -2\nSTARTPROPERTIES 4\nFONT_ASCENT 10\nFONT_DESCENT 2\n"
        "CHARSET_REGISTRY \"ISO10646\"\nCHARSET_ENCODING \"1\"\nENDPROPERTIES\nCHARS 95\n";
    for (unsigned code = 32; code < 127; ++code) {
        const unsigned rows = code == 32 ? 0 : 12;
        char line[99];
        std::snprintf(line, sizeof line,
                      "STARTCHAR c\nENCODING %u\nSWIDTH 500 0\nDWIDTH 11 0\nBBX %u %u 0 -2\nBITMAP\n", code,
                      rows ? 10 : 0, rows);
        font += line;
        for (unsigned row = 0; row < rows; ++row) {
            std::snprintf(line, sizeof line, "%04X\n", (code * 2654435761u >> row & 0x3FF) << 6 | 0x8040);
            font += line;
        }
        font += "ENDCHAR\n";
    }
    return font + "ENDFONT\n";
}

}  // namespace

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("no font " + path + ": install its package");
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string file_of(const std::string& bytes) {
    const int file = memfd_create("font", MFD_CLOEXEC);
    if (write(file, bytes.data(), bytes.size()) != ssize_t(bytes.size())) throw std::runtime_error("memfd");
    return "/proc/self/fd/" + std::to_string(file);
}

const std::vector<TestFont>& test_fonts() {
    static const std::string folder = "/usr/share/fonts/truetype/";
    static const std::vector<TestFont> fonts = {
        {"dejavu", folder + "dejavu/DejaVuSans.ttf"},
        {"liberation", folder + "liberation2/LiberationSerif-Italic.ttf"},
        {"lato", folder + "lato/Lato-Regular.ttf"},
        {"noto", folder + "noto/NotoSans-Regular.ttf"},
        {"bitmap", file_of(bitmap_font())},
    };
    return fonts;
}

const std::string& test_font(const char* name) {
    for (const TestFont& font : test_fonts()) {
        if (std::string(name) == font.name) return font.path;
    }
    throw std::runtime_error(name);
}

}  // namespace kel_test
