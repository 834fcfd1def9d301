// main() of the unit tests. If a test calls exit(0), the program must not look as if all tests had run.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

const pid_t thisProcess = getpid();  // a death test's child has another PID; the test checks how it exits
bool haveAllRun = false;

void failUnlessAllHaveRun() {
  if (haveAllRun || getpid() != thisProcess) return;
  std::fputs("exit() was called within a test\n", stderr);
  std::_Exit(EXIT_FAILURE);
}

}  // namespace

int main(int count, char** arguments) {
  for (int index = 1; index < count; ++index) {
    // With this argument, this process is the child of a death test, which executes the program again.
    haveAllRun |= std::string_view(arguments[index]).starts_with("--gtest_internal_run_death_test");
  }
  testing::InitGoogleMock(&count, arguments);
  std::atexit(failUnlessAllHaveRun);
  int result = RUN_ALL_TESTS();
  haveAllRun = true;
  return result;
}
