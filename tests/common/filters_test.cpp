#include "tev/filters.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>

#include "tests/support/captured_log.h"

namespace {

using namespace tev::test;

struct Filter {
  std::array<tev_filter_token_t, TEV_FILTER_MAX_TOKENS> incl;
  std::array<tev_filter_token_t, TEV_FILTER_MAX_TOKENS> excl;
  std::size_t incl_count = 99;
  std::size_t excl_count = 99;

  explicit Filter(const char* expression) {
    std::memset(&incl, 'x', sizeof incl);
    std::memset(&excl, 'x', sizeof excl);
    tev_filter_get_incl_excl_tokens(expression, incl.data(), &incl_count, excl.data(), &excl_count);
  }
  Texts inclusive() const { return {incl.begin(), incl.begin() + incl_count}; }
  Texts exclusive() const { return {excl.begin(), excl.begin() + excl_count}; }
  bool passes(const char* name) {
    return tev_filter_have_match(incl.data(), incl_count, excl.data(), excl_count, name);
  }
};

TEST(Filters, ExpressionsSplitIntoTokens) {
  const struct {
    const char* expression;
    Texts inclusive, exclusive;
  } rows[] = {
      {nullptr, {}, {}},
      {"+-", {}, {}},
      {"eth-eth1", {"eth"}, {"eth1"}},
      {"--a+-b-+c+", {"c"}, {"a", "b"}},
      {" a b -^c$", {" a b "}, {"^c$"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expression ? row.expression : "null");
    const Filter filter(row.expression);
    EXPECT_EQ(filter.inclusive(), row.inclusive);
    EXPECT_EQ(filter.exclusive(), row.exclusive);
  }
}

TEST(Filters, SplittingEndsAtTheFirstTokenThatDoesNotFit) {
  const std::string longest(127, 'a');
  std::string full;
  for (int i = 0; i < 32; ++i) full += "+eth-lo";
  const Texts too_long = {"Token of size 128 is too long to keep in the tokens array"};
  const Texts too_many = {"Cannot handle more than 32 tokens"};
  const struct {
    std::string expression;
    std::size_t inclusive, exclusive;
    Texts errors;
  } rows[] = {
      {longest + "-" + longest, 1, 1, {}},
      {"a-b+" + longest + "a+c-d", 1, 1, too_long},
      {full + "+-", 32, 32, {}},
      {full + "+i-", 32, 32, too_many},
      {full + "-" + longest + "a", 32, 32, too_many},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expression);
    const CapturedLog log;
    const Filter filter(row.expression.c_str());
    EXPECT_EQ(filter.inclusive().size(), row.inclusive);
    EXPECT_EQ(filter.exclusive().size(), row.exclusive);
    EXPECT_EQ(log.lines(), linesAt(3, row.errors));
  }
  Filter filter(full.c_str());
  filter.incl_count = filter.excl_count = SIZE_MAX;  // counts beyond the arrays are cut
  EXPECT_TRUE(filter.passes("eth0"));
}

TEST(Filters, SingleTokens) {
  const struct {
    const char* token;
    Texts matching, other;
  } rows[] = {
      {"", {"", "eth0"}, {}},
      {"^^", {"", "eth0"}, {}},
      {"$", {"", "eth0"}, {}},
      {"^$$", {""}, {"eth0"}},
      {"eth", {"eth", "ETH0", "xeth0"}, {"", "et", "e-th"}},
      {"^eth", {"ETH0", "eth"}, {"xeth0", ""}},
      {"np0$", {"enp1np0", "NP0"}, {"np0x", ""}},
      {"^eth0$", {"eth0", "Eth0"}, {"eth00", "xeth0"}},
      // Only the first occurrence of the core counts.
      {"ab$", {"xab"}, {"abab"}},
      {"aa$", {"aa"}, {"aaa"}},
      // Text after a '$' and a '^' after the core fit nothing.
      {"a$b", {}, {"a$b", "ab", "a", "b"}},
      {"a^", {}, {"a", "a^"}},
      {"^$a", {}, {"", "a"}},
      // Bytes above 127 compare as they are.
      {"\xe4$", {"a\xe4"}, {"\xc4"}},
  };
  for (const auto& row : rows) {
    const auto matches = [&](const std::string& name) {
      return tev_filter_match_single_token(name.c_str(), row.token);
    };
    for (const auto& name : row.matching) EXPECT_TRUE(matches(name)) << row.token << " " << name;
    for (const auto& name : row.other) EXPECT_FALSE(matches(name)) << row.token << " " << name;
  }
}

// The slot stands at the end of a block of memory, where the sanitizer sees a look beyond it.
TEST(Filters, SlotWithoutItsNulEndsWithTheSlot) {
  const auto slot = std::make_unique<tev_filter_token_t[]>(1);
  const std::string token(sizeof slot[0], 'a');
  token.copy(slot[0], token.size());
  const CapturedLog log;
  EXPECT_TRUE(tev_filter_have_match(slot.get(), 1, slot.get(), 0, (token + "b").c_str()));
  EXPECT_EQ(log.lines(), linesAt(7, {"[tev_filter_have_match] inclusive token 'was' " + token +
                                     " found in '" + token + "b'"}));
}

TEST(Filters, NamesPassWithEveryInclusiveAndNoExclusiveToken) {
  Filter filter("eth+0+x-lo");
  const CapturedLog log;
  EXPECT_FALSE(filter.passes("eth1"));
  EXPECT_FALSE(filter.passes("eth0x lo"));
  const std::string function = "[tev_filter_have_match] ";
  EXPECT_EQ(log.lines(), linesAt(7, {function + "exclusive token 'was not' lo found in 'eth1'",
                                     function + "inclusive token 'was' eth found in 'eth1'",
                                     function + "inclusive token 'was not' 0 found in 'eth1'",
                                     function + "exclusive token 'was' lo found in 'eth0x lo'"}));
  EXPECT_TRUE(filter.passes("eth0x"));
  EXPECT_TRUE(Filter("").passes(""));
}

TEST(Filters, NullsAreNoTokensAndNoMatch) {
  Filter filter("a-b");
  tev_filter_get_incl_excl_tokens("c-d", nullptr, &filter.incl_count, filter.excl.data(),
                                  &filter.excl_count);
  EXPECT_EQ(filter.incl_count + filter.excl_count, 0u);
  tev_filter_get_incl_excl_tokens("c-d", filter.incl.data(), nullptr, nullptr, nullptr);
  EXPECT_FALSE(tev_filter_have_match(nullptr, 0, filter.excl.data(), 0, "eth0"));
  EXPECT_FALSE(tev_filter_have_match(filter.incl.data(), 0, nullptr, 0, "eth0"));
  EXPECT_FALSE(filter.passes(nullptr));
  EXPECT_FALSE(tev_filter_match_single_token(nullptr, ""));
  EXPECT_FALSE(tev_filter_match_single_token("", nullptr));
  tev_filter_to_lower(nullptr);
}

TEST(Filters, LowerCase) {
  char text[] = "ETH0-\xc4_z";
  tev_filter_to_lower(text);
  EXPECT_STREQ(text, "eth0-\xc4_z");
}

}  // namespace
