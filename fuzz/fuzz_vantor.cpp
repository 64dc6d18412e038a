// The fuzz target. The first byte selects what runs: 0x7F (low seven bits) whole frames through
// the public entry points, any other value one of the twin harness's cases (a vector kernel
// against its scalar twin, or a wrapper against its scalar form), by its value modulo their
// number; its top bit puts every buffer in an exact heap block instead of at a page end. The other
// bytes make every choice the case makes (sizes, contents, saturation, formats), four bytes a
// choice (vtest::rng), so a seed file is easy to write by hand.
//
// Whole frames: a handle of a random size and scenario, then up to three frames on it, each of
// a random size (the handle's own, smaller, larger or malformed), format (the four and some
// unknown codes) and content, in buffers laid out as vantor.h documents and ending where that
// layout ends. A frame that fits must come out as the one-thread model makes it; a refused
// frame and a frame of unknown format must leave every plane as it was, with the exact refusal
// line. An unknown format leaves the slot locked on purpose; the target checks that and
// releases the lock itself (this thread holds it) so that the handle can be torn down.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "support/frame_model.h"
#include "entry/handle.h"
#include "support/frames.h"
#include "support/log_capture.h"
#include "twin/twin.h"
#include "vantor.h"
#include "vantor_ext.h"

namespace {

[[noreturn]] __attribute__((format(printf, 1, 2))) void fail(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    fprintf(stderr, "fuzz failure: ");
    vfprintf(stderr, fmt, ap);
    fprintf(stderr, "\n");
    va_end(ap);
    abort();
}

// The frame's planes and the bytes around them as they were before the call.
void expect_unchanged(const vtest::model_case& f, const char* what) {
    if (!f.buf.front_intact() || memcmp(f.buf.data(), f.input.data(), f.input.size()) != 0)
        fail("%s: a %dx%d frame of format 0x%08x was changed", what, f.width, f.height, f.format);
}

// Captured lines that begin with `prefix`.
int logged(const char* prefix) {
    int n = 0;
    for (const vtest::log_line& l : vtest::log_lines())
        n += l.text.compare(0, strlen(prefix), prefix) == 0;
    return n;
}

const uint32_t kFormats[] = {VTR_NV21, VTR_NV21_M, VTR_YUYV, VTR_YUY2,
                             // The four codes in the other byte order, zero and a neighbour.
                             0x4E563231, 0x4E4D3231, 0x59555956, 0x59555932, 0, VTR_YUY2 + 1};

bool known(uint32_t f) {
    return f == VTR_NV21 || f == VTR_NV21_M || f == VTR_YUYV || f == VTR_YUY2;
}

void frames(vtest::rng& r) {
    // Mostly a multiple of 16; now and then any width, which vantor_init refuses.
    const int32_t w = r.range(0, 15) ? 16 * r.range(1, 24) : r.range(1, 400);
    const int32_t h = r.range(1, 200);
    const int32_t scenario = r.range(0, 1);
    vtest::log_clear();
    void* handle = vantor_init(w, h, scenario);
    if (w % 16 != 0) {
        if (handle || logged("unsupported width") != 1)
            fail("vantor_init(%d, %d) took a width that is not a multiple of 16", w, h);
        return;
    }
    if (!handle)
        fail("vantor_init(%d, %d, %d) failed", w, h, scenario);
    if (vantor_wait_ready(handle, 20000) != 0)
        fail("the workers of a %dx%d handle did not park", w, h);
    vantor_handle* vh = static_cast<vantor_handle*>(handle);

    for (int n = r.range(1, 3); n > 0; --n) {
        // The handle's own size most often, else smaller, larger or malformed.
        int32_t fw = w, fh = h;
        const int kind = r.range(0, 7);
        if (kind == 0) {
            fw = 16 * r.range(1, w / 16);
            fh = r.range(1, h);
        } else if (kind == 1) {
            fw = w + 16 * r.range(0, 2);
            fh = h + r.range(0, 40);
        } else if (kind == 2) {
            fw = r.range(-32, w + 32);
            fh = r.range(-2, h + 2);
        }
        const uint32_t format = kFormats[r.range(0, 9)];
        // Only sizes a caller can lay out get planes; others are refused before any access.
        const bool drawable = fw >= 16 && fw % 16 == 0 && fh >= 1 && fw <= 512 && fh <= 260;
        // Contents: random or the test scene, from a seed of the input.
        std::unique_ptr<vtest::model_case> f;
        if (drawable)
            f.reset(new vtest::model_case(fw, fh, format, scenario, r.next(), r.range(0, 1)));
        const bool fits = drawable && fw <= w && ((fh + 15) & ~15) <= ((h + 15) & ~15);
        vtest::log_clear();
        if (!(f ? f->run(handle) : vantor_run(handle, 0, 0, fw, fh, static_cast<int32_t>(format))))
            fail("vantor_run returned null for a live handle");
        if (!fits) {
            if (logged("vantor_run, frame ") != 1)
                fail("a %dx%d frame on a %dx%d handle was not refused", fw, fh, w, h);
            if (f)
                expect_unchanged(*f, "refused frame");
            continue;
        }
        if (!known(format)) {
            if (logged("vantor_run, Not supported format") != 1)
                fail("format 0x%08x was not refused", format);
            expect_unchanged(*f, "frame of unknown format");
            if (pthread_mutex_trylock(&vh->run_mutex[0]) != EBUSY)
                fail("an unknown format released the slot");
            pthread_mutex_unlock(&vh->run_mutex[0]);
            break;
        }
        // A stage that ran out of its 1000 ms (a starved machine) lets the frame go on
        // unfinished; only then is the model not the measure.
        const std::string m = f->mismatch();
        if (vantor_frame_status(handle) == VANTOR_FRAME_OK && !m.empty())
            fail("whole frame against the one-thread model: %s", m.c_str());
    }
    if (vantor_deinit(handle) != 0)
        fail("vantor_deinit failed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const std::vector<twin::twin_case>& cases = twin::sorted_cases();
    const size_t which = (data[0] & 0x7F) % cases.size();
    vtest::guarded_on_heap = (data[0] & 0x80) != 0;
    vtest::rng r(data + 1, size - 1);
    if ((data[0] & 0x7F) == 0x7F) {
        frames(r);
        return 0;
    }
    twin::context ctx{r, {}};
    if (!cases[which].trial(ctx))
        fail("%s: %s", cases[which].name, ctx.failure.c_str());
    return 0;
}
