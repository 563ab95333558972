// inflate_reader.cpp - Deflate decoding over the tables of zyrsInflateBuildHuffTable. The
// table layouts are the library's (see src/deflate/inflate_table.cpp for the two-level one):
//   single level  literal/length entries by the next Lmax bits; distance bytes (extra bits
//                 << 4 | length) by the next Dmax bits and their base distances 1024 bytes on;
//   two level     10-bit roots at entries 0 and 1024; an entry with a zero length field links
//                 to a second-level table (bits 4-6 its index bits, bits 7-15 its place).
#include "inflate_reader.hpp"

#include <cstring>
#include <stdexcept>
#include <string>

#include "zyrdc.h"

namespace zyrdc::tool {

namespace {

[[noreturn]] void Corrupt(const char* why) {
    throw std::runtime_error(std::string("corrupt stream: ") + why);
}

constexpr uint32_t DistBase(uint32_t d) { return d < 4 ? d + 1 : ((2 + d % 2) << (d / 2 - 1)) + 1; }
constexpr uint32_t DistExtra(uint32_t d) { return d < 4 ? 0 : d / 2 - 1; }
static_assert(DistBase(29) == 24577 && DistExtra(29) == 13);

class BitReader {
public:
    explicit BitReader(std::span<const uint8_t> in) : in_(in) {}
    uint32_t Peek(uint32_t n) {
        while (count_ < n) {
            // Past the end the stream reads as zeros; Drop refuses to use them.
            const uint64_t byte = pos_ < in_.size() ? in_[pos_] : 0;
            ++pos_;
            bits_ |= byte << count_;
            count_ += 8;
        }
        return static_cast<uint32_t>(bits_ & ((uint64_t{1} << n) - 1));
    }
    void Drop(uint32_t n) {
        bits_ >>= n;
        count_ -= n;
        if (pos_ * 8 - count_ > in_.size() * 8) Corrupt("the stream ends early");
    }
    uint32_t Take(uint32_t n) {
        const uint32_t v = Peek(n);
        Drop(n);
        return v;
    }
    void AlignToByte() { Drop(count_ % 8); }
    size_t BytePosition() const { return pos_ - count_ / 8; }  // after AlignToByte

private:
    std::span<const uint8_t> in_;
    size_t pos_ = 0;
    uint64_t bits_ = 0;
    uint32_t count_ = 0;
};

// One decoded literal/length or distance symbol, as the table entry describes it.
struct Symbol {
    uint32_t entry;  // the 16-bit table entry (single level: distance entries rebuilt alike)
    uint32_t bits;   // code length
};

class Decoder {
public:
    Decoder(BitReader& in, std::vector<uint8_t>& out) : in_(in), out_(out) {}

    void Tables(const uint16_t* lens, uint32_t nLit, uint32_t nDist, bool fixedDistances) {
        const ZyrStatus status = zyrsInflateBuildHuffTable(lens, nLit, nDist, &table_);
        if (status != StatusOk) Corrupt("invalid code lengths");
        fixedDist_ = fixedDistances;
        bytes_ = reinterpret_cast<const uint8_t*>(&table_) + 40;
    }
    bool TwoLevel() const { return table_.header[2] == 1; }

