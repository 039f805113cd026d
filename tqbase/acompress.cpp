// acompress.cpp - ACompress bit packing: the expansion tables, packed <->
// one-byte-per-pixel conversion for 1, 2 and 4 bits, and nearest-neighbour
// scaling of images (ZoomBits) and lines (ResampleLine).
//
// The 1-bit expander and shrinker have SSE2 forms (x86-64 baseline) for the
// whole bytes of a span; the s_BUF table path stays the portable form and
// the reference the SSE2 one is tested against (bench: BM_ExpandBit1 and
// BM_ExpandBit1Table, BM_ShrinkBit1 and BM_ShrinkBit1Plain).
#include "acompress_internal.h"

#include "tqbase/amathopt.h"
#include "tqbase/memorymanage.h"

#include <cstdarg>
#include <cstdio>

#ifdef TQBASE_CODEC_SSE2
#include <emmintrin.h>
#endif

unsigned char ACompress::s_BUF[256][8];
unsigned char* ACompress::s_Loc[128];

namespace tqbase {
namespace codec {

int Fail(const char* format, ...) {
  char text[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  g_Error.SetLastError("%s", text);
  return 0;
}

namespace {

// Bit reversal of a byte: the SSE2 shrinker's movemask puts pixel 0 in bit
// 0, the packed form wants it in bit 7.
struct ReverseTable {
  unsigned char v[256];
  constexpr ReverseTable() : v() {
    for (int i = 0; i < 256; ++i) {
      int r = 0;
      for (int b = 0; b < 8; ++b)
        if (i & (1 << b)) r |= 0x80 >> b;
      v[i] = (unsigned char)r;
    }
  }
};
constexpr ReverseTable kReverse;

// The tables are ready as soon as the library is loaded, also for callers
// that use the codecs before (or without) the module's start-up.
struct TableFiller {
  TableFiller() { ACompress::Init(); }
} s_tableFiller;

}  // namespace

int ExpandBit1Table(const unsigned char* src, unsigned long start, unsigned long count,
                    unsigned char* dst) {
  if (!src || !dst || !count) return 0;
  const unsigned phase = (unsigned)(start & 7);
  if (phase) {
    const unsigned char b = *src++;
    for (unsigned k = phase; k < 8 && count; ++k, --count) *dst++ = ACompress::s_BUF[b][k];
  }
  for (; count >= 8; count -= 8, dst += 8) std::memcpy(dst, ACompress::s_BUF[*src++], 8);
  if (count) std::memcpy(dst, ACompress::s_BUF[*src], count);
  return 1;
}

int ShrinkBit1Plain(const unsigned char* src, unsigned long start, unsigned long count,
                    unsigned char* dst) {
  if (!src || !dst || !count) return 0;
  const unsigned long end = start + count;
  const unsigned char* s = src + start;
  unsigned char* d = dst + start / 8;
  const unsigned phase = (unsigned)(start & 7);
  if (phase) {
    if (end / 8 == start / 8) return 1;
    unsigned b = *d & (0xFF00u >> phase);
    for (unsigned k = phase; k < 8; ++k)
      if (*s++) b |= 0x80u >> k;
    *d++ = (unsigned char)b;
    count -= 8 - phase;
  }
  for (; count >= 8; count -= 8) {
    unsigned b = 0;
    for (unsigned k = 0; k < 8; ++k)
      if (*s++) b |= 0x80u >> k;
    *d++ = (unsigned char)b;
  }
  if (count) {
    unsigned b = *d & (0xFFu >> count);
    for (unsigned k = 0; k < count; ++k)
      if (*s++) b |= 0x80u >> k;
    *d = (unsigned char)b;
  }
  return 1;
}

}  // namespace codec
}  // namespace tqbase

using namespace tqbase::codec;

BOOL ACompress::Init() {
  for (int b = 0; b < 256; ++b)
    for (int k = 0; k < 8; ++k) s_BUF[b][k] = (unsigned char)((b >> (7 - k)) & 1);
  for (int i = 0; i < 128; ++i) s_Loc[i] = &s_BUF[i][1];
  return TRUE;
}

void ACompress::Exit() {}

// ---------------------------------------------------------------------------
// Expansion

int ACompress::ExpandBit(const unsigned char* src, unsigned long start, unsigned long count,
                         int depth, unsigned char* dst) {
  if (!src || !dst || !count) {
    ASSERT(src && dst && count);
    return Fail("ACompress::ExpandBit: null buffer or zero count");
  }
  switch (depth) {
    case 1: return ExpandBit1(src, start, count, dst);
    case 2: return ExpandBit2(src, start, count, dst);
    case 4: return ExpandBit4(src, start, count, dst);
    default:
      if (depth >= 8) return 1;
      return Fail("ACompress::ExpandBit: unsupported depth %d", depth);
  }
}

int ACompress::ExpandBit1(const unsigned char* src, unsigned long start, unsigned long count,
                          unsigned char* dst) {
  if (!src || !dst || !count) return Fail("ACompress::ExpandBit1: null buffer or zero count");
#ifdef TQBASE_CODEC_SSE2
  const unsigned phase = (unsigned)(start & 7);
  if (phase) {
    const unsigned char b = *src++;
    for (unsigned k = phase; k < 8 && count; ++k, --count) *dst++ = s_BUF[b][k];
  }
  // 16 source bytes -> 128 pixels: every byte is broadcast to 8 lanes,
  // tested against its bit masks and turned into 0/1.
  const __m128i bits = _mm_set_epi8(1, 2, 4, 8, 16, 32, 64, (char)128, 1, 2, 4, 8, 16, 32, 64,
                                    (char)128);
  const __m128i one = _mm_set1_epi8(1);
  for (; count >= 128; count -= 128, src += 16, dst += 128) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    const __m128i a = _mm_unpacklo_epi8(x, x);
    const __m128i b = _mm_unpackhi_epi8(x, x);
    const __m128i q[4] = {_mm_unpacklo_epi16(a, a), _mm_unpackhi_epi16(a, a),
                          _mm_unpacklo_epi16(b, b), _mm_unpackhi_epi16(b, b)};
    for (int i = 0; i < 4; ++i) {
      const __m128i lo = _mm_unpacklo_epi32(q[i], q[i]);
      const __m128i hi = _mm_unpackhi_epi32(q[i], q[i]);
      const __m128i r0 = _mm_and_si128(_mm_cmpeq_epi8(_mm_and_si128(lo, bits), bits), one);
      const __m128i r1 = _mm_and_si128(_mm_cmpeq_epi8(_mm_and_si128(hi, bits), bits), one);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 32 * i), r0);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 32 * i + 16), r1);
    }
  }
  for (; count >= 8; count -= 8, dst += 8) std::memcpy(dst, s_BUF[*src++], 8);
  if (count) std::memcpy(dst, s_BUF[*src], count);
  return 1;
