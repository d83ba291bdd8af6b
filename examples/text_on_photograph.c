/*
 * Writes a line of text on a photograph, with a soft shadow behind it. Text overwrites the pixels that it
 * covers, so it is drawn into a buffer of its own, which a blit then blends with the photograph.
 */
#include "media.h"

#include <stdio.h>

static const char usage[] =
    "usage: %s PHOTOGRAPH OUTPUT.png [TEXT [FONT]]\n"
    "Photographs: PNG, JPEG, BMP, GIF, WebP. TEXT is one line of UTF-8, FONT a file that FreeType reads.\n";

/* Blends the text into `box` of the frame, as large as fits, at the left. Returns 1, or 0. */
static int blend_text(kel_buffer* frame, const char* text, kel_rect box, const char* font, uint32_t color) {
    kel_context* context = frame->pool->context;
    const kel_text_style style = {font, color, 0, KEL_TEXT_HALIGN_LEFT, KEL_TEXT_VALIGN_CENTER};
    const kel_video_format format = {SCREEN_FORMAT_RGBA8888, SCREEN_USAGE_WRITE, box.width, box.height};
    kel_buffer* layer = kel_create_pixmap_buffer(context, &format);
    if (!layer) return 0;
    const kel_slice from = kel_slice_for_buffer(layer), to = kel_slice_for_buffer(frame);
    const kel_rect whole = {0, 0, box.width, box.height};
    kel_fill_video(&from, color & 0xffffff, NULL); /* transparent, in the text's color */
    screen_flush_blits(context->screen_context, SCREEN_WAIT_IDLE);
    const int glyphs = kel_text_draw_in_bb(&from, text, &whole, &style, NULL);
    kel_blit_video(&from, &to, NULL, &box, 255, SCREEN_QUALITY_NORMAL, SCREEN_TRANSPARENCY_SOURCE_OVER);
    screen_flush_blits(context->screen_context, SCREEN_WAIT_IDLE);
    kel_release_buffer(layer);
    return glyphs > 0;
}

static int annotate(kel_context* context, const char* path, const char* output, const char* text,
                    const char* font) {
    img_lib_t images;
    if (img_lib_attach(&images) != IMG_ERR_OK) return 0;
    kel_buffer* frame = kel_load_image_file(context, images, path, SCREEN_USAGE_READ | SCREEN_USAGE_WRITE);
    img_lib_detach(images);
    if (!frame) return fprintf(stderr, "%s: cannot read this image\n", path), 0;

    const kel_video_format size = kel_get_buffer_format(frame)->video;
    const int32_t margin = size.width / 20, shadow = 1 + size.width / 400;
    const kel_rect box = {margin, size.height * 3 / 4, size.width - 2 * margin, size.height / 8};
    const kel_rect below = {box.x + shadow, box.y + shadow, box.width, box.height};
    int ok =
        blend_text(frame, text, below, font, 0xa0000000) && blend_text(frame, text, box, font, 0xfffff4e0);
    if (!ok) fprintf(stderr, "%s: cannot draw the text with this font\n", font);
    ok = ok && save_image(context, frame, output);
    if (ok) printf("%s: %d x %d pixels\n", output, (int)size.width & ~1, (int)size.height & ~1);
    kel_release_buffer(frame);
    return ok;
}

int main(int argc, char** argv) {
    if (argc < 3 || argc > 5) return fprintf(stderr, usage, argv[0]), 2;
    const char* text = argc > 3 ? argv[3] : "A summer’s day – l’été";
    const char* font = argc > 4 ? argv[4] : "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf";
    kel_init();
    kel_init_mmedia_filters();
    kel_context* context = kel_create_context();
    const int ok = context && kel_text_init(context) == 0 && annotate(context, argv[1], argv[2], text, font);
    kel_destroy_context(&context); /* with its text state */
    kel_fini();
    return ok ? 0 : 1;
}
