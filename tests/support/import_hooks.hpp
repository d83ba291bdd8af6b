// Replaces a function that one shared library imports, and only for that library: its slots in the global
// offset table are pointed at the replacement. The test, the test framework and the platform keep the real
// function, and it works under the sanitizers and under qemu alike.
#pragma once

#include <vector>

namespace kel_test {

class ImportHook {
  public:
    // `library` is a part of the loaded object's file name. A hook on a symbol that the library does not
    // import is not bound and does nothing.
    ImportHook(const char* symbol, void* replacement, const char* library = "libkel.so");
    ~ImportHook();
    ImportHook(ImportHook&& other) noexcept;
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;

    bool bound() const { return !slots_.empty(); }

  private:
    struct Slot {
        void** address;
        void* saved;
    };
    std::vector<Slot> slots_;
};

// Hooks `symbol` with a function of the same type: hook(&calloc_replacement, "calloc").
template <typename Result, typename... Arguments>
ImportHook hook(Result (*replacement)(Arguments...), const char* symbol, const char* library = "libkel.so") {
    return ImportHook(symbol, reinterpret_cast<void*>(replacement), library);
}

}  // namespace kel_test
