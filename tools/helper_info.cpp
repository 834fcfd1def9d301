// helper-info FILE: prints the constants that a helper was built with. Reads them from the file, because the helper
// takes no arguments.
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <array>
#include <boost/json.hpp>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "platform/code_signing/linux/signature.h"

namespace json = boost::json;

namespace {

/// The JSON object after the marker; empty when the file is not a helper. Skips markers without an object, such as the
/// one in this program itself.
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
  if (count != 2) {
    std::cerr << "usage: helper-info FILE\n";
    return 2;
  }
  std::ifstream file(arguments[1], std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  auto constants = constantsOf(bytes);
  if (constants.empty()) {
    std::cerr << "helper-info: " << arguments[1] << (file ? " is not a helper\n" : " cannot be read\n");
    return 1;
  }
  auto text = [&](const char* key) { return std::string(constants.at(key).as_string()); };
  std::cout << "build               " << constants.at("build") << "\nservice             " << text("service")
            << "\nclient's identifier " << text("identifier") << "\nteam                " << text("team")
            << "\nclient group        " << (text("group").empty() ? "none" : text("group")) << '\n';
  printRoots(bytes);
}
