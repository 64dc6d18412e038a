/*
 * vantordenoise: the library as a GStreamer video filter, for NV21 and YUY2 frames.
 *
 * One library handle per negotiated size, made in set_info and waited ready there, destroyed
 * when the size changes and in stop(). Frames are processed in place in the buffer when its
 * layout is the one the library needs, else through scratch memory owned by the element
 * (allocated once per size); see fits_in_place() for the rule.
 *
 * A frame whose status is not VANTOR_FRAME_OK is passed on exactly as it came in: the element
 * always copies the frame into its scratch memory first (the input of the scratch path, the
 * backup of the in-place path), so the input can be put back once the workers have stopped.
 * Each such frame is posted as an element warning and counted in "failed-frames".
 */
#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gst/gst.h>
#include <gst/video/video.h>
#include <gst/video/gstvideofilter.h>

#include "vantor.h"
#include "vantor_ext.h"

GST_DEBUG_CATEGORY_STATIC(vantor_denoise_debug);
#define GST_CAT_DEFAULT vantor_denoise_debug

/* Widths in steps of 16, the library's unit; NV21 needs an even height (each chroma row
 * serves two luma rows). Sides up to 16384 keep every plane within the library's 32-bit
 * sizes. */
#define VTR_GST_CAPS                                                         \
    "video/x-raw, format = (string) NV21, width = (int) [ 16, 16384, 16 ], " \
    "height = (int) [ 2, 16384, 2 ], framerate = (fraction) [ 0, max ]; "    \
    "video/x-raw, format = (string) YUY2, width = (int) [ 16, 16384, 16 ], " \
    "height = (int) [ 1, 16384 ], framerate = (fraction) [ 0, max ]"

/* vantor_init returns before its workers are parked; this long is allowed for them. */
#define VTR_GST_READY_MS 5000
/* After a failed frame the workers are waited for in steps of this long, as long as needed:
 * the frame's memory may not be touched or passed on while one of them may still write it. */
#define VTR_GST_SETTLE_MS 1000

enum { PROP_0, PROP_SCENARIO, PROP_FAILED_FRAMES };

G_DECLARE_FINAL_TYPE(GstVantorDenoise, gst_vantor_denoise, GST, VANTOR_DENOISE, GstVideoFilter)

struct _GstVantorDenoise {
    GstVideoFilter parent;
    /* Properties, under the object lock. */
    int scenario;
    guint64 failed_frames;
    /* Streaming state: set_info, transform_frame_ip, start and stop never overlap. */
    void* handle;
    int handle_scenario;
    int width;
    int height;
    gboolean nv21;
    guint8* scratch;
    guint64 frames;
};

G_DEFINE_TYPE(GstVantorDenoise, gst_vantor_denoise, GST_TYPE_VIDEO_FILTER)

static GType vantor_scenario_get_type(void) {
    static gsize type = 0;
    static const GEnumValue values[] = {
        {VTR_SCENARIO_CAPTURE, "Capture: chroma blend threshold 12, workers at niceness -8",
         "capture"},
        {VTR_SCENARIO_PREVIEW, "Preview: chroma blend threshold 4, workers at niceness 0",
         "preview"},
        {0, NULL, NULL}};
    if (g_once_init_enter(&type))
        g_once_init_leave(&type, g_enum_register_static("GstVantorScenario", values));
    return type;
}

static int aligned_height(int height) {
    return (height + 15) & ~15;
}

/* NV21 in the scratch memory: aligned_height luma rows (the library writes the padding rows),
 * then the V/U plane. YUY2: the packed frame. */
static gsize scratch_size(int width, int height, gboolean nv21) {
    return nv21 ? (gsize)width * (aligned_height(height) + height / 2) : (gsize)2 * width * height;
}

static void close_handle(GstVantorDenoise* self) {
    if (self->handle != NULL)
        vantor_deinit(self->handle);
    self->handle = NULL;
}

static void release(GstVantorDenoise* self) {
    close_handle(self);
    g_free(self->scratch);
    self->scratch = NULL;
    self->width = 0;
    self->height = 0;
}

