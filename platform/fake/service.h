// A service's endpoint that a test speaks for, one step at a time. Linux only.
#pragma once

#include <memory>
#include <string>

#include "platform/ipc/client.h"

namespace platform::fake {

using Frame = ipc::ClientChannel::Reply;

/// Waits until a descriptor can be read from; throws when it takes too long.
void waitReadable(int descriptor);

/// The service's end of a connection. Everything throws when the client has left, or lets the test wait too long.
class Peer {
 public:
  class Implementation;
  explicit Peer(std::unique_ptr<Implementation> implementation);
  Peer(Peer&&) noexcept;
  ~Peer();

  void greet(const std::string& service);
  void send(const Frame& frame);
  void sendBytes(const ipc::Data& bytes);
  Frame receive();
  bool hasHeardNothing();
  void close();

 private:
  std::unique_ptr<Implementation> implementation_;
};

class Service {
 public:
  /// Of this process alone.
  const std::string name;

  /// `backlog` is that of listen(2).
  explicit Service(int backlog = 4'096);
  ~Service();

  Peer accept();
  /// Readable while somebody waits to be accepted.
  int descriptor() const;
  /// From here on nobody can connect.
  void leave();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace platform::fake
