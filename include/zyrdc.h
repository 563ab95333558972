/*
 * zyrdc.h - zyrDC: data-compression primitives for x86 processors with SSE2.
 *
 * One flat C interface. Every function except zyrdcGetLibVersion returns a ZyrStatus
 * (0 success, negative error, positive warning with valid outputs) and reports all
 * other results through pointer arguments. Nothing allocates, nothing keeps global
 * mutable state: threads may call concurrently on distinct buffers and state records.
 *
 * Arguments are checked in a fixed order and the first failure is returned:
 * required pointers (StatusNullPointer), then lengths and sizes (StatusBadSize), then
 * the magic word of a state record (StatusBadContext), then arguments drawn from a
 * fixed set (StatusBadArgument), and only then the data. Functions that depart from
 * this order say so below. Counts written back through length pointers are written
 * on success and on warnings; on an error they are left unwritten (bytes already
 * stored in a destination stay there).
 *
 * Buffer sizes are never checked against what a ...GetSize... function reported:
 * the caller provides at least that much.
 *
 * The header is C99 and C++ clean and uses fixed-width types only. On i686 every entry
 * point realigns its stack, so callers that keep only 4-byte stack alignment are safe.
 */
#ifndef ZYRDC_H
#define ZYRDC_H

#include <stdint.h>

#define ZYRDC_VERSION_MAJOR 2021
#define ZYRDC_VERSION_MINOR 11
#define ZYRDC_VERSION_UPDATE 0

#if defined(__GNUC__) || defined(__clang__)
#  if defined(__i386__)
#    define ZYRDC_API __attribute__((visibility("default"), force_align_arg_pointer))
#  else
#    define ZYRDC_API __attribute__((visibility("default")))
#  endif
#else
#  define ZYRDC_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------------- */
/* Status codes                                                                        */
/* ---------------------------------------------------------------------------------- */

typedef int32_t ZyrStatus;

enum {
    StatusOk = 0,                  /* success */
    StatusError = -2,              /* generic failure; input data inconsistent */
    StatusStreamExhausted = -4,    /* a bit stream ran past its end */
    StatusBadArgument = -5,        /* an argument outside its allowed set (level, flag, ...) */
    StatusBadSize = -6,            /* a length, size or count out of range */
    StatusNullPointer = -8,        /* a required pointer is null */
    StatusBadContext = -13,        /* a state record lacks its identifying magic word */
    StatusBadAcceleration = -16,   /* zyrsEncodeLZ4Fast_8u: acceleration below 1 */
    StatusBadHuffmanCode = -200,   /* code lengths do not form a valid Huffman code */
    StatusCorruptStream = -214,    /* the compressed stream is malformed */
    StatusSrcExhausted = 32,       /* warning: the source ended before the job was complete */
    StatusDstFull = 33,            /* warning: destination full; output valid, call resumable */
    StatusBwtSortAbandoned = 47    /* warning: budgeted BWT sort gave up; no output produced */
};

/* ---------------------------------------------------------------------------------- */
/* Records                                                                             */
/* ---------------------------------------------------------------------------------- */

/* The library's static, read-only identification (never written or freed by callers). */
typedef struct VersionRecord {
    int32_t major;            /* 2021 */
    int32_t minor;            /* 11 */
    int32_t update;           /* 0 */
    int32_t revision;         /* source revision, bit pattern 0xcd107b02 */
    char processorCode[4];    /* "q4": the SSE2 level this build is optimised for */
    const char* name;         /* "zyrDC SSE2 (q4)" */
    const char* version;      /* "2021.11.0 (r0xcd107b02)" */
    const char* buildDate;    /* "Jan 30 2024" */
} VersionRecord;

/* Deflate per-symbol record: a frequency count while statistics are gathered, the
 * bit-reversed canonical code (first bit to send in bit 0) once codes are built.
 * Tables hold 286 literal/length or 30 distance entries. */
typedef struct HuffCodeEntry {
    uint16_t code;            /* frequency count, or the code in transmission order */
    uint16_t len;             /* code length in bits, 0..15; 0 for an unused symbol */
} HuffCodeEntry;

/* Search parameters of zyrsDeflateLZ77Fast_8u and zyrsDeflateLZ77Slow_8u. */
typedef struct LZ77Params {
    int32_t maxChain;         /* chain candidates per position (Fast: 0 = single probe) */
    int32_t goodLength;       /* a match this long cuts the remaining budget to a quarter */
    int32_t niceLength;       /* a match this long ends the search */
    int32_t maxInsertLength;  /* Fast: longest match whose positions are hashed;
                                 Slow: lazy search only below this previous length */
} LZ77Params;

/* Inflate decoding tables built by zyrsInflateBuildHuffTable: ten header words
 * (word 2 table kind, word 8 longest literal/length code, word 9 longest distance
 * code; words 0, 1 and 4..7 belong to the decoder), then the tables from byte 40. */
typedef struct InflateHuffTable {
    uint32_t header[10];
    uint16_t tables[3584];
} InflateHuffTable;       /* 7208 bytes */

/* Where zyrsInflate_8u stands between calls (*pMode). A stream starts at BlockStart. */
enum {
    InflateModeBlockStart = 0,  /* the next bits are a block header */
    InflateModeBody = 1,        /* inside a Huffman-coded block */
    InflateModeStored = 2,      /* inside a stored block */
    InflateModeDone = 3         /* the final block has ended */
};

