/* Sample positions on the shared running-time line and the reference line (see the header). */
#include "sonvelaec_timeline.h"

#include <string.h>

gint64 sonvel_aec_cursor_start(const SonvelAecCursor *c, gboolean at_valid, gint64 at,
                               gint64 tolerance) {
    if (!at_valid) return c->valid ? c->next : 0;
    if (c->valid && ABS(at - c->next) <= tolerance) return c->next;
    return at;
}

gint64 sonvel_aec_time_to_index(GstClockTime running_time, gint rate) {
    return (gint64)gst_util_uint64_scale_round(running_time, rate, GST_SECOND);
}

GstClockTime sonvel_aec_index_to_time(gint64 index, gint rate) {
    return gst_util_uint64_scale_round(MAX(index, 0), GST_SECOND, rate);
}

void sonvel_aec_ref_line_init(SonvelAecRefLine *line) { memset(line, 0, sizeof *line); }

void sonvel_aec_ref_line_clear(SonvelAecRefLine *line) {
    g_free(line->data);
    sonvel_aec_ref_line_init(line);
}

void sonvel_aec_ref_line_reset(SonvelAecRefLine *line) {
    line->len = 0;
    line->base = 0;
    line->cursor.valid = FALSE;
}

gint64 sonvel_aec_ref_line_end(const SonvelAecRefLine *line) {
    return line->base + (gint64)line->len;
}

void sonvel_aec_ref_line_consume(SonvelAecRefLine *line, gsize n) {
    n = MIN(n, line->len);
    memmove(line->data, line->data + n, (line->len - n) * sizeof(gint16));
    line->len -= n;
    line->base += (gint64)n;
}

void sonvel_aec_ref_line_rebase(SonvelAecRefLine *line, gint64 from) {
    if (from < line->base || from >= sonvel_aec_ref_line_end(line)) {
        line->len = 0;
        line->base = from;
        return;
    }
    sonvel_aec_ref_line_consume(line, (gsize)(from - line->base));
}

static gint16 *grow(SonvelAecRefLine *line, gsize n) {
    if (line->len + n > line->cap) {
        line->cap = MAX(line->len + n, 2 * line->cap);
        line->data = g_renew(gint16, line->data, line->cap);
    }
    line->len += n;
    return line->data + line->len - n;
}

void sonvel_aec_ref_line_silence(SonvelAecRefLine *line, gint64 until) {
    const gint64 end = sonvel_aec_ref_line_end(line);
    if (until > end)
        memset(grow(line, (gsize)(until - end)), 0, (gsize)(until - end) * sizeof(gint16));
}

void sonvel_aec_ref_line_put(SonvelAecRefLine *line, gint64 start, const gint16 *s, gsize n) {
    const gint64 end = sonvel_aec_ref_line_end(line);
    line->cursor.next = start + (gint64)n;
    line->cursor.valid = TRUE;
    if (start < end) {
        const gint64 late = end - start;
        if (late >= (gint64)n) return;
        s += late;
        n -= (gsize)late;
        start = end;
    }
    sonvel_aec_ref_line_silence(line, start);
    memcpy(grow(line, n), s, n * sizeof(gint16));
}
