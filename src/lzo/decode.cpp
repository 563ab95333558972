// decode.cpp - LZO1X plain-stream decoding: one state machine, checked or trusted, over
// the copy flavours of copy.hpp.
//
// A stream is a sequence of instruction bytes t, each with its extra bytes:
//   stream start   t >= 17: t - 17 literals; t = 0: 18 + 255 z + b literals (z zero
//                  bytes, then b); 1..15: t + 3 literals. A match must follow.
//   t 64..255      match of (t >> 5) + 1 bytes at ((t >> 2) & 7) + 8 b0 + 1
//   t 32..63       match of (t & 31) + 2 bytes (t = 32: 33 + 255 z + e) at
//                  (b0 >> 2) + 64 b1 + 1
//   t 16..31       match of (t & 7) + 2 bytes (t & 7 = 0: 9 + 255 z + e) at
//                  16384 + ((t & 8) << 11) + (b0 >> 2) + 64 b1; for t 17..23 a distance of
//                  exactly 16384 ends the stream
// After a match the low two bits of its last distance byte (of t for the 64..255 form)
// count 0..3 trailing literals. After 1..3 of them an instruction below 16 is a 2-byte
// match at (t >> 2) + 4 b + 1; after none it is a literal run (as at the stream start),
// and an instruction below 16 straight after such a run is a 3-byte match at
// (t >> 2) + 4 b + 2049. Each short match again carries trailing literals in t's low bits.
//
// The labels below are the states of that machine; every path between them is a few
// lines, and each check sits next to the read or write it protects.
#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"
#include "lzo/copy.hpp"
#include "lzo/lzo.hpp"

