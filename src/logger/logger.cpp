#include "tev/logger.h"

#include <syslog.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <utility>

// The state of this module's logger. It is written by the calls that configure it, which are for
// start-up, and by the first message, on any thread. All access is therefore atomic, with acquire
// and release order: a thread that sees the mutex sees it initialised.
uint32_t tev_log_level = TEV_LEVEL_UNSET;
uint8_t is_registered = 0;

namespace {

uint32_t kind = TEV_LOGGER_STDERR;
FILE* stream = nullptr;
tev_log_func_t log_func = nullptr;
pthread_mutex_t own_mutex;
pthread_mutex_t* mutex = nullptr;  // own_mutex, or the registering module's

template <class T>
T get(const T& state) {
  T value;
  __atomic_load(&state, &value, __ATOMIC_ACQUIRE);
  return value;
}

template <class T>
void set(T& state, T value) {
  __atomic_store(&state, &value, __ATOMIC_RELEASE);
}

// Whether this thread is inside code that must not be re-entered. The TLS model is set because the
// loader allocates objects of the default model when a thread first uses them, and ends the process
// when it cannot.
[[gnu::tls_model("initial-exec")]] thread_local bool is_initialising = false;
[[gnu::tls_model("initial-exec")]] thread_local bool is_opening_stream = false;

// Marks code that must not be re-entered, for the length of a scope.
class ReentryGuard {
 public:
  explicit ReentryGuard(bool& busy) : busy_(busy), first_(!busy) { busy_ = true; }
  ~ReentryGuard() {
    if (first_) busy_ = false;
  }
  ReentryGuard(const ReentryGuard&) = delete;
  ReentryGuard& operator=(const ReentryGuard&) = delete;
  bool first() const { return first_; }

 private:
  bool& busy_;
  bool first_;
};

// Holds the mutex that serialises lines, if there is one. The pointer is read once, because it may
// change between lock and unlock.
class LineLock {
 public:
  LineLock() : held_(get(mutex)) {
    if (held_) pthread_mutex_lock(held_);
  }
  ~LineLock() {
    if (held_) pthread_mutex_unlock(held_);
  }
  LineLock(const LineLock&) = delete;
  LineLock& operator=(const LineLock&) = delete;

 private:
  pthread_mutex_t* held_;
};

bool refuseWhenRegistered(const char* function) {
  if (!get(is_registered)) return false;
  TEV_LOG_DEBUG("[logger] [%s] registered logger cannot initialize logger", function);
  return true;
}

void initMutexOrSaySo(const char* function) {
  if (!_tev_init_logger_mutex())
    TEV_LOG_DEBUG("[logger] [%s] Initialized logger without thread-safety", function);
}

bool threadSafetyIsSwitchedOff() {
  const char* const text = tev_getenv("TEV_LOG_THREAD_SAFE");
  if (!text || !*text) return false;
  const int first = std::tolower(static_cast<unsigned char>(*text));
  return first != '1' && first != 't' && first != 'y';
}

// Under ThreadSanitizer, a handler of std::atexit() may run after the library has been unloaded.
// This destructor runs before.
struct CleanUpAtExit {
  ~CleanUpAtExit() { tev_logger_cleanup_mutex_exit_handler(); }
};

// The mutex is held while the process forks, so that no line is being written. Otherwise the child
// could get a part of a line in its copy of the stream, and could wait for locks that are never
// released there. If a line takes longer than this (because a pipe is not read), the process forks
// without the mutex.
constexpr int kLongestLineSeconds = 1;
[[gnu::tls_model("initial-exec")]] thread_local bool held_for_fork = false;

void holdForFork() {
  timespec limit{};
  clock_gettime(CLOCK_REALTIME, &limit);
  limit.tv_sec += kLongestLineSeconds;
  held_for_fork = get(mutex) == &own_mutex && pthread_mutex_timedlock(&own_mutex, &limit) == 0;
}

void releaseInParent() {
  if (std::exchange(held_for_fork, false)) pthread_mutex_unlock(&own_mutex);
}

void renewInChild() {
  held_for_fork = false;
  if (get(mutex) == &own_mutex) pthread_mutex_init(&own_mutex, nullptr);
}

// Sets `mutex` to own_mutex; false when own_mutex cannot be initialised. Several threads may call
// this at the same time with their first messages.
bool initOwnMutex() {
  static std::mutex initialisation;
  const std::scoped_lock lock(initialisation);
  if (get(mutex)) return true;
  if (pthread_mutex_init(&own_mutex, nullptr) != 0) return false;
  set(mutex, &own_mutex);
  static const CleanUpAtExit at_exit;
  static const int watched = pthread_atfork(holdForFork, releaseInParent, renewInChild);
  static_cast<void>(watched);
  return true;
}

// The stream for a line. If there is no stream, the standard-error logger is initialised. The
// initialisation may itself log, and it does nothing when another module's logger is registered.
FILE* lineStream() {
  if (FILE* const target = get(stream)) return target;
  const ReentryGuard guard(is_opening_stream);
  if (guard.first()) tev_init_stderr_logger(get(tev_log_level));
  FILE* const target = get(stream);
  return target ? target : stderr;
}

}  // namespace

uint32_t tev_set_log_level(uint32_t level) {
  return __atomic_exchange_n(&tev_log_level, level, __ATOMIC_RELAXED);
}

void tev_set_log_func(tev_log_func_t func, uint32_t level) {
  set(tev_log_level, level);
  set(log_func, func);
  set<uint32_t>(kind, TEV_LOGGER_FUNCTION);
}

int _tev_log_enabled(uint32_t level) {
  return tev_log_enabled(level);
}

tev_log_func_t tev_get_log_func(void) {
  return get(log_func);
}

