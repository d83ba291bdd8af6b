// Acquiring a buffer from a pool and releasing it, beside other libraries' pools.
#include <gst/gst.h>
#include <kel.h>
extern "C" {
#include <libavutil/buffer.h>
}

#include <deque>
#include <memory>
#include <mutex>

#include "benchmarks/harness.hpp"

namespace {

using namespace kel_bench;

constexpr int buffer_bytes = 4096;

// Each pool holds `count` buffers; take() and give() are one pair.
class KelPool {
  public:
    using Buffer = kel_buffer*;
    explicit KelPool(int count) {
        const kel_audio_format format = {48000, 2, KEL_AUDIO_TYPE_S16LE};
        pool_ = kel_create_audio_buffer_pool(nullptr, &format, buffer_bytes / 4, count);
    }
    ~KelPool() { kel_destroy_buffer_pool(&pool_); }
    Buffer take() { return kel_acquire_buffer(pool_); }
    void give(Buffer buffer) { kel_release_buffer(buffer); }

  private:
    kel_buffer_pool* pool_;
};

class FfmpegPool {
  public:
    using Buffer = AVBufferRef*;
    explicit FfmpegPool(int count) : pool_(av_buffer_pool_init(buffer_bytes, nullptr)) {
        std::vector<Buffer> all;  // it makes buffers as they are asked for
        for (int i = 0; i < count; ++i) all.push_back(take());
        for (Buffer buffer : all) give(buffer);
    }
    ~FfmpegPool() { av_buffer_pool_uninit(&pool_); }
    Buffer take() { return av_buffer_pool_get(pool_); }
    void give(Buffer buffer) { av_buffer_unref(&buffer); }

  private:
    AVBufferPool* pool_;
};

class GstreamerPool {
  public:
    using Buffer = GstBuffer*;
    explicit GstreamerPool(int count) : pool_(gst_buffer_pool_new()) {
        const auto size = static_cast<guint>(count);
        GstStructure* config = gst_buffer_pool_get_config(pool_);
        gst_buffer_pool_config_set_params(config, nullptr, buffer_bytes, size, size);
        gst_buffer_pool_set_config(pool_, config);
        gst_buffer_pool_set_active(pool_, TRUE);
    }
    ~GstreamerPool() {
        gst_buffer_pool_set_active(pool_, FALSE);
        gst_object_unref(pool_);
    }
    Buffer take() {
        Buffer buffer = nullptr;
        gst_buffer_pool_acquire_buffer(pool_, &buffer, nullptr);
        return buffer;
    }
    void give(Buffer buffer) { gst_buffer_unref(buffer); }

  private:
    GstBufferPool* pool_;
};

// The minimum a pool can be: no reference count, no order.
class PlainPool {
  public:
    using Buffer = char*;
    explicit PlainPool(int count) : memory_(static_cast<std::size_t>(count) * buffer_bytes) {
        for (int i = 0; i < count; ++i) free_.push_back(&memory_[static_cast<std::size_t>(i) * buffer_bytes]);
    }
    Buffer take() {
        std::lock_guard lock(mutex_);
        if (free_.empty()) return nullptr;
        Buffer buffer = free_.front();
        free_.pop_front();
        return buffer;
    }
    void give(Buffer buffer) {
        std::lock_guard lock(mutex_);
        free_.push_back(buffer);
    }

  private:
    std::vector<char> memory_;
    std::mutex mutex_;
    std::deque<Buffer> free_;
};

template <typename Pool>
void pairs(Pool& pool, uint64_t count) {
    while (count-- > 0) {
        auto buffer = pool.take();
        keep(buffer);
        pool.give(buffer);
    }
}

void lock_twice(pthread_mutex_t& mutex, uint64_t count) {
    for (count *= 2; count > 0; --count) {
        pthread_mutex_lock(&mutex);
        keep(mutex);
        pthread_mutex_unlock(&mutex);
    }
}

// A pool of `count` buffers of which `held` stay out.
template <typename Pool>
class Stage {
  public:
    Stage(int count, int held) : pool_(count) {
        for (int i = 0; i < held; ++i) held_.push_back(pool_.take());
    }
    ~Stage() {
        for (auto buffer : held_) pool_.give(buffer);
    }
    Pool& pool() { return pool_; }

  private:
    Pool pool_;
    std::vector<typename Pool::Buffer> held_;
};

// `threads` threads share the pool, each making its part of the pairs.
void compare(const std::string& title, const Options& options, int count, int held, int threads) {
    Comparison comparison(title, {"ns a pair", 1e9}, threads);
    const auto team = std::make_shared<Team>(threads);
    const auto together = [team, threads](uint64_t total, const std::function<void(uint64_t)>& work) {
        const uint64_t share = (total + static_cast<uint64_t>(threads) - 1) / static_cast<uint64_t>(threads);
        team->run([&](int) { work(share); });
    };
    const auto add = [&]<typename Pool>(Role role, const char* name, std::shared_ptr<Stage<Pool>> stage) {
        comparison.add(role, name, [=](uint64_t total) {
            together(total, [&](uint64_t share) { pairs(stage->pool(), share); });
        });
    };
    add(Role::subject, "libkel", std::make_shared<Stage<KelPool>>(count, held));
    add(Role::peer, "FFmpeg AVBufferPool", std::make_shared<Stage<FfmpegPool>>(count, held));
    add(Role::peer, "GStreamer GstBufferPool", std::make_shared<Stage<GstreamerPool>>(count, held));
    add(Role::peer, "mutex and deque", std::make_shared<Stage<PlainPool>>(count, held));
    const auto mutex = std::make_shared<pthread_mutex_t>();
    pthread_mutex_init(mutex.get(), nullptr);
    comparison.add(Role::reference, "two lock/unlock pairs", [=](uint64_t total) {
        together(total, [&](uint64_t share) { lock_twice(*mutex, share); });
    });
    comparison.run(options);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = parse_options(argc, argv);
    gst_init(nullptr, nullptr);
    compare("Acquire and release, 16 buffers", options, 16, 0, 1);
    compare("Acquire and release, 64 buffers", options, 64, 0, 1);
    compare("Acquire and release, 60 of 64 buffers held", options, 64, 60, 1);
    compare("Acquire and release, two threads, 16 buffers", options, 16, 0, 2);
    compare("Acquire and release, two threads, 64 buffers", options, 64, 0, 2);
}
