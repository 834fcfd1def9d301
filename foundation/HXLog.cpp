#include "foundation/HXLog.h"

#include <fcntl.h>
#include <fmt/ranges.h>
#include <sys/time.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "platform/base/file_descriptor.h"
#include "platform/base/file_io.h"
#include "platform/dispatch/dispatch.h"
#include "platform/system/call_stack.h"
#include "platform/system/foreign_exception.h"
#include "platform/system/system_log.h"

namespace {

std::atomic<bool> HXLogEnabled{true};
std::atomic<std::uint64_t> HXLogDestinations{HXLogToOSLog | HXLogToFile};

/// Protected by HXLogLock.
struct LogState {
  std::mutex HXLogLock;
  platform::FileDescriptor HXLogFileHandle;
  std::string HXLogFilePath;
  std::function<void(const std::string&)> HXLogLineHook;
  std::function<void(std::int8_t, const std::string&, const std::string&)> HXLogAction;
};

// Never destroyed: threads may log while the process ends.
LogState& logState() {
  static auto* state = new LogState;
  return *state;
}

std::terminate_handler HXPreviousUncaughtExceptionHandler = nullptr;

std::string currentTime(const char* format) {
  std::time_t seconds = std::time(nullptr);
  std::tm local;
  localtime_r(&seconds, &local);
  std::array<char, 80> buffer;
  return {buffer.data(), std::strftime(buffer.data(), buffer.size(), format, &local)};
}

std::string withMicroseconds(const std::string& time) {
  timeval now;
  gettimeofday(&now, nullptr);
  return fmt::format("{}.{:06}", time, now.tv_usec);
}

std::string symbolText() {
  return fmt::format("(\n    {}\n)", fmt::join(platform::callStackSymbols(), "\n    "));
}

// Runs on the stack of the throw. If no handler is found, the stack is not unwound, so the frames are still there,
// except those that a noexcept function has cut off.
void HXUncaughtExceptionHandler() {
  HXLog("HXLogger", "Uncaught Exception, description:{}, call stack:{}",
        HX_exceptionDescription(std::current_exception()), symbolText());
  if (HXPreviousUncaughtExceptionHandler) HXPreviousUncaughtExceptionHandler();
  std::abort();
}

}  // namespace

void HXSetLogEnabled(bool enabled) {
  HXLogEnabled = enabled;
}
bool HXLogIsEnabled() {
  return HXLogEnabled;
}
void HXSetLogDestinations(std::uint64_t destinations) {
  HXLogDestinations = destinations;
}

void HXSetLogLineHook(std::function<void(const std::string&)> hook) {
  auto& state = logState();
  std::lock_guard lock(state.HXLogLock);
  state.HXLogLineHook = std::move(hook);
}

void HX_setLogAction(std::function<void(std::int8_t, const std::string&, const std::string&)> action) {
  auto& state = logState();
  std::lock_guard lock(state.HXLogLock);
  state.HXLogAction = std::move(action);
}

void HXSetLogFilePath(const std::string& path) {
  // Opened before the lock is taken: opening a FIFO waits for a reader, and other threads must be able to log
  // meanwhile.
  platform::FileDescriptor file(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
  auto& state = logState();
  std::lock_guard lock(state.HXLogLock);
  state.HXLogFileHandle = std::move(file);
  state.HXLogFilePath = path;
}

std::string HXLogFilePath() {
  auto& state = logState();
  std::lock_guard lock(state.HXLogLock);
  return state.HXLogFilePath;
}

void HXLogWriteLine(const std::string& line) {
  if (!HXLogEnabled) return;
  auto& state = logState();
  std::uint64_t destinations = HXLogDestinations;
  std::lock_guard lock(state.HXLogLock);
  if (destinations & HXLogToStderr) {
    std::fputs(line.c_str(), stderr);
    std::fputs("\n", stderr);
  }
  if (destinations & HXLogToOSLog) platform::systemLog(line);
  if (destinations & HXLogToFile && state.HXLogFileHandle) {
    int file = state.HXLogFileHandle.get();
    // fsync(2) fails with EINVAL for files that cannot be synchronised, such as a terminal; that is no error here.
    auto written = platform::writeAll(file, line + "\n");
    if (written && fsync(file) != 0 && errno != EINVAL) written = platform::lastFailure();
    if (!written) {
      platform::systemLog(fmt::format("Failed to write log: {}", written.error().what()));
      state.HXLogFileHandle.reset();
    }
  }
  if (state.HXLogLineHook) state.HXLogLineHook(line);
}

void HXLogMessage(std::string_view moduleName, std::string_view message) {
  HXLogWriteLine(fmt::format("{} {}[{}] {}", HX_logStyleCurrentDateTime(),
                             platform::dispatch::isMainThread() ? "*" : " ", moduleName, message));
}

std::string HXClassName(const std::type_info& type) {
  auto name = boost::core::demangle(type.name());
  std::size_t start = 0;
  int depth = 0;  // nesting of template arguments and of the arguments of an enclosing function
  for (std::size_t index = 0; index < name.size(); ++index) {
    if (name[index] == '<' || name[index] == '(') ++depth;
    if (name[index] == '>' || name[index] == ')') --depth;
    if (name[index] == ':' && depth == 0) start = index + 1;
  }
  return name.substr(start);
}

void HX_logMessage(std::int8_t level, const std::string& moduleName, const std::string& message) {
  auto& state = logState();
  decltype(state.HXLogAction) action;
  {
    std::lock_guard lock(state.HXLogLock);
    action = state.HXLogAction;
  }
  if (action) return action(level, moduleName, message);
  HXLog(moduleName, "{}", message);
}

void HXInstallUncaughtExceptionHandler() {
  auto previous = std::set_terminate(HXUncaughtExceptionHandler);
  if (previous != HXUncaughtExceptionHandler) HXPreviousUncaughtExceptionHandler = previous;
}

std::string HXCallStackString() {
  auto image = platform::mainImage();
  return fmt::format("Call stack: {}, slide 0x{:x} load addr 0x{:x}", symbolText(), image.slide, image.loadAddress);
}

void HXLogCallStack() {
  HXLog("HXLogger", "{}", HXCallStackString());
}

std::string HX_exceptionDescription(const std::exception_ptr& exception) {
  if (!exception) return "terminate called without an exception";
  try {
    std::rethrow_exception(exception);
  } catch (const std::exception& error) {
    return fmt::format("{}: {}", boost::core::demangle(typeid(error).name()), error.what());
  } catch (...) {
    return platform::foreignExceptionDescription().value_or("an exception of an unknown type");
  }
}

std::string HX_callStackLog(const std::exception_ptr&) {
  return HXCallStackString();
}

std::string HX_exceptionReport(const std::exception_ptr& exception) {
  return fmt::format("{}\n{}", HX_exceptionDescription(exception), HX_callStackLog(exception));
}

std::string HX_logStyleCurrentDateTime() {
  return withMicroseconds(currentTime("%Y-%m-%d %H:%M:%S"));
}
std::string HX_logStyleCurrentDate() {
  return currentTime("%Y-%m-%d");
}
std::string HX_logStyleCurrentTime() {
  return withMicroseconds(currentTime("%H:%M:%S"));
}
