#include "collector/listed_device.h"

#include <cstdarg>
#include <cstdio>
#include <new>

#include "src/support/malloc_ptr.h"
#include "tev/logger.h"

namespace tev::events::multipath {

std::string logReason(std::uint32_t level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* printed = nullptr;
  const int length = vasprintf(&printed, format, arguments);
  va_end(arguments);
  if (length < 0) throw std::bad_alloc();
  const support::MallocPtr<char> text(printed);
  TEV_LOG(level, "[multipath] %s", text.get());
  return text.get();
}

}  // namespace tev::events::multipath
