// rows.cpp - the primitives `zyrdc bench` measures, and how each is checked.
#include "bench/rows.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "formats/bwt_container.hpp"
#include "formats/checksums.hpp"
#include "bench/sample.hpp"
#include "cli/errors.hpp"
#include "formats/deflate_writer.hpp"
#include "formats/gzip_member.hpp"
#include "formats/zfp_file.hpp"


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

// ZFP codes float volumes, so its rows run on a smooth field made to the input's size:
// 64 x 64 planes of floats, as many whole layers of 4 planes as the input's bytes fill (at
// least one layer).
constexpr std::uint32_t kFieldSide = 64;

ZfpDims FieldDims(std::size_t bytes) {
    const std::size_t layer = std::size_t{kFieldSide} * kFieldSide * 4 * sizeof(float);
    const std::size_t layers = std::max<std::size_t>(1, bytes / layer);
    return {kFieldSide, kFieldSide, static_cast<std::uint32_t>(4 * layers)};
}

std::vector<std::uint8_t> SmoothField(std::span<const std::uint8_t> input) {
    const ZfpDims d = FieldDims(input.size());
    std::vector<float> values(static_cast<std::size_t>(d.Values()));
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double x = static_cast<double>(i % d.nx), y = static_cast<double>(i / d.nx % d.ny),
                     z = static_cast<double>(i / (std::size_t{d.nx} * d.ny));
        values[i] = static_cast<float>(std::sin(x / 9) * std::cos(y / 13) + 0.5 * std::sin(z / 7 + x / 17));
    }
    std::vector<std::uint8_t> bytes(values.size() * sizeof(float));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

// A field's floats and its stream, made once per field and reused by every timed pass.
struct ZfpCase {
    const std::uint8_t* key = nullptr;
    ZfpDims dims{};
    std::vector<float> values;
    std::vector<std::uint8_t> packed;

    void Prepare(std::span<const std::uint8_t> field, const ZfpParams& params) {
        if (key == field.data() && values.size() * sizeof(float) == field.size()) return;
        key = field.data();
        dims = FieldDims(field.size());
        values.resize(field.size() / sizeof(float));
        std::memcpy(values.data(), field.data(), values.size() * sizeof(float));
        packed = ZfpCompress(values, dims, params);
    }
};

// At 16 bits per value the field comes back within 1e-4 (its values are below 1.5), in a
// stream of exactly the 12-byte header and 1024 bits per block.
std::string VerifyZfp(const ZfpCase& c) {
    const std::size_t blocks = std::size_t{c.dims.nx / 4} * (c.dims.ny / 4) * (c.dims.nz / 4);
    const std::size_t want = (12 * 8 + blocks * 1024 + 63) / 64 * 8;
    if (c.packed.size() != want) {
        return "stream of " + std::to_string(c.packed.size()) + " bytes, not " + std::to_string(want);
    }
    const ZfpVolume back = ZfpDecompress(c.packed);
    double error = 0.0;
    for (std::size_t i = 0; i < c.values.size(); ++i) {
        error = std::max(error, std::fabs(static_cast<double>(c.values[i]) - back.values[i]));
    }
    if (!(error <= 1e-4)) {
        return "largest error " + std::to_string(error) + " after a round trip";
    }
    return {};
}

void AddZfpRows(std::vector<BenchRow>& rows) {
    const ZfpParams params = ZfpRateParams(16);
    auto encode = std::make_shared<ZfpCase>(), decode = std::make_shared<ZfpCase>();
    rows.push_back({"zfp-r16",
                    [encode, params](std::span<const std::uint8_t> field) {
                        encode->Prepare(field, params);
                        return ZfpCompress(encode->values, encode->dims, params).size();
                    },
                    [encode, params](std::span<const std::uint8_t> field) {
                        encode->Prepare(field, params);
                        return VerifyZfp(*encode);
                    },
                    SmoothField});
    rows.push_back({"zfp-r16-decode",
                    [decode, params](std::span<const std::uint8_t> field) {
                        decode->Prepare(field, params);
                        ZfpDecompress(decode->packed);
                        return decode->packed.size();
                    },
                    [decode, params](std::span<const std::uint8_t> field) {
                        decode->Prepare(field, params);
                        return VerifyZfp(*decode);
                    },
                    SmoothField});
}

// A gzip file must decode, through the library's Inflate decoder, to the input with its
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

// LZO1X: the input in blocks of 256 KiB (lzop's size) coded by the library's fast method.
constexpr std::size_t kLzoBlock = 256 * 1024;

std::vector<std::uint8_t> LzoEncode(std::span<const std::uint8_t> in) {
    std::uint32_t size = 0;
    CheckStatus(zyrsEncodeLZOGetSize(LzoMethodFast, kLzoBlock, &size), "zyrsEncodeLZOGetSize");
    std::vector<std::uint32_t> state((size + 3) / 4);
    auto* record = reinterpret_cast<std::uint8_t*>(state.data());
    CheckStatus(zyrsEncodeLZOInit_8u(LzoMethodFast, kLzoBlock, record), "zyrsEncodeLZOInit_8u");
    std::vector<std::uint8_t> out(ZYRDC_LZO_BOUND(in.size()));
    auto len = static_cast<std::uint32_t>(out.size());
    CheckStatus(zyrsEncodeLZO_8u(in.data(), static_cast<std::uint32_t>(in.size()), out.data(), &len, record),
                "zyrsEncodeLZO_8u");
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
    for (const uint32_t level : {1u, 6u, 9u}) {
        rows.push_back({"gzip-" + std::to_string(level),
                        [level](std::span<const std::uint8_t> in) { return GzipBytes(in, level).size(); },
                        [level](std::span<const std::uint8_t> in) { return VerifyGzip(level, in); }});
    }
    AddLzoRows(rows);
    AddLzssRows(rows);
    AddZfpRows(rows);
    return rows;
}

}  // namespace zyrdc::tool
