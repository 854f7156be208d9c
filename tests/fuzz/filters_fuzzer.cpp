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

struct Filter {
  std::array<tev_filter_token_t, TEV_FILTER_MAX_TOKENS> incl, excl;
  std::size_t incl_count = 0, excl_count = 0;

  explicit Filter(const std::string& expression) {
    tev_filter_get_incl_excl_tokens(expression.c_str(), incl.data(), &incl_count, excl.data(),
                                    &excl_count);
  }
};

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
  Filter filter(lines.size() > 1 ? lines[1] : "");
  check(filter.incl_count <= TEV_FILTER_MAX_TOKENS, "inclusive tokens fit");
  check(filter.excl_count <= TEV_FILTER_MAX_TOKENS, "exclusive tokens fit");

  bool passes = true;
  for (std::size_t i = 0; i < filter.incl_count; ++i) {
    checkToken(name, filter.incl[i]);
    passes = passes && tev_filter_match_single_token(name.c_str(), filter.incl[i]);
  }
  for (std::size_t i = 0; i < filter.excl_count; ++i) {
    checkToken(name, filter.excl[i]);
    passes = passes && !tev_filter_match_single_token(name.c_str(), filter.excl[i]);
  }
  check(passes == tev_filter_have_match(filter.incl.data(), filter.incl_count, filter.excl.data(),
                                        filter.excl_count, name.c_str()),
        "every inclusive and no exclusive token");
  matchSlot(name, data, size);
  return 0;
}
