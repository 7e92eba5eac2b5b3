/*
 * Cuts a process short at a chosen write boundary, as a pulled drive or a power cut would, for the
 * crash harness (tests/support/crash_harness.cpp). Loaded with LD_PRELOAD; inert unless
 * VELMARIN_CRASH_PATH is set:
 *   VELMARIN_CRASH_PATH   substring of the paths watched (the drive's folder)
 *   VELMARIN_CRASH_AT     the boundary to end at, counting from 1; 0 or unset only counts
 *   VELMARIN_CRASH_MODE   "kill": every write, pwrite, fsync, fdatasync, ftruncate on a watched file
 *                         and every rename, link and unlink of one is a boundary, and the process is
 *                         killed before it; "tear": only writes are boundaries, and the process is
 *                         killed after half of the bytes went to the file
 *   VELMARIN_CRASH_COUNT  file where a run that was not cut writes "<boundaries> <writes>"
 *   VELMARIN_CRASH_NO_ROOM  when set, every statvfs answers that no byte is free
 * The kill is SIGKILL: nothing of the process runs after it, as after a real cut. What the process
 * wrote before stays in the system's cache, so this finds every ordering mistake between steps,
 * though not a missing sync (that needs the device itself to lose power).
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#define MAX_DESCRIPTORS 4096

static char g_watched[MAX_DESCRIPTORS];
static long g_boundaries;
static long g_writes;

#define REAL(name, type)                                                                                     \
    static type real = NULL;                                                                                 \
    if (real == NULL)                                                                                        \
    real = (type)dlsym(RTLD_NEXT, name)

static int watches(const char* path)
{
    const char* pattern = getenv("VELMARIN_CRASH_PATH");
    return pattern != NULL && path != NULL && strstr(path, pattern) != NULL;
}

static long cutAt(void)
{
    const char* at = getenv("VELMARIN_CRASH_AT");
    return at != NULL ? atol(at) : 0;
}

static int tears(void)
{
    const char* mode = getenv("VELMARIN_CRASH_MODE");
    return mode != NULL && strcmp(mode, "tear") == 0;
}

static void die(void)
{
    kill(getpid(), SIGKILL);
    for (;;) {
        pause();
    }
}

/* Counts a boundary that is not a write; ends the process before it when it is the chosen one. */
static void boundary(void)
{
    if (tears()) {
        return;
    }
    if (++g_boundaries == cutAt()) {
        die();
    }
}

/* Counts a write; returns how many of its bytes may go to the file before the process ends
 * (the whole count when it is not the chosen one). */
static size_t writeBoundary(size_t count, int* cut)
{
    ++g_writes;
    long number = tears() ? g_writes : ++g_boundaries;
    *cut = number == cutAt();
    if (*cut && tears()) {
        return count / 2;
    }
    if (*cut) {
        die();
    }
    return count;
}

static int isWatched(int fd)
{
    return fd >= 0 && fd < MAX_DESCRIPTORS && g_watched[fd];
}

static void track(int fd, const char* path)
{
    if (fd >= 0 && fd < MAX_DESCRIPTORS) {
        g_watched[fd] = (char)watches(path);
    }
}

__attribute__((destructor)) static void report(void)
{
    const char* file = getenv("VELMARIN_CRASH_COUNT");
    if (file != NULL && getenv("VELMARIN_CRASH_PATH") != NULL) {
        FILE* out = fopen(file, "w");
        if (out != NULL) {
            fprintf(out, "%ld %ld\n", g_boundaries, g_writes);
            fclose(out);
        }
    }
}

typedef int (*OpenFn)(const char*, int, ...);
typedef int (*OpenAtFn)(int, const char*, int, ...);
typedef ssize_t (*WriteFn)(int, const void*, size_t);
typedef ssize_t (*PWriteFn)(int, const void*, size_t, off_t);
typedef int (*FdFn)(int);
typedef int (*TruncateFn)(int, off_t);
typedef int (*PathFn)(const char*);
typedef int (*UnlinkAtFn)(int, const char*, int);
typedef int (*RenameFn)(const char*, const char*);
typedef int (*RenameAtFn)(int, const char*, int, const char*);
typedef int (*RenameAt2Fn)(int, const char*, int, const char*, unsigned int);
typedef int (*LinkAtFn)(int, const char*, int, const char*, int);
typedef int (*StatVfsFn)(const char*, struct statvfs*);
typedef int (*StatVfs64Fn)(const char*, struct statvfs64*);

static mode_t modeOf(int flags, va_list args)
{
    return (flags & (O_CREAT | O_TMPFILE)) ? (mode_t)va_arg(args, int) : 0;
}

#define OPEN_BODY(name, call)                                                                                \
    va_list args;                                                                                            \
    va_start(args, flags);                                                                                   \
    mode_t mode = modeOf(flags, args);                                                                       \
    va_end(args);                                                                                            \
    int fd = call;                                                                                           \
    track(fd, path);                                                                                         \
    return fd

