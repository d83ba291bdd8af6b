// The library's calls.
#include <cerrno>
#include <mutex>
#include <new>
#include <unordered_set>
#include <utility>

#include "aoi/ffmpeg_log.hpp"
#include "img/decode.hpp"

using namespace platform::img;

namespace {

constexpr img_format_t offered[] = {IMG_FMT_ARGB8888};
constexpr unsigned whole_image = IMG_FORMAT | IMG_W | IMG_H | IMG_DIRECT;
constexpr unsigned largest_side = 32768;  // pixels

std::mutex attached_lock;
std::unordered_set<img_lib_t>& attached() {
    static auto* handles = new std::unordered_set<img_lib_t>;
    return *handles;
}

bool is_attached(img_lib_t ilib) {
    std::lock_guard hold(attached_lock);
    return attached().count(ilib) != 0;
}

bool can_be_written(const img_t& img) {
    if ((img.flags & whole_image) != whole_image || img.format != offered[0]) return false;
    if (img.w < 1 || img.h < 1 || img.w > largest_side || img.h > largest_side) return false;
    const auto address = reinterpret_cast<uintptr_t>(img.access.direct.data);
    const unsigned stride = img.access.direct.stride;
    return address && address % 4 == 0 && stride % 4 == 0 && stride / 4 >= img.w && stride <= INT32_MAX;
}

int choose_format(const AVFrame& picture, const img_decode_callouts_t& callouts, img_t& img) {
    auto width = static_cast<unsigned>(picture.width), height = static_cast<unsigned>(picture.height);
    if (exchanges_axes(orientation_of(picture))) std::swap(width, height);
    img.w = width;
    img.h = height;
    img.format = offered[0];
    img.flags |= IMG_FORMAT | IMG_W | IMG_H;
    const unsigned answer = callouts.choose_format(callouts.data, &img, offered, std::size(offered));
    if (answer == std::size(offered)) return IMG_ERR_OK;
    return answer == IMG_ERR_MEM ? IMG_ERR_MEM : IMG_ERR_ABORTED;
}

int load(io_stream& stream, const img_decode_callouts_t* callouts, img_t& img) {
    file_data file;
    frame picture;
    if (const int error = read_file(stream, file)) return error;
    if (const int error = decode(file, picture)) return error;
    file.bytes.reset();
    if (callouts && callouts->choose_format) {
        if (const int error = choose_format(*picture, *callouts, img)) return error;
    }
    if (!can_be_written(img)) return IMG_ERR_PARM;
    if (const int error = deliver(*picture, img)) return error;
    if (callouts && callouts->frame) callouts->frame(callouts->data, &img);
    return IMG_ERR_OK;
}

}  // namespace

int img_lib_attach(img_lib_t* ilib) {
    if (!ilib) return IMG_ERR_PARM;
    platform::take_over_ffmpeg_log();
    std::lock_guard hold(attached_lock);
    static uintptr_t last = 0x5001;  // handles are odd and never used again
    try {
        const auto handle = reinterpret_cast<img_lib_t>(last + 2);
        attached().insert(handle);
        last += 2;
        *ilib = handle;
        return IMG_ERR_OK;
    } catch (const std::bad_alloc&) {
        return IMG_ERR_MEM;
    }
}

int img_lib_detach(img_lib_t ilib) {
    std::lock_guard hold(attached_lock);
    return attached().erase(ilib) ? IMG_ERR_OK : IMG_ERR_PARM;
}

int img_load_resize(img_lib_t ilib, io_stream_t* stream, const img_decode_callouts_t* callouts, img_t* img) {
    if (!stream || !img || !is_attached(ilib)) return IMG_ERR_PARM;
    try {
        return load(*stream, callouts, *img);
    } catch (const std::bad_alloc&) {
        return IMG_ERR_MEM;
    }
}

int img_load_resize_file(img_lib_t ilib, const char* path, const img_decode_callouts_t* callouts,
                         img_t* img) {
    if (!path || !img || !is_attached(ilib)) return IMG_ERR_PARM;
    io_stream_t* stream = io_open_file(path);
    if (!stream) return IMG_ERR_FILE;
    const int result = img_load_resize(ilib, stream, callouts, img);
    const int saved_errno = errno;
    io_close(stream);
    errno = saved_errno;
    return result;
}
