// cmd_lzop.cpp - `zyrdc lzop`: files of the standard lzop tool, written with the library's
// LZO1X encoder (levels 1..6 its single-probe method, declared as LZO1X-1; 7..9 its chained
// method, declared as LZO1X-999), read back with its checked decoder, listed and tested, the
// checksums computed with its Adler-32 and CRC-32. `zyrdc lzo` writes and reads the library's
// segmented container as a raw file.
//
// A file is one or more members, each: a 9-byte signature, a header (version, method, flags,
// mode, time, name) closed by its checksum, then blocks of up to 64 MiB: the decoded and the
// coded size, the checksums the flags ask for, the data (stored when both sizes agree); a
// decoded size of 0 ends the member. Numbers are big-endian.
#include <sys/stat.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "commands.hpp"
#include "common.hpp"
#include "output_file.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {
    {'d', "decompress", false}, {'f', "force", false},  {'c', "stdout", false},
    {'k', "keep", false},       {'t', "test", false},   {'l', "list", false},
    {'F', "no-checksum", false}, {'C', "checksum-compressed", false}, {'\0', "crc32", false},
    {'1', "fast", false},       {'2', "level2", false}, {'3', "level3", false},
    {'4', "level4", false},     {'5', "level5", false}, {'6', "level6", false},
    {'7', "level7", false},     {'8', "level8", false}, {'9', "best", false},
};

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
    explicit Reader(InputFile& in) : in_(in) {}

    // As many of n bytes as the input still holds.
    std::size_t ReadUpTo(std::uint8_t* p, std::size_t n) {
        const std::size_t got = in_.Read(std::span(p, n));
        if (keep_) header_.insert(header_.end(), p, p + got);
        return got;
    }
    void Read(std::uint8_t* p, std::size_t n) {
        if (ReadUpTo(p, n) != n) Truncated();
    }
    std::uint32_t ReadBig(int bytes) {
        std::uint8_t b[4];
        Read(b, static_cast<std::size_t>(bytes));
        std::uint32_t v = 0;
        for (int i = 0; i < bytes; ++i) v = v << 8 | b[i];
        return v;
    }
    void KeepHeader(bool on) {
        keep_ = on;
        if (on) header_.clear();
    }
    const std::vector<std::uint8_t>& Header() const { return header_; }

private:
    [[noreturn]] void Truncated() { throw Failure(in_.Name() + ": unexpected end of file"); }

    InputFile& in_;
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

// What a member held, for the listing.
struct Totals {
    std::uint64_t decoded = 0, coded = 0;
    std::uint8_t method = 0, level = 0;
};

// Decodes the blocks of one member into out (or only checks them when out is null; only
// reads them when `list`).
void DecodeMember(Reader& r, std::uint32_t flags, OutputFile* out, const std::string& name, Totals& totals,
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
        if (out != nullptr) out->Write(decoded);
    }
}

Totals Decompress(InputFile& in, OutputFile* out, bool list = false) {
    Totals totals;
    Reader r(in);
    std::uint8_t signature[sizeof kSignature];
    bool first = true;
    // Members follow one another; the input ends after a member or not at all.
    while (const std::size_t got = r.ReadUpTo(signature, sizeof signature)) {
        if (got < sizeof signature || std::memcmp(signature, kSignature, sizeof kSignature) != 0) {
            throw Failure(in.Name() + (first ? ": not an lzop file" : ": trailing data after the last member"));
        }
        const std::uint32_t flags = ReadHeader(r, in.Name(), &totals.method, &totals.level);
        DecodeMember(r, flags, out, in.Name(), totals, list);
        first = false;
    }
    if (first) throw Failure(in.Name() + ": empty input, not an lzop file");
    return totals;
}

// ---- writing -----------------------------------------------------------------------------

struct WriteOptions {
    int level = 3;
    bool crc32 = false;           // CRC-32 instead of Adler-32, for the header too
    bool checksum = true;         // of each block's decoded bytes
    bool checksum_coded = false;  // of each packed block's coded bytes as well
};

void PutBig(std::vector<std::uint8_t>& v, std::uint32_t x, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) v.push_back(static_cast<std::uint8_t>(x >> (8 * i)));
}

