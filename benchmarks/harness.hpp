// Candidates beside each other in one process. Other work on a shared machine slows code by an unseen factor that
// changes from moment to moment, so the candidates take turns in short slices, a fixed probe runs between them, and only
// the rounds whose probes ran at full speed count. What is printed is the median over those rounds, and for the ratios the
// median of the ratios within a round.
#pragma once

#include <algorithm>
#include <barrier>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kel_bench {

using seconds = std::chrono::duration<double>;

inline double now() {
    return seconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Keeps the compiler from removing what computes `value`.
template <typename T>
void keep(const T& value) {
    asm volatile("" : : "g"(&value) : "memory");
}

// Threads that live through a benchmark, so that no slice pays for their creation. The caller is thread 0.
class Team {
  public:
    explicit Team(int size) : size_(size), gate_(size) {
        for (int i = 1; i < size; ++i) {
            threads_.emplace_back([this, i] {
                for (;;) {
                    gate_.arrive_and_wait();
                    if (!body_) return;
                    (*body_)(i);
                    gate_.arrive_and_wait();
                }
            });
        }
    }
    ~Team() {
        body_ = nullptr;
        gate_.arrive_and_wait();
        for (auto& thread : threads_) thread.join();
    }
    Team(const Team&) = delete;
    Team& operator=(const Team&) = delete;

    int size() const { return size_; }

    // Runs body(0) to body(size - 1) at the same time and returns when all are done.
    void run(const std::function<void(int)>& body) {
        body_ = &body;
        gate_.arrive_and_wait();
        body(0);
        gate_.arrive_and_wait();
    }

  private:
    int size_;
    std::barrier<> gate_;
    const std::function<void(int)>* body_ = nullptr;
    std::vector<std::thread> threads_;
};

// Seconds that a fixed piece of throughput-bound arithmetic takes: the longer, the busier the core's
// neighbours.
inline double probe() {
    static uint32_t cells[1024];
    const double start = now();
    for (uint32_t round = 0; round < 60; ++round) {
        for (uint32_t& cell : cells) cell = cell * 2654435761u + round;
        keep(cells);
    }
    return now() - start;
}

enum class Role {
    subject,    // what is measured
    peer,       // what others offer for the same work
    reference,  // what the subject's aim is stated against
};

struct Unit {
    const char* name = "ns";  // of one operation, for the heading
    double per_second = 1e9;
};

struct Options {
    double seconds_per_candidate = 1.5;
    std::string filter;  // only comparisons whose title contains it
};

// [--seconds S] [FILTER]
inline Options parse_options(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--seconds") && i + 1 < argc) {
            options.seconds_per_candidate = std::atof(argv[++i]);
        } else {
            options.filter = argv[i];
        }
    }
    return options;
}

class Comparison {
  public:
    // Performs `count` operations.
    using Work = std::function<void(uint64_t count)>;

    // `threads`: how many threads the work keeps busy; the probe then runs on as many.
    explicit Comparison(std::string title, Unit unit = {}, int threads = 1)
        : title_(std::move(title)), unit_(unit), team_(threads) {}

    void add(Role role, std::string name, Work work) {
        rows_.push_back({role, std::move(name), std::move(work)});
    }

    // Measures and prints one table in Markdown.
    void run(const Options& options) {
        if (title_.find(options.filter) == std::string::npos) return;
        double longest = 0;
        for (Row& row : rows_) longest = std::max(longest, calibrate(row));
        const int rounds = std::max(least_rounds, static_cast<int>(options.seconds_per_candidate / longest));
        for (int round = 0; round < rounds; ++round) measure(static_cast<std::size_t>(round));
        keep_quiet_rounds();
        print();
    }

  private:
    static constexpr double slice_seconds = 0.004;
    static constexpr int least_rounds = 12;
    static constexpr double disturbed = 1.15;  // probe against the quietest probe

    struct Row {
        Role role;
        std::string name;
        Work work;
        uint64_t count = 1;               // operations in a slice
        std::vector<double> values = {};  // seconds of one operation, by round
    };

