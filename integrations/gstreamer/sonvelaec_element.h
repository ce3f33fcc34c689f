/* The sonvelaec element: an aggregator that removes the echo of ref_sink (what the loudspeaker
 * plays) from mic_sink (the microphone) through the streaming layer, and its properties. */
#ifndef SONVELAEC_ELEMENT_H
#define SONVELAEC_ELEMENT_H

#include <gst/base/gstaggregator.h>

#include "sonvelaec_settings.h"
#include "sonvelaec_timeline.h"

G_BEGIN_DECLS

#define GST_TYPE_SONVEL_AEC (gst_sonvel_aec_get_type())
G_DECLARE_FINAL_TYPE(GstSonvelAec, gst_sonvel_aec, GST, SONVEL_AEC, GstAggregator)

struct _GstSonvelAec {
    GstAggregator parent;
    GstAggregatorPad *mic_pad, *ref_pad;

    /* Under `lock`: the settings, the stream instance and the estimates (properties are set and
   * read from any thread; the stream runs in the aggregator's thread). */
    GMutex lock;
    AecCfg cfg;
    AecFrontendCfg fe;
    GPtrArray *pending_warnings; /* refusals made before the element had a bus */
    guint64 *mem;
    void *stream;
    gint rate; /* rate of the running stream, 0 before the first caps */
    gint delay_estimate_ms;
    gdouble delay_confidence;

    /* Aggregator thread only. */
    gint mic_rate, ref_rate; /* from the pads' caps, 0 before them */
    gchar *last_refusal;     /* caps refusal last posted (object lock) */
    gboolean produced;       /* output has been pushed since start */
    gboolean mismatch_warned;
    SonvelAecCursor mic_cursor;
    SonvelAecRefLine ref;
    gint64 report_countdown; /* samples until the next estimate message */
    gint64 processed;        /* samples since the canceller (re)started */
};

GST_ELEMENT_REGISTER_DECLARE(sonvelaec);

G_END_DECLS

#endif
