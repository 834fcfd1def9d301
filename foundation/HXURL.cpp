#include "foundation/HXURL.h"

#include <boost/url/grammar/ci_string.hpp>
#include <boost/url/parse.hpp>

namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
  return boost::urls::grammar::ci_is_equal(text.substr(0, prefix.size()), prefix);
}

}  // namespace

bool isURL(std::string_view text) {
  return startsWith(text, "http://") || startsWith(text, "https://");
}

bool isValidURL(std::string_view text) {
  if (!isURL(text)) return false;
  auto url = boost::urls::parse_uri({text.data(), text.size()});
  if (!url || url->encoded_host().empty()) return false;
  // Boost.URL 1.81 accepts a port such as "8x" and takes the "x" for the path (boostorg/url issue 680).
  auto path = url->encoded_path();
  return path.empty() || path.front() == '/';
}

bool isValidHTTPURL(std::string_view text) {
  return startsWith(text, "http://") && isValidURL(text);
}
