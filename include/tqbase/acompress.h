// acompress.h - ACompress: the raster data codecs.
//
//  - bit packing: packed lines (1, 2, 4 bits per pixel, first pixel in the
//    most significant bits) to one byte per pixel and back, and
//    nearest-neighbour scaling of expanded images and lines;
//  - run-length formats: one general byte format and one per pixel depth
//    (1, 2, 4, 8, 24), whole-line, windowed (a span from the middle of a
//    line) and rectangle decoding, locators, blank lines, colour counts;
//  - LZW (codes, then a bit stream) and a Base64 text form.
//
// All members are static and stateless apart from the two read-only tables
// filled once by Init. Every entry point returns non-zero for success and 0
// for failure, never throws, and leaves a failure text in g_Error. Decoders
// never read past the stream length nor write past the capacity they are
// given, whatever the stream holds. A failed call may have written part of
// its output; that output is not to be used.
//
// Stream formats (all byte-exact; stored data depends on them):
//
//  general    repeat record: count 1..255, value; literal record: 0x00, n
//             1..255, n bytes. The encoder always ends with a repeat record.
//  1-bit      literal byte 1ppppppp (7 pixels, first in bit 6); run bytes
//             0v dddddd (6-bit length digits, least significant first, one
//             run = consecutive bytes with the same top two bits); a final
//             tail byte 0..7: the pixels held by the literal before it.
//  2-bit      literal byte 10aabbcc (3 pixels); run bytes 0vv ddddd (5-bit
//             digits); tail byte 0..3.
//  4-bit      pairs of runs: countA, valueA<<4 | valueB, countB; a stream of
//             3k+2 bytes ends with a lone run A (low nibble 0). 3k+1 is
//             invalid.
//  8-bit      records count 1..255, value.
//  24-bit     records count 1..255, three pixel bytes in input order.
//
// Depths 1, 2, 4 and 8 encode and decode expanded lines (one byte per
// pixel); depth 24 three bytes per pixel.
#ifndef TQBASE_ACOMPRESS_H
#define TQBASE_ACOMPRESS_H

#include "tqbase/tqbasexp.h"

class TQBASE_API ACompress {
public:
  // Fills the bit-packing tables; returns 1. Called once at start-up (the
  // library also fills them when it is loaded, so they are always ready).
  static BOOL Init();
  // Releases nothing; the tables stay readable.
  static void Exit();

  // s_BUF[b] holds the eight bits of b, most significant first, as 0/1.
  static unsigned char s_BUF[256][8];
  // s_Loc[i] points at s_BUF[i] + 1: the seven bits 6..0 of i as 0/1, the
  // pixels of a 1-bit literal byte.
  static unsigned char* s_Loc[128];

  // ---- bit packing -------------------------------------------------------
  //
  // The expanders and shrinkers take no buffer sizes; the caller provides:
  //   ExpandBit1  src: bytes holding pixels start..start+count-1 relative to
  //               the byte that holds pixel start (only start mod 8 is
  //               used), i.e. (start%8 + count + 7)/8 bytes; dst: count
  //               bytes, dst[0] receives pixel start.
  //   ExpandBit2/4  src: absolute, (start+count)*depth/8 rounded up bytes;
  //               dst: absolute, start+count bytes (dst[start] onward).
  //   ShrinkBit1/2/4  src: absolute, start+count bytes; dst: absolute,
  //               ((start+count)*depth+7)/8 bytes. Bits of dst outside the
  //               span are kept.
  // ShrinkBit1 leaves a span that lies inside one byte and does not begin
  // on a byte boundary unpacked (nothing written, result 1); callers rely
  // on it. ShrinkBit4 does not mask values: a value above 15 spills into its
  // neighbour's nibble.

  // Packed -> one byte per pixel. Depth 1, 2, 4; depth 8 or more does
  // nothing and succeeds; other depths fail. Fails on null buffers or a
  // zero count.
  static int ExpandBit(const unsigned char* src, unsigned long start, unsigned long count,
                       int depth, unsigned char* dst);
  static int ExpandBit1(const unsigned char* src, unsigned long start, unsigned long count,
                        unsigned char* dst);
  static int ExpandBit2(const unsigned char* src, unsigned long start, unsigned long count,
                        unsigned char* dst);
  static int ExpandBit4(const unsigned char* src, unsigned long start, unsigned long count,
                        unsigned char* dst);

