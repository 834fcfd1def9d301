// What a request comes to: its answer, or why there is none.
#pragma once

#include <optional>
#include <string>
#include <utility>

/// Marks what the library exports.
#define BRIMO_CLIENT_API __attribute__((visibility("default")))

namespace brimo {
inline namespace v1 {

enum class ErrorCode {
  notInstalled,     ///< no helper can be reached: none is installed, or its endpoint is not served
  refused,          ///< the helper does not admit this program, or has too many connections; the system log says which
  lost,             ///< the connection ended before the answer came; the helper may have done the work or not
  timedOut,         ///< no answer came in time; the helper may still do the work
  cancelled,        ///< by cancel(), or by the end of the client
  invalidArgument,  ///< the request cannot be sent; nothing has been
  rejected,         ///< the helper answered with an error; the message is its text
};

struct Error {
  ErrorCode code;
  std::string message;  ///< a sentence for people, UTF-8
};

/// The answer to a request, or an error.
template <class Value>
class Result {
 public:
  Result(Value value) : value_(std::move(value)) {}
  Result(Error error) : error_(std::move(error)) {}

  /// Whether there is an answer.
  explicit operator bool() const { return value_.has_value(); }

  /// The answer. Undefined when there is none.
  const Value& operator*() const { return *value_; }
  const Value* operator->() const { return &*value_; }

  /// The error. Undefined when there is an answer.
  const Error& error() const { return *error_; }

 private:
  std::optional<Value> value_;
  std::optional<Error> error_;
};

/// The answer to a request that only succeeds or fails.
struct Done {};

}  // namespace v1
}  // namespace brimo
