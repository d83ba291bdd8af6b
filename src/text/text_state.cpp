// The text state of a context: one FreeType library and the list of fonts.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/guard.hpp"
#include "base/log.hpp"
#include "text/text.hpp"

namespace {

kel_font* find_font(const kel_text& text, const char* path) KEL_REQUIRES(text.mutex) {
    kel_font* font = text.first_font;
    while (font && strcmp(font->path, path) != 0) font = font->next;
    return font;
}

void append_font(kel_text& text, kel_font* font) KEL_REQUIRES(text.mutex) {
    (text.last_font ? text.last_font->next : text.first_font) = font;
    text.last_font = font;
}

int make_mutexes(kel_text& text) {
    int error = pthread_mutex_init(&text.mutex, nullptr);
    if (error) return error;
    error = pthread_mutex_init(&text.face_mutex, nullptr);
    if (error) pthread_mutex_destroy(&text.mutex);
    return error;
}

void destroy_state_mutex(pthread_mutex_t& mutex) {
    if (const int error = pthread_mutex_destroy(&mutex)) {
        KEL_LOG_ERROR("kel:  Unable to destroy mutex for kel_text: %s.", strerror(error));
    }
}

}  // namespace

int kel_text_init(kel_context* context) {
    if (!context) return EINVAL;
    if (context->text) return 0;
    auto text = kel::make_record<kel_text>();
    if (!text) {
        KEL_LOG_ERROR("kel:  could not allocate text context.");
        return ENOMEM;
    }
    if (const FT_Error error = FT_Init_FreeType(&text->library)) {
        KEL_LOG_ERROR("kel:  FT_Init_FreeType() failed: %s.", kel::ft_error_text(error));
        return EINVAL;
    }
    if (const int error = make_mutexes(*text)) {
        KEL_LOG_ERROR("kel:  Unable to create font list mutex for kel_text: %s.", strerror(error));
        FT_Done_FreeType(text->library);
        return EINVAL;
    }
    context->text = text.release();
    return 0;
}

void kel_text_deinit(kel_context* context) {
    if (!context || !context->text) return;
    kel_text* text = context->text;
    while (kel_font* font = text->first_font) {
        text->first_font = font->next;
        if (const int error = pthread_mutex_destroy(&font->mutex)) {
            KEL_LOG_ERROR("kel:  Unable to destroy mutex for font %s: %s.", font->path, strerror(error));
        }
        kel::free_font(*text, font);
    }
    FT_Done_FreeType(text->library);
    destroy_state_mutex(text->mutex);
    destroy_state_mutex(text->face_mutex);
    free(text);
    context->text = nullptr;
}

kel_font* kel_text_get_font(kel_context* context, const char* path) {
    if (!context || !context->text || !path) return nullptr;
    kel_text& text = *context->text;
    {
        kel::lock_guard lock(text.mutex);
        if (kel_font* font = find_font(text, path)) return font;
    }
    // Two threads that miss the same path both load it; the first one in the list is found from then on.
    kel_font* font = kel::load_font(text, path);
    if (!font) return nullptr;
    kel::lock_guard lock(text.mutex);
    append_font(text, font);
    return font;
}
