// Steps, planner and converter against the formulas.
#include <gtest/gtest.h>
#include <kel.h>

#include <cmath>
#include <numbers>
#include <random>

#include "audio/convert_kernels.hpp"
#include "plain_steps.hpp"
#include "support/faults.hpp"
#include "support/simd_variants.hpp"
#include "support/threads.hpp"

namespace kel_test {
namespace {

constexpr uint32_t U8 = KEL_AUDIO_TYPE_U8, S8 = KEL_AUDIO_TYPE_S8, U16LE = KEL_AUDIO_TYPE_U16LE,
                   S16LE = KEL_AUDIO_TYPE_S16LE, U16BE = KEL_AUDIO_TYPE_U16BE, S16BE = KEL_AUDIO_TYPE_S16BE,
                   S24 = KEL_AUDIO_TYPE_S24_8LE;

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

struct Chain {
    kel_audio_format from, to;
    std::vector<std::string> kernels;
};

TEST(Planner, FindsTheShortestChainInTheOrderOfTheTables) {
    const Chain rows[] = {
        {{22050, 2, S16LE}, {44100, 2, S24}, {"rate_double_16", "convert_s16le_to_s24_8le"}},
        {{48000, 2, S16LE}, {44100, 2, S24}, {"rate_resample_s16le_stereo", "convert_s16le_to_s24_8le"}},
        {{11025, 1, U8}, {44100, 1, U8}, {"rate_quadruple_8"}},
        {{44100, 2, S16BE}, {44100, 1, S16LE}, {"channels_downmix_s16", "convert_swap_bytes_16"}},
        {{44100, 2, U8},
         {44100, 1, S24},
         {"channels_downmix_u8", "convert_flip_sign_8", "convert_s8_to_s16le", "convert_s16le_to_s24_8le"}},
        {{8000, 1, U8},
         {44100, 2, S24},
         {"channels_upmix_8", "convert_flip_sign_8", "convert_s8_to_s16le", "rate_resample_s16le_stereo",
          "convert_s16le_to_s24_8le"}},
        {{44100, 2, S24},
         {22050, 1, U8},
         {"convert_s24_8le_to_s16le", "rate_halve_16", "channels_downmix_s16", "convert_s16le_to_s8",
          "convert_flip_sign_8"}},
        {{44100, 1, U16BE},
         {32000, 1, S8},
         {"convert_flip_sign_16be", "convert_swap_bytes_16", "rate_resample_s16le_mono",
          "convert_s16le_to_s8"}},
        {{48000, 6, S16LE}, {44100, 6, S16LE}, {"rate_resample_s16le"}},
        {{44100, 6, S16LE}, {44100, 2, S16LE}, {}},
        {{44100, 2, KEL_AUDIO_TYPE_S24_8BE}, {44100, 2, S24}, {}},
        {{44100, 2, S16LE}, {44100, 2, S16LE}, {}},
    };
    for (const Chain& row : rows) {
        EXPECT_EQ(planned_chain(row.from, row.to), row.kernels) << row.from.rate << " to " << row.to.rate;
        errno = 0;
        LogCapture log;
        kel_audio_converter* converter = kel_create_audio_converter(&row.from, &row.to);
        EXPECT_EQ(converter != nullptr, !row.kernels.empty());
        if (!converter) {
            EXPECT_EQ(errno, EINVAL);
            EXPECT_TRUE(log.has(2, "kel:   Cannot create audio conversion chain."));
        } else {
            EXPECT_EQ(kel_destroy_audio_converter(&converter), 0);
        }
    }
}

// Feeds a stream in random blocks, rooms and limits; the outputs in a row, with guard bytes looked after.
bytes convert_in_pieces(const bytes& stream, const kel_audio_format& from, const kel_audio_format& to,
                        int most) {
    const auto in_frame = static_cast<size_t>(kel_get_audio_sample_size(&from));
    const auto out_frame = static_cast<size_t>(kel_get_audio_sample_size(&to));
    kel_audio_converter* converter = kel_create_audio_converter(&from, &to);
    EXPECT_NE(converter, nullptr);
    bytes result;
    size_t position = 0;
    while (position < stream.size()) {
        const size_t left = (stream.size() - position) / in_frame;
        const size_t offered = std::min<size_t>(static_cast<size_t>(pick(1, most)), left);
        const auto room = static_cast<size_t>(pick(1, most));
        bytes output(room * out_frame + 16, 0xEE);
        bytes input(stream.begin() + static_cast<long>(position),
                    stream.begin() + static_cast<long>(position + offered * in_frame));
        kel_audio_conversion block;
        kel_init_audio_conversion(&block, input.data(), static_cast<int32_t>(input.size()), output.data() + 8,
                                  static_cast<int32_t>(room * out_frame));
        if (pick(0, 3) == 0) block.input_limit = pick(1, most);
        if (pick(0, 3) == 0) block.output_limit = pick(1, most);
        EXPECT_EQ(kel_convert_audio(converter, &block), 0);
        const bool sane = block.consumed_frames >= 0 &&
                          static_cast<size_t>(block.consumed_frames) <= offered &&
                          block.produced_frames >= 0 && static_cast<size_t>(block.produced_frames) <= room &&
                          block.consumed_frames + block.produced_frames > 0;
        EXPECT_TRUE(sane) << block.consumed_frames << " consumed, " << block.produced_frames << " produced";
        const auto produced = static_cast<size_t>(block.produced_bytes);
        for (size_t i = 0; i < output.size(); ++i)
            if (i < 8 || i >= 8 + room * out_frame) {
                EXPECT_EQ(output[i], 0xEE) << "guard byte " << i;
            }
        if (!sane || ::testing::Test::HasFailure()) break;
        result.insert(result.end(), output.begin() + 8, output.begin() + 8 + static_cast<long>(produced));
        position += static_cast<size_t>(block.consumed_bytes);
    }
    kel_destroy_audio_converter(&converter);
    return result;
}

TEST(Converter, CuttingAStreamIntoBlocksNeverChangesIt) {
    const uint32_t types[] = {U8, S8, U16LE, S16LE, U16BE, S16BE, S24};
    const int rates[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000, 96000};
    int tried = 0;
    while (tried < stress_rounds(2000)) {
        const int channels = pick(1, 3);
        const kel_audio_format from = {rates[pick(0, 7)], channels, types[pick(0, 6)]};
        const kel_audio_format to = {pick(0, 2) ? rates[pick(0, 7)] : from.rate,
                                     channels == 3 ? 3 : pick(1, 2), types[pick(0, 6)]};
        if (planned_chain(from, to).empty()) continue;
        ++tried;
        SCOPED_TRACE(std::to_string(from.rate) + "/" + std::to_string(from.channels) + "/" +
                     kel_get_audio_format_type_name(&from) + " to " + std::to_string(to.rate) + "/" +
                     std::to_string(to.channels) + "/" + kel_get_audio_format_type_name(&to));
        const auto frames = static_cast<size_t>(pick(1, 1500));
        const bytes stream = random_bytes(frames * static_cast<size_t>(kel_get_audio_sample_size(&from)));
        const bytes wanted = plain_conversion(stream, from, to);
        bytes got = convert_in_pieces(stream, from, to, pick(0, 1) ? 7 : 300);
        // What a last frame would still be repeated waits for the block that never comes.
        const auto frame = static_cast<size_t>(kel_get_audio_sample_size(&to));
        ASSERT_LE(got.size(), wanted.size());
        ASSERT_LE((wanted.size() - got.size()) / frame, to.rate > from.rate ? 3u : 0u);
        ASSERT_TRUE(std::equal(got.begin(), got.end(), wanted.begin()));
    }
}

TEST(Steps, CountAndCutAsStated) {
    struct Row {
        kel_audio_step_kernel kernel;
        kel_audio_format format;
        int offered, room, consumed, written;
        bytes in, out;
    };
    const Row rows[] = {
        {kel::rate_double_8, {1, 1, U8}, 3, 6, 3, 6, {1, 2, 3}, {1, 1, 2, 2, 3, 3}},
        {kel::rate_double_8, {1, 1, U8}, 3, 4, 2, 4, {1, 2, 3}, {1, 1, 2, 2}},
        {kel::rate_double_8, {1, 1, U8}, 3, 3, 2, 3, {1, 2, 3}, {1, 1, 2}},
        {kel::rate_quadruple_8, {1, 3, U8}, 1, 3, 1, 3, {1, 2, 3}, {1, 2, 3, 1, 2, 3, 1, 2, 3}},
        {kel::rate_halve_16, {2, 1, S16LE}, 4, 4, 4, 2, {1, 0, 2, 0, 3, 0, 4, 0}, {1, 0, 3, 0}},
        {kel::rate_halve_8, {2, 2, U8}, 3, 9, 3, 2, {1, 2, 3, 4, 5, 6}, {1, 2, 5, 6}},
        {kel::rate_quarter_8, {4, 1, U8}, 9, 2, 8, 2, {1, 2, 3, 4, 5, 6, 7, 8, 9}, {1, 5}},
        {kel::channels_downmix_s16, {1, 2, S16LE}, 2, 1, 1, 1, {255, 255, 0, 0}, {255, 255}},
        {kel::channels_downmix_s16, {1, 2, S16LE}, 1, 2, 1, 1, {255, 127, 255, 127}, {255, 127}},
        {kel::channels_downmix_s16, {1, 2, S16BE}, 1, 2, 1, 1, {0x7f, 0xff, 0x7f, 0xff}, {0x7f, 0xff}},
        {kel::channels_downmix_u16, {1, 2, U16BE}, 1, 1, 1, 1, {0xff, 0xff, 0xff, 0xfd}, {0xff, 0xfe}},
        {kel::convert_s24_8le_to_s16le, {1, 1, S24}, 1, 9, 1, 1, {0, 255, 255, 127}, {255, 127}},
        {kel::convert_s24_8le_to_s16le, {1, 1, S24}, 1, 9, 1, 1, {0, 128, 255, 255}, {128, 255}},
        {kel::convert_s24_8le_to_s16le, {1, 1, S24}, 1, 9, 1, 1, {0x45, 0x23, 1, 0}, {0x23, 1}},
        {kel::convert_s16le_to_s8, {1, 1, S16LE}, 2, 2, 2, 2, {255, 255, 255, 0}, {255, 0}},
    };
    for (const Row& row : rows) {
        bytes out(row.out.size() + 8, 0xEE);
        kel_audio_format format = row.format;
        int32_t offered = row.offered, room = row.room;
        kel_audio_step plain = {};
        row.kernel(&plain, row.in.data(), out.data(), &offered, &room, &format);
        EXPECT_EQ(offered, row.consumed);
        EXPECT_EQ(room, row.written);
        EXPECT_EQ(bytes(out.begin(), out.end() - 8), row.out);
        EXPECT_EQ(bytes(out.end() - 8, out.end()), bytes(8, 0xEE));
    }
}

TEST(Resampler, CarriesPositionAndHistory) {
    const kel_audio_format from = {22050, 1, S16LE}, to = {44100, 1, S16LE};
    kel_audio_step* step = kel::resampler_create(&from, &to);
    ASSERT_NE(step, nullptr);
    auto& state = *reinterpret_cast<kel::resampler_step*>(step);
    EXPECT_EQ(state.increment, 0x8000);
    auto run = [&](int16_t in, int32_t frames, int32_t space, int16_t* out) {
        kel_audio_format format = from;
        step->kernel(step, &in, out, &frames, &space, &format);
        EXPECT_EQ(format.rate, 44100);
        return std::pair(frames, space);
    };
    int16_t out[4];
    EXPECT_EQ(run(1000, 1, 4, out), std::pair(1, 0)) << "a single frame goes into the history";
    EXPECT_EQ(state.position, -65536);
    EXPECT_EQ(run(2000, 1, 1, out), std::pair(0, 1)) << "the room ends in the history phase";
    EXPECT_EQ(out[0], 1000);
    EXPECT_EQ(run(2000, 1, 4, out), std::pair(1, 1));
    EXPECT_EQ(out[0], 1500);
    EXPECT_EQ(run(0, 0, 4, out), std::pair(0, 0)) << "nothing offered, nothing touched";
    step->release(step);

    const kel_audio_format cd = {44100, 2, S16LE}, dat = {48000, 2, S16LE}, slow = {1, 1, S16LE},
                           fast = {96000, 1, S16LE};
    step = kel::resampler_create(&dat, &cd);
    EXPECT_EQ(reinterpret_cast<kel::resampler_step*>(step)->increment, 71331);
    step->release(step);
    EXPECT_EQ(kel::resampler_create(&slow, &fast), nullptr) << "an increment of 0 would never move";
    EXPECT_EQ(errno, EINVAL);
}

TEST(Kernels, EveryVariantGivesThePlainResult) {
    for (auto* kernels : KEL_TEST_SIMD_VARIANTS(convert_table)) {
        for (int round = 0; round < stress_rounds(400); ++round) {
            const auto frames = static_cast<size_t>(pick(0, round % 4 ? 70 : 700));
            const auto shift = static_cast<size_t>(pick(0, 7)), out_shift = static_cast<size_t>(pick(0, 7));
            const bytes source = random_bytes(8 * frames + 16);
            auto check = [&](const char* name, uint32_t type, int channels, auto loop) {
                kel_audio_format format = {48000, channels, type}, target = format;
                const size_t size = frames * static_cast<size_t>(kel_get_audio_sample_size(&format));
                const bytes in(source.begin() + static_cast<long>(shift),
                               source.begin() + static_cast<long>(shift + size));
                const bytes wanted = plain_step(name, in, format, target);
                bytes out(out_shift + wanted.size() + 8, 0xEE);
                loop(out.data() + out_shift, source.data() + shift);
                const auto start = out.begin() + static_cast<long>(out_shift);
                ASSERT_TRUE(std::equal(wanted.begin(), wanted.end(), start))
                    << name << ", " << frames << " frames";
                ASSERT_TRUE(std::all_of(start + static_cast<long>(wanted.size()), out.end(),
                                        [](uint8_t byte) { return byte == 0xEE; }))
                    << name;
            };
            auto values = [&](auto function) {
                return [&, function](uint8_t* out, const uint8_t* in) { function(out, in, frames); };
            };
            check("convert_flip_sign_8", U8, 1, values(kernels->flip_sign_8));
            check("convert_flip_sign_16le", U16LE, 1, values(kernels->flip_sign_16le));
            check("convert_flip_sign_16be", S16BE, 1, values(kernels->flip_sign_16be));
            check("convert_swap_bytes_16", S16LE, 1, values(kernels->swap_bytes_16));
            check("convert_s8_to_s16le", S8, 1, values(kernels->s8_to_s16));
            check("convert_s16le_to_s8", S16LE, 1, values(kernels->s16_to_s8));
            check("convert_s16le_to_s24_8le", S16LE, 1, values(kernels->s16_to_s24));
            check("convert_s24_8le_to_s16le", S24, 1, values(kernels->s24_to_s16));
            check("channels_downmix_s8", S8, 2, values(kernels->downmix_s8));
            check("channels_downmix_u8", U8, 2, values(kernels->downmix_u8));
            check("channels_downmix_s16", S16LE, 2, values(kernels->downmix_s16le));
            check("channels_downmix_u16", U16LE, 2, values(kernels->downmix_u16le));
            check("channels_downmix_s16", S16BE, 2, values(kernels->downmix_s16be));
            check("channels_downmix_u16", U16BE, 2, values(kernels->downmix_u16be));
            for (const size_t item : {1u, 2u, 4u, 8u}) {
                const uint32_t type = item == 8 ? S24 : item == 4 ? S16LE : item == 2 ? S16LE : U8;
                const int channels = item >= 4 ? 2 : 1;
                for (const size_t factor : {2u, 4u}) {
                    check(factor == 2 ? "rate_double" : "rate_quadruple", type, channels,
                          [&](uint8_t* out, const uint8_t* in) {
                              kernels->repeat(out, in, frames, item, factor);
                          });
                    check(factor == 2 ? "rate_halve" : "rate_quarter", type, channels,
                          [&](uint8_t* out, const uint8_t* in) {
                              kernels->drop(out, in, (frames + factor - 1) / factor, item, factor);
                          });
                }
            }
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
            bytes in = random_bytes(2 * channels * in_frames);
            if (round % 5 == 0)  // the widest differences
                for (size_t i = 0; i < in.size(); i += 2)
                    in[i] = in[i + 1] & 1 ? 0xff : 0, in[i + 1] = in[i] ? 0x7f : 0x80;
            const uint32_t last = ((in_frames - 1) << 16) - 1;
            const size_t frames = position > last ? 0 : (last - position) / increment + 1;
            bytes out(2 * channels * frames + 4, 0xEE);
            (channels == 1 ? kernels->resample_mono : kernels->resample_stereo)(
                out.data(), in.data(), frames, in_frames, position, increment);
            for (size_t i = 0; i < frames * channels; ++i) {
                const uint32_t p = position + static_cast<uint32_t>(i / channels) * increment;
                const uint8_t* at = &in[2 * ((p >> 16) * channels + i % channels)];
                const int64_t a = get_value(at, S16LE), b = get_value(at + 2 * channels, S16LE);
                bytes wanted;
                put_value(wanted, a + (((b - a) * static_cast<int64_t>(p & 0xffff)) >> 16), S16LE);
                ASSERT_TRUE(std::equal(wanted.begin(), wanted.end(), &out[2 * i])) << "value " << i;
            }
            ASSERT_EQ(out.back(), 0xEE);
        }
}

TEST(Converter, SizesItsBuffersAndAnswersBadCalls) {
    const kel_audio_format from = {44100, 2, S16LE}, to = {44100, 2, S24};
    kel_audio_converter* converter = kel_create_audio_converter(&from, &to);
    std::vector<int16_t> in(4096);
    std::vector<int32_t> out(4096);
    LogCapture log;
    Faults faults;
    auto convert = [&](int in_frames, int out_frames) {
        kel_audio_conversion block;
        EXPECT_EQ(kel_init_audio_conversion(&block, in.data(), in_frames * 4, out.data(), out_frames * 8), 0);
        EXPECT_EQ(kel_convert_audio(converter, &block), 0);
        return block.produced_frames;
    };
    EXPECT_EQ(convert(0, 1000), 0);
    EXPECT_TRUE(log.has(6, "converter: Allocating 32000 bytes"));
    EXPECT_EQ(convert(1000, 1000), 1000);
    EXPECT_EQ(convert(1500, 1500), 1500);
    EXPECT_EQ(faults.allocations(), 1) << "the block of 1500 frames fits, too";
    EXPECT_EQ(kel_destroy_audio_converter(&converter), 0);
    EXPECT_EQ(converter, nullptr);
    EXPECT_EQ(kel_destroy_audio_converter(&converter), 22);
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

// Level of the part of `samples` at `frequency`, in dB against full scale.
double level_at(const std::vector<int16_t>& samples, double frequency, double rate) {
    double re = 0, im = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        const double window = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) /
                                                   static_cast<double>(samples.size()));
        const double angle = 2 * std::numbers::pi * frequency * static_cast<double>(i) / rate;
        re += window * samples[i] * std::cos(angle);
        im += window * samples[i] * std::sin(angle);
    }
    return 20 * std::log10(std::hypot(re, im) * 4 / static_cast<double>(samples.size()) / 32768);
}

std::vector<int16_t> convert_all(const std::vector<int16_t>& in, int from_rate, int to_rate) {
    const kel_audio_format from = {from_rate, 1, S16LE}, to = {to_rate, 1, S16LE};
    kel_audio_converter* converter = kel_create_audio_converter(&from, &to);
    std::vector<int16_t> out(in.size() * 2);
    kel_audio_conversion block;
    kel_init_audio_conversion(&block, in.data(), static_cast<int32_t>(2 * in.size()), out.data(),
                              static_cast<int32_t>(2 * out.size()));
    EXPECT_EQ(kel_convert_audio(converter, &block), 0);
    out.resize(static_cast<size_t>(block.produced_frames));
    kel_destroy_audio_converter(&converter);
    return out;
}

// There and back again a sine keeps its frequency and, but for what linear interpolation takes from high tones, its
// level: twice 20 log10(sinc²(f / rate)).
TEST(Converter, ASineSurvivesTheWayThereAndBack) {
    for (const double frequency : {100.0, 440.0, 1000.0, 4000.0}) {
        std::vector<int16_t> sine(48000);
        for (size_t i = 0; i < sine.size(); ++i)
            sine[i] = static_cast<int16_t>(std::lround(
                16384 * std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) / 48000)));
        const auto back = convert_all(convert_all(sine, 48000, 44100), 44100, 48000);
        auto droop = [&](double rate) {
            const double x = std::numbers::pi * frequency / rate;
            return 40 * std::log10(std::sin(x) / x);
        };
        const double expected = -6.02 + droop(48000) + droop(44100);
        EXPECT_NEAR(level_at(back, frequency, 48000), expected, 0.05) << frequency << " Hz";
        EXPECT_LT(level_at(back, frequency * 1.01 + 20, 48000), expected - 40)
            << "beside " << frequency << " Hz";
    }
}

}  // namespace
}  // namespace kel_test
