// bwt.cpp - `zyrdc bwt`: a file through the bzip2 block stages into the container of
// formats/bwt_container.hpp, and back with every block's CRC checked. -1..-9 set the block
// size to 100000..900000 bytes after the run-length stage, as bzip2's levels do.
#include <memory>

#include "cli/codec.hpp"
#include "cli/errors.hpp"
#include "commands/commands.hpp"
#include "formats/bwt_container.hpp"

namespace zyrdc::tool {

namespace {

constexpr CodecTraits kTraits = {".bwt", true, LevelDigits::Single};

class BwtCodec : public Codec {
public:
    explicit BwtCodec(std::uint32_t block) : block_(block) {}
    void Compress(const ReadFn& read, const WriteFn& write, const CodecFile&) override {
        BwtCompress(read, write, block_);
    }
    void Decompress(const ReadFn& read, const WriteFn& write, const CodecFile& file) override {
        BwtDecompress(read, write ? write : WriteFn([](std::span<const std::uint8_t>) {}), file.name);
    }

private:
    std::uint32_t block_;
};

}  // namespace

int RunBwt(const Command& self, std::span<char* const> args) {
    return RunCodec(self, args, kTraits, {}, [](const ParsedArgs& parsed, const CodecOptions&) {
        const long long level = LastLevel(parsed, 1, 9).value_or(9);
        if (level < 1 || level > 9) throw UsageError("invalid level " + std::to_string(level) + " (1 to 9)");
        return std::make_unique<BwtCodec>(static_cast<std::uint32_t>(level) * 100000);
    });
}

}  // namespace zyrdc::tool
