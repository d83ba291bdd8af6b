// Steps, planner and converter against the formulas.
#include <gtest/gtest.h>
#include <kel.h>

#include <random>

#include "audio/convert_kernels.hpp"
#include "audio/steps.hpp"
#include "plain_steps.hpp"
#include "support/faults.hpp"
#include "support/simd_variants.hpp"
#include "support/threads.hpp"

namespace kel_test {
namespace {

std::mt19937& random_engine() {
    static std::mt19937 engine(static_cast<unsigned>(random_seed()));
    return engine;
}

int pick(int low, int high) {
    return std::uniform_int_distribution(low, high)(random_engine());
}

bytes random_bytes(size_t count) {
    bytes result(count);
    for (uint8_t& byte : result) byte = static_cast<uint8_t>(random_engine()());
    return result;
}

TEST(Planner, FindsTheShortestChainInTheOrderOfTheTables) {
    const struct {
        kel_audio_format from, to;
        std::string chain;
    } rows[] = {
        {{22050, 2, S16LE}, {44100, 2, S24}, "44100/2/S16LE 44100/2/S24.8LE "},
        {{11025, 1, U8}, {44100, 1, U8}, "44100/1/U8 "},
        {{44100, 2, S16BE}, {44100, 1, S16LE}, "44100/1/S16BE 44100/1/S16LE "},
        {{8000, 1, U8}, {44100, 2, S24}, "8000/2/U8 8000/2/S8 8000/2/S16LE 44100/2/S16LE 44100/2/S24.8LE "},
        {{44100, 2, S24}, {22050, 1, U8}, "44100/2/S16LE 22050/2/S16LE 22050/1/S16LE 22050/1/S8 22050/1/U8 "},
        {{44100, 1, U16BE}, {32000, 1, S8}, "44100/1/S16BE 44100/1/S16LE 32000/1/S16LE 32000/1/S8 "},
        {{48000, 6, S16LE}, {44100, 6, S16LE}, "44100/6/S16LE "},
        {{44100, 6, S16LE}, {44100, 2, S16LE}, ""},
        {{44100, 2, KEL_AUDIO_TYPE_S24_8BE}, {44100, 2, S24}, ""},
        {{44100, 2, S16LE}, {44100, 2, S16LE}, ""},
    };
    for (const auto& row : rows) {
        std::string chain;
        for (const kel_audio_format& format : planned_chain(row.from, row.to))
            chain += describe(format) + " ";
        EXPECT_EQ(chain, row.chain);
        errno = 0;
        LogCapture log;
        kel_audio_converter* converter = kel_create_audio_converter(&row.from, &row.to);
        const bool refused = row.chain.empty();
        EXPECT_EQ(converter == nullptr, refused);
        EXPECT_TRUE(!refused || errno == EINVAL);
        EXPECT_EQ(log.has(2, "kel:   Cannot create audio conversion chain."), refused);
        EXPECT_EQ(kel_destroy_audio_converter(&converter), refused ? 22 : 0);
    }
}

// Feeds a stream in random blocks, rooms and limits; the outputs in a row, with guard bytes looked after.
bytes convert_in_pieces(const bytes& stream, const kel_audio_format& from, const kel_audio_format& to,
                        int most) {
    const int in_frame = kel_get_audio_sample_size(&from), out_frame = kel_get_audio_sample_size(&to);
    kel_audio_converter* converter = kel_create_audio_converter(&from, &to);
    EXPECT_NE(converter, nullptr);
    bytes result;
    for (auto at = stream.begin(); at != stream.end() && !::testing::Test::HasFailure();) {
        const int offered = std::min(pick(1, most), static_cast<int>(stream.end() - at) / in_frame);
        const int room = pick(1, most);
        bytes input(at, at + offered * in_frame), output(static_cast<size_t>(room * out_frame + 8), 0xEE);
        kel_audio_conversion block;
        kel_init_audio_conversion(&block, input.data(), offered * in_frame, output.data(), room * out_frame);
        if (pick(0, 3) == 0) block.input_limit = pick(1, most);
        if (pick(0, 3) == 0) block.output_limit = pick(1, most);
        EXPECT_EQ(kel_convert_audio(converter, &block), 0);
        EXPECT_TRUE(block.consumed_frames >= 0 && block.consumed_frames <= offered);
        EXPECT_TRUE(block.produced_frames >= 0 && block.produced_frames <= room);
        EXPECT_GT(block.consumed_frames + block.produced_frames, 0);
        EXPECT_EQ(bytes(output.end() - 8, output.end()), bytes(8, 0xEE));
        result.insert(result.end(), output.begin(), output.begin() + block.produced_bytes);
        at += block.consumed_bytes;
    }
    kel_destroy_audio_converter(&converter);
    return result;
}

TEST(Converter, CuttingAStreamIntoBlocksNeverChangesIt) {
    const int rates[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000, 96000};
    for (int tried = 0; tried < stress_rounds(2000);) {
        const int channels = pick(1, 3);
        const kel_audio_format from = {rates[pick(0, 7)], channels, audio_types[pick(0, 6)]};
        const kel_audio_format to = {pick(0, 2) ? rates[pick(0, 7)] : from.rate,
                                     channels == 3 ? 3 : pick(1, 2), audio_types[pick(0, 6)]};
        if (planned_chain(from, to).empty()) continue;
        ++tried;
        SCOPED_TRACE(describe(from) + " to " + describe(to));
        const int in_frame = kel_get_audio_sample_size(&from), out_frame = kel_get_audio_sample_size(&to);
        const bytes stream = random_bytes(static_cast<size_t>(pick(1, 1500) * in_frame));
        const bytes wanted = plain_conversion(stream, from, to);
        const bytes got = convert_in_pieces(stream, from, to, pick(0, 1) ? 7 : 300);
        // What a last frame would still be repeated waits for the block that never comes.
        ASSERT_LE(got.size(), wanted.size());
        ASSERT_LE(wanted.size() - got.size(), static_cast<size_t>(to.rate > from.rate ? 3 * out_frame : 0));
        ASSERT_TRUE(std::equal(got.begin(), got.end(), wanted.begin()));
    }
}

TEST(Steps, CountAndCutAsStated) {
    const struct {
        kel_audio_step_kernel kernel;
        kel_audio_format format;
        int offered, room, consumed, written;
        bytes in, out;
    } rows[] = {
        {kel::rate_double_8, {1, 1, U8}, 3, 6, 3, 6, {1, 2, 3}, {1, 1, 2, 2, 3, 3}},
        {kel::rate_double_8, {1, 1, U8}, 3, 4, 2, 4, {1, 2, 3}, {1, 1, 2, 2}},
        {kel::rate_double_8, {1, 1, U8}, 3, 3, 2, 3, {1, 2, 3}, {1, 1, 2}},
        {kel::rate_quadruple_8, {1, 3, U8}, 1, 3, 1, 3, {1, 2, 3}, {1, 2, 3, 1, 2, 3, 1, 2, 3}},
        {kel::rate_halve_16, {2, 1, S16LE}, 4, 4, 4, 2, {1, 0, 2, 0, 3, 0, 4, 0}, {1, 0, 3, 0}},
        {kel::rate_halve_8, {2, 2, U8}, 3, 9, 3, 2, {1, 2, 3, 4, 5, 6}, {1, 2, 5, 6}},
        {kel::rate_quarter_8, {4, 1, U8}, 9, 2, 8, 2, {1, 2, 3, 4, 5, 6, 7, 8, 9}, {1, 5}},
        {kel::channels_downmix_s16, {1, 2, S16LE}, 2, 1, 1, 1, {255, 255, 0, 0}, {255, 255}},
    };
    for (const auto& row : rows) {
        bytes out(row.out.size() + 8, 0xEE), expected = row.out;
        expected.resize(out.size(), 0xEE);
        kel_audio_format format = row.format;
        int32_t offered = row.offered, room = row.room;
        kel_audio_step plain = {};
        row.kernel(&plain, row.in.data(), out.data(), &offered, &room, &format);
        EXPECT_EQ(std::pair(offered, room), std::pair(row.consumed, row.written));
        EXPECT_EQ(out, expected);
    }
}

TEST(Resampler, CarriesPositionAndHistory) {
    const kel_audio_format from = {22050, 1, S16LE}, to = {44100, 1, S16LE};
    kel_audio_step* step = kel::resampler_create(&from, &to);
    ASSERT_NE(step, nullptr);
    auto& state = *reinterpret_cast<kel::resampler_step*>(step);
    EXPECT_EQ(state.increment, 0x8000);
    int16_t out[4];
    auto run = [&](int16_t in, int32_t frames, int32_t space) {
        kel_audio_format format = from;
        step->kernel(step, &in, out, &frames, &space, &format);
        EXPECT_EQ(format.rate, 44100);
        return std::pair(frames, space);
    };
    EXPECT_EQ(run(1000, 1, 4), std::pair(1, 0)) << "a single frame goes into the history";
    EXPECT_EQ(state.position, -65536);
    EXPECT_EQ(run(2000, 1, 1), std::pair(0, 1)) << "the room ends in the history phase";
    EXPECT_EQ(out[0], 1000);
    EXPECT_EQ(run(2000, 1, 4), std::pair(1, 1));
    EXPECT_EQ(out[0], 1500);
    EXPECT_EQ(run(0, 0, 4), std::pair(0, 0)) << "nothing offered, nothing touched";
    step->release(step);

    const kel_audio_format slow = {1, 1, S16LE}, fast = {96000, 1, S16LE};
    EXPECT_EQ(kel::resampler_create(&slow, &fast), nullptr) << "an increment of 0 would never move";
    EXPECT_EQ(errno, EINVAL);
}

TEST(Kernels, EveryVariantGivesThePlainResult) {
    using K = kel::convert_kernels;
    const struct {
        kel_audio_format from, to;
        void (*K::*kernel)(uint8_t*, const uint8_t*, size_t);
    } rows[] = {
        {{1, 1, U8}, {1, 1, S8}, &K::flip_sign_8},
        {{1, 1, U16LE}, {1, 1, S16LE}, &K::flip_sign_16le},
        {{1, 1, S16BE}, {1, 1, U16BE}, &K::flip_sign_16be},
        {{1, 1, S16LE}, {1, 1, S16BE}, &K::swap_bytes_16},
        {{1, 1, S8}, {1, 1, S16LE}, &K::s8_to_s16},
        {{1, 1, S16LE}, {1, 1, S8}, &K::s16_to_s8},
        {{1, 1, S16LE}, {1, 1, S24}, &K::s16_to_s24},
        {{1, 1, S24}, {1, 1, S16LE}, &K::s24_to_s16},
        {{1, 2, S8}, {1, 1, S8}, &K::downmix_s8},
        {{1, 2, U8}, {1, 1, U8}, &K::downmix_u8},
        {{1, 2, S16LE}, {1, 1, S16LE}, &K::downmix_s16le},
        {{1, 2, U16LE}, {1, 1, U16LE}, &K::downmix_u16le},
        {{1, 2, S16BE}, {1, 1, S16BE}, &K::downmix_s16be},
        {{1, 2, U16BE}, {1, 1, U16BE}, &K::downmix_u16be},
    };
    const std::pair<size_t, kel_audio_format> items[] = {
        {1, {4, 1, U8}}, {2, {4, 1, S16LE}}, {4, {4, 2, S16LE}}, {8, {4, 2, S24}}};
    for (auto* kernels : KEL_TEST_SIMD_VARIANTS(convert_table))
        for (int round = 0; round < stress_rounds(400); ++round) {
            const auto frames = static_cast<size_t>(pick(0, round % 4 ? 70 : 700));
            const int shift = pick(0, 7), out_shift = pick(0, 7);
            const bytes source = random_bytes(8 * frames + 16);
            auto check = [&](const kel_audio_format& from, const kel_audio_format& to, auto loop) {
                const auto in = source.begin() + shift;
                const int size = static_cast<int>(frames) * kel_get_audio_sample_size(&from);
                bytes wanted(static_cast<size_t>(out_shift), 0xEE), out;
                for (uint8_t byte : plain_step(bytes(in, in + size), from, to)) wanted.push_back(byte);
                wanted.resize(wanted.size() + 8, 0xEE);
                out.resize(wanted.size(), 0xEE);
                loop(out.data() + out_shift, source.data() + shift);
                ASSERT_EQ(out, wanted) << describe(from) << " to " << describe(to);
            };
            for (const auto& row : rows)
                check(row.from, row.to,
                      [&](uint8_t* out, const uint8_t* in) { (kernels->*row.kernel)(out, in, frames); });
            for (const auto& item : items)
                for (const int32_t factor : {2, 4}) {
                    const size_t size = item.first, n = static_cast<size_t>(factor);
                    const kel_audio_format& format = item.second;
                    kel_audio_format more = format, less = format;
                    more.rate *= factor, less.rate /= factor;
                    check(format, more,
                          [&](auto* out, auto* in) { kernels->repeat(out, in, frames, size, n); });
                    check(format, less, [&](auto* out, auto* in) {
                        kernels->drop(out, in, (frames + n - 1) / n, size, n);
                    });
                }
        }
}

TEST(Kernels, EveryVariantInterpolatesExactly) {
    for (auto* kernels : KEL_TEST_SIMD_VARIANTS(convert_table))
        for (int round = 0; round < stress_rounds(2000); ++round) {
            const size_t channels = round % 2 + 1;
            const auto in_frames = static_cast<uint32_t>(pick(2, 500));
            const auto increment = static_cast<uint32_t>(pick(1, round % 3 ? 0x20010 : 0x60000));
            const auto position = static_cast<uint32_t>(pick(0, 0xffff));
            bytes in = random_bytes(2 * channels * in_frames), wanted;
            if (round % 5 == 0)  // the widest differences
                for (size_t i = 0; i < in.size(); i += 2) {
                    in[i] = in[i] & 1 ? 0xff : 0;
                    in[i + 1] = in[i] ? 0x7f : 0x80;
                }
            size_t frames = 0;
            for (uint32_t p = position; p >> 16 < in_frames - 1; p += increment, ++frames)
                for (size_t c = 0; c < channels; ++c) {
                    const uint8_t* at = &in[2 * ((p >> 16) * channels + c)];
                    const int64_t a = get_value(at, S16LE), b = get_value(at + 2 * channels, S16LE);
                    put_value(wanted, a + (((b - a) * (p & 0xffff)) >> 16), S16LE);
                }
            wanted.resize(wanted.size() + 4, 0xEE);
            bytes out(wanted.size(), 0xEE);
            const auto kernel = channels == 1 ? kernels->resample_mono : kernels->resample_stereo;
            kernel(out.data(), in.data(), frames, in_frames, position, increment);
            ASSERT_EQ(out, wanted);
        }
}

TEST(Converter, SizesItsBuffersAndAnswersBadCalls) {
    const kel_audio_format from = {44100, 2, S16LE}, to = {44100, 2, S24};
    kel_audio_converter* converter = kel_create_audio_converter(&from, &to);
    std::vector<int16_t> in(4096);
    std::vector<int32_t> out(4096);
    LogCapture log;
    Faults faults;
    for (auto [frames, room] : {std::pair{0, 1000}, {1000, 1000}, {1500, 1500}}) {
        kel_audio_conversion block;
        EXPECT_EQ(kel_init_audio_conversion(&block, in.data(), frames * 4, out.data(), room * 8), 0);
        EXPECT_EQ(kel_convert_audio(converter, &block), 0);
        EXPECT_EQ(block.produced_frames, frames);
    }
    EXPECT_EQ(log.messages(), (std::vector<LogMessage>{{6, "converter: Allocating 32000 bytes"}}));
    EXPECT_EQ(faults.allocations(), 1) << "the block of 1500 frames fits, too";
    EXPECT_EQ(kel_destroy_audio_converter(&converter), 0);
    EXPECT_EQ(converter, nullptr);
    EXPECT_EQ(kel_destroy_audio_converter(nullptr), 22);
    EXPECT_EQ(kel_convert_audio(nullptr, nullptr), 22);
    EXPECT_TRUE(log.has(2, "kel:   Attempt to convert audio with inexistent audio converter."));
    EXPECT_EQ(kel_init_audio_conversion(nullptr, nullptr, 0, nullptr, 0), 22);
    EXPECT_TRUE(log.has(2, "kel:   Attempt to initialize inexistent conversion."));
}

TEST(Converter, EveryAllocationMayFail) {
    const kel_audio_format from = {8000, 1, U8}, to = {44100, 2, S24};
    const int tried = sweep_faults({}, [&](const Fault* fault, LogCapture& log) {
        errno = 0;
        kel_audio_converter* converter = kel_create_audio_converter(&from, &to);
        const bool in_conversion = fault && fault->is("malloc");
        ASSERT_EQ(converter == nullptr, fault != nullptr && !in_conversion);
        if (!converter) {
            EXPECT_EQ(errno, ENOMEM);
            EXPECT_TRUE(log.has(2, "kel:   Cannot allocate audio converter."));
            return;
        }
        uint8_t in[100] = {};
        int32_t out[2000];
        kel_audio_conversion block;
        kel_init_audio_conversion(&block, in, sizeof in, out, sizeof out);
        EXPECT_EQ(kel_convert_audio(converter, &block), in_conversion ? 12 : 0);
        EXPECT_EQ(log.has(2, "kel:   Unable to allocate audio conversion buffers."), in_conversion);
        EXPECT_EQ(kel_convert_audio(converter, &block), 0) << "it tries again";
        EXPECT_GT(block.produced_frames, 0);
        kel_destroy_audio_converter(&converter);
    });
    EXPECT_EQ(tried, 8);
}

}  // namespace
}  // namespace kel_test
