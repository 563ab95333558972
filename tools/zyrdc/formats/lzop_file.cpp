// lzop_file.cpp - lzop members written and read block by block.
#include "formats/lzop_file.hpp"

#include <algorithm>
#include <cstring>

namespace zyrdc::tool {

namespace {

constexpr std::uint8_t kSignature[9] = {0x89, 'L', 'Z', 'O', 0x00, 0x0D, 0x0A, 0x1A, 0x0A};
// Header flags.
constexpr std::uint32_t kAdler32Decoded = 0x0001, kAdler32Coded = 0x0002,
                        kExtraField = 0x0040, kCrc32Decoded = 0x0100, kCrc32Coded = 0x0200,
                        kFilter = 0x0800, kHeaderCrc32 = 0x1000;
// Methods: all three are LZO1X streams (fast, fast with a larger table, best).
constexpr std::uint8_t kMethodLzo1x1 = 1, kMethodLzo1x1_15 = 2, kMethodLzo1x999 = 3;
// Headers from this version on carry the version needed to extract, the level and the
// high word of the time.
constexpr std::uint16_t kVersionWithLevel = 0x0940;
constexpr std::uint32_t kMaxBlock = std::uint32_t{64} << 20;
// What this program writes: the header version of lzop 1.04, the LZO format version it
// declares, the version needed to read the header (a CRC-32 header needs a later one), Unix
// as the system, blocks of 256 KiB.
constexpr std::uint16_t kWriteVersion = 0x1040, kWriteLibVersion = 0x20a0, kNeedVersion = 0x0940,
                        kNeedVersionCrc = 0x1001;
constexpr std::uint32_t kStdin = 0x0004, kStdout = 0x0008, kOsUnix = 0x03000000;
constexpr std::uint32_t kWriteBlock = std::uint32_t{256} << 10;

std::uint32_t Adler32(std::span<const std::uint8_t> bytes) {
    std::uint32_t v = 1;
    CheckStatus(zyrsAdler32_8u(bytes.data(), static_cast<std::int32_t>(bytes.size()), &v), "Adler-32");
    return v;
}
std::uint32_t Crc32(std::span<const std::uint8_t> bytes) {
    std::uint32_t v = 0;
    if (!bytes.empty()) {
        CheckStatus(zyrsCRC32_8u(bytes.data(), static_cast<std::int32_t>(bytes.size()), &v), "CRC-32");
    }
    return v;
}

// Exact reads from the input; the bytes of the header are kept for its checksum.
class Reader {
public:
    Reader(const ReadFn& in, const std::string& name) : in_(in), name_(name) {}

    // As many of n bytes as the input still holds.
    std::size_t ReadUpTo(std::uint8_t* p, std::size_t n) {
        const std::size_t got = ReadFull(in_, std::span(p, n));
        if (keep_) header_.insert(header_.end(), p, p + got);
        return got;
    }
    void Read(std::uint8_t* p, std::size_t n) {
        if (ReadUpTo(p, n) != n) Truncated();
    }
    std::uint32_t ReadBig(int bytes) {
        std::uint8_t b[4];
        Read(b, static_cast<std::size_t>(bytes));
        return static_cast<std::uint32_t>(LoadBe(b, bytes));
    }
    void KeepHeader(bool on) {
        keep_ = on;
        if (on) header_.clear();
    }
    const std::vector<std::uint8_t>& Header() const { return header_; }

private:
    [[noreturn]] void Truncated() { throw Failure(name_ + ": unexpected end of file"); }

