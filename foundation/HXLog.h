// One process-wide log: lines with timestamp, thread mark and module name, for the system log, a file and standard
// error.
//
//     2024-05-01 12:00:00.123456 *[Helper] Version: 618, Starting...
//
// "*" marks the main thread. Any thread may log; lines never interleave and reach every destination in the same order.
#pragma once

#include <fmt/format.h>

#include <boost/core/demangle.hpp>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <typeinfo>

/// Destinations, a bit mask.
inline constexpr std::uint64_t HXLogToOSLog = 2;
inline constexpr std::uint64_t HXLogToFile = 4;
inline constexpr std::uint64_t HXLogToStderr = 8;

/// Level of HX_log(); levels reach the log action alone.
inline constexpr std::int8_t HXLogDefaultLevel = 30;

/// Master switch, initially on: while off nothing is formatted or written.
void HXSetLogEnabled(bool enabled);
bool HXLogIsEnabled();

/// Which destinations lines go to; initially the system log and the file.
void HXSetLogDestinations(std::uint64_t destinations);

/// Called last with every finished line, under the log's lock: it must not log. Empty: none.
void HXSetLogLineHook(std::function<void(const std::string&)> hook);

/// Takes the place of the normal path of HX_log() and HX_logWithLevel(): gets level, module name and message. Empty
/// restores the normal path.
void HX_setLogAction(std::function<void(std::int8_t, const std::string&, const std::string&)> action);

/// Appends lines to the file at a path from now on; it is made when missing, and never truncated or rotated. A symbolic
/// link is not followed. Each line is synchronised to the disk. A file that cannot be opened is silently skipped; one
/// that a line cannot be written to is closed, and the file left out until this is called again.
void HXSetLogFilePath(const std::string& path);
/// The path that was set last, whether or not the file could be opened; empty at first.
std::string HXLogFilePath();

/// Sends a finished line to the destinations.
void HXLogWriteLine(const std::string& line);

/// Formats and writes a message of a module.
void HXLogMessage(std::string_view moduleName, std::string_view message);
template <class... Arguments>
void HXLog(std::string_view moduleName, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  if (HXLogIsEnabled()) HXLogMessage(moduleName, fmt::format(format, std::forward<Arguments>(arguments)...));
}

/// Reports an exception that nobody catches, with the call stack, before the process ends by it; then the handler that
/// was installed before has its turn. To be called again does nothing more.
void HXInstallUncaughtExceptionHandler();

/// "Call stack: …" of the calling thread, one frame a line, with where the main image was loaded.
std::string HXCallStackString();
void HXLogCallStack();

/// What an exception is, in words.
std::string HX_exceptionDescription(const std::exception_ptr& exception);

/// The text of HXCallStackString(), of the caller: an exception keeps no stack of its own.
std::string HX_callStackLog(const std::exception_ptr& exception);

/// The description and, on the next line, HX_callStackLog().
std::string HX_exceptionReport(const std::exception_ptr& exception);

/// Local time as "2024-05-01 12:00:00.123456", "2024-05-01" and "12:00:00.123456".
std::string HX_logStyleCurrentDateTime();
std::string HX_logStyleCurrentDate();
std::string HX_logStyleCurrentTime();

/// Hands a message to the log action or, without one, to the log.
void HX_logMessage(std::int8_t level, const std::string& moduleName, const std::string& message);

/// A class's name, with its template arguments and without what it is a member of.
std::string HXClassName(const std::type_info& type);

/// Gives the objects of a class log calls of their own: those of class BRHMain : HXLogging<BRHMain> log under the
/// module name "BRHMain", those of a class derived from it, where it has virtual functions, under that one's name. A
/// class may declare its own HX_logModuleName() to log under another name.
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
