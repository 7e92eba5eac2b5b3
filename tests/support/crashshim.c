/*
 * Cuts a process short at a chosen write boundary, as a pulled drive or a power cut would, for the
 * crash harness (tests/support/crash_harness.cpp). Loaded with LD_PRELOAD; inert unless
 * VELMARIN_CRASH_PATH is set:
 *   VELMARIN_CRASH_PATH   substring of the paths watched (the drive's folder)
 *   VELMARIN_CRASH_AT     the boundary to end at, counting from 1; 0 or unset only counts
 *   VELMARIN_CRASH_MODE   "kill": every write, pwrite, fsync, fdatasync, ftruncate on a watched file
 *                         and every rename, link and unlink of one is a boundary, and the process is
 *                         killed before it; "tear": only writes are boundaries, and the process is
 *                         killed after half of the bytes went to the file; "lose": the boundaries
 *                         of "kill", and before the kill every write to a file that no fsync or
 *                         fdatasync of that file has covered yet is undone, as a device losing
 *                         power loses what it had only in its cache; "reorder": the same, except
 *                         that the newest of those writes is kept, as a device that wrote its
 *                         cache out of order; "tear-reorder": the boundaries of "tear", and the torn
 *                         write is the one kept
 *   VELMARIN_CRASH_COUNT  file where a run that was not cut writes "<boundaries> <writes>"
 *   VELMARIN_CRASH_AT_EXIT  with "lose" or "reorder", undo what no sync covered when the process ends
 *                         normally, as a power cut right after it reported success would
 *   VELMARIN_CRASH_NO_ROOM  when set, every statvfs answers that no byte is free
 * The kill is SIGKILL: nothing of the process runs after it, as after a real cut. "kill" and "tear"
 * leave what the process wrote in the system's cache and so find ordering mistakes between steps;
 * "lose" finds a missing sync. It takes creating, renaming and removing files as durable at once
 * (data moves with a renamed file; a removed one is forgotten), so it does not judge folder syncs.
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
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#define MAX_DESCRIPTORS 4096

static char g_watched[MAX_DESCRIPTORS];
static char* g_paths[MAX_DESCRIPTORS];
static long g_boundaries;
static long g_writes;

/* For "lose": what a watched file held before each write no sync has covered yet, newest first. */
struct Undo
{
    char* path;
    off_t offset;
    char* old;
    size_t length;
    off_t oldSize;
    struct Undo* next;
};
static struct Undo* g_undo;

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

static int modeIs(const char* first, const char* second)
{
    const char* mode = getenv("VELMARIN_CRASH_MODE");
    return mode != NULL && (strcmp(mode, first) == 0 || strcmp(mode, second) == 0);
}

static int tears(void)
{
    return modeIs("tear", "tear-reorder");
}

static int reorders(void)
{
    return modeIs("reorder", "tear-reorder");
}

static int loses(void)
{
    return modeIs("lose", "lose") || reorders();
}

static int openPlain(const char* path, int flags)
{
    typedef int (*PlainOpenFn)(const char*, int, ...);
    static PlainOpenFn real = NULL;
    if (real == NULL)
        real = (PlainOpenFn)dlsym(RTLD_NEXT, "open");
    return real(path, flags, 0);
}

/* Keeps the bytes [offset, offset + length) of path and its size as they are now. */
static void remember(const char* path, off_t offset, size_t length)
{
    if (!loses() || path == NULL) {
        return;
    }
    int fd = openPlain(path, O_RDONLY | O_CLOEXEC);
    struct stat info;
    if (fd < 0) {
        return;
    }
    if (fstat(fd, &info) != 0) {
        close(fd);
        return;
    }
    struct Undo* undo = calloc(1, sizeof *undo);
    size_t covered = 0;
    if (offset < info.st_size) {
        off_t left = info.st_size - offset;
        covered = (off_t)length < left ? length : (size_t)left;
    }
    undo->path = strdup(path);
    undo->offset = offset;
    undo->oldSize = info.st_size;
    undo->old = malloc(covered > 0 ? covered : 1);
    ssize_t read = covered > 0 ? pread(fd, undo->old, covered, offset) : 0;
    undo->length = read > 0 ? (size_t)read : 0;
    close(fd);
    undo->next = g_undo;
    g_undo = undo;
}

/* Drops what is kept for path (synced or removed); with renamedTo, the data moves with the file. */
static void forget(const char* path, const char* renamedTo)
{
    for (struct Undo** at = &g_undo; *at != NULL;) {
        struct Undo* undo = *at;
        if (path == NULL || strcmp(undo->path, path) != 0) {
            at = &undo->next;
        } else if (renamedTo != NULL) {
            free(undo->path);
            undo->path = strdup(renamedTo);
            at = &undo->next;
        } else {
            *at = undo->next;
            free(undo->path);
            free(undo->old);
            free(undo);
        }
    }
}

