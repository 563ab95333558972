// bench_rows.cpp - the primitives `zyrdc bench` measures, and how each is checked.
#include "bench_rows.hpp"

#include <algorithm>
#include <memory>

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

// LZ4: the input in blocks of up to 4 MiB, as `zyrdc lz4` writes them. Buffers and the
// hash table live as long as the row, so a timed pass allocates nothing; decoding times the
// blocks of the greedy encoder, encoded once per input.
class Lz4Rows {
public:
    static constexpr std::size_t kBlock = std::size_t{4} << 20;

    explicit Lz4Rows(int acceleration) : acceleration_(acceleration) {
        std::int32_t size = 0;
        CheckStatus(zyrsEncodeLZ4HashTableGetSize_8u(&size), "LZ4 hash table size");
        table_.resize(static_cast<std::size_t>(size));
    }

    // Total size of the blocks; `keep` receives them.
    std::size_t Encode(std::span<const std::uint8_t> in, std::vector<std::vector<std::uint8_t>>* keep) {
        block_.resize(kBlock + kBlock / 255 + 16);
        std::size_t total = 0;
        for (std::size_t at = 0; at < in.size(); at += kBlock) {
            const auto n = static_cast<std::int32_t>(std::min(kBlock, in.size() - at));
            std::int32_t len = 0;
            CheckStatus(zyrsEncodeLZ4Fast_8u(in.data() + at, n, block_.data(), &len, table_.data(),
                                             acceleration_), "LZ4 encoding");
            total += static_cast<std::size_t>(len);
            if (keep != nullptr) keep->emplace_back(block_.begin(), block_.begin() + len);
        }
        return total;
    }

    // Decodes the blocks of `in` into the internal buffer; returns their total size.
    std::size_t Decode(std::span<const std::uint8_t> in) {
        if (in.data() != cachedFor_ || in.size() != cachedSize_) {
            cached_.clear();
            Encode(in, &cached_);
            cachedFor_ = in.data();
            cachedSize_ = in.size();
            out_.resize(std::min(kBlock, in.size()));
        }
        std::size_t total = 0;
        for (const auto& block : cached_) {
            std::int32_t len = static_cast<std::int32_t>(out_.size());
            CheckStatus(zyrsDecodeLZ4_8u(block.data(), static_cast<std::int32_t>(block.size()),
                                         out_.data(), &len), "LZ4 decoding");
            total += block.size();
        }
        return total;
    }

    // The blocks of this encoder decode back to the input.
    std::string Verify(std::span<const std::uint8_t> in) {
        std::vector<std::vector<std::uint8_t>> blocks;
        Encode(in, &blocks);
        std::vector<std::uint8_t> out(kBlock);
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            const std::size_t want = std::min(kBlock, in.size() - i * kBlock);
            std::int32_t len = static_cast<std::int32_t>(out.size());
            const ZyrStatus s = zyrsDecodeLZ4_8u(blocks[i].data(), static_cast<std::int32_t>(blocks[i].size()),
                                                 out.data(), &len);
            if (s != StatusOk || static_cast<std::size_t>(len) != want ||
                !std::equal(out.begin(), out.begin() + len, in.begin() + static_cast<std::ptrdiff_t>(i * kBlock))) {
                return "block " + std::to_string(i) + " does not decode to its input (" + StatusName(s) + ")";
            }
        }
        return {};
    }

private:
    int acceleration_;
    std::vector<std::uint8_t> table_, block_, out_;
    const std::uint8_t* cachedFor_ = nullptr;
    std::size_t cachedSize_ = 0;
    std::vector<std::vector<std::uint8_t>> cached_;
};

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
    for (const auto& [name, acceleration] : {std::pair{"lz4", 1}, {"lz4-fast4", 4}}) {
        auto lz4 = std::make_shared<Lz4Rows>(acceleration);
        rows.push_back({name,
                        [lz4](std::span<const std::uint8_t> in) { return lz4->Encode(in, nullptr); },
                        [lz4](std::span<const std::uint8_t> in) { return lz4->Verify(in); }});
    }
    auto decoder = std::make_shared<Lz4Rows>(1);
    rows.push_back({"lz4-decode",
                    [decoder](std::span<const std::uint8_t> in) { return decoder->Decode(in); },
                    [decoder](std::span<const std::uint8_t> in) { return decoder->Verify(in); }});
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
