/* The element's settings: the record's fields by name (type ranges, comma lists), the library's
 * verdict on a whole record turned into "field, value, allowed range", and the reference-delay
 * mode of the front end. */
#include "sonvelaec_settings.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

static const SonvelAecField fields[] = {
    {"u8CnEnable", "Comfort noise in suppressed parts (0 off, 1 on)", 1, TRUE,
     offsetof(AecCfg, u8CnEnable)},
    {"u8StartPart", "First far-end partition of the filter, a bulk delay in blocks (0..6)", 1, TRUE,
     offsetof(AecCfg, u8StartPart)},
    {"u8NlpLevel", "Suppression level (0..2)", 1, TRUE, offsetof(AecCfg, u8NlpLevel)},
    {"u8HighFreqMode", "High-frequency gain shaping mode (0..1)", 1, TRUE,
     offsetof(AecCfg, u8HighFreqMode)},
    {"s16CohThr", "Q15 incoherence threshold of raised suppression (0..32767)", 1, FALSE,
     offsetof(AecCfg, s16CohThr)},
    {"s16HfBinLo", "First bin examined by the upper-band cut-off", 1, FALSE,
     offsetof(AecCfg, s16HfBinLo)},
    {"s16HfBinHi", "Last bin examined by the upper-band cut-off", 1, FALSE,
     offsetof(AecCfg, s16HfBinHi)},
    {"s16CohBinLo", "First bin of the mean incoherence", 1, FALSE, offsetof(AecCfg, s16CohBinLo)},
    {"s16CohBinHi", "End bin (exclusive) of the mean incoherence", 1, FALSE,
     offsetof(AecCfg, s16CohBinHi)},
    {"as16BandEdge", "Six non-decreasing edges of the seven coupling bands, \"e0,...,e5\"", 6,
     FALSE, offsetof(AecCfg, as16BandEdge)},
    {"s16ClampBinLo", "Overdrive cap 2.0 for bins 0..lo", 1, FALSE,
     offsetof(AecCfg, s16ClampBinLo)},
    {"s16ClampBinHi", "Overdrive cap 3.0 for bins lo+1..hi", 1, FALSE,
     offsetof(AecCfg, s16ClampBinHi)},
    {"as16BandShift", "Coupling gain 4*2^h (Q15) of the seven bands, \"h0,...,h6\"", 7, FALSE,
     offsetof(AecCfg, as16BandShift)},
};

const SonvelAecField *sonvel_aec_fields(guint *n_fields) {
    *n_fields = G_N_ELEMENTS(fields);
    return fields;
}

AecCfg sonvel_aec_default_record(gint rate) {
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate == 8000 ? 0 : 1;
    return cfg;
}

gint sonvel_aec_field_get(const AecCfg *cfg, const SonvelAecField *f, gint i) {
    const guint8 *base = (const guint8 *)cfg + f->offset;
    gint16 v;
    if (f->is_byte) return base[i];
    memcpy(&v, base + 2 * i, sizeof v);
    return v;
}

static gboolean store(AecCfg *cfg, const SonvelAecField *f, gint i, gint64 value, gchar **why) {
    guint8 *base = (guint8 *)cfg + f->offset;
    const gint64 lo = f->is_byte ? 0 : G_MININT16;
    const gint64 hi = f->is_byte ? G_MAXUINT8 : G_MAXINT16;
    if (value < lo || value > hi) {
        *why = g_strdup_printf("%s = %" G_GINT64_FORMAT " refused: allowed %" G_GINT64_FORMAT
                               "..%" G_GINT64_FORMAT " (the field's type)",
                               f->name, value, lo, hi);
        return FALSE;
    }
    if (f->is_byte) {
        base[i] = (guint8)value;
    } else {
        const gint16 v = (gint16)value;
        memcpy(base + 2 * i, &v, sizeof v);
    }
    return TRUE;
}

gboolean sonvel_aec_field_set(AecCfg *cfg, const SonvelAecField *f, gint64 value, gchar **why) {
    return store(cfg, f, 0, value, why);
}

gboolean sonvel_aec_field_parse(AecCfg *cfg, const SonvelAecField *f, const gchar *text,
                                gchar **why) {
    AecCfg next = *cfg;
    gchar **parts = g_strsplit(text ? text : "", ",", -1);
    const gint n = (gint)g_strv_length(parts);
    gboolean ok = n == f->count;
    if (!ok)
        *why = g_strdup_printf("%s = \"%s\" refused: allowed %d comma-separated integers", f->name,
                               text ? text : "", f->count);
    for (gint i = 0; ok && i < n; ++i) {
        gchar *end = NULL;
        const gchar *s = g_strstrip(parts[i]);
        const gint64 v = g_ascii_strtoll(s, &end, 10);
        if (*s == '\0' || *end != '\0') {
            *why = g_strdup_printf("%s = \"%s\" refused: '%s' is not an integer", f->name, text, s);
            ok = FALSE;
        } else {
            ok = store(&next, f, i, v, why);
        }
    }
    g_strfreev(parts);
    if (ok) *cfg = next;
    return ok;
}

