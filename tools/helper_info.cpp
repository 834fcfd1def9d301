// helper-info FILE: what a helper was built for.
#include <iostream>

#include "cli/helper_file.h"

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: helper-info FILE\n";
    return 2;
  }
  auto helper = brimo::readHelperFile(arguments[1]);
  if (!helper) {
    std::cerr << "helper-info: " << helper.error().what() << '\n';
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
