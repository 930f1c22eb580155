/* A layer under the file calls of this program: each of them can fail, do the half, or be the last that the process
 * makes, and it is known what of a file a stop of the machine would leave. */
#ifndef TESTS_CONFIG_FILE_CALLS_H
#define TESTS_CONFIG_FILE_CALLS_H

#include <sys/stat.h>

#include <cstddef>
#include <iterator>

/** What happens to one of the calls that the journal makes. */
struct fault_t {
    enum class kind_t { none, fails, dies, dies_after };
    kind_t kind = kind_t::none;
    int left = 0; /* calls until then */

    bool is_now(kind_t wanted) { return kind == wanted && left == 0; }
};
extern fault_t fault;

/** How much of each file a sync has brought to the disk, as it would be found by a machine that stopped. The processes
 * of a test share it. */
struct disk_t {
    struct file_t {
        ino_t inode;
        off_t bytes;
    } files[512];
    size_t count;
    bool has_lost_name; /* a file was renamed, and its directory not synced since */

    void note(int fd, bool is_new) {
        struct stat status {};
        if (fd < 0 || fstat(fd, &status) != 0 || count == std::size(files)) return;
        has_lost_name = has_lost_name && !S_ISDIR(status.st_mode);
        files[count++] = {status.st_ino, is_new ? 0 : status.st_size};
    }
    off_t bytes_of(ino_t inode) const {
        for (size_t i = count; i-- > 0;) {
            if (files[i].inode == inode) return files[i].bytes;
        }
        return 0;
    }
};
extern disk_t &disk;

/** The platform's own, for the test itself. */
ssize_t real_write(int fd, const void *bytes, size_t size) asm("__real_write");

#endif
