/*
 * vantor: in-place chroma-blotch removal and low-frequency luma smoothing for camera frames.
 *
 * One handle per stream: vantor_init() once, vantor_run() per frame, vantor_deinit() at the end.
 * Frames are processed in place, synchronously, on the caller's thread plus fifteen worker
 * threads owned by the handle. Nothing is allocated per frame.
 */
#ifndef VANTOR_H
#define VANTOR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define VTR_EXPORT __attribute__((visibility("default")))
#else
#define VTR_EXPORT
#endif

/* Frame formats: FourCC codes read as 32-bit little-endian integers. */
#define VTR_NV21 0x3132564E   /* "NV21": Y plane, then interleaved V/U plane */
#define VTR_NV21_M 0x31324D4E /* "NM21": NV21 with independently placed planes */
#define VTR_YUYV 0x56595559   /* "YUYV": packed 4:2:2, Y0 U Y1 V */
#define VTR_YUY2 0x32595559   /* "YUY2": packed 4:2:2, same byte order as YUYV */

/* Scenarios: fix the chroma blend threshold and the niceness of the pipeline threads. */
#define VTR_SCENARIO_CAPTURE 0 /* saturation 12, niceness -8 */
#define VTR_SCENARIO_PREVIEW 1 /* saturation 4, niceness 0 */

/*
 * Creates a handle for frames of width x height in the given scenario.
 * width must be a multiple of 16; the height is rounded up to a multiple of 16 internally
 * (the "aligned height"). Returns NULL on failure. An unknown scenario is logged and yields a
 * non-NULL handle that is not usable and must not be passed to vantor_run or vantor_deinit.
 * The fifteen workers park asynchronously after this returns; see vantor_wait_ready() in
 * vantor_ext.h before submitting the first frame.
 */
VTR_EXPORT void* vantor_init(int32_t width, int32_t height, int32_t scenario);

/*
 * Processes one frame in place and returns when it is finished.
 *
 * NV21 and NM21: in_address_1 is the Y plane, in_address_2 the interleaved V/U plane.
 *   The Y plane must hold aligned_height rows of width bytes: the library writes the padding
 *   rows height .. aligned_height-1 (copies of the last row).
 *   The V/U plane must hold aligned_height/2 rows of width bytes; only height/2 rows are input.
 *   For NV21 whose height is not a multiple of 16 the library finally moves the V/U plane down
 *   by width * (aligned_height - height) bytes, so a caller that placed it directly after a Y
 *   plane of aligned_height rows finds a tightly packed NV21 frame of height rows after the
 *   call: Y rows 0 .. height-1 followed by the V/U plane. The move writes
 *   [in_address_2 - width * (aligned_height - height), + height * width / 2).
 *   NM21 is never moved: both planes stay where they were given.
 * YUYV and YUY2: in_address_1 is the packed frame of height rows of 2 * width bytes;
 *   in_address_2 is ignored.
 *
 * width and height must be those given to vantor_init.
 * Returns a pointer to a zero word owned by the handle, or NULL for a NULL handle.
 */
VTR_EXPORT int32_t* vantor_run(void* handle, uintptr_t in_address_1, uintptr_t in_address_2,
                               int32_t width, int32_t height, int32_t format);

/*
 * Stops the workers, frees every buffer and the handle. Returns 0, or -1 for a NULL handle.
 * Must not be called concurrently with or before a vantor_run on the same handle returns.
 */
VTR_EXPORT int32_t vantor_deinit(void* handle);

#ifdef __cplusplus
}
#endif

#endif /* VANTOR_H */
