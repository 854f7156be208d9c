// Input: a line with a name, a line with an expression; for the single token, the same bytes as a
// full slot.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "tests/fuzz/fuzz.h"
#include "tev/filters.h"

namespace {

using tev::test::check;

// A copy at the end of its own block, without a NUL.
void matchSlot(const std::string& name, const std::uint8_t* data, std::size_t size) {
  const auto slot = std::make_unique<tev_filter_token_t[]>(1);
  std::memset(slot[0], '$', sizeof slot[0]);
  std::copy_n(data, std::min(size, sizeof slot[0]), slot[0]);
  tev_filter_have_match(slot.get(), 1, slot.get(), 1, name.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tev::test::formatMessages();
  const auto lines = tev::test::linesOf(data, size);
  const std::string name = lines[0].substr(0, lines[0].find('\0'));
  std::array<tev_filter_token_t, TEV_FILTER_MAX_TOKENS> incl, excl;
  std::size_t num_incl = 0;
  std::size_t num_excl = 0;
  tev_filter_get_incl_excl_tokens(lines.size() > 1 ? lines[1].c_str() : "", incl.data(), &num_incl,
                                  excl.data(), &num_excl);
  for (const auto& [tokens, count] : {std::pair(&incl, num_incl), {&excl, num_excl}}) {
    check(count <= tokens->size(), "tokens fit");
    for (std::size_t i = 0; i < count; ++i) {
      const std::string token((*tokens)[i]);
      check(!token.empty() && token.size() < TEV_FILTER_TOKEN_SIZE, "tokens fit their slots");
      check(token.find_first_of("+-") == std::string::npos, "signs separate tokens");
      tev_filter_match_single_token(name.c_str(), token.c_str());
    }
  }
  tev_filter_have_match(incl.data(), num_incl, excl.data(), num_excl, name.c_str());
  matchSlot(name, data, size);
  return 0;
}
