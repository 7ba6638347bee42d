// Preloaded into a program under test: one of its calls of the system fails. The
// environment says which:
//   FAULT_KIND   write, full, close, rename, open, sync, read, storage, fork
//   FAULT_AT     the number of the call that fails, from 1; 0: none
//   FAULT_COUNT  a file that takes the number of calls made, at the end of main
//
//   write    a write to a plain file, beside standard output: nothing is taken, ENOSPC
//   full     as write, but half of the bytes are taken and all later writes fail too
//   close    the closing of a plain file that was open for writing: EIO
//   rename   EACCES
//   open     the opening of a file for writing: EACCES
//   sync     a file or folder brought to the device: EIO
//   read     a read of a plain file: EIO
//   storage  a request of storage: none is given
//   fork     a new process: EAGAIN
// Calls are counted from the start of main on.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

typedef int main_function(int, char**, char**);

static const char* kind = "";
static long at = 0, calls = 0;
static int counting = 0;
static main_function* program_main = NULL;

// The function of this name in the libraries after this one.
static void* next_of(const char* name) { return dlsym(RTLD_NEXT, name); }

static int is(const char* wanted) { return counting && strcmp(kind, wanted) == 0; }
static int fails(void) { return ++calls == at; }
static int fails_on(void) { return ++calls >= at && at > 0; }

static int plain(int fd) {
  struct stat about;
  return fstat(fd, &about) == 0 && S_ISREG(about.st_mode);
}
static int written(int fd) { return plain(fd) && (fcntl(fd, F_GETFL) & O_ACCMODE) != O_RDONLY; }

// ---- files

ssize_t write(int fd, const void* from, size_t n) {
  static ssize_t (*next)(int, const void*, size_t) = NULL;
  if (!next) next = (ssize_t(*)(int, const void*, size_t))next_of("write");
  const int result = fd > 2 && plain(fd);
  if (result && is("write") && fails()) {
    errno = ENOSPC;
    return -1;
  }
  if (result && is("full") && fails_on()) {
    if (calls == at && n > 1) return next(fd, from, n / 2);
    errno = ENOSPC;
    return -1;
  }
  return next(fd, from, n);
}

ssize_t read(int fd, void* to, size_t n) {
  static ssize_t (*next)(int, void*, size_t) = NULL;
  if (!next) next = (ssize_t(*)(int, void*, size_t))next_of("read");
  if (is("read") && plain(fd) && fails()) {
    errno = EIO;
    return -1;
  }
  return next(fd, to, n);
}

int close(int fd) {
  static int (*next)(int) = NULL;
  if (!next) next = (int (*)(int))next_of("close");
  if (is("close") && fd > 2 && written(fd) && fails()) {
    next(fd); // the handle is given back all the same
    errno = EIO;
    return -1;
  }
  return next(fd);
}

int rename(const char* from, const char* to) {
  static int (*next)(const char*, const char*) = NULL;
  if (!next) next = (int (*)(const char*, const char*))next_of("rename");
  if (is("rename") && fails()) {
    errno = EACCES;
    return -1;
  }
  return next(from, to);
}

int fsync(int fd) {
  static int (*next)(int) = NULL;
  if (!next) next = (int (*)(int))next_of("fsync");
  if (is("sync") && fails()) {
    errno = EIO;
    return -1;
  }
  return next(fd);
}

typedef int open_function(const char*, int, ...);

static int open_with(open_function* next, const char* path, int flags, mode_t mode) {
  if (is("open") && (flags & O_ACCMODE) != O_RDONLY && fails()) {
    errno = EACCES;
    return -1;
  }
  return next(path, flags, mode);
}
int open(const char* path, int flags, ...) {
  static open_function* next = NULL;
  if (!next) next = (open_function*)next_of("open");
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = flags & O_CREAT ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return open_with(next, path, flags, mode);
}
int open64(const char* path, int flags, ...) {
  static open_function* next = NULL;
  if (!next) next = (open_function*)next_of("open64");
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = flags & O_CREAT ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return open_with(next, path, flags, mode);
}

// ---- processes

pid_t fork(void) {
  static pid_t (*next)(void) = NULL;
  if (!next) next = (pid_t(*)(void))next_of("fork");
  if (is("fork") && fails()) {
    errno = EAGAIN;
    return -1;
  }
  return next();
}

// ---- storage: the C library's own allocator has second names

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);

static int no_storage(void) {
  if (!is("storage") || !fails()) return 0;
  errno = ENOMEM;
  return 1;
}
void* malloc(size_t n) { return no_storage() ? NULL : __libc_malloc(n); }
void* calloc(size_t count, size_t n) { return no_storage() ? NULL : __libc_calloc(count, n); }
void* realloc(void* old, size_t n) { return no_storage() ? NULL : __libc_realloc(old, n); }
void* memalign(size_t step, size_t n) { return no_storage() ? NULL : __libc_memalign(step, n); }
void* aligned_alloc(size_t step, size_t n) { return memalign(step, n); }
int posix_memalign(void** place, size_t step, size_t n) {
  void* p = memalign(step, n);
  if (p == NULL) return ENOMEM;
  *place = p;
  return 0;
}

// ---- around main

static void note_calls(void) {
  const char* file = getenv("FAULT_COUNT");
  if (file == NULL) return;
  char digits[24];
  size_t n = sizeof digits;
  long rest = calls;
  do digits[--n] = (char)('0' + rest % 10);
  while ((rest /= 10) > 0);
  const int fd = open(file, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (fd < 0 || write(fd, digits + n, sizeof digits - n) < 0) abort();
  close(fd);
}

static int counted_main(int argc, char** argv, char** environment) {
  const char* wanted = getenv("FAULT_KIND");
  const char* number = getenv("FAULT_AT");
  kind = wanted != NULL ? wanted : "";
  at = number != NULL ? atol(number) : 0;
  counting = 1;
  const int code = program_main(argc, argv, environment);
  counting = 0;
  note_calls();
  return code;
}

int __libc_start_main(main_function* entry, int argc, char** argv, void (*init)(void), void (*fini)(void),
                      void (*loader_fini)(void), void* stack_end) {
  typedef int starter(main_function*, int, char**, void (*)(void), void (*)(void), void (*)(void), void*);
  starter* start = (starter*)next_of("__libc_start_main");
  program_main = entry;
  return start(counted_main, argc, argv, init, fini, loader_fini, stack_end);
}
