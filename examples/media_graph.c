/*
 * A graph end to end: file source -> writer -> lowpass -> reader -> file sink. This thread pulls the decoded
 * slices and filters them where they lie, in the decoder's own buffers; another one encodes them.
 */
#include "media.h"

#include <stdio.h>
#include <stdlib.h>

/* Destroys a queued slice that the reader has copied. */
static void drop(void* data) {
    kel_slice* slice = data;
    kel_release_buffer(slice->buffer);
    free(slice);
}

typedef struct encoder {
    mm_graph* graph;
    kel_filter* sink;
    kel_queue* queue;
} encoder;

/* A thread: feeds the sink slice by slice. Returns null, or the error text. */
static void* encode(void* argument) {
    encoder* e = argument;
    int status;
    while ((status = MmProcess(e->graph)) == MM_STATUS_PLAYING) continue;
    if (status == MM_STATUS_END_OF_STREAM) return NULL;
    kel_queue_close(e->queue); /* nothing more is taken */
    kel_queue_clear(e->queue); /* and the buffers inside go back to the decoder */
    return *(char**)MmFindResource(e->sink, "Error")->value;
}

/* Filters every slice in place and queues it for the encoder; returns the number of frames. */
static int64_t filter_all(kel_channel* channel, const kel_audio_format* format, kel_queue* queue,
                          float hertz) {
    enum { most = 8192 };
    static int32_t frequencies[most];
    kel_audio_filter* lowpass = kel_create_audio_filter(kel_find_audio_filter("lowpass"), format);
    kel_audio_filter_port* in = kel_get_audio_filter_input(lowpass, "audio", 0);
    kel_audio_filter_port* out = kel_get_audio_filter_output(lowpass, "audio", 0);
    kel_audio_filter_port* freq = kel_get_audio_filter_input(lowpass, "freq", 0);
    int64_t frames = 0;
    freq->data = frequencies;
    kel_linint_audio_param(freq, 0, 0, most, hertz, hertz);
    for (kel_slice slice; kel_writer_read_slice(channel, &slice) == 0;) {
        if (!slice.buffer || slice.spec.audio.nsamples > most) continue;
        in->data = out->data = slice.spec.audio.samples_start;
        in->available = out->capacity = (int32_t)slice.spec.audio.nsamples;
        frames += kel_pump_audio_filter(lowpass, in->available);
        kel_slice* copy = malloc(sizeof *copy);
        if (!copy) break;
        *copy = slice;
        kel_ref_buffer(slice.buffer); /* the queue's; drop gives it back */
        if (!kel_queue_enqueue(queue, copy)) {
            drop(copy);
            break;
        }
    }
    kel_queue_close(queue); /* the end of the stream */
    kel_destroy_audio_filter(lowpass);
    return frames;
}

static const char* run(kel_context* context, mm_graph* graphs[2], const char* from, const char* into,
                       float hertz) {
    kel_filter* source = MmCreateFilter(graphs[0], MmFileSource());
    kel_filter* writer = kel_create_writer_filter(graphs[0]);
    kel_filter* reader = kel_create_reader_filter(graphs[1]);
    kel_filter* sink = MmCreateFilter(graphs[1], MmFileSink());
    if (!source || !writer || !reader || !sink) return "no filter can be made";

    MmSetResource(writer, "KelContext", context);
    set_number(writer, "AudioChannelCount", 1);
    set_number(writer, "MinAudioBuffers", 4); /* one being filtered, some on their way */
    set_number(source, "AudioBitDepth", 32);  /* S24.8LE, which filters take */
    if (MmSetResource(source, "Path", from) != 0) return *(char**)MmFindResource(source, "Error")->value;
    kel_channel* audio = output_of(source, MM_MEDIA_AUDIO);
    if (!audio) return "no audio stream in the input";
    if (MmConnect(graphs[0], audio, input_of(writer, MM_MEDIA_AUDIO)) != 0)
        return "cannot connect the input's audio stream";
    kel_channel* channel = kel_writer_get_audio_channel(writer, 0);
    const kel_channel_format* decoded = kel_writer_get_format(channel);
    const kel_audio_format format = {decoded->audio.rate, decoded->audio.channels, KEL_AUDIO_TYPE_S24_8LE};
    MmSetResource(reader, "KelContext", context);
    set_number(reader, "AudioSampleRate", format.rate);
    set_number(reader, "AudioChannels", format.channels);
    set_number(reader, "AudioBitDepth", 32);
    MmSetResource(sink, "Path", into);
    if (MmConnect(graphs[1], output_of(reader, MM_MEDIA_AUDIO), input_of(sink, MM_MEDIA_AUDIO)) != 0)
        return "cannot write the audio";
    for (int i = 0; i < 2; ++i) {
        MmStart(graphs[i]);
        MmResume(graphs[i]);
    }
    encoder e = {graphs[1], sink, *(kel_queue**)MmFindResource(reader, "AudioQueue")->value};
    kel_queue_set_node_destructor(e.queue, drop);
    pthread_t thread;
    void* error;
    if (pthread_create(&thread, NULL, encode, &e) != 0) return "cannot create a thread";
    const int64_t frames = filter_all(channel, &format, e.queue, hertz);
    pthread_join(thread, &error);
    if (!error) printf("%.2f s of audio below %.0f Hz\n", (double)frames / format.rate, (double)hertz);
    return error;
}

int main(int argc, char** argv) {
    if (argc < 3 || argc > 4) return fprintf(stderr, "usage: %s INPUT OUTPUT [HERTZ]\n", argv[0]), 2;
    kel_init();
    kel_init_mmedia_filters();
    kel_context* context = kel_create_context();
    mm_graph* graphs[] = {MmCreateGraph(), MmCreateGraph()};
    const float hertz = argc > 3 ? strtof(argv[3], NULL) : 1000;
    const char* error = run(context, graphs, argv[1], argv[2], hertz);
    if (error) fprintf(stderr, "%s\n", error);
    for (int i = 1; i >= 0; --i) MmDestroyGraph(graphs[i]);
    kel_destroy_context(&context);
    kel_fini();
    return error ? 1 : 0;
}