/* Flush values of zyrsDeflateLZ77Fastest_8u (1 means the same as 0). */
enum {
    FastestFlushNone = 0,       /* keep the last 261 bytes for the next call */
    FastestFlushSync = 2,       /* code everything */
    FastestFlushEndBlock = 3,   /* code everything and the end-of-block code */
    FastestFlushFinish = 4      /* ... and pad to a byte boundary */
};
/* Deflate block types, and the code modes of zyrsDeflateLZ77FastestGenHuffTable_8u. */
enum { DeflateBlockStored = 0, DeflateBlockFixed = 1, DeflateBlockDynamic = 2 };
enum {
    DeflateCodesUsed = 0,       /* codes for the counted symbols only */
    DeflateCodesAll = 1,        /* a code for every symbol */
    DeflateCodesFixed = 2       /* the fixed code */
};

/* A precomputed block header, written by zyrsDeflateLZ77FastestPrecompHeader_8u. */
typedef struct DeflateBlockHeader {
    uint32_t magic;           /* 0x7A444248 */
    uint32_t blockType;       /* 0 stored, 1 fixed, 2 dynamic */
    uint32_t bitLen;          /* header bits: 3, or 30..2286 for a dynamic block */
    uint8_t bits[288];        /* stream bit i in bit i % 8 of byte i / 8; bit 0 (BFINAL) is 0 */
} DeflateBlockHeader;     /* 300 bytes */

/* LZSS coder state, used by either direction: 327724 bytes in the i686 build; in the
 * x86-64 build the pointer fields are 8 bytes wide and the record is 327744 bytes
 * (zyrsLZSSGetSize_8u reports the build's true size). Place it in memory aligned for a
 * pointer and set it up with zyrsEncodeLZSSInit_8u or zyrsDecodeLZSSInit_8u; the init
 * points the record's pointer fields into the record itself, so a record is not moved or
 * copied while a stream is under way. The two directions view the first bytes differently. */
typedef struct LzssEncoderFields {
    const uint16_t* pHashTables; /* three tables of 256 15-bit values (library constants) */
    int32_t* pChain;             /* 32768 earlier positions, indexed by position & 0x7FFF */
    int32_t* pHead;              /* 32768 latest positions, indexed by hash value */
    uint8_t* pHistory;           /* 65536-byte history buffer */
    int32_t historyDisp;         /* added to a position: its index in the history buffer */
    int32_t position;            /* position of the next input byte, counted from 0 */
    int32_t bitCount;            /* output bits pending in bitAcc */
    uint32_t bitAcc[2];          /* the pending bits, left-aligned; high word first */
} LzssEncoderFields;
typedef struct LzssDecoderFields {
    uint32_t windowPos;          /* index in the window for the next byte decoded */
    uint32_t windowFill;         /* bytes held in the window, at most 32768 */
    uint32_t totalOut;           /* bytes decoded since init, modulo 2^32 */
    uint8_t* pWindow;            /* the last 32768 bytes decoded (circular) */
    int32_t bitCount;            /* input bits held in bitAcc */
    uint32_t bitAcc;             /* the held bits, left-aligned */
    int32_t pendingLength;       /* bytes of a match still to write (the destination filled) */
    int32_t pendingDistance;     /* and its distance */
} LzssDecoderFields;
typedef struct LzssState {
    union {
        LzssEncoderFields enc;
        LzssDecoderFields dec;   /* the window is the start of history[] */
    } fields;
    int32_t chain[32768];
    int32_t head[32768];
    uint8_t history[65536];
    uint8_t reserved[8];         /* keeps the record at its published size */
} LzssState;

/* ZFP stream state: 560 bytes in the i686 build; in the x86-64 build the four pointer
 * fields are 8 bytes wide and the record is 576 bytes (the size queries report the
 * build's true size). Initialise with zyrsEncodeZfpInit_32f / zyrsDecodeZfpInit_32f. */
typedef struct ZfpState {
    uint32_t magic;           /* 0x4B617398 once initialised */
    int32_t minBits;          /* minimum bits per block (blocks are padded), default 0 */
    int32_t maxBits;          /* maximum bits per block, default 4171 */
    int32_t maxPrec;          /* maximum bit planes per block, default 64 */
    int32_t minExp;           /* smallest bit-plane exponent coded, default -10740 */
    int32_t bitCount;         /* bits held in bitBuffer */
    uint64_t bitBuffer;       /* bit accumulator, least significant bit first */
    uint8_t* pCur;            /* next byte of the stream to write or read */
    uint8_t* pBegin;          /* start of the stream buffer */
    uint8_t* pEnd;            /* one past the end of the stream buffer */
    uint8_t* pSafeEnd;        /* pEnd less the largest byte size of one block */
    float block[64];          /* working block, element (x, y, z) at x + 4y + 16z */
    int32_t coefficients[64]; /* the block's integer coefficients */
} ZfpState;

/* ---------------------------------------------------------------------------------- */
/* Version                                                                             */
/* ---------------------------------------------------------------------------------- */

/* Pointer to the one static version record; cannot fail, same pointer on every call. */
ZYRDC_API const VersionRecord* zyrdcGetLibVersion(void);

/* ---------------------------------------------------------------------------------- */
/* Checksums: running values of any number of pieces equal one call over them all.    */
/* ---------------------------------------------------------------------------------- */

/* Adler-32 (B<<16 | A, start 1). pAdler null: NullPointer; pSrc null: stores 1 (starts a
 * checksum) and succeeds; srcLen <= 0 processes nothing but still reduces both halves. */
ZYRDC_API ZyrStatus zyrsAdler32_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pAdler);
/* CRC-32 of gzip/zip: *pCRC holds the finished CRC (start 0). srcLen <= 0: BadSize. */
ZYRDC_API ZyrStatus zyrsCRC32_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pCRC);
/* CRC-32C, raw register, never inverted (start 0xFFFFFFFF, invert the end yourself).
 * Only srcLen == 0 is refused: the length is taken as unsigned, so never pass a negative. */
