// Configuration files on the command line.
#include <gmock/gmock.h>

#include "host/cli/command_line.h"
#include "host/support/errors.h"
#include "tests/host/process.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::ThrowsMessage;

class ConfigFile : public testing::Test {
 protected:
  CommandLine parsed(const std::string& words, const std::string& text) {
    std::vector<std::string> all = test::wordsOf(words);
    all.insert(all.begin() + 1, "--config=" + tree_.write("a.conf", text));
    std::vector<const char*> argv{"tev-host"};
    for (const std::string& word : all) argv.push_back(word.c_str());
    return parseCommandLine(static_cast<int>(argv.size()), argv.data(), companionsOf("/opt/bin"));
  }

  test::TempTree tree_;
};

TEST_F(ConfigFile, IsReadBelowTheCommandLine) {
  const std::string text =
      "# a comment\r\n"
      "  format = csv\n"
      "simulate = true  # behind a value\n"
      "option = [\"multipath-devices=a,b\", 'x=\"#\"']\n"
      "option = y=1\n"
      "filter = [a, b,]\n"
      "strict=true\n"
      "capture = \"a \\\"b\\\\\"\n"
      "keep = 3\nrotate = 1h";
  const RunOptions run = parsed("run --format jsonl --filter c --option y=2", text).run;
  EXPECT_EQ(run.format->name, "jsonl");
  EXPECT_TRUE(run.plugin.simulated && run.strict);
  EXPECT_THAT(run.selection.filters, ElementsAre("c"));
  EXPECT_THAT(run.plugin.options, testing::IsSupersetOf({Pair("multipath-devices", "a,b"),
                                                         Pair("x", "\"#\""), Pair("y", "2")}));
  EXPECT_THAT(run.plugin.options, testing::Not(testing::Contains(Pair("y", "1"))));
  EXPECT_EQ(run.capture->path, "a \"b\\");
  EXPECT_EQ(parsed("run", text).run.selection.filters.size(), 2U);

  const CommandLine check = parsed("check", text);  // uses what it has, too
  EXPECT_TRUE(check.run.plugin.simulated);
  EXPECT_FALSE(check.check.json);
  EXPECT_EQ(check.run.selection.filters.size(), 2U);  // to be checked
}

TEST_F(ConfigFile, IsRefusedWithLineAndReason) {
  const std::pair<const char*, const char*> rows[] = {
      {"x\n", "a.conf:1: KEY = VALUE is needed"},
      {"[run]\n", "a.conf:1: the file has no sections"},
      {"\nformat = xml\n", "a.conf:2: --format xml: table"},
      {"#\nformt = csv\n", "a.conf:2: unknown key formt"},
      {"config = a\n", "unknown key config"},
      {"update =\n", "a.conf:1: update: a value is needed"},
      {"update = \"\"\n", "update: a value is needed"},
      {"update = 1 2\n", "needs quotes"},
      {"update = 1\nupdate = 2\n", "a.conf:2: update is given twice"},
      {"update = [1, 2]\n", "a single value is needed"},
      {"filter = [a\n", "the list has no end"},
      {"output = \"a\n", "no closing quote"},
      {"strict = 1\n", "strict = 1: true or false is needed"},
      {"option = a\n", "a.conf:1: --option a: KEY=VALUE is needed"},
      {"simulate = no/such\n", "a.conf:1: --simulate no/such"},
      {"log-level = loud\n", "a.conf:1: --log-level loud"},
      {"keep = 3\n", "a.conf: --keep needs --capture"},
  };
  for (const auto& row : rows)
    for (const char* const command : {"run", "check"})
      EXPECT_THAT([&] { parsed(command, row.first); },
                  ThrowsMessage<UsageError>(HasSubstr(row.second)))
          << row.first;
  EXPECT_THAT([&] { parsed("run --config=no/such", ""); },
              ThrowsMessage<UsageError>(HasSubstr("no/such: No such file")));
  EXPECT_THAT([&] { parsed("run --config=/", ""); }, ThrowsMessage<UsageError>(HasSubstr("/: ")));
}

}  // namespace
}  // namespace tev::host
