// helper-info FILE: prints the constants that a helper was built with.
#include <iostream>
#include <string_view>

#include "cli/helper_file.h"

int main(int count, char** arguments) {
  const std::string_view argument = count == 2 ? arguments[1] : "";
  const bool isHelp = argument == "-h" || argument == "--help";
  if (count != 2 || isHelp) {
    (isHelp ? std::cout : std::cerr) << "usage: brimo-helper-info FILE\n";
    return isHelp ? 0 : 2;
  }
  auto helper = brimo::readHelperFile(arguments[1]);
  if (!helper) {
    std::cerr << "brimo-helper-info: " << helper.error().what() << '\n';
    return 1;
  }
  std::cout << "build               " << helper->build << "\nservice             " << helper->service
            << "\nclient's identifier " << helper->identifier << "\nteam                " << helper->team
            << "\nclient group        " << (helper->group.empty() ? "none" : helper->group) << '\n';
  for (const auto& [subject, sha256] : helper->roots) {
    std::cout << "root certificate    " << subject << "\nits SHA-256         " << sha256 << '\n';
  }
  return std::cout.flush() ? 0 : 1;
}
