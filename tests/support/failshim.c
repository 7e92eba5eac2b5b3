/*
 * Failure injection for tests, loaded with LD_PRELOAD. Inert unless VELMARIN_FAIL_PATH is set:
 *   VELMARIN_FAIL_PATH    substring of the paths whose calls fail; a final '$' makes it match only at
 *                         the end of a path (a container, and not the journal beside it)
 *   VELMARIN_FAIL_CALLS   comma list of: open-write, open-read, write, write-once (only the first write
 *                         past the allowance fails, as a passing fault would), read, corrupt, fsync,
 *                         unlink, rename,
 *                         read-only (every open for writing, creation, unlink and rename fails with
 *                         EROFS, as on a drive mounted read-only or with its write switch on)
 *                         ("corrupt" writes every byte inverted, as a failing medium would),
 *                         no-room (every statvfs answers that no byte is free, whatever the path:
 *                         the system asks about the root of a file system, not the path given),
 *                         no-size (every statvfs answers with no blocks at all, as a FUSE mount of
 *                         FAT does: the free space is not told),
 *                         writeback (sync_file_range reports EIO: bytes already written never
 *                         reached the device), writeback-unsupported (sync_file_range answers
 *                         EINVAL, as a file system that cannot do it would)
 *   VELMARIN_FAIL_AFTER   bytes a matching descriptor may write (or read) before "write" ("read")
 *                         fails (default 0)
 * Failures look like a full device (ENOSPC) or a vanished drive (EIO), as the system would report.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#define MAX_DESCRIPTORS 4096

static long long g_written[MAX_DESCRIPTORS];
static long long g_read[MAX_DESCRIPTORS];
static char g_tracked[MAX_DESCRIPTORS];
static int g_failedOnce;

static int fails(const char* call)
{
    const char* calls = getenv("VELMARIN_FAIL_CALLS");
    if (calls == NULL || getenv("VELMARIN_FAIL_PATH") == NULL) {
        return 0;
    }
    size_t length = strlen(call);
    for (const char* at = strstr(calls, call); at != NULL; at = strstr(at + 1, call)) {
        int starts = at == calls || at[-1] == ',';
        int ends = at[length] == '\0' || at[length] == ',';
        if (starts && ends) {
            return 1;
        }
    }
    return 0;
}

static int matches(const char* path)
{
    const char* pattern = getenv("VELMARIN_FAIL_PATH");
    if (pattern == NULL || path == NULL) {
        return 0;
    }
    size_t length = strlen(pattern);
    if (length > 0 && pattern[length - 1] == '$') {
        size_t pathLength = strlen(path);
        return pathLength >= length - 1 && strncmp(path + pathLength - (length - 1), pattern, length - 1) == 0;
    }
    return strstr(path, pattern) != NULL;
}

static void track(int fd, const char* path)
{
    if (fd >= 0 && fd < MAX_DESCRIPTORS) {
        g_tracked[fd] = (char)matches(path);
        g_written[fd] = 0;
        g_read[fd] = 0;
    }
}

typedef int (*OpenFn)(const char*, int, ...);
typedef int (*OpenAtFn)(int, const char*, int, ...);
typedef ssize_t (*WriteFn)(int, const void*, size_t);
typedef ssize_t (*ReadFn)(int, void*, size_t);
typedef int (*FdFn)(int);
typedef int (*SyncRangeFn)(int, off_t, off_t, unsigned int);
typedef int (*PathFn)(const char*);
typedef int (*UnlinkAtFn)(int, const char*, int);
typedef int (*RenameFn)(const char*, const char*);
typedef int (*StatVfsFn)(const char*, struct statvfs*);
typedef int (*StatVfs64Fn)(const char*, struct statvfs64*);
typedef int (*RenameAtFn)(int, const char*, int, const char*);

#define REAL(name, type)                                                                                     \
    static type real = NULL;                                                                                 \
    if (real == NULL)                                                                                        \
    real = (type)dlsym(RTLD_NEXT, name)

static int refuseOpen(const char* path, int flags)
{
    if ((flags & (O_WRONLY | O_RDWR | O_CREAT)) && matches(path) && fails("read-only")) {
        errno = EROFS;
        return 1;
    }
    if ((flags & (O_WRONLY | O_RDWR)) && matches(path) && fails("open-write")) {
        errno = EIO;
        return 1;
    }
    if (!(flags & (O_WRONLY | O_RDWR)) && matches(path) && fails("open-read")) {
        errno = EIO;
        return 1;
    }
    return 0;
}

static mode_t modeOf(int flags, va_list args)
{
    return (flags & (O_CREAT | O_TMPFILE)) ? (mode_t)va_arg(args, int) : 0;
}

int open(const char* path, int flags, ...)
{
    REAL("open", OpenFn);
    va_list args;
    va_start(args, flags);
    mode_t mode = modeOf(flags, args);
    va_end(args);
    if (refuseOpen(path, flags))
        return -1;
    int fd = real(path, flags, mode);
    track(fd, path);
    return fd;
}

int open64(const char* path, int flags, ...)
{
    REAL("open64", OpenFn);
    va_list args;
    va_start(args, flags);
    mode_t mode = modeOf(flags, args);
    va_end(args);
    if (refuseOpen(path, flags))
        return -1;
    int fd = real(path, flags, mode);
    track(fd, path);
    return fd;
}

/* What a fortified build calls when the flags are not known at compile time. */
typedef int (*FortifiedOpenFn)(const char*, int);

