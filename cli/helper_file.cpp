#include "cli/helper_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <boost/json.hpp>

#include "platform/base/file_descriptor.h"
#include "platform/base/file_io.h"

namespace brimo {

namespace json = boost::json;
using platform::Failure;
using platform::Result;

namespace {

Result<std::string> contentOf(const std::string& path) {
  platform::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status;
  if (!file || fstat(file.get(), &status) != 0) return platform::lastFailure(path);
  if (!S_ISREG(status.st_mode)) return Failure(0, path + " is not a regular file");
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  auto length = platform::readInto(file.get(), bytes);
  if (!length) return length.error();
  bytes.resize(*length);
  return bytes;
}

/// The JSON object after the marker (build_constants.h); empty if there is none. Programs that search for the marker
/// also contain it, but without an object after it.
json::object constantsIn(std::string_view bytes) {
  constexpr std::string_view marker = "BRHHelperInfo {";
  for (auto at = bytes.find(marker); at != bytes.npos; at = bytes.find(marker, at + 1)) {
    auto start = at + marker.size() - 1, end = bytes.find('}', start);
    if (end == bytes.npos) break;
    boost::system::error_code error;
    auto value = json::parse(bytes.substr(start, end + 1 - start), error);
    if (!error && value.is_object()) return value.get_object();
  }
  return {};
}

}  // namespace

Result<HelperFile> readHelperFile(const std::string& path) {
  auto bytes = contentOf(path);
  if (!bytes) return bytes.error();
  auto constants = constantsIn(*bytes);
  try {
    auto text = [&](const char* key) { return std::string(constants.at(key).as_string()); };
    return HelperFile{.build = constants.at("build").as_int64(),
                      .service = text("service"),
                      .identifier = text("identifier"),
                      .team = text("team"),
                      .group = text("group"),
                      .roots = platform::code_signing::trustedRootsIn(*bytes)};
  } catch (const std::exception&) {  // a constant is missing or has another type
    return Failure(0, path + " is not a helper");
  }
}

}  // namespace brimo
