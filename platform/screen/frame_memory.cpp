#include "screen/frame_memory.hpp"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace platform::screen {
namespace {

constexpr uint64_t page_size = 4096;

// Physical addresses come from an address space of our own, handed out once and never again: above 4 GiB, so
// that an address cut to 32 bits shows.
constexpr uint64_t first_physical_address = uint64_t{1} << 32;
std::atomic<uint64_t> next_physical_address{first_physical_address};

std::atomic<int> live{0};

}  // namespace

frame_memory::frame_memory(const frame_layout& layout) : layout_(layout) {
    void* memory = nullptr;
    if (posix_memalign(&memory, row_alignment, layout.size + read_ahead) != 0) throw std::bad_alloc();
    memset(memory, 0, layout.size + read_ahead);
    pointer_ = static_cast<unsigned char*>(memory);
    const uint64_t pages = (layout.size + page_size - 1) / page_size;
    physical_address_ = next_physical_address.fetch_add(pages * page_size);
    ++live;
}

frame_memory::~frame_memory() {
    free(pointer_);
    --live;
}

int frame_memory::live_count() {
    return live.load();
}

}  // namespace platform::screen
