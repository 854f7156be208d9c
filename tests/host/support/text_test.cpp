#include "host/support/text.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "host/support/short_number.h"

namespace tev::host {
namespace {

TEST(ShortNumber, FitsFiveCharacters) {
  const std::pair<double, std::string> rows[] = {
      {7, "7"},          {99999, "99999"},    {0.25, "0.25"},    {0.996, "1.0"},
      {9.96, "10.0"},    {99.96, "100"},      {1234.5, "1234"},  {99999.4, "99999"},
      {99999.5, "100k"}, {999499, "999k"},    {999500, "1.00M"}, {12345678, "12.3M"},
      {1.8e19, "18.0E"}, {-2500000, "-2.50M"}};
  for (const auto& [number, text] : rows) EXPECT_EQ(shortNumber(number), text);
}

TEST(Text, TellsUtf8FromOtherBytes) {
  const char* const characters[] = {"a", "\xc2\x80", "\xe2\x82\xac", "\xf4\x8f\xbf\xbf"};
  for (const std::string character : characters) EXPECT_EQ(utf8Length(character), character.size());
  // An empty text, a continuation byte, truncated sequences, sequences without continuation
  // bytes, overlong forms, a surrogate, a code point beyond the last, and an invalid first byte.
  for (const char* const bytes : {"", "\x80", "\xe2\x82", "\xc2\x41", "\xc1\xbf", "\xe0\x9f\xbf",
                                  "\xf0\x8f\xbf\xbf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xff"})
    EXPECT_EQ(utf8Length(bytes), 0u) << testing::PrintToString(bytes);
  EXPECT_EQ(asPrintable("a\x1b[2J\xc2\x9b\n\xc3\xa4\xff"), "a\\x1b[2J\\xc2\\x9b\\x0a\xc3\xa4\\xff");
  EXPECT_EQ(asPrintable("\u009f\u00a0\u061c\u200a\u200b\u200f\u202e\u2069\u2060\ufeff\U0001f600"),
            "\\xc2\\x9f\u00a0\\xd8\\x9c\u200a\\xe2\\x80\\x8b\\xe2\\x80\\x8f\\xe2\\x80\\xae"
            "\\xe2\\x81\\xa9\\xe2\\x81\\xa0\\xef\\xbb\\xbf\U0001f600");
  EXPECT_EQ(printableLines("a\nb\r\u202e"), "a\nb\\x0d\\xe2\\x80\\xae");
  EXPECT_EQ(printableJsonLines("{\"a\"}\n\x1b\u202e\xff"), "{\"a\"}\n\\u001b\\u202e\\xff");
  EXPECT_EQ(padLeft("\xc3\xa4\xc3\xb6\xc3\xbc", 2), "\xc3\xa4~");
}

}  // namespace
}  // namespace tev::host