    double probe_all() {
        if (team_.size() == 1) return probe();
        std::vector<double> times(static_cast<std::size_t>(team_.size()));
        team_.run([&](int i) { times[static_cast<std::size_t>(i)] = probe(); });
        return *std::max_element(times.begin(), times.end());
    }

    static double timed(const Row& row) {
        const double start = now();
        row.work(row.count);
        return now() - start;
    }

    // Finds how many operations fill a slice; returns the seconds that they take.
    static double calibrate(Row& row) {
        row.work(1);  // warm-up
        const auto undisturbed = [&] { return std::min({timed(row), timed(row), timed(row)}); };
        double taken = undisturbed();
        while (taken < slice_seconds / 2) {
            const double growth = std::min(10.0, 1.1 * slice_seconds / std::max(taken, 1e-9));
            row.count =
                std::max(row.count + 1, static_cast<uint64_t>(static_cast<double>(row.count) * growth));
            taken = undisturbed();
        }
        return std::max(taken, slice_seconds);
    }

    // One slice of each candidate, with another one first each time.
    void measure(std::size_t round) {
        double slowest = probe_all();
        for (std::size_t i = 0; i < rows_.size(); ++i) {
            Row& row = rows_[(i + round) % rows_.size()];
            row.values.push_back(timed(row) / static_cast<double>(row.count));
            slowest = std::max(slowest, probe_all());
        }
        probes_.push_back(slowest);
    }

    // Of too few quiet rounds the quietest quarter is taken instead.
    void keep_quiet_rounds() {
        kept_.resize(probes_.size());
        for (std::size_t i = 0; i < kept_.size(); ++i) kept_[i] = i;
        std::sort(kept_.begin(), kept_.end(),
                  [&](std::size_t a, std::size_t b) { return probes_[a] < probes_[b]; });
        const auto quiet = static_cast<std::size_t>(std::count_if(
            probes_.begin(), probes_.end(), [&](double p) { return p <= disturbed * probes_[kept_[0]]; }));
        busy_ = quiet < probes_.size() / 4;
        kept_.resize(std::max(quiet, probes_.size() / 4));
    }

    // Of `row`, or of its ratio to `base`, over the rounds kept: the value below which `part` of them lie.
    double quantile(const Row& row, double part, const Row* base = nullptr) const {
        std::vector<double> values;
        for (const std::size_t i : kept_) values.push_back(row.values[i] / (base ? base->values[i] : 1));
        std::sort(values.begin(), values.end());
        return values[static_cast<std::size_t>(part * static_cast<double>(values.size()))];
    }

    const Row* fastest(Role role) const {
        const Row* best = nullptr;
        for (const Row& row : rows_) {
            if (row.role == role && (!best || quantile(row, 0.5) < quantile(*best, 0.5))) best = &row;
        }
        return best;
    }

    void print() const {
        std::printf("### %s\n\n| candidate | %s | spread | of the fastest peer | of the reference |\n",
                    title_.c_str(), unit_.name);
        std::printf("|---|---:|---:|---:|---:|\n");
        const Row* bases[] = {fastest(Role::peer), fastest(Role::reference)};
        for (const Row& row : rows_) {
            const char* mark = row.role == Role::subject ? "**" : "";
            const double median = quantile(row, 0.5);
            std::printf("| %s%s%s%s | %.4g | %.0f %% |", mark, row.name.c_str(), mark,
                        row.role == Role::reference ? " (reference)" : "", median * unit_.per_second,
                        (quantile(row, 0.75) - quantile(row, 0.25)) / median * 100);
            for (const Row* base : bases) {
                if (base)
                    std::printf(" %.2f |", quantile(row, 0.5, base));
                else
                    std::printf(" |");
            }
            std::printf("\n");
        }
        std::printf("\nMedians of %zu of %zu rounds%s.\n\n", kept_.size(), probes_.size(),
                    busy_ ? " (a busy machine: too few were undisturbed)" : "");
        std::fflush(stdout);
    }

    std::string title_;
    Unit unit_;
    Team team_;
    std::vector<Row> rows_;
    std::vector<double> probes_;     // the slowest probe of each round
    std::vector<std::size_t> kept_;  // the rounds that count
    bool busy_ = false;
};

}  // namespace kel_bench