ZYRDC_API ZyrStatus zyrsCRC32C_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pCRC);
/* bzip2 block CRC: *pCRC holds the finished CRC (start 0). srcLen <= 0: BadSize. */
ZYRDC_API ZyrStatus zyrsCRC32_BZ2_8u(const uint8_t* pSrc, int32_t srcLen, uint32_t* pCRC);

/* ---------------------------------------------------------------------------------- */
/* Deflate matching and Huffman coding, Inflate tables                                 */
/* ---------------------------------------------------------------------------------- */

/* Greedy LZ77 matcher (chained, or single probe when maxChain is 0): emits literal or
 * length-3 bytes to pLit and distances to pDist, counts symbols into the frequency tables,
 * advances source, index and *pDstLen (capacity left). flush >= 2 consumes to the end. */
ZYRDC_API ZyrStatus zyrsDeflateLZ77Fast_8u(const uint8_t** ppSrc, int32_t* pSrcLen,
    int32_t* pSrcIdx, const uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
    int32_t* pHashPrev, uint32_t hashSize, HuffCodeEntry* pLitFreq, HuffCodeEntry* pDistFreq,
    uint8_t* pLit, uint16_t* pDist, int32_t* pDstLen, const LZ77Params* pParams, int32_t flush);
/* Lazy LZ77 matcher; arguments and results as zyrsDeflateLZ77Fast_8u. */
ZYRDC_API ZyrStatus zyrsDeflateLZ77Slow_8u(const uint8_t** ppSrc, int32_t* pSrcLen,
    int32_t* pSrcIdx, const uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
    int32_t* pHashPrev, uint32_t hashSize, HuffCodeEntry* pLitFreq, HuffCodeEntry* pDistFreq,
    uint8_t* pLit, uint16_t* pDist, int32_t* pDstLen, const LZ77Params* pParams, int32_t flush);
/* LZ77 matching at level 0..29 (a level above 29 is BadSize, checked first). */
ZYRDC_API ZyrStatus zyrsDeflateLZ77_8u(const uint8_t** ppSrc, int32_t* pSrcLen,
    int32_t* pSrcIdx, const uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
    int32_t* pHashPrev, uint32_t hashSize, HuffCodeEntry* pLitFreq, HuffCodeEntry* pDistFreq,
    uint8_t* pLit, uint16_t* pDist, int32_t* pDstLen, uint32_t level, int32_t flush);
/* Inserts positions srcIdx.. of pSrc into the hash tables (hashMode 0: rolling 3-byte
 * hash, head only; otherwise 4-byte tabulation hash, head and chain). */
ZYRDC_API ZyrStatus zyrsDeflateUpdateHash_8u(const uint8_t* pSrc, uint32_t srcIdx,
    uint32_t srcLen, int32_t* pHashHead, uint32_t hashSize, int32_t* pHashPrev,
    uint32_t winSize, uint32_t hashMode);
/* Copies the last min(dictLen, winSize) dictionary bytes to pWindow and, from 258 bytes
 * on, hashes them with indexes from 0; compress on with srcIdx = that count. */
ZYRDC_API ZyrStatus zyrsDeflateDictionarySet_8u(const uint8_t* pDict, uint32_t dictLen,
    int32_t* pHashHead, int32_t hashSize, int32_t* pHashPrev, uint8_t* pWindow,
    uint32_t winSize, uint32_t hashMode);
/* Appends the Huffman codes of srcLen matcher entries to pDst at *pDstIdx through the
 * caller's bit accumulator (*pCode, *pCodeLenBits); no capacity check: allow 6 bytes an
 * entry plus 2. */
ZYRDC_API ZyrStatus zyrsDeflateHuff_8u(const uint8_t* pLitSrc, const uint16_t* pDistSrc,
    uint32_t srcLen, uint16_t* pCode, uint32_t* pCodeLenBits,
    const HuffCodeEntry* pLitHuffCodes, const HuffCodeEntry* pDistHuffCodes, uint8_t* pDst,
    uint32_t* pDstIdx);
/* Validates nLitLen literal/length then nDistLen distance code lengths (<= 288, <= 30)
 * and builds single- or two-level Inflate decoding tables; invalid sets: BadHuffmanCode. */
ZYRDC_API ZyrStatus zyrsInflateBuildHuffTable(const uint16_t* pCodeLens, uint32_t nLitLen,
    uint32_t nDistLen, InflateHuffTable* pTable);
/* Decodes a raw Deflate stream into pDst from *pDstIdx, resumable at any byte: SrcExhausted
 * (pass the unconsumed bytes again with more), DstFull (make room, keep 32 KiB of history
 * from winIdx), Ok at the end of the final block; held bits in *pCode / *pCodeLenBits. */
ZYRDC_API ZyrStatus zyrsInflate_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint32_t* pCode,
    uint32_t* pCodeLenBits, uint8_t* pDst, int32_t dstLen, int32_t* pDstIdx, int32_t winIdx,
    int32_t* pMode, InflateHuffTable* pTable);
/* Adds the symbol counts of the fastest parse of pSrc (no history) to the 286 + 30 counts;
 * pHashHead (hashSize entries) is scratch. */
ZYRDC_API ZyrStatus zyrsDeflateLZ77FastestGetStat_8u(const uint8_t* pSrc, int32_t srcLen,
    int32_t* pHashHead, uint32_t hashSize, uint32_t* pLitStat, uint32_t* pDistStat);