gchar *sonvel_aec_field_format(const AecCfg *cfg, const SonvelAecField *f) {
    GString *s = g_string_new(NULL);
    for (gint i = 0; i < f->count; ++i)
        g_string_append_printf(s, i ? ",%d" : "%d", sonvel_aec_field_get(cfg, f, i));
    return g_string_free(s, FALSE);
}

/* The field a refusal code is about and its allowed range ("%d" stands for the bin count). */
typedef struct {
    gint32 status;
    const gchar *field;
    const gchar *range;
    gboolean relational;
} Refusal;

static const Refusal refusals[] = {
    {SONVEL_AEC_ERR_CFG_START_PART, "u8StartPart", "0..6"},
    {SONVEL_AEC_ERR_CFG_NLP_LEVEL, "u8NlpLevel", "0..2"},
    {SONVEL_AEC_ERR_CFG_HIGH_FREQ_MODE, "u8HighFreqMode", "0..1"},
    {SONVEL_AEC_ERR_CFG_COH_THR, "s16CohThr", "0..32767"},
    {SONVEL_AEC_ERR_CFG_HF_BIN_ORDER, "s16HfBinLo", "0..s16HfBinHi", TRUE},
    {SONVEL_AEC_ERR_CFG_HF_BIN_HI, "s16HfBinHi", "s16HfBinLo..%d"},
    {SONVEL_AEC_ERR_CFG_COH_BIN_ORDER, "s16CohBinLo", "0..s16CohBinHi", TRUE},
    {SONVEL_AEC_ERR_CFG_COH_BIN_HI, "s16CohBinHi", "s16CohBinLo..%d"},
    {SONVEL_AEC_ERR_CFG_BAND_EDGE, "as16BandEdge", "non-decreasing, 0 <= e0 <= ... <= e5 <= %d"},
    {SONVEL_AEC_ERR_CFG_CLAMP_BIN_ORDER, "s16ClampBinLo", "0..s16ClampBinHi", TRUE},
    {SONVEL_AEC_ERR_CFG_CLAMP_BIN_LO, "s16ClampBinLo", "0..%d"},
};

gboolean sonvel_aec_refusal_is_relational(gint32 status) {
    for (guint r = 0; r < G_N_ELEMENTS(refusals); ++r) {
        if (refusals[r].status == status) return refusals[r].relational;
    }
    return FALSE;
}

gint32 sonvel_aec_record_check(const AecCfg *cfg, gchar **why) {
    const gint32 status = Sonvel_AEC_Check(cfg);
    const gint bins = cfg->u8SampleRate == 0 ? 128 : 256;
    if (status == SONVEL_AEC_OK) return status;
    for (guint r = 0; r < G_N_ELEMENTS(refusals); ++r) {
        if (refusals[r].status != status) continue;
        for (guint i = 0; i < G_N_ELEMENTS(fields); ++i) {
            if (strcmp(fields[i].name, refusals[r].field) == 0) {
                gchar *value = sonvel_aec_field_format(cfg, &fields[i]);
                gchar *range = g_strdup_printf(refusals[r].range, bins);
                *why = g_strdup_printf("%s = %s refused at %d Hz: allowed %s (status %d)",
                                       fields[i].name, value, cfg->u8SampleRate == 0 ? 8000 : 16000,
                                       range, status);
                g_free(range);
                g_free(value);
                return status;
            }
        }
    }
    *why = g_strdup_printf("the parameter record was refused (status %d)", status);
    return status;
}

gboolean sonvel_aec_ref_delay_parse(AecFrontendCfg *fe, const gchar *text, gchar **why) {
    gchar *end = NULL;
    gint64 ms;
    if (text == NULL || g_ascii_strcasecmp(text, "off") == 0) {
        fe->u8DelayMode = SONVEL_AEC_DELAY_OFF;
        fe->u16DelayMs = 0;
        return TRUE;
    }
    if (g_ascii_strcasecmp(text, "auto") == 0) {
        fe->u8DelayMode = SONVEL_AEC_DELAY_AUTO;
        fe->u16DelayMs = 0;
        return TRUE;
    }
    ms = g_ascii_strtoll(text, &end, 10);
    if (*text == '\0' || *end != '\0' || ms < 0 || ms > SONVEL_AEC_FRONTEND_MAX_DELAY_MS) {
        *why = g_strdup_printf("ref-delay = \"%s\" refused: allowed auto, off or 0..%d (ms)", text,
                               SONVEL_AEC_FRONTEND_MAX_DELAY_MS);
        return FALSE;
    }
    fe->u8DelayMode = SONVEL_AEC_DELAY_FIXED;
    fe->u16DelayMs = (guint16)ms;
    return TRUE;
}

gchar *sonvel_aec_ref_delay_format(const AecFrontendCfg *fe) {
    if (fe->u8DelayMode == SONVEL_AEC_DELAY_AUTO) return g_strdup("auto");
    if (fe->u8DelayMode == SONVEL_AEC_DELAY_FIXED) return g_strdup_printf("%u", fe->u16DelayMs);
    return g_strdup("off");
}
