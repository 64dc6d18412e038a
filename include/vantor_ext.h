/*
 * Extensions to the three entry points of vantor.h. They change nothing of the behaviour of
 * vantor_init, vantor_run and vantor_deinit.
 */
#ifndef VANTOR_EXT_H
#define VANTOR_EXT_H

#include "vantor.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Waits until all fifteen workers of a freshly created handle are parked and ready for a
 * frame, at most timeout_ms milliseconds. vantor_init returns before its workers have parked,
 * and vantor_run refuses a frame that arrives earlier; call this once after vantor_init
 * instead of sleeping. Returns 0 when all workers are parked, ETIMEDOUT when the time ran out,
 * EINVAL for a NULL handle. Safe to call at any time between frames.
 */
VTR_EXPORT int32_t vantor_wait_ready(void* handle, int32_t timeout_ms);

#ifdef __cplusplus
}
#endif

#endif /* VANTOR_EXT_H */
