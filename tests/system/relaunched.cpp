// An application that the helper relaunches and that reports its own state.
//
// It starts the watchdog, prints that, sends the commands that it reads, and waits until it is killed. After a
// relaunch, it writes its report to /tmp, in a file named after its argument and PID. With the path and arguments of
// another program, it connects and then executes that program.
#include <brimo/HelperClient.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

namespace {

std::string contentOf(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

boost::json::object report(int count, char** arguments) {
  boost::json::object descriptors;
  std::error_code closed;  // /proc/self is not readable in a set-group-ID program
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", closed)) {
    std::error_code gone;  // the descriptor of the folder itself is closed by now
    auto target = std::filesystem::read_symlink(entry.path(), gone);
    if (!gone && !target.string().ends_with("/fd")) descriptors[entry.path().filename().string()] = target.string();
  }
  boost::json::array texts(arguments, arguments + count);
  auto mask = umask(0);
  return {{"status", contentOf("/proc/self/status")},
          {"environment", contentOf("/proc/self/environ")},
          {"cgroup", contentOf("/proc/self/cgroup")},
          {"folder", std::filesystem::current_path().string()},
          {"session", getsid(0)},
          {"descriptors", descriptors},
          {"arguments", texts},
          {"umask", mask}};
}

/// Connects, waits until the helper admits this program, and executes another one with the connection as descriptor 3.
int becomeAnother(char** program) {
  brimo::HelperClient helper;
  helper.call(brimo::version());  // the helper checks the process again on its first message
  fcntl(3, F_SETFD, 0);
  return execv(program[0], program);
}

}  // namespace

int main(int count, char** arguments) {
  if (count > 1 && arguments[1][0] == '/') return becomeAnother(arguments + 1);
  bool relaunched = count > 1 && std::string_view(arguments[1]).starts_with("-crash");
  auto found = relaunched ? report(count, arguments) : boost::json::object();  // before a connection adds a descriptor
  brimo::HelperClient helper;
  helper.call(brimo::startWatchdog());
  if (relaunched) {
    auto path = fmt::format("/tmp/{}.{}", arguments[1], getpid());
    std::ofstream(path + ".part") << boost::json::serialize(found);
    std::filesystem::rename(path + ".part", path);
  } else {
    std::cout << "armed" << std::endl;
  }
  for (std::string command; std::getline(std::cin, command);) {
    helper.call(brimo::jsonCommand(boost::json::serialize(boost::json::object{{"command", command}})));
  }
  while (true) pause();
}
