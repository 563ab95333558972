// cmd_bwt.cpp - `zyrdc bwt`: a file through the bzip2 block stages (run-length, dictionary,
// Burrows-Wheeler, move-to-front, zero runs) block by block into a small container, and back
// with every block's CRC checked.
//
// Container (all numbers little-endian):
//   "ZBWT" and a version byte (1)
//   per block:  u32 original size (1 or more; 0 ends the file)
//               u32 transform length (1..900000), u32 primary index, u32 bzip2 block CRC
//               32 bytes: the in-use table as a bitmap (value v is bit v % 8 of byte v / 8)
//               u32 symbol count, then the zero-run symbols as u16 (0..256)
//   u32 0
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bwt_blocks.hpp"
#include "commands.hpp"
#include "common.hpp"

namespace zyrdc::tool {

namespace {

constexpr OptionDef kOptions[] = {{'d', "decompress", false}, {'f', "force", false}};
constexpr char kMagic[5] = {'Z', 'B', 'W', 'T', 1};
constexpr std::size_t kReadPiece = 1 << 20;

// The output goes to a temporary file beside OUT, renamed over it only when everything was
// written, so that a failure never leaves a partial OUT behind.
class OutputFile {
public:
    OutputFile(const std::string& name, bool force) : name_(name), temp_(name + ".XXXXXX") {
        if (!force && access(name.c_str(), F_OK) == 0) {
            throw Failure(name + ": already exists (use -f to overwrite)");
        }
        const int fd = mkstemp(temp_.data());
        if (fd < 0) throw Failure(name + ": " + std::strerror(errno));
        file_ = fdopen(fd, "wb");
        if (file_ == nullptr) {
            close(fd);
            std::remove(temp_.c_str());
            throw Failure(name + ": " + std::strerror(errno));
        }
    }
    ~OutputFile() {
        if (file_ != nullptr) {
            std::fclose(file_);
            std::remove(temp_.c_str());
        }
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(const void* data, std::size_t n) {
        if (n > 0 && std::fwrite(data, 1, n, file_) != n) Fail();
    }
    void WriteU32(std::uint32_t v) {
        const std::uint8_t b[4] = {static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v >> 8),
                                   static_cast<std::uint8_t>(v >> 16), static_cast<std::uint8_t>(v >> 24)};
        Write(b, 4);
    }
    void Commit() {
        std::FILE* f = file_;
        file_ = nullptr;
        if (std::fflush(f) != 0 || std::ferror(f) || fsync(fileno(f)) != 0) {
            const int error = errno;
            std::fclose(f);
            std::remove(temp_.c_str());
            throw Failure(name_ + ": " + std::strerror(error));
        }
        // mkstemp creates the file private to its owner; give it the usual permissions.
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(fileno(f), 0666 & ~mask);
        std::fclose(f);
        if (std::rename(temp_.c_str(), name_.c_str()) != 0) {
            const int error = errno;
            std::remove(temp_.c_str());
            throw Failure(name_ + ": " + std::strerror(error));
        }
    }

private:
    [[noreturn]] void Fail() { throw Failure(name_ + ": " + std::strerror(errno != 0 ? errno : EIO)); }

