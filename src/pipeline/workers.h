// Thread bodies of the fifteen workers (box_filter_col, the fifth kind, is exported from
// vantor_kernels.h). vantor_init starts them detached; each parks on its stage's start
// condition and runs one strip, band or plane per frame until its stop flag is set.
#ifndef VANTOR_PIPELINE_WORKERS_H
#define VANTOR_PIPELINE_WORKERS_H

#include "pipeline/record.h"

void* vantor_deinterleave_thread_func(void* job);  // a deinterleave_job
void* vantor_interleave_thread_func(void* job);    // an interleave_job
void* vantor_u(void* record);                      // the vantor_thread record
void* vantor_v(void* record);
void* vantor_y(void* record);

// Called by every worker just before its stage work, with the stage and the worker's argument;
// null unless a test holds workers back through it.
extern void (*vtr_work_hook)(int32_t stage, const void* job);

#endif  // VANTOR_PIPELINE_WORKERS_H
