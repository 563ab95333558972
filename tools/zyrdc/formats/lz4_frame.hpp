// lz4_frame.hpp - files in the LZ4 frame format, blocks coded by the library.
// Writes one frame at level 1 or 2 (the greedy encoder, or the accelerated one) or 3 to 12
// (the high-compression levels of the same number), of independent or linked blocks of
// 64 KiB to 4 MiB, optionally after a dictionary, with the content size when it is known and
// a content checksum. Reads frames as the standard tool writes them (independent or linked
// blocks, block and content checksums, content size, dictionaries, skippable frames,
// concatenated frames, the legacy format). xxHash32 comes from libxxhash; a build without it
// has no frames (Lz4FramesAvailable is false and the coders throw Failure).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/bytes.hpp"

namespace zyrdc::tool {

constexpr int kLz4MinBlockId = 4, kLz4MaxBlockId = 7;  // 64 KiB .. 4 MiB; 4 MiB by default
constexpr int kLz4FirstHcLevel = 3, kLz4LastLevel = 12;

struct Lz4FrameSettings {
    int level = 1;          // 1, 2: the greedy encoder; 3..12: high compression
    int acceleration = 1;   // levels 1 and 2 only
    int blockId = kLz4MaxBlockId;
    bool linked = false;
    std::vector<std::uint8_t> dict;  // empty: none
    bool legacy = false;  // the legacy format (blocks of 8 MiB; no dictionary, no checksum)
};

bool Lz4FramesAvailable();

// One frame holding everything `read` gives; `size`, when known, goes into its header.
void Lz4FrameCompress(const ReadFn& read, const WriteFn& write, const Lz4FrameSettings& settings,
                      std::optional<std::uint64_t> size);
// Every frame of the input; `write` may be empty (only check). Throws Failure, starting with
// `name`, for anything corrupt, truncated or foreign.
void Lz4FrameDecompress(const ReadFn& read, const WriteFn& write, const std::vector<std::uint8_t>& dict,
                        const std::string& name);

}  // namespace zyrdc::tool