int open(const char* path, int flags, ...)
{
    REAL("open", OpenFn);
    OPEN_BODY("open", real(path, flags, mode));
}

int open64(const char* path, int flags, ...)
{
    REAL("open64", OpenFn);
    OPEN_BODY("open64", real(path, flags, mode));
}

int openat(int dirfd, const char* path, int flags, ...)
{
    REAL("openat", OpenAtFn);
    OPEN_BODY("openat", real(dirfd, path, flags, mode));
}

int openat64(int dirfd, const char* path, int flags, ...)
{
    REAL("openat64", OpenAtFn);
    OPEN_BODY("openat64", real(dirfd, path, flags, mode));
}

int close(int fd)
{
    REAL("close", FdFn);
    if (fd >= 0 && fd < MAX_DESCRIPTORS) {
        g_watched[fd] = 0;
    }
    return real(fd);
}

ssize_t write(int fd, const void* buffer, size_t count)
{
    REAL("write", WriteFn);
    if (!isWatched(fd)) {
        return real(fd, buffer, count);
    }
    int cut = 0;
    size_t allowed = writeBoundary(count, &cut);
    ssize_t done = allowed > 0 ? real(fd, buffer, allowed) : 0;
    if (cut) {
        die();
    }
    return done;
}

static ssize_t positionedWrite(PWriteFn real, int fd, const void* buffer, size_t count, off_t offset)
{
    if (!isWatched(fd)) {
        return real(fd, buffer, count, offset);
    }
    int cut = 0;
    size_t allowed = writeBoundary(count, &cut);
    ssize_t done = allowed > 0 ? real(fd, buffer, allowed, offset) : 0;
    if (cut) {
        die();
    }
    return done;
}

ssize_t pwrite(int fd, const void* buffer, size_t count, off_t offset)
{
    REAL("pwrite", PWriteFn);
    return positionedWrite(real, fd, buffer, count, offset);
}

ssize_t pwrite64(int fd, const void* buffer, size_t count, off_t offset)
{
    REAL("pwrite64", PWriteFn);
    return positionedWrite(real, fd, buffer, count, offset);
}

int fsync(int fd)
{
    REAL("fsync", FdFn);
    if (isWatched(fd)) {
        boundary();
    }
    return real(fd);
}

int fdatasync(int fd)
{
    REAL("fdatasync", FdFn);
    if (isWatched(fd)) {
        boundary();
    }
    return real(fd);
}

int ftruncate(int fd, off_t length)
{
    REAL("ftruncate", TruncateFn);
    if (isWatched(fd)) {
        boundary();
    }
    return real(fd, length);
}

int ftruncate64(int fd, off_t length)
{
    REAL("ftruncate64", TruncateFn);
    if (isWatched(fd)) {
        boundary();
    }
    return real(fd, length);
}

int unlink(const char* path)
{
    REAL("unlink", PathFn);
    if (watches(path)) {
        boundary();
    }
    return real(path);
}

int unlinkat(int dirfd, const char* path, int flags)
{
    REAL("unlinkat", UnlinkAtFn);
    if (watches(path)) {
        boundary();
    }
    return real(dirfd, path, flags);
}

int rename(const char* from, const char* to)
{
    REAL("rename", RenameFn);
    if (watches(from) || watches(to)) {
        boundary();
    }
    return real(from, to);
}

int renameat(int fromDir, const char* from, int toDir, const char* to)
{
    REAL("renameat", RenameAtFn);
    if (watches(from) || watches(to)) {
        boundary();
    }
    return real(fromDir, from, toDir, to);
}

int renameat2(int fromDir, const char* from, int toDir, const char* to, unsigned int flags)
{
    REAL("renameat2", RenameAt2Fn);
    if (watches(from) || watches(to)) {
        boundary();
    }
    return real(fromDir, from, toDir, to, flags);
}

int linkat(int fromDir, const char* from, int toDir, const char* to, int flags)
{
    REAL("linkat", LinkAtFn);
    if (watches(to)) {
        boundary();
    }
    return real(fromDir, from, toDir, to, flags);
}

int statvfs(const char* path, struct statvfs* out)
{
    REAL("statvfs", StatVfsFn);
    int result = real(path, out);
    if (result == 0 && getenv("VELMARIN_CRASH_NO_ROOM") != NULL) {
        out->f_bavail = 0;
        out->f_bfree = 0;
    }
    return result;
}

int statvfs64(const char* path, struct statvfs64* out)
{
    REAL("statvfs64", StatVfs64Fn);
    int result = real(path, out);
    if (result == 0 && getenv("VELMARIN_CRASH_NO_ROOM") != NULL) {
        out->f_bavail = 0;
        out->f_bfree = 0;
    }
    return result;
}
