// deflate_writer.cpp - the writer's policy over the library: where blocks end (a cost
// estimate per sub-block of matcher output), which block type each one gets, and gzip
// framing. Codes come from zyrsDeflateLZ77FastestGenHuffTable_8u, headers from
// ...PrecompHeader_8u and ...GenHeader_8u, bodies from zyrsDeflateHuff_8u; level 1 runs the
// single-pass zyrsDeflateLZ77Fastest_8u with codes from a sample of each block.
#include "formats/deflate_writer.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

namespace zyrdc::tool {

namespace {

constexpr uint32_t kWindow = 32768;              // the format's largest window
constexpr size_t kInputChunk = size_t{1} << 20;  // input held ahead of the window
constexpr size_t kWindowBytes = kWindow + kInputChunk;
// The matcher fills sub-blocks of this many entries (its 16-bit counts cannot wrap); each one
// then joins the current block or starts a new one, whichever the cost estimate prefers.
constexpr int32_t kSubBlockEntries = 1024;
static_assert(kSubBlockEntries < 65536, "frequency counts are 16-bit");
constexpr int32_t kMaxBlockEntries = 65536;  // a block ends here whatever the estimate says
constexpr uint32_t kMaxStored = 65535;           // bytes of one stored block

constexpr int kNumLitLen = 286, kNumDist = 30;
constexpr int kEndOfBlock = 256;
// Extra bits of the length and distance codes, for the size estimates.
constexpr uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                      2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr uint8_t kDistExtra[kNumDist] = {0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6,
                                          6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
// The single-pass level: blocks of this much input, codes from a sample at their start.
constexpr uint32_t kFastestLevel = 1;
constexpr size_t kFastestBlock = size_t{256} << 10;
constexpr int32_t kFastestSample = 16384;
constexpr uint32_t kFastestHash = 16384;

void Check(ZyrStatus status, const char* what) {
    if (status != StatusOk) {
        throw std::runtime_error(std::string(what) + " returned status " + std::to_string(status));
    }
}

// Bits of the symbols counted, coded with the given codes, extra bits included.
uint64_t CodedBits(const uint32_t* lit, const uint32_t* dist, const HuffCodeEntry* lc, const HuffCodeEntry* dc) {
    uint64_t bits = 0;
    for (int s = 0; s < kNumLitLen; ++s) {
        bits += uint64_t{lit[s]} * (lc[s].len + (s > kEndOfBlock ? kLengthExtra[s - kEndOfBlock - 1] : 0));
    }
    for (int s = 0; s < kNumDist; ++s) bits += uint64_t{dist[s]} * (dc[s].len + kDistExtra[s]);
    return bits;
}

struct FixedCodes {
    HuffCodeEntry lit[kNumLitLen], dist[kNumDist];
    DeflateBlockHeader header, stored;
    FixedCodes() {
        const uint32_t none[kNumLitLen] = {};
        Check(zyrsDeflateLZ77FastestGenHuffTable_8u(none, none, DeflateCodesFixed, lit, dist), "GenHuffTable");
        Check(zyrsDeflateLZ77FastestPrecompHeader_8u(DeflateBlockFixed, lit, dist, &header), "PrecompHeader");
        Check(zyrsDeflateLZ77FastestPrecompHeader_8u(DeflateBlockStored, lit, dist, &stored), "PrecompHeader");
    }
};
const FixedCodes& Fixed() {
    static const FixedCodes codes;
    return codes;
}

// c log2 c: from a table for small counts, above it from the leading bit and 8 bits below it
// (within 0.006 bits of log2 c, plenty for an estimate).
struct CountLog {
    static constexpr uint32_t kTable = 4096;
    float table[kTable + 1];
    float fraction[256];  // log2(1 + i / 256)
    CountLog() {
        table[0] = 0;
        for (uint32_t c = 1; c <= kTable; ++c) table[c] = static_cast<float>(c * std::log2(c));
        for (int i = 0; i < 256; ++i) fraction[i] = static_cast<float>(std::log2(1 + i / 256.0));
    }
    double operator()(uint64_t c) const {
        if (c <= kTable) return table[c];
        const int e = 63 - __builtin_clzll(c);
        return static_cast<double>(c) * (e + fraction[(c >> (e - 8)) & 0xFF]);
    }
};
const CountLog& CLogC() {
    static const CountLog table;
    return table;
}

// The sums of the next sub-block (b) alone and of the block so far (a) with it. Only symbols
// the sub-block uses change the block's sums, so the others are not visited.
void SumEntropy(const uint32_t* a, const uint32_t* b, int n, const EntropySums& block, EntropySums& sub,
                EntropySums& both) {
    const CountLog& clogc = CLogC();
    both = block;
    for (int i = 0; i < n; ++i) {
        if (b[i] == 0) continue;
        sub.n += b[i];
        sub.s += clogc(b[i]);
        both.n += b[i];
        both.s += clogc(a[i] + b[i]) - clogc(a[i]);
    }
}

// Rough size of a dynamic block header: the code-length code and about three bits for each
// symbol length sent (runs of equal lengths and of zeros make many of them cheaper).
double HeaderBits(const uint32_t* lit, const uint32_t* dist) {
    int used = 0;
    for (int s = 0; s < kNumLitLen; ++s) used += lit[s] != 0;
    for (int s = 0; s < kNumDist; ++s) used += dist[s] != 0;
    return 45 + 3.0 * used;
}

}  // namespace

// Bits to code counts by a code fitted to them: N log2 N - sum of c log2 c.
double EntropySums::Bits() const { return CLogC()(n) - s; }

// ---- ByteBuffer --------------------------------------------------------------------------

uint8_t* ByteBuffer::Reserve(size_t extra) {
    if (size_ + extra > capacity_) {
        const size_t capacity = std::max(size_ + extra, capacity_ * 2 + 4096);
        std::unique_ptr<uint8_t[]> grown(new uint8_t[capacity]);
        if (size_ != 0) std::memcpy(grown.get(), data_.get(), size_);
        data_ = std::move(grown);
        capacity_ = capacity;
    }
    return data_.get() + size_;
}

void ByteBuffer::Append(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return;
    std::memcpy(Reserve(bytes.size()), bytes.data(), bytes.size());
    size_ += bytes.size();
}

// ---- DeflateWriter -------------------------------------------------------------------------

DeflateWriter::DeflateWriter(uint32_t level)
    : level_(level),
      hashSize_(32768),
      window_(new uint8_t[kWindow + kInputChunk]),  // not cleared: only written bytes are read
      head_(level == kFastestLevel ? kFastestHash : hashSize_, -32768),
      prev_(level == kFastestLevel ? 0 : kWindow, -32768),
      scratch_(level == kFastestLevel ? kFastestHash : 0),
      lit_(kMaxBlockEntries + kSubBlockEntries),
      dist_(kMaxBlockEntries + kSubBlockEntries) {
    if (level >= kDeflateLevels) throw std::runtime_error("Deflate level out of range");
}

void DeflateWriter::Write(std::span<const uint8_t> input) {
    while (!input.empty()) {
        if (fill_ == kWindowBytes) {
            if (level_ == kFastestLevel) {
                while (fill_ - next_ > kFastestBlock) FastestBlock(kFastestBlock, false);
            } else {
                Match(false);
            }
            MakeRoom();
        }
        const size_t n = std::min(input.size(), kWindowBytes - fill_);
        std::memcpy(window_.get() + fill_, input.data(), n);
        fill_ += n;
        input = input.subspan(n);
    }
}

void DeflateWriter::Finish() {
    if (level_ == kFastestLevel) {
        while (fill_ - next_ > kFastestBlock) FastestBlock(kFastestBlock, false);
        FastestBlock(fill_ - next_, true);
    } else {
        Match(true);
        CloseSubBlock();
        EndBlock(true);
    }
    AlignToByte();
}

// Runs the matcher over the input held, a sub-block at a time. Below a full flush the
// matcher keeps its last bytes back for the next round.
void DeflateWriter::Match(bool flushAll) {
    for (;;) {
        const uint8_t* start = window_.get() + next_;
        const uint8_t* src = start;
        int32_t len = static_cast<int32_t>(fill_ - next_);
        int32_t room = kSubBlockEntries - subEntries_;
        const int32_t at = entries_ + subEntries_;
        Check(zyrsDeflateLZ77_8u(&src, &len, &srcIdx_, start, kWindow, head_.data(), prev_.data(),
                                 hashSize_, subLit_.data(), subDist_.data(), lit_.data() + at,
                                 dist_.data() + at, &room, level_, flushAll ? 2 : 0),
              "zyrsDeflateLZ77_8u");
        next_ += static_cast<size_t>(src - start);
        subEntries_ = kSubBlockEntries - room;
        if (room > 1) return;  // the matcher stopped for want of input, not of room
        CloseSubBlock();
    }
}

// The open sub-block joins the block, or the block ends before it when coding the two apart
// (with one more header) is estimated to take fewer bits than coding them together.
void DeflateWriter::CloseSubBlock() {
    if (subEntries_ == 0) return;
    uint32_t subLit[kNumLitLen], subDist[kNumDist], allLit[kNumLitLen], allDist[kNumDist];
    for (int s = 0; s < kNumLitLen; ++s) {
        subLit[s] = subLit_[s].code;
        allLit[s] = blockLit_[s] + subLit[s];
    }
    for (int s = 0; s < kNumDist; ++s) {
        subDist[s] = subDist_[s].code;
        allDist[s] = blockDist_[s] + subDist[s];
    }
    bool split = entries_ + subEntries_ > kMaxBlockEntries;
    EntropySums sub[2], both[2];
    SumEntropy(blockLit_.data(), subLit, kNumLitLen, blockSums_[0], sub[0], both[0]);
    SumEntropy(blockDist_.data(), subDist, kNumDist, blockSums_[1], sub[1], both[1]);
    if (entries_ > 0 && !split) {
        const double apart = blockSums_[0].Bits() + blockSums_[1].Bits() + sub[0].Bits() + sub[1].Bits() +
                             HeaderBits(subLit, subDist);
        split = apart < both[0].Bits() + both[1].Bits();
    }
    if (entries_ > 0 && split) {
        const int32_t from = entries_;
        EndBlock(false);
        std::copy_n(lit_.begin() + from, subEntries_, lit_.begin());
        std::copy_n(dist_.begin() + from, subEntries_, dist_.begin());
        std::copy(subLit, subLit + kNumLitLen, blockLit_.begin());
        std::copy(subDist, subDist + kNumDist, blockDist_.begin());
        std::copy(sub, sub + 2, blockSums_);
    } else {
        std::copy(allLit, allLit + kNumLitLen, blockLit_.begin());
        std::copy(allDist, allDist + kNumDist, blockDist_.begin());
        std::copy(both, both + 2, blockSums_);
    }
    entries_ += subEntries_;
    subEntries_ = 0;
    subLit_.fill({0, 0});
    subDist_.fill({0, 0});
    subStart_ = next_;
}

// Keeps one window of history and the unmatched input, at the front of the buffer. The
// block in progress ends first, since its bytes may leave the buffer (a stored block needs
// them).
void DeflateWriter::MakeRoom() {
    CloseSubBlock();
    if (entries_ > 0) EndBlock(false);
    const size_t keep = next_ > kWindow ? next_ - kWindow : 0;
    std::memmove(window_.get(), window_.get() + keep, fill_ - keep);
    next_ -= keep;
    fill_ -= keep;
    blockStart_ = subStart_ = next_;
}

// Appends bits (the end-of-block code, or padding) after the pending ones.
void DeflateWriter::PutBits(uint32_t value, uint32_t n) {
    uint32_t bits = pending_ | value << pendingBits_;
    pendingBits_ += n;
    for (; pendingBits_ >= 8; pendingBits_ -= 8, bits >>= 8) {
        const uint8_t byte = static_cast<uint8_t>(bits);
        out_.Append({&byte, 1});
    }
    pending_ = static_cast<uint16_t>(bits);
}

void DeflateWriter::AlignToByte() { PutBits(0, (8 - pendingBits_) % 8); }

// Appends a precomputed header; for a stored one the raw bytes follow.
void DeflateWriter::Header(const DeflateBlockHeader& h, bool last, std::span<const uint8_t> stored) {
    out_.Reserve(h.bitLen / 8 + 8);
    uint32_t index = static_cast<uint32_t>(out_.Size());
    Check(zyrsDeflateLZ77FastestGenHeader_8u(&h, last ? 1 : 0, static_cast<int32_t>(stored.size()), &pending_,
                                             &pendingBits_, out_.Data(), index + h.bitLen / 8 + 8, &index),
          "zyrsDeflateLZ77FastestGenHeader_8u");
    out_.Commit(index);
    out_.Append(stored);
}

void DeflateWriter::StoredBlocks(const uint8_t* raw, size_t size, bool last) {
    const size_t blocks = std::max<size_t>(1, (size + kMaxStored - 1) / kMaxStored);
    for (size_t b = 0; b < blocks; ++b) {
        const size_t n = std::min<size_t>(kMaxStored, size - b * kMaxStored);
        Header(Fixed().stored, last && b + 1 == blocks, {raw + b * kMaxStored, n});
    }
}

// Writes the block of entries [0, entries_) (bytes [blockStart_, subStart_)) as whichever of
// the three block types is shortest.
void DeflateWriter::EndBlock(bool last) {
    uint32_t litCounts[kNumLitLen], distCounts[kNumDist];
    std::copy(blockLit_.begin(), blockLit_.end(), litCounts);
    std::copy(blockDist_.begin(), blockDist_.end(), distCounts);
    litCounts[kEndOfBlock] = 1;
    HuffCodeEntry litCodes[kNumLitLen], distCodes[kNumDist];
    Check(zyrsDeflateLZ77FastestGenHuffTable_8u(litCounts, distCounts, DeflateCodesUsed, litCodes, distCodes),
          "zyrsDeflateLZ77FastestGenHuffTable_8u");
    DeflateBlockHeader dynamic;
    Check(zyrsDeflateLZ77FastestPrecompHeader_8u(DeflateBlockDynamic, litCodes, distCodes, &dynamic),
          "zyrsDeflateLZ77FastestPrecompHeader_8u");

    const uint64_t dynamicBits = dynamic.bitLen + CodedBits(litCounts, distCounts, litCodes, distCodes);
    const uint64_t fixedBits = 3 + CodedBits(litCounts, distCounts, Fixed().lit, Fixed().dist);
    const size_t rawBytes = subStart_ - blockStart_;
    const uint64_t storedBlocks = std::max<uint64_t>(1, (rawBytes + kMaxStored - 1) / kMaxStored);
    const uint64_t storedBits = storedBlocks * (3 + 7 + 32) + 8 * uint64_t{rawBytes};

    if (storedBits < std::min(dynamicBits, fixedBits)) {
        StoredBlocks(window_.get() + blockStart_, rawBytes, last);
    } else {
        const bool fixed = fixedBits <= dynamicBits;
        const HuffCodeEntry* lc = fixed ? Fixed().lit : litCodes;
        const HuffCodeEntry* dc = fixed ? Fixed().dist : distCodes;
        Header(fixed ? Fixed().header : dynamic, last, {});
        out_.Reserve(6 * static_cast<size_t>(entries_) + 8);
        uint32_t index = static_cast<uint32_t>(out_.Size());
        Check(zyrsDeflateHuff_8u(lit_.data(), dist_.data(), static_cast<uint32_t>(entries_), &pending_, &pendingBits_,
                                 lc, dc, out_.Data(), &index),
              "zyrsDeflateHuff_8u");
        out_.Commit(index);
        PutBits(lc[kEndOfBlock].code, lc[kEndOfBlock].len);
    }
    blockLit_.fill(0);
    blockDist_.fill(0);
    blockSums_[0] = blockSums_[1] = {};
    entries_ = 0;
    blockStart_ = subStart_;
}

// The single-pass level: each block of input gets codes for every symbol from a sample at
// its start (or the fixed code where that is estimated shorter) and is coded in one call;
// a block that does not shrink goes out stored instead.
void DeflateWriter::FastestBlock(size_t size, bool last) {
    const uint8_t* src = window_.get() + next_;
    uint32_t lit[kNumLitLen] = {}, dist[kNumDist] = {};
    if (size > 0) {
        Check(zyrsDeflateLZ77FastestGetStat_8u(src, static_cast<int32_t>(std::min<size_t>(size, kFastestSample)),
                                               scratch_.data(), kFastestHash, lit, dist),
              "zyrsDeflateLZ77FastestGetStat_8u");
    }
    HuffCodeEntry litCodes[kNumLitLen], distCodes[kNumDist];
    Check(zyrsDeflateLZ77FastestGenHuffTable_8u(lit, dist, DeflateCodesAll, litCodes, distCodes),
          "zyrsDeflateLZ77FastestGenHuffTable_8u");
    DeflateBlockHeader dynamic;
    Check(zyrsDeflateLZ77FastestPrecompHeader_8u(DeflateBlockDynamic, litCodes, distCodes, &dynamic),
          "zyrsDeflateLZ77FastestPrecompHeader_8u");
    const bool fixed = 3 + CodedBits(lit, dist, Fixed().lit, Fixed().dist) <
                       dynamic.bitLen + CodedBits(lit, dist, litCodes, distCodes);
    const size_t mark = out_.Size();
    const uint16_t markPending = pending_;
    const uint32_t markBits = pendingBits_;
    Header(fixed ? Fixed().header : dynamic, last, {});

    // 15 bits at most per byte of input, and the 16 bytes of room a token asks for.
    out_.Reserve(2 * size + 64);
    uint32_t index = static_cast<uint32_t>(out_.Size());
    const uint8_t* p = src;
    int32_t len = static_cast<int32_t>(size);
    Check(zyrsDeflateLZ77Fastest_8u(&p, &len, &srcIdx_, p, kWindow, head_.data(), kFastestHash,
                                    fixed ? Fixed().lit : litCodes, fixed ? Fixed().dist : distCodes, &pending_,
                                    &pendingBits_, out_.Data(), index + static_cast<uint32_t>(2 * size + 64), &index,
                                    last ? FastestFlushFinish : FastestFlushEndBlock),
          "zyrsDeflateLZ77Fastest_8u");
    out_.Commit(index);
    const size_t storedSize = size + 5 * ((size + kMaxStored - 1) / kMaxStored);
    if (out_.Size() - mark > storedSize + 1) {
        out_.Commit(mark);
        pending_ = markPending;
        pendingBits_ = markBits;
        StoredBlocks(src, size, last);
    }
    next_ += size;
}

// ---- gzip ----------------------------------------------------------------------------------

GzipWriter::GzipWriter(uint32_t level) : deflate_(level) {
    // No name, no time stamp; XFL tells the slowest and the fastest levels apart; OS: Unix.
    const uint8_t xfl = level % 10 >= 9 ? 2 : level % 10 <= 1 ? 4 : 0;
    const uint8_t header[10] = {0x1F, 0x8B, 8, 0, 0, 0, 0, 0, xfl, 3};
    deflate_.Output().Append(header);
}

void GzipWriter::Write(std::span<const uint8_t> input) {
    // The CRC takes at most 2^31 - 1 bytes a call and refuses none at all.
    for (std::span<const uint8_t> rest = input; !rest.empty();) {
        const size_t n = std::min<size_t>(rest.size(), size_t{1} << 30);
        Check(zyrsCRC32_8u(rest.data(), static_cast<int32_t>(n), &crc_), "zyrsCRC32_8u");
        rest = rest.subspan(n);
    }
    size_ += static_cast<uint32_t>(input.size());
    deflate_.Write(input);
}

void GzipWriter::Finish() {
    deflate_.Finish();
    uint8_t trailer[8];
    for (int i = 0; i < 4; ++i) {
        trailer[i] = static_cast<uint8_t>(crc_ >> (8 * i));
        trailer[4 + i] = static_cast<uint8_t>(size_ >> (8 * i));
    }
    deflate_.Output().Append(trailer);
}

std::vector<uint8_t> GzipBytes(std::span<const uint8_t> input, uint32_t level) {
    GzipWriter gz(level);
    gz.Write(input);
    gz.Finish();
    const auto bytes = gz.Output().Bytes();
    return {bytes.begin(), bytes.end()};
}

}  // namespace zyrdc::tool
