/* inflate_stream.c - decompresses a raw Deflate stream from standard input to standard
 * output with zyrsInflate_8u, streaming through fixed buffers: the source in 16 KiB reads,
 * the output through a 64 KiB window after 32 KiB of history.
 *
 *   cc examples/inflate_stream.c $(pkg-config --cflags --libs zyrdc) -o inflate_stream
 *   python3 -c 'import zlib,sys; c=zlib.compressobj(9,8,-15); sys.stdout.buffer.write(c.compress(open("README.md","rb").read())+c.flush())' \
 *     | ./inflate_stream | cmp - README.md
 */
#include <stdio.h>
#include <string.h>
#include <zyrdc.h>

enum { kHistory = 32768, kRoom = 65536, kRead = 16384, kHeld = 512 };

int main(void) {
    static uint8_t out[kHistory + kRoom];
    static uint8_t in[kHeld + kRead]; /* unconsumed bytes, then the next read */
    static InflateHuffTable table;    /* no preparation needed for a new stream */
    int32_t inLen = 0, outIdx = 0, mode = InflateModeBlockStart;
    uint32_t code = 0, bits = 0;
    for (;;) {
        const uint8_t* src = in;
        int32_t srcLen = inLen;
        int32_t start = outIdx;
        ZyrStatus s = zyrsInflate_8u(&src, &srcLen, &code, &bits, out, (int32_t)sizeof out, &outIdx, 0,
                                     &mode, &table);
        if (s < 0) {
            fprintf(stderr, "inflate_stream: corrupt input (status %d)\n", (int)s);
            return 1;
        }
        fwrite(out + start, 1, (size_t)(outIdx - start), stdout);
        /* Keep the unconsumed bytes: they are passed again, followed by new input. */
        memmove(in, src, (size_t)srcLen);
        inLen = srcLen;
        if (s == StatusOk) return 0;
        if (s == StatusDstFull) { /* the buffer is full: slide, the last 32 KiB stay */
            memmove(out, out + outIdx - kHistory, kHistory);
            outIdx = kHistory;
        }
        if (s == StatusSrcExhausted) {
            size_t got;
            if ((got = fread(in + inLen, 1, kRead, stdin)) == 0) {
                fprintf(stderr, "inflate_stream: the stream ends early\n");
                return 1;
            }
            inLen += (int32_t)got;
        }
    }
}
