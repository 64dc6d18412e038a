// Fuzz target of whole frames through the public entry points: a handle of a random size and
// scenario, then up to three frames on it, each of a random size (the handle's own, smaller,
// larger or malformed), format (the four and some unknown codes) and content, in buffers laid
// out as vantor.h documents and ending where that layout ends.
//
// A frame that fits must come out as the one-thread model makes it; a refused frame and a frame
// of unknown format must leave every plane as it was, with the exact refusal line. An unknown
// format leaves the slot locked on purpose; the target checks that and releases the lock itself
// (it is held by this thread) so that the handle can be torn down.
#include <errno.h>
#include <string.h>

#include <memory>
#include <vector>

#include "entry/frame_model.h"
#include "entry/handle.h"
#include "fuzz_support.h"
#include "vantor.h"
#include "vantor_ext.h"

using vfuzz::buffer;
using vfuzz::fuzz_input;

namespace {

const uint32_t kFormats[] = {VTR_NV21, VTR_NV21_M, VTR_YUYV, VTR_YUY2,
                             // The four codes in the other byte order, zero and a neighbour.
                             0x4E563231, 0x4E4D3231, 0x59555956, 0x59555932, 0, VTR_YUY2 + 1};

bool known(uint32_t f) {
    return f == VTR_NV21 || f == VTR_NV21_M || f == VTR_YUYV || f == VTR_YUY2;
}

bool packed(uint32_t f) {
    return f == VTR_YUYV || f == VTR_YUY2;
}

// The caller's planes of one frame. NV21 (and unknown codes): luma of aligned rows and the V/U
// plane of aligned / 2 rows in one block; NM21: the same two planes in two blocks; YUYV and
// YUY2: height rows of 2 * width bytes.
struct frame_planes {
    frame_planes(int32_t w, int32_t h, uint32_t f, vfuzz::placement where, fuzz_input& in)
        : width(w), height(h), format(f) {
        const int32_t aligned = (h + 15) & ~15;
        luma = static_cast<size_t>(w) * aligned;
        const size_t vu = static_cast<size_t>(w) * (aligned / 2);
        if (packed(f)) {
            block[0].reset(new buffer(static_cast<size_t>(2) * w * h, where));
        } else if (f == VTR_NV21_M) {
            block[0].reset(new buffer(luma, where));
            block[1].reset(new buffer(vu, where));
        } else {
            block[0].reset(new buffer(luma + vu, where));
        }
        for (auto& b : block) {
            if (!b)
                continue;
            vfuzz::fill(b->data(), b->size(), in);
            before.emplace_back(b->data(), b->data() + b->size());
        }
    }
    uintptr_t address_1() { return reinterpret_cast<uintptr_t>(block[0]->data()); }
    uintptr_t address_2() {
        if (block[1])
            return reinterpret_cast<uintptr_t>(block[1]->data());
        return packed(format) ? 0 : reinterpret_cast<uintptr_t>(block[0]->data() + luma);
    }
    void expect_unchanged(const char* what) {
        for (size_t i = 0; i < before.size(); ++i)
            vfuzz::expect_same(before[i].data(), block[i]->data(), before[i].size(), what);
    }
    void expect_model(int32_t scenario) {
        std::vector<uint8_t> want[2] = {before[0],
                                        before.size() > 1 ? before[1] : std::vector<uint8_t>()};
        uint8_t* y = want[0].data();
        uint8_t* vu = format == VTR_NV21_M ? want[1].data() : packed(format) ? nullptr : y + luma;
        vtest::model_frame(y, vu, width, height, format, scenario);
        for (size_t i = 0; i < before.size(); ++i) {
            block[i]->expect_intact("frame plane");
            vfuzz::expect_same(want[i].data(), block[i]->data(), want[i].size(),
                               "whole frame against the one-thread model");
        }
    }

