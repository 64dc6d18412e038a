/*
 * The README's example as a whole program: one 1920x1080 NV21 frame of a flat colour with
 * low-frequency colour blotches goes through the library, which must fade the blotches and
 * keep the colour. Exits 1, with a line saying why, when it does not.
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "vantor.h"
#include "vantor_ext.h"

enum { W = 1920, H = 1080, H_ALIGNED = (H + 15) & ~15 };

/* Mean and spread around it of the U (first = 1) or V (first = 0) samples of a V/U plane. */
static void chroma_stats(const uint8_t* vu, int first, double* mean, double* spread) {
    const int n = W / 2 * (H / 2);
    double sum = 0, sq = 0;
    for (int i = 0; i < n; ++i) {
        const double c = vu[2 * i + first];
        sum += c;
        sq += c * c;
    }
    *mean = sum / n;
    *spread = sqrt(sq / n - *mean * *mean);
}

int main(void) {
    /* The Y plane holds H_ALIGNED rows and the V/U plane follows it; after the call the frame
     * is tightly packed NV21 of H rows at the start of the buffer. */
    uint8_t* frame = malloc((size_t)W * H_ALIGNED + (size_t)W * H / 2);
    if (frame == NULL)
        return 1;
    uint8_t* y_plane = frame;
    uint8_t* vu_plane = frame + (size_t)W * H_ALIGNED;
    for (size_t i = 0; i < (size_t)W * H; ++i)
        y_plane[i] = 120;
    /* Blotches: +-4 codes drifting over patches about 50 pixels wide. */
    for (int r = 0; r < H / 2; ++r) {
        for (int c = 0; c < W / 2; ++c) {
            const double b = 4 * sin(r * 0.23) * sin(c * 0.29 + 1);
            vu_plane[r * W + 2 * c] = (uint8_t)lround(150 + b);
            vu_plane[r * W + 2 * c + 1] = (uint8_t)lround(100 - b);
        }
    }
    double mean_in[2], spread_in[2], mean_out[2], spread_out[2];
    for (int k = 0; k < 2; ++k)
        chroma_stats(vu_plane, k, &mean_in[k], &spread_in[k]);

    void* h = vantor_init(W, H, VTR_SCENARIO_CAPTURE);
    if (h == NULL || vantor_wait_ready(h, 1000) != 0) {
        fprintf(stderr, "example: no handle ready\n");
        return 1;
    }
    const int32_t* result = vantor_run(h, (uintptr_t)y_plane, (uintptr_t)vu_plane, W, H, VTR_NV21);
    const int ran = result != NULL && *result == 0;
    vantor_deinit(h);

    int ok = ran;
    for (int k = 0; k < 2; ++k) {
        chroma_stats(frame + (size_t)W * H, k, &mean_out[k], &spread_out[k]);
        printf("%c: blotch spread %.2f -> %.2f, mean %.2f -> %.2f\n", "VU"[k], spread_in[k],
               spread_out[k], mean_in[k], mean_out[k]);
        ok = ok && spread_out[k] < 0.75 * spread_in[k] && fabs(mean_out[k] - mean_in[k]) < 1.5;
    }
    free(frame);
    if (!ok) {
        fprintf(stderr, "example: the blotches did not fade as expected\n");
        return 1;
    }
    return 0;
}