// The library's encoder over one record, reused for every block.
class Encoder {
public:
    Encoder(std::int32_t method, std::uint32_t maxInput) {
        std::uint32_t size = 0;
        CheckStatus(zyrsEncodeLZOGetSize(method, maxInput, &size), "zyrsEncodeLZOGetSize");
        record_.resize((size + 3) / 4);
        CheckStatus(zyrsEncodeLZOInit_8u(method, maxInput, State()), "zyrsEncodeLZOInit_8u");
        bound_ = method == LzoMethodSegmented ? ZYRDC_LZO_SEGMENTED_BOUND(std::uint64_t{maxInput})
                                              : ZYRDC_LZO_BOUND(std::uint64_t{maxInput});
    }
    std::span<const std::uint8_t> Encode(std::span<const std::uint8_t> in) {
        out_.resize(bound_);
        std::uint32_t len = static_cast<std::uint32_t>(out_.size());
        static const std::uint8_t kNothing = 0;  // an empty input still needs a source address
        const std::uint8_t* src = in.empty() ? &kNothing : in.data();
        CheckStatus(zyrsEncodeLZO_8u(src, static_cast<std::uint32_t>(in.size()), out_.data(), &len, State()),
                    "zyrsEncodeLZO_8u");
        return std::span(out_.data(), len);
    }

private:
    std::uint8_t* State() { return reinterpret_cast<std::uint8_t*>(record_.data()); }
    std::vector<std::uint32_t> record_;  // 4-byte aligned
    std::vector<std::uint8_t> out_;
    std::uint64_t bound_ = 0;
};

void Compress(InputFile& in, OutputFile& out, bool to_stdout, const WriteOptions& opt) {
    const bool from_stdin = in.Name() == "-";
    std::uint32_t flags = kOsUnix | (from_stdin ? kStdin : 0) | (to_stdout ? kStdout : 0);
    if (opt.checksum) flags |= opt.crc32 ? kCrc32Decoded : kAdler32Decoded;
    if (opt.checksum_coded) flags |= opt.crc32 ? kCrc32Coded : kAdler32Coded;
    if (opt.crc32) flags |= kHeaderCrc32;
    std::uint32_t mode = 0;
    std::uint64_t mtime = static_cast<std::uint64_t>(std::time(nullptr));
    std::string name;
    if (!from_stdin) {
        struct stat st {};
        if (::stat(in.Name().c_str(), &st) == 0) {
            mode = st.st_mode;
            mtime = static_cast<std::uint64_t>(st.st_mtime);
        }
        name = in.Name().substr(in.Name().find_last_of('/') + 1);
        if (name.size() > 255) name.resize(255);
    }
    const bool best = opt.level >= 7;
    std::vector<std::uint8_t> h(kSignature, kSignature + sizeof kSignature);
    PutBig(h, kWriteVersion, 2);
    PutBig(h, kWriteLibVersion, 2);
    PutBig(h, opt.crc32 ? kNeedVersionCrc : kNeedVersion, 2);
    PutBig(h, best ? kMethodLzo1x999 : kMethodLzo1x1, 1);
    PutBig(h, static_cast<std::uint32_t>(opt.level), 1);
    PutBig(h, flags, 4);
    PutBig(h, mode, 4);
    PutBig(h, static_cast<std::uint32_t>(mtime), 4);
    PutBig(h, static_cast<std::uint32_t>(mtime >> 32), 4);
    PutBig(h, static_cast<std::uint32_t>(name.size()), 1);
    h.insert(h.end(), name.begin(), name.end());
    const std::span<const std::uint8_t> covered(h.data() + sizeof kSignature, h.size() - sizeof kSignature);
    PutBig(h, opt.crc32 ? Crc32(covered) : Adler32(covered), 4);
    out.Write(h);

    Encoder encoder(best ? LzoMethodHigh : LzoMethodFast, kWriteBlock);
    std::vector<std::uint8_t> block(kWriteBlock), head;
    while (const std::size_t got = in.Read(block)) {
        const std::span<const std::uint8_t> data(block.data(), got);
        const std::span<const std::uint8_t> coded = encoder.Encode(data);
        const bool packed = coded.size() < got;
        head.clear();
        PutBig(head, static_cast<std::uint32_t>(got), 4);
        PutBig(head, static_cast<std::uint32_t>(packed ? coded.size() : got), 4);
        if (opt.checksum) PutBig(head, opt.crc32 ? Crc32(data) : Adler32(data), 4);
        if (opt.checksum_coded && packed) PutBig(head, opt.crc32 ? Crc32(coded) : Adler32(coded), 4);
        out.Write(head);
        out.Write(packed ? coded : data);
    }
    head.assign(4, 0);  // a decoded size of 0 ends the member
    out.Write(head);
}

