// A fixture for tests of the commands: a helper, its log and a client that can disconnect.
#pragma once

#include <gmock/gmock.h>

#include <boost/json.hpp>
#include <string>
#include <vector>

#include "helper/BRHMain.h"
#include "platform/fake/dispatch.h"
#include "platform/fake/ipc.h"
#include "platform/fake/machine.h"

/// Gives each test a fresh fake machine and a new helper with an empty log.
class CommandTest : public testing::Test {
 protected:
  CommandTest() {
    platform::fake::machine() = {};
    platform::fake::resetQueues();
    HXSetLogDestinations(0);
    HXSetLogLineHook([this](const std::string& line) { log_.push_back(line.substr(line.find(']') + 2)); });
  }
  ~CommandTest() override {
    HXSetLogLineHook(nullptr);
    platform::fake::resetQueues();
  }

  /// Carries out a command sent by the process with PID 42 and returns the reply's text.
  std::string run(const char* command) {
    return boost::json::serialize(helper.execCommand({{"command", command}}, *platform::fake::makeConnection()));
  }

  void loseClient() {
    using Error = platform::ipc::Error;
    auto connection = platform::fake::makeConnection();
    helper.handleXPCEvent(*connection, Error{.kind = Error::Kind::connectionInvalid, .description = ""});
  }

  /// The messages logged since the last call.
  std::vector<std::string> log() { return std::exchange(log_, {}); }

  BRHMain helper;

 private:
  std::vector<std::string> log_;
};
