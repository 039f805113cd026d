// acompress_internal.h - pieces of the codecs shared between their source
// files, and the plain reference implementations that the fast paths are
// checked against. None of this is exported from the shipped library: the
// test suites, benchmarks and fuzz targets link the library's objects
// (tqbase_internal) to reach it.
#ifndef TQBASE_ACOMPRESS_INTERNAL_H
#define TQBASE_ACOMPRESS_INTERNAL_H

#include "tqbase/acompress.h"
#include "checked.h"
#include "tqbase/errorinfo.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64) || (defined(_M_IX86_FP) && _M_IX86_FP >= 2)
#define TQBASE_CODEC_SSE2 1
#endif

// Branch hints for the coders' hot loops.
#if defined(__GNUC__)
#define TQ_LIKELY(x) __builtin_expect(!!(x), 1)
#define TQ_UNLIKELY(x) __builtin_expect(!!(x), 0)
#else
#define TQ_LIKELY(x) (x)
#define TQ_UNLIKELY(x) (x)
#endif

namespace tqbase {
namespace codec {

// Reference forms: byte at a time, straight from the format descriptions.
int ExpandBit1Table(const unsigned char* src, unsigned long start,
                               unsigned long count, unsigned char* dst);
int ShrinkBit1Plain(const unsigned char* src, unsigned long start,
                               unsigned long count, unsigned char* dst);
int UnComp_RLE8Plain(const unsigned char* src, unsigned long srcLen,
                                unsigned char* dst, unsigned long dstCap,
                                unsigned long& dstLen);
// Caps the vector width (bytes) of the run-length decoders' fast paths:
// 32 (AVX2), 16 (SSE2) or 0 (byte-wise); never above what the CPU has, which
// is the default. Returns the previous width. For the test suites, which
// run every path on the same streams.
int SetRleDecodeWidth(int bytes);
int Comp_RLE8Plain(const unsigned char* src, unsigned long srcLen,
                              unsigned char* dst, unsigned long dstCap, unsigned long& dstLen);
int Comp_RLEPlain(const unsigned char* src, unsigned long srcLen,
                             unsigned char* dst, unsigned long dstCap, unsigned long& dstLen);
int Pack1Plain(const unsigned char* src, unsigned long srcLen, unsigned char* dst,
                          unsigned long dstCap, unsigned long& dstLen);
int UnPack1Plain(const unsigned char* src, unsigned long srcLen,
                            unsigned long pixels, unsigned char* dst);
// The encoder with its node store and sibling lists (IsStrInList), as the
// format was first built; the production encoder uses a hash.
int Pack_LZWNodes(const unsigned char* src, unsigned long srcLen,
                             unsigned short* codes, unsigned long codeCap,
                             unsigned long& codeCount);
// UnPack_LZW with a store that spells out every string, and the bit stream
// one bit at a time: same results, output lengths and failures as the fast
// forms (not the same failure texts; these record none).
int UnPack_LZWPlain(const unsigned short* codes, unsigned long codeCount,
                               unsigned char* dst, unsigned long dstCap, unsigned long& dstLen);
int TransformDataBitsPlain(const unsigned short* codes, unsigned long codeCount,
                                      unsigned char* dst, unsigned long dstCap,
                                      unsigned long& dstLen);
int ResumeDataBitPlain(const unsigned char* src, unsigned long srcLen,
                                  unsigned short* codes, unsigned long& codeCount);

// Records a failure text and returns 0, so that "fail and return" is one
// statement in the codecs.
int Fail(const char* format, ...) TQ_PRINTF_FORMAT(1, 2)
    ;

// The check every coder starts with: both buffers given and both sizes
// non-zero. Otherwise the debug assertion, "<op>: null buffer or zero
// length" in g_Error, and 0.
inline int CheckArgs(const char* op, const void* in, unsigned long inSize, const void* out, unsigned long outSize) {
  if (in && inSize && out && outSize) return 1;
  ASSERT(in && inSize && out && outSize);
  return Fail("%s: null buffer or zero length", op);
}

// Run bytes of the 1- and 2-bit formats.
struct RunFormat {
  unsigned keyShift;    // top bits that name a run and its value: 6 or 5
  unsigned digitBits;   // 6 or 5
  unsigned digitMask;   // 0x3F or 0x1F
  unsigned litPixels;   // pixels in a literal byte: 7 or 3
  unsigned maxDigits;   // digits a run can have: 10 or 11
};
constexpr RunFormat kRun1 = {6, 6, 0x3F, 7, 10};
constexpr RunFormat kRun2 = {5, 5, 0x1F, 3, 11};

// Reads the run whose first byte is src[pos] (a run byte), not looking at
// src[end] or beyond and at most maxBytes bytes. Returns the bytes taken;
// the length saturates at ~0 when its digits overflow.
inline unsigned long ReadRun(const RunFormat& f, const unsigned char* src, unsigned long pos,
                             unsigned long end, unsigned long maxBytes, unsigned long& length) {
  const unsigned key = src[pos] >> f.keyShift;
  unsigned long len = 0, n = 0;
  unsigned shift = 0;
  while (pos + n < end && n < maxBytes && (unsigned)(src[pos + n] >> f.keyShift) == key) {
    const unsigned long d = src[pos + n] & f.digitMask;
    if (d && len != ~0ul) {
      // Saturates only when the digit's bits or the sum leave unsigned
      // long, whatever its width (32 bits on Windows).
      const unsigned bits = (unsigned)(8 * sizeof(unsigned long));
      const unsigned long add = shift < bits ? d << shift : 0;
      if (shift >= bits || (add >> shift) != d || len + add < len)
        len = ~0ul;
      else
        len += add;
    }
    shift += f.digitBits;
    ++n;
  }
  length = len;
  return n;
}

}  // namespace codec
}  // namespace tqbase

#endif  // TQBASE_ACOMPRESS_INTERNAL_H
