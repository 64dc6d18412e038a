// Thread bodies of the fifteen workers (box_filter_col, the fifth kind, is exported from
// vantor_kernels.h). vantor_init starts them detached; each parks on its stage's start
// condition and runs one strip, band or plane per frame until its stop flag is set.
#ifndef VANTOR_PIPELINE_WORKERS_H
#define VANTOR_PIPELINE_WORKERS_H

#include "entry/handle.h"

void* vantor_deinterleave_thread_func(void* job);  // a deinterleave_job
void* vantor_interleave_thread_func(void* job);    // an interleave_job
void* vantor_u(void* record);                      // the vantor_thread record
void* vantor_v(void* record);
void* vantor_y(void* record);

// The deinterleave worker's strip: the block-aligned part through the vector kernel, then the
// ragged right columns, the ragged bottom rows and the luma padding rows.
void vtr_deinterleave_strip(const deinterleave_job* job);

#endif  // VANTOR_PIPELINE_WORKERS_H
