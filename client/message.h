// What a request sends, and what comes back.
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
  std::chrono::milliseconds ownTime{0};     ///< that the helper takes for it by nature
  bool endsHelper = false;                  ///< the end of the connection is its answer
  std::optional<std::string> problem = {};  ///< why it cannot be sent
};

/// The helper's answer, or why there is none.
struct Reply : std::variant<platform::ipc::Dictionary, Error> {
  using variant::variant;
};

}  // namespace detail
}  // namespace v1
}  // namespace brimo