  // One byte per pixel -> packed (non-zero is 1 at depth 1; the low two
  // bits at depth 2). A null dst packs in place (dst = src). Depth 8 or more
  // succeeds untouched; other depths fail.
  static int ShrinkBit(unsigned char* src, unsigned long start, unsigned long count, int depth,
                       unsigned char* dst);
  static int ShrinkBit1(const unsigned char* src, unsigned long start, unsigned long count,
                        unsigned char* dst);
  static int ShrinkBit2(const unsigned char* src, unsigned long start, unsigned long count,
                        unsigned char* dst);
  static int ShrinkBit4(const unsigned char* src, unsigned long start, unsigned long count,
                        unsigned char* dst);

  // Nearest-neighbour scaling of a whole expanded image, rows tightly
  // packed (stride = width * bytes per pixel). Bytes per pixel: 1 below 9
  // bits, else (bits+7)/8; only 1 and 3 are scaled, other sizes write
  // nothing and succeed. Source row r' = trunc(ay + 0.5) with ay summing
  // srcHeight/dstHeight per row (likewise for columns); an index that
  // rounds past the last row or column takes the last one. Fails only on
  // null buffers. dst must hold dstWidth*dstHeight pixels.
  static int ZoomBits(int srcWidth, int srcHeight, unsigned short bitsPerPixel,
                      const unsigned char* src, int dstWidth, int dstHeight, unsigned char* dst);

  // Resamples one expanded line of srcCount pixels to dstCount pixels
  // (bytes per pixel as ZoomBits, any size). map[i] names the source pixel
  // of destination pixel i; without one, AMathOpt::ResampleLineMap builds
  // the nearest-neighbour map. Fails on null buffers, counts below 1 or a
  // map entry outside the source line. Equal counts copy the line.
  static int ResampleLine(const unsigned char* src, int bitsPerPixel, int srcCount,
                          unsigned char* dst, int dstCount, const unsigned long* map = nullptr);

  // ---- run-length codecs ---------------------------------------------------
  //
  // Encoders: (src, srcLen, dst, dstCap, dstLen). Each format has its own
  // capacity rule, which callers size their buffers from:
  //   Comp_RLE    fails when a repeat record would not fit, when a literal
  //               could not be opened (written+3 > cap) or when a literal
  //               byte fills the buffer (so a literal never ends the buffer).
  //   Pack1       only the tail byte may occupy the buffer's last byte.
  //   Pack2       the stream must be shorter than cap-1 bytes.
  //   Comp_RLE4   starting a pair needs its two bytes; completing a pair
  //               needs one spare byte beyond it, unless its second run is a
  //               255-piece of a longer run; a stream ending in a lone run
  //               needs a spare byte.
  //   Comp_RLE8   every record leaves a spare byte (length < cap); at least
  //               two input bytes.
  //   Comp_RLE24  every record leaves a spare byte; srcLen a multiple of 3.
  // Decoders (src, srcLen, dst, dstCap, dstLen) fail when a record would run
  // past dstCap or the stream ends inside a record. UnPack1/UnPack2 decode
  // exactly `pixels` pixels (a run longer than what is left fills the rest
  // and succeeds; a stream that ends short fires a debug assertion and
  // still succeeds).
  static int Comp_RLE(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                      unsigned long dstCap, unsigned long& dstLen);
  static int UnComp_RLE(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                        unsigned long dstCap, unsigned long& dstLen);
  static int Pack1(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                   unsigned long dstCap, unsigned long& dstLen);
  static int UnPack1(const unsigned char* src, unsigned long srcLen, unsigned long pixels,
                     unsigned char* dst);
  static int Pack2(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                   unsigned long dstCap, unsigned long& dstLen);
  static int UnPack2(const unsigned char* src, unsigned long srcLen, unsigned long pixels,
                     unsigned char* dst);
  static int Comp_RLE4(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                       unsigned long dstCap, unsigned long& dstLen);
  static int UnComp_RLE4(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                         unsigned long dstCap, unsigned long& dstLen);
  static int Comp_RLE8(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                       unsigned long dstCap, unsigned long& dstLen);
  static int UnComp_RLE8(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                         unsigned long dstCap, unsigned long& dstLen);
  static int Comp_RLE24(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                        unsigned long dstCap, unsigned long& dstLen);
  static int UnComp_RLE24(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                          unsigned long dstCap, unsigned long& dstLen);

