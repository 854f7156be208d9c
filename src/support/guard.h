// The one place where an exception becomes a result: no exported function lets one out.
#pragma once

#include <exception>
#include <utility>

#include "tev/logger.h"

namespace tev::support {

// Runs `body` and returns its result; when it throws, logs the reason under `name` at error level,
// after the component's `tag`, and returns `on_failure`.
template <class Result, class Body>
Result guarded(const char* name, Result on_failure, Body&& body, const char* tag = "") noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (const std::exception& error) {
    TEV_LOG_ERROR("%s[%s] failed: %s", tag, name, error.what());
  } catch (...) {
    TEV_LOG_ERROR("%s[%s] failed: unknown exception", tag, name);
  }
  return on_failure;
}

}  // namespace tev::support