#else
  return ExpandBit1Table(src, start, count, dst);
#endif
}

int ACompress::ExpandBit2(const unsigned char* src, unsigned long start, unsigned long count,
                          unsigned char* dst) {
  if (!src || !dst || !count) return Fail("ACompress::ExpandBit2: null buffer or zero count");
  const unsigned char* s = src + start / 4;
  unsigned char* d = dst + start;
  const unsigned phase = (unsigned)(start & 3);
  if (phase) {
    const unsigned b = *s++;
    for (unsigned k = phase; k < 4 && count; ++k, --count) *d++ = (unsigned char)((b >> (6 - 2 * k)) & 3);
  }
  for (; count >= 4; count -= 4, d += 4) {
    const unsigned b = *s++;
    switch (b) {  // uniform bytes: four equal pixels
      case 0x00: std::memset(d, 0, 4); break;
      case 0x55: std::memset(d, 1, 4); break;
      case 0xAA: std::memset(d, 2, 4); break;
      case 0xFF: std::memset(d, 3, 4); break;
      default:
        d[0] = (unsigned char)(b >> 6);
        d[1] = (unsigned char)((b >> 4) & 3);
        d[2] = (unsigned char)((b >> 2) & 3);
        d[3] = (unsigned char)(b & 3);
    }
  }
  if (count) {
    const unsigned b = *s;
    for (unsigned k = 0; k < count; ++k) d[k] = (unsigned char)((b >> (6 - 2 * k)) & 3);
  }
  return 1;
}

int ACompress::ExpandBit4(const unsigned char* src, unsigned long start, unsigned long count,
                          unsigned char* dst) {
  if (!src || !dst || !count) return Fail("ACompress::ExpandBit4: null buffer or zero count");
  const unsigned char* s = src + start / 2;
  unsigned char* d = dst + start;
  if (start & 1) {
    *d++ = *s++ & 0x0F;
    --count;
  }
  for (; count >= 2; count -= 2) {
    const unsigned b = *s++;
    *d++ = (unsigned char)(b >> 4);
    *d++ = (unsigned char)(b & 0x0F);
  }
  if (count) *d = (unsigned char)(*s >> 4);
  return 1;
}