static gboolean open_handle(GstVantorDenoise* self, int scenario) {
    self->handle = vantor_init(self->width, self->height, scenario);
    if (self->handle == NULL) {
        GST_ELEMENT_ERROR(
            self, LIBRARY, INIT,
            ("Could not start the denoiser for %dx%d frames", self->width, self->height),
            ("vantor_init failed"));
        return FALSE;
    }
    const int rc = vantor_wait_ready(self->handle, VTR_GST_READY_MS);
    if (rc != 0) {
        GST_ELEMENT_ERROR(self, LIBRARY, INIT,
                          ("The denoiser's workers were not ready within %d ms", VTR_GST_READY_MS),
                          ("vantor_wait_ready returned %d", rc));
        close_handle(self);
        return FALSE;
    }
    self->handle_scenario = scenario;
    return TRUE;
}

static int current_scenario(GstVantorDenoise* self) {
    GST_OBJECT_LOCK(self);
    const int scenario = self->scenario;
    GST_OBJECT_UNLOCK(self);
    return scenario;
}

static gboolean gst_vantor_denoise_set_info(GstVideoFilter* filter, GstCaps* incaps,
                                            GstVideoInfo* in_info, GstCaps* outcaps,
                                            GstVideoInfo* out_info) {
    GstVantorDenoise* self = GST_VANTOR_DENOISE(filter);
    const int width = GST_VIDEO_INFO_WIDTH(in_info);
    const int height = GST_VIDEO_INFO_HEIGHT(in_info);
    const gboolean nv21 = GST_VIDEO_INFO_FORMAT(in_info) == GST_VIDEO_FORMAT_NV21;
    if (self->handle != NULL && width == self->width && height == self->height &&
        nv21 == self->nv21)
        return TRUE;
    release(self);
    self->scratch = g_try_malloc(scratch_size(width, height, nv21));
    if (self->scratch == NULL) {
        GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT,
                          ("Not enough memory for %dx%d frames", width, height), (NULL));
        return FALSE;
    }
    self->width = width;
    self->height = height;
    self->nv21 = nv21;
    GST_DEBUG_OBJECT(self, "%dx%d %s", width, height, nv21 ? "NV21" : "YUY2");
    return open_handle(self, current_scenario(self));
}

/* The memory a plane of the frame was mapped from: one block for the whole buffer without a
 * video meta, the block holding the plane with one. */
static gboolean inside_plane_map(const GstVideoFrame* frame, int plane, gsize bytes) {
    const GstMapInfo* map = &frame->map[frame->meta != NULL ? plane : 0];
    const uintptr_t begin = (uintptr_t)map->data;
    const uintptr_t data = (uintptr_t)frame->data[plane];
    return data >= begin && data - begin <= map->size && bytes <= map->size - (data - begin);
}

/*
 * In place when the library's reach lies inside the frame's own mapped memory and its rows are
 * the library's: YUY2 rows of exactly 2 * width bytes; NV21 planes of exactly width bytes per
 * row whose luma plane has room for aligned_height rows before anything of the V/U plane (the
 * library writes rows height .. aligned_height - 1 there). Such an NV21 frame is passed as
 * NM21, so its V/U plane stays where it is. Everything else, a tightly packed NV21 frame whose
 * height is not a multiple of 16 among them, goes through the scratch memory.
 */
static gboolean fits_in_place(const GstVideoFrame* frame, int width, int height, gboolean nv21) {
    if (!nv21)
        return GST_VIDEO_FRAME_PLANE_STRIDE(frame, 0) == 2 * width &&
               inside_plane_map(frame, 0, (gsize)2 * width * height);
    const gsize luma = (gsize)width * aligned_height(height);
    const gsize chroma = (gsize)width * (height / 2);
    const uintptr_t y = (uintptr_t)frame->data[0];
    const uintptr_t vu = (uintptr_t)frame->data[1];
    return GST_VIDEO_FRAME_PLANE_STRIDE(frame, 0) == width &&
           GST_VIDEO_FRAME_PLANE_STRIDE(frame, 1) == width && inside_plane_map(frame, 0, luma) &&
           inside_plane_map(frame, 1, chroma) && (vu >= y + luma || vu + chroma <= y);
}

static void copy_rows(guint8* dst, gssize dst_stride, const guint8* src, gssize src_stride,
                      gsize bytes, int rows) {
    for (int r = 0; r < rows; r++)
        memcpy(dst + r * dst_stride, src + r * src_stride, bytes);
}

