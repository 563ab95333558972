// deflate_writer.cpp - Deflate blocks from the library's matcher output: length-limited
// canonical Huffman codes from the matcher's counts, the dynamic block header with its
// code-length code, the body through zyrsDeflateHuff_8u, and stored or fixed blocks where
// those come out smaller; gzip framing around it.
#include "deflate_writer.hpp"

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

constexpr int kNumLitLen = 286, kNumDist = 30, kNumCodeLen = 19;
constexpr int kEndOfBlock = 256;
constexpr int kMaxBits = 15, kMaxCodeLenBits = 7;
// Order in which the code-length code's lengths are sent.
constexpr uint8_t kCodeLenOrder[kNumCodeLen] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5,
                                                11, 4, 12, 3, 13, 2, 14, 1, 15};
constexpr uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                      2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr uint8_t kDistExtra[kNumDist] = {0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6,
                                          6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

void Check(ZyrStatus status, const char* what) {
    if (status != StatusOk) {
        throw std::runtime_error(std::string(what) + " returned status " + std::to_string(status));
    }
}

uint32_t Reverse(uint32_t code, uint32_t n) {
    uint32_t r = 0;
    for (uint32_t i = 0; i < n; ++i, code >>= 1) r = (r << 1) | (code & 1);
    return r;
}

// Canonical codes (RFC 1951 section 3.2.2) in transmission order for the given lengths.
void CanonicalCodes(const uint8_t* lens, int n, HuffCodeEntry* codes) {
    uint32_t count[kMaxBits + 1] = {}, next[kMaxBits + 1] = {};
    for (int s = 0; s < n; ++s) ++count[lens[s]];
    count[0] = 0;
    for (int b = 1, code = 0; b <= kMaxBits; ++b) {
        code = (code + static_cast<int>(count[b - 1])) << 1;
        next[b] = static_cast<uint32_t>(code);
    }
    for (int s = 0; s < n; ++s) {
        codes[s].len = lens[s];
        codes[s].code = static_cast<uint16_t>(lens[s] ? Reverse(next[lens[s]]++, lens[s]) : 0);
    }
}

// The format wants at least two codes in each alphabet (one code cannot be complete).
void EnsureTwoCodes(uint8_t* lens, int n) {
    int used = 0, last = -1;
    for (int s = 0; s < n; ++s) {
        if (lens[s]) ++used, last = s;
    }
    if (used >= 2) return;
    const int other = last == 0 ? 1 : 0;
    lens[other] = 1;
    lens[last < 0 ? 1 : last] = 1;
}

struct FixedCodes {
    HuffCodeEntry lit[kNumLitLen];
    HuffCodeEntry dist[kNumDist];
    uint8_t litLens[kNumLitLen];
    FixedCodes() {
        // The numbering runs over all 288 symbols: the 8-bit codes of 286 and 287 come before
        // the 9-bit codes, whose values they move.
        constexpr int kFixedSymbols = 288;
        uint8_t lens[kFixedSymbols];
        for (int s = 0; s < kFixedSymbols; ++s) {
            lens[s] = static_cast<uint8_t>(s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8);
        }
        HuffCodeEntry all[kFixedSymbols];
        CanonicalCodes(lens, kFixedSymbols, all);
        std::copy(all, all + kNumLitLen, lit);
        std::copy(lens, lens + kNumLitLen, litLens);
        uint8_t distLens[kNumDist];
        std::fill(std::begin(distLens), std::end(distLens), uint8_t{5});
        CanonicalCodes(distLens, kNumDist, dist);
    }
};
const FixedCodes& Fixed() {
    static const FixedCodes codes;
    return codes;
}

// Run-length coded code lengths: symbols 0..15, 16 (repeat the previous length 3..6 times),
// 17 (3..10 zeros), 18 (11..138 zeros), each with its extra-bit value.
struct CodeLenRun {
    uint8_t symbol;
    uint8_t extra;
};
constexpr uint8_t kCodeLenExtraBits[kNumCodeLen] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                                    0, 0, 0, 0, 0, 0, 2, 3, 7};

