// The text state of a context.
#include <kel.h>

void kel_text_deinit(kel_context* context) {
    if (!context->text) return;
}
