// Fuzz target of the restore kernels: 4:2:0 luma and chroma (separate outputs or in place, as
// the pipeline runs it), packed 4:2:2 in place, and the two chroma-only variants, for any
// saturation value (0, the two scenario values, values whose 16-bit numerator wraps, anything)
// and any scenario code. Widths include ones the kernels refuse; buffers end where each plane's
// documented reach ends. Vector and scalar twins run on copies and must agree on every byte.
#include <string.h>

#include "fuzz_support.h"
#include "resample/restore.h"

using vfuzz::buffer;
using vfuzz::fuzz_input;

namespace {

using vfuzz::plane_reach;
using vfuzz::twin_out;

struct input_plane : buffer {
    input_plane(size_t n, vfuzz::placement where, fuzz_input& in) : buffer(n, where) {
        vfuzz::fill(data(), n, in);
    }
};

const int32_t kSaturations[] = {12, 4, 0, 1, 256, 600, -12, 32767, -32768, 65536 + 12};

int32_t saturation(fuzz_input& in) {
    return in.flag() ? in.pick(kSaturations) : in.range(INT32_MIN, INT32_MAX);
}

// A width the kernels accept (a positive multiple of 16) or, now and then, one they refuse.
int32_t width_of(fuzz_input& in) {
    if (in.range(0, 7) == 0)
        return in.range(-32, 15) | (in.flag() ? 8 : 0);
    return 16 * in.range(1, 48);
}

bool accepted(int32_t width, int32_t rows) {
    return width > 0 && width % 16 == 0 && rows >= 1;
}

size_t bytes(bool ok, int32_t rows, int32_t row_bytes) {
    return ok && rows > 0 && row_bytes > 0 ? static_cast<size_t>(rows) * row_bytes : 0;
}

void yuv420(fuzz_input& in, vfuzz::placement where) {
    const int32_t width = width_of(in);
    const int32_t height = in.range(-2, 40);
    const int32_t s = saturation(in);
    const int32_t scenario = in.range(-1, 2);
    const bool in_place = in.flag();
    const bool ok = accepted(width, height);
    const int32_t c_rows = static_cast<int32_t>(static_cast<uint32_t>(height) / 2);
    const size_t y_n = bytes(ok, height, width), vu_n = bytes(ok, c_rows, width);
    const size_t up_n = bytes(ok, c_rows, width / 2);
    input_plane a(y_n, where, in), b(y_n, where, in), f1(up_n, where, in), f2(up_n, where, in);
    twin_out y(y_n, where, in), vu(vu_n, where, in);
    if (in_place) {
        restore_interleave_yuv420_neon(y.vec.data(), vu.vec.data(), a.data(), b.data(), f1.data(),
                                       f2.data(), width, height, s, y.vec.data(), vu.vec.data(),
                                       scenario);
        restore_interleave_yuv420_c(y.ref.data(), vu.ref.data(), a.data(), b.data(), f1.data(),
                                    f2.data(), width, height, s, y.ref.data(), vu.ref.data(),
                                    scenario);
    } else {
        input_plane y_in(y_n, where, in), vu_in(vu_n, where, in);
        restore_interleave_yuv420_neon(y_in.data(), vu_in.data(), a.data(), b.data(), f1.data(),
                                       f2.data(), width, height, s, y.vec.data(), vu.vec.data(),
                                       scenario);
        restore_interleave_yuv420_c(y_in.data(), vu_in.data(), a.data(), b.data(), f1.data(),
                                    f2.data(), width, height, s, y.ref.data(), vu.ref.data(),
                                    scenario);
    }
    y.check("restore_interleave_yuv420_neon y_out");
    vu.check("restore_interleave_yuv420_neon vu_out");
}

// Packed 4:2:2 in place, with luma (full kernel) or chroma only.
void yuv422(fuzz_input& in, vfuzz::placement where, bool chroma_only) {
    const int32_t width = width_of(in);
    const int32_t height = in.range(-2, 40);
    const int32_t s = saturation(in);
    const bool ok = accepted(width, height);
    // The chroma-only kernel does not read the component planes: give it none.
    const size_t comp_n = chroma_only ? 0 : bytes(ok, height, width);
    const size_t up_n = bytes(ok, height, width / 2);
    input_plane a(comp_n, where, in), b(comp_n, where, in);
    input_plane f1(up_n, where, in), f2(up_n, where, in);
    twin_out frame(bytes(ok, height, 2 * width), where, in);
    if (chroma_only) {
        restore_interleave_uv422_neon(frame.vec.data(), a.data(), b.data(), f1.data(), f2.data(),
                                      width, height, s);
        restore_interleave_uv422_c(frame.ref.data(), a.data(), b.data(), f1.data(), f2.data(),
                                   width, height, s);
        frame.check("restore_interleave_uv422_neon");
    } else {
        restore_interleave_yuv422_neon(frame.vec.data(), a.data(), b.data(), f1.data(), f2.data(),
                                       width, height, s);
        restore_interleave_yuv422_c(frame.ref.data(), a.data(), b.data(), f1.data(), f2.data(),
                                    width, height, s);
        frame.check("restore_interleave_yuv422_neon");
    }
}

// 4:2:0 chroma only: one 16-byte step per 32 of width on each row, rows back to back.
void uv420(fuzz_input& in, vfuzz::placement where) {
    const int32_t width = width_of(in);
    const int32_t rows = in.range(-2, 40);
    const int32_t s = saturation(in);
    const bool ok = accepted(width, rows);
    const int32_t steps = ok ? (width + 31) / 32 : 0;
    const size_t vu_n = bytes(ok, rows, 16 * steps), up_n = bytes(ok, rows, 8 * steps);
    input_plane f1(up_n, where, in), f2(up_n, where, in);
    twin_out vu(vu_n, where, in);
    // Not read: empty planes, so any access faults.
    buffer none(0, where);
    if (in.flag()) {
        restore_interleave_uv420_neon(none.data(), vu.vec.data(), none.data(), none.data(),
                                      f1.data(), f2.data(), width, rows, s, vu.vec.data());
        restore_interleave_uv420_c(none.data(), vu.ref.data(), none.data(), none.data(), f1.data(),
                                   f2.data(), width, rows, s, vu.ref.data());
    } else {
        input_plane vu_in(vu_n, where, in);
        restore_interleave_uv420_neon(none.data(), vu_in.data(), none.data(), none.data(),
                                      f1.data(), f2.data(), width, rows, s, vu.vec.data());
        restore_interleave_uv420_c(none.data(), vu_in.data(), none.data(), none.data(), f1.data(),
                                   f2.data(), width, rows, s, vu.ref.data());
    }
    vu.check("restore_interleave_uv420_neon");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_input in(data, size);
    const int which = in.range(0, 3);
    const vfuzz::placement where = in.flag() ? vfuzz::placement::heap : vfuzz::placement::page_end;
    switch (which) {
        case 0:
            yuv420(in, where);
            break;
        case 1:
        case 2:
            yuv422(in, where, which == 2);
            break;
        case 3:
            uv420(in, where);
            break;
    }
    return 0;
}