/* Length-limited (15-bit) canonical codes from counts: DeflateCodesUsed, ...All or ...Fixed. */
ZYRDC_API ZyrStatus zyrsDeflateLZ77FastestGenHuffTable_8u(const uint32_t* pLitStat,
    const uint32_t* pDistStat, int32_t mode, HuffCodeEntry* pLitCodes, HuffCodeEntry* pDistCodes);
/* Precomputes a stored, fixed or dynamic block header (BFINAL 0) into *pHeader. */
ZYRDC_API ZyrStatus zyrsDeflateLZ77FastestPrecompHeader_8u(int32_t blockType,
    const HuffCodeEntry* pLitCodes, const HuffCodeEntry* pDistCodes, DeflateBlockHeader* pHeader);
/* Appends a precomputed header with BFINAL = final (stored: padding, LEN = storedLen and
 * NLEN; the caller copies the bytes); all or nothing: DstFull when it does not fit. */
ZYRDC_API ZyrStatus zyrsDeflateLZ77FastestGenHeader_8u(const DeflateBlockHeader* pHeader,
    int32_t final, int32_t storedLen, uint16_t* pCode, uint32_t* pCodeLenBits, uint8_t* pDst,
    uint32_t dstLen, uint32_t* pDstIdx);
/* Single-probe LZ77 with the 4-byte hash, coding each literal and match at once with the
 * given codes (every symbol needs one); flush as FastestFlush...; DstFull below 16 bytes of
 * room: call again with the same flush and the rest of the source. */
ZYRDC_API ZyrStatus zyrsDeflateLZ77Fastest_8u(const uint8_t** ppSrc, int32_t* pSrcLen,
    int32_t* pSrcIdx, const uint8_t* pWindow, uint32_t winSize, int32_t* pHashHead,
    uint32_t hashSize, const HuffCodeEntry* pLitCodes, const HuffCodeEntry* pDistCodes,
    uint16_t* pCode, uint32_t* pCodeLenBits, uint8_t* pDst, uint32_t dstLen, uint32_t* pDstIdx,
    int32_t flush);

/* ---------------------------------------------------------------------------------- */
/* LZ4 blocks                                                                          */
/* ---------------------------------------------------------------------------------- */

/* Decodes one block; *pDstLen: capacity in, bytes written out. SrcExhausted / DstFull
 * report a short source / full destination with valid output; bad offsets: Error. */
ZYRDC_API ZyrStatus zyrsDecodeLZ4_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst,
    int32_t* pDstLen);
/* Decodes one block into pDst from dstIdx, with history in place (pDict ends at
 * pDst + dstIdx) or in a separate dictionary; a null or empty pDict means no history. */
ZYRDC_API ZyrStatus zyrsDecodeLZ4Dict_8u(const uint8_t* pSrc, int32_t* pSrcLen, uint8_t* pDst,
    int32_t dstIdx, int32_t* pDstLen, const uint8_t* pDict, int32_t dictSize);
/* Writes the hash-table size of the LZ4 encoders (16384). */
ZYRDC_API ZyrStatus zyrsEncodeLZ4HashTableGetSize_8u(int32_t* pHashTableSize);
/* Clears the hash table in the layout the encoders use for a source of srcLen bytes. */
ZYRDC_API ZyrStatus zyrsEncodeLZ4HashTableInit_8u(uint8_t* pHashTable, int32_t srcLen);
/* Encodes one block; pDst must hold the worst case (srcLen + srcLen/255 + 16). The table
 * is cleared before the other checks. */
ZYRDC_API ZyrStatus zyrsEncodeLZ4_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst,
    int32_t* pDstLen, uint8_t* pHashTable);
/* Encodes as much of the source as fits *pDstLen into a complete block; *pSrcLen returns
 * the bytes consumed, DstFull when that is not all. */
ZYRDC_API ZyrStatus zyrsEncodeLZ4Safe_8u(const uint8_t* pSrc, int32_t* pSrcLen, uint8_t* pDst,
    int32_t* pDstLen, uint8_t* pHashTable);
/* Accelerated encoder (acceleration 1 is exactly zyrsEncodeLZ4_8u; below 1:
 * BadAcceleration); pDst must hold the worst case. */
ZYRDC_API ZyrStatus zyrsEncodeLZ4Fast_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst,
    int32_t* pDstLen, uint8_t* pHashTable, int32_t acceleration);
/* Writes the size of the high-compression record (328512 in both builds). */
ZYRDC_API ZyrStatus zyrsEncodeLZ4HCHashTableGetSize_8u(int32_t* pSize);
/* Lays out the high-compression record (magic, empty chains, positions at 65536). */
ZYRDC_API ZyrStatus zyrsEncodeLZ4HCHashTableInit_8u(uint8_t* pHashTable);
/* Encodes an independent block at level 1..12 into at most *pDstLen bytes; *pSrcLen returns
 * the prefix coded (DstFull when not all), the block is complete for it. */
ZYRDC_API ZyrStatus zyrsEncodeLZ4HC_8u(const uint8_t* pSrc, int32_t* pSrcLen, uint8_t* pDst,
    int32_t* pDstLen, uint8_t* pHashTable, int32_t level);
/* As zyrsEncodeLZ4HC_8u for pSrc[srcIdx..], matches reaching back to index dictLimit (at
 * most 65535 bytes); the record carries the chains on to the next linked block. */
ZYRDC_API ZyrStatus zyrsEncodeLZ4HCDictLimit_8u(const uint8_t* pSrc, int32_t srcIdx,
    int32_t* pSrcLen, uint8_t* pDst, int32_t* pDstLen, uint8_t* pHashTable, int32_t level,
    int32_t dictLimit);
