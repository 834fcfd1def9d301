// What a helper was built for, read from its executable: the helper itself looks at no arguments.
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
  std::string identifier;  ///< that its clients are signed with
  std::string team;
  std::string group;  ///< that its clients must have connected with; empty: any
  std::vector<platform::code_signing::TrustedRoot> roots;
};

/// Fails when the file cannot be read, or is not a helper.
platform::Result<HelperFile> readHelperFile(const std::string& path);

}  // namespace brimo