static void renamed(const char* from, const char* to)
{
    if (loses()) {
        forget(to, NULL);
        forget(from, to);
    }
}

/* Puts every watched file back as the last sync left it, newest change first. */
static void rollBack(void)
{
    struct Undo* first = reorders() && g_undo != NULL ? g_undo->next : g_undo;
    for (struct Undo* undo = first; undo != NULL; undo = undo->next) {
        int fd = openPlain(undo->path, O_WRONLY | O_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        if (undo->length > 0 && pwrite(fd, undo->old, undo->length, undo->offset) < 0) {
            perror("crashshim");
        }
        if (ftruncate(fd, undo->oldSize) != 0) {
            perror("crashshim");
        }
        close(fd);
    }
}

static void die(void)
{
    if (loses()) {
        rollBack();
    }
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
        free(g_paths[fd]);
        g_paths[fd] = g_watched[fd] ? strdup(path) : NULL;
    }
}

__attribute__((destructor)) static void report(void)
{
    // The power goes right after the process said it was done: what it said must hold.
    if (loses() && getenv("VELMARIN_CRASH_AT_EXIT") != NULL) {
        rollBack();
    }
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

/* A truncating open undoes like a write of the whole file; the descriptor is watched from then on. */
#define TRACKED_OPEN(call)                                                                                   \
    if ((flags & O_TRUNC) && watches(path)) {                                                                \
        remember(path, 0, (size_t)-1);                                                                       \
    }                                                                                                        \
    int fd = call;                                                                                           \
    track(fd, path);                                                                                         \
    return fd

#define OPEN_BODY(name, call)                                                                                \
    va_list args;                                                                                            \
    va_start(args, flags);                                                                                   \
    mode_t mode = modeOf(flags, args);                                                                       \
    va_end(args);                                                                                            \
    TRACKED_OPEN(call)

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

/* What a fortified build calls for open(path, flags) when flags are not known at compile time. */
typedef int (*Open2Fn)(const char*, int);
typedef int (*OpenAt2Fn)(int, const char*, int);

int __open_2(const char* path, int flags)
{
    REAL("__open_2", Open2Fn);
    TRACKED_OPEN(real(path, flags));
}

int __open64_2(const char* path, int flags)
{
    REAL("__open64_2", Open2Fn);
    TRACKED_OPEN(real(path, flags));
}

int __openat_2(int dirfd, const char* path, int flags)
{
    REAL("__openat_2", OpenAt2Fn);
    TRACKED_OPEN(real(dirfd, path, flags));
}

int __openat64_2(int dirfd, const char* path, int flags)
{
    REAL("__openat64_2", OpenAt2Fn);
    TRACKED_OPEN(real(dirfd, path, flags));
}

int close(int fd)
{
    REAL("close", FdFn);
    if (fd >= 0 && fd < MAX_DESCRIPTORS) {
        g_watched[fd] = 0;
        free(g_paths[fd]);
        g_paths[fd] = NULL;
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
    remember(g_paths[fd], lseek(fd, 0, SEEK_CUR), allowed);
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
    remember(g_paths[fd], offset, allowed);
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
        forget(g_paths[fd], NULL);
    }
    return real(fd);
}

int fdatasync(int fd)
{
    REAL("fdatasync", FdFn);
    if (isWatched(fd)) {
        boundary();
        forget(g_paths[fd], NULL);
    }
    return real(fd);
}

int ftruncate(int fd, off_t length)
{
    REAL("ftruncate", TruncateFn);
    if (isWatched(fd)) {
        boundary();
        remember(g_paths[fd], length, (size_t)-1);
    }
    return real(fd, length);
}

int ftruncate64(int fd, off_t length)
{
    REAL("ftruncate64", TruncateFn);
    if (isWatched(fd)) {
        boundary();
        remember(g_paths[fd], length, (size_t)-1);
    }
    return real(fd, length);
}

int unlink(const char* path)
{
    REAL("unlink", PathFn);
    if (watches(path)) {
        boundary();
        forget(path, NULL);
    }
    return real(path);
}

int unlinkat(int dirfd, const char* path, int flags)
{
    REAL("unlinkat", UnlinkAtFn);
    if (watches(path)) {
        boundary();
        forget(path, NULL);
    }
    return real(dirfd, path, flags);
}

int rename(const char* from, const char* to)
{
    REAL("rename", RenameFn);
    if (watches(from) || watches(to)) {
        boundary();
        renamed(from, to);
    }
    return real(from, to);
}

int renameat(int fromDir, const char* from, int toDir, const char* to)
{
    REAL("renameat", RenameAtFn);
    if (watches(from) || watches(to)) {
        boundary();
        renamed(from, to);
    }
    return real(fromDir, from, toDir, to);
}

int renameat2(int fromDir, const char* from, int toDir, const char* to, unsigned int flags)
{
    REAL("renameat2", RenameAt2Fn);
    if (watches(from) || watches(to)) {
        boundary();
        renamed(from, to);
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
