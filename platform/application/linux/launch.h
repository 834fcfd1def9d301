// Starting an application as a user, by a fork.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/base/result.h"

namespace platform {

/// As whom and in which environment an application runs.
struct ApplicationIdentity {
  uid_t user;
  gid_t group;
  std::vector<gid_t> groups;             ///< supplementary
  std::vector<std::string> environment;  ///< as execve(2) takes it
  bool hadSession = false;               ///< whether the user was logged in when this was read
};

/// Starts the executable at `path`: as the identity says, in the home folder or else "/", in a session of its own, with
/// /dev/null as its standard descriptors and no other, the file creation mask 022 and default signal handling. What the
/// environment lacks of HOME, USER, LOGNAME, SHELL and PATH is filled in. The application is no child of the caller.
/// Blocks until it runs or has failed to; the sentence of a failure names the step. Called by a thread that no signals
/// are delivered to.
Result<void> launchApplication(const std::string& path, const std::vector<std::string>& arguments,
                               ApplicationIdentity identity);

}  // namespace platform