int __open_2(const char* path, int flags)
{
    REAL("__open_2", FortifiedOpenFn);
    if (refuseOpen(path, flags))
        return -1;
    int fd = real(path, flags);
    track(fd, path);
    return fd;
}

int __open64_2(const char* path, int flags)
{
    REAL("__open64_2", FortifiedOpenFn);
    if (refuseOpen(path, flags))
        return -1;
    int fd = real(path, flags);
    track(fd, path);
    return fd;
}

int openat(int dirfd, const char* path, int flags, ...)
{
    REAL("openat", OpenAtFn);
    va_list args;
    va_start(args, flags);
    mode_t mode = modeOf(flags, args);
    va_end(args);
    if (refuseOpen(path, flags))
        return -1;
    int fd = real(dirfd, path, flags, mode);
    track(fd, path);
    return fd;
}

int openat64(int dirfd, const char* path, int flags, ...)
{
    REAL("openat64", OpenAtFn);
    va_list args;
    va_start(args, flags);
    mode_t mode = modeOf(flags, args);
    va_end(args);
    if (refuseOpen(path, flags))
        return -1;
    int fd = real(dirfd, path, flags, mode);
    track(fd, path);
    return fd;
}

static int isTracked(int fd)
{
    return fd >= 0 && fd < MAX_DESCRIPTORS && g_tracked[fd];
}

ssize_t write(int fd, const void* buffer, size_t count)
{
    REAL("write", WriteFn);
    if (isTracked(fd) && (fails("write") || (fails("write-once") && !g_failedOnce))) {
        const char* after = getenv("VELMARIN_FAIL_AFTER");
        long long allowed = after ? atoll(after) : 0;
        long long left = allowed - g_written[fd];
        if (left <= 0) {
            g_failedOnce = 1;
            errno = ENOSPC;
            return -1;
        }
        if ((long long)count > left) {
            count = (size_t)left;
        }
    }
    if (isTracked(fd) && fails("corrupt") && count > 0) {
        unsigned char inverted[65536];
        size_t piece = count < sizeof inverted ? count : sizeof inverted;
        for (size_t i = 0; i < piece; ++i) {
            inverted[i] = (unsigned char)~((const unsigned char*)buffer)[i];
        }
        ssize_t written = real(fd, inverted, piece);
        if (written > 0) {
            g_written[fd] += written;
        }
        return written;
    }
    ssize_t done = real(fd, buffer, count);
    if (done > 0 && fd >= 0 && fd < MAX_DESCRIPTORS) {
        g_written[fd] += done;
    }
    return done;
}