  // Per-depth dispatch: 1 Pack1, 2 Pack2, 4 Comp_RLE4, 8 Comp_RLE8,
  // 24 Comp_RLE24; other depths fail. srcLen is in bytes (3 per pixel at 24).
  static int Pack(const unsigned char* src, unsigned long srcLen, int depth, unsigned char* dst,
                  unsigned long dstCap, unsigned long& dstLen);
  // Whole-line decode of `pixels` pixels into dst (pixels bytes, 3*pixels
  // at depth 24). Depths 4, 8 and 24 succeed when the stream fits; the
  // decoded length may be shorter than the line.
  static int UnPack(const unsigned char* src, unsigned long srcLen, unsigned long pixels, int depth,
                    unsigned char* dst);
  // Windowed decode: pixels start..start+count-1 of a line of lineWidth
  // pixels into dst[0..count-1] (3 bytes per pixel at 24). The record
  // holding `start` is found by walking from the nearer end of the line.
  // Fails on null buffers, count 0, start >= lineWidth or
  // start+count > lineWidth; at depths 4, 8 and 24 also unless exactly
  // count pixels were produced.
  static int UnPack(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                    int depth, unsigned long start, unsigned long count, unsigned char* dst);
  // The windowed decoders of each depth (same contract as above).
  static int UnPackSpan1(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                         unsigned long start, unsigned long count, unsigned char* dst);
  static int UnPackSpan2(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                         unsigned long start, unsigned long count, unsigned char* dst);
  static int UnPackSpan4(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                         unsigned long start, unsigned long count, unsigned char* dst);
  static int UnPackSpan8(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                         unsigned long start, unsigned long count, unsigned char* dst);
  static int UnPackSpan24(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                          unsigned long start, unsigned long count, unsigned char* dst);

  // Locators: the record whose run covers `pixel` of a line of lineWidth
  // pixels. pixel 0 and single-record streams answer at once; below
  // lineWidth/2 the walk goes forward from the first record, otherwise
  // backward from the last (subtracting counts from lineWidth; a start that
  // would go below 0 is clamped to 0). Fail on pixel >= lineWidth, a
  // malformed length (odd at 8, not a multiple of 4 at 24, 3k+1 at 4) or a
  // walk that runs off the stream.
  //   offset    byte offset of the record (1/2-bit: of its literal byte or
  //             the first byte of its run; 4-bit: of its count byte)
  //   runStart  pixel index at which the record's pixels begin
  //   remain    (4-bit) pixels of the run from `pixel` on: run end - pixel
  //   runCount  (8-bit) the record's count
  static int GetLoc_RLE1(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                         unsigned long pixel, unsigned long& offset, unsigned long& runStart);
  static int GetLoc_RLE2(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                         unsigned long pixel, unsigned long& offset, unsigned long& runStart);
  static int GetLoc_RLE4(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                         unsigned long pixel, unsigned long& offset, unsigned long& remain);
  static int GetLoc_RLE8(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                         unsigned long pixel, unsigned long& offset, unsigned long& runStart,
                         unsigned long& runCount);
  static int GetLoc_RLE24(const unsigned char* src, unsigned long srcLen, unsigned long lineWidth,
                          unsigned long pixel, unsigned long& offset, unsigned long& runStart);

  // Reads the run of the 1-bit (Seg1) or 2-bit (Seg2) format at src[pos]:
  // returns the bytes it occupies (0 when src[pos] is a literal byte) and
  // gives its value and length. With forward == 0, pos may lie inside the
  // run's digit bytes: the reader first steps back to the run's first byte
  // (at most `span` bytes, never before src). Forward it reads at most the
  // digits a run can have (10 at 1 bit, 11 at 2 bits), so the caller
  // provides src[pos - min(span,pos)] .. src[pos + 10 or 11] readable, or a
  // stream in which the run ends sooner.
  static unsigned long UnPackSeg1(const unsigned char* src, unsigned long pos, unsigned long span,
                                  unsigned char& value, unsigned long& length, int forward);
  static unsigned long UnPackSeg2(const unsigned char* src, unsigned long pos, unsigned long span,
                                  unsigned char& value, unsigned long& length, int forward);

