// checksums.cpp - the checksum table shared by `sum` and `bench`.
#include "formats/checksums.hpp"

#include <algorithm>

#include "cli/errors.hpp"

namespace zyrdc::tool {

namespace {

// Adler-32 and the two zip-family CRCs hold the finished value; CRC-32C holds the raw
// register, so the standard CRC-32C is its inverse.
constexpr ChecksumKind kKinds[] = {
    {"adler32", zyrsAdler32_8u, 1, 0, 0x091E01DEu},
    {"crc32", zyrsCRC32_8u, 0, 0, 0xCBF43926u},
    {"crc32c", zyrsCRC32C_8u, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xE3069283u},
    {"bzip2", zyrsCRC32_BZ2_8u, 0, 0, 0xFC891918u},
};

// Well inside the entry points' int32_t length.
constexpr std::size_t kMaxPiece = std::size_t{1} << 30;

}  // namespace

std::span<const ChecksumKind> ChecksumKinds() { return kKinds; }

const ChecksumKind* FindChecksum(std::string_view name) {
    for (const ChecksumKind& kind : kKinds) {
        if (kind.name == name) return &kind;
    }
    return nullptr;
}

std::string ChecksumNames() {
    std::string names;
    for (const ChecksumKind& kind : kKinds) {
        if (!names.empty()) names += ", ";
        names += kind.name;
    }
    return names;
}

void RunningChecksum::Update(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const std::size_t n = std::min(bytes.size(), kMaxPiece);
        CheckStatus(kind_->update(bytes.data(), static_cast<std::int32_t>(n), &held_), kind_->name);
        bytes = bytes.subspan(n);
    }
}

std::uint32_t Checksum(const ChecksumKind& kind, std::span<const std::uint8_t> bytes) {
    RunningChecksum sum(kind);
    sum.Update(bytes);
    return sum.Value();
}

}  // namespace zyrdc::tool
