/* The element's audio format and the explanation of caps that do not fit it. */
#include "sonvelaec_caps.h"

GstCaps *sonvel_aec_caps_at_rate(gint rate) {
    GstCaps *caps = gst_caps_from_string(SONVEL_AEC_CAPS_STR);
    if (rate > 0) gst_caps_set_simple(caps, "rate", G_TYPE_INT, rate, NULL);
    return caps;
}

gint sonvel_aec_caps_rate(const GstCaps *caps) {
    gint rate = 0;
    if (caps != NULL && gst_caps_get_size(caps) > 0)
        gst_structure_get_int(gst_caps_get_structure(caps, 0), "rate", &rate);
    return rate;
}

gchar *sonvel_aec_caps_problem(const GstCaps *caps, const gchar *pad_name, gint other_rate,
                               const gchar *other_name) {
    const GstStructure *s;
    const gchar *format;
    gint channels = 0, rate = 0;
    GstCaps *ours;
    gboolean fits;

    if (caps == NULL || gst_caps_is_empty(caps) || !gst_caps_is_fixed(caps))
        return g_strdup_printf("%s: no fixed audio format offered", pad_name);
    s = gst_caps_get_structure(caps, 0);
    format = gst_structure_get_string(s, "format");
    gst_structure_get_int(s, "channels", &channels);
    gst_structure_get_int(s, "rate", &rate);
    if (!gst_structure_has_name(s, "audio/x-raw") || g_strcmp0(format, "S16LE") != 0)
        return g_strdup_printf(
            "%s: takes 16-bit signed little-endian raw audio (S16LE), got %s "
            "(put audioconvert in front)",
            pad_name, format ? format : gst_structure_get_name(s));
    if (channels != 1)
        return g_strdup_printf("%s: takes mono audio, got %d channels (put audioconvert in front)",
                               pad_name, channels);
    if (rate != 8000 && rate != 16000)
        return g_strdup_printf(
            "%s: takes 8000 or 16000 Hz, got %d Hz (put audioresample in "
            "front)",
            pad_name, rate);
    if (other_rate > 0 && rate != other_rate)
        return g_strdup_printf(
            "%s is at %d Hz but %s is at %d Hz: both inputs must have the same "
            "rate",
            pad_name, rate, other_name, other_rate);
    ours = sonvel_aec_caps_at_rate(0);
    fits = gst_caps_can_intersect(caps, ours);
    gst_caps_unref(ours);
    if (!fits)
        return g_strdup_printf("%s: takes interleaved S16LE mono audio at 8000 or 16000 Hz",
                               pad_name);
    return NULL;
}
