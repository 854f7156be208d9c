/* The logger.
 *
 * Every module that is loaded into a process has its own logger state. A host shares its state with
 * a plug-in: it passes the result of tev_get_logger_ctx() to the plug-in's _tev_register_logger().
 *
 * The logger is silent until TEV_API_LOG_LEVEL (or API_LOG_LEVEL) is set in the environment or a
 * logger is initialised by one of the calls below. Any thread may log. The calls that configure the
 * logger are for start-up, when no other thread logs. The logger itself does not allocate memory to
 * log.
 */
#ifndef TEV_LOGGER_H
#define TEV_LOGGER_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "tev/export.h"

TEV_C_BEGIN

/* Message levels: syslog priorities. A message is emitted when its level is at most the
 * threshold. */
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

/* A host's log function. `format` does not end with a newline. The function is called on the thread
 * that logs. This may be the plug-in's sampling thread, and the provider then waits for the
 * function. The function must be thread-safe and must not block for long. It must not call the
 * provider, and must not take a lock that is held during a call of the provider. */
typedef void (*tev_log_func_t)(uint32_t level, const char* format, ...);

/* One module's logger state, as it is passed to another module. */
typedef struct tev_logger_ctx_t {
  uint32_t kind;           /* TEV_LOGGER_... */
  FILE* stream;            /* for TEV_LOGGER_STDERR and TEV_LOGGER_FILE */
  tev_log_func_t log_func; /* for TEV_LOGGER_FUNCTION */
  uint32_t level;          /* threshold */
  pthread_mutex_t* mutex;  /* serialises lines; null: lines are not serialised */
} tev_logger_ctx_t;

/* A program that is linked with the library must use the library's own variables. Without "weak", a
 * compiler may give the program its own copies, which the library does not use. A program that is
 * not position independent gets copies even with "weak", so it must not use these variables. */
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

/* A copy of this module's logger state, to be passed to another module and then released with
 * tev_destroy_logger_ctx(); null when memory is short. The stream and the mutex still belong to
 * this module. */
TEV_API tev_logger_ctx_t* tev_get_logger_ctx(void);
TEV_API void tev_destroy_logger_ctx(tev_logger_ctx_t* ctx);

/* Adopts another module's logger. Returns 0 for a null context, otherwise 1. A context equal to the
 * current state changes nothing, not even is_registered. */
TEV_API int _tev_register_logger(const tev_logger_ctx_t* ctx);

/* Select the backend. Each returns 1, or 0 when another module's logger has been registered.
 * tev_init_file_logger() truncates `path`; when it cannot be opened, standard error is used and the
 * result is 0. */
TEV_API int tev_init_stderr_logger(uint32_t level);
TEV_API int tev_init_syslog_logger(const char* ident, uint32_t level);
TEV_API int tev_init_file_logger(const char* path, uint32_t level);

/* Closes the backend and returns to standard error with the same threshold. A log function that was
 * set remains in use. */
TEV_API void tev_close_logger(void);

/* The built-in writer: one line with time stamp and level tag (syslog: only the message). */
TEV_API void _tev_log(uint32_t level, const char* format, ...) TEV_PRINTF_FORMAT(2, 3);

/* Reads the threshold from TEV_API_LOG_LEVEL (0 when unset or not a number) and logs to standard
 * error from now on. */
TEV_API void __tev_init_logger_default(void);

/* Makes the logger serialise its lines, unless TEV_LOG_THREAD_SAFE switches this off. Returns 1
 * when the lines are serialised. */
TEV_API int _tev_init_logger_mutex(void);

/* Runs at process exit. */
TEV_API void tev_logger_cleanup_mutex_exit_handler(void);

/* Looks up `name` with and without the prefix "TEV_". The prefixed variable takes precedence.
 * Returns a pointer into the environment, or null. */
TEV_API const char* tev_getenv(const char* name);

/* The parts of a line. The first function writes the time stamp "[YYYY-mm-dd HH:MM:SS.mmm] " to
 * `stream`, unless it is null. The second returns the tag of a level ("[error] " and so on; "" for
 * other numbers). */
TEV_API void tev_dump_timestamp_logger(FILE* stream);
TEV_API const char* tev_priority_level_string_logger(uint32_t level);

/* Dumps `length` bytes at debug level, 16 to a line. */
TEV_API void log_hex(const void* data, size_t length);

/* Whether a message of `level` is emitted; initialises the logger on first use. */
TEV_API int _tev_log_enabled(uint32_t level);

#ifdef TEV_COMMON_LIBRARY
static inline int tev_log_enabled(uint32_t level) {
  if (__atomic_load_n(&tev_log_level, __ATOMIC_RELAXED) == TEV_LEVEL_UNSET)
    __tev_init_logger_default();
  return __atomic_load_n(&tev_log_level, __ATOMIC_RELAXED) >= level;
}
#else
/* A function call, so that a program does not refer to the library's variables unintentionally. */
static inline int tev_log_enabled(uint32_t level) {
  return _tev_log_enabled(level);
}
#endif

/* This function is never called. With it, every compiler checks the format of a message. Some
 * compilers do not check calls through a pointer. */
static inline void tev_log_format_check(const char* format, ...) TEV_PRINTF_FORMAT(1, 2);
static inline void tev_log_format_check(const char* format, ...) {
  (void)format;
}

/* Emits one message. The arguments are evaluated only when the level is enabled. */
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
