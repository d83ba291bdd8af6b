// The blocking queue: a bounded, closable FIFO of pointers between threads.
#include <kel.h>

#include <cstddef>
#include <cstdlib>

#include "base/deadline.hpp"
#include "base/guard.hpp"
#include "base/lock.hpp"
#include "base/log.hpp"

struct kel_queue_node {
    kel_queue_node* next;  // null for the last
    void* data;            // the caller's, never looked at
};

struct kel_queue {
    kel_queue_node* head;  // oldest; head and tail are null exactly when size is 0
    kel_queue_node* tail;  // newest
    uint32_t size;         // nodes from head to tail; never above limit unless limit is 0
    uint32_t limit;        // fixed at creation; 0: none
    uint32_t flags;        // KEL_QUEUE_CLOSED
    kel_queue_node_destructor node_destructor;
    pthread_mutex_t modify_mutex;  // guards every other field
    pthread_cond_t empty_cond;     // consumers wait on it while the queue is empty
    pthread_cond_t full_cond;      // producers wait on it while the queue is full
    uint32_t empty_waiters;        // threads that wait on empty_cond
    uint32_t full_waiters;         // threads that wait on full_cond
    kel_queue_node* spare;         // nodes of items taken, for the next enqueues
    uint32_t spare_count;
    uint32_t crowded;  // operations until two threads count as out of each other's way; a hint
};

#if UINTPTR_MAX == UINT32_MAX
static_assert(offsetof(kel_queue_node, next) == 0 && offsetof(kel_queue_node, data) == 4);
static_assert(offsetof(kel_queue, head) == 0 && offsetof(kel_queue, tail) == 4);
static_assert(offsetof(kel_queue, size) == 8 && offsetof(kel_queue, limit) == 12);
static_assert(offsetof(kel_queue, flags) == 16 && offsetof(kel_queue, node_destructor) == 20);
static_assert(offsetof(kel_queue, modify_mutex) == 24);
#endif

namespace {

constexpr uint32_t KEL_QUEUE_CLOSED = 1;

// Spare nodes kept at most: 16 KiB on 64-bit, and more than the queues of a media graph ever hold.
constexpr uint32_t max_spare_nodes = 1024;

// A thread looks again this often before it sleeps: some microseconds, less than the sleep and the wake-up that
// the other side's next call mostly saves. Nobody keeps the lock for longer than a few steps, but for clearing.
constexpr int wait_spins = 300;
constexpr int lock_spins = 100;
constexpr uint32_t crowded_rounds = 1000;

void relax_cpu() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    __asm__ volatile("yield" ::: "memory");
#endif
}

bool is_closed(const kel_queue& queue) {
    return (kel::read_unlocked(queue.flags) & KEL_QUEUE_CLOSED) != 0;
}

// Why a consumer or a producer has to wait. Also asked without the lock, as a hint.
bool is_empty(const kel_queue& queue) {
    return kel::read_unlocked(queue.size) == 0 && !is_closed(queue);
}
bool is_full(const kel_queue& queue) {
    return queue.limit != 0 && kel::read_unlocked(queue.size) >= queue.limit && !is_closed(queue);
}

void wake_all(pthread_cond_t& cond, uint32_t waiters) {
    if (waiters != 0) pthread_cond_broadcast(&cond);
}

// The queue's lock for putting and taking. Where two threads have met lately, whoever finds it taken tries for a
// while before going to sleep: it is free again sooner than a sleeper wakes.
class KEL_SCOPED_CAPABILITY brief_lock {
  public:
    explicit brief_lock(kel_queue& queue) KEL_ACQUIRE(queue.modify_mutex) : queue_(queue) { acquire(); }
    ~brief_lock() KEL_RELEASE() { pthread_mutex_unlock(&queue_.modify_mutex); }
    brief_lock(const brief_lock&) = delete;
    brief_lock& operator=(const brief_lock&) = delete;

    // Lets others in while `blocked` holds, for some microseconds.
    template <bool blocked(const kel_queue&)>
    void step_aside() KEL_THREAD_ANNOTATION(no_thread_safety_analysis) {
        kel::write_for_unlocked(queue_.crowded, crowded_rounds);
        pthread_mutex_unlock(&queue_.modify_mutex);
        for (int round = 0; round < wait_spins && blocked(queue_); ++round) relax_cpu();
        acquire();
    }

