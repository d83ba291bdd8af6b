// What the calling thread spends inside FFmpeg's decoders, encoders and containers: the program stands in front of their
// functions and looks at the thread's processor time.
#pragma once

namespace kel_bench {

// Seconds of processor time of the calling thread so far: in all, and within those functions.
double thread_seconds();
double codec_seconds();

// Of all threads of the process.
double process_seconds();

}  // namespace kel_bench
