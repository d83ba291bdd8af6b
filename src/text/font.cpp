// Loading a font: the file whole in memory and a face over it.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/guard.hpp"
#include "base/log.hpp"
#include "text/text.hpp"

namespace {

constexpr FT_UInt dots_per_inch = 160;

struct file_bytes {
    kel::owned<unsigned char> bytes;  // empty on failure (logged)
    FT_Long size;
};

file_bytes read_whole(const char* path) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        KEL_LOG_ERROR("kel:  could not open '%s': %s", path, strerror(errno));
        return {};
    }
    kel::scope_exit close_file([file] { close(file); });
    const off_t size = lseek(file, 0, SEEK_END);
    if (size < 0 || lseek(file, 0, SEEK_SET) < 0) {
        KEL_LOG_ERROR("kel:  could not read font file '%s': %s", path, strerror(errno));
        return {};
    }
    kel::owned<unsigned char> bytes(static_cast<unsigned char*>(malloc(static_cast<size_t>(size))));
    if (!bytes) {
        KEL_LOG_ERROR("kel:  could not allocate font buffer of size %ld for font '%s'",
                      static_cast<long>(size), path);
        return {};
    }
    const ssize_t count = read(file, bytes.get(), static_cast<size_t>(size));
    if (count < 0) {
        KEL_LOG_ERROR("kel:  could not read font file '%s': %s", path, strerror(errno));
        return {};
    }
    return {std::move(bytes), static_cast<FT_Long>(count)};
}

}  // namespace

kel_font* kel::load_font(kel_text& text, const char* path) {
    file_bytes file = read_whole(path);
    if (!file.bytes) return nullptr;

    FT_Face face;
    {
        kel::lock_guard lock(text.face_mutex);
        const FT_Error error = FT_New_Memory_Face(text.library, file.bytes.get(), file.size, 0, &face);
        if (error) {
            KEL_LOG_ERROR("kel:  FT_New_Memory_Face() on '%s' failed: %s", path, ft_error_text(error));
            return nullptr;
        }
    }
    scope_exit done_face([&] {
        kel::lock_guard lock(text.face_mutex);
        FT_Done_Face(face);
    });

    auto font = make_record<kel_font>();
    owned<char> own_path(strdup(path));
    if (!font || !own_path) {
        KEL_LOG_ERROR("kel:  could not allocate font '%s'", path);
        return nullptr;
    }
    if (const int error = pthread_mutex_init(&font->mutex, nullptr)) {
        KEL_LOG_ERROR("kel:  Unable to create mutex for font %s: %s.", path, strerror(error));
        return nullptr;
    }
    done_face.dismiss();
    font->face = face;
    font->path = own_path.release();
    font->bytes = file.bytes.release();
    return font.release();
}

void kel::free_font(kel_text& text, kel_font* font) {
    {
        kel::lock_guard lock(text.face_mutex);
        FT_Done_Face(font->face);
    }
    free(font->run.entries);
    free(font->cache);
    free(font->bytes);
    free(const_cast<char*>(font->path));
    free(font);
}

void kel::set_font_size(kel_font& font, int32_t points) {
    if (font.sized && font.points == points) return;
    // 26.6 points; where a long has 32 bits, sizes that mean nothing anyway wrap around.
    const auto size = static_cast<FT_F26Dot6>(static_cast<unsigned long>(points) * 64);
    font.sized = FT_Set_Char_Size(font.face, size, size, dots_per_inch, 0) == 0;
    font.points = points;
}