ssize_t read(int fd, void* buffer, size_t count)
{
    REAL("read", ReadFn);
    if (isTracked(fd) && fails("read")) {
        const char* after = getenv("VELMARIN_FAIL_AFTER");
        long long left = (after ? atoll(after) : 0) - g_read[fd];
        if (left <= 0) {
            errno = EIO;
            return -1;
        }
        if ((long long)count > left) {
            count = (size_t)left;
        }
    }
    ssize_t done = real(fd, buffer, count);
    if (done > 0 && fd >= 0 && fd < MAX_DESCRIPTORS) {
        g_read[fd] += done;
    }
    return done;
}

int fsync(int fd)
{
    REAL("fsync", FdFn);
    if (isTracked(fd) && fails("fsync")) {
        errno = EIO;
        return -1;
    }
    return real(fd);
}

int fdatasync(int fd)
{
    REAL("fdatasync", FdFn);
    if (isTracked(fd) && fails("fsync")) {
        errno = EIO;
        return -1;
    }
    return real(fd);
}

int sync_file_range(int fd, off_t offset, off_t count, unsigned int flags)
{
    REAL("sync_file_range", SyncRangeFn);
    if (isTracked(fd) && fails("writeback")) {
        errno = EIO;
        return -1;
    }
    if (isTracked(fd) && fails("writeback-unsupported")) {
        errno = EINVAL;
        return -1;
    }
    return real(fd, offset, count, flags);
}

int close(int fd)
{
    REAL("close", FdFn);
    if (fd >= 0 && fd < MAX_DESCRIPTORS) {
        g_tracked[fd] = 0;
        g_written[fd] = 0;
        g_read[fd] = 0;
    }
    return real(fd);
}

int unlink(const char* path)
{
    REAL("unlink", PathFn);
    if (matches(path) && fails("read-only")) {
        errno = EROFS;
        return -1;
    }
    if (matches(path) && fails("unlink")) {
        errno = EBUSY;
        return -1;
    }
    return real(path);
}

int unlinkat(int dirfd, const char* path, int flags)
{
    REAL("unlinkat", UnlinkAtFn);
    if (matches(path) && fails("read-only")) {
        errno = EROFS;
        return -1;
    }
    if (matches(path) && fails("unlink")) {
        errno = EBUSY;
        return -1;
    }
    return real(dirfd, path, flags);
}

int rename(const char* from, const char* to)
{
    REAL("rename", RenameFn);
    if ((matches(from) || matches(to)) && fails("read-only")) {
        errno = EROFS;
        return -1;
    }
    if ((matches(from) || matches(to)) && fails("rename")) {
        errno = EIO;
        return -1;
    }
    return real(from, to);
}

int renameat(int fromDir, const char* from, int toDir, const char* to)
{
    REAL("renameat", RenameAtFn);
    if ((matches(from) || matches(to)) && fails("read-only")) {
        errno = EROFS;
        return -1;
    }
    if ((matches(from) || matches(to)) && fails("rename")) {
        errno = EIO;
        return -1;
    }
    return real(fromDir, from, toDir, to);
}

int statvfs(const char* path, struct statvfs* out)
{
    REAL("statvfs", StatVfsFn);
    int result = real(path, out);
    if (result == 0 && fails("no-room")) {
        out->f_bavail = 0;
        out->f_bfree = 0;
    }
    if (result == 0 && fails("no-size")) {
        out->f_blocks = 0;
        out->f_bavail = 0;
        out->f_bfree = 0;
    }
    return result;
}

int statvfs64(const char* path, struct statvfs64* out)
{
    REAL("statvfs64", StatVfs64Fn);
    int result = real(path, out);
    if (result == 0 && fails("no-room")) {
        out->f_bavail = 0;
        out->f_bfree = 0;
    }
    if (result == 0 && fails("no-size")) {
        out->f_blocks = 0;
        out->f_bavail = 0;
        out->f_bfree = 0;
    }
    return result;
}
