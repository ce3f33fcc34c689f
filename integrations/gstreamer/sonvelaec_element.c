/* The sonvelaec element: pads, properties, the stream instance's life, and the aggregation
 * loop that lines the reference up with the microphone by running time and feeds both to the
 * streaming layer.
 *
 * The output follows the microphone: one output sample per microphone sample, with the
 * microphone's timestamps, lagging the input by the stream's latency (reported through the
 * latency query). The reference is taken from the same running time; where it has not played
 * (late start, gaps, end of stream, or not there in time in a live pipeline) it is silence. */
#include "sonvelaec_element.h"

#include <string.h>

#include "sonvelaec_caps.h"

GST_DEBUG_CATEGORY_STATIC(sonvel_aec_debug);
#define GST_CAT_DEFAULT sonvel_aec_debug

/* Timestamps within this much of a stream's continuation count as continuous (jitter of live
 * sources, rounding of converters). */
#define CONTINUITY_MS 20

enum {
    PROP_0,
    PROP_REF_DELAY,
    PROP_DC_BLOCK,
    PROP_DRIFT,
    PROP_DELAY_ESTIMATE,
    PROP_DELAY_CONFIDENCE,
    PROP_FIELD_FIRST /* one property per record field from here on */
};

static GstStaticPadTemplate mic_template = GST_STATIC_PAD_TEMPLATE(
    "mic_sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(SONVEL_AEC_CAPS_STR));
static GstStaticPadTemplate ref_template = GST_STATIC_PAD_TEMPLATE(
    "ref_sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(SONVEL_AEC_CAPS_STR));
static GstStaticPadTemplate src_template = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(SONVEL_AEC_CAPS_STR));

/* drift: "off" or "auto" as the tool writes it; booleans are taken too. */
static GType drift_mode_get_type(void) {
    static GType type = 0;
    static const GEnumValue values[] = {
        {0, "Off", "off"},   {1, "Follow the drift (with ref-delay=auto)", "auto"},
        {0, "Off", "false"}, {1, "Same as auto", "true"},
        {0, NULL, NULL},
    };
    if (g_once_init_enter(&type))
        g_once_init_leave(&type, g_enum_register_static("GstSonvelAecDrift", values));
    return type;
}

G_DEFINE_TYPE(GstSonvelAec, gst_sonvel_aec, GST_TYPE_AGGREGATOR);
GST_ELEMENT_REGISTER_DEFINE(sonvelaec, "sonvelaec", GST_RANK_NONE, GST_TYPE_SONVEL_AEC);

/* ---- Warnings about settings: posted now, or when the element starts if it has no bus yet
 * (gst-launch sets properties before the element is in a pipeline). */

static void warn(GstSonvelAec *self, gchar *text) {
    GstBus *bus = gst_element_get_bus(GST_ELEMENT(self));
    GST_WARNING_OBJECT(self, "%s", text);
    if (bus == NULL) {
        g_mutex_lock(&self->lock);
        g_ptr_array_add(self->pending_warnings, text);
        g_mutex_unlock(&self->lock);
        return;
    }
    gst_object_unref(bus);
    GST_ELEMENT_WARNING(self, LIBRARY, SETTINGS, ("%s", text), (NULL));
    g_free(text);
}

static void post_pending_warnings(GstSonvelAec *self) {
    GPtrArray *pending;
    g_mutex_lock(&self->lock);
    pending = self->pending_warnings;
    self->pending_warnings = g_ptr_array_new_with_free_func(g_free);
    g_mutex_unlock(&self->lock);
    for (guint i = 0; i < pending->len; ++i)
        GST_ELEMENT_WARNING(self, LIBRARY, SETTINGS, ("%s", (gchar *)pending->pdata[i]), (NULL));
    g_ptr_array_unref(pending);
}

/* ---- The stream instance. */

/* The output's lag behind the microphone: the stream's latency (two frames and a block). The
 * front end's delay line delays the reference, not the microphone, so it adds nothing. */
static GstClockTime latency_locked(GstSonvelAec *self) {
    AecFrontendEstimate est;
    if (self->stream == NULL || Sonvel_AEC_StreamGetEstimate(self->stream, &est) != 0) return 0;
    return sonvel_aec_index_to_time(est.u32LatencySamples, self->rate);
}

static void update_latency(GstSonvelAec *self) {
    GstClockTime latency;
    g_mutex_lock(&self->lock);
    latency = latency_locked(self);
    g_mutex_unlock(&self->lock);
    gst_aggregator_set_latency(GST_AGGREGATOR(self), latency, latency);
}

/* (Re)starts the stream at `rate` with the current settings. */
static gboolean start_stream(GstSonvelAec *self, gint rate) {
    AecCfg cfg;
    gchar *why = NULL;
    guint32 size = 0;
    gint32 rc;

    g_mutex_lock(&self->lock);
    cfg = self->cfg;
    cfg.u8SampleRate = rate == 8000 ? 0 : 1;
    if (sonvel_aec_record_check(&cfg, &why) != SONVEL_AEC_OK) cfg = sonvel_aec_default_record(rate);
    Sonvel_AEC_StreamGetSize(&size);
    if (self->mem == NULL) self->mem = g_new0(guint64, (size + 7) / 8);
    rc = Sonvel_AEC_StreamInit(&self->stream, self->mem, size, &cfg, &self->fe);
    if (rc != 0) self->stream = NULL;
    self->rate = rate;
    self->delay_estimate_ms = -1;
    self->delay_confidence = 0.0;
    g_mutex_unlock(&self->lock);

    if (why != NULL)
        warn(self, g_strdup_printf("%s; the library's defaults are used instead", why));
    g_free(why);
    if (rc != 0) {
        GST_ELEMENT_ERROR(self, LIBRARY, INIT, ("The echo canceller did not start (status %d)", rc),
                          (NULL));
        return FALSE;
    }
    sonvel_aec_ref_line_reset(&self->ref);
    self->mic_cursor.valid = FALSE;
    self->report_countdown = rate;
    self->processed = 0;
    update_latency(self);
    return TRUE;
}

static void stop_stream(GstSonvelAec *self) {
    g_mutex_lock(&self->lock);
    self->stream = NULL;
    g_free(self->mem);
    self->mem = NULL;
    self->rate = 0;
    g_mutex_unlock(&self->lock);
}

/* ---- Properties. */

static void set_field(GstSonvelAec *self, const SonvelAecField *f, const GValue *value) {
    AecCfg next;
    gchar *why = NULL;
    gint32 status = SONVEL_AEC_OK;
    gboolean ok;

    g_mutex_lock(&self->lock);
    next = self->cfg;
    if (f->count > 1)
        ok = sonvel_aec_field_parse(&next, f, g_value_get_string(value), &why);
    else
        ok = sonvel_aec_field_set(&next, f, g_value_get_int(value), &why);
    /* Bin ranges depend on the rate: before the caps the wider (16000 Hz) ones apply, and the
   * record is checked again when the stream starts. A refused order between two fields is taken
   * for now (the partner may come next, as gst-launch sets properties one by one); the running
   * stream only gets records the library accepts. */
    next.u8SampleRate = self->rate == 8000 ? 0 : 1;
    if (ok) status = sonvel_aec_record_check(&next, &why);
    ok = ok && (status == SONVEL_AEC_OK || sonvel_aec_refusal_is_relational(status));
    if (ok) {
        self->cfg = next;
        if (self->stream != NULL && status == SONVEL_AEC_OK)
            Sonvel_AEC_StreamSetParams(self->stream, &next);
    }
    g_mutex_unlock(&self->lock);
    if (!ok) warn(self, g_strdup_printf("%s; the value is not changed", why));
    g_free(why);
}

static void set_frontend(GstSonvelAec *self, guint prop_id, const GValue *value) {
    AecFrontendCfg next;
    gchar *why = NULL;
    gboolean ok = TRUE;

    g_mutex_lock(&self->lock);
    next = self->fe;
    if (prop_id == PROP_REF_DELAY)
        ok = sonvel_aec_ref_delay_parse(&next, g_value_get_string(value), &why);
    else if (prop_id == PROP_DC_BLOCK)
        next.u8DcBlock = g_value_get_boolean(value) ? 1 : 0;
    else
        next.u8Drift = g_value_get_enum(value) ? 1 : 0;
    if (ok) {
        self->fe = next;
        if (self->stream != NULL) Sonvel_AEC_StreamSetFrontend(self->stream, &next);
    }
    g_mutex_unlock(&self->lock);
    if (!ok) warn(self, g_strdup_printf("%s; the value is not changed", why));
    g_free(why);
}

static void gst_sonvel_aec_set_property(GObject *object, guint prop_id, const GValue *value,
                                        GParamSpec *pspec) {
    GstSonvelAec *self = GST_SONVEL_AEC(object);
    guint n_fields;
    const SonvelAecField *fields = sonvel_aec_fields(&n_fields);

    if (prop_id >= PROP_FIELD_FIRST && prop_id < PROP_FIELD_FIRST + n_fields)
        set_field(self, &fields[prop_id - PROP_FIELD_FIRST], value);
    else if (prop_id == PROP_REF_DELAY || prop_id == PROP_DC_BLOCK || prop_id == PROP_DRIFT)
        set_frontend(self, prop_id, value);
    else
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, prop_id, pspec);
}

