// Counted initialisation of the process.
#include <kel.h>

#include <sys/cache.h>
#include <sys/neutrino.h>

struct cache_ctrl kel_cache_ctrl;

namespace {

// kel_init calls not yet matched by kel_fini. The client serialises both, so the count needs no lock.
uint32_t init_count;

bool first_init() {
    kel_cache_ctrl = cache_ctrl{};
    kel_cache_ctrl.fd = NOFD;
    if (cache_init(0, &kel_cache_ctrl, nullptr) != 0) return false;
    if (ThreadCtl(_NTO_TCTL_IO, nullptr) == -1) {
        cache_fini(&kel_cache_ctrl);
        return false;
    }
    return true;
}

}  // namespace

int kel_init() {
    if (init_count == 0 && !first_init()) return -1;
    ++init_count;
    return 0;
}

void kel_fini() {
    if (init_count == 0) return;
    if (init_count == 1) cache_fini(&kel_cache_ctrl);
    --init_count;
}
