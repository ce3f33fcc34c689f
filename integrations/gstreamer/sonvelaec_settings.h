/* The element's settings: the canceller's parameter record by field name and the front end's
 * modes, parsed from property values, checked, and explained when refused. */
#ifndef SONVELAEC_SETTINGS_H
#define SONVELAEC_SETTINGS_H

#include <glib.h>

#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"

G_BEGIN_DECLS

/* One named field of the record; arrays (count > 1) are given as comma-separated text. */
typedef struct {
    const gchar *name;
    const gchar *blurb;
    gint count;
    gboolean is_byte;
    gsize offset;
} SonvelAecField;

/* The record's fields in declaration order, u8SampleRate excepted (it follows the caps). */
const SonvelAecField *sonvel_aec_fields(guint *n_fields);

/* The library's default record at a rate (8000 or 16000). */
AecCfg sonvel_aec_default_record(gint rate);

/* Reads element i of a field; writes it after checking the field's type range. On a refusal the
 * functions return FALSE and set *why (free with g_free) to "FIELD = VALUE refused: allowed ...". */
gint sonvel_aec_field_get(const AecCfg *cfg, const SonvelAecField *f, gint i);
gboolean sonvel_aec_field_set(AecCfg *cfg, const SonvelAecField *f, gint64 value, gchar **why);
/* Arrays: "a,b,c" with exactly f->count integers. */
gboolean sonvel_aec_field_parse(AecCfg *cfg, const SonvelAecField *f, const gchar *text,
                                gchar **why);
gchar *sonvel_aec_field_format(const AecCfg *cfg, const SonvelAecField *f);

/* Checks the whole record with the library (its u8SampleRate chooses the bin ranges); returns
 * the library's status and on a refusal names the field, the value and the allowed range. */
gint32 sonvel_aec_record_check(const AecCfg *cfg, gchar **why);
/* TRUE for refusals that involve two fields (an order between them), which a value set before
 * its partner may cause without being wrong. */
gboolean sonvel_aec_refusal_is_relational(gint32 status);

/* "off", "auto" or milliseconds 0..SONVEL_AEC_FRONTEND_MAX_DELAY_MS into the front-end record. */
gboolean sonvel_aec_ref_delay_parse(AecFrontendCfg *fe, const gchar *text, gchar **why);
gchar *sonvel_aec_ref_delay_format(const AecFrontendCfg *fe);

G_END_DECLS

#endif