/* Zeroes the 16384-byte table for dictionary encoding without a dictionary. */
ZYRDC_API ZyrStatus zyrsEncodeLZ4DictHashTableInit_8u(uint8_t* pHashTable);
/* Clears the 16384-byte table and hashes the dictionary's last 64 KiB into it. */
ZYRDC_API ZyrStatus zyrsEncodeLZ4LoadDict_8u(const uint8_t* pDict, int32_t dictLen,
    uint8_t* pHashTable);
/* Encodes a block whose matches may reach the loaded dictionary (null or 0: none); pDst
 * must hold the worst case; the table is not cleared and any content is safe. */
ZYRDC_API ZyrStatus zyrsEncodeLZ4Dict_8u(const uint8_t* pSrc, int32_t srcLen, uint8_t* pDst,
    int32_t* pDstLen, uint8_t* pHashTable, const uint8_t* pDict, int32_t dictLen);
/* As zyrsEncodeLZ4Dict_8u into at most *pDstLen bytes; *pSrcLen returns the prefix coded
 * (DstFull when not all). */
ZYRDC_API ZyrStatus zyrsEncodeLZ4DictSafe_8u(const uint8_t* pSrc, int32_t* pSrcLen, uint8_t* pDst,
    int32_t* pDstLen, uint8_t* pHashTable, const uint8_t* pDict, int32_t dictLen);

/* ---------------------------------------------------------------------------------- */
/* LZO1X decoding                                                                      */
/* ---------------------------------------------------------------------------------- */

/* Both decoders take a plain LZO1X stream (one or more concatenated streams, each closed by
 * the end marker 0x11 0x00 0x00) or a segmented container: 0x55, n (1..32), n ^ 0x55, the
 * total decoded length T (32-bit little-endian), the coded sizes of segments 0..n-2, then
 * the segments; segment i decodes to offset i * (T / n) with room T / n (the last one
 * T / n + T % n), so the destination must hold T bytes and *pDstLen is not read for it.
 * In order: an empty source, or one that begins with the end marker, decodes to 0 bytes
 * (nothing after the marker is read); a source passing the container test (header fields
 * consistent and segment 0 ending with the end marker) is a container, every other source
 * a plain stream, whatever it looks like. A failing segment makes the call fail, the other
 * segments are still decoded; a short segment leaves a gap (*pDstLen is the sum of the
 * segments' lengths). A stream's first literal run must be followed by an ordinary match
 * (an instruction byte of 16 or more).
 * The container's T is believed by both decoders: before decoding an untrusted source
 * whose first bytes are 0x55, n (1..32), n ^ 0x55, make sure pDst holds the T that follows. */

/* Checked: every read and write bounds-checked; malformed input, or a destination too
 * small for a plain stream: CorruptStream, count unwritten. *pDstLen: capacity in, bytes
 * decoded out. Wide copies may store up to 15 bytes past the decoded length, inside the
 * capacity. */
ZYRDC_API ZyrStatus zyrsDecodeLZOSafe_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
    uint32_t* pDstLen);
/* As zyrsDecodeLZOSafe_8u, but a plain stream is trusted: *pDstLen is only written, the
 * caller guarantees room for the decoded bytes (nothing is stored past them) and a damaged
 * stream is undefined behaviour. Containers are decoded with checks, as above. */
ZYRDC_API ZyrStatus zyrsDecodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
    uint32_t* pDstLen);

/* ---------------------------------------------------------------------------------- */
/* LZO1X encoding                                                                      */
/* ---------------------------------------------------------------------------------- */

/* Methods of the encoder. Fast: one plain stream, one hash probe a position. Segmented: the
 * container above with 2 to 32 segments (one per 64 KiB, at least 2), each an independent
 * Fast stream, so that segments can be decoded separately (in parallel). High: one plain
 * stream from hash chains with lazy matching, a better ratio at a lower speed. Every plain
 * stream is an ordinary LZO1X stream that other LZO1X decoders read; none passes the
 * container test. Both builds write the same bytes. */
enum { LzoMethodFast = 0, LzoMethodSegmented = 1, LzoMethodHigh = 2 };

/* The destination capacity zyrsEncodeLZO_8u requires for n source bytes (n below 2^31). */
#define ZYRDC_LZO_BOUND(n) ((n) + (n) / 16 + 67)
#define ZYRDC_LZO_SEGMENTED_BOUND(n) ((n) + (n) / 16 + 2275)

/* Writes the state size for a method and inputs of about maxInputLen bytes: Fast and
 * Segmented 64 + 4 * 2^b with b = ceil(log2 maxInputLen) - 2 kept within 10..14 (4160 to
 * 65600), High 262208. maxInputLen 0 or above 0x7FFFFFFF: BadSize; method outside 0..2:
 * BadArgument. */
ZYRDC_API ZyrStatus zyrsEncodeLZOGetSize(int32_t method, uint32_t maxInputLen, uint32_t* pSize);
/* Lays out the record (magic 0x7A4C5A4F, method, maxInputLen, table bits) at a 4-byte-
 * aligned pState; checks as zyrsEncodeLZOGetSize after the null check. The record holds no
 * pointer: it may be copied, and is the same in both builds. */
ZYRDC_API ZyrStatus zyrsEncodeLZOInit_8u(int32_t method, uint32_t maxInputLen, uint8_t* pState);
/* Codes the whole source (0 bytes give the empty stream) by the record's method; *pDstLen:
 * capacity in, bytes written out. srcLen above 0x7FFFFFFF: BadSize; a record without its
 * magic, method or table bits: BadContext; then (departure: it depends on the record's
 * method) a capacity below ZYRDC_LZO_BOUND (Segmented: ZYRDC_LZO_SEGMENTED_BOUND) of srcLen:
 * BadSize. Longer inputs than maxInputLen are coded with the record's table. Copies may
 * store past the bytes written, never past the capacity. */
