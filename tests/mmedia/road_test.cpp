// Real media: files made, read, sent the whole road through the system, and read again.
#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>

#include "mmedia/media_files.hpp"
#include "mmedia/media_fixture.hpp"
#include "support/threads.hpp"

namespace {

using namespace kel_test;

class Media : public MediaTest {
  protected:
    Watchdog watchdog{std::chrono::seconds(240), "media"};
};

struct SinkRow {
    const char* name;
    const char* audio_codec;
    const char* video_codec;
    int rate, channels, bits, width, height;
    double least_psnr;  // dB; 100: the very same pictures
};

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
        const std::string path = test_path(row.name);
        ASSERT_EQ(make_media(context, path, spec), "");
        EXPECT_FALSE(std::filesystem::exists(path + ".part"));
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
                EXPECT_GE(psnr(read.luma[static_cast<size_t>(n)], read.width, 0,
                               [n](int x, int y) { return pattern_luma(x, y, n); }),
                          row.least_psnr);
            }
        }
    }
}

}  // namespace