    void Block() {
        for (;;) {
            const uint32_t e = LitLen();
            const uint32_t kind = (e >> 4) & 0xF;
            if (kind == 0) {
                out_.push_back(static_cast<uint8_t>(e >> 8));
            } else if (kind == 0xF) {
                return;
            } else if (kind & 8) {
                const uint32_t length = (e >> 8) + 3 + in_.Take(kind & 7);
                const uint32_t distance = Distance();
                if (distance > out_.size()) Corrupt("distance too far back");
                for (uint32_t i = 0; i < length; ++i) out_.push_back(out_[out_.size() - distance]);
            } else {
                Corrupt("invalid literal/length entry");
            }
        }
    }

private:
    uint16_t Entry(uint32_t index) const {
        uint16_t v;
        std::memcpy(&v, bytes_ + 2 * index, 2);
        return v;
    }
    // Two-level lookup from the root at entry `root`: returns the final entry, bits dropped.
    uint32_t TwoLevelLookup(uint32_t root) {
        const uint32_t bits = in_.Peek(15);
        uint32_t e = Entry(root + (bits & 1023));
        if ((e & 15) == 0) {
            const uint32_t w = (e >> 4) & 7;
            if (w == 0) Corrupt("no code has this prefix");
            e = Entry(2048 + 4 * (e >> 7) + ((bits >> 10) & ((1u << w) - 1)));
            if ((e & 15) <= 10) Corrupt("invalid second-level entry");
        }
        in_.Drop(e & 15);
        return e;
    }
    uint32_t LitLen() {
        if (TwoLevel()) return TwoLevelLookup(0);
        const uint32_t e = Entry(in_.Peek(table_.header[8]));
        if ((e & 15) == 0 || (e & 15) > table_.header[8]) Corrupt("no code has this prefix");
        in_.Drop(e & 15);
        return e;
    }
    uint32_t Distance() {
        uint32_t symbolBase, extra;
        if (fixedDist_) {
            uint32_t code = in_.Take(5), symbol = 0;
            for (int i = 0; i < 5; ++i, code >>= 1) symbol = (symbol << 1) | (code & 1);
            if (symbol >= 30) Corrupt("invalid distance symbol");
            symbolBase = DistBase(symbol);
            extra = DistExtra(symbol);
        } else if (TwoLevel()) {
            const uint32_t e = TwoLevelLookup(1024);
            symbolBase = DistBase(e >> 8);
            extra = (e >> 4) & 15;
        } else {
            const uint32_t dmax = table_.header[9];
            if (dmax == 0) Corrupt("no distance code");
            const uint32_t index = in_.Peek(dmax);
            const uint8_t* dist = bytes_ + (2u << table_.header[8]);
            const uint32_t e = dist[index];
            if ((e & 15) == 0 || (e & 15) > dmax) Corrupt("no code has this prefix");
            in_.Drop(e & 15);
            uint16_t base;
            std::memcpy(&base, dist + 1024 + 2 * index, 2);
            symbolBase = base;
            extra = e >> 4;
        }
        return symbolBase + in_.Take(extra);
    }

