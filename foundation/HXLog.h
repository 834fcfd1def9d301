// One log for the whole process. Each line has a timestamp, a thread mark and a module name, and goes to the system
// log, a file and standard error, as selected.
//
//     2024-05-01 12:00:00.123456 *[Helper] Version: 618, Starting...
//
// "*" marks the main thread (on macOS, only until it calls dispatchMain()). Any thread may log. Lines never interleave,
// and every destination gets them in the same order.
#pragma once

#include <fmt/format.h>

#include <boost/core/demangle.hpp>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <typeinfo>

/// Destinations; a bit mask.
inline constexpr std::uint64_t HXLogToOSLog = 2;
inline constexpr std::uint64_t HXLogToFile = 4;
inline constexpr std::uint64_t HXLogToStderr = 8;

/// The level of HX_log(). Only the function passed to HX_setLogAction() sees levels.
inline constexpr std::int8_t HXLogDefaultLevel = 30;

/// Master switch, initially on. While it is off, nothing is written.
void HXSetLogEnabled(bool enabled);
bool HXLogIsEnabled();

/// Selects the destinations; initially the system log and the file.
void HXSetLogDestinations(std::uint64_t destinations);

/// Sets a function that is called with every finished line, after the line has gone to all destinations. It runs under
/// the log's lock and must not log. An empty function removes the hook.
void HXSetLogLineHook(std::function<void(const std::string&)> hook);

/// Sets a function that receives level, module name and message in place of the normal path of HX_log() and
/// HX_logWithLevel(). An empty function restores the normal path.
void HX_setLogAction(std::function<void(std::int8_t, const std::string&, const std::string&)> action);

/// Sets the file that lines are appended to from now on.
/// - The file is created if missing, and never truncated or rotated. A symbolic link is not followed.
/// - Each line is synchronised to the disk.
/// - If the file cannot be opened, lines silently go only to the other destinations. If writing a line fails, the file
///   is closed and not used again until the next call.
void HXSetLogFilePath(const std::string& path);
/// The path of the last HXSetLogFilePath(), whether or not the file could be opened; initially empty.
std::string HXLogFilePath();

/// Sends a finished line to the destinations.
void HXLogWriteLine(const std::string& line);

/// Formats and writes a message of a module.
void HXLogMessage(std::string_view moduleName, std::string_view message);
template <class... Arguments>
void HXLog(std::string_view moduleName, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  if (HXLogIsEnabled()) HXLogMessage(moduleName, fmt::format(format, std::forward<Arguments>(arguments)...));
}

/// Installs a terminate handler that logs the uncaught exception and the call stack, then calls the handler that was
/// installed before. No effect if it is already installed.
void HXInstallUncaughtExceptionHandler();

/// The calling thread's stack: "Call stack: …", one frame a line, with the load address of the main image.
std::string HXCallStackString();
void HXLogCallStack();

/// The exception's type and message.
std::string HX_exceptionDescription(const std::exception_ptr& exception);

/// The same as HXCallStackString(): an exception does not record its stack, so the argument is ignored.
std::string HX_callStackLog(const std::exception_ptr& exception);

/// HX_exceptionDescription() and, on the next line, HX_callStackLog().
std::string HX_exceptionReport(const std::exception_ptr& exception);

/// The local time as "2024-05-01 12:00:00.123456", "2024-05-01" and "12:00:00.123456".
std::string HX_logStyleCurrentDateTime();
std::string HX_logStyleCurrentDate();
std::string HX_logStyleCurrentTime();

/// Passes a message to the log action if there is one, otherwise to the log.
void HX_logMessage(std::int8_t level, const std::string& moduleName, const std::string& message);

/// A class's name with its template arguments but without its enclosing scope.
std::string HXClassName(const std::type_info& type);

/// Base of classes that log under their own name: class BRHMain : HXLogging<BRHMain> logs as "BRHMain". If BRHMain has
/// virtual functions, objects of a derived class log under the derived class's name. The class given to HXLogging may
/// declare its own HX_logModuleName() to log under another name.
template <class Class>
class HXLogging {
 public:
  static std::string HX_logModuleName() { return HXClassName(typeid(Class)); }

  template <class... Arguments>
  void HX_log(fmt::format_string<Arguments...> format, Arguments&&... arguments) const {
    HX_logWithLevel(HXLogDefaultLevel, format, std::forward<Arguments>(arguments)...);
  }

  template <class... Arguments>
  void HX_logWithLevel(std::int8_t level, fmt::format_string<Arguments...> format, Arguments&&... arguments) const {
    if (!HXLogIsEnabled()) return;
    const auto& object = static_cast<const Class&>(*this);
    const auto& type = typeid(object);
    auto name = type == typeid(Class) ? Class::HX_logModuleName() : HXClassName(type);
    HX_logMessage(level, name, fmt::format(format, std::forward<Arguments>(arguments)...));
  }
};

/// The same without an object: HX_log<BRHMain>("…") logs under the class's module name.
template <class Class, class... Arguments>
void HX_logWithLevel(std::int8_t level, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  if (!HXLogIsEnabled()) return;
  HX_logMessage(level, Class::HX_logModuleName(), fmt::format(format, std::forward<Arguments>(arguments)...));
}
template <class Class, class... Arguments>
void HX_log(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  HX_logWithLevel<Class>(HXLogDefaultLevel, format, std::forward<Arguments>(arguments)...);
}
