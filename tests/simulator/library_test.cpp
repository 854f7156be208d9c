// The simulator as its users have it: a library, opened by path, with the environment's scenario.
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>

#include "simulator/functions.h"
#include "simulator/report.h"
#include "tests/support/plugin.h"

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

TEST(SimulatorLibrary, DoesNotUseTheEnvironmentOfACallerWithFewerRights) {
  tev::test::TempTree tree;
  tev::test::Environment environment;
  environment.set("VUNA_SIMULATOR_SCENARIO", tree.write("none.json", R"({"devices": []})"));
  environment.set("VUNA_SIMULATOR_TRACE", tree.path("trace"));
  const std::string program = tree.path("tev-host");
  fs::copy_file(TEV_HOST, program);
  const auto runs = [command = program + " run --plugin " PLUGIN " --samples 1 --update 1 " +
                               "--option multipath-vuna-lib-path=" SIMULATOR
                               " >/dev/null 2>&1"] { return std::system(command.c_str()) == 0; };
  EXPECT_FALSE(runs());  // there are no devices
  EXPECT_TRUE(fs::remove(tree.path("trace")));
  constexpr gid_t kOther = 65534;
  struct statvfs system {};
  statvfs(program.c_str(), &system);
  if (chown(program.c_str(), static_cast<uid_t>(-1), kOther) != 0 ||
      (system.f_flag & ST_NOSUID) != 0 || prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) != 0)
    GTEST_SKIP() << "a program cannot be given the rights of another group here";
  ASSERT_EQ(chmod(program.c_str(), S_ISGID | 0755), 0);
  EXPECT_TRUE(runs());
  EXPECT_FALSE(fs::exists(tree.path("trace")));
}

}  // namespace
}  // namespace simulator_test
