/* Sample positions on the running-time line shared by the two inputs: where a buffer starts
 * (its timestamp, or the continuation of its stream when the two are within a tolerance), and
 * the reference line, which holds the reference samples from the microphone's current position
 * on, with silence where the reference has not played (late start, gaps, end of stream). */
#ifndef SONVELAEC_TIMELINE_H
#define SONVELAEC_TIMELINE_H

#include <gst/gst.h>

G_BEGIN_DECLS

/* Where the next buffer of one input is expected. */
typedef struct {
    gint64 next;
    gboolean valid;
} SonvelAecCursor;

/* The sample index where a buffer starts: its timestamp's index `at` (valid or not), snapped to the
 * cursor's expectation when the two differ by at most `tolerance` samples. */
gint64 sonvel_aec_cursor_start(const SonvelAecCursor *c, gboolean at_valid, gint64 at,
                               gint64 tolerance);

/* Running time <-> sample index at a rate. */
gint64 sonvel_aec_time_to_index(GstClockTime running_time, gint rate);
GstClockTime sonvel_aec_index_to_time(gint64 index, gint rate);

typedef struct {
    gint16 *data;
    gsize len, cap;
    gint64 base;            /* index of data[0] */
    SonvelAecCursor cursor; /* continuation of the reference stream itself */
} SonvelAecRefLine;

void sonvel_aec_ref_line_init(SonvelAecRefLine *line);
void sonvel_aec_ref_line_clear(SonvelAecRefLine *line);
/* Forgets the held samples and the stream's continuation (new segment, flush, new caps). */
void sonvel_aec_ref_line_reset(SonvelAecRefLine *line);
/* Makes the line start at `from`: earlier samples are dropped; if nothing is held from there on
 * the line restarts empty at `from`. */
void sonvel_aec_ref_line_rebase(SonvelAecRefLine *line, gint64 from);
gint64 sonvel_aec_ref_line_end(const SonvelAecRefLine *line);
/* Puts n samples starting at index `start`: the part before the line's end is dropped (it
 * arrived too late or overlaps), a gap before it is filled with silence. Moves the cursor. */
void sonvel_aec_ref_line_put(SonvelAecRefLine *line, gint64 start, const gint16 *s, gsize n);
/* Extends the line with silence up to index `until`. */
void sonvel_aec_ref_line_silence(SonvelAecRefLine *line, gint64 until);
/* Drops the first n samples (they were used). */
void sonvel_aec_ref_line_consume(SonvelAecRefLine *line, gsize n);

G_END_DECLS

#endif
