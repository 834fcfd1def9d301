// The one way in which what can fail says so.
#pragma once

#include <boost/system/result.hpp>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace platform {

/// Why something failed; what() is a sentence for people.
struct Failure : std::runtime_error {
  Failure() : Failure(0, "") {}  // error() of a success
  Failure(int failedWith, const std::string& sentence) : runtime_error(sentence), number(failedWith) {}

  int number;  ///< an errno, or the status of the system's that a declaration names; 0 where neither says it
};

/// The failure that an errno stands for: its text, after what it is about.
inline Failure failureOf(int number, std::string_view about = {}) {
  return {number, std::string(about) + (about.empty() ? "" : ": ") + std::generic_category().message(number)};
}

/// The failure of the system call just made. Not a std::string: to make one could change errno.
inline Failure lastFailure(std::string_view about = {}) {
  return failureOf(errno, about);
}

/// Has Result::value() throw the failure.
[[noreturn]] inline void throw_exception_from_error(const Failure& failure, const boost::source_location&) {
  throw failure;
}

/// The value of what succeeded, or why it failed. `if (auto result = …) use(*result); else
/// tell(result.error().what());`
template <class T>
class [[nodiscard]] Result : public boost::system::result<T, Failure> {
 public:
  using boost::system::result<T, Failure>::result;
};

/// What a system call that returns -1 when it fails has come to.
inline Result<void> resultOfCall(int returned) {
  if (returned < 0) return lastFailure();
  return {};
}

/// Takes a sequence of steps, each of which may throw a Failure: by value() of a Result, by check() or by itself. The
/// first that does ends the sequence.
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

/// The result of a function that returns a negative errno when it fails, as those of sd-bus do; throws that Failure. Of
/// functions that return a positive one, as posix_spawn(3) does, the result is negated.
inline int check(int result, std::string_view about = {}) {
  if (result < 0) throw failureOf(-result, about);
  return result;
}

}  // namespace platform