int RunLengthCode(const uint8_t* lens, int n, CodeLenRun* out) {
    int count = 0;
    for (int i = 0; i < n;) {
        const uint8_t len = lens[i];
        int run = 1;
        while (i + run < n && lens[i + run] == len) ++run;
        i += run;
        if (len == 0) {
            for (; run >= 11; run -= std::min(run, 138)) {
                out[count++] = {18, static_cast<uint8_t>(std::min(run, 138) - 11)};
            }
            if (run >= 3) {
                out[count++] = {17, static_cast<uint8_t>(run - 3)};
                run = 0;
            }
        } else {
            out[count++] = {len, 0};
            --run;
            for (; run >= 3; run -= std::min(run, 6)) {
                out[count++] = {16, static_cast<uint8_t>(std::min(run, 6) - 3)};
            }
        }
        for (; run > 0; --run) out[count++] = {len, 0};
    }
    return count;
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

// ---- code lengths ------------------------------------------------------------------------

namespace {

struct Leaf {
    uint64_t weight;
    int symbol;  // -1 for a package
};
constexpr int kMaxSymbols = 288;

// Lengths of a plain Huffman code over the leaves, sorted by weight: two queues, the leaves
// and the merged nodes (which come out in order of weight), the lighter front taken each
// time. Returns the longest length.
int PlainLengths(const Leaf* leaves, int m, uint8_t* lens) {
    uint64_t weight[kMaxSymbols];
    int parent[2 * kMaxSymbols];
    int leaf = 0, node = 0, nodes = 0;
    auto takeLighter = [&]() {
        if (leaf < m && (node == nodes || leaves[leaf].weight <= weight[node])) return leaf++;
        return kMaxSymbols + node++;
    };
    while (nodes < m - 1) {
        const int a = takeLighter(), b = takeLighter();
        const uint64_t wa = a < kMaxSymbols ? leaves[a].weight : weight[a - kMaxSymbols];
        const uint64_t wb = b < kMaxSymbols ? leaves[b].weight : weight[b - kMaxSymbols];
        weight[nodes] = wa + wb;
        parent[a] = parent[b] = kMaxSymbols + nodes++;
    }
    // The last node is the root; a node's depth is its parent's plus one.
    int depth[kMaxSymbols], longest = 0;
    depth[nodes - 1] = 0;
    for (int i = nodes - 2; i >= 0; --i) depth[i] = depth[parent[kMaxSymbols + i] - kMaxSymbols] + 1;
    for (int i = 0; i < m; ++i) {
        const int d = depth[parent[i] - kMaxSymbols] + 1;
        lens[leaves[i].symbol] = static_cast<uint8_t>(d);
        longest = std::max(longest, d);
    }
    return longest;
}

// Package-merge: list L holds the leaves by count; each list above holds the leaves merged
// with the pairs ("packages") of the list below. Of the top list the first 2m - 2 items are
// taken; a taken leaf adds one bit to its symbol, a taken package takes its two items from
// the list below. The result is the optimal code with no length above maxBits.
void PackageMergeLengths(const Leaf* leaves, int m, int maxBits, uint8_t* lens) {
    constexpr int kMaxItems = 2 * kMaxSymbols;
    const int keep = 2 * m - 2;
    // lists[0] is the top list, lists[maxBits - 1] the leaves alone.
    static thread_local Leaf lists[kMaxBits][kMaxItems];
    int sizes[kMaxBits];
    std::copy(leaves, leaves + m, lists[maxBits - 1]);
    sizes[maxBits - 1] = m;
    for (int level = maxBits - 2; level >= 0; --level) {
        const Leaf* below = lists[level + 1];
        const int belowSize = sizes[level + 1];
        Leaf* list = lists[level];
        int size = 0, leaf = 0, pair = 0;
        while (size < keep && (leaf < m || pair + 1 < belowSize)) {
            const bool havePackage = pair + 1 < belowSize;
            const uint64_t packageWeight = havePackage ? below[pair].weight + below[pair + 1].weight : 0;
            if (leaf < m && (!havePackage || leaves[leaf].weight <= packageWeight)) {
                list[size++] = leaves[leaf++];
            } else {
                list[size++] = {packageWeight, -1};
                pair += 2;
            }
        }
        sizes[level] = size;
    }
    for (int i = 0; i < m; ++i) lens[leaves[i].symbol] = 0;
    int take = keep;
    for (int level = 0; level < maxBits; ++level) {
        int packages = 0;
        for (int i = 0; i < take && i < sizes[level]; ++i) {
            if (lists[level][i].symbol >= 0) {
                ++lens[lists[level][i].symbol];
            } else {
                ++packages;
            }
        }
        take = 2 * packages;
    }
}

}  // namespace

// A plain Huffman code is optimal whenever it stays within the limit, which it does for all
// but very skewed counts; package-merge finds the optimal code under the limit otherwise.
void DeflateWriter::LimitedLengths(const uint32_t* counts, int n, int maxBits, uint8_t* lens) {
    if (n > kMaxSymbols || maxBits > kMaxBits) {
        throw std::runtime_error("LimitedLengths: too many symbols or bits");
    }
    std::fill(lens, lens + n, uint8_t{0});
    // Sorted by count, then symbol: one 64-bit key each sorts faster than pairs.
    uint64_t keys[kMaxSymbols];
    int m = 0;
    for (int s = 0; s < n; ++s) {
        if (counts[s] != 0) keys[m++] = uint64_t{counts[s]} << 9 | static_cast<uint64_t>(s);
    }
    std::sort(keys, keys + m);
    Leaf leaves[kMaxSymbols];
    for (int i = 0; i < m; ++i) leaves[i] = {keys[i] >> 9, static_cast<int>(keys[i] & 511)};
    if (m <= 1) {
        if (m == 1) lens[leaves[0].symbol] = 1;
        return;
    }
    if (PlainLengths(leaves, m, lens) > maxBits) PackageMergeLengths(leaves, m, maxBits, lens);
}

// ---- DeflateWriter -------------------------------------------------------------------------

DeflateWriter::DeflateWriter(uint32_t level)
    : level_(level),
      hashSize_(32768),
      window_(new uint8_t[kWindow + kInputChunk]),  // not cleared: only written bytes are read
      head_(hashSize_, -32768),
      prev_(kWindow, -32768),
      lit_(kMaxBlockEntries + kSubBlockEntries),
      dist_(kMaxBlockEntries + kSubBlockEntries) {
    if (level >= kDeflateLevels) throw std::runtime_error("Deflate level out of range");
}

void DeflateWriter::Write(std::span<const uint8_t> input) {
    while (!input.empty()) {
        if (fill_ == kWindowBytes) {
            Match(false);
            MakeRoom();
        }
        const size_t n = std::min(input.size(), kWindowBytes - fill_);
        std::memcpy(window_.get() + fill_, input.data(), n);
        fill_ += n;
        input = input.subspan(n);
    }
}

void DeflateWriter::Finish() {
    Match(true);
    CloseSubBlock();
    EndBlock(true);
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

void DeflateWriter::PutBits(uint32_t value, uint32_t n) {
    bits_ |= uint64_t{value} << bitCount_;
    bitCount_ += n;
    if (bitCount_ >= 32) {
        const uint8_t bytes[4] = {static_cast<uint8_t>(bits_), static_cast<uint8_t>(bits_ >> 8),
                                  static_cast<uint8_t>(bits_ >> 16), static_cast<uint8_t>(bits_ >> 24)};
        out_.Append(bytes);
        bits_ >>= 32;
        bitCount_ -= 32;
    }
}

void DeflateWriter::AlignToByte() {
    PutBits(0, (8 - bitCount_ % 8) % 8);
    while (bitCount_ > 0) {
        const uint8_t byte = static_cast<uint8_t>(bits_);
        out_.Append({&byte, 1});
        bits_ >>= 8;
        bitCount_ -= 8;
    }
}

// Writes the block of entries [0, entries_) (bytes [blockStart_, subStart_)) as whichever of
// the three block types is shortest.
void DeflateWriter::EndBlock(bool last) {
    uint32_t litCounts[kNumLitLen], distCounts[kNumDist];
    std::copy(blockLit_.begin(), blockLit_.end(), litCounts);
    std::copy(blockDist_.begin(), blockDist_.end(), distCounts);
    litCounts[kEndOfBlock] = 1;

    uint8_t litLens[kNumLitLen], distLens[kNumDist];
    LimitedLengths(litCounts, kNumLitLen, kMaxBits, litLens);
    LimitedLengths(distCounts, kNumDist, kMaxBits, distLens);
    EnsureTwoCodes(litLens, kNumLitLen);
    EnsureTwoCodes(distLens, kNumDist);
    int nLit = kNumLitLen, nDist = kNumDist;
    while (litLens[nLit - 1] == 0) --nLit;
    while (distLens[nDist - 1] == 0) --nDist;

    // The lengths of both alphabets are run-length coded as one sequence.
    uint8_t allLens[kNumLitLen + kNumDist];
    std::copy(litLens, litLens + nLit, allLens);
    std::copy(distLens, distLens + nDist, allLens + nLit);
    CodeLenRun runs[kNumLitLen + kNumDist];
    const int nRuns = RunLengthCode(allLens, nLit + nDist, runs);
    uint32_t clCounts[kNumCodeLen] = {};
    for (int i = 0; i < nRuns; ++i) ++clCounts[runs[i].symbol];
    uint8_t clLens[kNumCodeLen];
    LimitedLengths(clCounts, kNumCodeLen, kMaxCodeLenBits, clLens);
    EnsureTwoCodes(clLens, kNumCodeLen);
    int nCodeLen = kNumCodeLen;
    while (nCodeLen > 4 && clLens[kCodeLenOrder[nCodeLen - 1]] == 0) --nCodeLen;

    // Sizes in bits of the three choices.
    uint64_t extraBits = 0, dynamicBits = 3 + 5 + 5 + 4 + 3 * static_cast<uint64_t>(nCodeLen);
    uint64_t fixedBits = 3;
    for (int s = 0; s < kNumLitLen; ++s) {
        dynamicBits += uint64_t{litCounts[s]} * litLens[s];
        fixedBits += uint64_t{litCounts[s]} * Fixed().litLens[s];
        if (s > kEndOfBlock) extraBits += uint64_t{litCounts[s]} * kLengthExtra[s - kEndOfBlock - 1];
    }
    for (int s = 0; s < kNumDist; ++s) {
        dynamicBits += uint64_t{distCounts[s]} * distLens[s];
        fixedBits += uint64_t{distCounts[s]} * 5;
        extraBits += uint64_t{distCounts[s]} * kDistExtra[s];
    }
    for (int s = 0; s < kNumCodeLen; ++s) {
        dynamicBits += uint64_t{clCounts[s]} * (clLens[s] + kCodeLenExtraBits[s]);
    }
    dynamicBits += extraBits;
    fixedBits += extraBits;
    const size_t rawBytes = subStart_ - blockStart_;
    const uint64_t storedBlocks = std::max<uint64_t>(1, (rawBytes + kMaxStored - 1) / kMaxStored);
    const uint64_t storedBits = storedBlocks * (3 + 7 + 32) + 8 * uint64_t{rawBytes};

    if (storedBits < std::min(dynamicBits, fixedBits)) {
        const uint8_t* raw = window_.get() + blockStart_;
        for (uint64_t b = 0; b < storedBlocks; ++b) {
            const uint32_t n = static_cast<uint32_t>(std::min<size_t>(kMaxStored, rawBytes - b * kMaxStored));
            PutBits(last && b + 1 == storedBlocks ? 1 : 0, 3);
            AlignToByte();
            const uint8_t header[4] = {static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8),
                                       static_cast<uint8_t>(~n), static_cast<uint8_t>(~n >> 8)};
            out_.Append(header);
            out_.Append({raw + b * kMaxStored, n});
        }
    } else {
        HuffCodeEntry litCodes[kNumLitLen], distCodes[kNumDist];
        const bool fixed = fixedBits <= dynamicBits;
        if (fixed) {
            std::copy(std::begin(Fixed().lit), std::end(Fixed().lit), litCodes);
            std::copy(std::begin(Fixed().dist), std::end(Fixed().dist), distCodes);
            PutBits(last ? 1 : 0, 1);
            PutBits(1, 2);
        } else {
            CanonicalCodes(litLens, kNumLitLen, litCodes);
            CanonicalCodes(distLens, kNumDist, distCodes);
            HuffCodeEntry clCodes[kNumCodeLen];
            CanonicalCodes(clLens, kNumCodeLen, clCodes);
            PutBits(last ? 1 : 0, 1);
            PutBits(2, 2);
            PutBits(static_cast<uint32_t>(nLit - 257), 5);
            PutBits(static_cast<uint32_t>(nDist - 1), 5);
            PutBits(static_cast<uint32_t>(nCodeLen - 4), 4);
            for (int i = 0; i < nCodeLen; ++i) PutBits(clLens[kCodeLenOrder[i]], 3);
            for (int i = 0; i < nRuns; ++i) {
                const HuffCodeEntry& c = clCodes[runs[i].symbol];
                PutBits(c.code, c.len);
                PutBits(runs[i].extra, kCodeLenExtraBits[runs[i].symbol]);
            }
        }
        // The body goes straight from the pending bits through the library's coder.
        while (bitCount_ >= 8) {
            const uint8_t byte = static_cast<uint8_t>(bits_);
            out_.Append({&byte, 1});
            bits_ >>= 8;
            bitCount_ -= 8;
        }
        uint16_t pending = static_cast<uint16_t>(bits_);
        uint32_t pendingCount = bitCount_;
        out_.Reserve(6 * static_cast<size_t>(entries_) + 8);
        uint32_t index = static_cast<uint32_t>(out_.Size());
        Check(zyrsDeflateHuff_8u(lit_.data(), dist_.data(), static_cast<uint32_t>(entries_), &pending,
                                 &pendingCount, litCodes, distCodes, out_.Data(), &index),
              "zyrsDeflateHuff_8u");
        out_.Commit(index);
        bits_ = pending;
        bitCount_ = pendingCount;
        PutBits(litCodes[kEndOfBlock].code, litCodes[kEndOfBlock].len);
    }
    blockLit_.fill(0);
    blockDist_.fill(0);
    blockSums_[0] = blockSums_[1] = {};
    entries_ = 0;
    blockStart_ = subStart_;
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
