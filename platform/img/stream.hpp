// Sources of bytes.
#pragma once

#include <img/img.h>

#include <sys/types.h>

struct io_stream {
    int descriptor = -1;  // of a file; a memory stream has none
    const unsigned char* memory = nullptr;
    size_t left = 0;  // of memory

    // Up to `size` bytes; 0 at the end, -1 with errno.
    ssize_t read(unsigned char* bytes, size_t size);
};
