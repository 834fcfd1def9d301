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
  return url && !url->encoded_host().empty();
}

bool isValidHTTPURL(std::string_view text) {
  return startsWith(text, "http://") && isValidURL(text);
}