tev_logger_ctx_t* tev_get_logger_ctx(void) {
  auto* ctx = static_cast<tev_logger_ctx_t*>(std::calloc(1, sizeof(tev_logger_ctx_t)));
  if (!ctx) return nullptr;
  ctx->kind = get(kind);
  if (ctx->kind == TEV_LOGGER_FUNCTION) ctx->log_func = get(log_func);
  if (ctx->kind == TEV_LOGGER_STDERR || ctx->kind == TEV_LOGGER_FILE) ctx->stream = get(stream);
  ctx->mutex = get(mutex);
  ctx->level = get(tev_log_level);
  return ctx;
}

void tev_destroy_logger_ctx(tev_logger_ctx_t* ctx) {
  std::free(ctx);
}

int _tev_register_logger(const tev_logger_ctx_t* ctx) {
  if (!ctx) return 0;
  if (ctx->kind == get(kind) && ctx->level == get(tev_log_level) && ctx->mutex == get(mutex) &&
      ctx->log_func == get(log_func) && ctx->stream == get(stream))
    return 1;  // is_registered is not set, because nothing has been adopted
  set(mutex, ctx->mutex);
  set(tev_log_level, ctx->level);
  set(kind, ctx->kind);
  set<uint8_t>(is_registered, 1);
  if (ctx->kind == TEV_LOGGER_FUNCTION) set(log_func, ctx->log_func);
  if (ctx->kind == TEV_LOGGER_STDERR || ctx->kind == TEV_LOGGER_FILE) set(stream, ctx->stream);
  return 1;
}

int tev_init_stderr_logger(uint32_t level) {
  if (refuseWhenRegistered(__func__)) return 0;
  set(tev_log_level, level);
  set<uint32_t>(kind, TEV_LOGGER_STDERR);
  set(stream, stderr);
  initMutexOrSaySo(__func__);
  return 1;
}

int tev_init_syslog_logger(const char* ident, uint32_t level) {
  if (refuseWhenRegistered(__func__)) return 0;
  openlog(ident, LOG_PID | LOG_CONS, LOG_DAEMON);
  set(tev_log_level, level);
  set<uint32_t>(kind, TEV_LOGGER_SYSLOG);
  initMutexOrSaySo(__func__);
  return 1;
}

int tev_init_file_logger(const char* path, uint32_t level) {
  if (refuseWhenRegistered(__func__)) return 0;
  tev_close_logger();
  FILE* const file = path ? std::fopen(path, "we") : nullptr;
  if (!file) {
    tev_init_stderr_logger(level);
    return 0;
  }
  set<uint32_t>(kind, TEV_LOGGER_FILE);
  set(stream, file);
  set(tev_log_level, level);
  initMutexOrSaySo(__func__);
  return 1;
}

void tev_close_logger(void) {
  if (get(is_registered)) {
    TEV_LOG_DEBUG("[logger] [%s] tried closing a registered logger, skipping closure", __func__);
    return;
  }
  if (get(kind) == TEV_LOGGER_SYSLOG) closelog();
  if (get(kind) == TEV_LOGGER_FILE) std::fclose(get(stream));
  tev_init_stderr_logger(get(tev_log_level));
}

void _tev_log(uint32_t level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  if (get(kind) == TEV_LOGGER_SYSLOG) {
    vsyslog(static_cast<int>(level), format, arguments);
  } else {
    FILE* const target = lineStream();
    const LineLock lock;
    tev_dump_timestamp_logger(target);
    std::fputs(tev_priority_level_string_logger(level), target);
    std::vfprintf(target, format, arguments);
    std::fputc('\n', target);
    std::fflush(target);
  }
  va_end(arguments);
}

void __tev_init_logger_default(void) {
  // A threshold of -1 in the environment is the number that means "not initialised yet". Without
  // the guard, messages of the initialisation would then start it again.
  const ReentryGuard guard(is_initialising);
  if (!guard.first()) return;

  int level = 0;
  const char* const text = tev_getenv("TEV_API_LOG_LEVEL");
  if (!text || std::sscanf(text, "%d", &level) != 1) level = 0;
  tev_init_stderr_logger(static_cast<uint32_t>(level));
}

int _tev_init_logger_mutex(void) {
  if (threadSafetyIsSwitchedOff()) {
    TEV_LOG_DEBUG(
        "[logger] [%s] Thread safety is disabled by environment variable "
        "TEV_LOG_THREAD_SAFE",
        __func__);
    return 0;
  }
  if (get(is_registered) || get(mutex)) return 1;
  if (initOwnMutex()) return 1;
  TEV_LOG_ERROR("[logger] [%s] failed to initialize logger mutex", __func__);
  set<pthread_mutex_t*>(mutex, nullptr);
  return 0;
}

void tev_logger_cleanup_mutex_exit_handler(void) {
  if (get(is_registered) || !get(mutex)) return;
  pthread_mutex_destroy(get(mutex));
  set<pthread_mutex_t*>(mutex, nullptr);
}

void tev_dump_timestamp_logger(FILE* target) {
  if (!target) return;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  auto milliseconds = static_cast<int>(now.tv_nsec / 1'000'000);
  if (milliseconds > 999) {
    milliseconds -= 1000;
    ++now.tv_sec;
  }
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char text[26] = "";
  std::strftime(text, sizeof text, "[%Y-%m-%d %H:%M:%S", &local);
  std::fprintf(target, "%s.%03d] ", text, milliseconds);
}

const char* tev_priority_level_string_logger(uint32_t level) {
  switch (level) {
    case TEV_LEVEL_ERROR:
      return "[error] ";
    case TEV_LEVEL_WARNING:
      return "[warning] ";
    case TEV_LEVEL_INFO:
      return "[info] ";
    case TEV_LEVEL_DEBUG:
      return "[debug] ";
    default:
      return "";
  }
}
