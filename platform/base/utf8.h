// UTF-8 validation.
#pragma once

#include <string_view>

namespace platform {

/// Whether the bytes are well-formed UTF-8 (Unicode, table 3-7): no overlong forms, no surrogates, nothing above
/// U+10FFFF.
bool isUTF8(std::string_view bytes);

}  // namespace platform