// ---------------------------------------------------------------------------
// Shrinking

int ACompress::ShrinkBit(unsigned char* src, unsigned long start, unsigned long count, int depth,
                         unsigned char* dst) {
  if (!src || !count) {
    ASSERT(src && count);
    return Fail("ACompress::ShrinkBit: null buffer or zero count");
  }
  if (!dst) dst = src;  // in place: byte start*depth/8 never passes pixel start
  switch (depth) {
    case 1: return ShrinkBit1(src, start, count, dst);
    case 2: return ShrinkBit2(src, start, count, dst);
    case 4: return ShrinkBit4(src, start, count, dst);
    default:
      if (depth >= 8) return 1;
      return Fail("ACompress::ShrinkBit: unsupported depth %d", depth);
  }
}

int ACompress::ShrinkBit1(const unsigned char* src, unsigned long start, unsigned long count,
                          unsigned char* dst) {
  if (!src || !dst || !count) return Fail("ACompress::ShrinkBit1: null buffer or zero count");
#ifdef TQBASE_CODEC_SSE2
  const unsigned long end = start + count;
  const unsigned char* s = src + start;
  unsigned char* d = dst + start / 8;
  const unsigned phase = (unsigned)(start & 7);
  if (phase) {
    if (end / 8 == start / 8) return 1;  // a span inside one byte stays unpacked
    unsigned b = *d & (0xFF00u >> phase);
    for (unsigned k = phase; k < 8; ++k)
      if (*s++) b |= 0x80u >> k;
    *d++ = (unsigned char)b;
    count -= 8 - phase;
  }
  // 16 pixels -> 2 bytes: the zero test's movemask, bit-reversed per byte.
  // Each block is read whole before its two bytes are stored, so packing in
  // place stays behind the reading.
  const __m128i zero = _mm_setzero_si128();
  for (; count >= 16; count -= 16, s += 16, d += 2) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    const unsigned nz = ~(unsigned)_mm_movemask_epi8(_mm_cmpeq_epi8(x, zero)) & 0xFFFFu;
    d[0] = kReverse.v[nz & 0xFF];
    d[1] = kReverse.v[nz >> 8];
  }
  for (; count >= 8; count -= 8) {
    unsigned b = 0;
    for (unsigned k = 0; k < 8; ++k)
      if (*s++) b |= 0x80u >> k;
    *d++ = (unsigned char)b;
  }
  if (count) {
    unsigned b = *d & (0xFFu >> count);
    for (unsigned k = 0; k < count; ++k)
      if (*s++) b |= 0x80u >> k;
    *d = (unsigned char)b;
  }
  return 1;
#else
  return ShrinkBit1Plain(src, start, count, dst);
#endif
}

int ACompress::ShrinkBit2(const unsigned char* src, unsigned long start, unsigned long count,
                          unsigned char* dst) {
  if (!src || !dst || !count) return Fail("ACompress::ShrinkBit2: null buffer or zero count");
  const unsigned long end = start + count;
  const unsigned char* s = src + start;
  unsigned char* d = dst + start / 4;
  const unsigned phase = (unsigned)(start & 3);
  if (phase) {
    // Fields phase..last of the first byte; the fields outside the span
    // (before it, and after it when the span ends in this byte) are kept.
    const unsigned last = (end / 4 == start / 4) ? (unsigned)(end & 3) : 4u;
    unsigned keep = 0xFF00u >> (2 * phase);
    keep |= 0xFFu >> (2 * last);
    unsigned b = *d & keep & 0xFFu;
    for (unsigned k = phase; k < last; ++k) b |= (unsigned)(*s++ & 3) << (6 - 2 * k);
    *d++ = (unsigned char)b;
    if (last < 4) return 1;
    count -= 4 - phase;
  }
  for (; count >= 4; count -= 4, s += 4)
    *d++ = (unsigned char)(((s[0] & 3) << 6) | ((s[1] & 3) << 4) | ((s[2] & 3) << 2) | (s[3] & 3));
  if (count) {
    unsigned b = *d & (0xFFu >> (2 * count));
    for (unsigned k = 0; k < count; ++k) b |= (unsigned)(s[k] & 3) << (6 - 2 * k);
    *d = (unsigned char)b;
  }
  return 1;
}

