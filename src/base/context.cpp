// The context: one Screen connection and the states that hang on it.
#include <kel.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/guard.hpp"
#include "base/log.hpp"

namespace {

constexpr int32_t max_image_dimension = 2048;

}  // namespace

kel_context* kel_create_context() {
    auto context = kel::make_record<kel_context>();
    if (!context) {
        KEL_LOG_ERROR("kel_context:  Out of memory in kel_create_context.");
        return nullptr;
    }
    if (screen_create_context(&context->screen_context, SCREEN_APPLICATION_CONTEXT) != 0) {
        KEL_LOG_ERROR("kel_context:  screen_create_context failed: %s", strerror(errno));
        return nullptr;
    }
    context->max_image_width = max_image_dimension;
    context->max_image_height = max_image_dimension;
    return context.release();
}

void kel_destroy_context(kel_context** context) {
    if (!context || !*context) return;
    kel_text_deinit(*context);
    kel_gles_deinit(*context);
    screen_destroy_context((*context)->screen_context);
    free(*context);
    *context = nullptr;
}
