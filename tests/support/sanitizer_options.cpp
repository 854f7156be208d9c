// What the sanitizers are told, read by their run-time libraries at start. Without a sanitizer nobody
// calls these.

namespace {
// Sizes that no memory holds are asked for on purpose, and must come back as null.
constexpr const char* kOptions = "allocator_may_return_null=1";
}  // namespace

extern "C" {
__attribute__((visibility("default"))) const char* __asan_default_options() { return kOptions; }
__attribute__((visibility("default"))) const char* __tsan_default_options() { return kOptions; }
}
