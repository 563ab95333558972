// bench_rows.cpp - the primitives `zyrdc bench` measures, and how each is checked.
#include "bench_rows.hpp"

#include <algorithm>

#include "bwt_blocks.hpp"
#include "checksums.hpp"
#include "common.hpp"

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

// The bzip2 block stages over the input in blocks, as `zyrdc bwt` runs them.
std::vector<BwtBlock> BwtEncode(std::span<const std::uint8_t> input) {
    std::vector<BwtBlock> blocks;
    BwtBlockEncoder encoder;
    while (!input.empty()) {
        input = input.subspan(encoder.Feed(input));
        if (encoder.Full()) blocks.push_back(encoder.Finish());
    }
    if (!encoder.Empty()) blocks.push_back(encoder.Finish());
    return blocks;
}

// Every block decodes, CRC checked, back to its part of the input.
std::string VerifyBwt(std::span<const std::uint8_t> input) {
    std::size_t at = 0;
    try {
        for (const BwtBlock& block : BwtEncode(input)) {
            const std::vector<std::uint8_t> back = DecodeBwtBlock(block);
            if (at + back.size() > input.size() ||
                !std::equal(back.begin(), back.end(), input.begin() + static_cast<std::ptrdiff_t>(at))) {
                return "block at byte " + std::to_string(at) + " does not decode to its input";
            }
            at += back.size();
        }
    } catch (const Failure& e) {
        return e.what();
    }
    return at == input.size() ? std::string() : "the blocks cover " + std::to_string(at) + " bytes";
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
    // Output size: the zero-run symbols at two bytes each (no entropy coding follows here).
    rows.push_back({"bwt",
                    [](std::span<const std::uint8_t> in) {
                        std::size_t symbols = 0;
                        for (const BwtBlock& b : BwtEncode(in)) symbols += b.symbols.size();
                        return 2 * symbols;
                    },
                    VerifyBwt});
    return rows;
}

}  // namespace zyrdc::tool
