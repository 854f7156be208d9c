// The programs whose environment the simulator uses.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "tests/simulator/sdk.h"

namespace simulator_test {
namespace {

namespace fs = std::filesystem;

std::string outputOf(const std::string& program) {
  const std::string common = fs::path(SIMULATOR).replace_filename("libvuna_common.so");
  FILE* const pipe = popen((program + " " + common + " " + SIMULATOR).c_str(), "r");
  std::string text(100, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), pipe));
  return pclose(pipe) == 0 ? text : "failed";
}

TEST(SimulatorEnvironment, IsNotThatOfACallerWithFewerRights) {
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