/* Between the frame and the scratch layout, one direction or the other. */
static void copy_frame(GstVantorDenoise* self, GstVideoFrame* frame, gboolean to_scratch) {
    const int w = self->width;
    const int h = self->height;
    const int planes = self->nv21 ? 2 : 1;
    for (int p = 0; p < planes; p++) {
        guint8* s = self->scratch + (p == 0 ? 0 : (gsize)w * aligned_height(h));
        guint8* f = GST_VIDEO_FRAME_PLANE_DATA(frame, p);
        const int stride = GST_VIDEO_FRAME_PLANE_STRIDE(frame, p);
        const gsize bytes = self->nv21 ? (gsize)w : (gsize)2 * w;
        const int rows = p == 0 ? h : h / 2;
        if (to_scratch)
            copy_rows(s, bytes, f, stride, bytes, rows);
        else
            copy_rows(f, stride, s, bytes, bytes, rows);
    }
}

static int thread_id(void) {
    return (int)syscall(SYS_gettid);
}

/* Runs one frame; returns the library's frame status, VANTOR_FRAME_OK when the frame now holds
 * the result. On any other status the frame holds its input again. */
static int process_frame(GstVantorDenoise* self, GstVideoFrame* frame, guint64 number) {
    const int w = self->width;
    const int h = self->height;
    const gboolean direct = fits_in_place(frame, w, h, self->nv21);
    copy_frame(self, frame, TRUE);
    uintptr_t first = (uintptr_t)self->scratch;
    uintptr_t second = first + (gsize)w * aligned_height(h);
    if (direct) {
        first = (uintptr_t)GST_VIDEO_FRAME_PLANE_DATA(frame, 0);
        second = self->nv21 ? (uintptr_t)GST_VIDEO_FRAME_PLANE_DATA(frame, 1) : 0;
    }
    /* The library leaves the calling thread at the scenario's niceness; the streaming thread
     * also runs the elements downstream, so it gets its own back. */
    errno = 0;
    const int niceness = getpriority(PRIO_PROCESS, thread_id());
    const gboolean restore_niceness = errno == 0;
    const int32_t* result =
        vantor_run(self->handle, first, second, w, h, self->nv21 ? VTR_NV21_M : VTR_YUY2);
    const int status = result != NULL ? vantor_frame_status(self->handle) : VANTOR_FRAME_NOT_RUN;
    if (restore_niceness)
        setpriority(PRIO_PROCESS, thread_id(), niceness);
    if (status != VANTOR_FRAME_OK) {
        int rc;
        while ((rc = vantor_wait_ready(self->handle, VTR_GST_SETTLE_MS)) != 0)
            GST_WARNING_OBJECT(self, "workers still busy after a failed frame (%d)", rc);
    }
    /* In place: the input goes back on failure. Scratch: the result goes out on success. */
    if (direct != (status == VANTOR_FRAME_OK))
        copy_frame(self, frame, FALSE);
    GST_LOG_OBJECT(self, "frame %" G_GUINT64_FORMAT " %s, status 0x%x", number,
                   direct ? "in place" : "through scratch", status);
    return status;
}

static GstFlowReturn gst_vantor_denoise_transform_frame_ip(GstVideoFilter* filter,
                                                           GstVideoFrame* frame) {
    GstVantorDenoise* self = GST_VANTOR_DENOISE(filter);
    const guint64 number = self->frames++;
    if (self->handle == NULL)
        return GST_FLOW_NOT_NEGOTIATED;
    const int scenario = current_scenario(self);
    if (scenario != self->handle_scenario) {
        close_handle(self);
        if (!open_handle(self, scenario))
            return GST_FLOW_ERROR;
    }
    const int status = process_frame(self, frame, number);
    if (status != VANTOR_FRAME_OK) {
        GST_OBJECT_LOCK(self);
        self->failed_frames++;
        GST_OBJECT_UNLOCK(self);
        GST_ELEMENT_WARNING(self, STREAM, FAILED,
                            ("Frame %" G_GUINT64_FORMAT " failed in the denoiser and is passed on "
                             "unprocessed",
                             number),
                            ("frame status 0x%x", status));
    }
    return GST_FLOW_OK;
}

static gboolean gst_vantor_denoise_start(GstBaseTransform* trans) {
    GstVantorDenoise* self = GST_VANTOR_DENOISE(trans);
    self->frames = 0;
    GST_OBJECT_LOCK(self);
    self->failed_frames = 0;
    GST_OBJECT_UNLOCK(self);
    return TRUE;
}

