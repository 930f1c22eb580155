#include "host/messaging/shm/bell.h"

#include <fcntl.h>
#include <sys/eventfd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

descriptor_t shm_bell_make() {
    return descriptor_t(eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC));
}

/* The kernel lists the field eventfd-count in the fdinfo file of an eventfd only. */
bool shm_bell_is_sound(const descriptor_t &bell) {
    char path[40];
    snprintf(path, sizeof(path), "/proc/self/fdinfo/%d", bell.get());
    const descriptor_t info(open(path, O_RDONLY | O_CLOEXEC));
    char text[512];
    const ssize_t length = info.is_open() ? read(info.get(), text, sizeof(text) - 1) : -1;
    if (length <= 0) return false;
    text[length] = '\0';
    constexpr char field[] = "\neventfd-count:";
    const char *found = strstr(text, field);
    return found != nullptr && strtoull(found + sizeof(field) - 1, nullptr, 16) == 1;
}

void shm_bell_ring(const descriptor_t &bell) {
    eventfd_write(bell.get(), 0);
}
