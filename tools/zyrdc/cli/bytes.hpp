// bytes.hpp - byte streams and numbers in bytes: the reader and writer callbacks every file
// format takes, and little- and big-endian loads, stores and appends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace zyrdc::tool {

// Fills as much of the buffer as the input still holds; returns 0 only at its end.
using ReadFn = std::function<std::size_t(std::span<std::uint8_t>)>;
// Takes every byte it is given.
using WriteFn = std::function<void(std::span<const std::uint8_t>)>;

// Reads until `buffer` is full or the input ends; returns the bytes read.
inline std::size_t ReadFull(const ReadFn& read, std::span<std::uint8_t> buffer) {
    std::size_t got = 0;
    while (got < buffer.size()) {
        const std::size_t more = read(buffer.subspan(got));
        if (more == 0) break;
        got += more;
    }
    return got;
}

// `bytes` bytes (at most 8) of a number, least significant first.
inline std::uint64_t LoadLe(const std::uint8_t* p, int bytes) {
    std::uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = v << 8 | p[i];
    return v;
}
inline std::uint32_t LoadLe32(const std::uint8_t* p) { return static_cast<std::uint32_t>(LoadLe(p, 4)); }
inline void StoreLe(std::uint8_t* p, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}
inline void AppendLe(std::vector<std::uint8_t>& out, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

// `bytes` bytes (at most 8) of a number, most significant first.
inline std::uint64_t LoadBe(const std::uint8_t* p, int bytes) {
    std::uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) v = v << 8 | p[i];
    return v;
}
inline void StoreBe(std::uint8_t* p, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * (bytes - 1 - i)));
}
inline void AppendBe(std::vector<std::uint8_t>& out, std::uint64_t v, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

}  // namespace zyrdc::tool
