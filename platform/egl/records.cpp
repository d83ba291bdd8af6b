#include "egl/records.hpp"

namespace platform::egl {
namespace {

std::mutex& textures_lock() {
    static auto* lock = new std::mutex;
    return *lock;
}

}  // namespace

EGLImage next_image_handle() {
    static std::atomic<uintptr_t> last{1};
    return reinterpret_cast<EGLImage>(last.fetch_add(2));
}

registry<EGLImage, image_record>& images() {
    static auto* all = new registry<EGLImage, image_record>;
    return *all;
}

registry<EGLContext, context_record>& contexts() {
    static auto* all = new registry<EGLContext, context_record>;
    return *all;
}

registry<EGLSurface, surface_record>& surfaces() {
    static auto* all = new registry<EGLSurface, surface_record>;
    return *all;
}

current_objects& current() {
    // Emptied at the thread's end but not destroyed: handlers that run at exit may still call EGL.
    struct thread_objects {
        union {
            current_objects objects;
        };
        thread_objects() : objects{} {}
        ~thread_objects() { objects = {}; }
    };
    thread_local thread_objects of_thread;
    return of_thread.objects;
}

std::shared_ptr<image_record> find_image_of(GLuint texture) {
    const auto& context = current().context;
    if (!context || context->group->count == 0) return nullptr;
    std::lock_guard hold(textures_lock());
    const auto found = context->group->textures.find(texture);
    return found == context->group->textures.end() ? nullptr : found->second;
}

void set_image_of(GLuint texture, std::shared_ptr<image_record> image) {
    share_group& group = *current().context->group;
    std::lock_guard hold(textures_lock());
    group.textures[texture] = std::move(image);
    group.count = static_cast<int>(group.textures.size());
}

std::shared_ptr<image_record> remove_image_of(GLuint texture) {
    const auto& context = current().context;
    if (!context || context->group->count == 0) return nullptr;
    std::lock_guard hold(textures_lock());
    auto node = context->group->textures.extract(texture);
    context->group->count = static_cast<int>(context->group->textures.size());
    return node ? std::move(node.mapped()) : nullptr;
}

}  // namespace platform::egl
