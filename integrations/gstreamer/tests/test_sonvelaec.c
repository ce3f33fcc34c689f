/* Unit tests of the sonvelaec element (gst-check): appsrc pipelines push buffers of odd sizes
 * into both pads and the output is compared with the streaming layer's on the same signals;
 * reference gaps and early ends, live sources, properties and refused values, caps changes,
 * flushes, estimates and latency. (Negotiation failures and the ends of the microphone are tested
 * end to end with gst-launch, scripts/lib/gstreamer_e2e.sh.) */
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/check/gstcheck.h>
#include <string.h>

#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"

/* ---- Signals and the expected output. */

typedef struct {
    gint16 *s;
    gsize n;
} Signal;

static Signal signal_new(gsize n) {
    Signal sig = {g_new0(gint16, MAX(n, 1)), n};
    return sig;
}

/* A reference of noise bursts, a microphone with its echo (delayed, quieter) and a near talker. */
static void make_signals(gsize n, guint32 seed, Signal *mic, Signal *ref) {
    guint32 x = seed;
    *mic = signal_new(n);
    *ref = signal_new(n);
    for (gsize i = 0; i < n; ++i) {
        x = x * 1664525u + 1013904223u;
        ref->s[i] = (i / 4000) % 3 == 2 ? 0 : (gint16)((gint32)(x >> 16) - 32768) / 4;
    }
    for (gsize i = 0; i < n; ++i) {
        x = x * 1664525u + 1013904223u;
        mic->s[i] = (gint16)((i >= 40 ? ref->s[i - 40] / 2 : 0) + ((gint32)(x >> 20) - 2048));
    }
}

static AecCfg record_at(gint rate) {
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate == 8000 ? 0 : 1;
    return cfg;
}

/* The streaming layer's output on (mic, ref) in one call. */
static Signal stream_output(const AecCfg *cfg, const AecFrontendCfg *fe, const Signal *mic,
                            const Signal *ref) {
    guint32 size = 0;
    void *h = NULL;
    Signal out = signal_new(mic->n);
    guint64 *mem;
    fail_unless_equals_int(Sonvel_AEC_StreamGetSize(&size), 0);
    mem = g_new0(guint64, size / 8 + 1);
    fail_unless_equals_int(Sonvel_AEC_StreamInit(&h, mem, size, cfg, fe), 0);
    fail_unless_equals_int(Sonvel_AEC_StreamProcess(h, mic->s, ref->s, out.s, mic->n), 0);
    g_free(mem);
    return out;
}

static guint32 stream_latency(gint rate) {
    AecCfg cfg = record_at(rate);
    guint32 size = 0;
    void *h = NULL;
    AecFrontendEstimate est;
    guint64 *mem;
    Sonvel_AEC_StreamGetSize(&size);
    mem = g_new0(guint64, size / 8 + 1);
    Sonvel_AEC_StreamInit(&h, mem, size, &cfg, NULL);
    Sonvel_AEC_StreamGetEstimate(h, &est);
    g_free(mem);
    return est.u32LatencySamples;
}

/* ---- A pipeline: two appsrcs into the element, an appsink after it. */

typedef struct {
    GstElement *pipeline, *aec, *mic, *ref, *sink;
    GArray *out;     /* gint16 output */
    GList *messages; /* warnings, errors and element messages seen */
    gboolean eos, error;
} Run;

static GstCaps *caps_of(gint rate) {
    return gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, "S16LE", "layout",
                               G_TYPE_STRING, "interleaved", "channels", G_TYPE_INT, 1, "rate",
                               G_TYPE_INT, rate, NULL);
}

