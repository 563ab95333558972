// lz4_frame.cpp - LZ4 frames written and read block by block through the library.
#include "formats/lz4_frame.hpp"

#include <algorithm>
#include <cstring>
#include <new>

#include "cli/errors.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_XXHASH)
#include <xxhash.h>
#endif

namespace zyrdc::tool {

#if defined(ZYRDC_HAVE_XXHASH)

namespace {

constexpr std::uint32_t kFrameMagic = 0x184D2204;
constexpr std::uint32_t kLegacyMagic = 0x184C2102;
constexpr std::uint32_t kSkippableMagic = 0x184D2A50;  // the low 4 bits are free
constexpr std::uint32_t kSkippableMask = 0xFFFFFFF0;
// Frame descriptor: FLG byte, then BD byte.
constexpr std::uint8_t kVersionMask = 0xC0, kVersion1 = 0x40;
constexpr std::uint8_t kIndependent = 0x20, kBlockChecksum = 0x10, kContentSize = 0x08,
                       kContentChecksum = 0x04, kFlagReserved = 0x02, kDictId = 0x01;
constexpr std::uint8_t kBdReserved = 0x8F;
constexpr int kMinBlockId = 4;  // 64 KiB
constexpr std::uint32_t kStoredBit = 0x80000000;     // block size field: stored, not coded
// Linked blocks may refer back this far into earlier blocks.
constexpr std::size_t kWindow = std::size_t{64} << 10;
constexpr std::size_t kLegacyBlock = std::size_t{8} << 20;
// Decoded blocks get this much capacity beyond the block maximum, so that a block ending
// near the maximum is not taken for one that ran out of room.
constexpr std::size_t kDecodeSlack = 8;
std::size_t BlockMax(int id) { return std::size_t{1} << (8 + 2 * id); }
// Worst case of an encoded block, as the header documents for the encoders.
std::size_t EncodedBound(std::size_t n) { return n + n / 255 + 16; }

void PutLe32(const WriteFn& out, std::uint32_t v) {
    std::uint8_t b[4];
    StoreLe(b, v, 4);
    out(b);
}

// Header checksum: the second byte of the xxHash32 of the descriptor.
std::uint8_t HeaderChecksum(const std::uint8_t* descriptor, std::size_t n) {
    return static_cast<std::uint8_t>(XXH32(descriptor, n, 0) >> 8);
}

class ContentHash {
public:
    ContentHash() : state_(XXH32_createState()) {
        if (state_ == nullptr) throw std::bad_alloc();
        XXH32_reset(state_, 0);
    }
    ~ContentHash() { XXH32_freeState(state_); }
    ContentHash(const ContentHash&) = delete;
    ContentHash& operator=(const ContentHash&) = delete;
    void Update(const std::uint8_t* p, std::size_t n) { XXH32_update(state_, p, n); }
    std::uint32_t Digest() const { return XXH32_digest(state_); }

private:
    XXH32_state_t* state_;
};

// ---- writing ----------------------------------------------------------------------------

// The frame's dictionary ID: the xxHash32 of the dictionary's bytes.
std::uint32_t DictionaryId(const std::vector<std::uint8_t>& dict) { return XXH32(dict.data(), dict.size(), 0); }

// Codes blocks one after the other. The history (dictionary or, for linked blocks, the
// last 64 KiB of input) sits right before the block in one buffer: the high-compression
// levels code the block with zyrsEncodeLZ4HCDictLimit_8u over that buffer, the others
// with the dictionary encoders after hashing the history.
class BlockCoder {
public:
    explicit BlockCoder(const Lz4FrameSettings& s)
        : s_(s), max_(BlockMax(s.blockId)), buf_(kWindow + max_), dst_(EncodedBound(max_)) {
        std::int32_t size = 0;
        CheckStatus(zyrsEncodeLZ4HashTableGetSize_8u(&size), "hash table size");
        table_.resize(static_cast<std::size_t>(size));
        if (s.level >= kLz4FirstHcLevel) {
            CheckStatus(zyrsEncodeLZ4HCHashTableGetSize_8u(&size), "record size");
            record_.resize(static_cast<std::size_t>(size));
            CheckStatus(zyrsEncodeLZ4HCHashTableInit_8u(record_.data()), "record init");
        }
        dictHistory_ = std::min(kWindow, s.dict.size());
        if (dictHistory_ != 0) {
            std::memcpy(buf_.data() + kWindow - dictHistory_, s.dict.data() + s.dict.size() - dictHistory_, dictHistory_);
        }
        history_ = dictHistory_;
    }
    std::size_t blockMax() const { return max_; }
    // Where the next block's bytes go.
    std::uint8_t* block() { return buf_.data() + kWindow; }

