// main() of the unit tests: exit(0) within a test must not pass for tests that have all run.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

const pid_t thisProcess = getpid();  // not a death test's child, whose end is looked at by its test
bool haveAllRun = false;

void failUnlessAllHaveRun() {
  if (haveAllRun || getpid() != thisProcess) return;
  std::fputs("exit() was called within a test\n", stderr);
  std::_Exit(EXIT_FAILURE);
}

}  // namespace

int main(int count, char** arguments) {
  for (int index = 1; index < count; ++index) {
    // The same child, started anew.
    haveAllRun |= std::string_view(arguments[index]).starts_with("--gtest_internal_run_death_test");
  }
  testing::InitGoogleMock(&count, arguments);
  std::atexit(failUnlessAllHaveRun);
  int result = RUN_ALL_TESTS();
  haveAllRun = true;
  return result;
}
