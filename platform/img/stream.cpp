#include "img/stream.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

ssize_t io_stream::read(unsigned char* bytes, size_t size) {
    if (descriptor >= 0) return TEMP_FAILURE_RETRY(::read(descriptor, bytes, size));
    const size_t taken = std::min(size, left);
    if (taken == 0) return 0;
    memcpy(bytes, memory, taken);
    memory += taken;
    left -= taken;
    return static_cast<ssize_t>(taken);
}

io_stream_t* io_open_file(const char* path) {
    if (!path) {
        errno = EINVAL;
        return nullptr;
    }
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return nullptr;
    auto* stream = new (std::nothrow) io_stream;
    if (!stream) {
        close(descriptor);
        errno = ENOMEM;
        return nullptr;
    }
    stream->descriptor = descriptor;
    return stream;
}

io_stream_t* io_open_memory(const void* bytes, size_t size) {
    if (!bytes && size) {
        errno = EINVAL;
        return nullptr;
    }
    auto* stream = new (std::nothrow) io_stream;
    if (!stream) {
        errno = ENOMEM;
        return nullptr;
    }
    stream->memory = static_cast<const unsigned char*>(bytes);
    stream->left = size;
    return stream;
}

void io_close(io_stream_t* stream) {
    if (!stream) return;
    if (stream->descriptor >= 0) close(stream->descriptor);
    delete stream;
}
