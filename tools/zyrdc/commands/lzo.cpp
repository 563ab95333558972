// lzo.cpp - `zyrdc lzo`: the library's segmented LZO container as a raw file.
#include <algorithm>
#include <string>
#include <vector>

#include "cli/args.hpp"
#include "cli/bytes.hpp"
#include "cli/errors.hpp"
#include "cli/files.hpp"
#include "commands/commands.hpp"
#include "formats/lzop_file.hpp"

namespace zyrdc::tool {

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
        const auto n = ToInteger(v, 2, 32);
        if (!n) throw UsageError("--segments takes 2 to 32");
        segments = static_cast<std::uint32_t>(*n);
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
        const std::uint32_t total = LoadLe32(&in[3]);
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
            LzoEncoder encoder(LzoMethodSegmented, std::max<std::uint32_t>(n, 1));
            out.Write(encoder.Encode(in));
        } else {
            std::vector<std::uint8_t> h = {0x55, static_cast<std::uint8_t>(segments), static_cast<std::uint8_t>(segments ^ 0x55)};
            AppendLe(h, n, 4);
            std::vector<std::uint8_t> body;
            const std::uint32_t share = n / segments;
            LzoEncoder encoder(LzoMethodFast, std::max<std::uint32_t>(n, 1));
            for (std::uint32_t i = 0; i < segments; ++i) {
                const std::uint32_t from = i * share, len = i + 1 < segments ? share : n - from;
                const std::span<const std::uint8_t> coded = encoder.Encode(std::span(in.data() + from, len));
                if (i + 1 < segments) {
                    AppendLe(h, coded.size(), 4);
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