static Run *run_new_with(const gchar *sources, const gchar *properties) {
    Run *r = g_new0(Run, 1);
    gchar *desc = g_strdup_printf(
        "appsrc name=mic %s ! sonvelaec name=a %s ! "
        "appsink name=out sync=false  appsrc name=ref %s ! a.ref_sink",
        sources, properties ? properties : "", sources);
    GError *err = NULL;
    r->pipeline = gst_parse_launch(desc, &err);
    g_free(desc);
    fail_unless(r->pipeline != NULL && err == NULL);
    r->aec = gst_bin_get_by_name(GST_BIN(r->pipeline), "a");
    r->mic = gst_bin_get_by_name(GST_BIN(r->pipeline), "mic");
    r->ref = gst_bin_get_by_name(GST_BIN(r->pipeline), "ref");
    r->sink = gst_bin_get_by_name(GST_BIN(r->pipeline), "out");
    r->out = g_array_new(FALSE, FALSE, sizeof(gint16));
    return r;
}

static Run *run_new(const gchar *properties) { return run_new_with("format=time", properties); }

static void run_free(Run *r) {
    gst_element_set_state(r->pipeline, GST_STATE_NULL);
    gst_object_unref(r->aec);
    gst_object_unref(r->mic);
    gst_object_unref(r->ref);
    gst_object_unref(r->sink);
    gst_object_unref(r->pipeline);
    g_array_unref(r->out);
    g_list_free_full(r->messages, (GDestroyNotify)gst_message_unref);
    g_free(r);
}

