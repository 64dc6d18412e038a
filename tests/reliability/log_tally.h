// A log sink for the long-running reliability programs: it counts the library's lines by kind
// instead of keeping them, so that a run of any length neither grows nor allocates, and it
// keeps the first few unexpected error lines for the report.
//
// Stage-wait time-outs are also counted per thread: the stage driver waits on the thread that
// called vantor_run, so a caller can tell whether its own frame had a stage that timed out.
#ifndef VANTOR_TESTS_RELIABILITY_LOG_TALLY_H
#define VANTOR_TESTS_RELIABILITY_LOG_TALLY_H

#include <stdio.h>

namespace vrel {

struct log_totals {
    long lines;            // every line, any priority
    long stage_timeouts;   // "vantor_timedwait_signal: ..." from a stage of the driver
    long deinit_timeouts;  // the same from vantor_deinit (fewer than fifteen workers reported)
    long lock_timeouts;    // "..., mutex lock time out(...)" and "..., mutex lock fail ..."
    long refusals;         // "..., ready sub thread wait": a stage found a worker not parked
                           // (its follow-up lines, "... is fail.." and "fail to
                           // vantor_run_thread ...", are counted nowhere else)
    long banners;          // the build banner vantor_init logs at error priority
    long other_errors;     // any other error-priority line
};

log_totals log_now();
// Stage-wait time-outs and refusals logged on the calling thread since it started.
long thread_stage_timeouts();
long thread_refusals();
// Prints the first unexpected error lines kept (at most eight), one per line.
void print_other_errors(FILE* out);

}  // namespace vrel

#endif
