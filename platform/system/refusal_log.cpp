#include "platform/system/refusal_log.h"

#include <fmt/format.h>

#include <map>

#include "platform/system/clock.h"
#include "platform/system/system_log.h"

namespace platform {

namespace {

constexpr double pause = 60;  // seconds
constexpr std::size_t maximumUsers = 256;

}  // namespace

void logRefusal(std::uint32_t user, std::int32_t pid, const std::string& reason) {
  static std::map<std::uint32_t, double> lastLines;
  const double now = continuousSeconds();
  std::erase_if(lastLines, [&](const auto& line) { return now - line.second >= pause; });
  // The total is limited too, because one person may have many user IDs (subuid(5)).
  if (lastLines.size() >= maximumUsers || !lastLines.emplace(user, now).second) return;
  systemLog(fmt::format("Refused PID {} of user {}: {}", pid, user, reason));
}

}  // namespace platform