static void gst_sonvel_aec_get_property(GObject *object, guint prop_id, GValue *value,
                                        GParamSpec *pspec) {
    GstSonvelAec *self = GST_SONVEL_AEC(object);
    guint n_fields;
    const SonvelAecField *fields = sonvel_aec_fields(&n_fields);

    g_mutex_lock(&self->lock);
    if (prop_id >= PROP_FIELD_FIRST && prop_id < PROP_FIELD_FIRST + n_fields) {
        const SonvelAecField *f = &fields[prop_id - PROP_FIELD_FIRST];
        if (f->count > 1)
            g_value_take_string(value, sonvel_aec_field_format(&self->cfg, f));
        else
            g_value_set_int(value, sonvel_aec_field_get(&self->cfg, f, 0));
    } else if (prop_id == PROP_REF_DELAY) {
        g_value_take_string(value, sonvel_aec_ref_delay_format(&self->fe));
    } else if (prop_id == PROP_DC_BLOCK) {
        g_value_set_boolean(value, self->fe.u8DcBlock != 0);
    } else if (prop_id == PROP_DRIFT) {
        g_value_set_enum(value, self->fe.u8Drift != 0);
    } else if (prop_id == PROP_DELAY_ESTIMATE) {
        g_value_set_int(value, self->delay_estimate_ms);
    } else if (prop_id == PROP_DELAY_CONFIDENCE) {
        g_value_set_double(value, self->delay_confidence);
    } else {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, prop_id, pspec);
    }
    g_mutex_unlock(&self->lock);
}

