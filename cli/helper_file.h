// The constants of a helper's build, read from its executable, because the helper accepts no arguments.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/base/result.h"
#include "platform/code_signing/trusted_roots.h"

namespace brimo {

struct HelperFile {
  std::int64_t build;
  std::string service;     ///< name of its endpoint
  std::string identifier;  ///< in its clients' signatures
  std::string team;
  std::string group;  ///< effective group that its clients must have; if empty, any
  std::vector<platform::code_signing::TrustedRoot> roots;
};

/// Fails if the file cannot be read or is not a helper.
platform::Result<HelperFile> readHelperFile(const std::string& path);

}  // namespace brimo
