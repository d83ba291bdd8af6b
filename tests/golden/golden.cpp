#include "golden/golden.hpp"

#include <png.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace golden {
namespace {

[[noreturn]] void fail(const std::string& path, const png_image& image) {
    throw std::runtime_error(path + ": " + image.message);
}

bool close(const uint8_t* a, const uint8_t* b, int tolerance) {
    if (tolerance == 0) return std::memcmp(a, b, 4) == 0;
    for (int channel = 0; channel < 3; ++channel) {
        if (std::abs(a[channel] * a[3] - b[channel] * b[3]) > tolerance * 255) return false;
    }
    return std::abs(a[3] - b[3]) <= tolerance;
}

std::string describe(const uint8_t* pixel) {
    char text[32];
    std::snprintf(text, sizeof text, "%02X%02X%02X alpha %02X", pixel[2], pixel[1], pixel[0], pixel[3]);
    return text;
}

}  // namespace

Picture copy(const void* pixels, int width, int height, std::ptrdiff_t stride) {
    Picture picture{width, height, std::vector<uint8_t>(std::size_t(width) * height * 4)};
    for (int y = 0; y < height; ++y) {
        std::memcpy(&picture.bgra[std::size_t(y) * width * 4],
                    static_cast<const uint8_t*>(pixels) + y * stride, std::size_t(width) * 4);
    }
    return picture;
}

Picture read_png(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) fail(path, image);
    image.format = PNG_FORMAT_BGRA;
    Picture picture{int(image.width), int(image.height), std::vector<uint8_t>(PNG_IMAGE_SIZE(image))};
    if (!png_image_finish_read(&image, nullptr, picture.bgra.data(), 0, nullptr)) fail(path, image);
    return picture;
}

void write_png(const std::string& path, const Picture& picture) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = png_uint_32(picture.width);
    image.height = png_uint_32(picture.height);
    image.format = PNG_FORMAT_BGRA;
    if (!png_image_write_to_file(&image, path.c_str(), 0, picture.bgra.data(), 0, nullptr)) fail(path, image);
}

testing::AssertionResult same(const Picture& actual, const Picture& expected, int tolerance) {
    if (expected.width != actual.width || expected.height != actual.height) {
        return testing::AssertionFailure() << "size " << actual.width << " x " << actual.height
                                           << " instead of " << expected.width << " x " << expected.height;
    }
    int count = 0;
    std::size_t first = 0;
    for (std::size_t i = 0; i < actual.bgra.size(); i += 4) {
        if (close(&actual.bgra[i], &expected.bgra[i], tolerance)) continue;
        if (count++ == 0) first = i;
    }
    if (count == 0) return testing::AssertionSuccess();
    const std::size_t width = std::size_t(actual.width), pixel = first / 4;
    return testing::AssertionFailure()
           << count << " pixels differ; the first, (" << pixel % width << ", " << pixel / width << "), is "
           << describe(&actual.bgra[first]) << " instead of " << describe(&expected.bgra[first]);
}

testing::AssertionResult matches(const std::string& name, const Picture& picture, int tolerance) {
    const std::string path = KEL_GOLDEN_FOLDER "/" + name + ".png";
    if (std::getenv("KEL_GOLDEN_UPDATE")) {
        write_png(path, picture);
        return testing::AssertionSuccess();
    }
    testing::AssertionResult result = same(picture, read_png(path), tolerance);
    if (!result) write_png(name + ".png", picture);
    return result << " (" << name << ".png)";
}

}  // namespace golden
