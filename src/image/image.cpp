// Pictures decoded by the image library straight into new pixmap buffers.
#include <kel.h>

namespace {

// The image library's packed 32-bit format whose bytes are blue, green, red, alpha, as in RGBA8888 pixmaps.
constexpr img_format_t image_format = 0x1520;

// What a callout answers that could not do its work.
constexpr unsigned callout_failed = 6;

// One image load, on the loader's stack; the decoder hands it to the callouts.
struct kel_image_load {
    kel_context* context;
    img_decode_callouts_t callouts;
    kel_buffer* buffer;  // made by the callout for the image
    img_t img;
    int usage;
};

// The size is known: bounds it by half the context's limits and makes the pixmap that the rows go into.
unsigned kel_image_choose_format(void* data, img_t* img, const img_format_t*, unsigned count) {
    auto& load = *static_cast<kel_image_load*>(data);
    const int most_width = load.context->max_image_width / 2,
              most_height = load.context->max_image_height / 2;
    int width = static_cast<int>(img->w), height = static_cast<int>(img->h);
    if (width > most_width || height > most_height) {
        kel_scale_inside_bb(width, height, most_width, most_height, &width, &height);
    }
    img->w = static_cast<unsigned>(width);
    img->h = static_cast<unsigned>(height);
    img->format = image_format;
    img->flags |= IMG_FORMAT | IMG_W | IMG_H;
    const kel_video_format format = {SCREEN_FORMAT_RGBA8888, load.usage, width, height};
    kel_buffer* buffer = kel_create_pixmap_buffer(load.context, &format);
    if (!buffer) return callout_failed;
    img->access.direct.data = buffer->ptr;
    img->access.direct.stride = static_cast<unsigned>(buffer->stride);
    img->flags |= IMG_DIRECT;
    load.buffer = buffer;
    return count;
}

// `decode` is the library's call with all but the last two arguments.
template <typename Decode>
kel_buffer* load_image(kel_context* context, int usage, Decode decode) {
    if (!context) return nullptr;
    kel_image_load load{};
    load.context = context;
    load.usage = usage;
    load.callouts.choose_format = kel_image_choose_format;
    load.callouts.data = &load;
    if (decode(&load.callouts, &load.img) == IMG_ERR_OK) return load.buffer;
    if (load.buffer) kel_release_buffer(load.buffer);
    return nullptr;
}

}  // namespace

void kel_init_img_for_buffer(img_t* img, const kel_buffer* buffer) {
    const kel_video_format& format = kel_get_buffer_format(buffer)->video;
    *img = img_t{};
    img->access.direct.data = buffer->ptr;
    img->access.direct.stride = static_cast<unsigned>(buffer->stride);
    img->w = static_cast<unsigned>(format.width);
    img->h = static_cast<unsigned>(format.height);
    img->format = image_format;
    img->flags |= IMG_FORMAT | IMG_W | IMG_H | IMG_DIRECT;
}

kel_buffer* kel_load_image_file(kel_context* ctx, img_lib_t ilib, const char* path, int usage) {
    return load_image(ctx, usage, [&](const img_decode_callouts_t* callouts, img_t* img) {
        return img_load_resize_file(ilib, path, callouts, img);
    });
}

kel_buffer* kel_load_image(kel_context* ctx, img_lib_t ilib, io_stream_t* stream, int usage) {
    return load_image(ctx, usage, [&](const img_decode_callouts_t* callouts, img_t* img) {
        return img_load_resize(ilib, stream, callouts, img);
    });
}
