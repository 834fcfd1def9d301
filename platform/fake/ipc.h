// Connections without a transport, for unit tests.
#pragma once

#include "platform/ipc/service.h"

namespace platform::fake {

/// What was done to a connection, and what it answers.
struct ConnectionState {
  std::int32_t peerPID = 42;
  std::uint32_t peerUserID = 1000;
  std::int32_t requirementStatus = 0;
  std::string requirement;
  bool resumed = false;
  bool cancelled = false;
  std::function<void(const ipc::Event&)> handler;
};

std::shared_ptr<ipc::Connection> makeConnection(
    std::shared_ptr<ConnectionState> state = std::make_shared<ConnectionState>());

/// A message for whose sender checkSender() returns Machine::senderStatus.
ipc::Message makeMessage(ipc::Dictionary dictionary, std::function<void(const ipc::Dictionary&)> reply = {});

}  // namespace platform::fake
