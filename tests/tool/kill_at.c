/* Preloaded into the tool: kills the process at its call number KILL_AT (from 0) that changes a file, KILL_HOW "before"
 * it, "after" it, or when "half" of its bytes are written. Without KILL_AT nothing happens. */
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

static int how; /* 'b', 'h' or 'a' when this call is the one */

static void count_call(void) {
    static int calls;
    char const* at = getenv("KILL_AT");
    how = at != NULL && calls++ == atoi(at) ? getenv("KILL_HOW")[0] : 0;
    if (how == 'b')
        kill(getpid(), SIGKILL);
}

static size_t bytes_left(size_t n) {
    return how == 'h' ? n / 2 : n;
}

static int is_file(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

#define AFTER(result)                                                                                                  \
    do {                                                                                                               \
        if (how != 0)                                                                                                  \
            kill(getpid(), SIGKILL);                                                                                   \
        return result;                                                                                                 \
    } while (0)

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

ssize_t write(int fd, void const* bytes, size_t n) {
    if (!is_file(fd))
        return REAL(write)(fd, bytes, n);
    count_call();
    ssize_t const result = REAL(write)(fd, bytes, bytes_left(n));
    AFTER(result);
}

ssize_t sendfile64(int out, int in, off64_t* offset, size_t n) {
    count_call();
    ssize_t const result = REAL(sendfile64)(out, in, offset, bytes_left(n));
    AFTER(result);
}

int ftruncate64(int fd, off64_t size) {
    count_call();
    int const result = REAL(ftruncate64)(fd, size);
    AFTER(result);
}

int posix_fallocate64(int fd, off64_t offset, off64_t n) {
    count_call();
    int const result = REAL(posix_fallocate64)(fd, offset, n);
    AFTER(result);
}

int fallocate64(int fd, int mode, off64_t offset, off64_t n) {
    count_call();
    int const result = REAL(fallocate64)(fd, mode, offset, n);
    AFTER(result);
}

int fchmod(int fd, mode_t mode) {
    count_call();
    int const result = REAL(fchmod)(fd, mode);
    AFTER(result);
}

int fsync(int fd) {
    count_call();
    int const result = REAL(fsync)(fd);
    AFTER(result);
}

int rename(char const* from, char const* to) {
    count_call();
    int const result = REAL(rename)(from, to);
    AFTER(result);
}