ZYRDC_API ZyrStatus zyrsEncodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
    uint32_t* pDstLen, uint8_t* pState);

/* ---------------------------------------------------------------------------------- */
/* LZSS (the library's own bit format, 32 KB window), resumable                        */
/* ---------------------------------------------------------------------------------- */

/* Token format, most significant bit first into one bit string: a literal is a 1 bit and
 * the byte (9 bits); a match is a 0 bit, the distance 1..32767 in 15 bits and the length
 * 3..258 less 3 in 8 bits (24 bits). No header, no end marker: the flush pads with zeros
 * and the decoder ignores a remainder too short to form a token. */

/* Writes sizeof(LzssState): 327724 in the i686 build. */
ZYRDC_API ZyrStatus zyrsLZSSGetSize_8u(int32_t* pSize);
/* Prepares pState for encoding. */
ZYRDC_API ZyrStatus zyrsEncodeLZSSInit_8u(LzssState* pState);
/* Codes source into destination, advancing all four in/out values. *pDstLen of 0 (or
 * below): DstFull at once; *pSrcLen of 0 (or below): Ok at once. DstFull when the
 * destination filled (the token that filled it counts as consumed; call again with more
 * room). Each call codes its last two bytes as literals, so the output depends on where the
 * input is split; worst case 9 bits per input byte. */
ZYRDC_API ZyrStatus zyrsEncodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
    int32_t* pDstLen, LzssState* pState);
/* Writes the pending bits, zero-padded to a byte. *pDstLen below 1: BadSize. Ok leaves the
 * bits in pState, so flush once at the end of a stream (a second flush writes them again);
 * DstFull (room ran out, also on the last byte) keeps only the bits not yet written. */
ZYRDC_API ZyrStatus zyrsEncodeLZSSFlush_8u(uint8_t** ppDst, int32_t* pDstLen, LzssState* pState);
/* Prepares pState for decoding. */
ZYRDC_API ZyrStatus zyrsDecodeLZSSInit_8u(LzssState* pState);
/* Decodes until the source is used up (Ok) or the destination is full (DstFull, also when
 * both happen at once), advancing all four in/out values; a match that does not fit is
 * finished by the next call before it reads any source. *pDstLen below 1: BadSize; a
 * negative *pSrcLen counts as empty. Distances are not checked against the bytes decoded
 * so far: one reaching before them reads whatever the window holds. */
ZYRDC_API ZyrStatus zyrsDecodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
    int32_t* pDstLen, LzssState* pState);

/* ---------------------------------------------------------------------------------- */
/* bzip2 block stages: run-length stage and symbol dictionary                          */
/* ---------------------------------------------------------------------------------- */

/* Writes the size of the run-length state record (264). */
ZYRDC_API ZyrStatus zyrsRLEGetSize_BZ2_8u(int32_t* pSize);
/* Prepares a run-length state for encoding (empty in-use table, no run). */
ZYRDC_API ZyrStatus zyrsEncodeRLEInit_BZ2_8u(uint8_t* pRLEState);
/* Run-length codes the source (runs of up to 259 bytes); *pDstLen: capacity in, bytes
 * written out; DstFull if source remains. */
ZYRDC_API ZyrStatus zyrsEncodeRLE_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst,
    int32_t* pDstLen, uint8_t* pRLEState);
/* Writes a pending count byte, if any (*pDstLen becomes 1 or 0). */
ZYRDC_API ZyrStatus zyrsEncodeRLEFlush_BZ2_8u(uint8_t* pDst, int32_t* pDstLen, uint8_t* pRLEState);
/* Prepares a run-length state for decoding. */
ZYRDC_API ZyrStatus zyrsDecodeRLEStateInit_BZ2_8u(uint8_t* pRLEState);
/* Expands run-length coded bytes, advancing all four in/out values; DstFull when the
 * destination filled first. */
ZYRDC_API ZyrStatus zyrsDecodeRLEState_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen,
    uint8_t** ppDst, int32_t* pDstLen, uint8_t* pRLEState);
/* Writes the pending run bytes that fit; DstFull if some remain. */
ZYRDC_API ZyrStatus zyrsDecodeRLEStateFlush_BZ2_8u(uint8_t* pRLEState, uint8_t** ppDst,
    int32_t* pDstLen);
/* Copies the 256-byte in-use table out of an encoder state. */
ZYRDC_API ZyrStatus zyrsRLEGetInUseTable_8u(uint8_t* pInUse, const uint8_t* pRLEState);
/* Renumbers the bytes to their rank among the values in use; writes the count in use. */
ZYRDC_API ZyrStatus zyrsReduceDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst,
    int32_t len, int32_t* pSizeDictionary);
/* Inverse of zyrsReduceDictionary_8u_I; Error, data untouched, if sizeDictionary does not
 * match the table. */
ZYRDC_API ZyrStatus zyrsExpandDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst,
    int32_t len, int32_t sizeDictionary);

/* ---------------------------------------------------------------------------------- */
/* bzip2 block stages: Burrows-Wheeler transform                                       */
/* ---------------------------------------------------------------------------------- */

/* Working-buffer size of zyrsBWTFwd_8u for n bytes: max(6n + 524484, 18n + 80). */
ZYRDC_API ZyrStatus zyrsBWTFwdGetSize_8u(int32_t n, int32_t* pSize);
/* Working-buffer size of zyrsBWTFwd_SelectSort_8u for a strategy (an unknown strategy
 * writes nothing). */
