/* SPDX-License-Identifier: Apache-2.0 */
/* Preloaded into the tool: ends the process by KILL_SIGNAL at its call number KILL_AT (from 0) that changes a file,
 * KILL_HOW "before" it, "after" it, or when "half" of its bytes are written; with KILL_NAMED there are no files without
 * a name. Without KILL_AT nothing happens. Its call number READ_FAILS that reads at a place fails. */
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

static int how; /* 'b', 'h' or 'a' when this call is the one */

/* A signal that the tool holds back for now lets it go on, once the thread that waits for signals has taken it. */
static void end(void) {
    sigset_t pending;
    kill(getpid(), atoi(getenv("KILL_SIGNAL")));
    do {
        usleep(20000);
        sigpending(&pending);
    } while (!sigisemptyset(&pending));
}

/* Logs and pipes do not count. */
static void count_call(int fd) {
    static int calls;
    struct stat status;
    char const* at = getenv("KILL_AT");
    how = 0;
    if (at == NULL || (fd >= 0 && fstat(fd, &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)))
        return;
    how = calls++ == atoi(at) ? getenv("KILL_HOW")[0] : 0;
    if (how == 'b') {
        end();
        how = 0;
    }
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
            end();                                                                                                     \
        return result;                                                                                                 \
    }

WRAP(ssize_t, write, fd, (int fd, void const* bytes, size_t n), (fd, bytes, bytes_left(n)))
WRAP(ssize_t, sendfile64, out, (int out, int in, off64_t* offset, size_t n), (out, in, offset, bytes_left(n)))
WRAP(int, ftruncate64, fd, (int fd, off64_t size), (fd, size))
WRAP(int, posix_fallocate64, fd, (int fd, off64_t offset, off64_t n), (fd, offset, n))
WRAP(int, fallocate64, fd, (int fd, int mode, off64_t offset, off64_t n), (fd, mode, offset, n))
WRAP(int, fchmod, fd, (int fd, mode_t mode), (fd, mode))
WRAP(int, fsync, fd, (int fd), (fd))
WRAP(ssize_t, pwrite64, fd, (int fd, void const* bytes, size_t n, off64_t at), (fd, bytes, bytes_left(n), at))
WRAP(ssize_t, copy_file_range, out, (int in, off64_t* from, int out, off64_t* to, size_t n, unsigned flags),
     (in, from, out, to, bytes_left(n), flags))
WRAP(int, linkat, -1, (int from, char const* name, int to, char const* other, int flags),
     (from, name, to, other, flags))
WRAP(int, renameat2, -1, (int from, char const* name, int to, char const* other, unsigned flags),
     (from, name, to, other, flags))
WRAP(int, rename, -1, (char const* from, char const* to), (from, to))

ssize_t pread64(int fd, void* bytes, size_t n, off64_t at) {
    static int calls;
    char const* failing = getenv("READ_FAILS");
    if (failing == NULL || calls++ != atoi(failing))
        return REAL(pread64)(fd, bytes, n, at);
    errno = EIO;
    return -1;
}

int open64(char const* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    mode_t const mode = va_arg(rest, mode_t);
    va_end(rest);
    if ((flags & O_TMPFILE) == O_TMPFILE && getenv("KILL_NAMED") != NULL) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return REAL(open64)(path, flags, mode);
}
