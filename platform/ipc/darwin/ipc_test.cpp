// Tests messages through XPC, with an anonymous listener instead of a service.
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

#include "platform/base/thread.h"
#include "platform/code_signing/code_signing.h"
#include "platform/dispatch/dispatch.h"
#include "platform/ipc/darwin/connection.h"
#include "platform/ipc/darwin/values.h"

namespace platform::ipc {
namespace {

using darwin::XPCConnection;
using darwin::XPCObject;

const Dictionary everyType{{"text", "\xC3\xBC"},
                           {"empty", ""},
                           {"data", Data{0, 1, 255}},
                           {"nothing", Data()},
                           {"yes", true},
                           {"no", false},
                           {"number", std::numeric_limits<std::int64_t>::min()}};

TEST(IPCValues, KeepTheirTypesAndOthersAreLeftOut) {
  auto message = XPCObject::adopt(xpc_dictionary_create(nullptr, nullptr, 0));
  setValues(message.get(), everyType);
  EXPECT_EQ(dictionaryOf(message.get()), everyType);

  xpc_dictionary_set_uint64(message.get(), "unsigned", 1);
  xpc_dictionary_set_double(message.get(), "real", 1);
  xpc_dictionary_set_string(message.get(), "not UTF-8", "\xFF");
  xpc_dictionary_set_value(message.get(), "inner", XPCObject::adopt(xpc_dictionary_create(nullptr, nullptr, 0)).get());
  EXPECT_EQ(dictionaryOf(message.get()), everyType);
}

/// What the service side of a connection received.
struct Seen {
  int messages = 0;
};

void handle(Seen& seen, const Event& event) {
  if (const auto* message = std::get_if<Message>(&event)) {
    ++seen.messages;
    if (!message->reply) return;
    // This process is not signed by Apple.
    Dictionary answer = message->dictionary;
    answer.set("apple", checkSender(*message->sender, "anchor apple").has_value());
    answer.set("status", std::int64_t{checkSender(*message->sender, "anchor anchor").error().number});
    message->reply(answer);
  } else {
    bool invalid = std::get<Error>(event).kind == Error::Kind::connectionInvalid;
    std::exit(invalid && seen.messages == 2 ? 42 : 1);
  }
}

/// Sends one message without and one with an expected reply, then closes the connection.
void runClient(xpc_endpoint_t endpoint) {
  auto connection = XPCConnection::adopt(xpc_connection_create_from_endpoint(endpoint));
  xpc_connection_set_event_handler(connection.get(), ^(xpc_object_t){
                                   });
  xpc_connection_resume(connection.get());
  auto message = XPCObject::adopt(xpc_dictionary_create(nullptr, nullptr, 0));
  setValues(message.get(), everyType);
  xpc_connection_send_message(connection.get(), message.get());
  auto reply = XPCObject::adopt(xpc_connection_send_message_with_reply_sync(connection.get(), message.get()));
  if (xpc_get_type(reply.get()) != XPC_TYPE_DICTIONARY) std::exit(2);
  auto expected = everyType;
  expected.set("apple", false);
  expected.set("status", std::int64_t{code_signing::requirementInvalid});
  if (dictionaryOf(reply.get()) != expected) std::exit(3);
  xpc_connection_cancel(connection.get());
}

TEST(IPCConnectionDeathTest, DeliversMessagesRepliesAndTheEnd) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto serve = [] {
    auto listener = XPCConnection::adopt(xpc_connection_create(nullptr, dispatch_get_main_queue()));
    xpc_connection_set_event_handler(listener.get(), ^(xpc_object_t object) {
      if (xpc_get_type(object) != XPC_TYPE_CONNECTION) std::exit(4);
      auto connection = std::make_shared<Connection::Implementation>(static_cast<xpc_connection_t>(object));
      if (connection->peerPID() != getpid() || connection->description().empty()) std::exit(5);
      connection->setEventHandler(
          [connection, seen = std::make_shared<Seen>()](const Event& event) { handle(*seen, event); });
      connection->resume();
    });
    xpc_connection_resume(listener.get());
    xpc_endpoint_t endpoint = xpc_endpoint_create(listener.get());
    startThread([endpoint] { runClient(endpoint); }).value().detach();
    dispatch::dispatchMain();
  };
  EXPECT_EXIT(serve(), testing::ExitedWithCode(42), "");
}

}  // namespace
}  // namespace platform::ipc