    int32_t width, height;
    uint32_t format;
    size_t luma = 0;
    std::unique_ptr<buffer> block[2];
    std::vector<std::vector<uint8_t>> before;
};

// A frame size for a handle of w x h: its own most often, else smaller, larger or malformed.
void frame_size(fuzz_input& in, int32_t w, int32_t h, int32_t& fw, int32_t& fh) {
    fw = w;
    fh = h;
    switch (in.range(0, 7)) {
        case 0:
            fw = 16 * in.range(1, w / 16);
            fh = in.range(1, h);
            break;
        case 1:
            fw = w + 16 * in.range(0, 2);
            fh = h + in.range(0, 40);
            break;
        case 2:
            fw = in.range(-32, w + 32);
            fh = in.range(-2, h + 2);
            break;
        default:
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_input in(data, size);
    const vfuzz::placement where = in.flag() ? vfuzz::placement::heap : vfuzz::placement::page_end;
    // Mostly a multiple of 16; now and then any width, which vantor_init refuses.
    const int32_t w = in.range(0, 15) ? 16 * in.range(1, 24) : in.range(1, 400);
    const int32_t h = in.range(1, 200);
    const int32_t scenario = in.range(0, 1);

    vfuzz::log_reset();
    void* handle = vantor_init(w, h, scenario);
    if (w % 16 != 0) {
        if (handle || vfuzz::log_count_prefix("unsupported width") != 1)
            vfuzz::fail("vantor_init(%d, %d) took a width that is not a multiple of 16", w, h);
        return 0;
    }
    if (!handle)
        vfuzz::fail("vantor_init(%d, %d, %d) failed", w, h, scenario);
    if (vantor_wait_ready(handle, 20000) != 0)
        vfuzz::fail("the workers of a %dx%d handle did not park", w, h);
    vantor_handle* vh = static_cast<vantor_handle*>(handle);

    const int frames = in.range(1, 3);
    for (int n = 0; n < frames; ++n) {
        int32_t fw, fh;
        frame_size(in, w, h, fw, fh);
        const uint32_t format = in.pick(kFormats);
        // Only sizes a caller can lay out get planes; others are refused before any access.
        const bool drawable = fw >= 16 && fw % 16 == 0 && fh >= 1 && fw <= 512 && fh <= 260;
        std::unique_ptr<frame_planes> f;
        if (drawable)
            f.reset(new frame_planes(fw, fh, format, where, in));
        const int32_t aligned = (fh + 15) & ~15;
        const bool fits = drawable && fw <= w && aligned <= ((h + 15) & ~15);
        vfuzz::log_reset();
        const int32_t* r = vantor_run(handle, f ? f->address_1() : 0, f ? f->address_2() : 0, fw,
                                      fh, static_cast<int32_t>(format));
        if (!r)
            vfuzz::fail("vantor_run returned null for a live handle");
        if (!fits) {
            if (vfuzz::log_count_prefix("vantor_run, frame ") != 1)
                vfuzz::fail("a %dx%d frame on a %dx%d handle was not refused", fw, fh, w, h);
            if (f)
                f->expect_unchanged("refused frame");
            continue;
        }
        if (!known(format)) {
            if (vfuzz::log_count_prefix("vantor_run, Not supported format") != 1)
                vfuzz::fail("format 0x%08x was not refused", format);
            f->expect_unchanged("frame of unknown format");
            if (pthread_mutex_trylock(&vh->run_mutex[0]) != EBUSY)
                vfuzz::fail("an unknown format released the slot");
            pthread_mutex_unlock(&vh->run_mutex[0]);
            break;
        }
        // A stage that ran out of its 1000 ms (a starved machine) lets the frame go on
        // unfinished; only then is the model not the measure.
        if (vfuzz::log_count_prefix("vantor_timedwait_signal") == 0)
            f->expect_model(scenario);
    }
    if (vantor_deinit(handle) != 0)
        vfuzz::fail("vantor_deinit failed");
    return 0;
}
