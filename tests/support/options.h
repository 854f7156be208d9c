#pragma once

#include <initializer_list>
#include <utility>

#include "tests/support/owned.h"
#include "tev/dict.h"

namespace tev::test {

using Options = Owned<tev_custom_options, tev_dict_delete>;

inline Options options(std::initializer_list<std::pair<const char*, const char*>> entries) {
  Options dict(tev_dict_create());
  for (const auto& [key, value] : entries) tev_dict_add(dict.get(), key, value);
  return dict;
}

}  // namespace tev::test
