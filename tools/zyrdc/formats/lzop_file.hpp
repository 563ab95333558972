// lzop_file.hpp - files of the standard lzop tool, written with the library's LZO1X encoder
// (levels 1..6 its single-probe method, declared as LZO1X-1; 7..9 its chained method,
// declared as LZO1X-999), read back with its checked decoder, listed and tested, the
// checksums computed with its Adler-32 and CRC-32.
//
// A file is one or more members, each: a 9-byte signature, a header (version, method, flags,
// mode, time, name) closed by its checksum, then blocks of up to 64 MiB: the decoded and the
// coded size, the checksums the flags ask for, the data (stored when both sizes agree); a
// decoded size of 0 ends the member. Numbers are big-endian.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/bytes.hpp"
#include "cli/errors.hpp"
#include "zyrdc.h"

namespace zyrdc::tool {

struct LzopWriteOptions {
    int level = 3;
    bool crc32 = false;           // CRC-32 instead of Adler-32, for the header too
    bool checksum = true;         // of each block's decoded bytes
    bool checksum_coded = false;  // of each packed block's coded bytes as well
};

// What a member's header says about the file it holds.
struct LzopSource {
    std::string name;  // stored without its directories; empty for standard input
    std::uint32_t mode = 0;
    std::uint64_t mtime = 0;
    bool from_stdin = false;
    bool to_stdout = false;
};

// One member holding everything `read` gives, in blocks of 256 KiB.
void LzopCompress(const ReadFn& read, const WriteFn& write, const LzopWriteOptions& opt, const LzopSource& source);

// What the members of a file held, for the listing.
struct LzopTotals {
    std::uint64_t decoded = 0, coded = 0;
    std::uint8_t method = 0, level = 0;
};
// Decodes every member into `write` (only checks them when it is empty; only reads the
// block sizes when `list`). Throws Failure, starting with `name`, for anything foreign,
// damaged or truncated.
LzopTotals LzopDecompress(const ReadFn& read, const WriteFn& write, const std::string& name, bool list = false);
// "LZO1X-1", "LZO1X-1(15)" or "LZO1X-999/LEVEL", as lzop -l prints it.
std::string LzopMethodName(const LzopTotals& totals);

// The library's encoder over one record, reused for every block.
class LzoEncoder {
public:
    LzoEncoder(std::int32_t method, std::uint32_t maxInput) {
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

}  // namespace zyrdc::tool
