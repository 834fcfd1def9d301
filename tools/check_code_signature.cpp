// check-code-signature BUNDLE: says whether the helper of this build would admit the application in a bundle and, if
// not, why not.
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <string_view>

#include "build_constants.h"
#include "helper/admission.h"

namespace fs = std::filesystem;

namespace {

/// The only program in a bundle. If there is none or more than one, prints an error and returns an empty path.
fs::path programOf(const fs::path& bundle) {
  std::error_code error;
  fs::path found;
  for (const auto& entry : fs::directory_iterator(bundle / "Contents/MacOS", error)) {
    if (!found.empty()) {
      std::cerr << bundle.string() << "/Contents/MacOS contains more than one file: give the path of the program\n";
      return {};
    }
    found = entry.path();
  }
  if (error) {
    std::cerr << bundle.string() << "/Contents/MacOS: " << error.message() << '\n';
  } else if (found.empty()) {
    std::cerr << bundle.string() << "/Contents/MacOS contains no file\n";
  }
  return found;
}

/// A description of the problem with the program's group; empty when there is no problem.
std::string groupProblem(const fs::path& program) {
  if (*BRHClientGroup == '\0') return {};
  const auto* group = getgrnam(BRHClientGroup);
  if (!group) return std::string("there is no group ") + BRHClientGroup;
  struct stat status;
  if (stat(program.c_str(), &status) != 0 || status.st_gid != group->gr_gid || (status.st_mode & S_ISGID) == 0) {
    return program.string() + " is not setgid to the client group " + BRHClientGroup;
  }
  return {};
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view argument = count == 2 ? arguments[1] : "";
  const bool isHelp = argument == "-h" || argument == "--help";
  if (count != 2 || isHelp) {
    (isHelp ? std::cout : std::cerr) << "usage: brimo-check-code-signature BUNDLE | PROGRAM\n";
    return isHelp ? 0 : 2;
  }
  std::error_code error;
  auto path = fs::canonical(arguments[1], error);
  if (!error && fs::is_directory(path)) path = programOf(path);
  if (path.empty() && !error) return 2;
  if (!error && access(path.c_str(), R_OK) != 0) error.assign(errno, std::generic_category());
  if (error) {
    std::cerr << arguments[1] << ": " << error.message() << '\n';
    return 2;
  }
  // In the order in which the helper looks.
  auto problem = groupProblem(path);
  if (problem.empty()) {
    if (auto admitted = BRHValidateMainApplication(path); !admitted) problem = admitted.error().what();
  }
  if (!problem.empty()) {
    std::cout << "would be refused: " << problem << '\n';
    return 1;
  }
  std::cout << path.string() << " would be admitted\n";
  return std::cout.flush() ? 0 : 2;
}
