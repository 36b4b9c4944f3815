/* A fault injector (C linkage throughout) for the end-to-end tests, loaded with LD_PRELOAD into tydbcreate-cli: it makes
 * the program's writes fail as on a full disk, or kills the program (SIGKILL, as kill -9 does) at
 * a chosen write or rename, counting only the files under one folder.
 *
 * Environment:
 *   TY_FAULT_UNDER=<folder/>      only writes to files whose path starts with this, and renames
 *                                 whose source or target does, are counted (required)
 *   TY_FAULT_WRITE_AT=N           the Nth counted write and every later one fail with ENOSPC
 *   TY_FAULT_KILL_AT_WRITE=N      the process kills itself just before the Nth counted write
 *   TY_FAULT_KILL_AT_RENAME=N     ... just before the Nth counted rename
 *   TY_FAULT_COUNT=<file>         at exit, "<writes> <renames>\n" counted is written there
 */
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

extern "C" {

static long writes, renames;

static long Setting(const char* name) {
  const char* v = getenv(name);
  return v && *v ? atol(v) : 0;
}

static int Under(const char* path) {
  const char* under = getenv("TY_FAULT_UNDER");
  if (!under || !*under || !path) return 0;
  if (path[0] == '/') return strncmp(path, under, strlen(under)) == 0;
  char full[PATH_MAX];
  if (!getcwd(full, sizeof full)) return 0;
  size_t n = strlen(full);
  snprintf(full + n, sizeof full - n, "/%s", path);
  return strncmp(full, under, strlen(under)) == 0;
}

static int FdUnder(int fd) {
  char link[64], path[PATH_MAX];
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  ssize_t n = readlink(link, path, sizeof path - 1);
  if (n <= 0) return 0;
  path[n] = '\0';
  return Under(path);
}

/* 0: go on; -1: fail the write with ENOSPC. */
static int CountWrite(int fd) {
  if (!FdUnder(fd)) return 0;
  long n = __atomic_add_fetch(&writes, 1, __ATOMIC_SEQ_CST);
  long kill = Setting("TY_FAULT_KILL_AT_WRITE");
  if (kill > 0 && n >= kill) raise(SIGKILL);
  long fail = Setting("TY_FAULT_WRITE_AT");
  if (fail > 0 && n >= fail) {
    errno = ENOSPC;
    return -1;
  }
  return 0;
}

static void CountRename(const char* from, const char* to) {
  if (!Under(from) && !Under(to)) return;
  long n = __atomic_add_fetch(&renames, 1, __ATOMIC_SEQ_CST);
  long kill = Setting("TY_FAULT_KILL_AT_RENAME");
  if (kill > 0 && n >= kill) raise(SIGKILL);
}

#define NEXT(name) (reinterpret_cast<__typeof__(&name)>(dlsym(RTLD_NEXT, #name)))

ssize_t write(int fd, const void* buf, size_t count) {
  if (CountWrite(fd) < 0) return -1;
  return NEXT(write)(fd, buf, count);
}

ssize_t pwrite(int fd, const void* buf, size_t count, off_t offset) {
  if (CountWrite(fd) < 0) return -1;
  return NEXT(pwrite)(fd, buf, count, offset);
}

ssize_t pwrite64(int fd, const void* buf, size_t count, off_t offset) {
  if (CountWrite(fd) < 0) return -1;
  return NEXT(pwrite64)(fd, buf, count, offset);
}

ssize_t writev(int fd, const struct iovec* iov, int n) {
  if (CountWrite(fd) < 0) return -1;
  return NEXT(writev)(fd, iov, n);
}

int rename(const char* from, const char* to) {
  CountRename(from, to);
  return NEXT(rename)(from, to);
}

int renameat(int a, const char* from, int b, const char* to) {
  CountRename(from, to);
  return NEXT(renameat)(a, from, b, to);
}

int renameat2(int a, const char* from, int b, const char* to, unsigned int flags) {
  CountRename(from, to);
  return NEXT(renameat2)(a, from, b, to, flags);
}

__attribute__((destructor)) static void Report(void) {
  const char* file = getenv("TY_FAULT_COUNT");
  if (!file || !*file) return;
  int fd = open(file, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return;
  char line[64];
  int n = snprintf(line, sizeof line, "%ld %ld\n", writes, renames);
  if (NEXT(write)(fd, line, static_cast<size_t>(n)) < 0) {
  }
  close(fd);
}

}  // extern "C"
