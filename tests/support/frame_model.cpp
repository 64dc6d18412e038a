#include "support/frame_model.h"

#include <string.h>

#include <vector>

#include "filters/bilateral.h"
#include "filters/box_filter.h"
#include "resample/deinterleave.h"
#include "resample/restore.h"
#include "resample/upsample.h"
#include "vantor.h"

namespace vtest {

namespace {

using plane = std::vector<uint8_t>;

// Block (br, bc) of the reduced planes samples the chroma pair that sits at luma (16br, 16bc).
// The vector kernel covers the bands below height & ~15 and the columns below width & ~127;
// every other block is sampled here directly.
void decimate_420(const uint8_t* vu, int32_t w, int32_t h, int32_t ha, plane& first,
                  plane& second) {
    const int32_t wb = w & ~127;
    const int32_t hb = h & ~15;
    deinterleave_yuv420_uv_downsample_c(first.data(), second.data(), vu, wb, hb, w);
    for (int32_t br = 0; br < ha / 16; ++br) {
        for (int32_t bc = 0; bc < w / 16; ++bc) {
            if (16 * br < hb && 16 * bc < wb)
                continue;
            const uint8_t* pair = vu + static_cast<size_t>(8 * br) * w + 16 * bc;
            first[br * (w / 16) + bc] = pair[0];
            second[br * (w / 16) + bc] = pair[1];
        }
    }
}

void decimate_422(const uint8_t* packed, int32_t w, int32_t h, int32_t ha, plane& luma,
                  plane& first, plane& second) {
    const int32_t wb = w & ~127;
    const int32_t hb = h & ~15;
    deinterleave_yuv422_uv_downsample_c(luma.data(), first.data(), second.data(), packed, w, hb,
                                        wb);
    for (int32_t r = 0; r < h; ++r) {
        for (int32_t x = 0; x < w; ++x) {
            if (r < hb && x < wb)
                continue;
            luma[static_cast<size_t>(r) * w + x] = packed[2 * (static_cast<size_t>(r) * w + x)];
        }
    }
    for (int32_t br = 0; br < ha / 16; ++br) {
        for (int32_t bc = 0; bc < w / 16; ++bc) {
            if (16 * br < hb && 16 * bc < wb)
                continue;
            const uint8_t* group = packed + 2 * (static_cast<size_t>(16 * br) * w + 16 * bc);
            first[br * (w / 16) + bc] = group[1];
            second[br * (w / 16) + bc] = group[3];
        }
    }
}

// Rows height .. aligned_height - 1 repeat the last real row.
void pad_rows(uint8_t* luma, int32_t w, int32_t h, int32_t ha) {
    for (int32_t r = h; r < ha; ++r)
        memcpy(luma + static_cast<size_t>(r) * w, luma + static_cast<size_t>(h - 1) * w, w);
}

// Four equal column bands, each: whole 32-column blocks, then single columns.
void box_filter_bands(const uint8_t* src, uint8_t* low, uint8_t* high, int32_t w, int32_t ha) {
    const int32_t band = w / 4;
    for (int32_t i = 0; i < 4; ++i) {
        const int32_t x0 = i * band;
        const int32_t blocks = band & ~31;
        box_filter_col_c(src + x0, low + x0, high + x0, w, ha, blocks);
        for (int32_t x = x0 + blocks; x < x0 + band; ++x)
            box_filter_column_c(src + x, low + x, high + x, w, ha);
    }
}

void smooth_chroma(const plane& down, plane& filtered, plane& up, int32_t bw, int32_t bh,
                   bool planar) {
    bilateral_filter_span3_with(down.data(), filtered.data(), bh, bw,
                                bilateral_filter_span3_center_c);
    upsample_args args = {};
    args.width = bw;
    args.height = bh;
    args.chroma_src = filtered.data();
    args.chroma_dst = up.data();
    if (planar)
        upsample_uv420_with(&args, upsample_uv420_c);
    else
        upsample_uv422_with(&args, upsample_uv_c);
}

}  // namespace

void model_frame(uint8_t* y, uint8_t* vu, int32_t w, int32_t h, uint32_t format, int32_t scenario) {
    const int32_t ha = (h + 15) & ~15;
    const int32_t bw = w / 16;
    const int32_t bh = ha / 16;
    const int32_t saturation = scenario == VTR_SCENARIO_CAPTURE ? 12 : 4;
    const bool planar = format == VTR_NV21 || format == VTR_NV21_M;
    const size_t luma_size = static_cast<size_t>(w) * ha;

    plane luma_copy(luma_size), low(luma_size), high(luma_size);
    plane ds_y(bw * bh), ds_u(bw * bh), ds_v(bw * bh);
    plane f_y(bw * bh), f_u(bw * bh), f_v(bw * bh);
    plane up_u(static_cast<size_t>(ha) * (w / 2)), up_v(up_u.size());

    uint8_t* luma = planar ? y : luma_copy.data();
    if (planar)
        decimate_420(vu, w, h, ha, ds_u, ds_v);
    else
        decimate_422(y, w, h, ha, luma_copy, ds_u, ds_v);
    pad_rows(luma, w, h, ha);

    box_filter_bands(luma, low.data(), high.data(), w, ha);
    for (int32_t br = 0; br < bh; ++br)
        for (int32_t bc = 0; bc < bw; ++bc)
            ds_y[br * bw + bc] = low[static_cast<size_t>(16 * br) * w + 16 * bc];

    smooth_chroma(ds_u, f_u, up_u, bw, bh, planar);
    smooth_chroma(ds_v, f_v, up_v, bw, bh, planar);
    bilateral_filter_span3_with(ds_y.data(), f_y.data(), bh, bw, bilateral_filter_span3_center_c);
    upsample_y_c(low.data(), f_y.data(), bw, bh);

    // The rebuild is per pixel, so one pass over all `height` rows equals the four strips.
    if (planar) {
        restore_interleave_yuv420_c(y, vu, low.data(), high.data(), up_u.data(), up_v.data(), w, h,
                                    saturation, y, vu, scenario);
        if (format == VTR_NV21 && ha != h)
            memmove(vu - static_cast<size_t>(w) * (ha - h), vu, static_cast<size_t>(h) * (w / 2));
    } else {
        restore_interleave_yuv422_c(y, low.data(), high.data(), up_u.data(), up_v.data(), w, h,
                                    saturation);
    }
}

namespace {

size_t frame_bytes(int32_t w, int32_t h, uint32_t format, size_t margin, size_t* y, size_t* vu) {
    const size_t luma = static_cast<size_t>(w) * ((h + 15) & ~15);
    const bool planar = format == VTR_NV21 || format == VTR_NV21_M;
    *y = margin;
    *vu = planar ? margin + luma + (format == VTR_NV21_M ? 4096 + 48 : 0) : 0;
    return planar ? *vu + static_cast<size_t>(w) * ((h + 1) / 2)
                  : margin + 2 * static_cast<size_t>(w) * h;
}

}  // namespace

model_case::model_case(int32_t w, int32_t h, uint32_t f, int32_t s, uint32_t seed, bool scene,
                       size_t margin)
    : width(w), height(h), format(f), scenario(s), buf(frame_bytes(w, h, f, margin, &y, &vu)) {
    rng r(seed);
    input.resize(buf.size());
    for (uint8_t& b : input)
        b = r.byte();
    if (scene) {
        const vtest::scene sc = make_scene(w, h, seed, 12);
        if (vu)
            pack_nv21(sc, &input[y], &input[vu]);
        else
            pack_yuyv(sc, &input[y]);
    }
    expected = input;
    model_frame(&expected[y], vu ? &expected[vu] : nullptr, w, h, f, s);
    memcpy(buf.data(), input.data(), input.size());
}

int32_t* model_case::run(void* handle) {
    memcpy(buf.data(), input.data(), input.size());
    return vantor_run(handle, reinterpret_cast<uintptr_t>(buf.data() + y),
                      vu ? reinterpret_cast<uintptr_t>(buf.data() + vu) : 0, width, height,
                      static_cast<int32_t>(format));
}

std::string model_case::mismatch() const {
    if (!buf.front_intact())
        return "written in front of the buffer";
    if (memcmp(buf.data(), expected.data(), expected.size()) == 0)
        return std::string();
    // As rows of width bytes, the last one padded.
    const size_t rows = (expected.size() + width - 1) / width;
    std::vector<uint8_t> got = bytes(), want = expected;
    got.resize(rows * width);
    want.resize(rows * width);
    return first_difference(want.data(), got.data(), width, static_cast<int>(rows), width,
                            "buffer (rows of width bytes)");
}

}  // namespace vtest
