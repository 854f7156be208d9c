#include "tev/filters.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

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
  bool passes(const char* name) {
    return tev_filter_have_match(incl.data(), incl_count, excl.data(), excl_count, name);
  }
};

TEST(Filters, ExpressionsSplitUpToTheFirstTokenThatDoesNotFit) {
  const std::string longest(127, 'a');
  std::string full;
  for (int i = 0; i < 32; ++i) full += "+eth-lo";
  const Texts eths(32, "eth");
  const Texts los(32, "lo");
  const Texts too_long = {"Token of size 128 is too long to keep in the tokens array"};
  const Texts too_many = {"Cannot handle more than 32 tokens"};
  const struct {
    std::string expression;
    Texts inclusive, exclusive, errors;
  } rows[] = {
      {"--a+-b-+c+", {"c"}, {"a", "b"}, {}},
      {" a b -^c$", {" a b "}, {"^c$"}, {}},
      {longest + "-" + longest, {longest}, {longest}, {}},
      {"a-b+" + longest + "a+c-d", {"a"}, {"b"}, too_long},
      {full + "+-", eths, los, {}},
      {full + "+i-", eths, los, too_many},
      {full + "-" + longest + "a", eths, los, too_many},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expression);
    const CapturedLog log;
    const Filter filter(row.expression.c_str());
    EXPECT_EQ(Texts(filter.incl.begin(), filter.incl.begin() + filter.incl_count), row.inclusive);
    EXPECT_EQ(Texts(filter.excl.begin(), filter.excl.begin() + filter.excl_count), row.exclusive);
    EXPECT_EQ(log.lines(), linesAt(3, row.errors));
  }
  Filter filter(full.c_str());
  filter.incl_count = filter.excl_count = SIZE_MAX;  // counts beyond the arrays are cut
  EXPECT_TRUE(filter.passes("eth0"));
  std::memset(filter.incl[0], 'e', sizeof filter.incl[0]);  // a full slot has no NUL
  EXPECT_FALSE(filter.passes("eth0"));
  EXPECT_TRUE(filter.passes((std::string(sizeof filter.incl[0], 'e') + "th").c_str()));
}

TEST(Filters, SingleTokens) {
  const struct {
    const char* token;
    Texts matching, other;
  } rows[] = {
      {"", {"", "eth0"}, {}},
      {"^$$", {""}, {"eth0"}},
      {"eth", {"eth", "ETH0", "xeth0"}, {"", "et", "e-th"}},
      {"^eth0$", {"eth0", "Eth0"}, {"eth00", "xeth0"}},
      // Only the first occurrence of the core counts.
      {"ab$", {"xab"}, {"abab"}},
      {"aa$", {"aa"}, {"aaa"}},
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
  Filter filter(nullptr);
  EXPECT_EQ(filter.incl_count, 0u);
  tev_filter_get_incl_excl_tokens("c", nullptr, nullptr, nullptr, nullptr);
  EXPECT_FALSE(tev_filter_have_match(nullptr, 0, nullptr, 0, "eth0"));
  EXPECT_FALSE(filter.passes(nullptr));
  EXPECT_FALSE(tev_filter_match_single_token(nullptr, ""));
  EXPECT_FALSE(tev_filter_match_single_token("", nullptr));

  char text[] = "ETH0-\xc4_z";
  tev_filter_to_lower(text);
  EXPECT_STREQ(text, "eth0-\xc4_z");
}

}  // namespace