    const ReadFn& in_;
    const std::string& name_;
    bool keep_ = false;
    std::vector<std::uint8_t> header_;
};

// Reads a member's header after its signature; returns its flags.
std::uint32_t ReadHeader(Reader& r, const std::string& name, std::uint8_t* method_out, std::uint8_t* level_out) {
    r.KeepHeader(true);
    const std::uint32_t version = r.ReadBig(2);
    r.ReadBig(2);  // the library version that wrote it
    if (version >= kVersionWithLevel) r.ReadBig(2);  // the version needed to extract
    const std::uint32_t method = r.ReadBig(1);
    if (version >= kVersionWithLevel) *level_out = static_cast<std::uint8_t>(r.ReadBig(1));
    const std::uint32_t flags = r.ReadBig(4);
    if ((flags & kFilter) != 0) throw Failure(name + ": filtered lzop data is not supported");
    if (method != kMethodLzo1x1 && method != kMethodLzo1x1_15 && method != kMethodLzo1x999) {
        throw Failure(name + ": compression method " + std::to_string(method) + " is not LZO1X");
    }
    *method_out = static_cast<std::uint8_t>(method);
    r.ReadBig(4);  // mode
    r.ReadBig(4);  // time, low word
    if (version >= kVersionWithLevel) r.ReadBig(4);  // time, high word
    std::uint8_t stored_name[255];
    r.Read(stored_name, r.ReadBig(1));
    r.KeepHeader(false);
    const std::uint32_t sum = (flags & kHeaderCrc32) != 0 ? Crc32(r.Header()) : Adler32(r.Header());
    if (r.ReadBig(4) != sum) throw Failure(name + ": header checksum mismatch");
    if ((flags & kExtraField) != 0) throw Failure(name + ": extra header fields are not supported");
    return flags;
}

// The library's decoder holds a stream to two rules that lzop's own does not: the first
// literal run of a stream must be followed by an ordinary match, and a source whose first
// bytes read like a segmented container is taken for one. A block that fails, or starts like
// a container, is decoded again behind 4 bytes that put its opening where those rules do
// not apply: one literal and a 3-byte match with no trailing literals, after which a run
// header means what it means to lzop; a first byte 17 + k for k of 1..3 literals becomes the
// same k literals trailing the match. Returns an empty buffer for a block that has no such
// form (a first byte of 16 or 17).
constexpr std::size_t kPrefixOutput = 4;

std::vector<std::uint8_t> Reopened(std::span<const std::uint8_t> block) {
    const std::uint8_t t = block[0];
    std::vector<std::uint8_t> s = {18, 0x00, 64, 0x00};
    if (t < 16) {
        s.insert(s.end(), block.begin(), block.end());
        return s;
    }
    if (t < 18) return {};
    const unsigned k = t - 17u;
    if (k <= 3) {
        s[2] = static_cast<std::uint8_t>(64 | k);  // the match carries k trailing literals
    } else if (k <= 18) {
        s.push_back(static_cast<std::uint8_t>(k - 3));  // a run of 4..18
    } else {
        s.insert(s.end(), {0x00, static_cast<std::uint8_t>(k - 18)});  // 18 + b
    }
    s.insert(s.end(), block.begin() + 1, block.end());
    return s;
}

void DecodeBlock(std::span<const std::uint8_t> block, std::vector<std::uint8_t>& out,
                 std::uint32_t size, const std::string& where) {
    out.resize(size + kPrefixOutput);
    std::uint32_t len = size;
    if (block[0] != 0x55 &&
        zyrsDecodeLZOSafe_8u(block.data(), static_cast<std::uint32_t>(block.size()), out.data(), &len) == StatusOk &&
        len == size) {
        out.resize(size);
        return;
    }
    const std::vector<std::uint8_t> again = Reopened(block);
    len = size + kPrefixOutput;
    if (again.empty() ||
        zyrsDecodeLZOSafe_8u(again.data(), static_cast<std::uint32_t>(again.size()), out.data(), &len) != StatusOk ||
        len != size + kPrefixOutput) {
        throw Failure(where + ": corrupt LZO data");
    }
    out.erase(out.begin(), out.begin() + kPrefixOutput);
}

// Decodes the blocks of one member into out (or only checks them when out is null; only
// reads them when `list`).
void DecodeMember(Reader& r, std::uint32_t flags, const WriteFn& out, const std::string& name, LzopTotals& totals,
                  bool list) {
    std::vector<std::uint8_t> data, decoded;
    for (std::uint64_t index = 0;; ++index) {
        const std::string where = name + ": block " + std::to_string(index);
        const std::uint32_t size = r.ReadBig(4);
        if (size == 0) return;
        const std::uint32_t coded = r.ReadBig(4);
        if (size > kMaxBlock || coded == 0 || coded > size) throw Failure(where + ": invalid block sizes");
        const bool packed = coded < size;
        const std::uint32_t adler_d = (flags & kAdler32Decoded) != 0 ? r.ReadBig(4) : 0;
        const std::uint32_t crc_d = (flags & kCrc32Decoded) != 0 ? r.ReadBig(4) : 0;
        const std::uint32_t adler_c = packed && (flags & kAdler32Coded) != 0 ? r.ReadBig(4) : 0;
        const std::uint32_t crc_c = packed && (flags & kCrc32Coded) != 0 ? r.ReadBig(4) : 0;
        data.resize(coded);
        r.Read(data.data(), coded);
        totals.decoded += size;
        totals.coded += coded;
        if (list) continue;
        if (packed) {
            if (((flags & kAdler32Coded) != 0 && Adler32(data) != adler_c) ||
                ((flags & kCrc32Coded) != 0 && Crc32(data) != crc_c)) {
                throw Failure(where + ": checksum mismatch in the compressed data");
            }
            DecodeBlock(data, decoded, size, where);
        } else {
            decoded.swap(data);
        }
        if (((flags & kAdler32Decoded) != 0 && Adler32(decoded) != adler_d) ||
            ((flags & kCrc32Decoded) != 0 && Crc32(decoded) != crc_d)) {
            throw Failure(where + ": checksum mismatch");
        }
        if (out) out(decoded);
    }
}

// ---- writing -----------------------------------------------------------------------------

}  // namespace

LzopTotals LzopDecompress(const ReadFn& read, const WriteFn& write, const std::string& name, bool list) {
    LzopTotals totals;
    Reader r(read, name);
    std::uint8_t signature[sizeof kSignature];
    bool first = true;
    // Members follow one another; the input ends after a member or not at all.
    while (const std::size_t got = r.ReadUpTo(signature, sizeof signature)) {
        if (got < sizeof signature || std::memcmp(signature, kSignature, sizeof kSignature) != 0) {
            throw Failure(name + (first ? ": not an lzop file" : ": trailing data after the last member"));
        }
        const std::uint32_t flags = ReadHeader(r, name, &totals.method, &totals.level);
        DecodeMember(r, flags, write, name, totals, list);
        first = false;
    }
    if (first) throw Failure(name + ": empty input, not an lzop file");
    return totals;
}

void LzopCompress(const ReadFn& read, const WriteFn& write, const LzopWriteOptions& opt, const LzopSource& source) {
    std::uint32_t flags = kOsUnix | (source.from_stdin ? kStdin : 0) | (source.to_stdout ? kStdout : 0);
    if (opt.checksum) flags |= opt.crc32 ? kCrc32Decoded : kAdler32Decoded;
    if (opt.checksum_coded) flags |= opt.crc32 ? kCrc32Coded : kAdler32Coded;
    if (opt.crc32) flags |= kHeaderCrc32;
    std::string name = source.name;
    if (name.size() > 255) name.resize(255);
    const std::uint32_t mode = source.mode;
    const std::uint64_t mtime = source.mtime;
    const bool best = opt.level >= 7;
    std::vector<std::uint8_t> h(kSignature, kSignature + sizeof kSignature);
    AppendBe(h, kWriteVersion, 2);
    AppendBe(h, kWriteLibVersion, 2);
    AppendBe(h, opt.crc32 ? kNeedVersionCrc : kNeedVersion, 2);
    AppendBe(h, best ? kMethodLzo1x999 : kMethodLzo1x1, 1);
    AppendBe(h, static_cast<std::uint32_t>(opt.level), 1);
    AppendBe(h, flags, 4);
    AppendBe(h, mode, 4);
    AppendBe(h, static_cast<std::uint32_t>(mtime), 4);
    AppendBe(h, static_cast<std::uint32_t>(mtime >> 32), 4);
    AppendBe(h, static_cast<std::uint32_t>(name.size()), 1);
    h.insert(h.end(), name.begin(), name.end());
    const std::span<const std::uint8_t> covered(h.data() + sizeof kSignature, h.size() - sizeof kSignature);
    AppendBe(h, opt.crc32 ? Crc32(covered) : Adler32(covered), 4);
    write(h);

    LzoEncoder encoder(best ? LzoMethodHigh : LzoMethodFast, kWriteBlock);
    std::vector<std::uint8_t> block(kWriteBlock), head;
    while (const std::size_t got = ReadFull(read, block)) {
        const std::span<const std::uint8_t> data(block.data(), got);
        const std::span<const std::uint8_t> coded = encoder.Encode(data);
        const bool packed = coded.size() < got;
        head.clear();
        AppendBe(head, static_cast<std::uint32_t>(got), 4);
        AppendBe(head, static_cast<std::uint32_t>(packed ? coded.size() : got), 4);
        if (opt.checksum) AppendBe(head, opt.crc32 ? Crc32(data) : Adler32(data), 4);
        if (opt.checksum_coded && packed) AppendBe(head, opt.crc32 ? Crc32(coded) : Adler32(coded), 4);
        write(head);
        write(packed ? coded : data);
    }
    head.assign(4, 0);  // a decoded size of 0 ends the member
    write(head);
}


std::string LzopMethodName(const LzopTotals& t) {
    if (t.method == kMethodLzo1x1) return "LZO1X-1";
    if (t.method == kMethodLzo1x1_15) return "LZO1X-1(15)";
    return "LZO1X-999/" + std::to_string(t.level);
}

}  // namespace zyrdc::tool
