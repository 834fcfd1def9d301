// Which texts are HTTP URLs. Any thread.
#pragma once

#include <string_view>

/// Begins with "http://" or "https://" in any case; nothing else is looked at.
bool isURL(std::string_view text);

/// The same, and a URL (RFC 3986) with a host.
bool isValidURL(std::string_view text);

/// A valid URL that begins with "http://"; "https://" does not count.
bool isValidHTTPURL(std::string_view text);