/* ---- Caps. */

static GstAggregatorPad *other_pad(GstSonvelAec *self, GstAggregatorPad *pad) {
    return pad == self->mic_pad ? self->ref_pad : self->mic_pad;
}

/* The other input's rate, which this one must match before any output was made (afterwards a
 * change is a renegotiation, see handle_caps). */
static gint rate_to_match(GstSonvelAec *self, GstAggregatorPad *pad) {
    GstCaps *caps;
    gint rate;
    if (self->produced) return 0;
    caps = gst_pad_get_current_caps(GST_PAD(other_pad(self, pad)));
    rate = sonvel_aec_caps_rate(caps);
    if (caps != NULL) gst_caps_unref(caps);
    return rate;
}

/* Posts why caps were refused (once per reason: queries repeat). */
static void refuse_caps(GstSonvelAec *self, gchar *why) {
    gboolean again;
    GST_OBJECT_LOCK(self);
    again = g_strcmp0(self->last_refusal, why) == 0;
    if (!again) {
        g_free(self->last_refusal);
        self->last_refusal = g_strdup(why);
    }
    GST_OBJECT_UNLOCK(self);
    if (!again)
        GST_ELEMENT_ERROR(
            self, CORE, NEGOTIATION, ("%s", why),
            ("sonvelaec takes S16LE mono audio at 8000 or 16000 Hz, the same rate on mic_sink and "
             "ref_sink"));
    g_free(why);
}

static gboolean sink_caps_query(GstSonvelAec *self, GstAggregatorPad *pad, GstQuery *query) {
    GstCaps *filter, *result, *downstream, *ours;
    gint rate = rate_to_match(self, pad);

    gst_query_parse_caps(query, &filter);
    ours = sonvel_aec_caps_at_rate(rate);
    downstream = gst_pad_peer_query_caps(GST_AGGREGATOR_SRC_PAD(self), ours);
    result = gst_caps_intersect(ours, downstream);
    gst_caps_unref(downstream);
    gst_caps_unref(ours);
    if (filter != NULL) {
        GstCaps *f = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
        /* A source that can offer only one format learns here that it does not fit. */
        if (gst_caps_is_empty(f) && gst_caps_is_fixed(filter)) {
            gchar *why = sonvel_aec_caps_problem(filter, GST_PAD_NAME(pad), rate,
                                                 GST_PAD_NAME(other_pad(self, pad)));
            if (why != NULL) refuse_caps(self, why);
        }
        gst_caps_unref(result);
        result = f;
    }
    gst_query_set_caps_result(query, result);
    gst_caps_unref(result);
    return TRUE;
}

