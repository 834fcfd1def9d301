// Byte counts for people to read; a kilobyte is 1000 bytes. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// "999 B", "1 KB", "1.0 MB", "1.00 GB", "1.00 TB". The unit is chosen before the number is rounded: 999,999 bytes are
/// "1000 KB". There is no unit above TB.
std::string stringFromByteCount(std::uint64_t byteCount);

/// From KB on; the number of MB, GB and TB is as stringWithDouble() gives it. Counts below 1000 are in KB too.
std::string stringFromByteCount(std::uint64_t byteCount, std::size_t maxNumberCharacterCount);

/// With two, one or no decimals: the first that takes at most maxCharacter characters, else the last.
std::string stringWithDouble(double number, std::size_t maxCharacter);

/// stringFromByteCount() and "/s".
std::string speedStringFromByteCount(std::uint64_t byteCount);
