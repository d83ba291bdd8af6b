// Ownership on the way through a function: each acquisition is followed by its guard in the next line, and one
// hand-over at the end releases them. Guards keep errno, so the reason of a failure survives the clean-up.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>

namespace kel {

// Puts errno back as it was when the scope began.
class errno_keeper {
  public:
    errno_keeper() : saved_(errno) {}
    ~errno_keeper() { errno = saved_; }
    errno_keeper(const errno_keeper&) = delete;
    errno_keeper& operator=(const errno_keeper&) = delete;

  private:
    int saved_;
};

// Runs an action when the scope ends, unless dismissed.
template <typename Action>
class scope_exit {
  public:
    explicit scope_exit(Action action) : action_(std::move(action)) {}
    ~scope_exit() {
        if (!armed_) return;
        errno_keeper keep;
        action_();
    }
    scope_exit(const scope_exit&) = delete;
    scope_exit& operator=(const scope_exit&) = delete;
    void dismiss() { armed_ = false; }

  private:
    Action action_;
    bool armed_ = true;
};

// A record is memory: it can be zero-filled, copied and freed without running code.
template <typename T>
concept record =
    std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T> && std::is_standard_layout_v<T>;

// Owns a block from malloc's family.
template <record T>
class owned {
  public:
    owned() = default;
    explicit owned(T* pointer) : pointer_(pointer) {}
    owned(owned&& other) noexcept : pointer_(other.release()) {}
    owned& operator=(owned&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~owned() { reset(nullptr); }

    T* get() const { return pointer_; }
    T* operator->() const { return pointer_; }
    T& operator*() const { return *pointer_; }
    T& operator[](std::size_t index) const { return pointer_[index]; }
    explicit operator bool() const { return pointer_ != nullptr; }
    [[nodiscard]] T* release() { return std::exchange(pointer_, nullptr); }
    void reset(T* pointer) {
        errno_keeper keep;
        std::free(std::exchange(pointer_, pointer));
    }

  private:
    T* pointer_ = nullptr;
};

// A new zero-filled record, or an empty owner.
template <record T>
owned<T> make_record() {
    return owned<T>(static_cast<T*>(std::calloc(1, sizeof(T))));
}

// `count` zero-filled records in a row, or an empty owner (also when the size overflows).
template <record T>
owned<T> make_records(std::size_t count) {
    return owned<T>(static_cast<T*>(std::calloc(count, sizeof(T))));
}

}  // namespace kel
