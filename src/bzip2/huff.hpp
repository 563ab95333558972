// huff.hpp - internal interface of the bzip2 Huffman stage: the encoder and decoder records
// (fixed layouts, no pointers, the same bytes in both builds) and the coders behind the C
// entry points, reachable by tests and benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zyrdc.h"

namespace zyrdc::bzip2 {

inline constexpr uint32_t kHuffEncoderMagic = 0x7A42484Eu;
inline constexpr uint32_t kHuffDecoderMagic = 0x7A424844u;

inline constexpr int32_t kMaxBlockSymbols = 900100;  // a 900000-byte block's symbols and EOB
inline constexpr int32_t kGroupSymbols = 50;         // symbols coded with one table choice
inline constexpr int32_t kMaxTables = 6;
inline constexpr int32_t kMinTables = 2;
inline constexpr int32_t kMaxAlphabet = 258;         // 256 values in use, RUNA/RUNB, EOB
inline constexpr uint32_t kEncodeMaxBits = 17;       // the longest code the encoder makes
inline constexpr uint32_t kDecodeMaxBits = 20;       // the longest code the decoder takes
inline constexpr uint32_t kFastBits = 10;            // first-level lookup width of the decoder

// One selector per group of 50 symbols.
constexpr int32_t SelectorCapacity(int32_t max_symbols) {
    return (max_symbols + kGroupSymbols - 1) / kGroupSymbols;
}

// ---- encoder record --------------------------------------------------------------------------

enum : uint32_t { kEncAnalysed = 1, kEncContextWritten = 2, kEncBlockCoded = 3 };

struct HuffEncoderRecord {
    uint32_t magic;
    uint32_t capacity;  // selectors the record holds
    uint32_t stage;
    uint32_t n_in_use;
    uint32_t alpha_size;
    uint32_t n_groups;
    uint32_t n_selectors;
    uint32_t n_symbols;  // EOB included
    uint32_t coded;      // symbols coded so far
    uint32_t reserved[7];
    uint8_t in_use[256];
    uint8_t lengths[kMaxTables][kMaxAlphabet];
    uint8_t lengths_pad[4];
    // Per table and symbol: the canonical code above, its length in the low 8 bits.
    uint32_t codes[kMaxTables][kMaxAlphabet];
    // The selectors follow, one byte each.
};
static_assert(offsetof(HuffEncoderRecord, in_use) == 64);
static_assert(offsetof(HuffEncoderRecord, lengths) == 320);
static_assert(offsetof(HuffEncoderRecord, codes) == 1872);
static_assert(sizeof(HuffEncoderRecord) == 8064);

constexpr int32_t HuffEncoderBytes(int32_t max_symbols) {
    return static_cast<int32_t>(sizeof(HuffEncoderRecord)) + ((SelectorCapacity(max_symbols) + 3) & ~3);
}
inline uint8_t* EncoderSelectors(HuffEncoderRecord* r) { return reinterpret_cast<uint8_t*>(r + 1); }
inline const uint8_t* EncoderSelectors(const HuffEncoderRecord* r) {
    return reinterpret_cast<const uint8_t*>(r + 1);
}

// ---- decoder record --------------------------------------------------------------------------

enum : uint32_t { kDecNoContext = 0, kDecDecoding = 1, kDecBlockDone = 2 };

// First-level entries: symbol << 5 | length for codes of up to kFastBits bits; entries with
// kFastSlow set leave the common path: EOB (with its symbol and length) and the prefixes of
// longer or unused codes (length 0), decoded through the canonical limits.
inline constexpr uint16_t kFastSlow = 0x8000;

struct HuffDecodeTable {
    uint16_t fast[1u << kFastBits];
    // limit[len]: one past the last code of that length, left-justified to kDecodeMaxBits
    // bits; the codes of len bits or fewer are exactly the values below it.
    uint32_t limit[kDecodeMaxBits + 1];
    // Added to a len-bit code, the position of its symbol in `sorted`.
    int32_t offset[kDecodeMaxBits + 1];
    uint16_t sorted[kMaxAlphabet];  // symbols by (length, symbol): canonical order
    uint32_t max_len;
    uint8_t pad[16];
};
static_assert(sizeof(HuffDecodeTable) == 2752);

struct HuffDecoderRecord {
    uint32_t magic;
    uint32_t capacity;
    uint32_t stage;
    uint32_t n_in_use;
    uint32_t alpha_size;
    uint32_t n_groups;
    uint32_t n_selectors;  // as read from the stream
    uint32_t kept;         // min(n_selectors, capacity)
    uint32_t decoded;      // symbols decoded, EOB not counted
    uint32_t reserved[7];
    uint8_t in_use[256];
    HuffDecodeTable tables[kMaxTables];
    // The selectors kept follow, one byte each.
};
static_assert(offsetof(HuffDecoderRecord, in_use) == 64);
static_assert(offsetof(HuffDecoderRecord, tables) == 320);
static_assert(sizeof(HuffDecoderRecord) == 16832);

constexpr int32_t HuffDecoderBytes(int32_t max_symbols) {
    return static_cast<int32_t>(sizeof(HuffDecoderRecord)) + ((SelectorCapacity(max_symbols) + 3) & ~3);
}
inline uint8_t* DecoderSelectors(HuffDecoderRecord* r) { return reinterpret_cast<uint8_t*>(r + 1); }

// ---- the coders ------------------------------------------------------------------------------

// What a call on a bit stream did: status, elements taken and stored, and the bits left in
// the caller's accumulator (right-aligned).
struct BitProgress {
    ZyrStatus status;
    int32_t consumed;
    int32_t written;
    uint32_t code;
    uint32_t code_bits;
};

// Checks the block (StatusError on inconsistent data, record untouched) and, on success,
// writes the whole record: table count, selectors, lengths and codes; stage kEncAnalysed.
ZyrStatus HuffAnalyse(int32_t max_symbols, const uint8_t* in_use, const uint16_t* src, int32_t n,
                      HuffEncoderRecord* rec);
// Bits of the context Pack writes for an analysed record.
uint32_t HuffContextBits(const HuffEncoderRecord* rec);
// Pack: the context after `code_bits` pending bits; all or nothing.
BitProgress HuffPackContext(uint32_t code, uint32_t code_bits, uint8_t* dst, int32_t cap,
                            HuffEncoderRecord* rec);
// Codes the next symbols of the block; StatusError on a symbol outside the alphabet.
BitProgress HuffEncode(const uint16_t* src, int32_t n, uint32_t code, uint32_t code_bits,
                       uint8_t* dst, int32_t cap, HuffEncoderRecord* rec);

void HuffDecoderInit(int32_t max_symbols, HuffDecoderRecord* rec);
// Reads a block's context (one unit: StatusSrcExhausted consumes nothing and leaves the
// record as it was); on success writes the in-use table and sets the record for the block.
BitProgress HuffUnpackContext(const uint8_t* src, int32_t n, uint32_t code, uint32_t code_bits,
                              uint8_t* in_use, HuffDecoderRecord* rec);
// Decodes symbols up to EOB; the record is in stage kDecDecoding or kDecBlockDone.
BitProgress HuffDecode(const uint8_t* src, int32_t n, uint32_t code, uint32_t code_bits,
                       uint16_t* dst, int32_t cap, HuffDecoderRecord* rec);

}  // namespace zyrdc::bzip2
