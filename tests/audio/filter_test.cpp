// Audio filters: registry, ports, ramps, and every kernel held against the plain formulas.
#include <kel.h>
#include "base/exact_trig.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "audio/filter_kernels.hpp"
#include "support/faults.hpp"
#include "support/simd_variants.hpp"
#include "support/threads.hpp"

namespace {

using Values = std::vector<int32_t>;
using Filter = std::unique_ptr<kel_audio_filter, decltype(&kel_destroy_audio_filter)>;

constexpr int32_t lowest = INT32_MIN, highest = INT32_MAX;
constexpr int32_t guard = 0x5eed5eed;
const char* const biquads[] = {"highpass", "lowpass", "bandpass", "notch"};

Filter make(const char* name, int32_t channels = 2, int32_t rate = 48000) {
    const kel_audio_format format = {rate, channels, KEL_AUDIO_TYPE_S16LE};
    return {kel_create_audio_filter(kel_find_audio_filter(name), &format), kel_destroy_audio_filter};
}

void give(kel_audio_filter_port* port, Values& values) {
    port->data = values.data();
    port->capacity = port->available = static_cast<int32_t>(values.size()) / port->format.channels;
}

// Values of all sizes: every count of significant bits is as likely.
Values random_values(std::mt19937& random, size_t count) {
    Values values(count);
    for (int32_t& value : values) value = static_cast<int32_t>(random()) >> random() % 32;
    return values;
}

int32_t truncated(double value) {
    return static_cast<int32_t>(std::clamp(std::trunc(value), -2147483648.0, 2147483647.0));
}

int32_t shifted(int64_t value) {
    return static_cast<int32_t>(std::clamp<int64_t>(value >> 16, lowest, highest));
}

int64_t product(int64_t a, int64_t b) {
    return a * b;
}

// The filters' formulas, one value at a time.
struct SlowBiquad {
    double a1, a2, b0, b1, b2;
    Values x, y;  // two frames each

    SlowBiquad(int32_t channels) : x(2 * static_cast<size_t>(channels)), y(x) {}

    void set(const std::string& name, double f0, double rate) {
        const double w0 = 6.283185307179586 * f0 / rate;
        const double c = kel::exact_cos(w0), alpha = kel::exact_sin(w0) / (2 * 0.707), a0 = 1 + alpha;
        const bool high = name == "highpass", low = name == "lowpass", band = name == "bandpass";
        b0 = (high ? (1 + c) / 2 : low ? (1 - c) / 2 : band ? alpha : 1) / a0;
        b1 = (high ? -(1 + c) : low ? 1 - c : band ? 0 : -2 * c) / a0;
        b2 = (high ? (1 + c) / 2 : low ? (1 - c) / 2 : band ? -alpha : 1) / a0;
        a1 = -2 * c / a0;
        a2 = (1 - alpha) / a0;
    }

