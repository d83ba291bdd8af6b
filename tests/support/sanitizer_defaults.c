/* What the sanitizers are to leave alone in every program that the tests run. */

/* The threads of the software rasteriser, of its compiler and of FFmpeg's codecs meet in ways that the thread
 * sanitizer cannot see. */
const char* __tsan_default_suppressions(void);
const char* __tsan_default_suppressions(void) {
    return "race:swrast_dri.so\nrace:libLLVM\nrace:libavcodec.so\nrace:libavutil.so\nrace:libx264.so\n";
}
