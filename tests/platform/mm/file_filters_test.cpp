// The file source and the file sink: every kind of file, damage, seeks, and control from many threads.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "graph/media_fixture.hpp"
#include "support/media_files.hpp"
#include "support/threads.hpp"

namespace {

using namespace kel_test;

struct SinkRow {
    const char* name;
    const char* audio_codec;
    const char* video_codec;
    int rate, channels, bits, width, height;
    double least_psnr;  // dB; 100: the very same pictures
};

void check(const SinkRow& row, const std::string& path, double least_psnr) {
    const ReadMedia read(path);
    ASSERT_TRUE(read.opened);
    if (row.rate > 0) {
        EXPECT_EQ(read.audio_codec, row.audio_codec ? row.audio_codec : read.audio_codec);
        EXPECT_EQ(read.rate, row.rate);
        EXPECT_EQ(read.channels, row.channels);
        EXPECT_EQ(read.bits == 24, row.bits == 32);
        EXPECT_NEAR(read.frequency(), 440, 4);
        EXPECT_NEAR(read.rms(), 0.5 / std::sqrt(2), 0.02);
        EXPECT_NEAR(static_cast<double>(read.audio.size()) / row.rate, 1, 0.08);
    }
    if (row.width > 0) {
        EXPECT_EQ(read.video_codec, row.video_codec);
        EXPECT_EQ(read.width, row.width & ~1);
        EXPECT_EQ(read.height, row.height & ~1);
        ASSERT_EQ(read.luma.size(), 25u);
        for (int n = 0; n < 25; ++n) {
            // An audio encoder's delay may move the whole file by some milliseconds.
            EXPECT_NEAR(read.video_pts[static_cast<size_t>(n)] - read.video_pts[0], n / 25.0, 0.001);
            EXPECT_GE(psnr(read.luma[static_cast<size_t>(n)], read.width,
                           [n](int x, int y) { return pattern_luma(x, y, n); }),
                      least_psnr);
        }
    }
}

TEST_F(Media, SinkWritesEveryKindOfFile) {
    const SinkRow rows[] = {
        {"s16.wav", "pcm_s16le", "", 44100, 2, 16, 0, 0, 0},
        {"u8.wav", "pcm_u8", "", 11111, 1, 8, 0, 0, 0},
        {"s24.wav", "pcm_s24le", "", 96000, 1, 32, 0, 0, 0},
        {"s24.flac", "flac", "", 48000, 2, 32, 0, 0, 0},
        {"s16.flac", "flac", "", 8000, 1, 16, 0, 0, 0},
        {"both.mp4", "aac", "h264", 48000, 2, 16, 160, 120, 38},
        {"both.mkv", nullptr, "h264", 48000, 1, 16, 322, 242, 38},
        {"odd.y4m", "", "rawvideo", 0, 0, 0, 161, 121, 100},
        {"p%03d.png", "", "png", 0, 0, 0, 64, 48, 40},
    };
    for (const SinkRow& row : rows) {
        SCOPED_TRACE(row.name);
        MediaSpec spec;
        spec.rate = row.rate;
        spec.channels = row.channels;
        spec.bits = row.bits;
        spec.width = row.width;
        spec.height = row.height;
        spec.numbers["VideoQuality"] = 80;
        const std::string path = test_path(row.name), copy = test_path(std::string("copy_") + row.name);
        ASSERT_EQ(make_media(context, path, spec), "");
        EXPECT_FALSE(std::filesystem::exists(path + ".part"));
        check(row, path, row.least_psnr);
        ASSERT_EQ(copy_media(path, copy, spec), "");
        check(row, copy, std::min(row.least_psnr, 36.0));
    }
}

TEST_F(Media, SinkHeedsTheQuality) {
    for (const char* codec : {"mpeg4", "libx264"}) {
        uintmax_t smaller = 0;
        for (int quality : {20, 50, 80}) {
            MediaSpec spec;
            spec.rate = 0;
            spec.texts["VideoCodec"] = codec;
            spec.numbers["VideoQuality"] = quality;
            const std::string path = test_path("quality.mkv");
            ASSERT_EQ(make_media(context, path, spec), "");
            const uintmax_t size = std::filesystem::file_size(path);
            EXPECT_GT(size, smaller * 5 / 4) << codec << " " << quality;
            smaller = size;
        }
    }
}

TEST_F(Media, SourcePlaysRealRecordings) {
    for (const char* path :
         {"/usr/share/sounds/freedesktop/stereo/complete.oga", "/usr/share/sounds/alsa/Front_Center.wav"}) {
        const ReadMedia read(path);
        ASSERT_TRUE(read.opened) << path;
        for (int bits : {8, 16, 32}) {
            Playing playing(context, path, bits);
            ASSERT_EQ(playing.opened, 0);
            EXPECT_EQ(kel_writer_get_format(playing.audio)->audio.rate, read.rate);
            EXPECT_EQ(playing.drain().frames, static_cast<int64_t>(read.audio.size())) << path << " " << bits;
            auto* duration = *static_cast<int64_t**>(MmFindResource(playing.source, "Duration")->value);
            EXPECT_NEAR(static_cast<double>(*duration) / 1e6, read.duration, 0.001);
        }
    }
}

TEST_F(Media, PathsAreFilesWhateverTheyLookLike) {
    const std::string recording = "/usr/share/sounds/alsa/Noise.wav", colon = "clock:12.wav";
    EXPECT_NE(Playing(context, "concat:" + recording).opened, 0);
    ASSERT_EQ(copy_media(recording, colon, {}), "");
    Playing playing(context, colon);
    EXPECT_EQ(playing.opened, 0);
    EXPECT_GT(playing.drain().frames, 0);
    std::filesystem::remove(colon);
}

std::string with_bytes(const std::string& name, const std::string& bytes) {
    const std::string path = test_path(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

TEST_F(Media, SourceEndsWhateverTheFileIs) {
    MediaSpec spec;
    spec.width = 64;
    spec.height = 48;
    std::mt19937 random(static_cast<unsigned>(random_seed()));
    for (const char* name : {"whole.mp4", "whole.mkv", "whole.flac", "whole.wav", "whole.y4m"}) {
        SCOPED_TRACE(name);
        MediaSpec own = spec;
        const bool pictures = strstr(name, ".m") || strstr(name, ".y"), sound = !strstr(name, ".y");
        if (!pictures) own.width = 0;
        if (!sound) own.rate = 0;
        const std::string path = test_path(name);
        ASSERT_EQ(make_media(context, path, own), "");
        const std::string whole = bytes_of(path);
        Playing::Totals all;
        {
            Playing playing(context, path);
            EXPECT_EQ(playing.audio != nullptr, sound);
            EXPECT_EQ(playing.video != nullptr, pictures);
            all = playing.drain();
            EXPECT_GE(all.frames, sound ? 48000 : 0);
            EXPECT_EQ(all.pictures, pictures ? 25 : 0);
            EXPECT_EQ(error_of(playing.source), "");
        }
        for (size_t length : {size_t{0}, size_t{10}, whole.size() / 3, whole.size() * 9 / 10}) {
            Playing playing(context, with_bytes(std::string("cut_") + name, whole.substr(0, length)));
            if (playing.opened != 0) {
                EXPECT_NE(error_of(playing.source), "");
                char text[200];
                kel_filter* from = nullptr;
                int type = 0;
                EXPECT_EQ(MmNextEvent(playing.graph, &from, &type, text, sizeof text), 0);
                EXPECT_EQ(error_of(playing.source), text);
                continue;
            }
            const auto totals = playing.drain();
            EXPECT_LE(totals.frames, all.frames);
            EXPECT_GT(totals.frames + totals.pictures, 0) << length << " of " << whole.size();
        }
        for (int round = 0; round < stress_rounds(12); ++round) {
            std::string damaged = whole;
            for (int i = 0; i < 1 + round * 4; ++i)
                damaged[random() % damaged.size()] = static_cast<char>(random());
            Playing playing(context, with_bytes(std::string("damaged_") + name, damaged));
            if (playing.opened == 0) playing.drain();
            EXPECT_EQ(playing.opened != 0 && error_of(playing.source).empty(), false);
        }
    }
    Playing missing(context, test_path("missing.mp4"));
    EXPECT_NE(missing.opened, 0);
    EXPECT_NE(error_of(missing.source).find("No such file"), std::string::npos) << error_of(missing.source);
    const char* rows[] = {"Path", "AudioBitDepth", "Nothing"};
    const int32_t nine = 9;
    const int results[] = {EINVAL, EINVAL, 4032};
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(MmSetResource(missing.source, rows[i], i == 1 ? &nine : nullptr), results[i]);
}

TEST_F(Media, SourceSeeks) {
    MediaSpec spec;
    spec.seconds = 3;
    spec.width = 64;
    spec.height = 48;
    const std::string path = test_path("seek.mkv");
    ASSERT_EQ(make_media(context, path, spec), "");
    Playing playing(context, path);
    kel_slice slice;
    for (uint64_t target : {2000000u, 500000u, 0u, 2700000u, 1230000u}) {
        for (kel_channel* channel : {playing.audio, playing.video})
            for (int i = 0; i < 3; ++i) ASSERT_EQ(kel_writer_read_slice(channel, &slice), 0);
        ASSERT_EQ(MmSeek(playing.graph, target), 0);
        // What was decoded before may still be in the container at hand; the next one is from the new place.
        for (kel_channel* channel : {playing.audio, playing.video}) {
            ASSERT_EQ(kel_writer_read_slice(channel, &slice), 0);
            EXPECT_NEAR(static_cast<double>(slice.pts), static_cast<double>(target), 60000);
        }
    }
    playing.drain();
    EXPECT_EQ(kel_writer_read_slice(playing.audio, &slice), 79);
    ASSERT_EQ(MmSeek(playing.graph, 0), 0);
    playing.play();
    EXPECT_EQ(playing.drain().pictures, 75);  // all of them once more
}

// Two graphs, each with a controlling and two reading threads.
TEST_F(Media, SurvivesRandomControl) {
    MediaSpec spec;
    spec.width = 64;
    spec.height = 48;
    const std::string path = test_path("stress.mkv");
    ASSERT_EQ(make_media(context, path, spec), "");
    const int steps = stress_rounds(500);
    run_together(2, [&](int graph) {
        std::mt19937 random(static_cast<unsigned>(random_seed()) + static_cast<unsigned>(graph));
        Playing playing(context, path);
        std::atomic<bool> done{false};
        std::atomic<int> slices{0};
        kel_buffer_pool* pools[2] = {};
        auto pull = [&](kel_channel* channel, kel_buffer_pool*& pool) {
            kel_slice slice;
            while (!done) {
                if (kel_writer_read_slice(channel, &slice) != 0 || !slice.buffer) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    continue;
                }
                pool = slice.buffer->pool;
                ++slices;
            }
        };
        std::thread audio([&] { pull(playing.audio, pools[0]); });
        std::thread video([&] { pull(playing.video, pools[1]); });
        for (int step = 0; step < steps; ++step) {
            switch (random() % 5) {
                case 0:
                    MmStop(playing.graph);
                    break;
                case 1:
                    MmPause(playing.graph);
                    break;
                case 2:
                    EXPECT_EQ(MmSeek(playing.graph, random() % 1000000), 0);
                    break;
                default:
                    playing.play();
            }
            MmGetStatus(playing.graph);
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
        }
        done = true;
        MmStop(playing.graph);
        audio.join();
        video.join();
        EXPECT_GT(slices, 0);
        const auto& inputs = table_of<mmf_input_interface>(playing.writer, "MediaInput");
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(inputs.release_input(i == 0 ? playing.audio : playing.video), 0);
            EXPECT_EQ(pools[i] ? pools[i]->in_use : 0, 0);
        }
    });
}

}  // namespace
