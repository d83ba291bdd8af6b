#include "png_file.hpp"

#include <fcntl.h>
#include <png.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "failure.hpp"

namespace fs = std::filesystem;

namespace kel_tool {
namespace {

using bytes = std::vector<uint8_t>;

bytes encode(const kel_slice& picture) {
    const auto& video = picture.spec.video;
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(video.width);
    image.height = static_cast<png_uint_32>(video.height);
    image.format = PNG_FORMAT_BGRA;
    const auto* pixels = static_cast<const uint8_t*>(picture.buffer->ptr) +
                         ptrdiff_t{video.y} * picture.buffer->stride + ptrdiff_t{video.x} * 4;
    bytes file(PNG_IMAGE_PNG_SIZE_MAX(image));
    png_alloc_size_t size = file.size();
    if (!png_image_write_to_memory(&image, file.data(), &size, 0, pixels, picture.buffer->stride, nullptr))
        throw failure(std::string("the picture cannot be compressed: ") + image.message);
    file.resize(size);
    return file;
}

// Creates or opens `path` and writes all; false with errno.
bool write_all(const std::string& path, int flags, const bytes& data) {
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, 0666);
    if (file < 0) return false;
    const uint8_t* at = data.data();
    const uint8_t* end = at + data.size();
    while (at < end) {
        const ssize_t written = write(file, at, static_cast<size_t>(end - at));
        if (written < 0 && errno != EINTR) break;
        if (written > 0) at += written;
    }
    const int error = at < end ? errno : 0;
    if (close(file) != 0 && error == 0) return false;
    errno = error;
    return error == 0;
}

bool replace_file(const std::string& path, const bytes& data) {
    const std::string beside = path + "." + std::to_string(getpid()) + ".part";
    if (write_all(beside, O_CREAT | O_EXCL, data) && std::rename(beside.c_str(), path.c_str()) == 0)
        return true;
    const int error = errno;
    if (error != EEXIST) unlink(beside.c_str());
    errno = error;
    return false;
}

}  // namespace

void write_png(const std::string& path, const kel_slice& picture) {
    const bytes data = encode(picture);
    std::error_code ignored;
    const bool is_device = fs::exists(path, ignored) && !fs::is_regular_file(path, ignored);
    const fs::path target = fs::weakly_canonical(path, ignored);  // a link stays one
    if (!(is_device ? write_all(path, 0, data) : replace_file(target.string(), data)))
        throw failure(path + ": it cannot be written: " + std::strerror(errno));
}

}  // namespace kel_tool
