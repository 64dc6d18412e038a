/*
 * vantordenoise through a GstHarness, one row of the table per frame, all through one element:
 * each output is compared with the library run directly on the same input. Size and format
 * changes between rows renegotiate the caps, a scenario change rebuilds the handle, one row
 * cycles the element PLAYING -> NULL -> PLAYING, and two rows force a failed frame status.
 */
#include <dirent.h>
#include <dlfcn.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gst/check/gstcheck.h>
#include <gst/check/gstharness.h>
#include <gst/video/video.h>

#include "vantor.h"
#include "vantor_ext.h"

/* The program exports its symbols, so the element's calls land here and a row can force the
 * status of its frame. */
static int32_t forced_status;

int32_t vantor_frame_status(void* handle) {
    int32_t (*real)(void*) = (int32_t(*)(void*))dlsym(RTLD_NEXT, "vantor_frame_status");
    const int32_t status = real(handle);
    return forced_status != VANTOR_FRAME_OK ? forced_status : status;
}

struct frame_case {
    GstVideoFormat format;
    int width;
    int height;
    int stride[2]; /* bytes per row of each plane, 0 for tight rows */
    int luma_rows; /* NV21: rows before the V/U plane, 0 for the height, -1: V/U plane first */
    const char* scenario;
    gboolean cycle; /* PLAYING -> NULL -> PLAYING before this row */
    int32_t force;  /* frame status the element is told */
};

#define NV21 GST_VIDEO_FORMAT_NV21
#define YUY2 GST_VIDEO_FORMAT_YUY2

static const struct frame_case cases[] = {
    {NV21, 208, 48, {0, 0}, 0, "capture", FALSE, 0},    /* in place */
    {NV21, 208, 50, {0, 0}, 0, "capture", FALSE, 0},    /* no room for the padding rows */
    {NV21, 208, 50, {240, 0}, 64, "preview", FALSE, 0}, /* padded luma rows */
    {NV21, 208, 50, {0, 224}, 64, "preview", FALSE, 0}, /* padded V/U rows */
    {NV21, 208, 50, {0, 0}, 64, "preview", FALSE, 0},   /* in place, padding rows in the gap */
    {NV21, 208, 50, {0, 0}, -1, "preview", FALSE, 0},   /* padding rows past the buffer */
    {YUY2, 48, 30, {0, 0}, 0, "capture", FALSE, 0},     /* in place */
    {YUY2, 48, 30, {128, 0}, 0, "capture", FALSE, 0},   /* padded rows */
    {YUY2, 48, 30, {0, 0}, 0, "capture", FALSE, VANTOR_FRAME_LATE_YUV},
    {NV21, 208, 50, {0, 0}, 0, "capture", FALSE, VANTOR_FRAME_REFUSED_INTERLEAVE},
    {NV21, 208, 48, {0, 0}, 64, "capture", TRUE, 0},
};

static int thread_id(void) {
    return (int)syscall(SYS_gettid);
}

static int thread_count(void) {
    DIR* dir = opendir("/proc/self/task");
    int n = 0;
    for (struct dirent* e; (e = readdir(dir)) != NULL;)
        n += e->d_name[0] != '.';
    closedir(dir);
    return n;
}

/* Library workers leave shortly after vantor_deinit returns. */
static int settled_thread_count(int expected) {
    for (int i = 0; i < 300 && thread_count() != expected; i++)
        g_usleep(10000);
    return thread_count();
}

static int row_bytes(const struct frame_case* c) {
    return c->format == NV21 ? c->width : 2 * c->width;
}

static int plane_rows(const struct frame_case* c, int plane) {
    return plane == 0 ? c->height : c->height / 2;
}

static int plane_count(const struct frame_case* c) {
    return c->format == NV21 ? 2 : 1;
}

/* Random bytes in the case's layout; `tight` gets the same frame with rows back to back. */
static GstBuffer* make_input(const struct frame_case* c, GRand* rand, guint8* tight) {
    const int row = row_bytes(c);
    const int planes = plane_count(c);
    gint stride[GST_VIDEO_MAX_PLANES] = {c->stride[0] ? c->stride[0] : row,
                                         c->stride[1] ? c->stride[1] : row};
    gsize offset[GST_VIDEO_MAX_PLANES] = {0, 0};
    if (c->luma_rows < 0)
        offset[0] = (gsize)stride[1] * plane_rows(c, 1);
    else
        offset[1] = (gsize)stride[0] * (c->luma_rows ? c->luma_rows : c->height);
    gsize size = 0;
    for (int p = 0; p < planes; p++)
        size = MAX(size, offset[p] + (gsize)stride[p] * plane_rows(c, p));
    GstBuffer* buffer = gst_buffer_new_allocate(NULL, size, NULL);
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_WRITE);
    for (gsize i = 0; i < size; i++)
        map.data[i] = (guint8)g_rand_int(rand);
    for (int p = 0; p < planes; p++, tight += (gsize)row * plane_rows(c, 0))
        for (int r = 0; r < plane_rows(c, p); r++)
            memcpy(tight + (gsize)r * row, map.data + offset[p] + (gsize)r * stride[p], row);
    gst_buffer_unmap(buffer, &map);
    if (c->stride[0] != 0 || c->stride[1] != 0 || c->luma_rows != 0)
        gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, c->format, c->width,
                                       c->height, planes, offset, stride);
    return buffer;
}

