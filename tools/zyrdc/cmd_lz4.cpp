// cmd_lz4.cpp - `zyrdc lz4`: files in the LZ4 frame format, blocks coded by the library.
// Writes one frame of independent blocks of up to 4 MiB with a content checksum; reads
// frames as the standard tool writes them (independent or linked blocks, block and content
// checksums, content size, skippable frames, concatenated frames, the legacy format).
// xxHash32 comes from libxxhash.
#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "commands.hpp"
#include "common.hpp"
#include "output_file.hpp"

#if defined(ZYRDC_HAVE_XXHASH)
#include <xxhash.h>
#endif

namespace zyrdc::tool {

#if defined(ZYRDC_HAVE_XXHASH)

namespace {

constexpr OptionDef kOptions[] = {{'d', "decompress", false}, {'f', "force", false},
                                  {'\0', "fast", true}};

constexpr std::uint32_t kFrameMagic = 0x184D2204;
constexpr std::uint32_t kLegacyMagic = 0x184C2102;
constexpr std::uint32_t kSkippableMagic = 0x184D2A50;  // the low 4 bits are free
constexpr std::uint32_t kSkippableMask = 0xFFFFFFF0;
// Frame descriptor: FLG byte, then BD byte.
constexpr std::uint8_t kVersionMask = 0xC0, kVersion1 = 0x40;
constexpr std::uint8_t kIndependent = 0x20, kBlockChecksum = 0x10, kContentSize = 0x08,
                       kContentChecksum = 0x04, kFlagReserved = 0x02, kDictId = 0x01;
constexpr std::uint8_t kBdReserved = 0x8F;
constexpr int kMinBlockId = 4, kWrittenBlockId = 7;  // 64 KiB .. 4 MiB; we write 4 MiB
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

std::uint32_t GetLe32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
           static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}
void PutLe32(OutputFile& out, std::uint32_t v) {
    const std::uint8_t b[4] = {static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v >> 8),
                               static_cast<std::uint8_t>(v >> 16), static_cast<std::uint8_t>(v >> 24)};
    out.Write(b);
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

void Compress(InputFile& in, OutputFile& out, int acceleration) {
    const std::size_t blockMax = BlockMax(kWrittenBlockId);
    std::vector<std::uint8_t> src(blockMax), dst(EncodedBound(blockMax));
    std::int32_t tableSize = 0;
    CheckStatus(zyrsEncodeLZ4HashTableGetSize_8u(&tableSize), "hash table size");
    std::vector<std::uint8_t> table(static_cast<std::size_t>(tableSize));

    std::uint8_t header[7] = {0x04, 0x22, 0x4D, 0x18, kVersion1 | kIndependent | kContentChecksum,
                              kWrittenBlockId << 4, 0};
    header[6] = HeaderChecksum(header + 4, 2);
    out.Write(header);
    ContentHash content;
    while (const std::size_t got = in.Read(src)) {
        content.Update(src.data(), got);
        const auto n = static_cast<std::int32_t>(got);
        std::int32_t coded = 0;
        CheckStatus(acceleration == 1
                        ? zyrsEncodeLZ4_8u(src.data(), n, dst.data(), &coded, table.data())
                        : zyrsEncodeLZ4Fast_8u(src.data(), n, dst.data(), &coded, table.data(), acceleration),
                    "LZ4 block encoding");
        // A block that did not shrink is stored as it is.
        if (coded < n) {
            PutLe32(out, static_cast<std::uint32_t>(coded));
            out.Write(std::span(dst).first(static_cast<std::size_t>(coded)));
        } else {
            PutLe32(out, static_cast<std::uint32_t>(n) | kStoredBit);
            out.Write(std::span(src).first(got));
        }
    }
    PutLe32(out, 0);
    PutLe32(out, content.Digest());
}

// ---- reading ----------------------------------------------------------------------------

class Reader {
public:
    explicit Reader(InputFile& in) : in_(in) {}
    // False at the end of the input; a partial read is a truncated frame.
    bool ReadOrEnd(std::uint8_t* p, std::size_t n) {
        const std::size_t got = in_.Read(std::span(p, n));
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
        return GetLe32(b);
    }
    [[noreturn]] void Corrupt(const std::string& what) const { throw Failure(in_.Name() + ": " + what); }
    [[noreturn]] void Truncated() const { Corrupt("truncated LZ4 frame"); }

private:
    InputFile& in_;
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

void DecodeFrame(Reader& r, OutputFile& out) {
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
    if ((flg & kDictId) != 0) r.Corrupt("the LZ4 frame needs a dictionary, which zyrdc lz4 does not take");

    const std::size_t max = BlockMax(blockId);
    const bool linked = (flg & kIndependent) == 0;
    std::vector<std::uint8_t> block(max), window(kWindow + max + kDecodeSlack);
    std::uint8_t* const dest = window.data() + kWindow;
    std::size_t history = 0;
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
        if ((field & kStoredBit) != 0) {
            std::memcpy(dest, block.data(), n);
        } else {
            produced = DecodeBlock(r, block, n, dest, linked ? history : 0, max);
        }
        content.Update(dest, produced);
        out.Write(std::span(dest, produced));
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
bool DecodeLegacy(Reader& r, OutputFile& out, std::uint32_t& next) {
    std::vector<std::uint8_t> block(EncodedBound(kLegacyBlock)), dest(kLegacyBlock + kDecodeSlack);
    for (;;) {
        std::uint8_t b[4];
        if (!r.ReadOrEnd(b, 4)) return false;
        const std::uint32_t n = GetLe32(b);
        if (IsMagic(n)) {
            next = n;
            return true;
        }
        if (n > block.size()) r.Corrupt("LZ4 block larger than the legacy format allows");
        r.Read(block.data(), n);
        out.Write(std::span(dest.data(), DecodeBlock(r, block, n, dest.data(), 0, kLegacyBlock)));
    }
}

void Decompress(InputFile& in, OutputFile& out) {
    Reader r(in);
    std::uint32_t magic = 0;
    bool have = false;  // a magic number already read by a legacy frame
    for (int frames = 0;; ++frames) {
        if (!have) {
            std::uint8_t b[4];
            if (!r.ReadOrEnd(b, 4)) {
                if (frames == 0) r.Corrupt("empty input, no LZ4 frame");
                return;
            }
            magic = GetLe32(b);
        }
        have = false;
        if (magic == kFrameMagic) {
            DecodeFrame(r, out);
        } else if (magic == kLegacyMagic) {
            have = DecodeLegacy(r, out, magic);
        } else if ((magic & kSkippableMask) == kSkippableMagic) {
            r.Skip(r.Read32());
        } else {
            r.Corrupt(frames == 0 ? "not in the LZ4 frame format" : "unknown data after the last LZ4 frame");
        }
    }
}

int ParseAcceleration(const std::string& text) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < 1 || value > 65537) {
        throw UsageError("invalid acceleration '" + text + "' (a whole number from 1 to 65537)");
    }
    return static_cast<int>(value);
}

}  // namespace

int RunLz4(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    const bool decompress = !parsed.Values("decompress").empty();
    int acceleration = 1;
    for (const std::string& value : parsed.Values("fast")) {
        if (decompress) throw UsageError("--fast applies to compression only");
        acceleration = ParseAcceleration(value);
    }
    if (parsed.operands.size() != 2) {
        throw UsageError("expected an input and an output file");
    }
    InputFile in(parsed.operands[0]);
    OutputFile out(parsed.operands[1], !parsed.Values("force").empty());
    if (decompress) {
        Decompress(in, out);
    } else {
        Compress(in, out, acceleration);
    }
    out.Commit();
    return kExitOk;
}

#else

int RunLz4(const Command&, std::span<char* const>) {
    throw Failure("this zyrdc was built without libxxhash, which LZ4 frames need");
}

#endif

}  // namespace zyrdc::tool
