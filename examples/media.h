/*
 * What the examples with media files share: reading a file's sound, writing sound, and writing a frame as a
 * picture. Each is one graph with one of libkel's filters in it. Failures are told on standard error.
 */
#ifndef KEL_EXAMPLES_MEDIA_H
#define KEL_EXAMPLES_MEDIA_H

#include <kel.h>
#include <mm/mmf.h>

/* The filter's first output, or input, for MM_MEDIA_AUDIO or MM_MEDIA_VIDEO; null when it has none. */
kel_channel* output_of(kel_filter* filter, uint32_t type);
kel_channel* input_of(kel_filter* filter, uint32_t type);

/* Sets a number among the filter's resources. */
void set_number(kel_filter* filter, const char* name, int32_t value);

/* A graph from a file's sound into a writer; slices come with kel_writer_read_slice(channel, ...). */
typedef struct sound_input {
    mm_graph* graph;
    kel_channel* channel;
    kel_audio_format format; /* 16 bits a value */
} sound_input;

/* A graph from a reader into a file. */
typedef struct media_output {
    mm_graph* graph;
    kel_filter* sink;
    kel_queue* queue; /* the reader's, of what is to be written */
} media_output;

/* Each gives 1, or 0 with nothing left to close. */
int open_sound_input(sound_input* input, kel_context* context, const char* path);
int open_sound_output(media_output* output, kel_context* context, const char* path,
                      const kel_audio_format* format);

/* Writes one slice, whose buffer stays the caller's. Returns 1, or 0. */
int write_slice(media_output* output, kel_slice* slice);

/* Completes the file. Returns 1, or 0; then there is no file. */
int close_output(media_output* output);

/* Writes an RGBA frame, less an odd last row and column, as a picture (.png) of its own. Returns 1, or 0. */
int save_picture(kel_context* context, kel_buffer* frame, const char* path);

#endif
