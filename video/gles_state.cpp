// The GLES state of a context.
#include <kel.h>

void kel_gles_deinit(kel_context* context) {
    if (!context->gles) return;
}
