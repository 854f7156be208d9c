// Makes each allocation of an operation fail in turn. The operation must then return a failure,
// must not leak, and must not change what existed before.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <functional>
#include <thread>

#include "tests/robustness/failing_allocator.h"
#include "tests/support/plugin.h"
#include "tev/counter_set.h"
#include "tev/device_utils.h"
#include "tev/dict.h"
#include "tev/field_set.h"
#include "tev/logger.h"
#include "tev/schema.h"
#include "tev/sources.h"

namespace tev::test {
namespace {

// `run` returns whether it succeeded, and cleans up behind itself either way.
struct Operation {
  const char* name;
  std::function<bool()> run;
};

void failEachAllocation(const Operation& operation) {
  tev_set_log_level(0);
  SCOPED_TRACE(operation.name);
  ASSERT_TRUE(operation.run());  // what is allocated once for the whole process is there now
  constexpr long kMany = 2000;
  for (long n = 0; n < kMany; ++n) {
    const long before = blocksInUse();
    failAllocation(n);
    const bool succeeded = operation.run();
    const bool has_failed = endFailing();
    ASSERT_EQ(succeeded, !has_failed) << "allocation " << n;
    ASSERT_EQ(blocksInUse(), before) << "allocation " << n;
    if (!has_failed) {
      ASSERT_TRUE(n > 0 || SANITIZED) << "allocates nothing";
      return;
    }
  }
  FAIL() << "never succeeds";
}

// Whether the object exists; it is released.
template <auto kDestroy, class Object>
bool made(Object* object) {
  return Owned<Object, kDestroy>(object) != nullptr;
}

TEST(AllocationFailure, OfTextsAndSources) {
  Environment environment;
  environment.set("TEV_SOURCE_ID", "an identity that is too long for a short string");
  TempTree tree;
  const std::string list = tree.write("list", "alpha\nbeta\n");
  constexpr auto kDestroy = tev_destroy_source_array;
  const Operation operations[] = {
      {"dictionary",
       [] {
         const Owned<tev_custom_options, tev_dict_delete> dict(tev_dict_create());
         bool done = dict != nullptr;
         for (const char* key : {"a", "b", "c", "d", "e"}) {
           done = done && tev_dict_add(dict.get(), key, key);
           EXPECT_EQ(dict && tev_dict_get(dict.get(), key), done) << key;
         }
         return done && made<tev_dict_delete>(tev_dict_dup(dict.get()));
       }},
      {"default source", [] { return made<kDestroy>(tev_create_default_source_array("tag")); }},
      {"range", [] { return made<kDestroy>(tev_create_source_array_from_string("node[2-4]")); }},
      {"file", [&] { return made<kDestroy>(tev_create_source_array_from_input(list.c_str())); }},
      {"logger context", [] { return made<tev_destroy_logger_ctx>(tev_get_logger_ctx()); }},
  };
  for (const auto& operation : operations) failEachAllocation(operation);
}

// The first error line of a library, and one on a new thread, without any memory. This needs the
// built library, because the loader may allocate its thread-local objects.
[[noreturn]] void logWithoutMemory(const char* level) {
  clearenv();
  if (level) setenv("TEV_API_LOG_LEVEL", level, 1);
  const Plugin plugin;
  const auto find =
      plugin.symbol<decltype(tev_schema_set_field_indexes)>("tev_schema_set_field_indexes");
  const auto log = [find] {
    failAllocations();
    find(nullptr, 0, nullptr, 0);
    endFailing();
  };
  log();
  std::thread(log).join();
  std::_Exit(0);
}

TEST(AllocationFailure, OfTheFirstMessages) {
  const auto ends = testing::ExitedWithCode(0);
  EXPECT_EXIT(logWithoutMemory(nullptr), ends, "^$");
  const std::string line = R"(\[[-0-9 :.]+\] \[error\] \[tev_schema_set_field_indexes\] .*NULL!)";
  EXPECT_EXIT(logWithoutMemory("3"), ends, "^" + line + "\n" + line + "\n$");
}

// The file must not be stored as one text per line.
TEST(MemoryInUse, ForAFileOfEmptyLines) {
  TempTree tree;
  const std::string file = tree.write("empty", std::string(16 << 20, '\n'));
  const auto peak = [] {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;  // MiB
  };
  const long before = peak();
  const Owned<tev_source_array_t, tev_destroy_source_array> sources(
      tev_create_source_array_from_input(file.c_str()));
  EXPECT_TRUE(sources && sources->count == 0);
  EXPECT_FALSE(ProviderCounterSet().loadFromFile(file, {}));
  EXPECT_FALSE(ProviderFieldSet().loadFromFile(file));
  EXPECT_LT(peak() - before, SANITIZED ? 400 : 100);  // sanitizers keep freed memory for a while
}

TEST(AllocationFailure, OfASchema) {
  const Owned<tev_type_system_t, tev_destroy_type_system> types(tev_create_type_system());
  const tev_type_field_info_t fields[] = {{"a", "first", "int", 0, 1},
                                          {"b", nullptr, "char", 0, 3}};
  const Operation operations[] = {
      {"type system", [] { return made<tev_destroy_type_system>(tev_create_type_system()); }},
      {"schema, type, id and text", [&] {
         tev_schema_t* const schema = tev_type_system_add_schema(types.get(), "name", 1, nullptr);
         EXPECT_EQ(types->num_schemas, schema ? 1 : 0);
         if (!schema) return false;
         const int status = tev_schema_add_type(schema, "t", fields, 2, nullptr);
         EXPECT_EQ(status, schema->num_types == 1 ? TEV_SCHEMA_OK : TEV_SCHEMA_FAILED);
         tev_type_system_update_md5_hashes(types.get());
         const bool done = status == TEV_SCHEMA_OK && !tev_schema_id_is_unset(&schema->id) &&
                           made<std::free>(tev_schema_json_string(schema));
         tev_type_system_remove_last_schema(types.get());
         return done;
       }}};
  for (const auto& operation : operations) failEachAllocation(operation);
}

TEST(AllocationFailure, OfASetLeavesTheOneBefore) {
  TempTree tree;
  const std::vector<std::string> lines = {"[type]", "a pattern of some length = an alias with it"};
  const std::string file = tree.write("set", lines[0] + "\n" + lines[1] + "\n");
  const Owned<tev_provider_field_set_t, tev_provider_field_set_destroy> field_set(
      tev_provider_field_set_create());
  const Owned<tev_provider_counter_set_t, tev_provider_counter_set_destroy> counter_set(
      tev_provider_counter_set_create());
  auto* const fields = field_set.get();
  auto* const counters = counter_set.get();
  ASSERT_TRUE(tev_provider_field_set_init_from_file(fields, file.c_str()));
  ASSERT_TRUE(tev_provider_counter_set_init_from_file(counters, file.c_str()));
  const auto unharmed = [=](bool loaded) {
    const AllocationsSucceed spared;
    EXPECT_FALSE(tev_provider_field_set_should_include_field(fields, "type", "b")) << "half a set";
    EXPECT_TRUE(tev_provider_field_set_is_type_of_interest(fields, "type"));
    EXPECT_TRUE(tev_provider_counter_set_should_include_counter(counters, "[type]"));
    return loaded;
  };
  const Operation operations[] = {
      {"field set",
       [&] { return unharmed(tev_provider_field_set_init_from_file(fields, file.c_str())); }},
      {"counter set",
       [&] { return unharmed(tev_provider_counter_set_init_from_file(counters, file.c_str())); }},
      {"create a counter set",
       [] { return made<tev_provider_counter_set_destroy>(tev_provider_counter_set_create()); }},
  };
  for (const auto& operation : operations) failEachAllocation(operation);
}

}  // namespace
}  // namespace tev::test
