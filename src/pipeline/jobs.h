// Job records of the three strip and band stages. Each begins with the worker's own stop flag
// and niceness and ends with links back into its vantor_thread record; the stage driver fills
// the words between for every frame.
#ifndef VANTOR_PIPELINE_JOBS_H
#define VANTOR_PIPELINE_JOBS_H

#include <pthread.h>
#include <stdint.h>

struct deinterleave_job {
    uint32_t quit;  // tested as a byte: non-zero makes the worker leave
    int32_t priority;
    int32_t width;
    int32_t strip_height;  // rows of this strip; only the last may not be a multiple of 16
    uint8_t* y_out;
    uint8_t* first_out;
    uint8_t* second_out;
    uint8_t* y_in;       // 4:2:0 only
    uint8_t* vu_in;      // 4:2:0 only
    uint8_t* packed_in;  // 4:2:2 only
    int32_t format;
    int32_t* done_count;
    int32_t* ready;
    pthread_cond_t* start_cond;
    pthread_mutex_t* mutex;
    pthread_cond_t* done_cond;
};

// One box-filter worker: one column band of the frame, all rows.
struct box_filter_job {
    uint32_t quit;     // tested as a byte: non-zero makes the worker leave
    int32_t priority;  // niceness of the worker's thread
    int32_t stride;    // row stride of source, low and high in bytes
    int32_t height;    // rows
    int32_t width;     // columns of this band
    const uint8_t* source;
    uint8_t* low;
    uint8_t* high;
    int32_t* done_count;
    int32_t* ready;
    pthread_cond_t* start_cond;
    pthread_mutex_t* mutex;
    pthread_cond_t* done_cond;
};

struct interleave_job {
    uint32_t quit;  // tested as a byte: non-zero makes the worker leave
    int32_t priority;
    int32_t width;
    int32_t strip_height;
    uint8_t* y_comp_a;  // low-pass luma
    uint8_t* y_comp_b;  // luma detail, biased by 128
    uint8_t* up_first;
    uint8_t* up_second;
    uint8_t* y_in;    // 4:2:0 only
    uint8_t* vu_in;   // 4:2:0 only
    uint8_t* frame;   // 4:2:2 only
    uint8_t* y_out;   // 4:2:0 only, equal to y_in
    uint8_t* vu_out;  // 4:2:0 only, equal to vu_in
    int32_t scenario;
    int32_t saturation;
    int32_t format;
    int32_t* done_count;
    int32_t* ready;
    pthread_cond_t* start_cond;
    pthread_mutex_t* mutex;
    pthread_cond_t* done_cond;
};

#endif  // VANTOR_PIPELINE_JOBS_H
