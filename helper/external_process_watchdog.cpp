#include "helper/external_process_watchdog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <map>
#include <set>

#include "foundation/HXJSON.h"
#include "foundation/HXLog.h"
#include "platform/base/file_descriptor.h"
#include "platform/base/file_io.h"
#include "platform/process/process.h"

namespace json = boost::json;

namespace {

constexpr char moduleName[] = "Helper";
constexpr std::uint64_t maximumSize = 0x100000;  // bytes

/// Whether the file is regular, small enough, and writable by its owner only.
bool isSafe(const struct stat& status) {
  return (status.st_mode & (S_IFMT | S_IWGRP | S_IWOTH)) == S_IFREG &&
         static_cast<std::uint64_t>(status.st_size) <= maximumSize;
}

std::optional<BRHWatchedProcess> watchedProcess(const json::value& element) {
  const auto* pair = element.if_array();
  if (!pair || pair->size() != 2) return std::nullopt;
  boost::system::error_code error;
  auto number = pair->at(0).to_number<double>(error);  // a double represents every 32-bit integer exactly
  const auto* path = pair->at(1).if_string();
  if (error || !(number >= 2 && number < 0x80000000p0) || !path || path->empty()) return std::nullopt;
  return BRHWatchedProcess{.pid = static_cast<std::int32_t>(number), .path = std::string(*path)};
}

/// Kills the process if it belongs to the user and runs one of the listed executables; the PID may have been reused.
void killIfStillTheSame(std::int32_t pid, const std::set<std::string>& paths, std::uint32_t user) {
  // The handle is taken first: if another process gets the PID before the checks, kill() does not reach it.
  auto process = platform::Process::find(pid);
  if (!process || platform::effectiveUserID(pid) != user) return;
  if (auto path = platform::executablePath(pid); path && paths.contains(*path)) process->kill();
}

/// Checks each PID once, however often it is listed: any user can fill the file, and all clients wait for the checks.
void killListed(const std::vector<BRHWatchedProcess>& processes, std::uint32_t user) {
  std::map<std::int32_t, std::set<std::string>> pathsOf;
  for (const auto& process : processes) pathsOf[process.pid].insert(process.path);
  for (const auto& process : processes) {
    if (auto listed = pathsOf.extract(process.pid)) killIfStillTheSame(listed.key(), listed.mapped(), user);
  }
}

}  // namespace

std::optional<std::vector<BRHWatchedProcess>> BRHParseWatchedProcesses(std::string_view text) {
  auto value = HX_JSONObject(text);
  const auto* list = value ? value->if_array() : nullptr;
  if (!list) return std::nullopt;
  std::vector<BRHWatchedProcess> processes;
  for (const auto& element : *list) {
    if (auto process = watchedProcess(element)) processes.push_back(std::move(*process));
  }
  return processes;
}

void BRHKillWatchedExternalProcesses(const std::string& watchdogFile) {
  // Without O_NONBLOCK, open() would block on a FIFO.
  platform::FileDescriptor file(open(watchdogFile.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) return;
  struct stat status;
  if (fstat(file.get(), &status) != 0 || !isSafe(status)) {
    HXLog(moduleName, "Reject unsafe external-process watchdog file");
    return;
  }
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  if (auto length = platform::readInto(file.get(), content); !length || *length < content.size()) {
    HXLog(moduleName, "Failed to read external-process watchdog file");
    return;
  }
  file.reset();

  if (auto processes = BRHParseWatchedProcesses(content)) {
    killListed(*processes, status.st_uid);
  } else {
    HXLog(moduleName, "Invalid external-process watchdog payload");
  }
  unlink(watchdogFile.c_str());
}
