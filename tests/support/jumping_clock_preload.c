/* The executable's side of jumping_clock.h. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <threads.h>
#include <time.h>
#include <unistd.h>

static const int64_t* volatile shift_s;

static int64_t shift(void) {
  return shift_s == NULL ? 0 : __atomic_load_n(shift_s, __ATOMIC_RELAXED);
}

__attribute__((constructor)) static void map_shift(void) {
  const char* path = getenv("JUMPING_CLOCK");
  const int file = path == NULL ? -1 : open(path, O_RDONLY | O_CLOEXEC);
  void* mapped = mmap(NULL, sizeof(int64_t), PROT_READ, MAP_SHARED, file, 0);
  if (mapped == MAP_FAILED) abort();
  shift_s = mapped;
  close(file);
}

int clock_gettime(clockid_t clock, struct timespec* now) {
  const long result = syscall(SYS_clock_gettime, clock, now);
  if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) now->tv_sec += shift();
  return (int)result;
}

int gettimeofday(struct timeval* restrict now, void* restrict zone) {
  (void)zone;
  struct timespec precise;
  clock_gettime(CLOCK_REALTIME, &precise);
  now->tv_sec = precise.tv_sec;
  now->tv_usec = precise.tv_nsec / 1000;
  return 0;
}

int timespec_get(struct timespec* now, int base) {
  if (base == TIME_UTC) clock_gettime(CLOCK_REALTIME, now);
  return base == TIME_UTC ? base : 0;
}

static const int64_t second_ns = 1000000000;

static int64_t to_ns(const struct timespec* time) {
  return time->tv_sec * second_ns + time->tv_nsec;
}

/* Until a time of the wall clock, whatever becomes of that clock meanwhile: in slices, after each of
 * which it is looked at again. A wake-up between two slices is not missed, because the waiter holds
 * the mutex there. */
static int wait_until(int (*wait)(void*, void*, const struct timespec*), int timed_out,
                      void* condition, void* mutex, const struct timespec* until) {
  for (;;) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t left_ns = to_ns(until) - to_ns(&now);
    if (left_ns <= 0) return timed_out;
    const int64_t end_ns = to_ns(&now) + (left_ns < 20000000 ? left_ns : 20000000);
    const struct timespec slice = {end_ns / second_ns - shift(), end_ns % second_ns};
    const int result = wait(condition, mutex, &slice);
    if (result != timed_out) return result;
  }
}

typedef int (*wait_function)(void*, void*, const struct timespec*);

int cnd_timedwait(cnd_t* restrict condition, mtx_t* restrict mutex,
                  const struct timespec* restrict until) {
  static wait_function original;
  if (original == NULL) *(void**)&original = dlsym(RTLD_NEXT, "cnd_timedwait");
  return wait_until(original, thrd_timedout, condition, mutex, until);
}

int pthread_cond_timedwait(pthread_cond_t* restrict condition, pthread_mutex_t* restrict mutex,
                           const struct timespec* restrict until) {
  static wait_function original;
  if (original == NULL) *(void**)&original = dlsym(RTLD_NEXT, "pthread_cond_timedwait");
  /* The clock is the condition's own secret. No machine is up for thirty years. */
  if (until->tv_sec < 1000000000) return original(condition, mutex, until);
  return wait_until(original, ETIMEDOUT, condition, mutex, until);
}
