// Fault injection into libkel: every call through a fault point is counted, and one of them can be made to
// fail. All allocations, locks and Screen objects that the library makes meanwhile are accounted for.
#pragma once

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "support/import_hooks.hpp"
#include "support/log_capture.hpp"

namespace kel_test {

// A call that was made to fail.
struct Fault {
    std::string function;  // the imported function
    int occurrence;        // 1 for its first call in the body, 2 for its second, ...
    int point;             // 1 for the first call through any fault point, 2 for the second, ...
    bool is(const char* name, int nth = 1) const { return function == name && occurrence == nth; }
};

// An imported function that can be made to fail.
struct FaultPoint {
    const char* function;
    void* replacement;
    const char* library = "libkel.so";  // whose calls
};

namespace detail {

bool passes(const char* function);  // counts the call; false when this one is to fail

template <auto function>
struct Faulty;

template <typename Result, typename... Arguments, Result (*function)(Arguments...)>
struct Faulty<function> {
    static inline const char* name;
    static inline Result result;
    static inline int error;
    static Result call(Arguments... arguments) {
        if (passes(name)) return function(arguments...);
        errno = error;
        return result;
    }
};

template <typename Result, typename... Arguments, Result (*function)(Arguments...) noexcept>
struct Faulty<function> : Faulty<static_cast<Result (*)(Arguments...)>(function)> {};

}  // namespace detail

// A fault point on `function`: the failing call sets errno and returns `result`.
template <auto function, typename Result>
FaultPoint fault_point(const char* name, Result result, int error) {
    using point = detail::Faulty<function>;
    point::name = name;
    point::result = static_cast<decltype(point::result)>(result);
    point::error = error;
    return {name, reinterpret_cast<void*>(&point::call)};
}
#define KEL_FAULT_POINT(function, result, error) ::kel_test::fault_point<function>(#function, result, error)

// What libkel holds at this moment, as far as it was made while a Faults object lived.
struct Holdings {
    int blocks = 0;      // from malloc's family
    int mutexes = 0;     // pthread_mutex_init without destroy
    int conditions = 0;  // pthread_cond_init without destroy
    int screen_objects = 0;
    bool operator==(const Holdings&) const = default;
};

void PrintTo(const Holdings& holdings, std::ostream* out);

// Installs the fault points: always malloc's family, as far as libkel uses it (ENOMEM),
// pthread_mutex_init (12) and pthread_cond_init (12); `more` adds platform calls. One at a time.
class Faults {
  public:
    explicit Faults(std::vector<FaultPoint> more = {});
    ~Faults();

    void fail_call(int point);          // make the point-th call from now fail; 0: none
    int calls() const;                  // calls through fault points since fail_call
    int allocations() const;            // of them, calls of malloc's family
    std::vector<Fault> faults() const;  // the calls that were made to fail since fail_call
    std::vector<Fault> passed() const;  // all calls since fail_call, in order
    Holdings holdings() const;

  private:
    std::vector<ImportHook> hooks_;
};

// Screen calls that can fail: each gives -1 and ENOMEM.
std::vector<FaultPoint> screen_fault_points();

// Runs the body once without a fault (fault is null), then once for each call that it made through a fault
// point, with that call failing. The body checks the result, cleans up after itself and may look at the log;
// after each run nothing may be left behind. Returns the number of faults tried; a body without any is a test
// failure.
using FaultBody = std::function<void(const Fault* fault, LogCapture& log)>;
int sweep_faults(const std::vector<FaultPoint>& more, const FaultBody& body);

}  // namespace kel_test
