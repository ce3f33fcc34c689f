/* Export macro of the echo canceller library: every public symbol is marked with it; everything
 * else is built with hidden visibility. */
#ifndef SONVEL_AEC_EXPORT_H
#define SONVEL_AEC_EXPORT_H

#if defined(__GNUC__)
#define SONVEL_API __attribute__((visibility("default")))
#else
#define SONVEL_API
#endif

#ifdef __cplusplus
#define SONVEL_EXTERN_C_BEGIN extern "C" {
#define SONVEL_EXTERN_C_END }
#else
#define SONVEL_EXTERN_C_BEGIN
#define SONVEL_EXTERN_C_END
#endif

#endif
