// bench_rows.cpp - the primitives `zyrdc bench` measures, and how each is checked.
#include "bench_rows.hpp"

#include <algorithm>

#include "checksums.hpp"
#include "common.hpp"
#include "deflate_writer.hpp"
#include "inflate_reader.hpp"

namespace zyrdc::tool {

namespace {

// A checksum must give its check value, and the same value over the input whether fed
// whole or in uneven pieces (empty, tiny and large ones, at unaligned offsets), since `sum`
// and every stream format rely on resuming it.
std::string VerifyChecksum(const ChecksumKind& kind, std::span<const std::uint8_t> input) {
    static constexpr std::uint8_t kDigits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    const std::uint32_t check = Checksum(kind, kDigits);
    if (check != kind.check) {
        return "check value over \"123456789\" is " + Hex32(check) + ", not " + Hex32(kind.check);
    }
    const std::uint32_t whole = Checksum(kind, input);
    Rng rng(0xC0FFEEu + input.size());
    RunningChecksum pieces(kind);
    std::size_t pieces_count = 0;
    for (std::size_t at = 0; at < input.size(); ++pieces_count) {
        const std::size_t want = rng.Below(4) == 0 ? rng.Below(65) : rng.Below(64 * 1024);
        const std::size_t n = std::min(want, input.size() - at);
        pieces.Update(input.subspan(at, n));
        at += n;
    }
    if (pieces.Value() != whole) {
        return "in " + std::to_string(pieces_count) + " pieces gives " + Hex32(pieces.Value()) +
               ", whole gives " + Hex32(whole);
    }
    return {};
}

// A gzip file must decode, through the library's Inflate tables, to the input with its
// CRC-32 and size.
std::string VerifyGzip(uint32_t level, std::span<const std::uint8_t> input) {
    const std::vector<std::uint8_t> file = GzipBytes(input, level);
    try {
        if (Gunzip(file) != std::vector<std::uint8_t>(input.begin(), input.end())) {
            return "the gzip file decodes to different bytes";
        }
    } catch (const std::exception& e) {
        return e.what();
    }
    return {};
}

}  // namespace

std::vector<BenchRow> BenchRows() {
    std::vector<BenchRow> rows;
    for (const ChecksumKind& kind : ChecksumKinds()) {
        rows.push_back({std::string(kind.name),
                        [&kind](std::span<const std::uint8_t> in) {
                            Checksum(kind, in);
                            return std::size_t{0};
                        },
                        [&kind](std::span<const std::uint8_t> in) {
                            return VerifyChecksum(kind, in);
                        }});
    }
    for (const uint32_t level : {1u, 6u, 9u}) {
        rows.push_back({"gzip-" + std::to_string(level),
                        [level](std::span<const std::uint8_t> in) { return GzipBytes(in, level).size(); },
                        [level](std::span<const std::uint8_t> in) { return VerifyGzip(level, in); }});
    }
    return rows;
}

}  // namespace zyrdc::tool