std::string MethodName(const Totals& t) {
    if (t.method == kMethodLzo1x1) return "LZO1X-1";
    if (t.method == kMethodLzo1x1_15) return "LZO1X-1(15)";
    return "LZO1X-999/" + std::to_string(t.level);
}

bool HasSuffix(const std::string& name) { return name.size() > 4 && name.ends_with(".lzo"); }

}  // namespace

int RunLzop(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    WriteOptions opt;
    for (const auto& [option, value] : parsed.options) {
        for (int level = 1; level <= 9; ++level) {
            if (option == kOptions[8 + level].long_name) opt.level = level;
        }
    }
    opt.crc32 = !parsed.Values("crc32").empty();
    opt.checksum = parsed.Values("no-checksum").empty();
    opt.checksum_coded = !parsed.Values("checksum-compressed").empty();
    const bool decompress = !parsed.Values("decompress").empty();
    const bool to_stdout = !parsed.Values("stdout").empty();
    const bool force = !parsed.Values("force").empty();
    const bool test = !parsed.Values("test").empty(), list = !parsed.Values("list").empty();
    if (test && list) throw UsageError("give at most one of -t and -l");
    std::vector<std::string> inputs = parsed.operands;
    if (inputs.empty()) inputs.push_back("-");

    if (list) {
        std::printf("method      compressed  uncompr. ratio uncompressed_name\n");
        auto row = [](const std::string& method, std::uint64_t coded, std::uint64_t decoded, const std::string& name) {
            const double ratio = decoded == 0 ? 0.0 : 100.0 * static_cast<double>(coded) / static_cast<double>(decoded);
            std::printf("%-11s%10" PRIu64 "%10" PRIu64 "%6.1f%% %s\n", method.c_str(), coded, decoded, ratio, name.c_str());
        };
        Totals all;
        for (const std::string& name : inputs) {
            InputFile in(name);
            const Totals t = Decompress(in, nullptr, true);
            row(MethodName(t), t.coded, t.decoded, HasSuffix(name) ? name.substr(0, name.size() - 4) : name);
            all.coded += t.coded;
            all.decoded += t.decoded;
        }
        if (inputs.size() > 1) {
            row("", all.coded, all.decoded, "(totals -- " + std::to_string(inputs.size()) + " files)");
        }
        return kExitOk;
    }
    if (test) {
        for (const std::string& name : inputs) {
            InputFile in(name);
            Decompress(in, nullptr);
            std::printf("testing %s OK\n", name.c_str());
        }
        return kExitOk;
    }
    // IN OUT as before; one file with -c, or a single IN, or standard input, writes to the
    // standard output or beside IN (with .lzo added, or removed with -d), keeping IN.
    std::vector<std::pair<std::string, std::string>> jobs;
    if (to_stdout) {
        for (const std::string& name : inputs) jobs.emplace_back(name, "-");
    } else if (inputs.size() == 2) {
        jobs.emplace_back(inputs[0], inputs[1]);
    } else if (inputs.size() == 1) {
        const std::string& name = inputs[0];
        if (name == "-") {
            jobs.emplace_back(name, "-");
        } else if (!decompress) {
            jobs.emplace_back(name, name + ".lzo");
        } else if (HasSuffix(name)) {
            jobs.emplace_back(name, name.substr(0, name.size() - 4));
        } else {
            throw UsageError(name + ": unknown suffix, expected .lzo (or give OUT or -c)");
        }
    } else {
        throw UsageError("expected IN and OUT, one IN, or -c with any number of files");
    }
    // With -c several members (or decoded files) follow one another on the standard output.
    std::unique_ptr<OutputFile> shared = to_stdout ? std::make_unique<OutputFile>("-", true) : nullptr;
    for (const auto& [from, to] : jobs) {
        InputFile in(from);
        std::unique_ptr<OutputFile> own = shared ? nullptr : std::make_unique<OutputFile>(to, force);
        OutputFile& out = shared ? *shared : *own;
        if (decompress) {
            Decompress(in, &out);
        } else {
            Compress(in, out, to == "-", opt);
        }
        if (own) own->Commit();
    }
    if (shared) shared->Commit();
    return kExitOk;
}

