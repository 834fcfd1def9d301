// Results of operations that can fail.
#pragma once

#include <boost/system/result.hpp>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace platform {

/// The reason for a failure. what() is a sentence for people.
struct Failure : std::runtime_error {
  Failure() : Failure(0, "") {}  // error() of a success returns this
  Failure(int failedWith, const std::string& sentence) : runtime_error(sentence), number(failedWith) {}

  int number;  ///< an errno, or the status that the failing function's declaration names; 0 if there is no number
};

/// The failure for an errno. The sentence is its message, preceded by `about` if given.
inline Failure failureOf(int number, std::string_view about = {}) {
  return {number, std::string(about) + (about.empty() ? "" : ": ") + std::generic_category().message(number)};
}

/// The failure of the last system call. `about` is not a std::string because making one could change errno.
inline Failure lastFailure(std::string_view about = {}) {
  return failureOf(errno, about);
}

/// Makes Result::value() throw the failure.
[[noreturn]] inline void throw_exception_from_error(const Failure& failure, const boost::source_location&) {
  throw failure;
}

/// A value, or the Failure that prevented it:
///
///     if (auto result = …) use(*result); else log(result.error().what());
template <class T>
class [[nodiscard]] Result : public boost::system::result<T, Failure> {
 public:
  using boost::system::result<T, Failure>::result;
};

/// The result of a system call that returns -1 on failure.
inline Result<void> resultOfCall(int returned) {
  if (returned < 0) return lastFailure();
  return {};
}

/// Runs steps that may throw a Failure: through value() of a Result, through check(), or directly. The first failure
/// ends the sequence and is the result.
template <class Steps>
auto attempt(Steps&& steps) -> Result<std::invoke_result_t<Steps>> {
  try {
    if constexpr (std::is_void_v<std::invoke_result_t<Steps>>) {
      steps();
      return {};
    } else {
      return steps();
    }
  } catch (const Failure& failure) {
    return failure;
  }
}

/// Returns the result of a function that, like those of sd-bus, returns a negative errno on failure; throws a Failure
/// if it is negative. Negate the result of a function that returns a positive errno, such as posix_spawn(3).
inline int check(int result, std::string_view about = {}) {
  if (result < 0) throw failureOf(-result, about);
  return result;
}

}  // namespace platform