ZYRDC_API ZyrStatus zyrsBWTFwdGetBufSize_SelectSort_8u(uint32_t n, uint32_t* pSize,
    uint32_t strategy);
/* Forward transform of n bytes to pDst with the primary index in *pIndex. */
ZYRDC_API ZyrStatus zyrsBWTFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t n,
    int32_t* pIndex, uint8_t* pBuffer);
/* Forward transform with sort strategy 0..3 (0 may return BwtSortAbandoned, no output). */
ZYRDC_API ZyrStatus zyrsBWTFwd_SelectSort_8u(const uint8_t* pSrc, uint8_t* pDst, uint32_t n,
    int32_t* pIndex, uint8_t* pBuffer, int32_t strategy);
/* Working-buffer size of zyrsBWTInv_8u: 4n + 1024. */
ZYRDC_API ZyrStatus zyrsBWTInvGetSize_8u(int32_t n, int32_t* pSize);
/* Inverse transform of n bytes with primary index `index` (0 <= index < n). */
ZYRDC_API ZyrStatus zyrsBWTInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t n, int32_t index,
    uint8_t* pBuffer);

/* ---------------------------------------------------------------------------------- */
/* bzip2 block stages: move-to-front and zero-run coding                               */
/* ---------------------------------------------------------------------------------- */

/* Writes the size of the move-to-front state (256). */
ZYRDC_API ZyrStatus zyrsMTFGetSize_8u(int32_t* pSize);
/* Sets the move-to-front table to the identity. */
ZYRDC_API ZyrStatus zyrsMTFInit_8u(uint8_t* pMTFState);
/* Bytes to move-to-front indexes; the table carries over between calls. */
ZYRDC_API ZyrStatus zyrsMTFFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len,
    uint8_t* pMTFState);
/* Move-to-front indexes to bytes; the table carries over between calls. */
ZYRDC_API ZyrStatus zyrsMTFInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len,
    uint8_t* pMTFState);
/* Move-to-front indexes to RUNA/RUNB zero-run symbols, counting them into pFreq (257+
 * entries); *pDstLen: capacity in, symbols out; DstFull if source remains. */
ZYRDC_API ZyrStatus zyrsEncodeZ1Z2_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen,
    uint16_t* pDst, int32_t* pDstLen, uint32_t* pFreq);
/* Zero-run symbols back to move-to-front indexes; a repeated call after DstFull loses
 * nothing. */
ZYRDC_API ZyrStatus zyrsDecodeZ1Z2_BZ2_16u8u(const uint16_t** ppSrc, int32_t* pSrcLen,
    uint8_t* pDst, int32_t* pDstLen);

/* ---------------------------------------------------------------------------------- */
/* bzip2 block stages: Huffman coding (bits most significant first)                    */
/* ---------------------------------------------------------------------------------- */

/* Encoder record size for blocks of up to maxSymbols symbols (1..900100): 8064 +
 * ceil(maxSymbols / 50) rounded up to a multiple of 4. */
ZYRDC_API ZyrStatus zyrsEncodeHuffGetSize_BZ2_16u8u(int32_t maxSymbols, int32_t* pSize);
/* Analyses one block (zero-run symbols ending with EOB = nInUse + 1): chooses 2..6 code
 * tables and a table per 50 symbols; Error, record untouched, on inconsistent data. */
ZYRDC_API ZyrStatus zyrsEncodeHuffInit_BZ2_16u8u(int32_t maxSymbols, const uint8_t* pInUse,
    const uint16_t* pSrc, int32_t srcLen, uint8_t* pState);
/* Writes the block's in-use bitmap, tables, selectors and code lengths after the pending
 * bits of *pCode; all or nothing (DstFull, *pDstLen = 0); at most 19930 bytes. */
ZYRDC_API ZyrStatus zyrsPackHuffContext_BZ2_16u8u(uint32_t* pCode, uint32_t* pCodeLenBits,
    uint8_t* pDst, int32_t* pDstLen, uint8_t* pState);
/* Codes the block's next symbols through EOB (later ones stay unconsumed); DstFull when
 * fewer than 4 bytes of room remain before a symbol. */
ZYRDC_API ZyrStatus zyrsEncodeHuff_BZ2_16u8u(const uint16_t** ppSrc, int32_t* pSrcLen,
    uint32_t* pCode, uint32_t* pCodeLenBits, uint8_t* pDst, int32_t* pDstLen, uint8_t* pState);
/* Decoder record size for blocks of up to maxSymbols symbols (1..900100): 16832 +
 * ceil(maxSymbols / 50) rounded up to a multiple of 4. */
ZYRDC_API ZyrStatus zyrsDecodeHuffGetSize_BZ2_8u16u(int32_t maxSymbols, int32_t* pSize);
/* Prepares a decoder record for a stream (no block context yet). */
ZYRDC_API ZyrStatus zyrsDecodeHuffInit_BZ2_8u16u(int32_t maxSymbols, uint8_t* pState);
/* Reads the next block's context and writes its in-use table; SrcExhausted consumes
 * nothing (call again with more source). */
ZYRDC_API ZyrStatus zyrsUnpackHuffContext_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen,
    uint32_t* pCode, uint32_t* pCodeLenBits, uint8_t* pInUse, uint8_t* pState);
/* Decodes symbols until EOB (Ok, EOB not written), SrcExhausted or DstFull, resumable at
 * any split; *pDstLen: capacity in, symbols out. */
ZYRDC_API ZyrStatus zyrsDecodeHuff_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen,
    uint32_t* pCode, uint32_t* pCodeLenBits, uint16_t* pDst, int32_t* pDstLen, uint8_t* pState);
