#include <brimo/HelperClient.h>

#include "client/Session.h"

namespace brimo {
inline namespace v1 {

class HelperClient::Implementation {
 public:
  explicit Implementation(Options options) : session(Session::start(std::move(options))) {}

  // Shared, because a handler that destroys the client is still running inside the session.
  const std::shared_ptr<Session> session;
};

HelperClient::HelperClient(Options options) : implementation_(std::make_unique<Implementation>(std::move(options))) {}

HelperClient::~HelperClient() {
  auto session = implementation_->session;
  session->end();
}

void HelperClient::cancel(ID request) {
  implementation_->session->cancel(request);
}
void HelperClient::connect() {
  implementation_->session->connect();
}
int HelperClient::descriptor() const {
  return implementation_->session->descriptor();
}
void HelperClient::deliver() {
  auto session = implementation_->session;
  session->deliver();
}
HelperClient::ID HelperClient::begin(std::shared_ptr<const detail::Message> message,
                                     std::function<void(const detail::Reply&)> finish,
                                     std::optional<std::chrono::milliseconds> limit) {
  return implementation_->session->begin(std::move(message), std::move(finish), limit);
}
std::shared_ptr<const detail::Reply> HelperClient::wait(std::shared_ptr<const detail::Message> message,
                                                        std::optional<std::chrono::milliseconds> limit) {
  return implementation_->session->wait(std::move(message), limit);
}

int clientVersion() {
  return BRIMO_CLIENT_VERSION;
}

}  // namespace v1
}  // namespace brimo
