#include "support/faults.hpp"

#include <gtest/gtest.h>
#include <pthread.h>
#include <screen/screen.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <ostream>
#include <unordered_set>

namespace kel_test {
namespace {

// One for the process, since the replaced functions have no argument to carry it.
struct State {
    std::mutex mutex;
    int failing = 0;
    std::vector<Fault> passed;
    std::vector<Fault> failed;
    std::map<std::string, int> occurrences;
    std::unordered_set<void*> blocks, mutexes, conditions;
};

State& state() {
    static auto* the_state = new State;
    return *the_state;
}

void* keep(void* block) {
    if (!block) return block;
    std::lock_guard lock(state().mutex);
    state().blocks.insert(block);
    return block;
}

void drop(void* block) {
    std::lock_guard lock(state().mutex);
    state().blocks.erase(block);
}

void* out_of_memory() {
    errno = ENOMEM;
    return nullptr;
}

void* faulty_malloc(std::size_t size) {
    return detail::passes("malloc") ? keep(std::malloc(size)) : out_of_memory();
}

void* faulty_calloc(std::size_t count, std::size_t size) {
    return detail::passes("calloc") ? keep(std::calloc(count, size)) : out_of_memory();
}

void* faulty_realloc(void* old, std::size_t size) {
    if (!detail::passes("realloc")) return out_of_memory();
    drop(old);
    void* grown = std::realloc(old, size);
    keep(grown ? grown : old);
    return grown;
}

char* faulty_strdup(const char* text) {
    return static_cast<char*>(detail::passes("strdup") ? keep(strdup(text)) : out_of_memory());
}

char* faulty_strndup(const char* text, std::size_t most) {
    return static_cast<char*>(detail::passes("strndup") ? keep(strndup(text, most)) : out_of_memory());
}

void tracked_free(void* block) {
    drop(block);
    std::free(block);
}

int faulty_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    if (!detail::passes("pthread_mutex_init")) return ENOMEM;
    std::lock_guard lock(state().mutex);
    state().mutexes.insert(mutex);
    return pthread_mutex_init(mutex, attributes);
}

int tracked_mutex_destroy(pthread_mutex_t* mutex) {
    std::lock_guard lock(state().mutex);
    state().mutexes.erase(mutex);
    return pthread_mutex_destroy(mutex);
}

int faulty_cond_init(pthread_cond_t* cond, const pthread_condattr_t* attributes) {
    if (!detail::passes("pthread_cond_init")) return ENOMEM;
    std::lock_guard lock(state().mutex);
    state().conditions.insert(cond);
    return pthread_cond_init(cond, attributes);
}

int tracked_cond_destroy(pthread_cond_t* cond) {
    std::lock_guard lock(state().mutex);
    state().conditions.erase(cond);
    return pthread_cond_destroy(cond);
}

}  // namespace

bool detail::passes(const char* function) {
    std::lock_guard lock(state().mutex);
    Fault call{function, ++state().occurrences[function], static_cast<int>(state().passed.size()) + 1};
    state().passed.push_back(call);
    if (call.point != state().failing) return true;
    state().failed.push_back(call);
    return false;
}

void PrintTo(const Holdings& holdings, std::ostream* out) {
    *out << holdings.blocks << " blocks, " << holdings.mutexes << " mutexes, " << holdings.conditions
         << " condition variables, " << holdings.screen_objects << " Screen objects";
}

Faults::Faults(std::vector<FaultPoint> more) {
    fail_call(0);
    hooks_.push_back(hook(faulty_malloc, "malloc"));
    hooks_.push_back(hook(faulty_calloc, "calloc"));
    hooks_.push_back(hook(faulty_realloc, "realloc"));
    hooks_.push_back(hook(faulty_strdup, "strdup"));
    hooks_.push_back(hook(faulty_strndup, "strndup"));
    hooks_.push_back(hook(tracked_free, "free"));
    hooks_.push_back(hook(faulty_mutex_init, "pthread_mutex_init"));
    hooks_.push_back(hook(tracked_mutex_destroy, "pthread_mutex_destroy"));
    hooks_.push_back(hook(faulty_cond_init, "pthread_cond_init"));
    hooks_.push_back(hook(tracked_cond_destroy, "pthread_cond_destroy"));
    for (const FaultPoint& point : more)
        hooks_.emplace_back(point.function, point.replacement, point.library);
}