static gboolean gst_sonvel_aec_sink_query(GstAggregator *agg, GstAggregatorPad *pad,
                                          GstQuery *query) {
    GstSonvelAec *self = GST_SONVEL_AEC(agg);

    if (GST_QUERY_TYPE(query) == GST_QUERY_CAPS) return sink_caps_query(self, pad, query);
    if (GST_QUERY_TYPE(query) == GST_QUERY_ACCEPT_CAPS) {
        GstCaps *caps;
        gchar *why;
        gst_query_parse_accept_caps(query, &caps);
        why = sonvel_aec_caps_problem(caps, GST_PAD_NAME(pad), rate_to_match(self, pad),
                                      GST_PAD_NAME(other_pad(self, pad)));
        gst_query_set_accept_caps_result(query, why == NULL);
        if (why != NULL) refuse_caps(self, why);
        return TRUE;
    }
    return GST_AGGREGATOR_CLASS(gst_sonvel_aec_parent_class)->sink_query(agg, pad, query);
}

static gboolean gst_sonvel_aec_src_query(GstAggregator *agg, GstQuery *query) {
    GstSonvelAec *self = GST_SONVEL_AEC(agg);
    if (GST_QUERY_TYPE(query) == GST_QUERY_CAPS) {
        GstCaps *filter, *caps = sonvel_aec_caps_at_rate(self->mic_rate);
        gst_query_parse_caps(query, &filter);
        if (filter != NULL) {
            GstCaps *f = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
            gst_caps_unref(caps);
            caps = f;
        }
        gst_query_set_caps_result(query, caps);
        gst_caps_unref(caps);
        return TRUE;
    }
    return GST_AGGREGATOR_CLASS(gst_sonvel_aec_parent_class)->src_query(agg, query);
}

static GstFlowReturn gst_sonvel_aec_update_src_caps(GstAggregator *agg, GstCaps *downstream,
                                                    GstCaps **ret) {
    GstSonvelAec *self = GST_SONVEL_AEC(agg);
    GstCaps *ours;
    if (self->mic_rate == 0) return GST_AGGREGATOR_FLOW_NEED_DATA;
    ours = sonvel_aec_caps_at_rate(self->mic_rate);
    *ret = gst_caps_intersect(downstream, ours);
    gst_caps_unref(ours);
    if (gst_caps_is_empty(*ret)) {
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION,
                          ("Downstream does not take the output at %d Hz", self->mic_rate), (NULL));
        return GST_FLOW_NOT_NEGOTIATED;
    }
    return GST_FLOW_OK;
}

/* New caps on an input: the instance follows the microphone's rate (a change restarts it, with
 * a warning); a new reference format starts its line afresh. */
static gboolean handle_caps(GstSonvelAec *self, GstAggregatorPad *pad, GstCaps *caps) {
    const gboolean is_mic = pad == self->mic_pad;
    const gint old = is_mic ? self->mic_rate : self->ref_rate;
    const gint other = self->produced ? 0 : is_mic ? self->ref_rate : self->mic_rate;
    gchar *why =
        sonvel_aec_caps_problem(caps, GST_PAD_NAME(pad), other, GST_PAD_NAME(other_pad(self, pad)));
    const gint rate = sonvel_aec_caps_rate(caps);

    if (why != NULL) {
        refuse_caps(self, why);
        return FALSE;
    }
    if (old != 0 && old != rate)
        GST_ELEMENT_WARNING(
            self, STREAM, FORMAT,
            ("%s changed from %d Hz to %d Hz mid-stream: %s", GST_PAD_NAME(pad), old, rate,
             is_mic                   ? "the echo canceller restarts"
             : rate == self->mic_rate ? "the reference starts afresh"
                                      : "the reference is silence until mic_sink follows"),
            (NULL));
    if (is_mic) {
        self->mic_rate = rate;
        if (rate != old) {
            gst_pad_mark_reconfigure(GST_AGGREGATOR_SRC_PAD(self));
            return start_stream(self, rate);
        }
    } else {
        self->ref_rate = rate;
        self->mismatch_warned = FALSE;
        sonvel_aec_ref_line_reset(&self->ref);
    }
    return TRUE;
}

static gboolean gst_sonvel_aec_sink_event(GstAggregator *agg, GstAggregatorPad *pad,
                                          GstEvent *event) {
    GstSonvelAec *self = GST_SONVEL_AEC(agg);

    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
        GstCaps *caps;
        gboolean ok;
        gst_event_parse_caps(event, &caps);
        ok = handle_caps(self, pad, caps);
        gst_event_unref(event);
        return ok;
    }
    if (GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT) {
        gboolean ok =
            GST_AGGREGATOR_CLASS(gst_sonvel_aec_parent_class)->sink_event(agg, pad, event);
        if (pad == self->mic_pad) {
            GstSegment segment;
            GST_OBJECT_LOCK(pad);
            segment = pad->segment;
            GST_OBJECT_UNLOCK(pad);
            /* The output keeps the microphone's timeline; a new one after processed audio (a seek
       * without flush) starts the canceller afresh. */
            gst_aggregator_update_segment(agg, &segment);
            self->mic_cursor.valid = FALSE;
            if (self->processed > 0 && !start_stream(self, self->mic_rate)) ok = FALSE;
        } else {
            self->ref.cursor.valid = FALSE;
        }
        return ok;
    }
    return GST_AGGREGATOR_CLASS(gst_sonvel_aec_parent_class)->sink_event(agg, pad, event);
}

