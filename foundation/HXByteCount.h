// Byte counts for people to read; a kilobyte is 1000 bytes. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// "999 B", "1 KB", "1.0 MB", "1.00 GB", "1.00 TB". The unit is chosen before rounding, so 999,999 bytes are "1000 KB".
/// The largest unit is TB.
std::string stringFromByteCount(std::uint64_t byteCount);

/// The same with KB as the smallest unit, also for counts below 1000. stringWithDouble() writes the numbers before MB,
/// GB and TB.
std::string stringFromByteCount(std::uint64_t byteCount, std::size_t maxNumberCharacterCount);

/// The number with two decimals; with one or none if it would otherwise take more than `maxCharacter` characters.
std::string stringWithDouble(double number, std::size_t maxCharacter);

/// The result of stringFromByteCount(), followed by "/s".
std::string speedStringFromByteCount(std::uint64_t byteCount);