// `zyrdc lzo`: the segmented container as a raw file, for callers that decode its segments
// themselves (in parallel). The library chooses one segment per 64 KiB (2 to 32); --segments
// asks for a count, and the container is then put together here from single-probe streams
// of equal slices, in the same layout.
int RunLzo(const Command& self, std::span<char* const> args) {
    constexpr OptionDef kLzoOptions[] = {{'d', "decompress", false}, {'f', "force", false}, {'s', "segments", true}};
    const ParsedArgs parsed = ParseArgs(args, kLzoOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    if (parsed.operands.size() != 2) throw UsageError("expected IN and OUT");
    std::uint32_t segments = 0;
    for (const std::string& v : parsed.Values("segments")) {
        char* end = nullptr;
        const unsigned long n = std::strtoul(v.c_str(), &end, 10);
        if (v.empty() || *end != '\0' || n < 2 || n > 32) throw UsageError("--segments takes 2 to 32");
        segments = static_cast<std::uint32_t>(n);
    }
    const std::vector<std::uint8_t> in = ReadAll(parsed.operands[0]);
    if (in.size() > 0x7FFFFFFFu) throw Failure(parsed.operands[0] + ": larger than 2 GiB - 1 bytes");
    OutputFile out(parsed.operands[1], !parsed.Values("force").empty());
    if (!parsed.Values("decompress").empty()) {
        if (segments != 0) throw UsageError("--segments is for compression");
        // The header's total T sizes the output; a file too short for its header, or with
        // a total far beyond what its bytes can hold (LZO1X expands at most 255 times per
        // byte of run header), is refused before allocating.
        if (in.size() < 11 || in[0] != 0x55 || in[1] < 1 || in[1] > 32 || in[2] != (in[1] ^ 0x55)) {
            throw Failure(parsed.operands[0] + ": not a segmented LZO container");
        }
        const std::uint32_t total = static_cast<std::uint32_t>(in[3]) | static_cast<std::uint32_t>(in[4]) << 8 |
                                    static_cast<std::uint32_t>(in[5]) << 16 | static_cast<std::uint32_t>(in[6]) << 24;
        if (total > 0x7FFFFFFFu || total / 256 > in.size()) throw Failure(parsed.operands[0] + ": implausible length");
        std::vector<std::uint8_t> decoded(std::max<std::uint32_t>(total, 1));
        std::uint32_t len = total;
        const ZyrStatus s = zyrsDecodeLZOSafe_8u(in.data(), static_cast<std::uint32_t>(in.size()), decoded.data(), &len);
        if (s != StatusOk || len != total) throw Failure(parsed.operands[0] + ": corrupt LZO data");
        decoded.resize(total);
        out.Write(decoded);
    } else {
        const auto n = static_cast<std::uint32_t>(in.size());
        if (segments == 0) {
            Encoder encoder(LzoMethodSegmented, std::max<std::uint32_t>(n, 1));
            out.Write(encoder.Encode(in));
        } else {
            std::vector<std::uint8_t> h = {0x55, static_cast<std::uint8_t>(segments), static_cast<std::uint8_t>(segments ^ 0x55)};
            for (int i = 0; i < 4; ++i) h.push_back(static_cast<std::uint8_t>(n >> (8 * i)));
            std::vector<std::uint8_t> body;
            const std::uint32_t share = n / segments;
            Encoder encoder(LzoMethodFast, std::max<std::uint32_t>(n, 1));
            for (std::uint32_t i = 0; i < segments; ++i) {
                const std::uint32_t from = i * share, len = i + 1 < segments ? share : n - from;
                const std::span<const std::uint8_t> coded = encoder.Encode(std::span(in.data() + from, len));
                if (i + 1 < segments) {
                    for (int b = 0; b < 4; ++b) h.push_back(static_cast<std::uint8_t>(coded.size() >> (8 * b)));
                }
                body.insert(body.end(), coded.begin(), coded.end());
            }
            out.Write(h);
            out.Write(body);
        }
    }
    out.Commit();
    return kExitOk;
}

}  // namespace zyrdc::tool
