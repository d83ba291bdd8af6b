// Fonts, glyph runs and text drawing: the records, and the functions that the files of this family share.
#pragma once

#include <ft2build.h>
#include <kel.h>

#include FT_FREETYPE_H
#include FT_GLYPH_H

#include "base/lock.hpp"
#include "text/glyph_cache.hpp"

struct kel_font;

struct kel_text {
    FT_Library library;
    kel_font* first_font;  // in loading order
    kel_font* last_font;
    pthread_mutex_t mutex;       // guards the list
    pthread_mutex_t face_mutex;  // held only while a face of `library` is made or freed: FreeType asks for it
};

// One glyph of a run. `advance` and `box` describe it as it stands: moved to its pen, scaled when the run was.
struct kel_glyph_run_entry {
    FT_UInt glyph_index;  // 0 when the face lacks the character
    FT_Vector pen;        // 26.6, before scaling: the sum of earlier advances and kernings; y is 0
    FT_Glyph glyph;       // owned; null as long as the font's cache knows all that is asked for
    FT_Fixed advance;     // 16.16 pixels
    FT_BBox box;          // 26.6, exact
    bool blank;           // an outline without points: no transformation moves it from (0, 0)
};

// A laid-out string, its glyphs in text order.
struct kel_glyph_run {
    const kel_text_style* style;
    FT_Face face;
    uint8_t use_kerning;
    uint32_t count;
    kel_glyph_run_entry* entries;
    uint32_t capacity;
    FT_Fixed scale;  // 16.16, applied to the whole run after its layout
    kel_font* font;
};

// A loaded font. `mutex` serialises every use of the face and of the members behind it.
struct kel_font {
    FT_Face face;
    const char* path;  // the key of the list; owned
    kel_font* next;
    pthread_mutex_t mutex;
    void* bytes;              // the file, which the face reads in place
    kel_glyph_run run;        // storage that serves one call after the other
    kel::glyph_cache* cache;  // null until first used, and when there is no memory for it
    int32_t points;           // the size asked for last
    bool sized;               // FreeType accepted it
};

namespace kel {

// 1.0 as a 16.16 number.
inline constexpr FT_Fixed fixed_one = 0x10000;

// FreeType's text for an error, or "<unknown>".
const char* ft_error_text(FT_Error error);

// A font for the list; null when it cannot be loaded (logged).
kel_font* load_font(kel_text& text, const char* path);

// Frees the font, its face and all it remembers; destroying the mutex is the caller's matter.
void free_font(kel_text& text, kel_font* font);

// Sets the face's size at 160 dots per inch. A size that FreeType refuses (a bitmap font has only its own)
// leaves the face as it was.
void set_font_size(kel_font& font, int32_t points) KEL_REQUIRES(font.mutex);

// Makes the entry's glyph where only the cache knew it so far.
FT_Error load_entry_glyph(const kel_glyph_run& run, kel_glyph_run_entry& entry);

// Multiplies a freshly laid-out run by a 16.16 factor.
void scale_run(kel_glyph_run& run, FT_Fixed scale);

// The box on whole pixels (26.6).
FT_BBox grid_fitted(const FT_BBox& box);

}  // namespace kel

// The context's font for the path, loaded on first use; null on failure or without text state.
kel_font* kel_text_get_font(kel_context* context, const char* path);

// Lays the string out at the font's size, up to its end or its first invalid sequence. Null when there is no
// memory (logged). The run is to be destroyed before the font is unlocked.
kel_glyph_run* kel_text_layout(const kel_text_style* style, kel_font& font, const char* utf8)
    KEL_REQUIRES(font.mutex);

// The union of the glyphs' boxes on whole pixels (26.6); all zero for an empty run.
void kel_glyph_run_get_cbox(const kel_glyph_run* run, FT_BBox* box);

// The same in pixels, y downwards, relative to the pen origin on the baseline; rect may be null.
void kel_glyph_run_measure(const kel_glyph_run* run, kel_rect* rect);

void kel_destroy_glyph_run(kel_glyph_run** run);

// Moves origin so that the run lies as its style says. 22 when the run, its style or origin is null.
int kel_text_align(const kel_glyph_run* run, kel_point* origin);

// Draws the run's glyphs; the result is their number, or 0 after an error of FreeType's (logged).
int kel_text_draw_run(const kel_slice* slice, kel_glyph_run* run, const kel_point* origin, kel_rect* drawn);

// Decodes the code point at *pos and moves *pos behind it. 0 at the end and at an invalid sequence; overlong
// forms, surrogates and values above 0x10FFFF pass.
int kel_utf8_next(const unsigned char* text, size_t* pos, size_t length, uint32_t* code_point);
