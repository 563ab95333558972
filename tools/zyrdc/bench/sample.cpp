// sample.cpp - the built-in input of `zyrdc bench`: a fixed mix of the three kinds of data
// that pull compressors and checksums in different directions. Text has many short
// repeats, runs are the best case of every matcher, random bytes the worst.
#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <vector>

#include "bench/sample.hpp"

namespace zyrdc::tool {

namespace {

constexpr std::size_t kSampleSize = std::size_t{1} << 20;
constexpr std::uint64_t kSampleSeed = 0x5A79724443u;

constexpr std::array<std::string_view, 64> kWords = {
    "the", "of", "and", "to", "in", "a", "is", "that", "for", "it", "as", "was", "with", "be",
    "by", "on", "not", "he", "this", "are", "or", "his", "from", "at", "which", "but", "have",
    "an", "had", "they", "you", "were", "their", "one", "all", "we", "can", "her", "has",
    "there", "been", "if", "more", "when", "will", "would", "who", "so", "no", "data", "block",
    "stream", "window", "match", "length", "distance", "table", "code", "symbol", "buffer",
    "header", "checksum", "river", "morning"};

// Sentences of 4..15 words, now and then a comma, a paragraph break every few sentences.
void AppendText(std::vector<std::uint8_t>& out, std::size_t length, Rng& rng) {
    const std::size_t end = out.size() + length;
    while (out.size() < end) {
        const std::uint32_t words = 4 + rng.Below(12);
        for (std::uint32_t w = 0; w < words; ++w) {
            const std::string_view word = kWords[rng.Below(kWords.size())];
            const std::size_t at = out.size();
            out.insert(out.end(), word.begin(), word.end());
            if (w == 0) out[at] = static_cast<std::uint8_t>(out[at] - 'a' + 'A');
            if (w + 1 < words) {
                if (rng.Below(10) == 0) out.push_back(',');
                out.push_back(' ');
            }
        }
        out.push_back('.');
        out.push_back(rng.Below(5) == 0 ? '\n' : ' ');
    }
    out.resize(end);
}

}  // namespace

Sample MakeSample() {
    Rng rng(kSampleSeed);
    Sample sample;
    std::vector<std::uint8_t>& out = sample.bytes;
    out.reserve(kSampleSize + 8192);
    std::size_t text = 0, runs = 0, random = 0;
    std::size_t* last = &text;  // the count of the kind appended last
    while (out.size() < kSampleSize) {
        const std::uint32_t kind = rng.Below(10);
        if (kind < 5) {
            const std::size_t n = 1024 + rng.Below(7 * 1024);
            AppendText(out, n, rng);
            text += n;
            last = &text;
        } else if (kind < 8) {
            // Half the runs are of zeros, spaces or 0xFF, as in real files; the rest of any byte.
            static constexpr std::uint8_t kCommon[] = {0x00, 0x20, 0xFF};
            const std::uint8_t value = rng.Below(2) == 0 ? kCommon[rng.Below(3)]
                                                         : static_cast<std::uint8_t>(rng.Next());
            const std::size_t n = 16 + rng.Below(8192);
            out.insert(out.end(), n, value);
            runs += n;
            last = &runs;
        } else {
            const std::size_t n = 256 + rng.Below(8192);
            for (std::size_t i = 0; i < n; ++i) {
                out.push_back(static_cast<std::uint8_t>(rng.Next()));
            }
            random += n;
            last = &random;
        }
    }
    // The last piece is cut short: take the cut off the count of its kind.
    *last -= out.size() - kSampleSize;
    out.resize(kSampleSize);
    const auto percent = [](std::size_t part) {
        return (part * 100 + kSampleSize / 2) / kSampleSize;
    };
    char description[160];
    std::snprintf(description, sizeof description,
                  "built-in mix of %zu bytes (%zu%% English-like text, %zu%% byte runs, "
                  "%zu%% random bytes)",
                  kSampleSize, percent(text), percent(runs), percent(random));
    sample.description = description;
    return sample;
}

}  // namespace zyrdc::tool
