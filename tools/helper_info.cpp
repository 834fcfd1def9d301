// helper-info FILE: what a helper was built for, read from its bytes: the helper itself looks at no arguments.
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <array>
#include <boost/json.hpp>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string_view>

#include "platform/code_signing/linux/signature.h"

namespace json = boost::json;

namespace {

/// The JSON object behind its marker; empty when the file is no helper. This program has the marker in its own bytes,
/// too, but no object behind it.
json::object constantsOf(const std::string& bytes) {
  constexpr std::string_view marker = "BRHHelperInfo {";
  for (auto at = bytes.find(marker); at != bytes.npos; at = bytes.find(marker, at + 1)) {
    auto start = at + marker.size() - 1, end = bytes.find('}', start);
    boost::system::error_code error;
    if (end == bytes.npos) break;
    auto value = json::parse(std::string_view(bytes).substr(start, end + 1 - start), error);
    if (!error && value.is_object()) return value.get_object();
  }
  return {};
}

void printRoots(const std::string& bytes) {
  constexpr std::string_view begin = "-----BEGIN CERTIFICATE-----\nMII";
  for (auto at = bytes.find(begin); at != bytes.npos; at = bytes.find(begin, at + 1)) {
    std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new_mem_buf(bytes.data() + at, -1), BIO_free);
    std::unique_ptr<X509, decltype(&X509_free)> root(PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr),
                                                     X509_free);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned length = 0;
    if (!root || X509_digest(root.get(), EVP_sha256(), digest.data(), &length) != 1) continue;
    std::cout << "root certificate    " << platform::code_signing::subjectOf(*root) << "\nits SHA-256         ";
    for (unsigned index = 0; index < length; ++index) {
      constexpr char digits[] = "0123456789abcdef";
      std::cout << digits[digest[index] >> 4] << digits[digest[index] & 15];
    }
    std::cout << '\n';
  }
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view argument = count == 2 ? arguments[1] : "";
  const bool isHelp = argument == "-h" || argument == "--help";
  if (count != 2 || isHelp) {
    (isHelp ? std::cout : std::cerr) << "usage: brimo-helper-info FILE\n";
    return isHelp ? 0 : 2;
  }
  std::ifstream file(arguments[1], std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  auto constants = constantsOf(bytes);
  if (constants.empty()) {
    std::cerr << "brimo-helper-info: " << arguments[1] << (file ? " is no helper\n" : " cannot be read\n");
    return 1;
  }
  auto text = [&](const char* key) { return std::string(constants.at(key).as_string()); };
  std::cout << "build               " << constants.at("build") << "\nservice             " << text("service")
            << "\nclient's identifier " << text("identifier") << "\nteam                " << text("team")
            << "\nclient group        " << (text("group").empty() ? "none" : text("group")) << '\n';
  printRoots(bytes);
}
