/* Visibility and linkage of all exported functions and variables. */
#ifndef TEV_EXPORT_H
#define TEV_EXPORT_H

#define TEV_API __attribute__((visibility("default")))

/* The compiler checks the arguments of a printf-like function; positions count from 1. */
#define TEV_PRINTF_FORMAT(format_position, first_argument) \
  __attribute__((format(printf, format_position, first_argument)))

#ifdef __cplusplus
#define TEV_C_BEGIN extern "C" {
#define TEV_C_END }
#else
#define TEV_C_BEGIN
#define TEV_C_END
#endif

#endif
