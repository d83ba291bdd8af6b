// Processor time that threads spend inside FFmpeg's decoders, encoders, demuxers and muxers: the program defines these
// functions itself, measures the thread's processor time around each call and passes the call on.
#pragma once

namespace kel_bench {

// Seconds of processor time of the calling thread so far: in all, and within those functions.
double thread_seconds();
double codec_seconds();

// Of all threads of the process.
double process_seconds();

}  // namespace kel_bench
