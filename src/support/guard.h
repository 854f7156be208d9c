// The only place where exceptions are converted to results, so that they do not leave exported
// functions.
#pragma once

#include <exception>
#include <utility>

#include "tev/logger.h"

namespace tev::support {

// Runs `body` and returns its result. When `body` throws, logs the component's `tag`, `name` and
// the reason at error level, and returns `on_failure`.
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
