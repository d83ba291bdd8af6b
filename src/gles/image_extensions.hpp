// The entry points that make textures out of Screen's pixmaps; GL and EGL offer them as extensions.
#pragma once

#include "gles/gles_state.hpp"

#include <GLES2/gl2ext.h>

namespace kel {

struct image_extensions {
    PFNEGLCREATEIMAGEKHRPROC create_image;
    PFNEGLDESTROYIMAGEKHRPROC destroy_image;
    PFNGLEGLIMAGETARGETTEXTURE2DOESPROC image_target_texture;
    explicit operator bool() const { return create_image && destroy_image && image_target_texture; }
};

// Loads the entry points for the whole process; a GLES context must be current. Returns 0, or 22 when an
// extension or entry point is missing: those loaded before then stay.
int kel_gles_load_image_extensions(const kel_gles_state& state);

// What was loaded last; empty before the first success.
image_extensions loaded_image_extensions();

}  // namespace kel