static gboolean gst_vantor_denoise_stop(GstBaseTransform* trans) {
    release(GST_VANTOR_DENOISE(trans));
    return TRUE;
}

static void gst_vantor_denoise_set_property(GObject* object, guint id, const GValue* value,
                                            GParamSpec* pspec) {
    GstVantorDenoise* self = GST_VANTOR_DENOISE(object);
    switch (id) {
        case PROP_SCENARIO:
            GST_OBJECT_LOCK(self);
            self->scenario = g_value_get_enum(value);
            GST_OBJECT_UNLOCK(self);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

static void gst_vantor_denoise_get_property(GObject* object, guint id, GValue* value,
                                            GParamSpec* pspec) {
    GstVantorDenoise* self = GST_VANTOR_DENOISE(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
        case PROP_SCENARIO:
            g_value_set_enum(value, self->scenario);
            break;
        case PROP_FAILED_FRAMES:
            g_value_set_uint64(value, self->failed_frames);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
    GST_OBJECT_UNLOCK(self);
}

static void gst_vantor_denoise_finalize(GObject* object) {
    release(GST_VANTOR_DENOISE(object));
    G_OBJECT_CLASS(gst_vantor_denoise_parent_class)->finalize(object);
}

static void gst_vantor_denoise_class_init(GstVantorDenoiseClass* klass) {
    GObjectClass* object_class = G_OBJECT_CLASS(klass);
    GstElementClass* element_class = GST_ELEMENT_CLASS(klass);
    GstBaseTransformClass* trans_class = GST_BASE_TRANSFORM_CLASS(klass);
    GstVideoFilterClass* filter_class = GST_VIDEO_FILTER_CLASS(klass);

    object_class->set_property = gst_vantor_denoise_set_property;
    object_class->get_property = gst_vantor_denoise_get_property;
    object_class->finalize = gst_vantor_denoise_finalize;
    g_object_class_install_property(
        object_class, PROP_SCENARIO,
        g_param_spec_enum("scenario", "Scenario",
                          "Tuning of the denoiser; a change applies from the next frame",
                          vantor_scenario_get_type(), VTR_SCENARIO_CAPTURE,
                          G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS));
    g_object_class_install_property(
        object_class, PROP_FAILED_FRAMES,
        g_param_spec_uint64("failed-frames", "Failed frames",
                            "Frames passed on unprocessed since the element started, each "
                            "posted as a warning",
                            0, G_MAXUINT64, 0, G_PARAM_READABLE | G_PARAM_STATIC_STRINGS));

    GstCaps* caps = gst_caps_from_string(VTR_GST_CAPS);
    gst_element_class_add_pad_template(
        element_class, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, caps));
    gst_element_class_add_pad_template(
        element_class, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
    gst_caps_unref(caps);
    gst_element_class_set_static_metadata(
        element_class, "Vantor chroma denoiser", "Filter/Effect/Video",
        "Removes low-frequency colour blotches and smooths low-frequency luma, in place",
        "vantor developers");

    trans_class->start = GST_DEBUG_FUNCPTR(gst_vantor_denoise_start);
    trans_class->stop = GST_DEBUG_FUNCPTR(gst_vantor_denoise_stop);
    trans_class->transform_ip_on_passthrough = FALSE;
    filter_class->set_info = GST_DEBUG_FUNCPTR(gst_vantor_denoise_set_info);
    filter_class->transform_frame_ip = GST_DEBUG_FUNCPTR(gst_vantor_denoise_transform_frame_ip);

    GST_DEBUG_CATEGORY_INIT(vantor_denoise_debug, "vantordenoise", 0, "vantor chroma denoiser");
}

static void gst_vantor_denoise_init(GstVantorDenoise* self) {
    self->scenario = VTR_SCENARIO_CAPTURE;
}

static gboolean plugin_init(GstPlugin* plugin) {
    return gst_element_register(plugin, "vantordenoise", GST_RANK_NONE,
                                gst_vantor_denoise_get_type());
}

/* GST_PLUGIN_DEFINE names the source package through PACKAGE and leaves its padding fields to
 * their zero default. */
#define PACKAGE "vantor"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, vantor,
                  "Chroma-blotch removal for camera frames", plugin_init, VTR_GST_VERSION,
                  GST_LICENSE_UNKNOWN, "vantor", "Unknown package origin")
