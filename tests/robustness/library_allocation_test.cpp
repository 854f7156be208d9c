// Fails each allocation of an operation in turn. What the operation then returns must say so,
// nothing may be lost, and what was there before must be as it was.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/robustness/failing_allocator.h"
#include "tests/support/environment.h"
#include "tests/support/temp_tree.h"
#include "tev/counter_set.h"
#include "tev/device_utils.h"
#include "tev/dict.h"
#include "tev/field_set.h"
#include "tev/logger.h"
#include "tev/schema.h"
#include "tev/sources.h"

namespace tev::test {
namespace {

// `operation` returns whether it succeeded, and cleans up behind itself either way.
void failEachAllocation(const char* name, const std::function<bool()>& operation) {
  ASSERT_TRUE(operation()) << name;  // what is allocated once for the whole process is there now
  constexpr long kMany = 2000;
  for (long n = 0; n < kMany; ++n) {
    const long before = blocksInUse();
    failAllocation(n);
    const bool succeeded = operation();
    const bool has_failed = endFailing();
    ASSERT_EQ(succeeded, !has_failed) << name << ", allocation " << n;
    ASSERT_EQ(blocksInUse(), before) << name << ", allocation " << n;
    if (!has_failed) {
      ASSERT_TRUE(n > 0 || SANITIZED) << name << " allocates nothing";
      return;
    }
  }
  FAIL() << name << " never succeeds";
}

class AllocationFailure : public testing::Test {
 protected:
  AllocationFailure() : level_before_(tev_set_log_level(0)) {}
  ~AllocationFailure() override { tev_set_log_level(level_before_); }

