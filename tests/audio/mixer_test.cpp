// The mixer against a slow one written from the formulas, its bookkeeping over hours, and every way to fail.
#include <kel.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "audio/mixer_kernels.hpp"
#include "support/faults.hpp"
#include "support/simd_variants.hpp"
#include "support/threads.hpp"

namespace {

constexpr kel_audio_format s16_stereo = {48000, 2, KEL_AUDIO_TYPE_S16LE};
constexpr kel_audio_format working = {48000, 2, KEL_AUDIO_TYPE_S24_8LE};

struct Pool {
    kel_buffer_pool* pool;
    Pool(const kel_audio_format& format, uint32_t nsamples, int32_t count = 1)
        : pool(kel_create_audio_buffer_pool(nullptr, &format, nsamples, count)) {}
    ~Pool() { kel_destroy_buffer_pool(&pool); }
    Pool(const Pool&) = delete;
    operator kel_buffer_pool*() const { return pool; }
};

// A slice of its own pool's only buffer.
struct Source {
    Pool pool;
    kel_slice slice;
    Source(const kel_audio_format& format, uint32_t frames) : pool(format, frames) {
        slice = kel_slice_for_buffer(kel_acquire_buffer(pool));
    }
    template <typename T>
    T* values() const {
        return static_cast<T*>(slice.spec.audio.samples_start);
    }
    void fill_with(std::mt19937& random) const {
        auto* bytes = values<uint8_t>();
        std::generate(bytes, bytes + slice.buffer->size, [&] { return static_cast<uint8_t>(random()); });
    }
};

struct Mixer {
    kel_audio_mixer* mixer;
    std::vector<kel_audio_mixer_track*> tracks;
    Mixer(kel_buffer_pool* pool, int ntracks) : mixer(kel_create_audio_mixer(pool)) {
        for (int i = 0; i < ntracks; ++i) tracks.push_back(kel_acquire_audio_mixer_track(mixer));
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

int32_t clip(int64_t value, int bits) {
    const int64_t limit = INT64_C(1) << (bits - 1);
    return static_cast<int32_t>(std::clamp(value, -limit, limit - 1));
}

uint16_t swapped(uint32_t value) {
    return static_cast<uint16_t>(value << 8 | (value >> 8 & 0xff));
}

// One value of a type as S24.8, and the other way round.
int32_t to_working(uint32_t type, const uint8_t* at) {
    uint16_t word;
    int32_t whole;
    switch (type) {
        case KEL_AUDIO_TYPE_U8:
            return (*at - 128) * 65536;
        case KEL_AUDIO_TYPE_S8:
            return static_cast<int8_t>(*at) * 65536;
        case KEL_AUDIO_TYPE_S24_8LE:
            return memcpy(&whole, at, 4), whole;
        default:
            memcpy(&word, at, 2);
    }
    if (type & KEL_AUDIO_TYPE_BIG_ENDIAN) word = swapped(word);
    if (!(type & KEL_AUDIO_TYPE_SIGNED)) word ^= 0x8000;
    return static_cast<int16_t>(word) * 256;
}

int32_t from_working(uint32_t type, int32_t value) {
    if (type == KEL_AUDIO_TYPE_S24_8LE) return value;
    auto word = static_cast<uint16_t>(clip(value >> 8, 16));
    if (!(type & KEL_AUDIO_TYPE_SIGNED)) word ^= 0x8000;
    if ((type & KEL_AUDIO_TYPE_BYTES_MASK) == 0x10) return word >> 8;
    return type & KEL_AUDIO_TYPE_BIG_ENDIAN ? swapped(word) : word;
}

constexpr uint32_t types[] = {KEL_AUDIO_TYPE_U8,     KEL_AUDIO_TYPE_S8,    KEL_AUDIO_TYPE_U16LE,
                              KEL_AUDIO_TYPE_S16LE,  KEL_AUDIO_TYPE_U16BE, KEL_AUDIO_TYPE_S16BE,
                              KEL_AUDIO_TYPE_S24_8LE};

TEST(MixerKernels, EqualTheFormulas) {
    std::mt19937 random(kel_test::random_seed());
    for (const auto* kernels : KEL_TEST_SIMD_VARIANTS(mixer_table)) {
        for (size_t count = 0; count < 150; ++count) {
            std::vector<uint8_t> bytes(count * 4 + 16);
            for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
            const uint8_t* in = bytes.data() + count % 7;
            std::vector<int32_t> start(count + 1), wide(count + 1), narrow(count + 1);
            for (int32_t& value : start) value = static_cast<int32_t>(random()) >> random() % 32;
            wide = narrow = start;
            std::vector<int32_t> put_wide = start, put_narrow = start;
            kernels->s24_8.add(wide.data(), in, count);
            kernels->s24_8.put(put_wide.data(), in, count);
            kernels->s16.add(narrow.data(), in, count);
            kernels->s16.put(put_narrow.data(), in, count);
            for (const auto* result : {&wide, &narrow, &put_wide, &put_narrow}) {
                ASSERT_EQ(result->back(), start[count]) << "behind the end";
            }
            for (size_t i = 0; i < count; ++i) {
                const auto sum = [&](int32_t value) {
                    return static_cast<int32_t>(static_cast<uint32_t>(start[i]) +
                                                static_cast<uint32_t>(value));
                };
                ASSERT_EQ(put_wide[i], to_working(KEL_AUDIO_TYPE_S24_8LE, in + 4 * i));
                ASSERT_EQ(put_narrow[i], to_working(KEL_AUDIO_TYPE_S16LE, in + 2 * i));
                ASSERT_EQ(wide[i], sum(put_wide[i]));
                ASSERT_EQ(narrow[i], sum(put_narrow[i]));
            }
            for (int32_t gain : {0, 1, 128, 256, 257, 32767, 32768, 1000000, INT32_MAX}) {
                std::vector<uint8_t> out(bytes.size(), 0x5e);
                uint8_t* at = out.data() + count % 7;
                kernels->scale_to_s16(at, start.data(), count, gain);
                for (size_t i = 0; i < count; ++i) {
                    const int32_t scaled = clip(int64_t{start[i]} * gain >> 8, 32);
                    ASSERT_EQ(to_working(KEL_AUDIO_TYPE_S16LE, at + 2 * i), clip(scaled >> 8, 16) * 256)
                        << gain;
                }
                ASSERT_EQ(at[2 * count], 0x5e);
                std::vector<int32_t> in_place = start;
                kernels->scale(in_place.data(), in_place.data(), count, gain);
                kernels->scale(at, start.data(), count, gain);
                for (size_t i = 0; i < count; ++i) {
                    ASSERT_EQ(in_place[i], clip(int64_t{start[i]} * gain >> 8, 32)) << gain;
                    ASSERT_EQ(to_working(KEL_AUDIO_TYPE_S24_8LE, at + 4 * i), in_place[i]);
                }
                ASSERT_EQ(at[4 * count], 0x5e);
            }
        }
    }
}

// Random formats, blocks, splits, limits and gains, beside a mixer that adds one value at a time.
TEST(Mixer, EqualsASlowMixer) {
    std::mt19937 random(kel_test::random_seed());
    const auto below = [&](uint32_t bound) { return static_cast<int32_t>(random() % bound); };
    for (int round = 0; round < kel_test::stress_rounds(150); ++round) {
        const int32_t channels = 1 + below(2), room = 1 + below(round % 2 ? 20 : 600), ntracks = 1 + below(4);
        const kel_audio_format out_format = {44100, channels, types[random() % std::size(types)]};
        const Pool pool(out_format, static_cast<uint32_t>(room), 2);
        const Mixer mixer(pool, ntracks);
        std::vector<std::unique_ptr<Source>> sources;
        for (int32_t t = 0; t < ntracks; ++t) {
            const kel_audio_format format = {44100, channels, types[t ? random() % std::size(types) : 3]};
            sources.push_back(std::make_unique<Source>(format, 1 + below(900)));
        }
        std::vector<int32_t> mixed(static_cast<size_t>(ntracks)), mix(static_cast<size_t>(room * channels));
        uint64_t emitted = 0;
        for (int cycle = 0; cycle < 6; ++cycle) {
            const float gain = std::vector{1.0f, 0.5f, 1.7f, -1.0f, 200.0f, 1e12f}[random() % 6];
            kel_set_audio_mixer_global_gain(mixer.mixer, gain);
            for (auto& source : sources) source->fill_with(random);
            while (!kel_audio_mixer_has_buffer(mixer.mixer)) {
                const auto t = random() % mixed.size();
                if (random() % 8 == 0) {
                    const int32_t silent = std::min(below(100), room - mixed[t]);
                    ASSERT_EQ(kel_feed_audio_mixer_track_silence(mixer.tracks[t], silent), silent);
                    mixed[t] += silent;
                    continue;
                }
                const Source& source = *sources[t];
                const int32_t frames = static_cast<int32_t>(source.slice.spec.audio.nsamples);
                const int32_t start = below(static_cast<uint32_t>(frames) + 1), most = below(500);
                const int32_t taken = std::min({frames - start, most, room - mixed[t]});
                const uint32_t type = source.pool.pool->format.audio.type;
                const auto value_bytes = static_cast<int32_t>(type >> 4 & 7);
                for (int32_t i = 0; i < taken * channels; ++i) {
                    auto& sum = mix[static_cast<size_t>(mixed[t] * channels + i)];
                    const int32_t value =
                        to_working(type, source.values<uint8_t>() + (start * channels + i) * value_bytes);
                    sum = static_cast<int32_t>(static_cast<uint32_t>(sum) + static_cast<uint32_t>(value));
                }
                mixed[t] += taken;
                ASSERT_EQ(mixer.feed(t, source, start, most), taken);
                const auto* track = mixer.tracks[t];
                ASSERT_EQ(kel_get_audio_mixer_track_pts_in_samples(track),
                          emitted + static_cast<uint64_t>(mixed[t]));
                if (*std::min_element(mixed.begin(), mixed.end()) < room) {
                    ASSERT_EQ(kel_get_audio_mixer_buffer_fill(mixer.mixer),
                              *std::max_element(mixed.begin(), mixed.end()));
                    ASSERT_EQ(kel_get_audio_mixer_track_num_samples_left(mixer.tracks[t]), room - mixed[t]);
                }
            }
            const kel_slice slice = mixer.take();
            ASSERT_EQ(slice.spec.audio.nsamples, static_cast<uint32_t>(room));
            ASSERT_EQ(slice.pts, emitted * 1000000 / 44100);
            const auto scale = static_cast<int64_t>(std::clamp(gain * 256.0, 0.0, 2147483647.0));
            const auto bytes = static_cast<int>(out_format.type >> 4 & 7);
            for (size_t i = 0; i < mix.size(); ++i) {
                int32_t got = 0;
                memcpy(&got,
                       static_cast<const uint8_t*>(slice.spec.audio.samples_start) +
                           i * static_cast<size_t>(bytes),
                       static_cast<size_t>(bytes));
                ASSERT_EQ(got, from_working(out_format.type, clip(mix[i] * scale >> 8, 32)))
                    << "gain " << gain;
            }
            emitted += static_cast<uint64_t>(room);
            std::fill(mixed.begin(), mixed.end(), 0);
            std::fill(mix.begin(), mix.end(), 0);
        }
    }
}

// Whatever the formats, the size of the buffer and of the slices: each feed gets somewhere until the track is full.
TEST(Mixer, EveryFormatPairFillsEveryBuffer) {
    constexpr int32_t rates[] = {8000, 11025, 22050, 44100, 48000};
    constexpr uint32_t rooms[] = {1, 2, 3, 7, 65}, lengths[] = {1, 2, 3, 9};
    // One counter walks through all combinations.
    constexpr uint32_t combinations = 7 * 5 * 5 * 2 * 2 * 5 * 4 * 2;
    for (uint32_t i = 0; i < combinations; ++i) {
        uint32_t rest = i;
        const auto choose = [&rest](const auto& choices) {
            const auto chosen = choices[rest % std::size(choices)];
            rest /= static_cast<uint32_t>(std::size(choices));
            return chosen;
        };
        const kel_audio_format in = {choose(rates), choose(std::array{1, 2}), choose(types)};
        const Pool pool({choose(rates), choose(std::array{1, 2}), KEL_AUDIO_TYPE_S16LE}, choose(rooms));
        const Source source(in, choose(lengths));
        const int32_t most = choose(std::array{1, 1000});
        const Mixer mixer(pool, 1);
        const kel_audio_format& to = *kel_get_audio_mixer_format(mixer.mixer);
        if (in.type == to.type && kel_audio_formats_differ(&in, &to))
            continue;  // the one kind that has no chain
        for (uint64_t before = 0; !kel_audio_mixer_has_buffer(mixer.mixer) || mixer.take().pts == 0;) {
            const int32_t taken = mixer.feed(0, source, 0, most);
            const uint64_t now = kel_get_audio_mixer_track_pts_in_samples(mixer.tracks[0]);
            ASSERT_TRUE(taken > 0 || now > before) << "combination " << i;
            before = now;
        }
    }
}

TEST(Mixer, TimesAreExactOverHours) {
    const Pool pool({44100, 1, KEL_AUDIO_TYPE_S24_8LE}, 1000);
    const Mixer mixer(pool, 2);
    const uint64_t cycles = static_cast<uint64_t>(kel_test::stress_rounds(3 * 3600 * 44));
    for (uint64_t cycle = 0; cycle < cycles; ++cycle) {
        for (auto* track : mixer.tracks) ASSERT_EQ(kel_feed_audio_mixer_track_silence(track, 5000), 1000);
        ASSERT_EQ(mixer.take().pts, cycle * 1000 * 1000000 / 44100);
    }
    EXPECT_EQ(kel_get_audio_mixer_pts_in_samples(mixer.mixer), cycles * 1000);
    EXPECT_EQ(kel_get_audio_mixer_track_pts_in_samples(mixer.tracks[0]), cycles * 1000);
}

TEST(Mixer, PositionsMoveTogether) {
    const Pool pool(s16_stereo, 1024);
    const Mixer mixer(pool, 1);
    EXPECT_EQ(kel_feed_audio_mixer_track_silence(mixer.tracks[0], 100), 100);
    EXPECT_EQ(kel_feed_audio_mixer_track_silence(mixer.tracks[0], -7), -7);
    EXPECT_EQ(kel_feed_audio_mixer_track_silence(mixer.tracks[0], 0), 0);
    EXPECT_EQ(kel_get_audio_mixer_track_num_samples_mixed(mixer.tracks[0]), 100);
    kel_set_audio_mixer_pts(mixer.mixer, 1000000);
    EXPECT_EQ(kel_get_audio_mixer_pts_in_samples(mixer.mixer), 48000u);
    EXPECT_EQ(kel_get_audio_mixer_pts(mixer.mixer), 1000000u);
    EXPECT_EQ(kel_get_audio_mixer_track_pts_in_samples(mixer.tracks[0]), 48100u);
    EXPECT_FALSE(kel_audio_formats_differ(kel_get_audio_mixer_format(mixer.mixer), &working));
    EXPECT_EQ(kel_get_audio_mixer_global_gain(mixer.mixer), 1.0f);
}

// One slice pending, none emitted meanwhile; a release emits what only waited for it; the rest goes out alone.
TEST(Mixer, PendingAndReleases) {
    const Pool pool(s16_stereo, 1024, 2);
    kel_audio_mixer* mixer = kel_create_audio_mixer(pool);
    kel_audio_mixer_track *a = kel_acquire_audio_mixer_track(mixer),
                          *b = kel_acquire_audio_mixer_track(mixer);
    kel_audio_mixer_track* c = kel_acquire_audio_mixer_track(mixer);
    const Source loud(s16_stereo, 2000);
    std::fill_n(loud.values<int16_t>(), 4000, int16_t{32767});
    EXPECT_EQ(kel_feed_audio_mixer_track(a, &loud.slice, 1500, 4096), 500);
    EXPECT_EQ(kel_feed_audio_mixer_track(a, &loud.slice, 0, 300), 300);
    EXPECT_EQ(kel_feed_audio_mixer_track(a, &loud.slice, 2000, 300), 0);
    EXPECT_EQ(kel_feed_audio_mixer_track(a, &loud.slice, 0, 4096), 224);
    EXPECT_EQ(kel_feed_audio_mixer_track(c, &loud.slice, 0, 4096), 1024);
    EXPECT_EQ(kel_wait_for_audio_mixer(mixer, 0), EAGAIN);
    EXPECT_EQ(kel_release_audio_mixer_track(b), 0);  // from the middle of the list
    for (int again = 0; again < 2; ++again) {
        for (auto* track : {a, c}) {
            EXPECT_EQ(kel_feed_audio_mixer_track(track, &loud.slice, 0, 4096), again ? 0 : 1024);
        }
        EXPECT_EQ(kel_audio_mixer_has_buffer(mixer), 1);
    }
    kel_slice first = {}, second = {}, third = {};
    EXPECT_EQ(kel_get_audio_mixer_slice(mixer, &first), 0);
    EXPECT_EQ(first.pts, 0u);
    EXPECT_EQ(static_cast<int16_t*>(first.spec.audio.samples_start)[2047], 32767) << "clipped";
    EXPECT_EQ(kel_get_audio_mixer_slice(mixer, &second), 0);
    EXPECT_EQ(second.pts, 21333u);
    EXPECT_EQ(kel_feed_audio_mixer_track(a, &loud.slice, 0, 100), 100);
    EXPECT_EQ(kel_release_audio_mixer_track(a), 0);
    EXPECT_EQ(kel_release_audio_mixer_track(c), 0);
    EXPECT_EQ(kel_wait_for_audio_mixer(mixer, 20), EAGAIN) << "both buffers are out";
    EXPECT_EQ(kel_release_buffer(first.buffer), 0);
    EXPECT_EQ(kel_wait_for_audio_mixer(mixer, 20), 0);
    EXPECT_EQ(kel_get_audio_mixer_slice(mixer, &third), 0);
    EXPECT_EQ(third.spec.audio.nsamples, 100u);
    EXPECT_EQ(kel_get_audio_mixer_slice(mixer, &third), EAGAIN);
    EXPECT_EQ(kel_release_buffer(second.buffer) | kel_release_buffer(third.buffer), 0);
    EXPECT_EQ(kel_destroy_audio_mixer(&mixer), 0);
    EXPECT_EQ(mixer, nullptr);
}

TEST(Mixer, DestructionReturnsThePendingBufferAndLeavesTheTracks) {
    const Pool pool(s16_stereo, 16);
    Mixer mixer(pool, 2);
    for (auto* track : mixer.tracks) kel_feed_audio_mixer_track_silence(track, 16);
    EXPECT_EQ(pool.pool->in_use, 1);
    EXPECT_EQ(kel_destroy_audio_mixer(&mixer.mixer), 0);
    EXPECT_EQ(pool.pool->in_use, 0);
    EXPECT_EQ(kel_get_audio_mixer_track_pts_in_samples(mixer.tracks[0]), 16u);
}

// Every message that a wrong call provokes, with its result and errno.
TEST(Mixer, Refusals) {
    const Pool pool(s16_stereo, 16), be24({48000, 2, KEL_AUDIO_TYPE_S24_8BE}, 16);
    kel_buffer_pool video = {};
    video.format.type = KEL_BUFFER_VIDEO;
    kel_buffer video_buffer = {};
    video_buffer.pool = &video;
    kel_slice picture = {}, empty = {};
    picture.buffer = &video_buffer;
    const Source source(s16_stereo, 16), six({48000, 6, KEL_AUDIO_TYPE_S16LE}, 16);
    const Mixer mixer(pool, 1);
    Mixer ended(pool, 1);
    kel_destroy_audio_mixer(&ended.mixer);
    kel_audio_mixer* none = nullptr;
    kel_audio_mixer_track *track = mixer.tracks[0], *orphan = ended.tracks[0];
    const kel_slice* good = &source.slice;
    kel_test::LogCapture log;
    errno = 0;
    // The call's result, its errno, and the last message that it logged, without the prefix.
    const auto expect = [&](auto result, int64_t wanted, int error, const std::string& message) {
        if constexpr (std::is_pointer_v<decltype(result)>) {
            EXPECT_EQ(result, nullptr) << message;
        } else {
            EXPECT_EQ(static_cast<int64_t>(result), wanted) << message;
        }
        EXPECT_EQ(errno, error) << message;
        const auto messages = log.messages();
        const kel_test::LogMessage last = messages.empty() ? kel_test::LogMessage{} : messages.back();
        EXPECT_EQ(last,
                  (message.empty() ? kel_test::LogMessage{} : kel_test::LogMessage{2, "kel:   " + message}));
        log.clear();
        errno = 0;
    };
    for (auto* bad : {&video, static_cast<kel_buffer_pool*>(nullptr)}) {
        expect(kel_create_audio_mixer(bad), 0, EINVAL,
               "Cannot create audio mixer for non-audio buffer pool.");
    }
    expect(kel_create_audio_mixer(be24), 0, EINVAL, "Cannot convert mixed audio.");
    expect(kel_acquire_audio_mixer_track(nullptr), 0, EINVAL,
           "Cannot create a mixing track for nonexistant mixer.");
    expect(kel_release_audio_mixer_track(nullptr), 22, 0, "Cannot release inexistent audio mixer track.");
    for (const kel_slice* bad : {&picture, &empty, static_cast<kel_slice*>(nullptr)}) {
        expect(kel_feed_audio_mixer_track(track, bad, 0, 1), -1, EINVAL,
               "Cannot feed non-audio data into audio mixer track.");
    }
    for (int again = 0; again < 2; ++again) {
        expect(kel_feed_audio_mixer_track(track, &six.slice, 0, 1), -1, EINVAL,
               "Cannot convert audio for mixing.");
    }
    expect(kel_feed_audio_mixer_track(nullptr, good, 0, 1), -1, EINVAL, "");
    expect(kel_feed_audio_mixer_track(orphan, good, 0, 1), -1, EINVAL, "");
    expect(kel_feed_audio_mixer_track(track, good, 17, 1), -1, EINVAL, "");
    expect(kel_feed_audio_mixer_track(track, good, -1, 1), -1, EINVAL, "");
    expect(kel_feed_audio_mixer_track(track, good, 0, -1), -1, EINVAL, "");
    expect(kel_feed_audio_mixer_track_silence(nullptr, 1), 22, 0,
           "Attempt to feed silence to nonexistent track.");
    expect(kel_feed_audio_mixer_track_silence(orphan, 1), 22, 0,
           "Attempt to feed silence to track with destroyed mixer.");
    for (auto* query :
         {kel_get_audio_mixer_track_num_samples_mixed, kel_get_audio_mixer_track_num_samples_left}) {
        expect(query(nullptr), 22, 0, "Attempt to query nonexistent track.");
        expect(query(orphan), 22, 0, "Attempt to query track with destroyed mixer.");
    }
    expect(kel_wait_for_audio_mixer(nullptr, 0), 22, 0, "Attempt to wait for nonexistent mixer.");
    expect(kel_get_audio_mixer_slice(nullptr, &empty), 22, 0,
           "Attempt to get buffer from nonexistent mixer.");
    expect(kel_audio_mixer_has_buffer(nullptr), 0, EINVAL, "Attempt to query buffer from nonexistent mixer.");
    expect(kel_get_audio_mixer_slice(mixer.mixer, nullptr), 22, 0, "");
    expect(kel_destroy_audio_mixer(nullptr), 22, 0, "");
    expect(kel_destroy_audio_mixer(&none), 22, 0, "");
    expect(kel_get_audio_mixer_track_pts_in_samples(nullptr), 0, 0, "");
    expect(kel_get_audio_mixer_buffer_fill(nullptr), 0, 0, "");
    expect(kel_get_audio_mixer_pts(nullptr), 0, 0, "");
    expect(kel_get_audio_mixer_pts_in_samples(nullptr), 0, 0, "");
    expect(kel_get_audio_mixer_global_gain(nullptr), 0, 0, "");
    expect(kel_get_audio_mixer_format(nullptr), 0, 0, "");
    kel_set_audio_mixer_global_gain(nullptr, 1);
    kel_set_audio_mixer_pts(nullptr, 1);
    EXPECT_EQ(kel_feed_audio_mixer_track(track, good, 0, 16), 16) << "usable after all this";
}

// Everything between the first track and the first slice that can fail does so once.
TEST(Mixer, FailedAllocations) {
    const Pool pool(s16_stereo, 16);
    const Source source(s16_stereo, 16);
    std::vector<std::string> seen;
    kel_test::sweep_faults({}, [&](const kel_test::Fault* fault, kel_test::LogCapture& log) {
        errno = 0;
        kel_audio_mixer* mixer = kel_create_audio_mixer(pool);
        kel_audio_mixer_track* track = mixer ? kel_acquire_audio_mixer_track(mixer) : nullptr;
        const int32_t taken = track ? kel_feed_audio_mixer_track(track, &source.slice, 0, 16) : -1;
        const auto errors = log.messages(2);
        EXPECT_TRUE(taken == 16 || errno == ENOMEM || errno == EINVAL);
        if (!errors.empty()) seen.push_back(errors.back().text);
        EXPECT_EQ(errors.empty(), fault == nullptr);
        if (track && taken == -1) {  // a conversion buffer: tried anew
            const int32_t again = kel_feed_audio_mixer_track(track, &source.slice, 0, 16);
            EXPECT_EQ(again, seen.back() == "kel:   Cannot convert audio for mixing." ? -1 : 16);
        }
        if (track) kel_release_audio_mixer_track(track);
        if (mixer) kel_destroy_audio_mixer(&mixer);
        EXPECT_EQ(pool.pool->in_use, 0);
    });
    for (const char* message :
         {"kel:   Cannot allocate audio mixer internal structure.",
          "kel:   Cannot allocate audio mixer internal buffer.", "kel:   Cannot convert mixed audio.",
          "kel:   Cannot allocate audio mixer track internal structure.",
          "kel:   Cannot convert audio for mixing.",
          "kel:   Unable to allocate audio track conversion buffer.",
          "kel:   Unable to allocate audio conversion buffers."}) {
        EXPECT_TRUE(std::count(seen.begin(), seen.end(), message)) << message;
    }
}

// Buffers grow when they must, say so, and never again; the one-pass conversions do not change that.
TEST(Mixer, AllocatesOnlyForLargerBlocks) {
    const Pool pool(s16_stereo, 1024);
    const Mixer mixer(pool, 1);
    const Source small(s16_stereo, 1024), large(s16_stereo, 5000);
    const struct {
        const Source& source;
        std::vector<std::string> messages;
        int records = 0;  // and the track's converter itself
    } rows[] = {
        {small,
         {"mix: Allocating 16384 bytes", "converter: Allocating 32768 bytes",
          "converter: Allocating 32768 bytes"},
         2},
        {small, {}},
        {large, {"converter: Allocating 160000 bytes"}},
        {small, {}},
        {large, {}},
    };
    for (const auto& row : rows) {
        const kel_test::LogCapture log;
        const kel_test::Faults counter;
        EXPECT_EQ(mixer.feed(0, row.source), 1024);
        std::vector<std::string> texts;
        for (const auto& message : log.messages(6)) texts.push_back(message.text);
        EXPECT_EQ(texts, row.messages);
        EXPECT_EQ(counter.allocations(), static_cast<int>(row.messages.size()) + row.records);
        mixer.take();
    }
}

}  // namespace
