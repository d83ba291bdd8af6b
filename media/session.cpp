#include "session.hpp"

#include "failure.hpp"

namespace kel_tool {

session::session() {
    if (kel_init() != 0) throw failure("the library cannot be initialised");
    kel_init_mmedia_filters();
    context_ = kel_create_context();
    if (!context_) {
        kel_fini();
        throw failure("no connection to the compositor");
    }
}

session::~session() {
    kel_destroy_context(&context_);
    kel_fini();
}

void session::need_text() {
    if (!context_->text && kel_text_init(context_) != 0) throw failure("text cannot be drawn here");
}

void session::need_gles() {
    if (!context_->gles && kel_gles_init(context_, eglGetDisplay(EGL_DEFAULT_DISPLAY)) != 0)
        throw failure("OpenGL ES is not to be had on this machine");
}

}  // namespace kel_tool