  // Writes one run of `length` pixels of `value` at dst + written and
  // advances written: depth 1 (bit 6 = value != 0, 6-bit digits) or depth
  // 2 (value & 3 in bits 6-5, 5-bit digits). dst must have room for 10
  // (depth 1) or 11 (depth 2) bytes. Fails for other depths and for runs
  // needing more digits; length 0 writes nothing and succeeds.
  static int Pack_Value(unsigned char value, unsigned long length, int depth, unsigned char* dst,
                        unsigned long& written);

  // A line of `width` pixels of one colour (colour[0], or colour[0..2] at
  // depth 24); returns its length in bytes, 0 on failure. Compressed, dst
  // needs: depth 1/2 at most 12 bytes; depth 4 3*ceil(N/2) with
  // N = ceil(width/255); depth 8 2N; depth 24 4N. Uncompressed it is the
  // expanded line: width bytes (3*width at 24). The 4-bit form writes the
  // count of its last run as width mod 255, also when that is 0.
  static unsigned long InitSpaceBits(unsigned char* dst, int width, unsigned short depth,
                                     const unsigned char* colour, int compressed);

  // Counts the pixels equal to `colour` in an image of width x height.
  // compression 12 means run-length data (one 8-/24-bit record stream, or
  // one 1-bit stream for all width*height pixels); otherwise depth 8/24 read
  // expanded pixels and depth 1 packed rows of (width+7)/8 bytes. Only data
  // within dataLen is counted. Depths 2 and 4 (and failures) give 0.
  static unsigned long CalcMono(unsigned char depth, int compression, int width, int height,
                                const unsigned char* data, unsigned long dataLen,
                                const unsigned char* colour);

  // Rectangle decoders: an image of imageSize held as one stream per line
  // (depth 1, 8 or 24). Line y is data[lineOffsets[y] .. +lineLengths[y])
  // when the two tables are given (both or neither), else the streams follow
  // each other in data from line 0 (each one's length is found by walking
  // its records). The rectangle at `origin` (or 0,0) of `size` pixels goes
  // to dst, row r at dst + r*dstStride, one byte per pixel (3 at 24).
  // Checks: all pointers (origin may be null) given and dstStride > 0 and
  // at least one row of output; with an origin, coordinates not negative and
  // not beyond the image, and without line tables origin+size inside the
  // image; without an origin, size between 1 and the image size. With line
  // tables, rows and columns of the rectangle that fall outside the image
  // are left untouched.
  static int UnPack(const SIZE* imageSize, int depth, const unsigned char* data,
                    unsigned long dataLen, unsigned char* dst, int dstStride, const POINT* origin,
                    const SIZE* size, const unsigned long* lineOffsets,
                    const unsigned long* lineLengths);
  static int UnPack1(const SIZE* imageSize, const unsigned char* data, unsigned long dataLen,
                     unsigned char* dst, int dstStride, const POINT* origin, const SIZE* size,
                     const unsigned long* lineOffsets, const unsigned long* lineLengths);
  static int UnPack8(const SIZE* imageSize, const unsigned char* data, unsigned long dataLen,
                     unsigned char* dst, int dstStride, const POINT* origin, const SIZE* size,
                     const unsigned long* lineOffsets, const unsigned long* lineLengths);
  static int UnPack24(const SIZE* imageSize, const unsigned char* data, unsigned long dataLen,
                      unsigned char* dst, int dstStride, const POINT* origin, const SIZE* size,
                      const unsigned long* lineOffsets, const unsigned long* lineLengths);
  // The same, writing only the pixels whose bit is set in `flags`: a packed
  // 1-bit bitmap of the rectangle (size.cx x size.cy, first pixel in the
  // most significant bit, rows flagStride bytes apart). Other dst pixels
  // are left as they were. Depths 1 and 8.
  static int UnPackFlagBits(const SIZE* imageSize, int depth, const unsigned char* data,
                            unsigned long dataLen, unsigned char* dst, int dstStride,
                            const POINT* origin, const SIZE* size,
                            const unsigned long* lineOffsets, const unsigned long* lineLengths,
                            const unsigned char* flags, int flagStride);
  static int UnPackFlagBits1(const SIZE* imageSize, const unsigned char* data,
                             unsigned long dataLen, unsigned char* dst, int dstStride,
                             const POINT* origin, const SIZE* size,
                             const unsigned long* lineOffsets, const unsigned long* lineLengths,
                             const unsigned char* flags, int flagStride);
  static int UnPackFlagBits8(const SIZE* imageSize, const unsigned char* data,
                             unsigned long dataLen, unsigned char* dst, int dstStride,
                             const POINT* origin, const SIZE* size,
                             const unsigned long* lineOffsets, const unsigned long* lineLengths,
                             const unsigned char* flags, int flagStride);

