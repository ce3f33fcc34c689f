/* The smallest complete use of the echo canceller's core interface, in plain C: one instance in
 * caller-owned memory, 16000 Hz, 10 ms frames. The far end is bursts of noise (300 ms on, 300 ms
 * off, as a talker would pause) played into an "echo path" (half the amplitude, 2.5 ms late); the
 * program prints how far the echo was reduced over the last second and exits non-zero if any call
 * fails or the echo is not reduced. */
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <sonvel_aec/sonvel_aec.h>

#define FRAME 160  /* samples per 10 ms at 16000 Hz */
#define FRAMES 400 /* four seconds */
#define DELAY 40   /* echo path delay in samples */

static uint32_t seed = 1;

static int16_t noise(void) {
    seed = seed * 1664525u + 1013904223u;
    return (int16_t)((int32_t)(seed >> 16) - 32768) / 8; /* about -20 dBFS */
}

int main(void) {
    uint32_t size = 0, reserved = 0;
    void *aec = NULL;
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab; /* the library's defaults ... */
    cfg.u8SampleRate = 1;                     /* ... at 16000 Hz */

    if (Sonvel_AEC_GetSize(&size, &reserved) != SONVEL_AEC_OK) return 1;
    void *mem = aligned_alloc(8, size); /* 62064 bytes, 8-byte aligned */
    int32_t rc = Sonvel_AEC_Init(&aec, mem, size, &cfg);
    if (rc != SONVEL_AEC_OK) {
        fprintf(stderr, "Sonvel_AEC_Init: %s (status %d)\n", Sonvel_AEC_StatusText(rc), (int)rc);
        return 1;
    }

    int16_t history[DELAY] = {0};
    double mic_energy = 0, out_energy = 0;
    for (int f = 0; f < FRAMES; ++f) {
        int16_t far[FRAME], near[FRAME], out[FRAME];
        for (int i = 0; i < FRAME; ++i) {
            const int on = ((f * FRAME + i) / 4800) % 2 == 0;
            far[i] = on ? noise() : 0;
            near[i] = history[0] / 2; /* the echo of what was played DELAY samples ago */
            for (int k = 0; k < DELAY - 1; ++k) history[k] = history[k + 1];
            history[DELAY - 1] = far[i];
        }
        /* out lags near by 18 ms; it must be a buffer of its own (no in-place processing) */
        rc = Sonvel_AEC_Apply(aec, near, far, out);
        if (rc != SONVEL_AEC_OK) {
            fprintf(stderr, "Sonvel_AEC_Apply: %s (status %d)\n", Sonvel_AEC_StatusText(rc),
                    (int)rc);
            return 1;
        }
        if (f >= FRAMES - 100) {
            for (int i = 0; i < FRAME; ++i) {
                mic_energy += (double)near[i] * near[i];
                out_energy += (double)out[i] * out[i];
            }
        }
    }
    free(mem); /* the core holds nothing else */

    const double reduction = 10.0 * log10(mic_energy / (out_energy + 1.0));
    printf("echo reduction over the last second: %.1f dB\n", reduction);
    return reduction > 6.0 ? 0 : 1;
}
