// The mixer against a slow one written from the formulas, its bookkeeping over hours, and every way to fail.
#include <kel.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "audio/mixer_kernels.hpp"
#include "plain_steps.hpp"
#include "support/faults.hpp"
#include "support/simd_variants.hpp"
#include "support/threads.hpp"

namespace kel_test {
namespace {

constexpr kel_audio_format s16_stereo = {48000, 2, S16LE};

struct Pool {
    kel_buffer_pool* pool;
    Pool(const kel_audio_format& format, uint32_t nsamples, int32_t count = 1)
        : pool(kel_create_audio_buffer_pool(nullptr, &format, nsamples, count)) {}
    ~Pool() { kel_destroy_buffer_pool(&pool); }
    Pool(const Pool&) = delete;
    operator kel_buffer_pool*() const { return pool; }
};

// A slice over its own pool's only buffer, full of random bytes.
struct Source {
    Pool pool;
    kel_slice slice = kel_slice_for_buffer(kel_acquire_buffer(pool));
    Source(const kel_audio_format& format, uint32_t frames, unsigned seed = 1) : pool(format, frames) {
        std::mt19937 random(seed);
        std::generate_n(data(), slice.buffer->size, [&] { return static_cast<uint8_t>(random()); });
    }
    uint8_t* data() const { return static_cast<uint8_t*>(slice.spec.audio.samples_start); }
};

struct Mixer {
    kel_audio_mixer* mixer;
    std::vector<kel_audio_mixer_track*> tracks;
    Mixer(kel_buffer_pool* pool, int ntracks) : mixer(kel_create_audio_mixer(pool)) {
        while (ntracks-- > 0) tracks.push_back(kel_acquire_audio_mixer_track(mixer));
    }
    ~Mixer() {
        for (auto* track : tracks) kel_release_audio_mixer_track(track);
        kel_destroy_audio_mixer(&mixer);
    }
    Mixer(const Mixer&) = delete;
    int32_t feed(size_t track, const Source& source, int32_t start = 0, int32_t most = INT32_MAX) const {
        return kel_feed_audio_mixer_track(tracks[track], &source.slice, start, most);
    }
    // The pending slice, released at once: its samples stay readable while the pool lives.
    kel_slice take() const {
        kel_slice slice = {};
        EXPECT_EQ(kel_get_audio_mixer_slice(mixer, &slice), 0);
        EXPECT_EQ(kel_release_buffer(slice.buffer), 0);
        return slice;
    }
};

// Sums of values in S24.8 wrap around.
int32_t sum(int32_t a, int64_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// A stored value in S24.8, as the mixer adds it.
int32_t working_value(const uint8_t* at, uint32_t type) {
    return static_cast<int32_t>(plain_value(get_value(at, type), type, S24));
}

int32_t scaled(int32_t value, int64_t gain) {
    return static_cast<int32_t>(clip(value * gain >> 8, 32));
}

TEST(MixerKernels, EqualTheFormulas) {
    using Values = std::vector<int32_t>;
    std::mt19937 random(random_seed());
    for (const auto* kernels : KEL_TEST_SIMD_VARIANTS(mixer_table)) {
        for (size_t count = 0; count < 150; ++count) {
            bytes in(count * 4 + 16);
            for (uint8_t& byte : in) byte = static_cast<uint8_t>(random());
            const size_t shift = count % 7;
            Values start(count + 1);
            for (int32_t& value : start) value = static_cast<int32_t>(random()) >> random() % 32;
            for (const uint32_t type : {S16LE, S24}) {
                const auto& input = type == S16LE ? kernels->s16 : kernels->s24_8;
                Values put = start, added = start, expected_put = start, expected_added = start;
                for (size_t i = 0; i < count; ++i) {
                    expected_put[i] = working_value(&in[shift + i * bytes_of(type)], type);
                    expected_added[i] = sum(start[i], expected_put[i]);
                }
                input.put(put.data(), &in[shift], count);
                input.add(added.data(), &in[shift], count);
                ASSERT_EQ(put, expected_put);
                ASSERT_EQ(added, expected_added);
            }
            for (int32_t gain : {0, 1, 128, 256, 257, 32767, 32768, 1000000, INT32_MAX}) {
                Values expected = start, in_place = start, apart(count + 1, start[count]);
                bytes expected_s16(shift), out;
                for (size_t i = 0; i < count; ++i) {
                    expected[i] = scaled(start[i], gain);
                    put_value(expected_s16, plain_value(expected[i], S24, S16LE), S16LE);
                }
                expected_s16.resize(expected_s16.size() + 8);
                out.resize(expected_s16.size());
                kernels->scale_to_s16(&out[shift], start.data(), count, gain);
                kernels->scale(in_place.data(), in_place.data(), count, gain);
                kernels->scale(apart.data(), start.data(), count, gain);
                ASSERT_EQ(out, expected_s16) << gain;
                ASSERT_EQ(in_place, expected) << gain;
                ASSERT_EQ(apart, expected) << gain;
            }
        }
    }
}

// Random formats, blocks, splits, limits and gains, beside a mixer that adds one value at a time.
TEST(Mixer, EqualsASlowMixer) {
    std::mt19937 random(random_seed());
    const auto below = [&](int32_t bound) {
        return static_cast<int32_t>(random() % static_cast<uint32_t>(bound));
    };
    for (int round = 0; round < stress_rounds(150); ++round) {
        const int32_t channels = 1 + below(2), room = 1 + below(round % 2 ? 20 : 600), ntracks = 1 + below(4);
        const uint32_t out_type = audio_types[below(7)];
        const Pool pool({44100, channels, out_type}, static_cast<uint32_t>(room), 2);
        const Mixer mixer(pool, ntracks);
        std::deque<Source> sources;
        for (int32_t t = 0; t < ntracks; ++t) {
            const kel_audio_format format = {44100, channels, audio_types[t ? below(7) : 3]};
            sources.emplace_back(format, static_cast<uint32_t>(1 + below(900)), random());
        }
        uint64_t emitted = 0;
        for (int cycle = 0; cycle < 6; ++cycle) {
            std::vector<int32_t> mixed(sources.size()), mix(static_cast<size_t>(room * channels));
            const float gain = std::array{1.0f, 0.5f, 1.7f, -1.0f, 200.0f, 1e12f}[random() % 6];
            kel_set_audio_mixer_global_gain(mixer.mixer, gain);
            while (!kel_audio_mixer_has_buffer(mixer.mixer)) {
                const auto t = random() % mixed.size();
                const Source& source = sources[random() % sources.size()];  // any track, any format
                const auto frames = static_cast<int32_t>(source.slice.spec.audio.nsamples);
                const int32_t start = below(frames + 1), most = below(500);
                int32_t taken = std::min({frames - start, most, room - mixed[t]});
                if (below(8) == 0) {
                    taken = std::min(most, room - mixed[t]);
                    ASSERT_EQ(kel_feed_audio_mixer_track_silence(mixer.tracks[t], most), taken);
                } else {
                    const uint32_t type = source.pool.pool->format.audio.type;
                    for (int32_t i = 0; i < taken * channels; ++i) {
                        auto& value = mix[static_cast<size_t>(mixed[t] * channels + i)];
                        const auto at = static_cast<size_t>(start * channels + i) * bytes_of(type);
                        value = sum(value, working_value(source.data() + at, type));
                    }
                    ASSERT_EQ(mixer.feed(t, source, start, most), taken);
                }
                mixed[t] += taken;
                ASSERT_EQ(kel_get_audio_mixer_track_pts_in_samples(mixer.tracks[t]),
                          emitted + static_cast<uint64_t>(mixed[t]));
                if (*std::min_element(mixed.begin(), mixed.end()) == room) continue;
                ASSERT_EQ(kel_get_audio_mixer_buffer_fill(mixer.mixer),
                          *std::max_element(mixed.begin(), mixed.end()));
                ASSERT_EQ(kel_get_audio_mixer_track_num_samples_mixed(mixer.tracks[t]), mixed[t]);
                ASSERT_EQ(kel_get_audio_mixer_track_num_samples_left(mixer.tracks[t]), room - mixed[t]);
            }
            const kel_slice slice = mixer.take();
            ASSERT_EQ(slice.spec.audio.nsamples, static_cast<uint32_t>(room));
            ASSERT_EQ(slice.pts, emitted * 1000000 / 44100);
            const auto scale = static_cast<int64_t>(std::clamp(gain * 256.0, 0.0, 2147483647.0));
            bytes expected;
            for (int32_t value : mix)
                put_value(expected, plain_value(scaled(value, scale), S24, out_type), out_type);
            ASSERT_EQ(memcmp(slice.spec.audio.samples_start, expected.data(), expected.size()), 0) << gain;
            emitted += static_cast<uint64_t>(room);
        }
    }
}

// Whatever the formats and sizes, each feed gets somewhere, and a stream fed in pieces across the ends of buffers gives
// the samples of one conversion of the whole.
TEST(Mixer, PiecesOfAStreamEqualTheWhole) {
    std::mt19937 random(random_seed());
    constexpr int32_t rates[] = {8000, 11025, 22050, 44100, 48000}, sizes[] = {1, 2, 3, 7, 65, 1000};
    const auto choose = [&](const auto& choices) { return choices[random() % std::size(choices)]; };
    for (int round = 0; round < stress_rounds(3000); ++round) {
        const kel_audio_format in = {choose(rates), round % 2 + 1, choose(audio_types)};
        const kel_audio_format out = {choose(rates), round / 2 % 2 + 1, S24};
        if (planned_chain(in, out).empty()) continue;
        SCOPED_TRACE(describe(in) + " to " + describe(out));
        const int32_t frames = choose(sizes), room = choose(sizes), most = choose(sizes);
        const Source source(in, static_cast<uint32_t>(frames), random());
        const Pool pool(out, static_cast<uint32_t>(room));
        const Mixer mixer(pool, 1);
        bytes stream, pieces;
        int32_t consumed = 0;
        for (int emitted = 0; emitted < 3;) {
            const uint64_t before = kel_get_audio_mixer_track_pts_in_samples(mixer.tracks[0]);
            const int32_t taken = mixer.feed(0, source, consumed % frames, most);
            ASSERT_TRUE(taken > 0 || kel_get_audio_mixer_track_pts_in_samples(mixer.tracks[0]) > before);
            consumed += taken;
            if (!kel_audio_mixer_has_buffer(mixer.mixer)) continue;
            const kel_slice slice = mixer.take();
            const auto* samples = static_cast<const uint8_t*>(slice.spec.audio.samples_start);
            pieces.insert(pieces.end(), samples, samples + slice.buffer->size);
            ++emitted;
        }
        for (int32_t i = 0; i <= consumed; i += frames)  // the last feed may have looked ahead
            stream.insert(stream.end(), source.data(), source.data() + source.slice.buffer->size);
        const bytes whole = plain_conversion(stream, in, out);
        ASSERT_LE(pieces.size(), whole.size());
        ASSERT_TRUE(std::equal(pieces.begin(), pieces.end(), whole.begin()));
    }
}

TEST(Mixer, TimesAreExactOverHours) {
    const Pool pool({44100, 1, S24}, 1000);
    const Mixer mixer(pool, 2);
    const auto cycles = static_cast<uint64_t>(stress_rounds(3 * 3600 * 44));
    for (uint64_t cycle = 0; cycle < cycles; ++cycle) {
        for (auto* track : mixer.tracks) ASSERT_EQ(kel_feed_audio_mixer_track_silence(track, 5000), 1000);
        ASSERT_EQ(mixer.take().pts, cycle * 1000 * 1000000 / 44100);
    }
    EXPECT_EQ(kel_get_audio_mixer_pts_in_samples(mixer.mixer), cycles * 1000);
    kel_feed_audio_mixer_track_silence(mixer.tracks[0], 100);
    EXPECT_EQ(kel_feed_audio_mixer_track_silence(mixer.tracks[0], -7), -7);
    kel_set_audio_mixer_pts(mixer.mixer, 1000000);
    EXPECT_EQ(kel_get_audio_mixer_pts_in_samples(mixer.mixer), 44100u);
    EXPECT_EQ(kel_get_audio_mixer_pts(mixer.mixer), 1000000u);
    EXPECT_EQ(kel_get_audio_mixer_track_pts_in_samples(mixer.tracks[0]), 44200u);
}

// One slice pending, none emitted meanwhile; a release emits what only waited for it; the rest goes out alone.
TEST(Mixer, PendingSlicesReleasesAndTheEnd) {
    const Pool pool(s16_stereo, 1024, 2);
    Mixer m(pool, 3);
    const Source source(s16_stereo, 2000);
    EXPECT_EQ(m.feed(0, source, 1500), 500);
    EXPECT_EQ(m.feed(0, source, 2000), 0);
    EXPECT_EQ(m.feed(0, source), 524);
    EXPECT_EQ(m.feed(2, source), 1024);
    EXPECT_EQ(kel_wait_for_audio_mixer(m.mixer, 0), EAGAIN);
    EXPECT_EQ(kel_release_audio_mixer_track(m.tracks[1]), 0);
    m.tracks.erase(m.tracks.begin() + 1);
    for (int32_t taken : {1024, 0}) {
        for (size_t t : {0, 1}) EXPECT_EQ(m.feed(t, source), taken);
        EXPECT_EQ(kel_audio_mixer_has_buffer(m.mixer), 1);
    }
    kel_slice first = {}, second = {}, third = {};
    EXPECT_EQ(kel_get_audio_mixer_slice(m.mixer, &first), 0);
    EXPECT_EQ(kel_get_audio_mixer_slice(m.mixer, &second), 0);
    EXPECT_EQ(second.pts, 21333u);
    EXPECT_EQ(m.feed(0, source, 0, 100), 100);
    for (auto* track : m.tracks) EXPECT_EQ(kel_release_audio_mixer_track(track), 0);
    m.tracks.clear();
    EXPECT_EQ(kel_wait_for_audio_mixer(m.mixer, 20), EAGAIN) << "both buffers are out";
    EXPECT_EQ(kel_release_buffer(first.buffer), 0);
    EXPECT_EQ(kel_wait_for_audio_mixer(m.mixer, 20), 0);
    EXPECT_EQ(kel_get_audio_mixer_slice(m.mixer, &third), 0);
    EXPECT_EQ(third.spec.audio.nsamples, 100u);
    EXPECT_EQ(kel_get_audio_mixer_slice(m.mixer, &third), EAGAIN);
    EXPECT_EQ(kel_release_buffer(second.buffer), 0);

    m.tracks.push_back(kel_acquire_audio_mixer_track(m.mixer));
    EXPECT_EQ(m.feed(0, source), 1024);
    EXPECT_EQ(pool.pool->in_use, 2) << "third and pending";
    EXPECT_EQ(kel_destroy_audio_mixer(&m.mixer), 0);
    EXPECT_EQ(m.mixer, nullptr);
    EXPECT_EQ(pool.pool->in_use, 1);
    EXPECT_EQ(kel_get_audio_mixer_track_pts_in_samples(m.tracks[0]), 3 * 1024 + 100u) << "tracks survive";
}

// Wrong calls: result, errno, and the message without its prefix.
TEST(Mixer, Refusals) {
    const Pool pool(s16_stereo, 16), be24({48000, 2, KEL_AUDIO_TYPE_S24_8BE}, 16);
    kel_buffer_pool video = {}, *no_pool = nullptr;
    video.format.type = KEL_BUFFER_VIDEO;
    kel_buffer video_buffer = {};
    video_buffer.pool = &video;
    kel_slice picture = {}, empty = {}, *no_slice = nullptr;
    picture.buffer = &video_buffer;
    const Source source(s16_stereo, 16), six({48000, 6, S16LE}, 16);
    const Mixer mixer(pool, 1);
    Mixer ended(pool, 1);
    kel_destroy_audio_mixer(&ended.mixer);
    kel_audio_mixer* none = nullptr;
    kel_audio_mixer_track *track = mixer.tracks[0], *orphan = ended.tracks[0];
    const kel_slice* good = &source.slice;
    constexpr auto feed = kel_feed_audio_mixer_track;
    LogCapture log;
    errno = 0;
    const auto expect = [&](auto result, int64_t wanted, int error, const std::string& message) {
        if constexpr (std::is_pointer_v<decltype(result)>) {
            EXPECT_EQ(result, nullptr) << message;
        } else {
            EXPECT_EQ(static_cast<int64_t>(result), wanted) << message;
        }
        EXPECT_EQ(std::exchange(errno, 0), error) << message;
        std::vector<LogMessage> expected;
        if (!message.empty()) expected.push_back({2, "kel:   " + message});
        auto messages = log.messages();
        std::erase(messages, LogMessage{2, "kel:   Cannot create audio conversion chain."});
        EXPECT_EQ(messages, expected);
        log.clear();
    };
    for (auto* bad : {&video, no_pool}) {
        expect(kel_create_audio_mixer(bad), 0, EINVAL,
               "Cannot create audio mixer for non-audio buffer pool.");
    }
    expect(kel_create_audio_mixer(be24), 0, EINVAL, "Cannot convert mixed audio.");
    expect(kel_acquire_audio_mixer_track(none), 0, EINVAL,
           "Cannot create a mixing track for nonexistant mixer.");
    expect(kel_release_audio_mixer_track(nullptr), 22, 0, "Cannot release inexistent audio mixer track.");
    for (const kel_slice* bad : {&picture, &empty, no_slice}) {
        expect(feed(track, bad, 0, 1), -1, EINVAL, "Cannot feed non-audio data into audio mixer track.");
    }
    for (int again : {0, 1})
        expect(feed(track, &six.slice, again, 1), -1, EINVAL, "Cannot convert audio for mixing.");
    expect(feed(nullptr, good, 0, 1), -1, EINVAL, "");
    expect(feed(orphan, good, 0, 1), -1, EINVAL, "");
    expect(feed(track, good, 17, 1), -1, EINVAL, "");
    expect(feed(track, good, -1, 1), -1, EINVAL, "");
    expect(feed(track, good, 0, -1), -1, EINVAL, "");
    constexpr auto silence = kel_feed_audio_mixer_track_silence;
    expect(silence(nullptr, 1), 22, 0, "Attempt to feed silence to nonexistent track.");
    expect(silence(orphan, 1), 22, 0, "Attempt to feed silence to track with destroyed mixer.");
    for (auto* query :
         {kel_get_audio_mixer_track_num_samples_mixed, kel_get_audio_mixer_track_num_samples_left}) {
        expect(query(nullptr), 22, 0, "Attempt to query nonexistent track.");
        expect(query(orphan), 22, 0, "Attempt to query track with destroyed mixer.");
    }
    expect(kel_wait_for_audio_mixer(none, 0), 22, 0, "Attempt to wait for nonexistent mixer.");
    expect(kel_get_audio_mixer_slice(none, &empty), 22, 0, "Attempt to get buffer from nonexistent mixer.");
    expect(kel_audio_mixer_has_buffer(none), 0, EINVAL, "Attempt to query buffer from nonexistent mixer.");
    expect(kel_get_audio_mixer_slice(mixer.mixer, nullptr), 22, 0, "");
    expect(kel_destroy_audio_mixer(nullptr), 22, 0, "");
    expect(kel_destroy_audio_mixer(&none), 22, 0, "");
    expect(kel_get_audio_mixer_track_pts_in_samples(nullptr), 0, 0, "");
    expect(kel_get_audio_mixer_buffer_fill(none), 0, 0, "");
    expect(kel_get_audio_mixer_pts(none), 0, 0, "");
    expect(kel_get_audio_mixer_pts_in_samples(none), 0, 0, "");
    expect(kel_get_audio_mixer_global_gain(none), 0, 0, "");
    expect(kel_get_audio_mixer_format(none), 0, 0, "");
    kel_set_audio_mixer_global_gain(none, 1);
    kel_set_audio_mixer_pts(none, 1);
    EXPECT_EQ(mixer.feed(0, source), 16) << "usable after all this";
}

// Everything between the pool and the first slice that can fail does so once.
TEST(Mixer, FailedAllocations) {
    const Pool pool(s16_stereo, 16);
    const Source source(s16_stereo, 16);
    std::vector<std::string> seen;
    sweep_faults({}, [&](const Fault* fault, LogCapture& log) {
        errno = 0;
        kel_audio_mixer* mixer = kel_create_audio_mixer(pool);
        kel_audio_mixer_track* track = mixer ? kel_acquire_audio_mixer_track(mixer) : nullptr;
        const int32_t taken = track ? kel_feed_audio_mixer_track(track, &source.slice, 0, 16) : -1;
        EXPECT_TRUE(taken == 16 || errno == ENOMEM || errno == EINVAL);
        EXPECT_EQ(log.messages(2).empty(), fault == nullptr);
        if (fault) seen.push_back(log.messages(2).back().text);
        if (track && taken == -1) {  // a format is tried once, memory again and again
            const bool no_converter = seen.back() == "kel:   Cannot convert audio for mixing.";
            EXPECT_EQ(kel_feed_audio_mixer_track(track, &source.slice, 0, 16), no_converter ? -1 : 16);
        }
        if (track) kel_release_audio_mixer_track(track);
        if (mixer) kel_destroy_audio_mixer(&mixer);
        EXPECT_EQ(pool.pool->in_use, 0);
    });
    for (const char* message :
         {"Cannot allocate audio mixer internal structure.", "Cannot allocate audio mixer internal buffer.",
          "Cannot convert mixed audio.", "Cannot allocate audio mixer track internal structure.",
          "Cannot convert audio for mixing.", "Unable to allocate audio conversion buffers.",
          "Unable to allocate audio track conversion buffer."}) {
        EXPECT_TRUE(std::count(seen.begin(), seen.end(), std::string("kel:   ") + message)) << message;
    }
}

// Buffers grow when they must, say so, and never again; the one-pass conversions do not change that.
TEST(Mixer, AllocatesOnlyForLargerBlocks) {
    const Pool pool(s16_stereo, 1024);
    const Mixer mixer(pool, 1);
    const Source small(s16_stereo, 1024), large(s16_stereo, 5000);
    const LogMessage mix = {6, "mix: Allocating 16384 bytes"};
    const LogMessage converter = {6, "converter: Allocating 32768 bytes"};
    const struct {
        const Source& source;
        std::vector<LogMessage> messages;
        int allocations;
    } rows[] = {{small, {mix, converter, converter}, 5},  // and the track's converter itself, with its step
                {small, {}, 0},
                {large, {{6, "converter: Allocating 160000 bytes"}}, 1},
                {small, {}, 0},
                {large, {}, 0}};
    for (const auto& row : rows) {
        const LogCapture log;
        const Faults counter;
        EXPECT_EQ(mixer.feed(0, row.source), 1024);
        EXPECT_EQ(log.messages(6), row.messages);
        EXPECT_EQ(counter.allocations(), row.allocations);
        mixer.take();
    }
}

}  // namespace
}  // namespace kel_test