  // ---- LZW -------------------------------------------------------------------
  //
  // Codes: 0..255 single bytes, 256 clear, 257 end, 258.. dictionary
  // strings (at most 3,835 between clears). Bit stream: most significant
  // bit first, no alignment, zero padding; code number n since the last
  // clear (the clear being number 0) is 9 bits below 255, 10 below 767, 11
  // below 1,791, else 12; a clear at width 12 restarts the numbering.

  // Bytes -> codes. Needs codeCap >= 4 for the shortest input: the end
  // code is written only while codeCount+1 < codeCap.
  static int Pack_LZW(const unsigned char* src, unsigned long srcLen, unsigned short* codes,
                      unsigned long codeCap, unsigned long& codeCount);
  // Codes -> bytes. Every string written leaves 6 spare bytes in dst
  // (dstLen + length + 6 <= dstCap); the bytes of dst past dstLen (within
  // dstCap) may be used as scratch. Codes at or above the next free code
  // repeat the previous string plus its first byte.
  static int UnPack_LZW(const unsigned short* codes, unsigned long codeCount, unsigned char* dst,
                        unsigned long dstCap, unsigned long& dstLen);
  // Codes -> bit stream, strictly shorter than dstCap (on that failure
  // dstLen is set to 1).
  static int TransformDataBits(const unsigned short* codes, unsigned long codeCount,
                               unsigned char* dst, unsigned long dstCap, unsigned long& dstLen);
  // Bit stream -> codes, until the end code is stored or fewer than two
  // input bytes remain. `codes` must have room for srcLen codes.
  static int ResumeDataBit(const unsigned char* src, unsigned long srcLen, unsigned short* codes,
                           unsigned long& codeCount);
  // Both stages with a code array of srcLen*3/2 codes from the memory
  // manager: inputs of 1 to 3 bytes always fail. Allow dst for up to 12
  // bits per input byte plus two codes.
  static int Comp_LZW(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                      unsigned long dstCap, unsigned long& dstLen);
  static int UnComp_LZW(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                        unsigned long dstCap, unsigned long& dstLen);
  // Walks the sibling list of the encoder's node store (3-byte nodes: the
  // appended byte, then the 16-bit little-endian offset of the next
  // sibling, 0 ending the list) from offset `first`, looking for `ch`. On
  // success *code = offset/3 + 257 and the result is 1. *last receives the
  // last node visited before the match or the end (0 when the list was
  // empty). `prefix` is the code being extended (unused; part of the interface).
  static int IsStrInList(unsigned short prefix, unsigned char ch, const unsigned char* nodes,
                         unsigned short first, unsigned short* code, unsigned short* last);

  // ---- Base64 ----------------------------------------------------------------
  //
  // The library's own Base64: the text is zero-padded to a multiple of 3
  // bytes and encoded with the standard alphabet, with no '=' padding and
  // no line breaks ("a" -> "YQAA"). Decoding stops translating at the first
  // character outside the alphabet (so "=" padding is accepted); padding
  // zeros come back as trailing NULs. Both return a new NUL-terminated
  // string (null on failure) to be released with Base64_Free, which also
  // nulls the caller's pointer.
  static char* Base64_Encode(const char* text);
  static char* Base64_Decode(const char* text);
  static void Base64_Free(char** p);
};

#endif  // TQBASE_ACOMPRESS_H
