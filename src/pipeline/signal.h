// Signalling between the stage driver and the workers: counters guarded by the stage lock,
// condition waits and mutex locks bounded in milliseconds.
//
// The exported functions are declared in vantor_kernels.h; this header adds the deadline
// arithmetic they share and the clock they read, so that tests can reach both.
#ifndef VANTOR_PIPELINE_SIGNAL_H
#define VANTOR_PIPELINE_SIGNAL_H

#include <stdint.h>
#include <time.h>

#include "vantor_kernels.h"

// Reads the wall clock for deadlines; clock_gettime unless a test replaced it.
extern int (*vtr_clock_hook)(clockid_t clock, struct timespec* now);

// Absolute deadline `ms` milliseconds after `now`. A nanosecond sum of exactly one second is
// left uncarried on purpose: the timed calls then reject the deadline (EINVAL) and callers
// treat that like any other failed wait or lock.
struct timespec vtr_deadline_after(struct timespec now, int32_t ms);

#endif  // VANTOR_PIPELINE_SIGNAL_H
