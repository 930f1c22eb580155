/*
 * The closer thread and its queue. The thread starts when a descriptor is queued and ends when the queue is empty. A
 * forked child starts with an empty queue, because it has no copy of its parent's thread.
 */
#include "host/loop/closer.h"

#include <pthread.h>
#include <sys/socket.h>

#include <csignal>

#include "host/runtime/process.h"

namespace {

constexpr size_t most_waiting = 2048;
constexpr size_t full_at = 512; /* stops new clients only; the rest is for descriptors of clients accepted before */

/* Never destroyed, as the thread may outlive static objects. */
struct {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    uint32_t process = 0; /* the process that queued the descriptors */
    bool is_running = false;
    size_t count = 0;
    int waiting[most_waiting] = {};
} closer;

/** Returns -1 when the queue is empty; the thread then counts as ended. */
int take_one() {
    pthread_mutex_lock(&closer.lock);
    closer.is_running = closer.count > 0;
    const int fd = closer.is_running ? closer.waiting[--closer.count] : -1;
    pthread_mutex_unlock(&closer.lock);
    return fd;
}

void *close_all(void *) {
    for (int fd = take_one(); fd >= 0; fd = take_one()) {
        const linger at_once = {0, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once)); /* if it is a socket */
        close(fd);
    }
    return nullptr;
}

/** Returns false when no thread can be created. The next closer_take() or closer_is_full() then tries again. */
bool start() {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); /* the program's own threads handle its signals */
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    const bool is_started = pthread_create(&thread, &attributes, close_all, nullptr) == 0;
    pthread_attr_destroy(&attributes);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return is_started;
}

/** Resets the queue in a forked child, which has neither its parent's thread nor anything to close for it. */
void enter() {
    if (closer.process == host_process()) return;
    closer.lock = PTHREAD_MUTEX_INITIALIZER;
    closer.process = host_process();
    closer.is_running = false;
    closer.count = 0;
}

}  // namespace

void closer_take(descriptor_t descriptor) {
    if (!descriptor.is_open()) return;
    enter();
    pthread_mutex_lock(&closer.lock);
    if (closer.count < most_waiting) closer.waiting[closer.count++] = descriptor.release();
    if (!closer.is_running) closer.is_running = start();
    pthread_mutex_unlock(&closer.lock);
}

bool closer_is_full() {
    enter();
    pthread_mutex_lock(&closer.lock);
    const bool is_full = closer.count >= full_at;
    if (is_full && !closer.is_running) closer.is_running = start();
    pthread_mutex_unlock(&closer.lock);
    return is_full;
}