/* bzip2 block stages: block decoder                                                   */
/* ---------------------------------------------------------------------------------- */

/* Writes the block buffer size for blocks of up to blockSize (1..900000) bytes of the
 * transform: 4 * blockSize + 1152. */
ZYRDC_API ZyrStatus zyrsDecodeBlockGetSize_BZ2_8u(int32_t blockSize, int32_t* pSize);
/* Decodes a block's zero-run symbols (EOB stripped) to its bytes: srcLen >= 1 starts a block
 * (in-use table not 0/1 or empty: Error; bad symbol, length or origPtr: CorruptStream),
 * srcLen 0 continues one (none in progress with this blockSize: BadContext; pSrc and pInUse
 * must still be non-null). *pDstLen: capacity in, bytes out; Ok at the block's end, DstFull
 * to be continued. Pass the same pBuffer on every call of a block. With room for the whole
 * transform (n + 256 bytes) the first call may use the destination beyond the bytes it
 * reports as scratch. */
ZYRDC_API ZyrStatus zyrsDecodeBlock_BZ2_16u8u(const uint16_t* pSrc, int32_t srcLen,
    const uint8_t* pInUse, int32_t origPtr, int32_t blockSize, uint8_t* pDst, int32_t* pDstLen,
    uint8_t* pBuffer);

/* ---------------------------------------------------------------------------------- */
/* ZFP compression of 4x4x4 float blocks                                               */
/* ---------------------------------------------------------------------------------- */

/* Writes the size of a ZfpState (560 in the i686 build, 576 in the x86-64 build). */
ZYRDC_API ZyrStatus zyrsEncodeZfpGetStateSize_32f(int32_t* pSize);
/* Writes the size of a ZfpState, as zyrsEncodeZfpGetStateSize_32f. */
ZYRDC_API ZyrStatus zyrsDecodeZfpGetStateSize_32f(int32_t* pSize);
/* Starts an encoder over pDst[0..dstLen) with the default parameters. */
ZYRDC_API ZyrStatus zyrsEncodeZfpInit_32f(uint8_t* pDst, int32_t dstLen, ZfpState* pState);
/* Starts a decoder over pSrc[0..srcLen) with the default parameters. */
ZYRDC_API ZyrStatus zyrsDecodeZfpInit_32f(const uint8_t* pSrc, int32_t srcLen, ZfpState* pState);
/* As zyrsEncodeZfpInit_32f with a 64-bit length (only 0 refused; the low 32 bits count). */
ZYRDC_API ZyrStatus zyrsEncodeZfpInitLong_32f(uint8_t* pDst, uint64_t dstLen, ZfpState* pState);
/* As zyrsDecodeZfpInit_32f with a 64-bit length (only 0 refused; the low 32 bits count). */
ZYRDC_API ZyrStatus zyrsDecodeZfpInitLong_32f(const uint8_t* pSrc, uint64_t srcLen,
    ZfpState* pState);
/* Stores the four block parameters unchecked (rate: minBits = maxBits; precision: maxPrec;
 * accuracy: minExp). */
ZYRDC_API ZyrStatus zyrsEncodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec,
    int32_t minExp, ZfpState* pState);
/* Decoder twin of zyrsEncodeZfpSet_32f; use the encoder's values. */
ZYRDC_API ZyrStatus zyrsDecodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec,
    int32_t minExp, ZfpState* pState);
/* Sets minExp to floor(log2(tolerance)), or to -10740 when tolerance is not positive. */
ZYRDC_API ZyrStatus zyrsEncodeZfpSetAccuracy_32f(double tolerance, ZfpState* pState);
/* Decoder twin of zyrsEncodeZfpSetAccuracy_32f. */
ZYRDC_API ZyrStatus zyrsDecodeZfpSetAccuracy_32f(double tolerance, ZfpState* pState);
/* Bits written so far (32-bit arithmetic, sign-extended: wraps from 2^28 bytes on). */
ZYRDC_API ZyrStatus zyrsEncodeZfpGetCompressedBitSize_32f(const ZfpState* pState, int64_t* pBits);
/* Whole bytes written so far, as a 64-bit value. */
ZYRDC_API ZyrStatus zyrsEncodeZfpGetCompressedSizeLong_32f(const ZfpState* pState,
    int64_t* pSize);
/* Whole bytes written so far. */
ZYRDC_API ZyrStatus zyrsEncodeZfpGetCompressedSize_32f(const ZfpState* pState, int32_t* pSize);
/* Compressed bytes consumed so far, as a 64-bit value. */
ZYRDC_API ZyrStatus zyrsDecodeZfpGetDecompressedSizeLong_32f(const ZfpState* pState,
    int64_t* pSize);
/* Compressed bytes consumed so far. */
ZYRDC_API ZyrStatus zyrsDecodeZfpGetDecompressedSize_32f(const ZfpState* pState, int32_t* pSize);
/* Writes the pending bits to the stream, ending it on a word boundary. */
ZYRDC_API ZyrStatus zyrsEncodeZfpFlush_32f(ZfpState* pState);
/* Codes one 4x4x4 block read at pSrc with row and plane steps in bytes; StreamExhausted
 * when a stream word does not fit. */
ZYRDC_API ZyrStatus zyrsEncodeZfp444_32f(const float* pSrc, int32_t srcStep,
    int32_t srcPlaneStep, ZfpState* pState);
/* Decodes one block to pDst with row and plane steps in bytes (note: state first). */
ZYRDC_API ZyrStatus zyrsDecodeZfp444_32f(ZfpState* pState, float* pDst, int32_t dstStep,
    int32_t dstPlaneStep);

#ifdef __cplusplus
}
#endif

#endif /* ZYRDC_H */
