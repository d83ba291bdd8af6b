// What the kinds of buffer pools share: set-up before storage is attached, and the end of each kind's
// storage.
#pragma once

#include <kel.h>

namespace kel {

// Makes the mutex, the condition variable and pool.count buffer records that name their pool, all of them
// free. Logs and leaves nothing behind when it fails.
[[nodiscard]] bool set_up_pool(kel_buffer_pool& pool);

// Undoes set_up_pool.
void tear_down_pool(kel_buffer_pool& pool);

// Destroys the Screen objects behind a complete video pool (video_pool.cpp).
void destroy_video_storage(kel_buffer_pool& pool);

}  // namespace kel
