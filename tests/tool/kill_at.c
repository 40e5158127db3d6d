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

/* Logs and pipes do not count. */
static void count_call(int fd) {
    static int calls;
    struct stat status;
    char const* at = getenv("KILL_AT");
    how = 0;
    if (at == NULL || (fd >= 0 && fstat(fd, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)))
        return;
    how = calls++ == atoi(at) ? getenv("KILL_HOW")[0] : 0;
    if (how == 'b')
        kill(getpid(), SIGKILL);
}

static size_t bytes_left(size_t n) {
    return how == 'h' ? n / 2 : n;
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

#define WRAP(type, name, file, parameters, arguments)                                                                  \
    type name parameters {                                                                                             \
        count_call(file);                                                                                              \
        type const result = REAL(name) arguments;                                                                      \
        if (how != 0)                                                                                                  \
            kill(getpid(), SIGKILL);                                                                                   \
        return result;                                                                                                 \
    }

WRAP(ssize_t, write, fd, (int fd, void const* bytes, size_t n), (fd, bytes, bytes_left(n)))
WRAP(ssize_t, sendfile64, out, (int out, int in, off64_t* offset, size_t n), (out, in, offset, bytes_left(n)))
WRAP(int, ftruncate64, fd, (int fd, off64_t size), (fd, size))
WRAP(int, posix_fallocate64, fd, (int fd, off64_t offset, off64_t n), (fd, offset, n))
WRAP(int, fallocate64, fd, (int fd, int mode, off64_t offset, off64_t n), (fd, mode, offset, n))
WRAP(int, fchmod, fd, (int fd, mode_t mode), (fd, mode))
WRAP(int, fsync, fd, (int fd), (fd))
WRAP(int, rename, -1, (char const* from, char const* to), (from, to))