/* ---- Aggregation. */

/* Where a buffer of `pad` starts on the running-time line, in samples at `rate`. */
static gint64 buffer_start(GstAggregatorPad *pad, GstBuffer *buf, const SonvelAecCursor *cursor,
                           gint rate) {
    GstClockTime rt = GST_CLOCK_TIME_NONE;
    if (GST_BUFFER_PTS_IS_VALID(buf)) {
        GST_OBJECT_LOCK(pad);
        rt = gst_segment_to_running_time(&pad->segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buf));
        GST_OBJECT_UNLOCK(pad);
    }
    return sonvel_aec_cursor_start(
        cursor, GST_CLOCK_TIME_IS_VALID(rt),
        GST_CLOCK_TIME_IS_VALID(rt) ? sonvel_aec_time_to_index(rt, rate) : 0,
        (gint64)rate * CONTINUITY_MS / 1000);
}

/* Brings the reference line up to index `until`. FALSE: the reference must be waited for. */
static gboolean fill_reference(GstSonvelAec *self, gint64 until, gboolean timeout) {
    while (sonvel_aec_ref_line_end(&self->ref) < until) {
        GstBuffer *buf = gst_aggregator_pad_peek_buffer(self->ref_pad);
        if (buf == NULL) {
            if (!timeout && !gst_aggregator_pad_is_eos(self->ref_pad)) return FALSE;
            /* Ended, or not there in time in a live pipeline: silence (what comes late is dropped). */
            sonvel_aec_ref_line_silence(&self->ref, until);
            return TRUE;
        }
        if (self->ref_rate != self->mic_rate) {
            /* Transient during a renegotiation: the reference at another rate cannot be used. */
            if (!self->mismatch_warned)
                GST_WARNING_OBJECT(self,
                                   "reference at %d Hz, microphone at %d Hz: silence until they "
                                   "match",
                                   self->ref_rate, self->mic_rate);
            self->mismatch_warned = TRUE;
            gst_aggregator_pad_drop_buffer(self->ref_pad);
        } else {
            const gint64 start =
                buffer_start(self->ref_pad, buf, &self->ref.cursor, self->mic_rate);
            GstMapInfo map;
            if (start >= until) {
                /* Starts after what is needed now: leave it queued. */
                sonvel_aec_ref_line_silence(&self->ref, until);
                gst_buffer_unref(buf);
                return TRUE;
            }
            gst_buffer_map(buf, &map, GST_MAP_READ);
            sonvel_aec_ref_line_put(&self->ref, start, (const gint16 *)map.data, map.size / 2);
            gst_buffer_unmap(buf, &map);
            gst_aggregator_pad_drop_buffer(self->ref_pad);
        }
        gst_buffer_unref(buf);
    }
    return TRUE;
}

static void report_estimates(GstSonvelAec *self, gsize samples, GstClockTime running_time) {
    AecFrontendEstimate est;
    gboolean post;
    gint ms, applied_ms;

    g_mutex_lock(&self->lock);
    if (self->stream == NULL || Sonvel_AEC_StreamGetEstimate(self->stream, &est) != 0) {
        g_mutex_unlock(&self->lock);
        return;
    }
    ms = est.s32DelayEstimate < 0 ? -1 : (gint)((gint64)est.s32DelayEstimate * 1000 / self->rate);
    applied_ms = (gint)((gint64)est.s32DelayApplied * 1000 / self->rate);
    self->delay_estimate_ms = ms;
    self->delay_confidence = est.s16Confidence / 32767.0;
    self->report_countdown -= (gint64)samples;
    post = self->report_countdown <= 0;
    if (post) self->report_countdown += self->rate;
    g_mutex_unlock(&self->lock);

    if (post) {
        GstStructure *s = gst_structure_new(
            "sonvelaec-estimate", "delay-estimate", G_TYPE_INT, ms, "delay-confidence",
            G_TYPE_DOUBLE, est.s16Confidence / 32767.0, "delay-applied", G_TYPE_INT, applied_ms,
            "drift-ppm", G_TYPE_INT, est.s32DriftPpm, "locked", G_TYPE_BOOLEAN, est.u8Locked != 0,
            "running-time", G_TYPE_UINT64, running_time, NULL);
        gst_element_post_message(GST_ELEMENT(self), gst_message_new_element(GST_OBJECT(self), s));
        g_object_notify(G_OBJECT(self), "delay-estimate");
        g_object_notify(G_OBJECT(self), "delay-confidence");
    }
}