    // Codes the n bytes at block(); returns the coded block, empty if it did not shrink.
    std::span<const std::uint8_t> Code(std::size_t n) {
        if (!s_.linked) history_ = dictHistory_;  // every independent block starts from the dictionary
        const auto len = static_cast<std::int32_t>(n);
        std::int32_t coded = static_cast<std::int32_t>(dst_.size());
        const std::uint8_t* const hist = block() - history_;
        if (s_.level >= kLz4FirstHcLevel) {
            std::int32_t srcLen = len;
            CheckStatus(history_ == 0
                            ? zyrsEncodeLZ4HC_8u(block(), &srcLen, dst_.data(), &coded, record_.data(), s_.level)
                            : zyrsEncodeLZ4HCDictLimit_8u(hist, static_cast<std::int32_t>(history_), &srcLen, dst_.data(),
                                                          &coded, record_.data(), s_.level, 0),
                        "LZ4 block encoding");
        } else if (history_ != 0) {
            const auto h = static_cast<std::int32_t>(history_);
            CheckStatus(zyrsEncodeLZ4LoadDict_8u(hist, h, table_.data()), "LZ4 dictionary");
            CheckStatus(zyrsEncodeLZ4Dict_8u(block(), len, dst_.data(), &coded, table_.data(), hist, h),
                        "LZ4 block encoding");
        } else {
            CheckStatus(s_.acceleration == 1
                            ? zyrsEncodeLZ4_8u(block(), len, dst_.data(), &coded, table_.data())
                            : zyrsEncodeLZ4Fast_8u(block(), len, dst_.data(), &coded, table_.data(), s_.acceleration),
                        "LZ4 block encoding");
        }
        if (s_.linked) {  // keep the last 64 KiB right before the next block
            const std::size_t keep = std::min(kWindow, history_ + n);
            std::memmove(block() - keep, block() + n - keep, keep);
            history_ = keep;
        }
        if (coded >= len) return {};
        return std::span(dst_).first(static_cast<std::size_t>(coded));
    }

private:
    const Lz4FrameSettings& s_;
    std::size_t max_;
    std::vector<std::uint8_t> buf_, dst_, table_, record_;
    std::size_t dictHistory_ = 0, history_ = 0;
};

// Reads a whole block's worth unless the input ends.
std::size_t ReadBlock(const ReadFn& in, std::uint8_t* p, std::size_t n) {
    return ReadFull(in, std::span(p, n));
}

void Compress(const ReadFn& in, const WriteFn& out, const Lz4FrameSettings& settings,
              std::optional<std::uint64_t> size) {
    BlockCoder coder(settings);
    std::uint8_t header[4 + 2 + 8 + 4 + 1] = {0x04, 0x22, 0x4D, 0x18};
    std::uint8_t flg = kVersion1 | kContentChecksum;
    if (!settings.linked) flg |= kIndependent;
    std::size_t length = 2;
    if (size) {
        flg |= kContentSize;
        for (int i = 0; i < 8; ++i) header[6 + i] = static_cast<std::uint8_t>(*size >> (8 * i));
        length += 8;
    }
    if (!settings.dict.empty()) {
        flg |= kDictId;
        const std::uint32_t id = DictionaryId(settings.dict);
        for (int i = 0; i < 4; ++i) header[4 + length + i] = static_cast<std::uint8_t>(id >> (8 * i));
        length += 4;
    }
    header[4] = flg;
    header[5] = static_cast<std::uint8_t>(settings.blockId << 4);
    header[4 + length] = HeaderChecksum(header + 4, length);
    out(std::span(header, 4 + length + 1));
    ContentHash content;
    while (const std::size_t got = ReadBlock(in, coder.block(), coder.blockMax())) {
        content.Update(coder.block(), got);
        const std::span<const std::uint8_t> coded = coder.Code(got);
        // A block that did not shrink is stored as it is (the coder keeps its history).
        if (!coded.empty()) {
            PutLe32(out, static_cast<std::uint32_t>(coded.size()));
            out(coded);
        } else {
            PutLe32(out, static_cast<std::uint32_t>(got) | kStoredBit);
            out(std::span<const std::uint8_t>(coder.block(), got));
        }
    }
    PutLe32(out, 0);
    PutLe32(out, content.Digest());
}

// The legacy format: the magic number, then blocks of 8 MiB, each its coded size and the
// coded bytes (always coded, never stored), no checksum, no end mark.
void CompressLegacy(const ReadFn& in, const WriteFn& out, const Lz4FrameSettings& settings) {
    std::vector<std::uint8_t> src(kLegacyBlock), dst(EncodedBound(kLegacyBlock)), table, record;
    std::int32_t size = 0;
    CheckStatus(zyrsEncodeLZ4HashTableGetSize_8u(&size), "hash table size");
    table.resize(static_cast<std::size_t>(size));
    if (settings.level >= kLz4FirstHcLevel) {
        CheckStatus(zyrsEncodeLZ4HCHashTableGetSize_8u(&size), "record size");
        record.resize(static_cast<std::size_t>(size));
        CheckStatus(zyrsEncodeLZ4HCHashTableInit_8u(record.data()), "record init");
    }
    PutLe32(out, kLegacyMagic);
    while (const std::size_t got = ReadFull(in, src)) {
        std::int32_t len = static_cast<std::int32_t>(got), coded = static_cast<std::int32_t>(dst.size());
        CheckStatus(settings.level >= kLz4FirstHcLevel
                        ? zyrsEncodeLZ4HC_8u(src.data(), &len, dst.data(), &coded, record.data(), settings.level)
                        : zyrsEncodeLZ4Fast_8u(src.data(), len, dst.data(), &coded, table.data(), settings.acceleration),
                    "LZ4 block encoding");
        PutLe32(out, static_cast<std::uint32_t>(coded));
        out(std::span(dst).first(static_cast<std::size_t>(coded)));
    }
}

// ---- reading ----------------------------------------------------------------------------

class Reader {
public:
    Reader(const ReadFn& in, const std::string& name) : in_(in), name_(name) {}
    // False at the end of the input; a partial read is a truncated frame.
    bool ReadOrEnd(std::uint8_t* p, std::size_t n) {
        const std::size_t got = ReadFull(in_, std::span(p, n));
        if (got != 0 && got != n) Truncated();
        return got == n;
    }
    void Read(std::uint8_t* p, std::size_t n) {
        if (n != 0 && !ReadOrEnd(p, n)) Truncated();
    }
    void Skip(std::uint64_t n) {
        std::uint8_t piece[4096];
        for (; n > 0; n -= std::min<std::uint64_t>(n, sizeof piece)) {
            Read(piece, static_cast<std::size_t>(std::min<std::uint64_t>(n, sizeof piece)));
        }
    }
    std::uint32_t Read32() {
        std::uint8_t b[4];
        Read(b, 4);
        return LoadLe32(b);
    }
    [[noreturn]] void Corrupt(const std::string& what) const { throw Failure(name_ + ": " + what); }
    [[noreturn]] void Truncated() const { Corrupt("truncated LZ4 frame"); }

private:
    const ReadFn& in_;
    const std::string& name_;
};

// Decodes one block into `out` (with `history` bytes of earlier output right before it when
// blocks are linked); returns the bytes decoded.
std::size_t DecodeBlock(Reader& r, const std::vector<std::uint8_t>& block, std::size_t n,
                        std::uint8_t* out, std::size_t history, std::size_t max) {
    std::int32_t consumed = static_cast<std::int32_t>(n);
    std::int32_t written = static_cast<std::int32_t>(max + kDecodeSlack);
    const ZyrStatus s = zyrsDecodeLZ4Dict_8u(block.data(), &consumed, out, 0, &written,
                                             history != 0 ? out - history : nullptr,
                                             static_cast<std::int32_t>(history));
    if (s != StatusOk || consumed != static_cast<std::int32_t>(n) ||
        static_cast<std::size_t>(written) > max) {
        r.Corrupt("corrupt LZ4 block (" + (s != StatusOk ? StatusName(s) : "wrong length") + ")");
    }
    return static_cast<std::size_t>(written);
}

// Where decoded bytes go: a file, or nowhere when only testing.
using Sink = WriteFn;

void DecodeFrame(Reader& r, const Sink& out, const std::vector<std::uint8_t>& dict) {
    std::uint8_t descriptor[14];
    r.Read(descriptor, 2);
    const std::uint8_t flg = descriptor[0], bd = descriptor[1];
    const int blockId = (bd >> 4) & 7;
    if ((flg & kVersionMask) != kVersion1 || (flg & kFlagReserved) != 0 || (bd & kBdReserved) != 0 ||
        blockId < kMinBlockId) {
        r.Corrupt("unsupported or corrupt LZ4 frame descriptor");
    }
    const std::size_t length = 2 + ((flg & kContentSize) != 0 ? 8 : 0) + ((flg & kDictId) != 0 ? 4 : 0);
    r.Read(descriptor + 2, length - 2);
    std::uint8_t check;
    r.Read(&check, 1);
    if (check != HeaderChecksum(descriptor, length)) r.Corrupt("LZ4 frame header checksum mismatch");
    if ((flg & kDictId) != 0 && dict.empty()) r.Corrupt("the LZ4 frame needs a dictionary (-D FILE)");

    const std::size_t max = BlockMax(blockId);
    const bool linked = (flg & kIndependent) == 0;
    std::vector<std::uint8_t> block(max), window(kWindow + max + kDecodeSlack);
    std::uint8_t* const dest = window.data() + kWindow;
    // A dictionary is the history of every independent block and of the first linked one.
    const std::size_t dictHistory = std::min(kWindow, dict.size());
    std::size_t history = dictHistory;
    std::uint64_t total = 0;
    ContentHash content;
    while (const std::uint32_t field = r.Read32()) {
        const std::size_t n = field & ~kStoredBit;
        if (n > max) r.Corrupt("LZ4 block larger than the frame allows");
        r.Read(block.data(), n);
        if ((flg & kBlockChecksum) != 0 && r.Read32() != XXH32(block.data(), n, 0)) {
            r.Corrupt("LZ4 block checksum mismatch");
        }
        std::size_t produced = n;
        if (!linked && dictHistory != 0) {
            std::memcpy(dest - dictHistory, dict.data() + dict.size() - dictHistory, dictHistory);
        }
        if (history == dictHistory && dictHistory != 0 && total == 0) {
            std::memcpy(dest - dictHistory, dict.data() + dict.size() - dictHistory, dictHistory);
        }
        if ((field & kStoredBit) != 0) {
            std::memcpy(dest, block.data(), n);
        } else {
            produced = DecodeBlock(r, block, n, dest, linked ? history : dictHistory, max);
        }
        content.Update(dest, produced);
        out(std::span<const std::uint8_t>(dest, produced));
        total += produced;
        if (linked) {  // keep the last 64 KiB right before the next block
            const std::size_t keep = std::min(kWindow, history + produced);
            std::memmove(dest - keep, dest + produced - keep, keep);
            history = keep;
        }
    }
    if ((flg & kContentChecksum) != 0 && r.Read32() != content.Digest()) {
        r.Corrupt("LZ4 content checksum mismatch");
    }
    std::uint64_t declared = 0;
    for (int i = 7; i >= 0 && (flg & kContentSize) != 0; --i) declared = declared << 8 | descriptor[2 + i];
    if ((flg & kContentSize) != 0 && declared != total) r.Corrupt("LZ4 content size mismatch");
}

bool IsMagic(std::uint32_t v) {
    return v == kFrameMagic || v == kLegacyMagic || (v & kSkippableMask) == kSkippableMagic;
}

// Legacy frames: independent blocks of up to 8 MiB, no checksums, ending at the end of the
// input or at the next frame's magic number (returned through `next`).
bool DecodeLegacy(Reader& r, const Sink& out, std::uint32_t& next) {
    std::vector<std::uint8_t> block(EncodedBound(kLegacyBlock)), dest(kLegacyBlock + kDecodeSlack);
    for (;;) {
        std::uint8_t b[4];
        if (!r.ReadOrEnd(b, 4)) return false;
        const std::uint32_t n = LoadLe32(b);
        if (IsMagic(n)) {
            next = n;
            return true;
        }
        if (n > block.size()) r.Corrupt("LZ4 block larger than the legacy format allows");
        r.Read(block.data(), n);
        out(std::span<const std::uint8_t>(dest.data(), DecodeBlock(r, block, n, dest.data(), 0, kLegacyBlock)));
    }
}

void Decompress(const ReadFn& in, const Sink& out, const std::vector<std::uint8_t>& dict, const std::string& name) {
    Reader r(in, name);
    std::uint32_t magic = 0;
    bool have = false;  // a magic number already read by a legacy frame
    for (int frames = 0;; ++frames) {
        if (!have) {
            std::uint8_t b[4];
            if (!r.ReadOrEnd(b, 4)) {
                if (frames == 0) r.Corrupt("empty input, no LZ4 frame");
                return;
            }
            magic = LoadLe32(b);
        }
        have = false;
        if (magic == kFrameMagic) {
            DecodeFrame(r, out, dict);
        } else if (magic == kLegacyMagic) {
            have = DecodeLegacy(r, out, magic);
        } else if ((magic & kSkippableMask) == kSkippableMagic) {
            r.Skip(r.Read32());
        } else {
            r.Corrupt(frames == 0 ? "not in the LZ4 frame format" : "unknown data after the last LZ4 frame");
        }
    }
}

}  // namespace

bool Lz4FramesAvailable() { return true; }

void Lz4FrameCompress(const ReadFn& read, const WriteFn& write, const Lz4FrameSettings& settings,
                      std::optional<std::uint64_t> size) {
    if (settings.legacy) {
        CompressLegacy(read, write, settings);
    } else {
        Compress(read, write, settings, size);
    }
}

void Lz4FrameDecompress(const ReadFn& read, const WriteFn& write, const std::vector<std::uint8_t>& dict,
                        const std::string& name) {
    Decompress(read, write ? write : WriteFn([](std::span<const std::uint8_t>) {}), dict, name);
}

#else

namespace {

[[noreturn]] void Unavailable() {
    throw Failure("this zyrdc was built without libxxhash, which LZ4 frames need");
}

}  // namespace

bool Lz4FramesAvailable() { return false; }

void Lz4FrameCompress(const ReadFn&, const WriteFn&, const Lz4FrameSettings&, std::optional<std::uint64_t>) {
    Unavailable();
}

void Lz4FrameDecompress(const ReadFn&, const WriteFn&, const std::vector<std::uint8_t>&, const std::string&) {
    Unavailable();
}

#endif

}  // namespace zyrdc::tool
