/*
 * Two threads and two queues: a producer takes buffers from a pool, fills them and sends them through one
 * queue; a consumer reads them and gives them back. The pool of pixmaps goes the same way as the pool of
 * audio buffers.
 */
#include <kel.h>

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

enum { buffer_count = 3, rounds = 8, queue_limit = 2, timeout_ms = 5000 };

typedef struct road {
    const char* name;
    kel_buffer_pool* pool;
    kel_queue* queue;
    int produced;
    int consumed;
    int damaged;
} road;

/* Waits for a free buffer, writes the round's number into every byte and sends it on. */
static void* produce(void* argument) {
    road* r = argument;
    for (int round = 0; round < rounds; ++round) {
        kel_buffer* buffer = kel_acquire_buffer_wait(r->pool, timeout_ms);
        if (!buffer) break;
        memset(buffer->ptr, round, buffer->size);
        if (!kel_queue_enqueue_with_timeout(r->queue, buffer, timeout_ms)) {
            kel_release_buffer(buffer);
            break;
        }
        ++r->produced;
    }
    kel_queue_close(r->queue); /* what is inside can still be taken; then the consumer sees the end */
    return NULL;
}

/* Takes buffers in the order in which they were sent, checks them and gives them back to the pool. */
static void* consume(void* argument) {
    road* r = argument;
    void* item;
    while (kel_queue_dequeue_with_timeout(r->queue, &item, timeout_ms)) {
        kel_buffer* buffer = item;
        const unsigned char* bytes = buffer->ptr;
        int intact = bytes[0] == r->consumed && bytes[buffer->size - 1] == r->consumed;
        printf("  %s %d came in buffer %td of %" PRId32 ", %" PRIu32 " bytes, %s\n", r->name, r->consumed,
               buffer - r->pool->buffers, r->pool->count, buffer->size, intact ? "intact" : "damaged");
        r->damaged += !intact;
        ++r->consumed;
        kel_release_buffer(buffer);
    }
    return NULL;
}

/* Sends `rounds` buffers of the pool, which it destroys, from one thread to another. Returns 1 when all came.
 */
static int travel(const char* name, kel_buffer_pool* pool) {
    road r = {.name = name, .pool = pool, .queue = kel_queue_create_with_limit(queue_limit)};
    pthread_t producer, consumer;
    int ok = r.pool && r.queue && pthread_create(&producer, NULL, produce, &r) == 0;
    if (ok) {
        ok = pthread_create(&consumer, NULL, consume, &r) == 0;
        if (!ok) kel_queue_close(r.queue);
        pthread_join(producer, NULL);
        if (ok) pthread_join(consumer, NULL);
        printf("%s: %d sent, %d received, %" PRId32 " still out\n\n", name, r.produced, r.consumed,
               pool->in_use);
        ok = ok && r.consumed == rounds && r.damaged == 0 && pool->in_use == 0;
    }
    if (r.queue) kel_queue_destroy(r.queue);
    if (pool) kel_destroy_buffer_pool(&pool);
    return ok;
}

int main(void) {
    const kel_audio_format audio = {.rate = 48000, .channels = 2, .type = KEL_AUDIO_TYPE_S16LE};
    const kel_video_format video = {.format = SCREEN_FORMAT_RGBA8888,
                                    .usage = SCREEN_USAGE_READ | SCREEN_USAGE_WRITE,
                                    .width = 320,
                                    .height = 240};
    if (kel_init() != 0) return 1;
    kel_context* context = kel_create_context();
    int ok = context != NULL;
    if (ok) {
        printf("A pool of %d audio buffers of 1024 frames at %" PRId32 " Hz:\n", buffer_count, audio.rate);
        ok = travel("block", kel_create_audio_buffer_pool(context, &audio, 1024, buffer_count));
        printf("A pool of %d pixmaps of %" PRId32 " x %" PRId32 " pixels:\n", buffer_count, video.width,
               video.height);
        ok = travel("frame", kel_create_pixmap_buffer_pool(context, &video, buffer_count)) && ok;
        kel_destroy_context(&context);
    }
    kel_fini();
    puts(ok ? "Everything arrived, in order and intact." : "Something was lost.");
    return ok ? 0 : 1;
}