/* Runs n samples through the stream (in pieces the stream accepts). */
static gboolean run_stream(GstSonvelAec *self, const gint16 *mic, const gint16 *ref, gint16 *out,
                           gsize n) {
    gint32 rc = 0;
    g_mutex_lock(&self->lock);
    for (gsize at = 0; rc == 0 && at < n; at += SONVEL_AEC_STREAM_MAX_SAMPLES) {
        const guint32 len = (guint32)MIN(n - at, SONVEL_AEC_STREAM_MAX_SAMPLES);
        rc = self->stream
                 ? Sonvel_AEC_StreamProcess(self->stream, mic + at, ref + at, out + at, len)
                 : SONVEL_AEC_ERR_FE_NOT_INITIALISED;
    }
    g_mutex_unlock(&self->lock);
    if (rc != 0)
        GST_ELEMENT_ERROR(self, LIBRARY, FAILED, ("The echo canceller failed (status %d)", rc),
                          (NULL));
    return rc == 0;
}

static GstFlowReturn gst_sonvel_aec_aggregate(GstAggregator *agg, gboolean timeout) {
    GstSonvelAec *self = GST_SONVEL_AEC(agg);
    GstBuffer *mic_buf, *out_buf;
    GstMapInfo mic_map, out_map;
    GstSegment segment;
    gint64 start;
    gsize n;
    GstClockTime pts, end;
    gboolean ok;

    mic_buf = gst_aggregator_pad_peek_buffer(self->mic_pad);
    if (mic_buf == NULL) {
        if (gst_aggregator_pad_is_eos(self->mic_pad))
            return GST_FLOW_EOS; /* the output ends with the microphone */
        return GST_AGGREGATOR_FLOW_NEED_DATA;
    }
    if (self->mic_rate == 0) {
        gst_buffer_unref(mic_buf);
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, ("mic_sink: data before caps"), (NULL));
        return GST_FLOW_NOT_NEGOTIATED;
    }

    n = gst_buffer_get_size(mic_buf) / 2;
    if (n == 0) {
        gst_buffer_unref(mic_buf);
        gst_aggregator_pad_drop_buffer(self->mic_pad);
        return GST_FLOW_OK;
    }
    start = buffer_start(self->mic_pad, mic_buf, &self->mic_cursor, self->mic_rate);
    sonvel_aec_ref_line_rebase(&self->ref, start);
    if (!fill_reference(self, start + (gint64)n, timeout)) {
        gst_buffer_unref(mic_buf);
        return GST_AGGREGATOR_FLOW_NEED_DATA;
    }

    GST_OBJECT_LOCK(self->mic_pad);
    segment = self->mic_pad->segment;
    GST_OBJECT_UNLOCK(self->mic_pad);
    pts = gst_segment_position_from_running_time(&segment, GST_FORMAT_TIME,
                                                 sonvel_aec_index_to_time(start, self->mic_rate));
    end = gst_segment_position_from_running_time(
        &segment, GST_FORMAT_TIME, sonvel_aec_index_to_time(start + (gint64)n, self->mic_rate));

    out_buf = gst_buffer_new_allocate(NULL, n * 2, NULL);
    gst_buffer_map(mic_buf, &mic_map, GST_MAP_READ);
    gst_buffer_map(out_buf, &out_map, GST_MAP_WRITE);
    ok = run_stream(self, (const gint16 *)mic_map.data, self->ref.data, (gint16 *)out_map.data, n);
    gst_buffer_unmap(out_buf, &out_map);
    gst_buffer_unmap(mic_buf, &mic_map);
    gst_buffer_unref(mic_buf);
    gst_aggregator_pad_drop_buffer(self->mic_pad);
    if (!ok) {
        gst_buffer_unref(out_buf);
        return GST_FLOW_ERROR;
    }
    sonvel_aec_ref_line_consume(&self->ref, n);
    self->mic_cursor.next = start + (gint64)n;
    self->mic_cursor.valid = TRUE;

    GST_BUFFER_PTS(out_buf) = pts;
    if (GST_CLOCK_TIME_IS_VALID(pts) && GST_CLOCK_TIME_IS_VALID(end))
        GST_BUFFER_DURATION(out_buf) = end - pts;
    GST_OBJECT_LOCK(agg);
    if (GST_CLOCK_TIME_IS_VALID(end)) GST_AGGREGATOR_PAD(agg->srcpad)->segment.position = end;
    GST_OBJECT_UNLOCK(agg);
    gst_aggregator_selected_samples(agg, pts, GST_CLOCK_TIME_NONE, GST_BUFFER_DURATION(out_buf),
                                    NULL);

    self->processed += (gint64)n;
    report_estimates(self, n, sonvel_aec_index_to_time(start, self->mic_rate));
    self->produced = TRUE;
    return gst_aggregator_finish_buffer(agg, out_buf);
}

