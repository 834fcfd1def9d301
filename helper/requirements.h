// The code signing requirements of this build's clients.
#pragma once

#include <string>

#include "build_constants.h"

/// What the main application's embedded frameworks must satisfy: signed by Apple's App Store, or with a Developer ID of
/// the team. On Linux the compiled-in root stands for "anchor apple generic".
inline const std::string FrameworkRequirement =
    std::string(
        "anchor apple generic and (certificate leaf[field.1.2.840.113635.100.6.1.9] /* exists */"
        " or certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */"
        " and certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */"
        " and certificate leaf[subject.OU] = \"") +
    TeamIdentifier + "\")";

/// What the main application must satisfy: the same, and its identifier.
inline const std::string ClientRequirement =
    "identifier \"" + std::string(ClientBundleIdentifier) + "\" and " + FrameworkRequirement;
