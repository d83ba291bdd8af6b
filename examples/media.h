/*
 * Shared by the examples that read or write media files: reading a file's audio, writing audio, and writing a
 * frame as an image. Each is one graph with one of libkel's filters in it. Errors go to standard error.
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

/* A graph from a file's audio stream into a writer; slices come with kel_writer_read_slice(channel, ...). */
typedef struct audio_input {
    mm_graph* graph;
    kel_channel* channel;
    kel_audio_format format; /* 16 bits a value */
} audio_input;

/* A graph from a reader into a file. */
typedef struct media_output {
    mm_graph* graph;
    kel_filter* sink;
    kel_queue* queue; /* the reader's, of what is to be written */
} media_output;

/* Each gives 1, or 0 with nothing left to close. */
int open_audio_input(audio_input* input, kel_context* context, const char* path);
int open_audio_output(media_output* output, kel_context* context, const char* path,
                      const kel_audio_format* format);

/* Writes one slice, whose buffer stays the caller's. Returns 1, or 0. */
int write_slice(media_output* output, kel_slice* slice);

/* Finishes the file. Returns 1, or 0; then no file is left. */
int close_output(media_output* output);

/* Writes an RGBA frame, less an odd last row and column, as a PNG image. Returns 1, or 0. */
int save_image(kel_context* context, kel_buffer* frame, const char* path);

#endif
