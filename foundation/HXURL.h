// Recognises HTTP URLs. Any thread.
#pragma once

#include <string_view>

/// Whether the text begins with "http://" or "https://", ignoring case. The rest is not checked.
bool isURL(std::string_view text);

/// The same, and the text is a URL (RFC 3986) with a host.
bool isValidURL(std::string_view text);

/// Whether the text is a valid URL that begins with "http://"; "https://" does not count.
bool isValidHTTPURL(std::string_view text);
