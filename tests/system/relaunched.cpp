// An application that the helper relaunches.
//
// It starts the watchdog, prints "armed", sends the commands that it reads, and waits until it is killed. After a
// relaunch, it creates a file in /tmp that is named after its argument and PID. With the path and arguments of another
// program, it connects and then executes that program.
#include <brimo/HelperClient.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <fstream>
#include <iostream>

namespace {

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
  brimo::HelperClient helper;
  helper.call(brimo::startWatchdog());
  if (count > 1 && std::string_view(arguments[1]).starts_with("-crash")) {
    std::ofstream(fmt::format("/tmp/{}.{}", arguments[1], getpid()));
  } else {
    std::cout << "armed" << std::endl;
  }
  for (std::string command; std::getline(std::cin, command);) {
    helper.call(brimo::jsonCommand(boost::json::serialize(boost::json::object{{"command", command}})));
  }
  while (true) pause();
}