/* The library on its own handle; NV21 with the luma plane of aligned height it needs. */
static void reference(const struct frame_case* c, const guint8* tight, guint8* out, gsize size) {
    const int scenario =
        strcmp(c->scenario, "preview") == 0 ? VTR_SCENARIO_PREVIEW : VTR_SCENARIO_CAPTURE;
    const gsize luma = (gsize)c->width * ((c->height + 15) & ~15);
    guint8* frame = g_malloc(luma + size);
    memcpy(frame, tight, size);
    if (c->format == NV21)
        memcpy(frame + luma, tight + (gsize)c->width * c->height,
               size - (gsize)c->width * c->height);
    void* handle = vantor_init(c->width, c->height, scenario);
    fail_unless_equals_int(vantor_wait_ready(handle, 5000), 0);
    vantor_run(handle, (uintptr_t)frame, (uintptr_t)(frame + luma), c->width, c->height,
               c->format == NV21 ? VTR_NV21 : VTR_YUY2);
    fail_unless_equals_int(vantor_frame_status(handle), VANTOR_FRAME_OK);
    vantor_deinit(handle);
    memcpy(out, frame, size);
    g_free(frame);
}

static void expect_frame(const struct frame_case* c, GstBuffer* buffer, const guint8* tight,
                         int index) {
    GstVideoInfo info;
    gst_video_info_set_format(&info, c->format, c->width, c->height);
    GstVideoFrame frame;
    fail_unless(gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ));
    const int row = row_bytes(c);
    for (int p = 0; p < plane_count(c); p++, tight += (gsize)row * plane_rows(c, 0))
        for (int r = 0; r < plane_rows(c, p); r++)
            fail_unless(memcmp((const guint8*)GST_VIDEO_FRAME_PLANE_DATA(&frame, p) +
                                   r * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, p),
                               tight + (gsize)r * row, row) == 0,
                        "row %d of plane %d differs in row %d of the table", r, p, index);
    gst_video_frame_unmap(&frame);
}

GST_START_TEST(test_frames) {
    GstHarness* h = gst_harness_new("vantordenoise");
    GstBus* bus = gst_bus_new();
    gst_element_set_bus(h->element, bus);
    GRand* rand = g_rand_new_with_seed(13);
    const int threads = thread_count();
    gchar* caps = NULL;
    guint64 frames = 0;
    guint64 failed = 0;
    for (int i = 0; i < (int)G_N_ELEMENTS(cases); i++) {
        const struct frame_case* c = &cases[i];
        if (c->cycle) {
            fail_unless_equals_int(settled_thread_count(threads + 15), threads + 15);
            gst_element_set_state(h->element, GST_STATE_NULL);
            fail_unless_equals_int(settled_thread_count(threads), threads);
            gst_harness_play(h);
            g_clear_pointer(&caps, g_free);
            frames = failed = 0;
        }
        gchar* next = g_strdup_printf("video/x-raw,format=%s,width=%d,height=%d,framerate=30/1",
                                      gst_video_format_to_string(c->format), c->width, c->height);
        if (caps == NULL || strcmp(caps, next) != 0)
            gst_harness_set_src_caps_str(h, next);
        g_free(caps);
        caps = next;
        gst_util_set_object_arg(G_OBJECT(h->element), "scenario", c->scenario);

        const gsize size = (gsize)row_bytes(c) * c->height * (c->format == NV21 ? 3 : 2) / 2;
        guint8* input = g_malloc(size);
        guint8* expected = g_malloc(size);
        GstBuffer* buffer = make_input(c, rand, input);
        reference(c, input, expected, size);
        fail_if(memcmp(input, expected, size) == 0, "the library left row %d as it was", i);
        /* The harness pushes on this thread: the element must hand it back its niceness. */
        setpriority(PRIO_PROCESS, thread_id(), 5);
        forced_status = c->force;
        buffer = gst_harness_push_and_pull(h, buffer);
        forced_status = VANTOR_FRAME_OK;
        fail_unless_equals_int(getpriority(PRIO_PROCESS, thread_id()), 5);
        expect_frame(c, buffer, c->force != VANTOR_FRAME_OK ? input : expected, i);
        gst_buffer_unref(buffer);
        g_free(input);
        g_free(expected);

        if (c->force != VANTOR_FRAME_OK) {
            GstMessage* m = gst_bus_pop_filtered(bus, GST_MESSAGE_WARNING);
            fail_unless(m != NULL, "no warning for row %d", i);
            GError* error = NULL;
            gst_message_parse_warning(m, &error, NULL);
            gchar* want = g_strdup_printf("Frame %" G_GUINT64_FORMAT " ", frames);
            fail_unless(g_str_has_prefix(error->message, want), "%s", error->message);
            g_free(want);
            g_error_free(error);
            gst_message_unref(m);
            failed++;
        }
        frames++;
        guint64 counted = 0;
        g_object_get(h->element, "failed-frames", &counted, NULL);
        fail_unless_equals_uint64(counted, failed);
    }
    GstMessage* left = gst_bus_pop_filtered(bus, GST_MESSAGE_WARNING | GST_MESSAGE_ERROR);
    fail_unless(left == NULL, "unexpected %s", left ? GST_MESSAGE_TYPE_NAME(left) : "");
    g_free(caps);
    g_rand_free(rand);
    gst_harness_teardown(h);
    gst_object_unref(bus);
    fail_unless_equals_int(settled_thread_count(threads), threads);
}
GST_END_TEST

static Suite* vantordenoise_suite(void) {
    Suite* s = suite_create("vantordenoise");
    TCase* tc = tcase_create("frames");
    tcase_set_timeout(tc, 120);
    tcase_add_test(tc, test_frames);
    suite_add_tcase(s, tc);
    return s;
}

GST_CHECK_MAIN(vantordenoise)