Faults::~Faults() {
    fail_call(0);
    std::lock_guard lock(state().mutex);
    state().blocks.clear();
    state().mutexes.clear();
    state().conditions.clear();
}

void Faults::fail_call(int point) {
    std::lock_guard lock(state().mutex);
    state().failing = point;
    state().passed.clear();
    state().failed.clear();
    state().occurrences.clear();
}

int Faults::calls() const {
    return static_cast<int>(passed().size());
}

int Faults::allocations() const {
    std::lock_guard lock(state().mutex);
    int count = 0;
    for (const char* name : {"malloc", "calloc", "realloc", "strdup", "strndup"})
        count += state().occurrences[name];
    return count;
}

std::vector<Fault> Faults::faults() const {
    std::lock_guard lock(state().mutex);
    return state().failed;
}

std::vector<Fault> Faults::passed() const {
    std::lock_guard lock(state().mutex);
    return state().passed;
}

Holdings Faults::holdings() const {
    screen_live_counts_t live;
    screen_get_live_counts(&live);
    std::lock_guard lock(state().mutex);
    return {static_cast<int>(state().blocks.size()), static_cast<int>(state().mutexes.size()),
            static_cast<int>(state().conditions.size()),
            live.contexts + live.windows + live.pixmaps + live.buffers};
}

std::vector<FaultPoint> screen_fault_points() {
    return {
        KEL_FAULT_POINT(screen_create_context, -1, ENOMEM),
        KEL_FAULT_POINT(screen_create_window_type, -1, ENOMEM),
        KEL_FAULT_POINT(screen_set_window_property_iv, -1, ENOMEM),
        KEL_FAULT_POINT(screen_get_window_property_iv, -1, ENOMEM),
        KEL_FAULT_POINT(screen_get_window_property_pv, -1, ENOMEM),
        KEL_FAULT_POINT(screen_create_window_buffers, -1, ENOMEM),
        KEL_FAULT_POINT(screen_create_pixmap, -1, ENOMEM),
        KEL_FAULT_POINT(screen_set_pixmap_property_iv, -1, ENOMEM),
        KEL_FAULT_POINT(screen_get_pixmap_property_pv, -1, ENOMEM),
        KEL_FAULT_POINT(screen_create_pixmap_buffer, -1, ENOMEM),
        KEL_FAULT_POINT(screen_get_buffer_property_iv, -1, ENOMEM),
        KEL_FAULT_POINT(screen_get_buffer_property_pv, -1, ENOMEM),
        KEL_FAULT_POINT(screen_get_buffer_property_llv, -1, ENOMEM),
        KEL_FAULT_POINT(screen_get_display_property_iv, -1, ENOMEM),
    };
}

int sweep_faults(const std::vector<FaultPoint>& more, const FaultBody& body) {
    Faults faults(more);
    const Holdings before = faults.holdings();
    std::vector<Fault> points;
    {
        LogCapture log;
        body(nullptr, log);
        points = faults.passed();
        EXPECT_EQ(faults.holdings(), before) << "left behind without a fault";
    }
    EXPECT_FALSE(points.empty()) << "the body passes no fault point";
    for (const Fault& fault : points) {
        SCOPED_TRACE("failing " + fault.function + ", call " + std::to_string(fault.occurrence));
        LogCapture log;
        faults.fail_call(fault.point);
        body(&fault, log);
        auto failed = faults.faults();
        EXPECT_TRUE(failed.size() == 1 && failed[0].is(fault.function.c_str(), fault.occurrence))
            << "the body does not repeat its calls";
        EXPECT_EQ(faults.holdings(), before) << "left behind";
        if (::testing::Test::HasFatalFailure()) break;
    }
    return static_cast<int>(points.size());
}

}  // namespace kel_test
