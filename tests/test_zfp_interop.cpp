// ZFP against libzfp (3-D floats, no stream header, serial): streams written by either side
// decode on the other to what the writer's own decoder gives.
//
// Parameter mapping, libzfp call -> the record's (minBits, maxBits, maxPrec, minExp):
//   zfp_stream_set_rate(R, float, 3-D, unaligned) -> (64R, 64R, 64, -10740); libzfp's minexp
//       -1074 limits no float block either (their exponents are -127..129).
//   zfp_stream_set_precision(P)                   -> (0, 4171, P, -10740); libzfp's minbits 1
//       and maxbits 16658 change nothing: a float block takes at most 9 + 32 x 65 + 64 bits.
//   zfp_stream_set_accuracy(t)                    -> (0, 4171, 64, floor(log2 t)), which is
//       what zyrsEncodeZfpSetAccuracy_32f(t) sets.
// Our encoder rounds its transform where libzfp's lifting truncates, so the two encoders'
// streams differ; both decoders run the same lifting, so each stream decodes identically.
#include <gtest/gtest.h>

#include <vector>

#include "zfp_support.hpp"
#include "zyrdc.h"

#if defined(ZYRDC_HAVE_ZFP)
#include <zfp.h>
#endif

namespace {

using namespace zyrdc::test;

#if defined(ZYRDC_HAVE_ZFP)

struct Mode {
    const char* name;
    void (*configure)(zfp_stream*);
    ZfpParams ours;
};

const Mode kModes[] = {
    {"rate 8", [](zfp_stream* z) { zfp_stream_set_rate(z, 8, zfp_type_float, 3, zfp_false); }, ZfpRate(8)},
    {"rate 16", [](zfp_stream* z) { zfp_stream_set_rate(z, 16, zfp_type_float, 3, zfp_false); }, ZfpRate(16)},
    {"precision 16", [](zfp_stream* z) { zfp_stream_set_precision(z, 16); }, ZfpPrecision(16)},
    {"accuracy 1e-3", [](zfp_stream* z) { zfp_stream_set_accuracy(z, 1e-3); }, ZfpAccuracy(-10)},
};

// Compresses (empty `stream`) or decompresses f with libzfp in the given mode.
void RunLibzfp(const Mode& mode, Field& f, std::vector<uint8_t>& stream) {
    const bool compress = stream.empty();
    if (compress) stream.resize(f.v.size() * 8 + 64);
    bitstream* bits = stream_open(stream.data(), stream.size());
    zfp_stream* z = zfp_stream_open(bits);
    mode.configure(z);
    zfp_stream_set_execution(z, zfp_exec_serial);
    zfp_field* field = zfp_field_3d(f.v.data(), zfp_type_float, static_cast<size_t>(f.nx),
                                    static_cast<size_t>(f.ny), static_cast<size_t>(f.nz));
    if (compress) {
        stream.resize(zfp_compress(z, field));
    } else {
        EXPECT_NE(zfp_decompress(z, field), 0u);
    }
    zfp_field_free(field);
    zfp_stream_close(z);
    stream_close(bits);
}

TEST(ZfpInterop, StreamsDecodeAlikeOnBothSides) {
    for (FieldKind kind : {FieldKind::Smooth, FieldKind::Noisy, FieldKind::Sparse, FieldKind::WideRange}) {
        const Field f = MakeField(kind, 20, 16, 12, 3);
        for (const Mode& m : kModes) {
            SCOPED_TRACE(testing::Message() << m.name << ", kind " << static_cast<int>(kind));
            // Theirs, decoded by both.
            Field source = f;
            std::vector<uint8_t> theirs;
            RunLibzfp(m, source, theirs);
            Field byThem{f.nx, f.ny, f.nz, std::vector<float>(f.v.size())};
            RunLibzfp(m, byThem, theirs);
            const Field byUs = Decompress(theirs, f.nx, f.ny, f.nz, m.ours);
            ASSERT_EQ(MaxError(byUs, byThem), 0.0);

            // Ours, decoded by both; in fixed-rate mode the sizes agree to the byte.
            const std::vector<uint8_t> ours = Compress(f, m.ours);
            ASSERT_FALSE(ours.empty());
            if (m.ours.minBits == m.ours.maxBits) {
                EXPECT_EQ(ours.size(), theirs.size());
            }
            std::vector<uint8_t> copy = ours;
            Field ourByThem{f.nx, f.ny, f.nz, std::vector<float>(f.v.size())};
            RunLibzfp(m, ourByThem, copy);
            const Field ourByUs = Decompress(ours, f.nx, f.ny, f.nz, m.ours);
            ASSERT_EQ(MaxError(ourByUs, ourByThem), 0.0);
            // And the two encoders are close: within each other's error of the source.
            EXPECT_LE(MaxError(ourByUs, f), 2 * MaxError(byThem, f) + 1e-30);
        }
    }
}

#else
TEST(ZfpInterop, StreamsDecodeAlikeOnBothSides) {
    GTEST_SKIP() << "libzfp not found for this build";
}
#endif

}  // namespace
