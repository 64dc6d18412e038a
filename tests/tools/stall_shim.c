/*
 * Preloaded into the tool by test_cli.py: the first VANTOR_STALL_WAITS calls of
 * pthread_cond_timedwait ("all" for every call) time out at once. The library uses that call
 * only for its stage waits and its teardown wait, so a stage "times out" while its workers are
 * still at work, as when they are stopped or starved on a loaded machine.
 *
 * A stalled call returns ETIMEDOUT without letting go of the mutex: the real call with a
 * deadline already passed lets the woken workers take the mutex, and on two busy cores the
 * caller often gets it back only once they have reported, which makes the stall a matter of
 * luck. Keeping the mutex is what the real call does when no other thread gets to run.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

typedef int (*timedwait_fn)(pthread_cond_t*, pthread_mutex_t*, const struct timespec*);

static timedwait_fn real_timedwait;
static long stalls_left;
static int stall_all;

__attribute__((constructor)) static void read_settings(void) {
    const char* n = getenv("VANTOR_STALL_WAITS");
    stall_all = n && strcmp(n, "all") == 0;
    stalls_left = n ? atol(n) : 0;
    real_timedwait = (timedwait_fn)dlsym(RTLD_NEXT, "pthread_cond_timedwait");
    if (!real_timedwait)
        abort();
}

int pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                           const struct timespec* deadline) {
    if (stall_all || __atomic_fetch_sub(&stalls_left, 1, __ATOMIC_RELAXED) > 0)
        return ETIMEDOUT;
    return real_timedwait(cond, mutex, deadline);
}
