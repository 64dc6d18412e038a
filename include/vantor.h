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
 * (the "aligned height"); width x aligned height must stay below 2^31 bytes (a larger size is
 * refused with "vantor_init, unsupported size WxH"). Returns NULL on failure. An unknown
 * scenario is logged and yields a non-NULL handle that is not usable and must not be passed to
 * vantor_run or vantor_deinit.
 * The fifteen workers park asynchronously after this returns; see vantor_wait_ready() in
 * vantor_ext.h before submitting the first frame.
 */
VTR_EXPORT void* vantor_init(int32_t width, int32_t height, int32_t scenario);

/*
 * Processes one frame in place and returns when it is finished.
 *
 * Frame fit: width must be a positive multiple of 16, no wider than the width given to
 * vantor_init, height at least 1, and height rounded up to 16 ("aligned_height") no more than
 * the aligned height of vantor_init. Any other frame is refused before a byte is written: an
 * error line "vantor_run, frame WxH does not fit handle WxH" is logged, the slot is released
 * and the result pointer is returned.
 *
 * NV21 and NM21: in_address_1 is the Y plane (width bytes per row), in_address_2 the
 *   interleaved V/U plane (width bytes per row, V first).
 *   - The Y plane must hold aligned_height rows: the library writes the padding rows
 *     height .. aligned_height - 1 (copies of row height - 1) and reads them back.
 *   - The V/U plane must hold (height + 1) / 2 rows. Rows 0 .. (height + 1) / 2 - 1 are read,
 *     rows 0 .. height / 2 - 1 are rewritten in place; no padding row is read.
 *   - NV21 with a height that is not a multiple of 16: after filtering, the library moves the
 *     first height * width / 2 bytes of the V/U plane down by width * (aligned_height - height)
 *     bytes (an overlap-safe move). It therefore writes
 *     [in_address_2 - width * (aligned_height - height), in_address_2 + height * width / 2).
 *     Place the V/U plane directly after the aligned_height rows of the Y plane: the move then
 *     overwrites only the Y padding rows and the caller finds a tightly packed NV21 frame of
 *     `height` rows at in_address_1 (Y rows 0 .. height - 1, then the V/U plane). The V/U plane
 *     must not sit directly after `height` Y rows: the padding rows would overwrite it.
 *   - NV21 with a height that is a multiple of 16, and NM21 always: the planes stay where they
 *     were given; nothing outside the two planes is written.
 * YUYV and YUY2: in_address_1 is the packed frame of height rows of 2 * width bytes, read and
 *   written in place and nothing else; in_address_2 is ignored.
 *
 * Addresses are plain pointers carried as integers. Calls on one handle are served one after
 * the other. The calling thread's niceness is set to the scenario's (-8 capture, 0 preview)
 * and is not restored. Returns a pointer to a zero word owned by the handle (valid until
 * vantor_deinit), also when the frame failed; NULL for a NULL handle. An unknown format is logged
 * and leaves the handle's slot locked, so that any later call on it blocks.
 */
VTR_EXPORT int32_t* vantor_run(void* handle, uintptr_t in_address_1, uintptr_t in_address_2,
                               int32_t width, int32_t height, int32_t format);

/*
 * Stops the workers, frees every buffer and the handle. Returns 0, or -1 for a NULL handle.
 * Waits at most about 100 ms for the workers to leave; a worker that leaves later frees what
 * it still needs itself. Waits for a vantor_run in progress on the handle to finish first; the
 * handle must not be used afterwards.
 */
VTR_EXPORT int32_t vantor_deinit(void* handle);

#ifdef __cplusplus
}
#endif

#endif /* VANTOR_H */