    BitReader& in_;
    std::vector<uint8_t>& out_;
    InflateHuffTable table_{};
    const uint8_t* bytes_ = nullptr;
    bool fixedDist_ = false;
};

// Reads a dynamic block's header: the code-length code (decoded bit by bit, it is at most
// 7 bits long), then the run-length coded lengths of both alphabets.
void DynamicHeader(BitReader& in, uint16_t* lens, uint32_t& nLit, uint32_t& nDist) {
    static constexpr uint8_t kOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    nLit = in.Take(5) + 257;
    nDist = in.Take(5) + 1;
    const uint32_t nCodeLen = in.Take(4) + 4;
    if (nLit > 286 || nDist > 30) Corrupt("too many lengths");
    uint8_t clLens[19] = {};
    for (uint32_t i = 0; i < nCodeLen; ++i) clLens[kOrder[i]] = static_cast<uint8_t>(in.Take(3));
    uint32_t count[8] = {}, first[8] = {}, offset[8] = {};
    uint8_t sorted[19];
    for (uint8_t l : clLens) ++count[l];
    count[0] = 0;
    for (uint32_t l = 1, at = 0; l < 8; ++l) {
        offset[l] = at;
        at += count[l];
    }
    for (uint32_t s = 0, fill[8] = {}; s < 19; ++s) {
        if (clLens[s]) sorted[offset[clLens[s]] + fill[clLens[s]]++] = static_cast<uint8_t>(s);
    }
    for (uint32_t l = 1, code = 0; l < 8; ++l) {
        code = (code + count[l - 1]) << 1;
        first[l] = code;
    }
    for (uint32_t i = 0; i < nLit + nDist;) {
        uint32_t code = 0, symbol = 99;
        for (uint32_t l = 1; l < 8 && symbol == 99; ++l) {
            code = (code << 1) | in.Take(1);
            if (code - first[l] < count[l]) symbol = sorted[offset[l] + code - first[l]];
        }
        if (symbol == 99) Corrupt("invalid code-length code");
        uint32_t repeat = 1, value = symbol;
        if (symbol == 16) {
            if (i == 0) Corrupt("nothing to repeat");
            value = lens[i - 1];
            repeat = 3 + in.Take(2);
        } else if (symbol > 16) {
            value = 0;
            repeat = symbol == 17 ? 3 + in.Take(3) : 11 + in.Take(7);
        }
        if (i + repeat > nLit + nDist) Corrupt("lengths overrun");
        while (repeat--) lens[i++] = static_cast<uint16_t>(value);
    }
}

}  // namespace

namespace {

// Decodes the stream at the start of `stream`; *used receives its length in whole bytes.
std::vector<uint8_t> Inflate(std::span<const uint8_t> stream, InflateStats* stats, size_t* used) {
    InflateStats local;
    InflateStats& s = stats ? *stats : local;
    std::vector<uint8_t> out;
    BitReader in(stream);
    Decoder decoder(in, out);
    for (bool last = false; !last;) {
        last = in.Take(1) != 0;
        const uint32_t type = in.Take(2);
        if (type == 0) {
            in.AlignToByte();
            const uint32_t len = in.Take(16), nlen = in.Take(16);
            if ((len ^ 0xFFFF) != nlen) Corrupt("stored length mismatch");
            for (uint32_t i = 0; i < len; ++i) out.push_back(static_cast<uint8_t>(in.Take(8)));
            ++s.storedBlocks;
        } else if (type == 1) {
            uint16_t lens[288];
            for (int i = 0; i < 288; ++i) lens[i] = i < 144 ? 8 : i < 256 ? 9 : i < 280 ? 7 : 8;
            decoder.Tables(lens, 288, 0, true);
            decoder.Block();
            ++s.fixedBlocks;
        } else if (type == 2) {
            uint16_t lens[286 + 30];
            uint32_t nLit = 0, nDist = 0;
            DynamicHeader(in, lens, nLit, nDist);
            decoder.Tables(lens, nLit, nDist, false);
            s.twoLevelBlocks += decoder.TwoLevel() ? 1 : 0;
            decoder.Block();
            ++s.dynamicBlocks;
        } else {
            Corrupt("reserved block type");
        }
    }
    in.AlignToByte();
    *used = in.BytePosition();
    return out;
}

uint32_t Le32(std::span<const uint8_t> p) {
    return p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

}  // namespace

std::vector<uint8_t> InflateRaw(std::span<const uint8_t> stream, InflateStats* stats) {
    size_t used = 0;
    return Inflate(stream, stats, &used);
}

std::vector<uint8_t> Gunzip(std::span<const uint8_t> file, InflateStats* stats) {
    std::vector<uint8_t> all;
    size_t at = 0;
    auto need = [&](size_t n) {
        if (at + n > file.size()) Corrupt("gzip member ends early");
    };
    do {
        need(10);
        if (file[at] != 0x1F || file[at + 1] != 0x8B || file[at + 2] != 8) Corrupt("not a gzip member");
        const uint8_t flags = file[at + 3];
        at += 10;
        if (flags & 4) {  // FEXTRA: a length, then that many bytes
            need(2);
            at += 2 + (file[at] | size_t{file[at + 1]} << 8);
        }
        for (int bit : {8, 16}) {  // FNAME, FCOMMENT: zero-terminated
            if (!(flags & bit)) continue;
            while (need(1), file[at++] != 0) {}
        }
        if (flags & 2) at += 2;  // FHCRC
        need(0);
        size_t used = 0;
        const std::vector<uint8_t> member = Inflate(file.subspan(at), stats, &used);
        at += used;
        need(8);
        uint32_t crc = 0;
        if (!member.empty()) zyrsCRC32_8u(member.data(), static_cast<int32_t>(member.size()), &crc);
        if (crc != Le32(file.subspan(at)) ||
            static_cast<uint32_t>(member.size()) != Le32(file.subspan(at + 4))) {
            Corrupt("CRC-32 or size mismatch");
        }
        at += 8;
        all.insert(all.end(), member.begin(), member.end());
    } while (at < file.size());
    return all;
}

}  // namespace zyrdc::tool
