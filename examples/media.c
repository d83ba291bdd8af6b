#include "media.h"

#include <stdio.h>

void set_number(kel_filter* filter, const char* name, int32_t value) {
    MmSetResource(filter, name, &value);
}

kel_channel* output_of(kel_filter* filter, uint32_t type) {
    const mmf_output_interface* table = MmGetFilterInterface(filter, "MediaOutput");
    kel_channel* channel;
    for (int cursor = 0; (channel = table->iterate_outputs(filter, &cursor));)
        if (channel->format.media_type == type) break;
    return channel;
}
kel_channel* input_of(kel_filter* filter, uint32_t type) {
    const mmf_input_interface* table = MmGetFilterInterface(filter, "MediaInput");
    kel_channel* channel;
    for (int cursor = 0; (channel = table->iterate_inputs(filter, &cursor));)
        if (channel->format.media_type == type) break;
    return channel;
}

static int failed(mm_graph* graph, const char* path, const char* why) {
    fprintf(stderr, "%s%s%s\n", path, *path ? ": " : "", why);
    MmDestroyGraph(graph);
    return 0;
}

int open_audio_input(audio_input* input, kel_context* context, const char* path) {
    mm_graph* graph = MmCreateGraph();
    kel_filter* source = graph ? MmCreateFilter(graph, MmFileSource()) : NULL;
    kel_filter* writer = graph ? kel_create_writer_filter(graph) : NULL;
    if (!source || !writer) return failed(graph, path, "cannot create a media graph");
    MmSetResource(writer, "KelContext", context);
    set_number(writer, "AudioChannelCount", 1);
    if (MmSetResource(source, "Path", path) != 0)
        return failed(graph, "", *(char**)MmFindResource(source, "Error")->value);
    kel_channel* audio = output_of(source, MM_MEDIA_AUDIO);
    if (!audio) return failed(graph, path, "no audio stream");
    if (MmConnect(graph, audio, input_of(writer, MM_MEDIA_AUDIO)) != 0)
        return failed(graph, path, "cannot connect its audio stream");
    MmStart(graph);
    MmResume(graph);
    kel_channel* channel = kel_writer_get_audio_channel(writer, 0);
    const kel_channel_format* format = kel_writer_get_format(channel);
    *input =
        (audio_input){graph, channel, {format->audio.rate, format->audio.channels, KEL_AUDIO_TYPE_S16LE}};
    return 1;
}

static int connect_output(media_output* output, kel_filter* reader, const char* path, uint32_t type) {
    MmSetResource(output->sink, "Path", path);
    if (MmConnect(output->graph, output_of(reader, type), input_of(output->sink, type)) != 0)
        return failed(output->graph, path, "this format cannot be written");
    MmStart(output->graph);
    MmResume(output->graph);
    const char* queue = type == MM_MEDIA_AUDIO ? "AudioQueue" : "VideoQueue";
    output->queue = *(kel_queue**)MmFindResource(reader, queue)->value;
    kel_queue_set_node_destructor(output->queue, NULL); /* the slices are their writer's */
    return 1;
}

static kel_filter* make_output(media_output* output, kel_context* context, const char* path) {
    output->graph = MmCreateGraph();
    output->sink = output->graph ? MmCreateFilter(output->graph, MmFileSink()) : NULL;
    kel_filter* reader = output->sink ? kel_create_reader_filter(output->graph) : NULL;
    if (!reader)
        failed(output->graph, path, "cannot create a media graph");
    else
        MmSetResource(reader, "KelContext", context);
    return reader;
}

int open_audio_output(media_output* output, kel_context* context, const char* path,
                      const kel_audio_format* format) {
    kel_filter* reader = make_output(output, context, path);
    if (!reader) return 0;
    set_number(reader, "AudioSampleRate", format->rate);
    set_number(reader, "AudioBitDepth", kel_get_audio_format_bits(format));
    set_number(reader, "AudioChannels", format->channels);
    return connect_output(output, reader, path, MM_MEDIA_AUDIO);
}

int write_slice(media_output* output, kel_slice* slice) {
    return kel_queue_enqueue(output->queue, slice) && MmProcess(output->graph) == MM_STATUS_PLAYING;
}

int close_output(media_output* output) {
    kel_queue_close(output->queue); /* the end of the stream */
    int status;
    while ((status = MmProcess(output->graph)) == MM_STATUS_PLAYING) continue;
    if (status != MM_STATUS_END_OF_STREAM)
        return failed(output->graph, "", *(char**)MmFindResource(output->sink, "Error")->value);
    MmDestroyGraph(output->graph);
    return 1;
}

int save_image(kel_context* context, kel_buffer* frame, const char* path) {
    const kel_video_format* format = &kel_get_buffer_format(frame)->video;
    media_output output;
    kel_slice slice = kel_slice_for_buffer(frame);
    kel_filter* reader = make_output(&output, context, path);
    if (!reader) return 0;
    set_number(reader, "VideoWidth", format->width & ~1); /* pairs of pixels share their color */
    set_number(reader, "VideoHeight", format->height & ~1);
    MmSetResource(reader, "VideoFormat", "NV12");
    if (!connect_output(&output, reader, path, MM_MEDIA_VIDEO)) return 0;
    write_slice(&output, &slice);
    return close_output(&output);
}