int ACompress::ShrinkBit4(const unsigned char* src, unsigned long start, unsigned long count,
                          unsigned char* dst) {
  if (!src || !dst || !count) return Fail("ACompress::ShrinkBit4: null buffer or zero count");
  const unsigned char* s = src + start;
  unsigned char* d = dst + start / 2;
  // Values are not masked: a pixel above 15 spills into its neighbour.
  if (start & 1) {
    *d = (unsigned char)((*d & 0xF0) | *s++);
    ++d;
    --count;
  }
  for (; count >= 2; count -= 2, s += 2) *d++ = (unsigned char)((s[0] << 4) | s[1]);
  if (count) *d = (unsigned char)((*d & 0x0F) | (s[0] << 4));
  return 1;
}

// ---------------------------------------------------------------------------
// Scaling

int ACompress::ZoomBits(int srcWidth, int srcHeight, unsigned short bitsPerPixel,
                        const unsigned char* src, int dstWidth, int dstHeight, unsigned char* dst) {
  if (!src || !dst) {
    ASSERT(src && dst);
    return Fail("ACompress::ZoomBits: null buffer");
  }
  const int bpp = bitsPerPixel < 9 ? 1 : (bitsPerPixel + 7) / 8;
  if (bpp != 1 && bpp != 3) return 1;
  if (dstWidth <= 0 || dstHeight <= 0) return 1;
  if (srcWidth <= 0 || srcHeight <= 0) {
    ASSERT(srcWidth > 0 && srcHeight > 0);  // nothing to sample from
    return 1;
  }
  const double sx = (double)srcWidth / dstWidth;
  const double sy = (double)srcHeight / dstHeight;
  const size_t srcStride = (size_t)srcWidth * bpp;
  double ay = 0.0;
  for (int r = 0; r < dstHeight; ++r, ay += sy) {
    long sr = (long)(ay + 0.5);
    if (sr >= srcHeight) sr = srcHeight - 1;
    const unsigned char* row = src + (size_t)sr * srcStride;
    unsigned char* d = dst + (size_t)r * dstWidth * bpp;
    double ax = 0.0;
    if (bpp == 1) {
      for (int c = 0; c < dstWidth; ++c, ax += sx) {
        long sc = (long)(ax + 0.5);
        if (sc >= srcWidth) sc = srcWidth - 1;
        d[c] = row[sc];
      }
    } else {
      for (int c = 0; c < dstWidth; ++c, ax += sx, d += 3) {
        long sc = (long)(ax + 0.5);
        if (sc >= srcWidth) sc = srcWidth - 1;
        const unsigned char* p = row + (size_t)sc * 3;
        d[0] = p[0];
        d[1] = p[1];
        d[2] = p[2];
      }
    }
  }
  return 1;
}

int ACompress::ResampleLine(const unsigned char* src, int bitsPerPixel, int srcCount,
                            unsigned char* dst, int dstCount, const unsigned long* map) {
  if (!src || !dst || srcCount < 1 || dstCount < 1) {
    ASSERT(src && dst && srcCount >= 1 && dstCount >= 1);
    return Fail("ACompress::ResampleLine: null buffer or count below 1");
  }
  const size_t bpp = bitsPerPixel < 9 ? 1 : ((size_t)(unsigned)bitsPerPixel + 7) / 8;
  if (srcCount == dstCount) {
    std::memmove(dst, src, (size_t)srcCount * bpp);
    return 1;
  }
  unsigned long* own = nullptr;
  if (!map) {
    size_t bytes = 0;
    const long long entries = (long long)(srcCount > dstCount ? srcCount : dstCount) + 2;
    if (!tqbase::CheckedBytes(entries, sizeof(unsigned long), &bytes, 0xFFFFFFFFu))
      return Fail("ACompress::ResampleLine: map too large");
    own = static_cast<unsigned long*>(AGlobalAllocPtr(GMEM_MOVEABLE, (DWORD)bytes));
    if (!own) return Fail("ACompress::ResampleLine: out of memory for the map");
    if (!AMathOpt::ResampleLineMap(srcCount, dstCount, own)) {
      AGlobalFreePtr(own);
      return Fail("ACompress::ResampleLine: no map");
    }
    map = own;
  }
  int ok = 1;
  for (int i = 0; i < dstCount; ++i) {
    if (map[i] >= (unsigned long)srcCount) {
      ok = Fail("ACompress::ResampleLine: map entry %d names source pixel %lu of %d", i, map[i],
                srcCount);
      break;
    }
    if (bpp == 1)
      dst[i] = src[map[i]];
    else
      std::memcpy(dst + (size_t)i * bpp, src + (size_t)map[i] * bpp, bpp);
  }
  if (own) AGlobalFreePtr(own);
  return ok;
}