namespace zyrdc::lzo {

namespace {

using detail::Copier;
using detail::FastCopier;
using detail::kFastInputMargin;
using detail::kFastOutputMargin;

constexpr ZyrStatus kFail = StatusCorruptStream;

// A run length of 255 per zero byte can pass the width of size_t on i686 long before the
// source runs out; no destination holds such a run, so longer zero runs are refused.
constexpr size_t kMaxZeroBytes = (SIZE_MAX - 512) / 255;

// Reads the z zero bytes and the byte e that extend a length field into extension = 255 z + e.
// Checked: false if the bytes run past ipEnd or z is absurd.
template <bool kChecked>
inline bool ReadLengthExtension(const uint8_t*& ip, const uint8_t* ipEnd, size_t& extension) {
    const uint8_t* const start = ip;
    for (;;) {
        if (kChecked && ip == ipEnd) {
            return false;
        }
        if (*ip != 0) {
            break;
        }
        ++ip;
    }
    const auto zeros = static_cast<size_t>(ip - start);
    if (kChecked && zeros > kMaxZeroBytes) {
        return false;
    }
    extension = 255 * zeros + *ip++;
    return true;
}

// The whole decoder. kChecked: every read against ipEnd, every write against opEnd and
// every match source against dst, failing with StatusCorruptStream. Unchecked: trusts the
// stream and the destination (opEnd is unused).
//
// The two hot states, `match` and `after_match`, begin with a fast block for the short
// forms, taken while the source and (checked) the destination are far from their ends:
// there only the match distances still need a test. Everything else, and everything near
// the ends, takes the careful path below it. The bytewise twin has no fast blocks.
template <bool kChecked, Copies kCopies>
ZyrStatus Decode(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t cap, size_t* written) {
    using Copy = Copier<kCopies>;
    using Fast = FastCopier<kCopies == Copies::Bytewise ? Copies::Exact : kCopies>;
    constexpr bool kFastBlocks = kCopies != Copies::Bytewise;
    const uint8_t* ip = src;
    const uint8_t* const ipEnd = src + srcLen;
    uint8_t* op = dst;
    uint8_t* const opEnd = dst + cap;
    const uint8_t* const ipFast = srcLen > kFastInputMargin ? ipEnd - kFastInputMargin : src;
    const uint8_t* const opFast = cap > kFastOutputMargin ? opEnd - kFastOutputMargin : dst;
    const auto inFastRegion = [&] { return ip < ipFast && (!kChecked || op < opFast); };
    const auto inLeft = [&] { return static_cast<size_t>(ipEnd - ip); };
    const auto outLeft = [&] { return static_cast<size_t>(opEnd - op); };
    const auto behind = [&] { return static_cast<size_t>(op - dst); };
    size_t t = 0, len = 0, dist = 0, trailing = 0, extension = 0;
    uint32_t pair = 0;
    bool atStart = true;  // no match yet in the current stream

stream_start:
    if (kChecked && ip == ipEnd) {
        return kFail;
    }
    t = *ip++;
    atStart = true;
    if (t < 16) {
        goto literal_run;
    }
    if (kChecked && t == 16) {
        return kFail;  // would be a run of -1 literals
    }
    len = t - 17;
    if (!kChecked && len >= 1 && len <= 3) {
        // A trusted stream opening with 1..3 literals is read as liblzo2 reads it: as
        // literals trailing a match, after which a byte below 16 is a 2-byte match.
        trailing = len;
        atStart = false;
        goto after_match;
    }
    goto copy_run;

match:  // t >= 16
    if (kFastBlocks && inFastRegion()) {
        if (t >= 64) {
            dist = ((t >> 2) & 7) + (size_t{*ip++} << 3) + 1;
            len = (t >> 5) + 1;
            trailing = t & 3;
        } else if (t >= 32 && (t & 31) != 0) {
            pair = load_u16le(ip);
            ip += 2;
            len = (t & 31) + 2;
            dist = (pair >> 2) + 1;
            trailing = pair & 3;
        } else if (t < 32 && (t & 7) != 0) {
            pair = load_u16le(ip);
            ip += 2;
            if ((pair >> 2) == 0 && (t & 8) == 0) {
                goto stream_end;
            }
            len = (t & 7) + 2;
            dist = 16384 + ((t & 8) << 11) + (pair >> 2);
            trailing = pair & 3;
        } else {
            goto match_careful;  // a length in extension bytes
        }
        if (kChecked && dist > behind()) {
            return kFail;
        }
        Fast::Match(op, dist, len);
        op += len;
        // The margins cover this match and what follows it up to the next region test.
        goto after_match_fast;
    }
match_careful:
    if (t >= 64) {
        // One distance byte; with an end marker still to come, 4 bytes at least.
        if (kChecked && inLeft() < 4) {
            return kFail;
        }
        dist = ((t >> 2) & 7) + (size_t{*ip++} << 3) + 1;
        len = (t >> 5) + 1;
        trailing = t & 3;
    } else if (t >= 32) {
        len = t & 31;
        if (len == 0) {
            if (!ReadLengthExtension<kChecked>(ip, ipEnd, extension)) {
                return kFail;
            }
            len = 31 + extension;
        }
        len += 2;
        if (kChecked && inLeft() < 5) {  // two distance bytes, then an end marker
            return kFail;
        }
        pair = load_u16le(ip);
        ip += 2;
        dist = (pair >> 2) + 1;
        trailing = pair & 3;
    } else {
        len = t & 7;
        const size_t far = (t & 8) << 11;
        if (len != 0 && far == 0) {
            // t 17..23 may be the end marker: only its own two bytes need be present.
            if (kChecked && inLeft() < 2) {
                return kFail;
            }
            pair = load_u16le(ip);
            ip += 2;
            if ((pair >> 2) == 0) {
                goto stream_end;
            }
        } else {
            if (len == 0) {
                if (!ReadLengthExtension<kChecked>(ip, ipEnd, extension)) {
                    return kFail;
                }
                len = 7 + extension;
            }
            if (kChecked && inLeft() < 5) {
                return kFail;
            }
            pair = load_u16le(ip);
            ip += 2;
        }
        dist = 16384 + far + (pair >> 2);
        len += 2;
        trailing = pair & 3;
    }
    if (kChecked && (dist > behind() || len > outLeft())) {
        return kFail;
    }
    Copy::Match(op, dist, len, outLeft());
    op += len;

after_match:  // `trailing` literals (0..3) follow the instruction just decoded
    if (kFastBlocks && inFastRegion()) {
    after_match_fast:
        if (trailing != 0) {
            Fast::Trailing(op, ip, trailing);
            op += trailing;
            ip += trailing;
            t = *ip++;
            if (t >= 16) {
                goto match;
            }
            dist = (t >> 2) + (size_t{*ip++} << 2) + 1;
            if (kChecked && dist > behind()) {
                return kFail;
            }
            op[0] = *(op - dist);  // one byte at a time: the distance may be 1
            op[1] = *(op + 1 - dist);
            op += 2;
            trailing = t & 3;
            goto after_match;
        }
        t = *ip++;
        if (t >= 16) {
            goto match;
        }
        if (t == 0) {
            goto literal_run;  // a length in extension bytes
        }
        len = t + 3;
        Fast::Run(op, ip, len);
        op += len;
        ip += len;
        t = *ip++;
        if (t >= 16) {
            goto match;
        }
        dist = (t >> 2) + (size_t{*ip++} << 2) + 2049;
        if (kChecked && dist > behind()) {
            return kFail;
        }
        Fast::Far3(op, dist);
        op += 3;
        trailing = t & 3;
        goto after_match;
    }
    if (trailing != 0) {
        if (kChecked && (inLeft() <= trailing || outLeft() < trailing)) {
            return kFail;  // the literals, then at least one instruction byte
        }
        Copy::Literals(op, ip, trailing, inLeft(), outLeft());
        op += trailing;
        ip += trailing;
        t = *ip++;
        if (t >= 16) {
            goto match;
        }
        // A 2-byte match within the last 1024 bytes.
        if (kChecked && ip == ipEnd) {
            return kFail;
        }
        dist = (t >> 2) + (size_t{*ip++} << 2) + 1;
        if (kChecked && (dist > behind() || outLeft() < 2)) {
            return kFail;
        }
        op[0] = *(op - dist);  // one byte at a time: the distance may be 1
        op[1] = *(op + 1 - dist);
        op += 2;
        trailing = t & 3;
        goto after_match;
    }
    if (kChecked && ip == ipEnd) {
        return kFail;
    }
    t = *ip++;
    if (t >= 16) {
        goto match;
    }

literal_run:  // t < 16
    if (t == 0) {
        if (!ReadLengthExtension<kChecked>(ip, ipEnd, extension)) {
            return kFail;
        }
        len = 18 + extension;
    } else {
        len = t + 3;
    }
copy_run:
    if (kChecked && (len > inLeft() || len > outLeft())) {
        return kFail;
    }
    Copy::Literals(op, ip, len, inLeft(), outLeft());
    op += len;
    ip += len;
    if (kChecked && ip == ipEnd) {
        return kFail;
    }
    t = *ip++;
    if (t >= 16) {
        atStart = false;
        goto match;
    }
    if (atStart) {
        // The first literal run of a stream must be followed by a match. A trusted stream
        // is taken as it would be after any other literal run.
        if (kChecked) {
            return kFail;
        }
        atStart = false;
    }

    // t < 16: a 3-byte match 2049..3072 back.
    if (kChecked && ip == ipEnd) {
        return kFail;
    }
    dist = (t >> 2) + (size_t{*ip++} << 2) + 2049;
    if (kChecked && (dist > behind() || outLeft() < 3)) {
        return kFail;
    }
    Copy::Literals(op, op - dist, 3, dist, outLeft());  // 2049 back: no overlap
    op += 3;
    trailing = t & 3;
    goto after_match;

stream_end:
    // Source left over is another stream, appended to the same output.
    if (ip < ipEnd) {
        goto stream_start;
    }
    *written = static_cast<size_t>(op - dst);
    return StatusOk;
}

}  // namespace

template <Copies kCopies>
ZyrStatus DecodePlainChecked(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t cap,
                             size_t* written) {
    return Decode<true, kCopies>(src, srcLen, dst, cap, written);
}

template ZyrStatus DecodePlainChecked<Copies::Wide>(const uint8_t*, size_t, uint8_t*, size_t, size_t*);
template ZyrStatus DecodePlainChecked<Copies::Bytewise>(const uint8_t*, size_t, uint8_t*, size_t, size_t*);

size_t DecodePlainTrusted(const uint8_t* src, size_t srcLen, uint8_t* dst) {
    size_t written = 0;
    (void)Decode<false, Copies::Exact>(src, srcLen, dst, 0, &written);
    return written;
}

}  // namespace zyrdc::lzo
