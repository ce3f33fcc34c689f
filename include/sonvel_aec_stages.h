/* Per-block processing stages of the echo canceller, exported for testing, tracing and custom
 * pipelines: the adaptive filter (linear canceller) and the residual echo suppressor. Each takes
 * the processing state of an instance (the block start plus 3880 bytes). */
#ifndef SONVEL_AEC_STAGES_H
#define SONVEL_AEC_STAGES_H

#include <stdint.h>
#include "sonvel_aec_export.h"
#include "sonvel_aec_spectral.h"

SONVEL_EXTERN_C_BEGIN

/* Linear canceller. */
SONVEL_API int32_t Sonvel_AEC_Mdf(AecState *state, const int16_t *near, const int16_t *far);
SONVEL_API void Sonvel_AEC_MdfFilter(AecState *state, int32_t *y, const int16_t *near);
SONVEL_API void Sonvel_AEC_UpdateFilterParameter(AecState *state, int32_t *eblock);
SONVEL_API int32_t Sonvel_AEC_GetFramedB(const AecState *state, const int16_t *x);
SONVEL_API void Sonvel_AEC_Vad(const AecState *state, int16_t *vadSt, int16_t level, int16_t *flag);
SONVEL_API void Sonvel_AEC_FilterDelayEstimate(AecState *state);

/* Residual echo suppressor. */
SONVEL_API int32_t Sonvel_AEC_Nlp(AecState *state, int16_t *out);
SONVEL_API void Sonvel_AEC_CrossCoh(const AecState *state, int16_t *out, int16_t sel);
SONVEL_API void Sonvel_AEC_HnledCalc(AecState *state, int16_t *hnl, int16_t *fb);
SONVEL_API void Sonvel_AEC_DivergeRistrict(AecState *state, int32_t *E, const int32_t *D,
                                           int32_t *Y, int32_t seSum, int32_t sdSum);
SONVEL_API int32_t Sonvel_AEC_HnlCtrl(AecState *state);
SONVEL_API void Sonvel_AEC_HnlCtrl1(AecState *state);
SONVEL_API void Sonvel_AEC_HnlmGain(AecState *state, const void *unused, const int32_t *E,
                                    const int32_t *X, const int32_t *Y);
SONVEL_API void Sonvel_AEC_NlpPro(AecState *state, int16_t *g, int32_t fb, int32_t *E);
SONVEL_API void Sonvel_AEC_HighFreqProc(int16_t *g, const int16_t *m, int16_t lo, int16_t hi,
                                        int32_t last);
SONVEL_API void Sonvel_AEC_HnledSm(AecState *state, int16_t *g, int32_t c, int32_t last);
SONVEL_API void Sonvel_AEC_ComfortNoiseEstimate(AecState *state);
SONVEL_API void Sonvel_AEC_ComfortNoise(AecState *state, const int16_t *g, const int32_t *E,
                                        int32_t *OUT);
SONVEL_API int32_t Sonvel_AEC_OutPutSmooth(AecState *state, int32_t *spectrum, const int16_t *win,
                                           int32_t *frame, int16_t *out);

/* Suppressor tables. */
SONVEL_API extern const int16_t Sonvel_AEC_gasAecWindow_65[65];
SONVEL_API extern const int16_t Sonvel_AEC_gasAecWindow_129[129];
SONVEL_API extern const int16_t Sonvel_AEC_gasAecWeightCurve_65[66];
SONVEL_API extern const int16_t Sonvel_AEC_gasAecWeightCurve_129[130];
SONVEL_API extern const int16_t Sonvel_AEC_gasAecOverDriveCurve_65[66];
SONVEL_API extern const int16_t Sonvel_AEC_gasAecOverDriveCurve_129[130];
SONVEL_API extern const int16_t Sonvel_AEC_gasAecCnCos_650[650];
SONVEL_API extern const int16_t Sonvel_AEC_gasAecCnSin_650[650];

SONVEL_EXTERN_C_END

#endif
