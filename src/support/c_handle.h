// Common code of C functions that wrap a class. A handle is a heap record whose only member,
// `object`, points to the object. Problems are logged at error level, under the function's name.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "src/support/malloc_ptr.h"
#include "tev/logger.h"

namespace tev::support {

// The message for a failed call: "[function] what", followed by 'of' if it is set.
struct Failure {
  const char* what;
  const char* of = nullptr;
};

inline void logFailure(const char* function, const Failure& failure) {
  if (failure.of)
    TEV_LOG_ERROR("[%s] %s '%s'", function, failure.what, failure.of);
  else
    TEV_LOG_ERROR("[%s] %s", function, failure.what);
}

// The result of `body`; nothing when it throws. The exception's own text goes to the debug level.
template <class Body>
auto tried(const char* function, Body&& body) noexcept
    -> std::optional<std::invoke_result_t<Body>> {
  try {
    return std::forward<Body>(body)();
  } catch (const std::exception& error) {
    TEV_LOG_DEBUG("[%s] %s", function, error.what());
  } catch (...) {
    TEV_LOG_DEBUG("[%s] unknown exception", function);
  }
  return std::nullopt;
}

// The result of `body`; `on_failure`, with `failure` logged, when it throws.
template <class Result, class Body>
Result attempt(const char* function, const Failure& failure, Result on_failure,
               Body&& body) noexcept {
  const std::optional<Result> result = tried(function, std::forward<Body>(body));
  if (!result) logFailure(function, failure);
  return result.value_or(on_failure);
}

// Whether `body` returned true; logs `failure` when it returned false or threw.
template <class Body>
bool succeeds(const char* function, const Failure& failure, Body&& body) noexcept {
  const bool success = tried(function, std::forward<Body>(body)).value_or(false);
  if (!success) logFailure(function, failure);
  return success;
}

// The handle's object. Null, with an error logged, when the handle or its object is missing.
// `parameter` is the handle's name.
template <class Handle>
auto objectOf(const char* function, Handle* handle, const char* parameter) noexcept
    -> decltype(handle->object) {
  if (!handle) {
    TEV_LOG_ERROR("[%s] missing %s parameter", function, parameter);
    return nullptr;
  }
  if (!handle->object) TEV_LOG_ERROR("[%s] %s is empty", function, parameter);
  return handle->object;
}

// Whether the argument is not null; logs an error when it is null.
inline bool given(const char* function, const void* argument, const char* parameter) noexcept {
  if (!argument) TEV_LOG_ERROR("[%s] missing %s parameter", function, parameter);
  return argument != nullptr;
}

inline bool linesGiven(const char* function, const char* const* lines, std::size_t count) noexcept {
  if (!given(function, lines, "lines")) return false;
  if (count == 0) TEV_LOG_ERROR("[%s] num_lines is 0", function);
  return count != 0;
}

// Copies the lines. A null line counts as an empty line.
inline std::vector<std::string> copyLines(const char* const* lines, std::size_t count) {
  std::vector<std::string> copies;
  copies.reserve(count);
  for (std::size_t i = 0; i < count; ++i) copies.emplace_back(lines[i] ? lines[i] : "");
  return copies;
}

// A handle with a new object; null on failure. The names of the types are for the log.
template <class Handle>
Handle* createHandle(const char* function, const char* handle_type,
                     const char* object_type) noexcept {
  using Object = std::remove_pointer_t<decltype(Handle::object)>;
  static_assert(std::is_trivial_v<Handle> && sizeof(Handle) == sizeof(void*));
  MallocPtr<Handle> handle(static_cast<Handle*>(std::calloc(1, sizeof(Handle))));
  if (!handle) {
    TEV_LOG_ERROR("[%s] Failed to allocate %s", function, handle_type);
    return nullptr;
  }
  auto object = tried(function, [] { return std::make_unique<Object>(); });
  if (!object) {
    TEV_LOG_ERROR("[%s] Failed to create %s instance", function, object_type);
    return nullptr;
  }
  handle->object = object->release();
  return handle.release();
}

template <class Handle>
void destroyHandle(Handle* handle) noexcept {
  if (!handle) return;
  delete handle->object;
  std::free(handle);
}

}  // namespace tev::support
