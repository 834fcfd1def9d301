// A service's endpoint that a test controls step by step. Linux only.
#pragma once

#include <memory>
#include <string>

#include "platform/ipc/client.h"

namespace platform::fake {

using Frame = ipc::ClientChannel::Reply;

/// Waits until a descriptor is readable. Throws if that takes too long.
void waitReadable(int descriptor);

/// The service's end of a connection. Sending and receiving throw if the client has left or does not respond in time.
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
  /// Makes everything that the client sends from now on fail.
  void stopReading();
  void close();

 private:
  std::unique_ptr<Implementation> implementation_;
};

class Service {
 public:
  /// Unique to this process.
  const std::string name;

  /// `backlog` is that of listen(2).
  explicit Service(int backlog = 4'096);
  ~Service();

  Peer accept();
  /// Readable while somebody waits to be accepted.
  int descriptor() const;
  /// Refuses all further connections.
  void leave();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace platform::fake