/* In a live pipeline the reference is waited for until the microphone buffer's running time
 * plus the latency; without a microphone buffer there is nothing to wait for. */
static GstClockTime gst_sonvel_aec_get_next_time(GstAggregator *agg) {
    GstSonvelAec *self = GST_SONVEL_AEC(agg);
    GstBuffer *buf = gst_aggregator_pad_peek_buffer(self->mic_pad);
    GstClockTime rt = GST_CLOCK_TIME_NONE;
    if (buf == NULL) return GST_CLOCK_TIME_NONE;
    if (GST_BUFFER_PTS_IS_VALID(buf)) {
        GST_OBJECT_LOCK(self->mic_pad);
        rt = gst_segment_to_running_time(&self->mic_pad->segment, GST_FORMAT_TIME,
                                         GST_BUFFER_PTS(buf));
        GST_OBJECT_UNLOCK(self->mic_pad);
    }
    gst_buffer_unref(buf);
    return rt;
}

/* A flush (or a flushing seek) starts the canceller afresh. */
static GstFlowReturn gst_sonvel_aec_flush(GstAggregator *agg) {
    GstSonvelAec *self = GST_SONVEL_AEC(agg);
    GST_DEBUG_OBJECT(self, "flush: the canceller restarts");
    if (self->mic_rate != 0 && !start_stream(self, self->mic_rate)) return GST_FLOW_ERROR;
    return GST_FLOW_OK;
}

static gboolean gst_sonvel_aec_start(GstAggregator *agg) {
    GstSonvelAec *self = GST_SONVEL_AEC(agg);
    post_pending_warnings(self);
    GST_OBJECT_LOCK(self);
    g_free(self->last_refusal);
    self->last_refusal = NULL;
    GST_OBJECT_UNLOCK(self);
    self->mic_rate = self->ref_rate = 0;
    self->produced = FALSE;
    self->mismatch_warned = FALSE;
    self->mic_cursor.valid = FALSE;
    sonvel_aec_ref_line_reset(&self->ref);
    return TRUE;
}

static gboolean gst_sonvel_aec_stop(GstAggregator *agg) {
    GstSonvelAec *self = GST_SONVEL_AEC(agg);
    stop_stream(self);
    sonvel_aec_ref_line_clear(&self->ref);
    return TRUE;
}

/* ---- Object. */

static void gst_sonvel_aec_finalize(GObject *object) {
    GstSonvelAec *self = GST_SONVEL_AEC(object);
    stop_stream(self);
    sonvel_aec_ref_line_clear(&self->ref);
    g_ptr_array_unref(self->pending_warnings);
    g_free(self->last_refusal);
    g_mutex_clear(&self->lock);
    G_OBJECT_CLASS(gst_sonvel_aec_parent_class)->finalize(object);
}

static void gst_sonvel_aec_init(GstSonvelAec *self) {
    GstElement *element = GST_ELEMENT(self);
    GstPadTemplate *templ;

    g_mutex_init(&self->lock);
    self->cfg = sonvel_aec_default_record(16000);
    memset(&self->fe, 0, sizeof self->fe);
    self->pending_warnings = g_ptr_array_new_with_free_func(g_free);
    self->delay_estimate_ms = -1;
    sonvel_aec_ref_line_init(&self->ref);

    templ = gst_static_pad_template_get(&mic_template);
    self->mic_pad = g_object_new(GST_TYPE_AGGREGATOR_PAD, "name", "mic_sink", "direction",
                                 GST_PAD_SINK, "template", templ, NULL);
    gst_object_unref(templ);
    gst_element_add_pad(element, GST_PAD(self->mic_pad));
    templ = gst_static_pad_template_get(&ref_template);
    self->ref_pad = g_object_new(GST_TYPE_AGGREGATOR_PAD, "name", "ref_sink", "direction",
                                 GST_PAD_SINK, "template", templ, NULL);
    gst_object_unref(templ);
    gst_element_add_pad(element, GST_PAD(self->ref_pad));
}

