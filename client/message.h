// The content of a request and of its reply.
#pragma once

#include <brimo/requests.h>

#include <chrono>
#include <optional>
#include <variant>

#include "platform/ipc/dictionary.h"

namespace brimo {
inline namespace v1 {
namespace detail {

struct Message {
  platform::ipc::Dictionary dictionary;
  std::chrono::milliseconds ownTime{0};     ///< time that the helper needs for it by design
  bool endsHelper = false;                  ///< the end of the connection is the answer
  std::optional<std::string> problem = {};  ///< why it cannot be sent; absent if it can
};

/// The helper's answer, or the reason why there is no answer.
struct Reply : std::variant<platform::ipc::Dictionary, Error> {
  using variant::variant;
};

}  // namespace detail
}  // namespace v1
}  // namespace brimo