    // One wait, with a fresh deadline. 0, or the wait's error.
    int wait(pthread_cond_t& cond, int32_t timeout_ms) {
        if (timeout_ms == -1) return pthread_cond_wait(&cond, &queue_.modify_mutex);
        const timespec deadline = kel::deadline_from_now(timeout_ms);
        return pthread_cond_timedwait(&cond, &queue_.modify_mutex, &deadline);
    }

  private:
    void acquire() KEL_THREAD_ANNOTATION(no_thread_safety_analysis) {
        if (kel::read_unlocked(queue_.crowded) == 0)
            pthread_mutex_lock(&queue_.modify_mutex);
        else
            acquire_in_a_crowd();
    }

    [[gnu::noinline]] void acquire_in_a_crowd() KEL_THREAD_ANNOTATION(no_thread_safety_analysis) {
        int round = 0;
        while (pthread_mutex_trylock(&queue_.modify_mutex) != 0) {
            if (++round > lock_spins) {
                pthread_mutex_lock(&queue_.modify_mutex);
                break;
            }
            relax_cpu();
        }
        const uint32_t left = queue_.crowded == 0 ? 0 : queue_.crowded - 1;
        kel::write_for_unlocked(queue_.crowded, round == 0 ? left : crowded_rounds);
    }

    kel_queue& queue_;
};

// Waits until `blocked` no longer holds. False when a wait fails or times out.
template <bool blocked(const kel_queue&)>
[[gnu::noinline]] bool wait_while(brief_lock& lock, kel_queue& queue, pthread_cond_t& cond, uint32_t& waiters,
                                  int32_t timeout_ms) {
    if (timeout_ms != 0) lock.step_aside<blocked>();
    while (blocked(queue)) {
        ++waiters;
        const int error = lock.wait(cond, timeout_ms);
        --waiters;
        if (error != 0) return false;
    }
    return true;
}

// A node for one item, from those kept or newly allocated; null when out of memory.
kel_queue_node* take_node(kel_queue& queue) {
    kel_queue_node* node = queue.spare;
    if (!node) return kel::make_record<kel_queue_node>().release();
    queue.spare = node->next;
    --queue.spare_count;
    return node;
}

void give_node_back(kel_queue& queue, kel_queue_node* node) {
    if (queue.spare_count == max_spare_nodes) {
        free(node);
        return;
    }
    node->next = queue.spare;
    queue.spare = node;
    ++queue.spare_count;
}

// Throws all items away, oldest first, and frees every node. The caller holds the lock.
void clear(kel_queue& queue) {
    const kel_queue_node_destructor destructor = kel::read_unlocked(queue.node_destructor);
    for (kel_queue_node *node = queue.head, *next; node; node = next) {
        next = node->next;
        if (destructor) destructor(node->data);
        free(node);
    }
    for (kel_queue_node *node = queue.spare, *next; node; node = next) {
        next = node->next;
        free(node);
    }
    queue.head = queue.tail = queue.spare = nullptr;
    queue.spare_count = 0;
    kel::write_for_unlocked(queue.size, 0U);
    wake_all(queue.full_cond, queue.full_waiters);  // nobody, where there is no limit
}

int enqueue(kel_queue* queue, void* data, int32_t timeout_ms) {
    if (!queue) return 0;
    brief_lock lock(*queue);
    if (is_full(*queue) &&
        !wait_while<is_full>(lock, *queue, queue->full_cond, queue->full_waiters, timeout_ms)) {
        return 0;
    }
    if (is_closed(*queue)) return 0;
    kel_queue_node* node = take_node(*queue);
    if (!node) return 0;
    node->next = nullptr;
    node->data = data;
    (queue->tail ? queue->tail->next : queue->head) = node;
    queue->tail = node;
    kel::write_for_unlocked(queue->size, queue->size + 1);
    if (queue->empty_waiters != 0 && queue->size == 1) pthread_cond_broadcast(&queue->empty_cond);
    return 1;
}

int dequeue(kel_queue* queue, void** data_out, int32_t timeout_ms) {
    if (!queue) return 0;
    brief_lock lock(*queue);
    if (is_empty(*queue) &&
        !wait_while<is_empty>(lock, *queue, queue->empty_cond, queue->empty_waiters, timeout_ms)) {
        return 0;
    }
    kel_queue_node* node = queue->head;
    if (!node) return 0;
    *data_out = node->data;
    queue->head = node->next;
    if (!queue->head) queue->tail = nullptr;
    kel::write_for_unlocked(queue->size, queue->size - 1);
    give_node_back(*queue, node);
    if (queue->full_waiters != 0 && queue->size == queue->limit - 1)
        pthread_cond_broadcast(&queue->full_cond);
    return 1;
}

}  // namespace

