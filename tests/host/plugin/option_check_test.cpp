#include "host/plugin/option_check.h"

#include <gmock/gmock.h>

namespace tev::host {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

const OptionTable kTable = {
    {"interval-usec", TEV_OPTION_NUMBER, "microseconds", "1000", "", ""},
    {"buffer-size", TEV_OPTION_NUMBER, "", "0", "0: automatic", ""},
    {"clear", TEV_OPTION_BOOLEAN, "", "false", "true: yes", ""},
    {"level", TEV_OPTION_WORD, "", "warning", "error, warning", ""},
    {"multipath-devices", TEV_OPTION_NAMES, "", "", "", ""},
    {"path", TEV_OPTION_PATH, "", "", "", ""},
};

TEST(OptionCheck, NamesOptionValueAndWhatIsPossible) {
  const struct {
    const char* key;
    const char* value;
    const char* text;  // empty: nothing to say
    bool refused = false;
  } rows[] = {
      {"interval-usec", "250", ""},
      {"interval-usec", " +0250 ", ""},
      {"interval-usec", "1ms",
       "interval-usec=1ms: read as 1; a whole number of microseconds is needed"},
      {"interval-usec", "-1", "read as 18446744073709551615;"},
      {"buffer-size", "1M", "read as 1; a whole number is needed (0: automatic)"},
      {"buffer-size", "0x10", "read as 0;"},
      {"buffer-size", "abc", "buffer-size=abc: not a number;", true},
      {"buffer-size", "18446744073709551616", "too large, the most is 18446744073709551615;", true},
      {"clear", "True", ""},
      {"clear", "No", ""},
      {"clear", "TRUE", "clear=TRUE: read as false (true: yes)"},
      {"level", "error", ""},
      {"level", "Error", "level=Error: not one of error, warning"},
      {"multipath_devices", "a", "did you mean multipath-devices?"},
      {"CLEAR", "1", "CLEAR=1: the plug-in does not know this key; did you mean clear?"},
      {"leevl", "error", "did you mean level?"},
      {"interval-u", "1", ""},
      {"path", "no/such", ""},
  };
  for (const auto& [key, value, text, refused] : rows) {
    const auto findings = checkOptions({{key, value}}, kTable);
    ASSERT_EQ(findings.size(), *text ? 1u : 0u) << key << "=" << value;
    if (findings.empty()) continue;
    EXPECT_THAT(findings[0].text, HasSubstr(text));
    EXPECT_EQ(findings[0].refused, refused) << key << "=" << value;
  }
  EXPECT_THAT(checkOptions({{"level", "x"}, {"level", "error"}}, kTable), IsEmpty());
  EXPECT_THAT(checkOptions({{"level", "x"}}, {}), IsEmpty());
}

TEST(OptionCheck, TheNumberInUseIsTheLastOneGivenOrTheDefault) {
  EXPECT_EQ(numberOption({}, kTable, "interval-usec"), 1000u);
  EXPECT_EQ(
      numberOption({{"interval-usec", "x"}, {"interval-usec", "7us"}}, kTable, "interval-usec"),
      7u);
  EXPECT_EQ(numberOption({{"interval-usec", "x"}}, kTable, "interval-usec"), std::nullopt);
  EXPECT_EQ(numberOption({}, {}, "interval-usec"), std::nullopt);
}

}  // namespace
}  // namespace tev::host
