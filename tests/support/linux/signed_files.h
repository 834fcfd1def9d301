// Temporary files, processes and signed files for tests of the Linux platform.
#pragma once

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/temporary_folder.h"

namespace platform::test {

using ::TemporaryFolder;

inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::filesystem::path& path, std::string_view text) {
  std::ofstream(path, std::ios::binary) << text;
}

/// A copy of /bin/sleep that runs during the object's lifetime.
class RunningCopy {
 public:
  explicit RunningCopy(const std::string& path) {
    std::filesystem::copy_file("/bin/sleep", path);
    int started[2];
    if (pipe2(started, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    pid_ = fork();
    if (pid_ == 0) {
      execl(path.c_str(), path.c_str(), "1000", nullptr);
      _exit(1);
    }
    close(started[1]);
    char byte;
    if (read(started[0], &byte, 1) != 0) throw std::runtime_error("read");  // exec closes the other end
    close(started[0]);
  }
  ~RunningCopy() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  RunningCopy(const RunningCopy&) = delete;
  RunningCopy& operator=(const RunningCopy&) = delete;
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

inline void run(const std::string& command) {
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

/// Creates a root, an intermediate and a leaf, and signs files with them.
class SigningFixture : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder = new TemporaryFolder;
    run(fmt::format("{}/make-development-certificates {} BRIMO00618", TOOLS_FOLDER, *folder / "own"));
    run(fmt::format("{}/make-development-certificates {} OTHER00000", TOOLS_FOLDER, *folder / "other"));
    writeFile(*folder / "signed", std::string(100'000, 'x'));
    run(
        fmt::format("{0}/sign-code --identifier com.example.test --key {1}/leaf.key --certificate {1}/leaf.pem "
                    "--intermediate {1}/intermediate.pem {2}",
                    TOOLS_FOLDER, *folder / "own", *folder / "signed"));
    anchor = readFile(*folder / "own/root.pem");
  }
  static void TearDownTestSuite() { delete std::exchange(folder, nullptr); }

  static inline TemporaryFolder* folder = nullptr;
  static inline std::string anchor;
};

}  // namespace platform::test
