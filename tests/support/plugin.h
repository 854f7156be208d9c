// The built library as a host uses it: opened by path, and used only through its exported names.
#pragma once

#include <dlfcn.h>

#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/host.h"
#include "tests/support/options.h"
#include "tests/support/temp_tree.h"

namespace tev::test {

class Plugin {
 public:
  explicit Plugin(const char* path = PLUGIN) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    if (!handle_) throw std::runtime_error(dlerror());
  }
  ~Plugin() { dlclose(handle_); }
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  template <class Symbol>
  Symbol* symbol(const char* name) const {
    void* const address = dlsym(handle_, name);
    if (!address) throw std::runtime_error(dlerror());
    return reinterpret_cast<Symbol*>(address);
  }

  // Hands this module's logger to the plug-in, so that a CapturedLog sees what it says.
  void shareLogger() const {
    tev_logger_ctx_t* const ctx = tev_get_logger_ctx();
    symbol<decltype(_tev_register_logger)>("_tev_register_logger")(ctx);
    tev_destroy_logger_ctx(ctx);
  }

  tev_event_provider_t* construct(const tev_custom_options* options) const {
    return symbol<decltype(construct_event_provider)>("construct_event_provider")(options);
  }

 private:
  void* handle_;
};

// A provider of the library's, for as long as this lives.
class HostedProvider : public Host {
 public:
  HostedProvider(const Plugin& plugin, const tev_custom_options* options)
      : Host(plugin.construct(options)) {}
  ~HostedProvider() {
    if (!get()) return;
    get()->stop(get());
    get()->finalize(get());
  }

  explicit operator bool() const { return get() != nullptr; }
};

}  // namespace tev::test
