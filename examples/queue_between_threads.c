/*
 * A producer thread acquires buffers from a pool, fills them and sends them through a queue; a consumer thread
 * checks them and releases them back to the pool. First with audio buffers, then with video frames.
 */
#include <kel.h>

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

enum { buffer_count = 3, rounds = 8, queue_limit = 2, timeout_ms = 5000 };

typedef struct transfer {
    const char* name;
    kel_buffer_pool* pool;
    kel_queue* queue;
    int produced;
    int consumed;
    int damaged;
} transfer;

/* Waits for a free buffer, writes the round's number into every byte and queues it. */
static void* produce(void* argument) {
    transfer* t = argument;
    for (int round = 0; round < rounds; ++round) {
        kel_buffer* buffer = kel_acquire_buffer_wait(t->pool, timeout_ms);
        if (!buffer) break;
        memset(buffer->ptr, round, buffer->size);
        if (!kel_queue_enqueue_with_timeout(t->queue, buffer, timeout_ms)) {
            kel_release_buffer(buffer);
            break;
        }
        ++t->produced;
    }
    kel_queue_close(t->queue); /* queued buffers can still be taken; then the consumer's dequeue fails */
    return NULL;
}

/* Takes buffers in the order they were sent, checks them and releases them. */
static void* consume(void* argument) {
    transfer* t = argument;
    void* item;
    while (kel_queue_dequeue_with_timeout(t->queue, &item, timeout_ms)) {
        kel_buffer* buffer = item;
        const unsigned char* bytes = buffer->ptr;
        int intact = bytes[0] == t->consumed && bytes[buffer->size - 1] == t->consumed;
        printf("  %s %d arrived in buffer %td of %" PRId32 ", %" PRIu32 " bytes, %s\n", t->name, t->consumed,
               buffer - t->pool->buffers, t->pool->count, buffer->size, intact ? "intact" : "damaged");
        t->damaged += !intact;
        ++t->consumed;
        kel_release_buffer(buffer);
    }
    return NULL;
}

/* Sends `rounds` buffers from one thread to another, then destroys the pool. Returns 1 when all arrived intact. */
static int transfer_all(const char* name, kel_buffer_pool* pool) {
    transfer t = {.name = name, .pool = pool, .queue = kel_queue_create_with_limit(queue_limit)};
    pthread_t producer, consumer;
    int ok = t.pool && t.queue && pthread_create(&producer, NULL, produce, &t) == 0;
    if (ok) {
        ok = pthread_create(&consumer, NULL, consume, &t) == 0;
        if (!ok) kel_queue_close(t.queue);
        pthread_join(producer, NULL);
        if (ok) pthread_join(consumer, NULL);
        printf("%s: %d sent, %d received, %" PRId32 " still in use\n\n", name, t.produced, t.consumed,
               pool->in_use);
        ok = ok && t.consumed == rounds && t.damaged == 0 && pool->in_use == 0;
    }
    if (t.queue) kel_queue_destroy(t.queue);
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
        ok = transfer_all("block", kel_create_audio_buffer_pool(context, &audio, 1024, buffer_count));
        printf("A pool of %d pixmaps of %" PRId32 " x %" PRId32 " pixels:\n", buffer_count, video.width,
               video.height);
        ok = transfer_all("frame", kel_create_pixmap_buffer_pool(context, &video, buffer_count)) && ok;
        kel_destroy_context(&context);
    }
    kel_fini();
    puts(ok ? "Everything arrived, in order and intact." : "Something was lost.");
    return ok ? 0 : 1;
}
