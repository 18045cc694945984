/* C11 threads on top of pthreads, for the thread sanitizer's builds alone.
 *
 * The sanitizer knows threads, mutexes and conditions by the pthread calls it intercepts. The C
 * library's thrd_, mtx_ and cnd_ calls reach the same machinery inside it without passing those
 * calls, so a library that uses them runs threads the sanitizer never heard of, and crashes it.
 * Linked into an executable, these definitions come before the C library's for shared libraries too.
 */
#include <errno.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <threads.h>

_Static_assert(sizeof(mtx_t) >= sizeof(pthread_mutex_t), "a mutex fits");
_Static_assert(sizeof(cnd_t) >= sizeof(pthread_cond_t), "a condition fits");
_Static_assert(sizeof(thrd_t) == sizeof(pthread_t), "a handle fits");

/* The library itself is not instrumented: its atomic reference counts go unseen, and what they order
 * looks like a race. Only reports with a frame of the library are dropped; of our own code that is
 * the few lines of its callbacks. */
const char* __tsan_default_suppressions(void);
const char* __tsan_default_suppressions(void) { return "race:librdkafka.so\n"; }

static int status(int error) {
  switch (error) {
    case 0:
      return thrd_success;
    case EBUSY:
      return thrd_busy;
    case ENOMEM:
      return thrd_nomem;
    case ETIMEDOUT:
      return thrd_timedout;
    default:
      return thrd_error;
  }
}

static pthread_mutex_t* mutex(mtx_t* m) { return (pthread_mutex_t*)m; }
static pthread_cond_t* condition(cnd_t* c) { return (pthread_cond_t*)c; }

struct start {
  thrd_start_t function;
  void* argument;
};

static void* run(void* memory) {
  const struct start start = *(struct start*)memory;
  free(memory);
  return (void*)(intptr_t)start.function(start.argument);
}

int thrd_create(thrd_t* thread, thrd_start_t function, void* argument) {
  struct start* start = malloc(sizeof *start);
  if (start == NULL) return thrd_nomem;
  start->function = function;
  start->argument = argument;
  const int error = pthread_create((pthread_t*)thread, NULL, run, start);
  if (error != 0) free(start);
  return status(error);
}

int thrd_join(thrd_t thread, int* result) {
  void* value = NULL;
  const int error = pthread_join((pthread_t)thread, &value);
  if (result != NULL) *result = (int)(intptr_t)value;
  return status(error);
}

int thrd_detach(thrd_t thread) { return status(pthread_detach((pthread_t)thread)); }
thrd_t thrd_current(void) { return (thrd_t)pthread_self(); }

int mtx_init(mtx_t* m, int type) {
  pthread_mutexattr_t attribute;
  pthread_mutexattr_init(&attribute);
  if (type & mtx_recursive) pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_RECURSIVE);
  const int error = pthread_mutex_init(mutex(m), &attribute);
  pthread_mutexattr_destroy(&attribute);
  return status(error);
}

void mtx_destroy(mtx_t* m) { pthread_mutex_destroy(mutex(m)); }
int mtx_lock(mtx_t* m) { return status(pthread_mutex_lock(mutex(m))); }
int mtx_trylock(mtx_t* m) { return status(pthread_mutex_trylock(mutex(m))); }
int mtx_unlock(mtx_t* m) { return status(pthread_mutex_unlock(mutex(m))); }
int mtx_timedlock(mtx_t* m, const struct timespec* until) {
  return status(pthread_mutex_timedlock(mutex(m), until));
}

int cnd_init(cnd_t* c) { return status(pthread_cond_init(condition(c), NULL)); }
void cnd_destroy(cnd_t* c) { pthread_cond_destroy(condition(c)); }
int cnd_signal(cnd_t* c) { return status(pthread_cond_signal(condition(c))); }
int cnd_broadcast(cnd_t* c) { return status(pthread_cond_broadcast(condition(c))); }
int cnd_wait(cnd_t* c, mtx_t* m) { return status(pthread_cond_wait(condition(c), mutex(m))); }
int cnd_timedwait(cnd_t* c, mtx_t* m, const struct timespec* until) {
  return status(pthread_cond_timedwait(condition(c), mutex(m), until));
}

void call_once(once_flag* flag, void (*function)(void)) {
  pthread_once((pthread_once_t*)flag, function);
}