static void run_play(Run *r, gint mic_rate, gint ref_rate) {
    GstCaps *caps = caps_of(mic_rate);
    gst_app_src_set_caps(GST_APP_SRC(r->mic), caps);
    gst_caps_unref(caps);
    caps = caps_of(ref_rate);
    gst_app_src_set_caps(GST_APP_SRC(r->ref), caps);
    gst_caps_unref(caps);
    fail_if(gst_element_set_state(r->pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE);
}

/* Pushes samples [from, to) of `sig` at `rate` in buffers whose sizes cycle through `sizes`,
 * timestamped from `t0` (the index the first sample has on the running-time line). */
static void push(GstElement *src, const Signal *sig, gsize from, gsize to, gint rate, gint64 t0,
                 const gsize *sizes, gsize n_sizes) {
    for (gsize at = from, k = 0; at < to; ++k) {
        const gsize len = MIN(sizes[k % n_sizes], to - at);
        GstBuffer *buf = gst_buffer_new_memdup(sig->s + at, len * 2);
        GST_BUFFER_PTS(buf) = gst_util_uint64_scale_round(t0 + at - from, GST_SECOND, rate);
        GST_BUFFER_DURATION(buf) = gst_util_uint64_scale_round(len, GST_SECOND, rate);
        fail_unless_equals_int(gst_app_src_push_buffer(GST_APP_SRC(src), buf), GST_FLOW_OK);
        at += len;
    }
}

static void collect_messages(Run *r) {
    GstBus *bus = gst_element_get_bus(r->pipeline);
    GstMessage *m;
    while ((m = gst_bus_pop_filtered(
                bus, GST_MESSAGE_ERROR | GST_MESSAGE_WARNING | GST_MESSAGE_ELEMENT)) != NULL) {
        if (GST_MESSAGE_TYPE(m) == GST_MESSAGE_ERROR) r->error = TRUE;
        r->messages = g_list_append(r->messages, m);
    }
    gst_object_unref(bus);
}

/* Pulls output until `want` samples have come (0: until the end of stream), an error is
 * posted, or 30 s have passed. */
static void pull(Run *r, gsize want) {
    const gint64 deadline = g_get_monotonic_time() + 30 * G_TIME_SPAN_SECOND;
    while (!r->error && g_get_monotonic_time() < deadline && (want == 0 || r->out->len < want)) {
        GstSample *s = gst_app_sink_try_pull_sample(GST_APP_SINK(r->sink), 50 * GST_MSECOND);
        collect_messages(r);
        if (s != NULL) {
            GstMapInfo map;
            GstBuffer *b = gst_sample_get_buffer(s);
            gst_buffer_map(b, &map, GST_MAP_READ);
            g_array_append_vals(r->out, map.data, map.size / 2);
            gst_buffer_unmap(b, &map);
            gst_sample_unref(s);
        } else if (gst_app_sink_is_eos(GST_APP_SINK(r->sink))) {
            r->eos = TRUE;
            break;
        }
    }
    collect_messages(r);
}

/* Whether a warning whose message contains `needle` was posted. */
static gboolean has_warning(Run *r, const gchar *needle) {
    for (GList *l = r->messages; l; l = l->next) {
        GError *err = NULL;
        gboolean hit;
        if (GST_MESSAGE_TYPE(l->data) != GST_MESSAGE_WARNING) continue;
        gst_message_parse_warning(l->data, &err, NULL);
        hit = strstr(err->message, needle) != NULL;
        g_error_free(err);
        if (hit) return TRUE;
    }
    return FALSE;
}

static void assert_samples(const gint16 *got, const gint16 *want, gsize n) {
    for (gsize i = 0; i < n; ++i) {
        if (got[i] != want[i])
            fail("sample %" G_GSIZE_FORMAT " is %d, the stream gives %d", i, got[i], want[i]);
    }
}

static const gsize mic_sizes[] = {1, 37, 160, 333, 1001, 7, 80};
static const gsize ref_sizes[] = {13, 480, 5, 999, 2};

/* Plays (mic, ref) through an element with `properties`; returns the run (EOS reached). */
static Run *play_whole(const gchar *properties, gint rate, const Signal *mic, const Signal *ref) {
    Run *r = run_new(properties);
    run_play(r, rate, rate);
    push(r->mic, mic, 0, mic->n, rate, 0, mic_sizes, G_N_ELEMENTS(mic_sizes));
    push(r->ref, ref, 0, ref->n, rate, 0, ref_sizes, G_N_ELEMENTS(ref_sizes));
    gst_app_src_end_of_stream(GST_APP_SRC(r->mic));
    gst_app_src_end_of_stream(GST_APP_SRC(r->ref));
    pull(r, 0);
    fail_unless(r->eos && !r->error);
    return r;
}

/* ---- Tests. */

GST_START_TEST(odd_buffer_sizes_give_the_stream_output) {
    const gint rates[] = {16000, 8000};
    for (guint k = 0; k < G_N_ELEMENTS(rates); ++k) {
        Signal mic, ref, want;
        AecCfg cfg = record_at(rates[k]);
        Run *r;
        make_signals(3 * rates[k] + 123, 7 + k, &mic, &ref);
        want = stream_output(&cfg, NULL, &mic, &ref);
        r = play_whole(NULL, rates[k], &mic, &ref);
        fail_unless_equals_int(r->out->len, mic.n);
        assert_samples((gint16 *)r->out->data, want.s, want.n);
        run_free(r);
        g_free(mic.s);
        g_free(ref.s);
        g_free(want.s);
    }
}

GST_END_TEST;

GST_START_TEST(reference_late_start_gap_and_early_end_are_silence) {
    const gint rate = 16000;
    const gsize n = 2 * rate, late = 3000, gap_from = 12000, gap_to = 17000, ref_end = 26000;
    Signal mic, ref, heard, want;
    AecCfg cfg = record_at(rate);
    Run *r = run_new(NULL);
    make_signals(n, 11, &mic, &ref);
    heard = signal_new(n);
    memcpy(heard.s + late, ref.s + late, (gap_from - late) * 2);
    memcpy(heard.s + gap_to, ref.s + gap_to, (ref_end - gap_to) * 2);
    want = stream_output(&cfg, NULL, &mic, &heard);

    run_play(r, rate, rate);
    push(r->mic, &mic, 0, n, rate, 0, mic_sizes, G_N_ELEMENTS(mic_sizes));
    push(r->ref, &ref, late, gap_from, rate, late, ref_sizes, G_N_ELEMENTS(ref_sizes));
    push(r->ref, &ref, gap_to, ref_end, rate, gap_to, ref_sizes, G_N_ELEMENTS(ref_sizes));
    gst_app_src_end_of_stream(GST_APP_SRC(r->ref));
    gst_app_src_end_of_stream(GST_APP_SRC(r->mic));
    pull(r, 0);
    fail_unless(r->eos && !r->error);
    fail_unless_equals_int(r->out->len, n);
    assert_samples((gint16 *)r->out->data, want.s, n);
    run_free(r);
    g_free(mic.s);
    g_free(ref.s);
    g_free(heard.s);
    g_free(want.s);
}

GST_END_TEST;

GST_START_TEST(properties_reach_the_canceller) {
    const gint rate = 16000;
    Signal mic, ref, want;
    AecCfg cfg = record_at(rate);
    AecFrontendCfg fe = {1, SONVEL_AEC_DELAY_FIXED, 1, 0, 120};
    const gint16 edges[6] = {5, 17, 28, 32, 45, 56};
    const gint16 shifts[7] = {11, 12, 16, 14, 15, 12, 16};
    gchar *text;
    Run *r;

    cfg.u8CnEnable = 0;
    cfg.u8StartPart = 2;
    cfg.u8NlpLevel = 2;
    cfg.u8HighFreqMode = 1;
    cfg.s16CohThr = 22000;
    cfg.s16HfBinLo = 60;
    cfg.s16HfBinHi = 100;
    cfg.s16CohBinLo = 8;
    cfg.s16CohBinHi = 17;
    cfg.s16ClampBinLo = 5;
    cfg.s16ClampBinHi = 10;
    memcpy(cfg.as16BandEdge, edges, sizeof edges);
    memcpy(cfg.as16BandShift, shifts, sizeof shifts);
    fail_unless_equals_int(Sonvel_AEC_Check(&cfg), 0);
    make_signals(2 * rate, 3, &mic, &ref);
    want = stream_output(&cfg, &fe, &mic, &ref);
    r = play_whole(
        "u8CnEnable=0 u8StartPart=2 u8NlpLevel=2 u8HighFreqMode=1 s16CohThr=22000 "
        "s16HfBinLo=60 s16HfBinHi=100 s16CohBinLo=8 s16CohBinHi=17 s16ClampBinLo=5 "
        "s16ClampBinHi=10 as16BandEdge=\"5,17,28,32,45,56\" as16BandShift=\"11, "
        "12,16,14,15,12,16\" "
        "ref-delay=120 dc-block=true drift=auto",
        rate, &mic, &ref);
    assert_samples((gint16 *)r->out->data, want.s, want.n);
    g_object_get(r->aec, "as16BandShift", &text, NULL);
    fail_unless_equals_string(text, "11,12,16,14,15,12,16");
    g_free(text);
    g_object_get(r->aec, "ref-delay", &text, NULL);
    fail_unless_equals_string(text, "120");
    g_free(text);
    run_free(r);
    g_free(mic.s);
    g_free(ref.s);
    g_free(want.s);
}

GST_END_TEST;

GST_START_TEST(refused_values_are_warnings_naming_field_and_range) {
    struct {
        const gchar *property, *value, *said;
    } cases[] = {
        {"u8NlpLevel", "3", "u8NlpLevel = 3 refused at 16000 Hz: allowed 0..2"},
        {"u8StartPart", "7", "u8StartPart = 7 refused at 16000 Hz: allowed 0..6"},
        {"u8CnEnable", "300", "u8CnEnable = 300 refused: allowed 0..255"},
        {"s16CohThr", "-1", "s16CohThr = -1 refused at 16000 Hz: allowed 0..32767"},
        {"as16BandEdge", "9,8,10,11,12,13",
         "as16BandEdge = 9,8,10,11,12,13 refused at 16000 Hz: "
         "allowed non-decreasing"},
        {"as16BandShift", "1,2,3", "as16BandShift = \"1,2,3\" refused: allowed 7 comma-separated"},
        {"ref-delay", "501", "ref-delay = \"501\" refused: allowed auto, off or 0..500 (ms)"},
        {"ref-delay", "soon", "ref-delay = \"soon\" refused"},
    };
    Run *r = run_new(NULL);
    GstBus *bus = gst_element_get_bus(r->pipeline);
    for (guint i = 0; i < G_N_ELEMENTS(cases); ++i) {
        GValue before = G_VALUE_INIT, after = G_VALUE_INIT;
        GstMessage *m;
        GError *err = NULL;
        g_object_get_property(G_OBJECT(r->aec), cases[i].property, &before);
        gst_util_set_object_arg(G_OBJECT(r->aec), cases[i].property, cases[i].value);
        m = gst_bus_pop_filtered(bus, GST_MESSAGE_WARNING);
        fail_unless(m != NULL, "no warning for %s = %s", cases[i].property, cases[i].value);
        gst_message_parse_warning(m, &err, NULL);
        fail_unless(strstr(err->message, cases[i].said) != NULL, "warning '%s'", err->message);
        g_error_free(err);
        gst_message_unref(m);
        g_object_get_property(G_OBJECT(r->aec), cases[i].property, &after);
        fail_unless(gst_value_compare(&before, &after) == GST_VALUE_EQUAL);
        g_value_unset(&before);
        g_value_unset(&after);
    }
    /* Accepted values post nothing. */
    gst_util_set_object_arg(G_OBJECT(r->aec), "ref-delay", "auto");
    gst_util_set_object_arg(G_OBJECT(r->aec), "u8NlpLevel", "0");
    fail_unless(gst_bus_pop_filtered(bus, GST_MESSAGE_WARNING) == NULL);
    gst_object_unref(bus);
    run_free(r);
}

GST_END_TEST;

GST_START_TEST(caps_change_restarts_the_canceller) {
    Signal mic, ref, mic8, ref8, want16, want8;
    AecCfg cfg16 = record_at(16000), cfg8 = record_at(8000);
    const gsize n16 = 16000, n8 = 12000;
    Run *r = run_new(NULL);
    GstCaps *caps;

    make_signals(n16, 21, &mic, &ref);
    make_signals(n8, 22, &mic8, &ref8);
    want16 = stream_output(&cfg16, NULL, &mic, &ref);
    want8 = stream_output(&cfg8, NULL, &mic8, &ref8);
    run_play(r, 16000, 16000);
    push(r->mic, &mic, 0, n16, 16000, 0, mic_sizes, G_N_ELEMENTS(mic_sizes));
    push(r->ref, &ref, 0, n16, 16000, 0, ref_sizes, G_N_ELEMENTS(ref_sizes));
    caps = caps_of(8000);
    gst_app_src_set_caps(GST_APP_SRC(r->mic), caps);
    gst_app_src_set_caps(GST_APP_SRC(r->ref), caps);
    gst_caps_unref(caps);
    /* One second later on the running-time line, now at 8000 Hz. */
    push(r->mic, &mic8, 0, n8, 8000, 8000, mic_sizes, G_N_ELEMENTS(mic_sizes));
    push(r->ref, &ref8, 0, n8, 8000, 8000, ref_sizes, G_N_ELEMENTS(ref_sizes));
    gst_app_src_end_of_stream(GST_APP_SRC(r->mic));
    gst_app_src_end_of_stream(GST_APP_SRC(r->ref));
    pull(r, 0);
    fail_unless(r->eos && !r->error);
    fail_unless(has_warning(r, "changed from 16000 Hz to 8000 Hz"));
    fail_unless_equals_int(r->out->len, n16 + n8);
    assert_samples((gint16 *)r->out->data, want16.s, n16);
    assert_samples((gint16 *)r->out->data + n16, want8.s, n8);
    run_free(r);
    g_free(mic.s);
    g_free(ref.s);
    g_free(mic8.s);
    g_free(ref8.s);
    g_free(want16.s);
    g_free(want8.s);
}

GST_END_TEST;

/* A flush on both inputs (as a flushing seek sends) restarts the canceller. */
GST_START_TEST(flush_restarts_the_canceller) {
    const gint rate = 16000;
    const gsize n = rate;
    Signal mic, ref, want_a, mic_b, ref_b, want_b;
    AecCfg cfg = record_at(rate);
    Run *r = run_new(NULL);
    const guint32 seqnum = gst_util_seqnum_next();
    const gchar *pads[] = {"mic_sink", "ref_sink"};
    GstSegment segment;

    make_signals(n, 31, &mic, &ref);
    make_signals(n, 32, &mic_b, &ref_b);
    want_a = stream_output(&cfg, NULL, &mic, &ref);
    want_b = stream_output(&cfg, NULL, &mic_b, &ref_b);
    run_play(r, rate, rate);
    push(r->mic, &mic, 0, n, rate, 0, mic_sizes, G_N_ELEMENTS(mic_sizes));
    push(r->ref, &ref, 0, n, rate, 0, ref_sizes, G_N_ELEMENTS(ref_sizes));
    pull(r, n);
    fail_unless_equals_int(r->out->len, n);
    assert_samples((gint16 *)r->out->data, want_a.s, n);

    gst_segment_init(&segment, GST_FORMAT_TIME);
    for (guint i = 0; i < 2; ++i) {
        GstPad *pad = gst_element_get_static_pad(r->aec, pads[i]);
        GstEvent *e = gst_event_new_flush_start();
        gst_event_set_seqnum(e, seqnum);
        fail_unless(gst_pad_send_event(pad, e));
        e = gst_event_new_flush_stop(TRUE);
        gst_event_set_seqnum(e, seqnum);
        fail_unless(gst_pad_send_event(pad, e));
        fail_unless(gst_pad_send_event(pad, gst_event_new_segment(&segment)));
        gst_object_unref(pad);
    }
    g_array_set_size(r->out, 0);
    push(r->mic, &mic_b, 0, n, rate, 0, mic_sizes, G_N_ELEMENTS(mic_sizes));
    push(r->ref, &ref_b, 0, n, rate, 0, ref_sizes, G_N_ELEMENTS(ref_sizes));
    gst_app_src_end_of_stream(GST_APP_SRC(r->mic));
    gst_app_src_end_of_stream(GST_APP_SRC(r->ref));
    pull(r, 0);
    fail_unless(r->eos && !r->error);
    fail_unless_equals_int(r->out->len, n);
    assert_samples((gint16 *)r->out->data, want_b.s, n);
    run_free(r);
    g_free(mic.s);
    g_free(ref.s);
    g_free(mic_b.s);
    g_free(ref_b.s);
    g_free(want_a.s);
    g_free(want_b.s);
}

GST_END_TEST;

static void count_notify(gint *count) { g_atomic_int_inc(count); }

GST_START_TEST(estimates_and_latency_are_reported) {
    const gint rate = 16000;
    Signal mic, ref;
    Run *r;
    guint reports = 0;
    gint notified = 0;
    gint delay = -2;
    gdouble confidence = -1;
    GstQuery *q = gst_query_new_latency();
    gboolean live;
    GstClockTime min, max;

    make_signals(5 * rate + 100, 41, &mic, &ref);
    r = run_new(NULL);
    g_signal_connect_swapped(r->aec, "notify::delay-estimate", G_CALLBACK(count_notify), &notified);
    run_play(r, rate, rate);
    push(r->mic, &mic, 0, mic.n, rate, 0, mic_sizes, G_N_ELEMENTS(mic_sizes));
    push(r->ref, &ref, 0, ref.n, rate, 0, ref_sizes, G_N_ELEMENTS(ref_sizes));
    gst_app_src_end_of_stream(GST_APP_SRC(r->mic));
    gst_app_src_end_of_stream(GST_APP_SRC(r->ref));
    pull(r, 0);
    fail_unless(r->eos && !r->error);
    for (GList *l = r->messages; l; l = l->next) {
        const GstStructure *s = gst_message_get_structure(l->data);
        if (GST_MESSAGE_TYPE(l->data) == GST_MESSAGE_ELEMENT &&
            gst_structure_has_name(s, "sonvelaec-estimate")) {
            fail_unless(gst_structure_has_field_typed(s, "delay-estimate", G_TYPE_INT));
            fail_unless(gst_structure_has_field_typed(s, "delay-confidence", G_TYPE_DOUBLE));
            ++reports;
        }
    }
    fail_unless_equals_int(reports, 5); /* one per second of audio */
    fail_unless_equals_int(g_atomic_int_get(&notified), 5);
    g_object_get(r->aec, "delay-estimate", &delay, "delay-confidence", &confidence, NULL);
    fail_unless(delay >= -1 && confidence >= 0.0 && confidence <= 1.0);

    /* The element adds the stream's latency to what upstream reports. */
    fail_unless(gst_element_query(r->aec, q));
    gst_query_parse_latency(q, &live, &min, &max);
    fail_unless_equals_uint64(min,
                              gst_util_uint64_scale_round(stream_latency(rate), GST_SECOND, rate));
    gst_query_unref(q);
    run_free(r);
    g_free(mic.s);
    g_free(ref.s);
}

GST_END_TEST;

/* Live sources: the microphone is not held back by a reference that stops without an end; from
 * then on the reference is silence (once the latency has passed on the clock). */
GST_START_TEST(live_reference_that_stops_is_silence) {
    const gint rate = 8000;
    const gsize n = 4800, heard_until = 2000;
    Signal mic, ref, heard, want;
    AecCfg cfg = record_at(rate);
    Run *r = run_new_with("format=time is-live=true", NULL);
    make_signals(n, 51, &mic, &ref);
    heard = signal_new(n);
    memcpy(heard.s, ref.s, heard_until * 2);
    want = stream_output(&cfg, NULL, &mic, &heard);
    run_play(r, rate, rate);
    /* Stamped one second ahead, so that what is pushed is there before its deadline however slow
   * the machine. */
    push(r->ref, &ref, 0, heard_until, rate, rate, ref_sizes, G_N_ELEMENTS(ref_sizes));
    push(r->mic, &mic, 0, n, rate, rate, mic_sizes, G_N_ELEMENTS(mic_sizes));
    pull(r, n);
    fail_unless(!r->error);
    fail_unless_equals_int(r->out->len, n);
    assert_samples((gint16 *)r->out->data, want.s, n);
    run_free(r);
    g_free(mic.s);
    g_free(ref.s);
    g_free(heard.s);
    g_free(want.s);
}

GST_END_TEST;

static Suite *sonvelaec_suite(void) {
    Suite *s = suite_create("sonvelaec");
    TCase *tc = tcase_create("element");
    tcase_set_timeout(tc, 120);
    suite_add_tcase(s, tc);
    tcase_add_test(tc, odd_buffer_sizes_give_the_stream_output);
    tcase_add_test(tc, reference_late_start_gap_and_early_end_are_silence);
    tcase_add_test(tc, properties_reach_the_canceller);
    tcase_add_test(tc, refused_values_are_warnings_naming_field_and_range);
    tcase_add_test(tc, caps_change_restarts_the_canceller);
    tcase_add_test(tc, flush_restarts_the_canceller);
    tcase_add_test(tc, estimates_and_latency_are_reported);
    tcase_add_test(tc, live_reference_that_stops_is_silence);
    return s;
}

GST_CHECK_MAIN(sonvelaec);
