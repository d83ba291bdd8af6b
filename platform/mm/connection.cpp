// Joining two channels: a format that both accept, a pool of buffers, and the ends told of each other.
#include <algorithm>
#include <cerrno>

#include "mm/framework.hpp"

namespace {

using platform::mmf::interface_of;

constexpr int32_t buffers_wanted = 4;
constexpr uint32_t own_stride_flag = 8;

// Runs an undo when a step after it fails.
template <typename Undo>
class rollback {
  public:
    explicit rollback(Undo undo) : undo_(undo) {}
    ~rollback() {
        if (armed_) undo_();
    }
    rollback(const rollback&) = delete;
    rollback& operator=(const rollback&) = delete;
    void dismiss() { armed_ = false; }

  private:
    Undo undo_;
    bool armed_ = true;
};

// The filter of the graph that has this channel, found without following a pointer that may be stale.
kel_filter* find_output_owner(const mm_graph& graph, const kel_channel* channel) {
    for (kel_filter* filter : graph.filters)
        if (auto* outputs = interface_of<mmf_output_interface>(filter, "MediaOutput"))
            for (int cursor = 0; const kel_channel* each = outputs->iterate_outputs(filter, &cursor);)
                if (each == channel) return filter;
    return nullptr;
}

kel_filter* find_input_owner(const mm_graph& graph, const kel_channel* channel) {
    for (kel_filter* filter : graph.filters)
        if (auto* inputs = interface_of<mmf_input_interface>(filter, "MediaInput"))
            for (int cursor = 0; const kel_channel* each = inputs->iterate_inputs(filter, &cursor);)
                if (each == channel) return filter;
    return nullptr;
}

// The first proposal of the output that the input accepts, completed by the input and verified by the output.
bool negotiate(const mmf_connection& connection, kel_channel_format& agreed) {
    kel_channel_format proposal{};
    for (int cursor = 0; connection.upstream->iterate_formats(connection.output, &proposal, &cursor);) {
        agreed = proposal;
        int input_cursor = 0;
        if (connection.downstream->iterate_formats(connection.input, &agreed, 1, &input_cursor) !=
            MM_FORMAT_ACCEPTED)
            continue;
        // Audio has no rows: it follows what the input can do.
        if (agreed.media_type == MM_MEDIA_AUDIO) agreed.flags |= agreed.capabilities & own_stride_flag;
        if (connection.upstream->verify_format(connection.output, &agreed, &agreed) == 0) return true;
    }
    return false;
}

// The downstream filter's allocator makes the pool for its own channel, or else the upstream's for its, or
// else the framework's own for the downstream channel.
int make_pool(mmf_connection& connection) {
    const char* name = "MediaMemoryAllocator";
    kel_channel* channel = connection.input;
    connection.allocator = interface_of<kel_allocator_interface>(channel->filter, name);
    if (!connection.allocator) {
        channel = connection.output;
        connection.allocator = interface_of<kel_allocator_interface>(channel->filter, name);
    }
    if (!connection.allocator) {
        channel = connection.input;
        connection.allocator = &platform::mmf::heap_allocator;
    }
    kel_mmf_pool_attributes attributes{};
    attributes.buffer_size = std::max(channel->format.buffer_size, 1);
    attributes.buffer_count = buffers_wanted;
    return connection.allocator->allocate_memory_pool(&connection.pool, channel, &attributes);
}

void clear_format(kel_channel* channel, uint32_t flag) {
    channel->flags &= ~flag;
}

int join(mmf_connection& connection) {
    kel_channel* output = connection.output;
    kel_channel* input = connection.input;
    if (connection.upstream->acquire_output(output) != 0) return EBUSY;
    rollback release_output([&] { connection.upstream->release_output(output); });
    if (connection.downstream->acquire_input(input) != 0) return EBUSY;
    rollback release_input([&] { connection.downstream->release_input(input); });

    kel_channel_format format{};
    if (!negotiate(connection, format)) return ENOTSUP;
    rollback clear_formats([&] {
        clear_format(output, MM_CHANNEL_OUTPUT_SET);
        clear_format(input, MM_CHANNEL_INPUT_SET);
    });
    if (connection.upstream->set_format(output, &format) != 0) return ENOTSUP;
    if (connection.downstream->set_format(input, &format) != 0) return ENOTSUP;

    output->connection = input->connection = &connection;
    output->peer = input;
    input->peer = output;
    rollback part([&] {
        output->connection = input->connection = nullptr;
        output->peer = input->peer = nullptr;
    });
    if (connection.downstream->connect_output(input, connection.upstream) != 0) return EINVAL;
    if (const int error = make_pool(connection)) return error;
    rollback free_pool([&] { connection.allocator->free_memory_pool(connection.pool); });
    rollback free_containers([&] { platform::mmf::free_mra_pools(output); });
    if (const int error = connection.upstream->set_memory_pool(output, connection.allocator, connection.pool))
        return error;
    if (const int error =
            connection.downstream->set_memory_pool(input, connection.allocator, connection.pool))
        return error;

    free_containers.dismiss();
    free_pool.dismiss();
    part.dismiss();
    clear_formats.dismiss();
    release_input.dismiss();
    release_output.dismiss();
    return 0;
}

}  // namespace

void platform::mmf::disconnect(mmf_connection& connection) {
    connection.downstream->release_input(connection.input);
    connection.upstream->release_output(connection.output);
    clear_format(connection.input, MM_CHANNEL_INPUT_SET);
    clear_format(connection.output, MM_CHANNEL_OUTPUT_SET);
    free_mra_pools(connection.output);
    connection.allocator->free_memory_pool(connection.pool);
    connection.output->connection = connection.input->connection = nullptr;
    connection.output->peer = connection.input->peer = nullptr;
}

int MmConnect(mm_graph* graph, kel_channel* output, kel_channel* input) {
    if (!graph || !output || !input) return EINVAL;
    const kel_filter* source = find_output_owner(*graph, output);
    const kel_filter* sink = find_input_owner(*graph, input);
    if (!source || !sink) return EINVAL;
    if (output->connection || input->connection) return EBUSY;
    std::unique_ptr<mmf_connection> connection(new (std::nothrow) mmf_connection);
    const bool has_room = connection && platform::mmf::no_throw(false, [&] {
                              graph->connections.reserve(graph->connections.size() + 1);
                              return true;
                          });
    if (!has_room) return ENOMEM;
    connection->output = output;
    connection->input = input;
    connection->upstream = interface_of<mmf_output_interface>(source, "MediaOutput");
    connection->downstream = interface_of<mmf_input_interface>(sink, "MediaInput");
    if (const int error = join(*connection)) return error;
    graph->connections.push_back(std::move(connection));
    return 0;
}
