// Any pair of formats, and any way to cut a stream: the pieces must be the start of what one block gives.
#include <aoi/aoi.h>
#include <kel.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// The head of an input; after it come the pieces.
struct Head {
    kel_audio_format from, to;
    uint8_t type_indexes;  // of both formats, where a half is below the count of types
};

struct Piece {
    uint8_t frames, room;
    int8_t input_limit, output_limit;
};

constexpr uint32_t types[] = {KEL_AUDIO_TYPE_U8,     KEL_AUDIO_TYPE_S8,    KEL_AUDIO_TYPE_U16LE,
                              KEL_AUDIO_TYPE_S16LE,  KEL_AUDIO_TYPE_U16BE, KEL_AUDIO_TYPE_S16BE,
                              KEL_AUDIO_TYPE_S24_8LE};
constexpr int32_t stream_frames = 2000;
constexpr int32_t most_channels = 8;
constexpr int32_t most_produced = 8 * stream_frames;

void demand(bool holds) {
    if (!holds) abort();
}

// Converts from `input` into exact heap blocks, so that the sanitizer sees every byte beside them.
std::vector<uint8_t> convert(kel_audio_converter* converter, const Head& head, const uint8_t* input,
                             Piece piece, int32_t frames, int32_t room, int32_t& consumed) {
    const int32_t in_frame = kel_get_audio_sample_size(&head.from);
    const int32_t out_frame = kel_get_audio_sample_size(&head.to);
    const std::vector<uint8_t> in(input, input + frames * in_frame);
    std::vector<uint8_t> out(static_cast<size_t>(room * out_frame));
    kel_audio_conversion block;
    kel_init_audio_conversion(&block, in.data(), frames * in_frame, out.data(), room * out_frame);
    block.input_limit = piece.input_limit;
    block.output_limit = piece.output_limit;
    demand(kel_convert_audio(converter, &block) == 0);
    demand(block.consumed_frames >= 0 && block.consumed_frames <= frames);
    demand(block.produced_frames >= 0 && block.produced_frames <= room);
    demand(frames == 0 || room == 0 || piece.input_limit == 0 || piece.output_limit == 0 ||
           block.consumed_frames + block.produced_frames > 0);
    consumed = block.consumed_frames;
    out.resize(static_cast<size_t>(block.produced_bytes));
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    AoLogSetSink([](void*, int, const char*) {}, nullptr);
    Head head;
    if (size < sizeof head) return 0;
    memcpy(&head, data, sizeof head);
    if (head.type_indexes % 16 < 7) head.from.type = types[head.type_indexes % 16];
    if (head.type_indexes / 16 < 7) head.to.type = types[head.type_indexes / 16];
    kel_audio_converter* whole = kel_create_audio_converter(&head.from, &head.to);
    kel_audio_converter* cut = kel_create_audio_converter(&head.from, &head.to);
    demand((whole == nullptr) == (cut == nullptr));
    if (whole && head.from.channels <= most_channels) {
        std::vector<uint8_t> stream(
            static_cast<size_t>(stream_frames * kel_get_audio_sample_size(&head.from)));
        for (size_t i = 0; i < stream.size(); ++i) stream[i] = static_cast<uint8_t>(i * 181 + i / 7);
        int32_t position = 0, consumed = 0;
        const auto wanted =
            convert(whole, head, stream.data(), {0, 0, -1, -1}, stream_frames, most_produced, consumed);
        std::vector<uint8_t> got;
        for (size_t at = sizeof head; at + sizeof(Piece) <= size; at += sizeof(Piece)) {
            Piece piece;
            memcpy(&piece, data + at, sizeof piece);
            const int32_t frames = std::min<int32_t>(piece.frames, stream_frames - position);
            const uint8_t* next = stream.data() + position * kel_get_audio_sample_size(&head.from);
            const auto out = convert(cut, head, next, piece, frames, piece.room, consumed);
            got.insert(got.end(), out.begin(), out.end());
            position += consumed;
        }
        const size_t common = std::min(got.size(), wanted.size());  // the one block's room may have ended it
        demand(std::equal(got.begin(), got.begin() + static_cast<long>(common), wanted.begin()));
    }
    kel_destroy_audio_converter(&whole);
    kel_destroy_audio_converter(&cut);
    return 0;
}