static void install_properties(GObjectClass *gobject_class) {
    const GParamFlags rw = G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING;
    const GParamFlags ro = G_PARAM_READABLE | G_PARAM_STATIC_STRINGS;
    const AecCfg defaults = sonvel_aec_default_record(16000);
    guint n_fields;
    const SonvelAecField *fields = sonvel_aec_fields(&n_fields);

    /* The record's fields: integers (checked by the element, which warns when it refuses a value,
   * so the specs do not clamp) and comma lists for the arrays. */
    for (guint i = 0; i < n_fields; ++i) {
        const SonvelAecField *f = &fields[i];
        GParamSpec *pspec;
        if (f->count > 1) {
            gchar *text = sonvel_aec_field_format(&defaults, f);
            pspec = g_param_spec_string(f->name, f->name, f->blurb, text, rw);
            g_free(text);
        } else {
            pspec = g_param_spec_int(f->name, f->name, f->blurb, G_MININT, G_MAXINT,
                                     sonvel_aec_field_get(&defaults, f, 0), rw);
        }
        g_object_class_install_property(gobject_class, PROP_FIELD_FIRST + i, pspec);
    }
    g_object_class_install_property(
        gobject_class, PROP_REF_DELAY,
        g_param_spec_string(
            "ref-delay", "Reference delay",
            "Delay of the reference in front of the canceller: \"off\", \"auto\" (follows the "
            "estimated echo delay) or milliseconds 0..500",
            "off", rw));
    g_object_class_install_property(
        gobject_class, PROP_DC_BLOCK,
        g_param_spec_boolean("dc-block", "DC block",
                             "High-pass the microphone and the reference (cut-off about 40 Hz)",
                             FALSE, rw));
    g_object_class_install_property(
        gobject_class, PROP_DRIFT,
        g_param_spec_enum(
            "drift", "Drift",
            "Follow the clock drift between playback and capture (with ref-delay=auto)",
            drift_mode_get_type(), 0, rw));
    g_object_class_install_property(
        gobject_class, PROP_DELAY_ESTIMATE,
        g_param_spec_int("delay-estimate", "Delay estimate",
                         "Estimated delay of the echo behind the reference, ms (-1: none yet)", -1,
                         G_MAXINT, -1, ro));
    g_object_class_install_property(
        gobject_class, PROP_DELAY_CONFIDENCE,
        g_param_spec_double("delay-confidence", "Delay confidence",
                            "Confidence of the delay estimate, 0..1", 0.0, 1.0, 0.0, ro));
}

static void gst_sonvel_aec_class_init(GstSonvelAecClass *klass) {
    GObjectClass *gobject_class = G_OBJECT_CLASS(klass);
    GstElementClass *element_class = GST_ELEMENT_CLASS(klass);
    GstAggregatorClass *agg_class = GST_AGGREGATOR_CLASS(klass);

    GST_DEBUG_CATEGORY_INIT(sonvel_aec_debug, "sonvelaec", 0, "Sonvel echo canceller");

    gobject_class->set_property = gst_sonvel_aec_set_property;
    gobject_class->get_property = gst_sonvel_aec_get_property;
    gobject_class->finalize = gst_sonvel_aec_finalize;
    install_properties(gobject_class);

    gst_element_class_add_static_pad_template_with_gtype(element_class, &mic_template,
                                                         GST_TYPE_AGGREGATOR_PAD);
    gst_element_class_add_static_pad_template_with_gtype(element_class, &ref_template,
                                                         GST_TYPE_AGGREGATOR_PAD);
    gst_element_class_add_static_pad_template_with_gtype(element_class, &src_template,
                                                         GST_TYPE_AGGREGATOR_PAD);
    gst_element_class_set_static_metadata(
        element_class, "Sonvel echo canceller", "Filter/Effect/Audio",
        "Removes the echo of the reference (ref_sink, what the loudspeaker plays) from the "
        "microphone (mic_sink)",
        "Sonvel AEC developers");

    agg_class->aggregate = gst_sonvel_aec_aggregate;
    agg_class->get_next_time = gst_sonvel_aec_get_next_time;
    agg_class->flush = gst_sonvel_aec_flush;
    agg_class->start = gst_sonvel_aec_start;
    agg_class->stop = gst_sonvel_aec_stop;
    agg_class->sink_event = gst_sonvel_aec_sink_event;
    agg_class->sink_query = gst_sonvel_aec_sink_query;
    agg_class->src_query = gst_sonvel_aec_src_query;
    agg_class->update_src_caps = gst_sonvel_aec_update_src_caps;
}