kel_queue* kel_queue_create_with_limit(uint32_t limit) {
    auto queue = kel::make_record<kel_queue>();
    if (!queue) return nullptr;
    if (const int error = pthread_mutex_init(&queue->modify_mutex, nullptr)) {
        KEL_LOG_ERROR("kel: Unable to create queue modify mutex. (err = %d)", error);
        return nullptr;
    }
    kel::scope_exit destroy_mutex([&] { pthread_mutex_destroy(&queue->modify_mutex); });
    if (const int error = pthread_cond_init(&queue->empty_cond, nullptr)) {
        KEL_LOG_ERROR("kel: Unable to create queue empty condvar. (err = %d)", error);
        return nullptr;
    }
    kel::scope_exit destroy_empty_cond([&] { pthread_cond_destroy(&queue->empty_cond); });
    if (const int error = pthread_cond_init(&queue->full_cond, nullptr)) {
        KEL_LOG_ERROR("kel: Unable to create queue full condvar. (err = %d)", error);
        return nullptr;
    }
    queue->limit = limit;
    destroy_empty_cond.dismiss();
    destroy_mutex.dismiss();
    return queue.release();
}

kel_queue* kel_queue_create() {
    return kel_queue_create_with_limit(0);
}

void kel_queue_destroy(kel_queue* queue) {
    if (!queue) return;
    kel_queue_clear(queue);
    pthread_cond_destroy(&queue->full_cond);
    pthread_cond_destroy(&queue->empty_cond);
    pthread_mutex_destroy(&queue->modify_mutex);
    free(queue);
}

int kel_queue_enqueue_with_timeout(kel_queue* queue, void* data, int32_t timeout_ms) {
    return enqueue(queue, data, timeout_ms);
}

int kel_queue_enqueue(kel_queue* queue, void* data) {
    return enqueue(queue, data, -1);
}

int kel_queue_dequeue_with_timeout(kel_queue* queue, void** data_out, int32_t timeout_ms) {
    return dequeue(queue, data_out, timeout_ms);
}

int kel_queue_dequeue(kel_queue* queue, void** data_out) {
    return dequeue(queue, data_out, -1);
}

int kel_queue_clear(kel_queue* queue) {
    if (!queue) return 0;
    kel::lock_guard lock(queue->modify_mutex);
    clear(*queue);
    return 1;
}

int kel_queue_reset(kel_queue* queue) {
    if (!queue) return 0;
    kel::lock_guard lock(queue->modify_mutex);
    clear(*queue);
    kel::write_for_unlocked(queue->flags, queue->flags & ~KEL_QUEUE_CLOSED);
    return 1;
}

int kel_queue_close(kel_queue* queue) {
    if (!queue) return 0;
    kel::lock_guard lock(queue->modify_mutex);
    kel::write_for_unlocked(queue->flags, queue->flags | KEL_QUEUE_CLOSED);
    wake_all(queue->empty_cond, queue->empty_waiters);
    wake_all(queue->full_cond, queue->full_waiters);
    return 1;
}

int kel_queue_is_closed(kel_queue* queue) {
    return is_closed(*queue) ? 1 : 0;
}

uint32_t kel_queue_get_size(kel_queue* queue) {
    return queue ? kel::read_unlocked(queue->size) : UINT32_MAX;
}

uint32_t kel_queue_get_limit(kel_queue* queue) {
    return queue ? queue->limit : UINT32_MAX;
}

int kel_queue_set_node_destructor(kel_queue* queue, kel_queue_node_destructor destructor) {
    if (!queue) return 0;
    kel::write_for_unlocked(queue->node_destructor, destructor);
    return 1;
}

kel_queue_node_destructor kel_queue_get_node_destructor(kel_queue* queue) {
    return queue ? kel::read_unlocked(queue->node_destructor) : nullptr;
}

timespec* ms_to_abs_timespec(timespec* out, int32_t ms) {
    *out = kel::deadline_from_now(ms);
    return out;
}
