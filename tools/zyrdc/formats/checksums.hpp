// checksums.hpp - the library's four checksums under one table, with the running-value
// conventions of each (start value, and what to do to the held value before printing it).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "zyrdc.h"

namespace zyrdc::tool {

struct ChecksumKind {
    std::string_view name;
    ZyrStatus (*update)(const std::uint8_t* src, std::int32_t len, std::uint32_t* value);
    std::uint32_t start;      // held value before the first byte
    std::uint32_t final_xor;  // turns the held value into the printed one
    std::uint32_t check;      // printed value over the nine bytes "123456789"
};

// adler32, crc32, crc32c, bzip2, in that order.
std::span<const ChecksumKind> ChecksumKinds();
// Null for a name not in the table.
const ChecksumKind* FindChecksum(std::string_view name);
// "adler32, crc32, crc32c, bzip2", for messages.
std::string ChecksumNames();

// A checksum fed in pieces of any size, empty ones included (the CRC entry points refuse a
// zero length; pieces beyond the 32-bit length are split).
class RunningChecksum {
public:
    explicit RunningChecksum(const ChecksumKind& kind) : kind_(&kind), held_(kind.start) {}
    void Update(std::span<const std::uint8_t> bytes);
    std::uint32_t Value() const { return held_ ^ kind_->final_xor; }

private:
    const ChecksumKind* kind_;
    std::uint32_t held_;
};

// The printed checksum of `bytes` in one go.
std::uint32_t Checksum(const ChecksumKind& kind, std::span<const std::uint8_t> bytes);

}  // namespace zyrdc::tool
