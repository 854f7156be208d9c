// Lists the simulator's devices: a program to be given more rights than its caller has.
//   set_gid_program libvuna_common.so libvuna_telemetry.so
#include <dlfcn.h>
#include <sys/auxv.h>

#include <cstdio>

#include "sdk/vuna_abi.h"

int main(int argc, char** argv) {
  // With more rights, the loader does not look beside the telemetry library for the common one.
  if (argc != 3 || !dlopen(argv[1], RTLD_NOW)) return 2;
  void* const library = dlopen(argv[2], RTLD_NOW);
  if (!library) return 2;
  using CreateList = vuna_status(vuna_devinfo***, std::uint32_t*);
  auto* const create = reinterpret_cast<CreateList*>(dlsym(library, "vuna_devinfo_create_list"));
  vuna_devinfo** list = nullptr;
  std::uint32_t count = 0;
  const vuna_status status = create(&list, &count);
  std::printf("%s: status %u, %u devices\n", getauxval(AT_SECURE) ? "secure" : "plain", status,
              count);
  return 0;
}
