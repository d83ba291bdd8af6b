// Whole files as text.
#pragma once

#include <cstddef>

#include "base/guard.hpp"

namespace kel {

// A file's text, NUL-terminated; `length` counts the bytes that could be read. No text: errno has the reason.
struct text_file {
    owned<char> text;
    std::size_t length = 0;
};

// Fails as fopen does, with ENOMEM when the text cannot be held in memory, or when the file has no length
// (pipe).
text_file read_text_file(const char* path);

}  // namespace kel