    std::string name_;
    std::string temp_;
    std::FILE* file_ = nullptr;
};

void WriteBlock(OutputFile& out, const BwtBlock& b) {
    out.WriteU32(b.original_size);
    out.WriteU32(b.coded_size);
    out.WriteU32(b.index);
    out.WriteU32(b.crc);
    std::uint8_t bitmap[32] = {};
    for (int v = 0; v < 256; ++v) {
        if (b.in_use[static_cast<std::size_t>(v)] != 0) bitmap[v / 8] |= static_cast<std::uint8_t>(1 << (v % 8));
    }
    out.Write(bitmap, sizeof bitmap);
    out.WriteU32(static_cast<std::uint32_t>(b.symbols.size()));
    std::vector<std::uint8_t> bytes(2 * b.symbols.size());
    for (std::size_t i = 0; i < b.symbols.size(); ++i) {
        bytes[2 * i] = static_cast<std::uint8_t>(b.symbols[i]);
        bytes[2 * i + 1] = static_cast<std::uint8_t>(b.symbols[i] >> 8);
    }
    out.Write(bytes.data(), bytes.size());
}

void Compress(InputFile& in, OutputFile& out) {
    out.Write(kMagic, sizeof kMagic);
    BwtBlockEncoder encoder;
    std::vector<std::uint8_t> piece(kReadPiece);
    while (const std::size_t got = in.Read(piece)) {
        std::span<const std::uint8_t> rest(piece.data(), got);
        while (!rest.empty()) {
            rest = rest.subspan(encoder.Feed(rest));
            if (encoder.Full()) WriteBlock(out, encoder.Finish());
        }
    }
    if (!encoder.Empty()) WriteBlock(out, encoder.Finish());
    out.WriteU32(0);
}

// Reads exactly n bytes or fails naming what was cut short.
void ReadExact(InputFile& in, std::uint8_t* p, std::size_t n, const char* what) {
    if (in.Read(std::span(p, n)) != n) throw Failure(in.Name() + ": truncated (" + what + ")");
}
std::uint32_t ReadU32(InputFile& in, const char* what) {
    std::uint8_t b[4];
    ReadExact(in, b, 4, what);
    return static_cast<std::uint32_t>(b[0]) | static_cast<std::uint32_t>(b[1]) << 8 |
           static_cast<std::uint32_t>(b[2]) << 16 | static_cast<std::uint32_t>(b[3]) << 24;
}

void Decompress(InputFile& in, OutputFile& out) {
    char magic[sizeof kMagic];
    if (in.Read(std::span(reinterpret_cast<std::uint8_t*>(magic), sizeof magic)) != sizeof magic ||
        std::memcmp(magic, kMagic, sizeof magic) != 0) {
        throw Failure(in.Name() + ": not a zyrdc bwt file");
    }
    for (std::size_t number = 1;; ++number) {
        BwtBlock b;
        b.original_size = ReadU32(in, "block header");
        if (b.original_size == 0) break;
        b.coded_size = ReadU32(in, "block header");
        b.index = ReadU32(in, "block header");
        b.crc = ReadU32(in, "block header");
        std::uint8_t bitmap[32];
        ReadExact(in, bitmap, sizeof bitmap, "in-use table");
        for (int v = 0; v < 256; ++v) b.in_use[static_cast<std::size_t>(v)] = (bitmap[v / 8] >> (v % 8)) & 1;
        const std::uint32_t count = ReadU32(in, "symbol count");
        if (count == 0 || count > b.coded_size || count > kBwtBlockLimit) {
            throw Failure(in.Name() + ": block " + std::to_string(number) + ": bad symbol count");
        }
        std::vector<std::uint8_t> bytes(2 * static_cast<std::size_t>(count));
        ReadExact(in, bytes.data(), bytes.size(), "symbols");
        b.symbols.resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            b.symbols[i] = static_cast<std::uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
        }
        try {
            const std::vector<std::uint8_t> data = DecodeBwtBlock(b);
            out.Write(data.data(), data.size());
        } catch (const Failure& e) {
            throw Failure(in.Name() + ": block " + std::to_string(number) + ": " + e.what());
        }
    }
    std::uint8_t extra;
    if (in.Read(std::span(&extra, 1)) != 0) throw Failure(in.Name() + ": data after the last block");
}

}  // namespace

int RunBwt(const Command& self, std::span<char* const> args) {
    const ParsedArgs parsed = ParseArgs(args, kOptions);
    if (parsed.help) {
        PrintCommandHelp(self);
        return kExitOk;
    }
    if (parsed.operands.size() != 2) throw UsageError("needs an input and an output file");
    const std::string& output = parsed.operands[1];
    if (output == "-") throw UsageError("the output must be a file");
    InputFile in(parsed.operands[0]);
    OutputFile out(output, !parsed.Values("force").empty());
    if (parsed.Values("decompress").empty()) {
        Compress(in, out);
    } else {
        Decompress(in, out);
    }
    out.Commit();
    return kExitOk;
}

}  // namespace zyrdc::tool
