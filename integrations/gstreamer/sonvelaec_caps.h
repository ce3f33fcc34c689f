/* The audio format the element takes and gives (16-bit mono at 8000 or 16000 Hz, the same rate
 * on both inputs) and the explanation of caps that do not fit. */
#ifndef SONVELAEC_CAPS_H
#define SONVELAEC_CAPS_H

#include <gst/gst.h>

G_BEGIN_DECLS

#define SONVEL_AEC_CAPS_STR                                                 \
    "audio/x-raw, format = (string) S16LE, layout = (string) interleaved, " \
    "channels = (int) 1, rate = (int) { 8000, 16000 }"

/* The element's caps at one rate (0: both rates). */
GstCaps *sonvel_aec_caps_at_rate(gint rate);

/* The rate of fixed caps, 0 when there is none. */
gint sonvel_aec_caps_rate(const GstCaps *caps);

/* Why `caps` offered on pad `pad_name` cannot be taken (NULL when they can): wrong format,
 * channels or rate, or a rate other than `other_rate` of pad `other_name` (0: not known yet).
 * Free with g_free. */
gchar *sonvel_aec_caps_problem(const GstCaps *caps, const gchar *pad_name, gint other_rate,
                               const gchar *other_name);

G_END_DECLS

#endif
