// Candidates beside each other in one process. Other work on a shared machine slows code by an unseen factor,
// so the candidates take turns in short slices, each slice stands between two runs of a fixed probe, and only
// the slices whose probes ran at full speed count. What is printed is the median of those.
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
        for (Row& row : rows_) calibrate(row);
        const int rounds = std::max(8, static_cast<int>(options.seconds_per_candidate / slice_seconds));
        for (int round = 0; round < rounds; ++round) {
            for (std::size_t i = 0; i < rows_.size(); ++i) measure(rows_[(i + round) % rows_.size()]);
        }
        double quiet = 1e9;
        for (const Row& row : rows_) {
            for (const Slice& slice : row.slices) quiet = std::min(quiet, slice.probe);
        }
        for (Row& row : rows_) evaluate(row, quiet);
        print();
    }

  private:
    static constexpr double slice_seconds = 0.010;
    static constexpr double disturbed = 1.15;  // probe against the quietest probe

    struct Slice {
        double value;  // seconds of one operation
        double probe;  // the slower of the probes around it
    };
    struct Row {
        Role role;
        std::string name;
        Work work;
        uint64_t count = 1;  // operations in a slice
        std::vector<Slice> slices = {};
        double median = 0;
        double spread = 0;  // between the quartiles, relative to the median
        int kept = 0;
        bool quiet = true;
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

    static void calibrate(Row& row) {
        row.work(1);  // warm-up
        double taken = timed(row);
        while (taken < slice_seconds / 2) {
            const double growth = std::min(10.0, 1.1 * slice_seconds / std::max(taken, 1e-9));
            row.count =
                std::max(row.count + 1, static_cast<uint64_t>(static_cast<double>(row.count) * growth));
            taken = timed(row);
        }
    }

    void measure(Row& row) {
        const double before = probe_all();
        const double taken = timed(row);
        const double after = probe_all();
        row.slices.push_back({taken / static_cast<double>(row.count), std::max(before, after)});
    }

    // Keeps the undisturbed slices; when they are too few, the quietest quarter, and says so.
    static void evaluate(Row& row, double quiet) {
        auto& slices = row.slices;
        std::sort(slices.begin(), slices.end(),
                  [](const Slice& a, const Slice& b) { return a.probe < b.probe; });
        const auto end = std::find_if(slices.begin(), slices.end(),
                                      [&](const Slice& slice) { return slice.probe > disturbed * quiet; });
        auto kept = static_cast<std::size_t>(end - slices.begin());
        row.quiet = kept >= slices.size() / 4;
        kept = std::max(kept, slices.size() / 4);
        std::vector<double> values;
        for (std::size_t i = 0; i < kept; ++i) values.push_back(slices[i].value);
        std::sort(values.begin(), values.end());
        row.kept = static_cast<int>(kept);
        row.median = values[kept / 2];
        row.spread = (values[kept * 3 / 4] - values[kept / 4]) / row.median;
    }

    double best(Role role) const {
        double least = 0;
        for (const Row& row : rows_) {
            if (row.role == role && (least == 0 || row.median < least)) least = row.median;
        }
        return least;
    }

    static void print_ratio(double value, double base) {
        if (base > 0) {
            std::printf(" %.2f |", value / base);
        } else {
            std::printf(" |");
        }
    }

    void print() const {
        std::printf(
            "### %s\n\n| candidate | %s | spread | of the fastest peer | of the reference | slices |\n",
            title_.c_str(), unit_.name);
        std::printf("|---|---:|---:|---:|---:|---:|\n");
        bool all_quiet = true;
        for (const Row& row : rows_) {
            const char* mark = row.role == Role::subject ? "**" : "";
            std::printf("| %s%s%s%s | %.4g | %.0f %% |", mark, row.name.c_str(), mark,
                        row.role == Role::reference ? " (reference)" : "", row.median * unit_.per_second,
                        row.spread * 100);
            print_ratio(row.median, best(Role::peer));
            print_ratio(row.median, best(Role::reference));
            std::printf(" %d/%d%s |\n", row.kept, static_cast<int>(row.slices.size()),
                        row.quiet ? "" : " busy");
            all_quiet = all_quiet && row.quiet;
        }
        std::printf(
            "%s\n",
            all_quiet ? "" : "\nbusy: hardly a slice was undisturbed; the quietest quarter was taken.\n");
        std::fflush(stdout);
    }

    std::string title_;
    Unit unit_;
    Team team_;
    std::vector<Row> rows_;
};

}  // namespace kel_bench
