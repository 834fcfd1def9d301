// The result of a request: its answer or an error.
#pragma once

#include <optional>
#include <string>
#include <utility>

/// Marks the symbols that the library exports.
#define BRIMO_CLIENT_API __attribute__((visibility("default")))

namespace brimo {
inline namespace v1 {

enum class ErrorCode {
  notInstalled,     ///< the helper cannot be reached: it is not installed or its endpoint is not active
  refused,          ///< the helper refuses this program or has too many connections; the system log has the reason
  lost,             ///< the connection ended before the answer came; the helper may or may not have done the work
  timedOut,         ///< no answer came in time; the helper may still do the work
  cancelled,        ///< by cancel() or by the client's destructor
  invalidArgument,  ///< the request is invalid and was not sent
  rejected,         ///< the helper answered with an error, whose text is the message, or with an invalid reply
};

struct Error {
  ErrorCode code;
  std::string message;  ///< for people to read, in UTF-8
};

/// The result of a request: an answer or an error.
template <class Value>
class Result {
 public:
  Result(Value value) : value_(std::move(value)) {}
  Result(Error error) : error_(std::move(error)) {}

  /// Whether this is an answer.
  explicit operator bool() const { return value_.has_value(); }

  /// The answer. Undefined if this is an error.
  const Value& operator*() const { return *value_; }
  const Value* operator->() const { return &*value_; }

  /// The error. Undefined if this is an answer.
  const Error& error() const { return *error_; }

 private:
  std::optional<Value> value_;
  std::optional<Error> error_;
};

/// The answer to a request that only succeeds or fails.
struct Done {};

}  // namespace v1
}  // namespace brimo
