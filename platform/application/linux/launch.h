// Starts an application as a user, by forking.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/base/result.h"

namespace platform {

/// The user, groups and environment that an application runs with.
struct ApplicationIdentity {
  uid_t user;
  gid_t group;
  std::vector<gid_t> groups;             ///< supplementary
  std::vector<std::string> environment;  ///< "NAME=value" texts, as for execve(2)
  bool hadSession = false;               ///< whether the user was logged in when the identity was read
};

/// Starts the executable at `path` with the given identity. Blocks until it runs or has failed; the sentence of a
/// failure names the step. The calling thread must have all signals blocked.
///
/// The application gets its home folder (or "/") as working directory, its own session, /dev/null as standard
/// descriptors and no others, the file creation mask 022 and default signal handling. Missing variables among HOME,
/// USER, LOGNAME, SHELL and PATH are added. The application is not a child of this process.
Result<void> launchApplication(const std::string& path, const std::vector<std::string>& arguments,
                               ApplicationIdentity identity);

}  // namespace platform