 private:
  std::uint32_t level_before_;
};

const tev_type_field_info_t kFields[] = {{"a", "first", "int", 0, 1}, {"b", nullptr, "char", 0, 3}};

TEST_F(AllocationFailure, Dictionary) {
  failEachAllocation("create, add and copy", [] {
    tev_custom_options* const dict = tev_dict_create();
    bool done = dict != nullptr;
    std::size_t added = 0;
    for (const char* key : {"a", "b", "c", "d", "e", "a"}) {
      done = done && tev_dict_add(dict, key, key);
      if (done) ++added;
    }
    std::size_t entries = 0;
    tev_dict_enum(
        dict,
        [](const char* key, const char* value, void* user) {
          ++*static_cast<std::size_t*>(user);
          return *key == *value;
        },
        &entries);
    EXPECT_EQ(entries, added < 5 ? added : 5);
    tev_custom_options* const copy = done ? tev_dict_dup(dict) : nullptr;
    done = copy != nullptr;
    tev_dict_delete(copy);
    tev_dict_delete(dict);
    return done;
  });
}

TEST_F(AllocationFailure, TypeSystem) {
  failEachAllocation("create", [] {
    tev_type_system_t* const types = tev_create_type_system();
    const bool done = types != nullptr;
    tev_destroy_type_system(types);
    return done;
  });
}

TEST_F(AllocationFailure, Schema) {
  tev_type_system_t* const types = tev_create_type_system();
  failEachAllocation("add a schema", [=] {
    if (!tev_type_system_add_schema(types, "name", 1, nullptr)) {
      EXPECT_EQ(types->num_schemas, 0);
      return false;
    }
    return tev_type_system_remove_last_schema(types) == 0;
  });
  failEachAllocation("add a type", [] {
    static tev_type_system_t* const outer = tev_create_type_system();
    if (!tev_type_system_add_schema(outer, nullptr, 1, nullptr)) return false;
    tev_schema_t* const schema = outer->schemas[0];
    const int status = tev_schema_add_type(schema, "t", kFields, 2, nullptr);
    EXPECT_EQ(status, schema->num_types == 1 ? TEV_SCHEMA_OK : TEV_SCHEMA_FAILED);
    tev_type_system_remove_last_schema(outer);
    return status == TEV_SCHEMA_OK;
  });

  tev_schema_t* const schema = tev_type_system_add_schema(types, "name", 1, nullptr);
  ASSERT_EQ(tev_schema_add_type(schema, "t", kFields, 2, nullptr), TEV_SCHEMA_OK);
  const char* key = "a";
  ASSERT_EQ(tev_schema_set_field_indexes(schema, 0, &key, 1), TEV_SCHEMA_OK);
  failEachAllocation("compute the id", [=] {
    tev_reset_schema_id(&schema->id);
    tev_type_system_update_md5_hashes(types);
    return !tev_schema_id_is_unset(&schema->id);
  });
  failEachAllocation("list the key fields", [=] {
    std::size_t count = 0;
    const char** const names = tev_schema_get_indexed_fields(schema, 0, &count);
    EXPECT_EQ(count, names ? 1u : 0u);
    std::free(names);
    return names != nullptr;
  });
  failEachAllocation("text of an id", [=] {
    char* const text = tev_schema_id_string(&schema->id);
    std::free(text);
    return text != nullptr;
  });
  tev_destroy_type_system(types);
}

TEST_F(AllocationFailure, Sources) {
  Environment environment;
  environment.set("TEV_SOURCE_ID", "an identity that is too long for a short string");
  TempTree tree;
  const std::string list = tree.write("list", "alpha\nbeta\n");
  using Create = std::function<tev_source_array_t*()>;
  const std::map<std::string, Create> creators = {
      {"default", [] { return tev_create_default_source_array("tag"); }},
      {"range", [] { return tev_create_source_array_from_string("2-4"); }},
      {"prefix", [] { return tev_create_source_array_from_string("node[2-4]"); }},
      {"file", [&list] { return tev_create_source_array_from_input(list.c_str()); }},
  };
  for (const auto& [name, create] : creators)
    failEachAllocation(name.c_str(), [&create = create] {
      tev_source_array_t* const array = create();
      tev_destroy_source_array(array);
      return array != nullptr;
    });
  tev_source_t* const source = tev_create_source("id", "tag");
  failEachAllocation("text of a source", [=] {
    char* const text = tev_source_string(source);
    std::free(text);
    return text != nullptr;
  });
  tev_destroy_source(source);
}

TEST_F(AllocationFailure, Sets) {
  TempTree tree;
  const char* const lines[] = {"[type]", "a pattern of some length = an alias with it"};
  const std::string file = tree.write("set", std::string(lines[0]) + "\n" + lines[1] + "\n");
  tev_provider_field_set_t* const fields = tev_provider_field_set_create();
  tev_provider_counter_set_t* const counters = tev_provider_counter_set_create();
  ASSERT_TRUE(tev_provider_field_set_init_from_file(fields, file.c_str()));
  ASSERT_TRUE(tev_provider_counter_set_init_from_file(counters, file.c_str()));
  const std::map<std::string, std::function<bool()>> loads = {
      {"field set, lines",
       [=] { return tev_provider_field_set_init_from_lines(fields, lines, 2); }},
      {"field set, file",
       [&] { return tev_provider_field_set_init_from_file(fields, file.c_str()); }},
      {"counter set, lines",
       [=] { return tev_provider_counter_set_init_from_lines(counters, lines, 2); }},
      {"counter set, file",
       [&] { return tev_provider_counter_set_init_from_file(counters, file.c_str()); }},
  };
  for (const auto& [name, load] : loads)
    failEachAllocation(name.c_str(), [&load = load, fields, counters] {
      const bool loaded = load();
      const AllocationsSucceed spared;
      EXPECT_FALSE(tev_provider_field_set_should_include_field(fields, "type", "b"))
          << "half a set";
      EXPECT_TRUE(tev_provider_field_set_is_type_of_interest(fields, "type"));
      EXPECT_TRUE(tev_provider_counter_set_should_include_counter(counters, "[type]"));
      return loaded;
    });
  failEachAllocation("alias", [=] {
    char* const alias =
        tev_provider_counter_set_get_counter_alias(counters, "a pattern of some length");
    std::free(alias);
    return alias != nullptr;
  });
  failEachAllocation("create", [] {
    auto* const created = tev_provider_counter_set_create();
    auto* const other = tev_provider_field_set_create();
    tev_provider_counter_set_destroy(created);
    if (other) tev_provider_field_set_destroy(other);
    return created && other;
  });
  tev_provider_field_set_destroy(fields);
  tev_provider_counter_set_destroy(counters);
}

TEST_F(AllocationFailure, LoggerContextAndStringTemplate) {
  failEachAllocation("logger context", [] {
    tev_logger_ctx_t* const ctx = tev_get_logger_ctx();
    tev_destroy_logger_ctx(ctx);
    return ctx != nullptr;
  });

  if (SANITIZED) return;  // the C library's own allocations do not fail there
  failAllocation(0);
  char* const text = tev_expand_string_template("%s", "text");
  endFailing();
  EXPECT_EQ(text, nullptr);
}

}  // namespace
}  // namespace tev::test
