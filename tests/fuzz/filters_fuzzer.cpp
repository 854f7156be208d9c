// Input: a line with a name, a line with an expression; for the single token, the same bytes as a
// full slot.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "tests/fuzz/fuzz.h"
#include "tev/filters.h"

namespace {

using tev::test::check;

std::string lower(std::string text) {
  tev_filter_to_lower(text.data());
  return text;
}

void checkToken(const std::string& name, const char* token) {
  const std::string text(token);
  check(!text.empty() && text.size() < TEV_FILTER_TOKEN_SIZE, "tokens fit their slots");
  check(text.find_first_of("+-") == std::string::npos, "signs separate tokens");
  const bool match = tev_filter_match_single_token(name.c_str(), token);
  check(match == tev_filter_match_single_token(lower(name).c_str(), lower(text).c_str()),
        "letter case does not count");
  if (text.find_first_of("^$") == std::string::npos)
    check(match == (lower(name).find(lower(text)) != std::string::npos), "a token is a substring");
  for (const std::string& tied : {"^" + text, text + "$"})
    if (tied.size() < TEV_FILTER_TOKEN_SIZE &&
        tev_filter_match_single_token(name.c_str(), tied.c_str()))
      check(match, "an anchor only narrows");
}

// At the end of a block of its own, and without a NUL.
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
  bool passes = true;
  const auto judge = [&](const auto& tokens, std::size_t count, bool wanted) {
    check(count <= tokens.size(), "tokens fit");
    for (std::size_t i = 0; i < count; ++i) {
      checkToken(name, tokens[i]);
      passes = passes && tev_filter_match_single_token(name.c_str(), tokens[i]) == wanted;
    }
  };
  judge(incl, num_incl, true);
  judge(excl, num_excl, false);
  check(passes == tev_filter_have_match(incl.data(), num_incl, excl.data(), num_excl, name.c_str()),
        "every inclusive and no exclusive token");
  matchSlot(name, data, size);
  return 0;
}
