/*
 * Extensions to the three entry points of vantor.h. They change nothing of the behaviour of
 * vantor_init, vantor_run and vantor_deinit: no message, result or wait of theirs.
 */
#ifndef VANTOR_EXT_H
#define VANTOR_EXT_H

#include "vantor.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Waits, at most timeout_ms milliseconds, until every one of the fifteen workers of the handle
 * has finished the work it was last given and is parked again, ready for a frame. Returns 0
 * when they are, ETIMEDOUT when the time ran out, EINVAL for a NULL handle.
 *
 * Call it once after vantor_init instead of sleeping: vantor_init returns before its workers
 * have parked, and vantor_run refuses a frame that arrives earlier. Call it also after a frame
 * whose status is not VANTOR_FRAME_OK (below): once it has returned 0, no worker touches the
 * planes of that frame any more, and the caller may reuse them, restore them or run the frame
 * again. Safe to call at any time between frames, never during one.
 */
VTR_EXPORT int32_t vantor_wait_ready(void* handle, int32_t timeout_ms);

/*
 * Outcome of the last vantor_run on a handle, a set of the bits below; VANTOR_FRAME_OK when
 * every stage of the frame ran and all its workers reported within the stage's wait.
 *
 * vantor_run returns the same result word whether its frame succeeded or not, and a stage
 * whose single bounded wait runs out is only logged: the frame goes on, and the late workers
 * go on writing into the caller's planes after vantor_run has returned. A caller that must not
 * pass on a half-processed frame reads this after every vantor_run. When it is not
 * VANTOR_FRAME_OK the frame's planes are not a valid result: wait with vantor_wait_ready until
 * it returns 0, then restore the input (a LATE bit means the planes were written, a REFUSED or
 * NOT_RUN bit alone that the later stages were not run) and run the frame again, or drop it.
 */
#define VANTOR_FRAME_OK 0
/* The stage's wait ran out before all its workers had reported; the frame went on. */
#define VANTOR_FRAME_LATE_DEINTERLEAVE 0x001
#define VANTOR_FRAME_LATE_BOX_FILTER 0x002
#define VANTOR_FRAME_LATE_YUV 0x004
#define VANTOR_FRAME_LATE_INTERLEAVE 0x008
/* The stage refused to start (not all its workers were parked, or the format is unknown);
 * the frame stopped there, the stages before it had written their part. */
#define VANTOR_FRAME_REFUSED_DEINTERLEAVE 0x010
#define VANTOR_FRAME_REFUSED_BOX_FILTER 0x020
#define VANTOR_FRAME_REFUSED_YUV 0x040
#define VANTOR_FRAME_REFUSED_INTERLEAVE 0x080
/* The frame never reached the stages: it does not fit the handle, its format is not supported,
 * or the stage lock could not be taken. Nothing of it was written. */
#define VANTOR_FRAME_NOT_RUN 0x100

/*
 * Status of the last frame given to vantor_run on the handle (VANTOR_FRAME_OK before the
 * first), or -1 for a NULL handle. Read it between frames, on the thread that ran the frame
 * or after synchronising with it.
 */
VTR_EXPORT int32_t vantor_frame_status(void* handle);

#ifdef __cplusplus
}
#endif

#endif /* VANTOR_EXT_H */
