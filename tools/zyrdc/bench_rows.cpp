// bench_rows.cpp - the primitives `zyrdc bench` measures, and how each is checked.
#include "bench_rows.hpp"

#include <algorithm>
#include <memory>

#include "checksums.hpp"
#include "common.hpp"

#if defined(ZYRDC_HAVE_LZO2)
#include <lzo/lzo1x.h>
#endif

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

// An input coded once and kept, for the decoding rows: they time the decoder alone.
struct Coded {
    const std::uint8_t* for_data = nullptr;
    std::size_t for_size = 0;
    std::vector<std::vector<std::uint8_t>> blocks;
    std::size_t total = 0;
    std::vector<std::uint8_t> out;

    template <class Encode>
    void Refresh(std::span<const std::uint8_t> in, std::size_t block_size, Encode encode) {
        if (in.data() == for_data && in.size() == for_size) return;
        blocks.clear();
        total = 0;
        for (std::size_t at = 0; at < in.size(); at += block_size) {
            blocks.push_back(encode(in.subspan(at, std::min(block_size, in.size() - at))));
            total += blocks.back().size();
        }
        out.resize(std::min(block_size, in.size()));
        for_data = in.data();
        for_size = in.size();
    }
};

// Whether every block decodes back to its part of the input.
template <class Decode>
std::string VerifyBlocks(const Coded& coded, std::span<const std::uint8_t> in, std::size_t block_size,
                         Decode decode) {
    std::vector<std::uint8_t> out(block_size);
    for (std::size_t i = 0; i < coded.blocks.size(); ++i) {
        const auto want = in.subspan(i * block_size, std::min(block_size, in.size() - i * block_size));
        const std::size_t got = decode(coded.blocks[i], std::span(out));
        if (got != want.size() || !std::equal(want.begin(), want.end(), out.begin())) {
            return "block " + std::to_string(i) + " does not decode to its input";
        }
    }
    return {};
}

#if defined(ZYRDC_HAVE_LZO2)
// LZO1X: the input in blocks of 256 KiB (lzop's size) coded by liblzo2's fast encoder.
constexpr std::size_t kLzoBlock = 256 * 1024;

std::vector<std::uint8_t> LzoEncode(std::span<const std::uint8_t> in) {
    static const int kInit = lzo_init();
    std::vector<std::uint8_t> work(LZO1X_1_MEM_COMPRESS), out(in.size() + in.size() / 16 + 67);
    lzo_uint len = out.size();
    if (kInit != LZO_E_OK || lzo1x_1_compress(in.data(), in.size(), out.data(), &len, work.data()) != LZO_E_OK) {
        throw Failure("liblzo2 could not code the input");
    }
    out.resize(len);
    return out;
}

using LzoDecoder = ZyrStatus (*)(const std::uint8_t*, std::uint32_t, std::uint8_t*, std::uint32_t*);

std::size_t LzoDecode(LzoDecoder fn, const std::vector<std::uint8_t>& block, std::span<std::uint8_t> out) {
    auto len = static_cast<std::uint32_t>(out.size());
    CheckStatus(fn(block.data(), static_cast<std::uint32_t>(block.size()), out.data(), &len), "LZO1X decoding");
    return len;
}

void AddLzoRows(std::vector<BenchRow>& rows) {
    for (const auto& [name, fn] : {std::pair{"lzo-decode", LzoDecoder{zyrsDecodeLZO_8u}},
                                   std::pair{"lzo-decode-safe", LzoDecoder{zyrsDecodeLZOSafe_8u}}}) {
        auto coded = std::make_shared<Coded>();
        const LzoDecoder decoder = fn;
        rows.push_back({name,
                        [coded, decoder](std::span<const std::uint8_t> in) {
                            coded->Refresh(in, kLzoBlock, LzoEncode);
                            for (const auto& block : coded->blocks) LzoDecode(decoder, block, coded->out);
                            return coded->total;
                        },
                        [coded, decoder](std::span<const std::uint8_t> in) {
                            coded->Refresh(in, kLzoBlock, LzoEncode);
                            return VerifyBlocks(*coded, in, kLzoBlock, [decoder](const auto& b, auto out) {
                                return LzoDecode(decoder, b, out);
                            });
                        }});
    }
}
#endif

// LZSS: the whole input in one call and a flush, through a record that lives with the row.
class Lzss {
public:
    Lzss() {
        std::int32_t size = 0;
        CheckStatus(zyrsLZSSGetSize_8u(&size), "LZSS state size");
        memory_.resize((static_cast<std::size_t>(size) + 7) / 8);
    }
    std::vector<std::uint8_t> Encode(std::span<const std::uint8_t> in) {
        std::vector<std::uint8_t> out(in.size() + in.size() / 8 + 16);  // 9 bits per byte at worst
        LzssState* st = State();
        CheckStatus(zyrsEncodeLZSSInit_8u(st), "LZSS init");
        const std::uint8_t* s = in.data();
        auto sl = static_cast<std::int32_t>(in.size());
        std::uint8_t* d = out.data();
        auto dl = static_cast<std::int32_t>(out.size());
        if (sl > 0) CheckStatus(zyrsEncodeLZSS_8u(&s, &sl, &d, &dl, st), "LZSS encoding");
        CheckStatus(zyrsEncodeLZSSFlush_8u(&d, &dl, st), "LZSS flush");
        out.resize(static_cast<std::size_t>(d - out.data()));
        return out;
    }
    std::size_t Decode(const std::vector<std::uint8_t>& coded, std::span<std::uint8_t> out) {
        LzssState* st = State();
        CheckStatus(zyrsDecodeLZSSInit_8u(st), "LZSS init");
        const std::uint8_t* s = coded.data();
        auto sl = static_cast<std::int32_t>(coded.size());
        std::uint8_t* d = out.data();
        auto dl = static_cast<std::int32_t>(out.size());
        const ZyrStatus status = zyrsDecodeLZSS_8u(&s, &sl, &d, &dl, st);
        if (status != StatusDstFull) CheckStatus(status, "LZSS decoding");  // full at the end
        return static_cast<std::size_t>(d - out.data());
    }

private:
    LzssState* State() { return reinterpret_cast<LzssState*>(memory_.data()); }
    std::vector<std::uint64_t> memory_;
};

void AddLzssRows(std::vector<BenchRow>& rows) {
    auto lzss = std::make_shared<Lzss>();
    auto coded = std::make_shared<Coded>();
    const auto encode = [lzss](std::span<const std::uint8_t> in) { return lzss->Encode(in); };
    const auto verify = [lzss, coded, encode](std::span<const std::uint8_t> in) {
        coded->Refresh(in, std::max<std::size_t>(in.size(), 1), encode);
        return VerifyBlocks(*coded, in, std::max<std::size_t>(in.size(), 1),
                            [lzss](const auto& b, auto out) { return lzss->Decode(b, out); });
    };
    rows.push_back({"lzss", [lzss](std::span<const std::uint8_t> in) { return lzss->Encode(in).size(); }, verify});
    rows.push_back({"lzss-decode",
                    [lzss, coded, encode](std::span<const std::uint8_t> in) {
                        coded->Refresh(in, std::max<std::size_t>(in.size(), 1), encode);
                        for (const auto& block : coded->blocks) lzss->Decode(block, coded->out);
                        return coded->total;
                    },
                    verify});
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
#if defined(ZYRDC_HAVE_LZO2)
    AddLzoRows(rows);
#endif
    AddLzssRows(rows);
    return rows;
}

}  // namespace zyrdc::tool
