#pragma once

#include <initializer_list>
#include <memory>
#include <utility>

#include "tev/dict.h"

namespace tev::test {

struct DeleteOptions {
  void operator()(tev_custom_options* dict) const { tev_dict_delete(dict); }
};
using Options = std::unique_ptr<tev_custom_options, DeleteOptions>;

inline Options options(std::initializer_list<std::pair<const char*, const char*>> entries) {
  Options dict(tev_dict_create());
  for (const auto& [key, value] : entries) tev_dict_add(dict.get(), key, value);
  return dict;
}

}  // namespace tev::test