    void run(const Values& in, const Values* mix, Values& out, size_t begin, size_t end) {
        const size_t channels = x.size() / 2;
        for (size_t i = begin * channels; i < end * channels; ++i) {
            const size_t older = i % channels, newer = older + channels;
            const int32_t value =
                truncated(b0 * in[i] + b1 * x[newer] + b2 * x[older] - a1 * y[newer] - a2 * y[older]);
            x[older] = x[newer], x[newer] = in[i];
            y[older] = y[newer], y[newer] = value;
            const int64_t wet = mix ? (*mix)[i] : 65536;
            out[i] = shifted(product(wet, value) + product(65536 - wet, in[i]));
        }
    }
};

TEST(FilterRegistry, ClassesAndPortsAreAsListed) {
    const kel_audio_filter_class* classes = kel_find_audio_filter("gain");
    EXPECT_EQ(classes->tmpl, &_kel_gain_filter_tmpl);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(kel_find_audio_filter(biquads[i]), classes + 1 + i);
    EXPECT_STREQ(kel_get_audio_filter_name(classes + 4), "notch");
    EXPECT_EQ(kel_get_audio_filter_name(classes + 5), nullptr);
    EXPECT_EQ(kel_get_audio_filter_name(nullptr), nullptr);

    const kel_audio_format audio = {8000, 3, KEL_AUDIO_TYPE_S24_8LE},
                           param = {8000, 3, KEL_AUDIO_TYPE_S16_16LE};
    const struct {
        const char *filter, *name;
        decltype(&kel_get_audio_filter_input) find;
        uint32_t flags;
        int32_t decimation;
        kel_audio_format format;
    } rows[] = {
        {"gain", "audio", kel_get_audio_filter_input, 2, 1, audio},
        {"gain", "gain", kel_get_audio_filter_input, 10, 1, param},
        {"gain", "audio", kel_get_audio_filter_output, 4, 1, audio},
        {"notch", "audio", kel_get_audio_filter_input, 0, 1, audio},
        {"notch", "freq", kel_get_audio_filter_input, 0, 1024, {8000, 1, KEL_AUDIO_TYPE_S24_8LE}},
        {"notch", "mix", kel_get_audio_filter_input, 0, 1, param},
        {"notch", "audio", kel_get_audio_filter_output, 0, 1, audio},
    };
    for (const auto& row : rows) {
        const Filter filter = make(row.filter, 3, 8000);
        const auto* port = row.find(filter.get(), row.name, 0);
        ASSERT_TRUE(port) << row.filter << row.name;
        EXPECT_EQ(port->flags, row.flags);
        EXPECT_EQ(port->decimation, row.decimation);
        EXPECT_FALSE(kel_audio_formats_differ(&port->format, &row.format)) << row.filter << row.name;
        EXPECT_FALSE(kel_audio_formats_differ(&filter->format, &audio));
        EXPECT_FALSE(kel_audio_formats_differ(&filter->output_format, &audio));
        EXPECT_EQ(filter->ninputs + filter->noutputs, row.filter[0] == 'g' ? 3 : 4);
    }
}

TEST(FilterRegistry, Refusals) {
    const Filter gain = make("gain"), notch = make("notch");
    const kel_audio_format good = {48000, 2, 0}, no_rate = {0, 2, 0}, no_channels = {48000, 0, 0};
    kel_audio_filter_class hollow[] = {*gain->cls, *notch->cls};
    hollow[0].tmpl = nullptr;
    hollow[1].update_coefficients = nullptr;
    int32_t value = 0;
    kel_audio_filter_port odd = {}, *mix = kel_get_audio_filter_input(notch.get(), "mix", 0);
    odd.format = {48000, 1, KEL_AUDIO_TYPE_S16LE};
    odd.data = &value;
    errno = 0;
    const auto expect = [](int error, auto result) {
        EXPECT_EQ(std::exchange(errno, 0), error);
        if constexpr (std::is_pointer_v<decltype(result)>) {
            EXPECT_EQ(result, nullptr);
        } else {
            EXPECT_EQ(result, -1);
        }
    };
    expect(EINVAL, kel_find_audio_filter(nullptr));
    for (const char* name : {"Notch", "peak", ""}) expect(ESRCH, kel_find_audio_filter(name));
    expect(EINVAL, kel_create_audio_filter(nullptr, &good));
    expect(EINVAL, kel_create_audio_filter(gain->cls, nullptr));
    expect(EINVAL, kel_create_audio_filter(gain->cls, &no_rate));
    expect(EINVAL, kel_create_audio_filter(notch->cls, &no_channels));
    for (const auto& cls : hollow) expect(EINVAL, kel_create_audio_filter(&cls, &good));
    for (auto* find : {kel_get_audio_filter_input, kel_get_audio_filter_output}) {
        expect(EINVAL, find(nullptr, "audio", 0));
        expect(EINVAL, find(gain.get(), nullptr, 0));
        expect(EINVAL, find(gain.get(), "audio", -1));
        expect(ESRCH, find(gain.get(), "audio", 1));
        expect(ESRCH, find(gain.get(), "mix", 0));
    }
    expect(EINVAL, kel_linint_audio_param(nullptr, 0, 0, 1, 0, 1));
    expect(EINVAL, kel_linint_audio_param(&odd, 0, 0, 1, 0, 1));
    expect(EINVAL, kel_linint_audio_param(mix, 0, 0, 1, 0, 1));  // no data
    mix->data = &value;
    for (int32_t channel : {-1, 2}) expect(EINVAL, kel_linint_audio_param(mix, channel, 0, 1, 0, 1));
    mix->data = nullptr;
    expect(EINVAL, kel_pump_audio_filter(nullptr, 0));
    kel_audio_filter classless = {};
    for (auto* filter : {static_cast<kel_audio_filter*>(nullptr), &classless})
        kel_destroy_audio_filter(filter);
    Values values(2048);
    for (kel_audio_filter* filter : {gain.get(), notch.get()}) {
        kel_audio_filter_port* const needed[] = {filter->inputs, filter->inputs + 1, filter->outputs};
        for (auto* missing : needed) {
            for (auto* port : needed) give(port, values);
            expect(EINVAL, kel_pump_audio_filter(filter, -1));
            missing->data = nullptr;
            expect(EINVAL, kel_pump_audio_filter(filter, 4));
        }
    }
    EXPECT_EQ(values, Values(2048));
}

TEST(FilterRegistry, FailedAllocationsLeaveNothing) {
    for (const char* name : {"gain", "bandpass"}) {
        const int tried =
            kel_test::sweep_faults({}, [&](const kel_test::Fault* fault, kel_test::LogCapture& log) {
                errno = 0;
                const Filter filter = make(name);
                EXPECT_EQ(filter == nullptr, fault != nullptr);
                EXPECT_EQ(errno, fault ? ENOMEM : 0);
                EXPECT_TRUE(log.messages().empty());
            });
        EXPECT_EQ(tried, name[0] == 'g' ? 3 : 5);
    }
}

TEST(FilterParameters, Ramps) {
    constexpr uint32_t S16_16 = KEL_AUDIO_TYPE_S16_16LE, S24_8 = KEL_AUDIO_TYPE_S24_8LE;
    const struct {
        kel_audio_format format;
        int32_t channel, begin, end, count;
        float from, to;
        Values expected;
    } rows[] = {
        {{1, 2, S16_16}, 1, 0, 4, 4, 0, 1, {guard, 0, guard, 16384, guard, 32768, guard, 49152}},
        {{1, 1, S24_8}, 0, 7, 10, 3, 100, 100, {25600, 25600, 25600, guard}},
        {{1, 1, S24_8}, 0, -1, 2, 3, -1, 0.5f, {-256, -128, 0, guard}},
        {{1, 1, S24_8}, 0, 0, 2, 2, 1e9f, -3e9f, {highest, lowest, guard}},
        {{1, 1, S16_16}, 0, 5, 5, 0, 0, 1, {guard}},
        {{1, 1, S16_16}, 0, highest, lowest, 0, 0, 1, {guard}},
        {{1, 1, S16_16}, 0, 0, 1, 1, NAN, 1, {0, guard}},
    };
    for (const auto& row : rows) {
        Values values(row.expected.size(), guard);
        kel_audio_filter_port port = {};
        port.format = row.format;
        give(&port, values);
        const auto count = kel_linint_audio_param(&port, row.channel, row.begin, row.end, row.from, row.to);
        EXPECT_EQ(count, row.count);
        EXPECT_EQ(values, row.expected);
    }
}

// Every variant of every kernel against the formulas, at all alignments and tails, guards around the output.
TEST(FilterKernels, EqualTheFormulas) {
    std::mt19937 random(kel_test::random_seed());
    for (const auto* kernels : KEL_TEST_SIMD_VARIANTS(filter_table)) {
        for (size_t count = 0; count < 70; ++count) {
            const size_t offset = count % 5;
            Values in = random_values(random, count + offset), gains = random_values(random, count + offset);
            if (count > 3) in[offset] = lowest, gains[offset] = lowest, in[offset + 1] = highest;
            Values expected(count + 2 * offset + 1, guard), out = expected;
            for (size_t i = offset; i < in.size(); ++i) expected[i] = shifted(product(gains[i], in[i]));
            kernels->gain(out.data() + offset, in.data() + offset, gains.data() + offset, count);
            ASSERT_EQ(out, expected) << count;
            kernels->gain(in.data() + offset, in.data() + offset, gains.data() + offset, count);
            ASSERT_TRUE(std::equal(in.begin() + offset, in.end(), out.begin() + offset)) << "in place";
        }
        for (int round = 0; round < kel_test::stress_rounds(400); ++round) {
            const size_t channels = 1 + random() % 5, frames = random() % 600;
            Values in = random_values(random, frames * channels), mix = random_values(random, in.size());
            if (round % 4 == 0) {  // square waves make the filters overshoot
                for (int32_t& value : in) value = value < 0 ? lowest : highest;
                for (int32_t& value : mix) value >>= 1;  // the sum of two products fits 64 bits
            }
            SlowBiquad slow(static_cast<int32_t>(channels));
            slow.set(biquads[random() % 4], round % 5 ? random() % 24000 : 12000 * (random() % 3), 48000);
            Values x = slow.x, y = slow.y, expected(in.size() + 1, guard), out = expected;
            const bool mixed = round % 3 == 0, in_place = round % 2 == 0;
            if (in_place) std::copy(in.begin(), in.end(), out.begin());
            slow.run(in, mixed ? &mix : nullptr, expected, 0, frames);
            kernels->biquad({slow.a1, slow.a2, slow.b0, slow.b1, slow.b2},
                            {in_place ? out.data() : in.data(), mixed ? mix.data() : nullptr, out.data(),
                             x.data(), y.data(), channels, frames});
            ASSERT_EQ(out, expected) << channels << " channels, " << frames << " frames";
            ASSERT_EQ(x, slow.x);
            ASSERT_EQ(y, slow.y);
        }
    }
}

TEST(GainFilter, ProcessesWhatAllPortsAllow) {
    const Filter gain = make("gain");
    Values in = {-3, 0x40000000, 5, 6, 7, 8}, gains = {32768, 131072, 65536, 0, 1, 1}, out(6, guard);
    give(gain->inputs, in), give(gain->inputs + 1, gains), give(gain->outputs, out);
    gain->outputs->capacity = 2;
    EXPECT_EQ(kel_pump_audio_filter(gain.get(), 3), 2);
    EXPECT_EQ(out, (Values{-2, highest, 5, 0, guard, guard}));
    EXPECT_EQ(kel_pump_audio_filter(gain.get(), 1), 1);
    gain->inputs->available = -1;
    EXPECT_EQ(kel_pump_audio_filter(gain.get(), 3), 0);
}

// Random blocks through the interface: sections of 1024 frames, state carried over, optional mix, no allocation.
TEST(BiquadFilter, BlocksEqualTheFormulas) {
    std::mt19937 random(kel_test::random_seed());
    for (const char* name : biquads) {
        for (int32_t channels : {1, 2, 3}) {
            const Filter filter = make(name, channels, 44100);
            SlowBiquad slow(channels);
            const kel_test::Faults counter;
            for (int block = 0; block < 8; ++block) {
                const auto frames = static_cast<int32_t>(block < 2 ? block : random() % 4000);
                const size_t count = static_cast<size_t>(frames * channels);
                Values in = random_values(random, count), mix = random_values(random, count), out(count),
                       freq;
                in.reserve(1), out.reserve(1);
                for (int32_t i = 0; i <= frames; ++i)
                    freq.push_back(static_cast<int32_t>(random() % (20000 << 8)));
                give(filter->inputs, in), give(filter->inputs + 1, freq), give(filter->outputs, out);
                kel_get_audio_filter_input(filter.get(), "mix", 0)->data = block % 2 ? mix.data() : nullptr;
                Values expected(count);
                for (int32_t s = 0; s < frames; s += 1024) {
                    slow.set(name, freq[static_cast<size_t>(s)] / 256.0, 44100);
                    slow.run(in, block % 2 ? &mix : nullptr, expected, static_cast<size_t>(s),
                             static_cast<size_t>(std::min(s + 1024, frames)));
                }
                ASSERT_EQ(kel_pump_audio_filter(filter.get(), frames + 1), frames);
                ASSERT_EQ(out, expected) << name << " block " << block;
            }
            EXPECT_EQ(counter.allocations(), 0);
        }
    }
}

}  // namespace
