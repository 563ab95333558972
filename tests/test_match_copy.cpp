// test_match_copy.cpp - the decoders' copy engine against byte-at-a-time copies: every
// offset 1..64 with every length 0..300, wide and exact forms through the room they are
// given, the destination ending at a guard page so that a store or read past the room
// faults.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/match_copy.hpp"
#include "support.hpp"

namespace {

using zyrdc::test::GuardedBuffer;

constexpr size_t kMaxOffset = 64;
constexpr size_t kMaxLength = 300;

// Room past the copy's end that the caller proves: none (exact), one byte short of the wide
// form's slack (still exact), exactly the slack (wide).
struct RoomCase {
    const char* name;
    size_t extra;
};
constexpr RoomCase kRooms[] = {{"no_room", 0}, {"slack_less_one", zyrdc::kWideCopySlack - 1},
                               {"slack", zyrdc::kWideCopySlack}};

class MatchCopyRoom : public ::testing::TestWithParam<RoomCase> {};

// A match at the end of the room: every offset and length, bytes before the match random,
// the copy compared with the reference over the whole buffer.
TEST_P(MatchCopyRoom, MatchesByteReference) {
    const size_t extra = GetParam().extra;
    const auto history = zyrdc::test::RandomBytes(kMaxOffset, 7);
    std::vector<uint8_t> want(kMaxOffset + kMaxLength);
    for (size_t len = 0; len <= kMaxLength; ++len) {
        GuardedBuffer buf(kMaxOffset + len + extra);
        uint8_t* d = buf.data() + kMaxOffset;
        for (size_t off = 1; off <= kMaxOffset; ++off) {
            std::memcpy(buf.data(), history.data(), kMaxOffset);
            std::memset(d, 0xEE, len + extra);
            std::memcpy(want.data(), history.data(), kMaxOffset);
            zyrdc::MatchCopyBytewise(want.data() + kMaxOffset, off, len);
            zyrdc::MatchCopy(d, off, len, len + extra);
            ASSERT_EQ(0, std::memcmp(buf.data(), want.data(), kMaxOffset + len)) << "offset " << off << " length " << len;
            if (extra < zyrdc::kWideCopySlack) {
                for (size_t i = 0; i < extra; ++i) ASSERT_EQ(d[len + i], 0xEE) << "offset " << off << " length " << len;
            }
        }
    }
}

// Literal runs: the source and the destination both end at guard pages.
TEST_P(MatchCopyRoom, LiteralsExact) {
    const size_t extra = GetParam().extra;
    const auto bytes = zyrdc::test::RandomBytes(kMaxLength, 11);
    for (size_t len = 0; len <= kMaxLength; ++len) {
        GuardedBuffer src(len + extra), dst(len + extra);
        std::memcpy(src.data(), bytes.data(), len);
        std::memset(dst.data(), 0xEE, len + extra);
        zyrdc::CopyLiterals(dst.data(), src.data(), len, len + extra, len + extra);
        ASSERT_EQ(0, std::memcmp(dst.data(), bytes.data(), len)) << "length " << len;
        if (extra < zyrdc::kWideCopySlack) {
            for (size_t i = 0; i < extra; ++i) ASSERT_EQ(dst.data()[len + i], 0xEE) << "length " << len;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rooms, MatchCopyRoom, ::testing::ValuesIn(kRooms),
                         [](const ::testing::TestParamInfo<RoomCase>& p) { return std::string(p.param.name); });

// Offset 0 copies each byte onto itself: the bytes stay as they were, in both forms.
TEST(MatchCopy, OffsetZeroKeepsBytes) {
    for (size_t len : {size_t{1}, size_t{15}, size_t{16}, size_t{100}}) {
        std::vector<uint8_t> buf = zyrdc::test::RandomBytes(len + zyrdc::kWideCopySlack, 3), want = buf;
        zyrdc::MatchCopyWide(buf.data(), 0, len);
        zyrdc::MatchCopyExact(buf.data(), 0, len);
        ASSERT_EQ(0, std::memcmp(buf.data(), want.data(), len)) << "length " << len;
    }
}

}  // namespace
