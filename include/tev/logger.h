/* The process-wide logger.
 *
 * Every module that is loaded into a process carries its own logger state; a host shares its own
 * with a plug-in by handing tev_get_logger_ctx() to the plug-in's _tev_register_logger().
 *
 * Nothing is printed until TEV_API_LOG_LEVEL (or API_LOG_LEVEL) is set in the environment or a
 * logger is initialised by one of the calls below. Any thread may log; the calls that configure the
 * logger are for start-up, when no other thread logs.
 */
#ifndef TEV_LOGGER_H
#define TEV_LOGGER_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "tev/export.h"

TEV_C_BEGIN

/* Message levels: syslog priorities. A message is emitted when the threshold is not below its
 * level. */
enum {
  TEV_LEVEL_ERROR = 3,
  TEV_LEVEL_WARNING = 4,
  TEV_LEVEL_INFO = 6,
  TEV_LEVEL_DEBUG = 7,
};

/* The threshold before the first message or the first explicit initialisation. */
#define TEV_LEVEL_UNSET UINT32_MAX

/* Where lines go. */
enum {
  TEV_LOGGER_STDERR = 0,
  TEV_LOGGER_SYSLOG = 1,
  TEV_LOGGER_FILE = 2,
  TEV_LOGGER_FUNCTION = 3,
};

/* A host's log function. `format` carries no trailing newline. Called on whichever thread logs, the
 * plug-in's sampling thread among them, which holds up the provider meanwhile: it must be
 * thread-safe, must not block for long, and must neither call the provider nor take a lock that is
 * held around a call of it. */
typedef void (*tev_log_func_t)(uint32_t level, const char* format, ...);

/* One module's logger, as handed to another. */
typedef struct tev_logger_ctx_t {
  uint32_t kind;           /* TEV_LOGGER_... */
  FILE* stream;            /* for stderr and file */
  tev_log_func_t log_func; /* for a function */
  uint32_t level;          /* threshold */
  pthread_mutex_t* mutex;  /* serialises lines; null: lines are not serialised */
} tev_logger_ctx_t;

/* A program that is linked with the library must find these where the library has them. Without
 * "weak", a compiler may give the program copies of its own, which the library never looks at. */
#ifdef TEV_COMMON_LIBRARY
#define TEV_SHARED_VARIABLE extern TEV_API
#else
#define TEV_SHARED_VARIABLE extern TEV_API __attribute__((weak))
#endif

/* The threshold. Read it through tev_log_enabled(). */
TEV_SHARED_VARIABLE uint32_t tev_log_level;

/* 1 once another module's logger has been adopted; the backend can then no longer be changed. */
TEV_SHARED_VARIABLE uint8_t is_registered;

/* Sets the threshold; returns the previous one. */
TEV_API uint32_t tev_set_log_level(uint32_t level);

/* Sends every message up to `level` to `func`. The function stays in use until it is replaced. */
TEV_API void tev_set_log_func(tev_log_func_t func, uint32_t level);

/* The log function in use, or null. */
TEV_API tev_log_func_t tev_get_log_func(void);

/* A copy of this module's logger state, to be handed to another module and then released with
 * tev_destroy_logger_ctx(); null when memory is short. Stream and mutex stay this module's. */
TEV_API tev_logger_ctx_t* tev_get_logger_ctx(void);
TEV_API void tev_destroy_logger_ctx(tev_logger_ctx_t* ctx);

/* Adopts another module's logger. Returns 0 for a null context, else 1. A context equal to the
 * current state changes nothing, not even is_registered. */
TEV_API int _tev_register_logger(const tev_logger_ctx_t* ctx);

/* Choose the backend. Each returns 1, or 0 when another module's logger has been registered.
 * tev_init_file_logger() truncates `path`; when it cannot be opened, standard error is used and the
 * result is 0. */
TEV_API int tev_init_stderr_logger(uint32_t level);
TEV_API int tev_init_syslog_logger(const char* ident, uint32_t level);
TEV_API int tev_init_file_logger(const char* path, uint32_t level);

/* Closes the backend and goes back to standard error with the same threshold. A log function that
 * was set stays in use. */
TEV_API void tev_close_logger(void);

/* The built-in writer: one line, with time stamp and level tag (syslog: the message alone). */
TEV_API void _tev_log(uint32_t level, const char* format, ...) TEV_PRINTF_FORMAT(2, 3);

/* Reads the threshold from TEV_API_LOG_LEVEL (0 when unset or not a number) and logs to standard
 * error from now on. */
TEV_API void __tev_init_logger_default(void);

/* Makes the logger serialise its lines, unless TEV_LOG_THREAD_SAFE says otherwise. Returns 1 when
 * it does. */
TEV_API int _tev_init_logger_mutex(void);

/* Runs at process exit. */
TEV_API void tev_logger_cleanup_mutex_exit_handler(void);

/* Looks `name` up with and without the prefix "TEV_"; the prefixed variable wins. Returns a pointer
 * into the environment, or null. */
TEV_API const char* tev_getenv(const char* name);

/* The pieces of a line: the time stamp "[YYYY-mm-dd HH:MM:SS.mmm] ", written to `stream`, and the
 * tag of a level ("[error] " and so on; "" for numbers that are no level). */
TEV_API void tev_dump_timestamp_logger(FILE* stream);
TEV_API const char* tev_priority_level_string_logger(uint32_t level);

/* Dumps `length` bytes at debug level, 16 to a line. */
TEV_API void log_hex(const void* data, size_t length);

/* Whether a message of `level` is emitted; initialises the logger on first use. */
static inline int tev_log_enabled(uint32_t level) {
  if (__atomic_load_n(&tev_log_level, __ATOMIC_RELAXED) == TEV_LEVEL_UNSET)
    __tev_init_logger_default();
  return __atomic_load_n(&tev_log_level, __ATOMIC_RELAXED) >= level;
}

/* Never called: lets every compiler check a message's format, which not all do through a pointer.
 */
static inline void tev_log_format_check(const char* format, ...) TEV_PRINTF_FORMAT(1, 2);
static inline void tev_log_format_check(const char* format, ...) {
  (void)format;
}

/* Emits one message. The arguments are evaluated only when the level is on. */
#define TEV_LOG(level, ...)                             \
  do {                                                  \
    if (tev_log_enabled(level)) {                       \
      tev_log_func_t tev_log_sink = tev_get_log_func(); \
      if (0) tev_log_format_check(__VA_ARGS__);         \
      if (tev_log_sink)                                 \
        tev_log_sink((level), __VA_ARGS__);             \
      else                                              \
        _tev_log((level), __VA_ARGS__);                 \
    }                                                   \
  } while (0)

#define TEV_LOG_ERROR(...) TEV_LOG(TEV_LEVEL_ERROR, __VA_ARGS__)
#define TEV_LOG_WARNING(...) TEV_LOG(TEV_LEVEL_WARNING, __VA_ARGS__)
#define TEV_LOG_INFO(...) TEV_LOG(TEV_LEVEL_INFO, __VA_ARGS__)
#define TEV_LOG_DEBUG(...) TEV_LOG(TEV_LEVEL_DEBUG, __VA_ARGS__)

TEV_C_END

#endif
