// The simulator as its users have it: a library, opened by path, with the environment's scenario.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "simulator/functions.h"
#include "simulator/report.h"
#include "tests/support/environment.h"
#include "tests/support/plugin.h"
#include "tests/support/temp_tree.h"

namespace simulator_test {
namespace {

namespace fs = std::filesystem;

TEST(SimulatorLibrary, TellsWhyItHasNoDevicesAndLeavesTheProcess) {
  const tev::test::TempTree tree;
  tev::test::Environment environment;
  environment.set("VUNA_SIMULATOR_SCENARIO", tree.path("none"));
  environment.set("VUNA_SIMULATOR_TRACE", tree.path("trace"));
  {
    const tev::test::Plugin library(SIMULATOR);
    auto* const create =
        library.symbol<decltype(vuna_devinfo_create_list)>("vuna_devinfo_create_list");
    auto* const name = library.symbol<decltype(vuna_error_get_name)>("vuna_error_get_name");
    auto* const report = library.symbol<decltype(vuna_simulator_report)>("vuna_simulator_report");
    vuna_devinfo** list = nullptr;
    std::uint32_t count = 0;
    EXPECT_THAT(name(create(&list, &count)), testing::StartsWith("scenario " + tree.path("none")));
    char text[16];
    EXPECT_GT(report(text, sizeof text), sizeof text);
    EXPECT_STREQ(text, "lists_created 0");
  }
  EXPECT_EQ(dlopen(SIMULATOR, RTLD_NOW | RTLD_NOLOAD), nullptr);
  EXPECT_THAT(tev::test::readAll(tree.path("trace")), testing::EndsWith("\nUNLOAD - - 0\n"));
}

std::string outputOf(const std::string& program) {
  const std::string common = fs::path(SIMULATOR).replace_filename("libvuna_common.so");
  FILE* const pipe = popen((program + " " + common + " " + SIMULATOR).c_str(), "r");
  std::string text(100, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), pipe));
  return pclose(pipe) == 0 ? text : "failed";
}

TEST(SimulatorLibrary, DoesNotUseTheEnvironmentOfACallerWithFewerRights) {
  tev::test::TempTree tree;
  tev::test::Environment environment;
  environment.set("VUNA_SIMULATOR_SCENARIO", tree.write("none.json", R"({"devices": []})"));
  environment.set("VUNA_SIMULATOR_TRACE", tree.path("trace"));
  const std::string program = tree.path("program");
  fs::copy_file(SET_GID_PROGRAM, program);
  EXPECT_EQ(outputOf(program), "plain: status 0, 0 devices\n");
  EXPECT_TRUE(fs::remove(tree.path("trace")));

  constexpr gid_t kOther = 65534;
  if (chown(program.c_str(), static_cast<uid_t>(-1), kOther) != 0)
    GTEST_SKIP() << "only root can give a program the rights of another group";
  ASSERT_EQ(chmod(program.c_str(), S_ISGID | 0755), 0);
  const std::string output = outputOf(program);
  if (output.starts_with("plain")) GTEST_SKIP() << "programs get no rights of their files here";
  EXPECT_EQ(output, "secure: status 0, 3 devices\n");
  EXPECT_FALSE(fs::exists(tree.path("trace")));
}

}  // namespace
}  // namespace simulator_test
