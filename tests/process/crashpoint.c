/*
 * Crash points for the storage crash test, preloaded into the service
 * (LD_PRELOAD); never linked into a program.
 *
 * Counts the calls that make a file write durable: write() to a regular file,
 * fsync() and rename(). With V2X_CRASH_AT=N the process kills itself with
 * SIGKILL at the Nth such call, before the call is carried out. With
 * V2X_CRASH_COUNT=PATH the number of calls is written to PATH when the process
 * exits normally.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

static atomic_long g_calls;
static long g_crashAt;
static ssize_t (*g_write)(int, const void*, size_t);
static int (*g_fsync)(int);
static int (*g_rename)(const char*, const char*);

__attribute__((constructor)) static void crashpointInit(void) {
  g_write = (ssize_t(*)(int, const void*, size_t))dlsym(RTLD_NEXT, "write");
  g_fsync = (int (*)(int))dlsym(RTLD_NEXT, "fsync");
  g_rename = (int (*)(const char*, const char*))dlsym(RTLD_NEXT, "rename");
  const char* at = getenv("V2X_CRASH_AT");
  g_crashAt = at != NULL ? strtol(at, NULL, 10) : 0;
}

static void crashPoint(void) {
  if (atomic_fetch_add(&g_calls, 1) + 1 == g_crashAt) {
    kill(getpid(), SIGKILL);
    for (;;) pause();
  }
}

ssize_t write(int fd, const void* buf, size_t len) {
  struct stat st;
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) crashPoint();
  return g_write(fd, buf, len);
}

int fsync(int fd) {
  crashPoint();
  return g_fsync(fd);
}

int rename(const char* from, const char* to) {
  crashPoint();
  return g_rename(from, to);
}

__attribute__((destructor)) static void crashpointReport(void) {
  const char* path = getenv("V2X_CRASH_COUNT");
  if (path == NULL) return;
  const long calls = atomic_load(&g_calls);
  g_crashAt = 0; /* the report's own write is no crash point */
  FILE* f = fopen(path, "w");
  if (f == NULL) return;
  fprintf(f, "%ld\n", calls);
  fclose(f);
}
