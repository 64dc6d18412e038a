// Counter-and-signal, counter-and-wait, timed wait, timed lock and thread placement.
// Callers of the counter and wait functions hold the mutex that guards the counters, so the
// counters are plain integers.
#include "pipeline/signal.h"

#include <errno.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/log.h"

int (*vtr_clock_hook)(clockid_t clock, struct timespec* now) = clock_gettime;

namespace {

constexpr long VTR_NSEC_PER_SEC = 1000000000L;
constexpr int32_t VTR_AFFINITY_MASK_BYTES = 4;  // one 32-bit word: CPUs 0 to 31

struct timespec deadline_from_now(int32_t ms) {
    struct timespec now = {0, 0};
    vtr_clock_hook(CLOCK_REALTIME, &now);
    return vtr_deadline_after(now, ms);
}

}  // namespace

struct timespec vtr_deadline_after(struct timespec now, int32_t ms) {
    const int32_t seconds = ms / 1000;
    const int32_t rest = ms - seconds * 1000;
    now.tv_sec += seconds;
    now.tv_nsec += static_cast<long>(rest) * 1000000L;
    // Strictly greater: exactly one second stays uncarried (see the header).
    if (now.tv_nsec > VTR_NSEC_PER_SEC) {
        now.tv_sec += 1;
        now.tv_nsec -= VTR_NSEC_PER_SEC;
    }
    return now;
}

void vantor_run_signal(pthread_cond_t* cond, int32_t* counter, int32_t target) {
    *counter += 1;
    if (*counter == target) {
        *counter = 0;
        // One waiter only: the stage driver (or the teardown).
        pthread_cond_signal(cond);
    }
}

int vantor_wait_signal(pthread_cond_t* cond, pthread_mutex_t* mutex, int32_t* counter,
                       const char* name) {
    *counter += 1;
    return pthread_cond_wait(cond, mutex);
}

void vantor_timedwait_signal(pthread_cond_t* cond, pthread_mutex_t* mutex, int32_t ms,
                             const char* name) {
    const struct timespec deadline = deadline_from_now(ms);
    // A single wait, no predicate: a spurious wake-up ends it as well.
    const int ret = pthread_cond_timedwait(cond, mutex, &deadline);
    if (ret != 0)
        VTR_LOGE("vantor_timedwait_signal: limited time(%d)ms, return(%d), from %s", ms, ret, name);
}

int vantor_timedlock(pthread_mutex_t* mutex, int32_t ms, const char* name) {
    const struct timespec deadline = deadline_from_now(ms);
    const int ret = pthread_mutex_timedlock(mutex, &deadline);
    if (ret == 0)
        return 0;
    if (ret == ETIMEDOUT) {
        VTR_LOGE("%s, mutex lock time out(%d ms)", name, ms);
        // Releases the lock that could not be taken, whoever holds it: a holder that stalls
        // for longer than the limit is presumed lost.
        pthread_mutex_unlock(mutex);
        return ret;
    }
    VTR_LOGE("%s, mutex lock fail (%d)", name, ret);
    return ret;
}

void setCurrentThreadAffinityMask(const cpu_set_t* mask) {
    const long ret = syscall(__NR_sched_setaffinity, gettid(), VTR_AFFINITY_MASK_BYTES, mask);
    if (ret != 0)
        VTR_LOGE("Error in the syscall setaffinity!");
}
