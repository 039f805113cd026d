// acompress_rle.cpp - ACompress run-length codecs: the general byte format,
// the 1-, 2-, 4-, 8- and 24-bit line formats, their dispatchers, locators
// and windowed decoders, blank lines (InitSpaceBits) and colour counts
// (CalcMono). The rectangle decoders live in acompress_rect.cpp.
//
// Every reader here is bounded by the stream length it is given and every
// writer by its capacity; a record that would cross either fails the call.
// Runs are measured with SSE2 compares where available (bench:
// BM_Comp_RLE8 against BM_Comp_RLE8Plain); the general encoder copies
// stretches of literal bytes in bulk (bench: BM_Comp_RLE against
// BM_Comp_RLEPlain). The 4-, 8- and 24-bit decoders store short runs as
// whole vectors where later records are known to overwrite the excess:
// 32-byte AVX2 stores when the CPU has them (chosen once at run time), else
// 16-byte SSE2 stores for the 8-bit format (bench: BM_UnComp_RLE8 against
// BM_UnComp_RLE8Plain and BM_memset).
#include "acompress_internal.h"

#include <algorithm>

#ifdef TQBASE_CODEC_SSE2
#include <emmintrin.h>
#endif
// AVX2 code is compiled per function (target attribute) and chosen at run
// time, so only where GCC or Clang build for x86-64 outside Windows; the
// 32-bit and MSVC builds keep the SSE2 and plain paths.
#if defined(TQBASE_CODEC_SSE2) && defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__)) && \
    !defined(_WIN32)
#define TQBASE_CODEC_AVX2 1
#include <immintrin.h>
#endif

using namespace tqbase::codec;

namespace {

typedef unsigned long ulong;

inline unsigned Ctz(unsigned x) {
#if defined(__GNUC__)
  return (unsigned)__builtin_ctz(x);
#else
  unsigned n = 0;
  while (!(x & 1)) { x >>= 1; ++n; }
  return n;
#endif
}

inline unsigned Popcount(unsigned x) {
#if defined(__GNUC__)
  return (unsigned)__builtin_popcount(x);
#else
  unsigned n = 0;
  for (; x; x &= x - 1) ++n;
  return n;
#endif
}

// The vector part of RunOfByte, kept out of line so that the common short
// run costs the encoders no more than a compare.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
size_t RunOfByteLong(const unsigned char* p, size_t n, unsigned char v) {
  size_t i = 2;
#ifdef TQBASE_CODEC_SSE2
  const __m128i vv = _mm_set1_epi8((char)v);
  for (; i + 16 <= n; i += 16) {
    const unsigned m = (unsigned)_mm_movemask_epi8(
        _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)), vv));
    if (m != 0xFFFFu) return i + Ctz(~m & 0xFFFFu);
  }
#endif
  while (i < n && p[i] == v) ++i;
  return i;
}

// Bytes from p[0] on equal to v (at most n; p[0] is v). Most runs of noisy
// lines end at once: those are answered before any vector work.
inline size_t RunOfByte(const unsigned char* p, size_t n, unsigned char v) {
  if (n < 2 || p[1] != v) return n ? 1 : 0;
  return RunOfByteLong(p, n, v);
}

// Bytes from p[0] on that are zero (nonZero false) or non-zero (true).
inline size_t RunOfBit(const unsigned char* p, size_t n, bool nonZero) {
  size_t i = 0;
#ifdef TQBASE_CODEC_SSE2
  const __m128i zero = _mm_setzero_si128();
  for (; i + 16 <= n; i += 16) {
    unsigned m = (unsigned)_mm_movemask_epi8(
        _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)), zero));
    if (!nonZero) m = ~m & 0xFFFFu;  // bits set where the run breaks
    if (m) return i + Ctz(m);
  }
#endif
  while (i < n && (p[i] != 0) == nonZero) ++i;
  return i;
}

// Bytes from p[0] on whose low two bits equal v.
inline size_t RunOfPair(const unsigned char* p, size_t n, unsigned v) {
  size_t i = 0;
#ifdef TQBASE_CODEC_SSE2
  const __m128i three = _mm_set1_epi8(3), vv = _mm_set1_epi8((char)v);
  for (; i + 16 <= n; i += 16) {
    const __m128i x = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)), three);
    const unsigned m = (unsigned)_mm_movemask_epi8(_mm_cmpeq_epi8(x, vv));
    if (m != 0xFFFFu) return i + Ctz(~m & 0xFFFFu);
  }
#endif
  while (i < n && (p[i] & 3u) == v) ++i;
  return i;
}

// The vector part of RunOfPixel24: pixels 0 .. q all equal the first one
// exactly when p[j] == p[j + 3] for every byte j below 3q, so the run ends
// at the first byte that differs from the one three places before it.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
size_t RunOfPixel24Long(const unsigned char* p, size_t pixels) {
  const size_t n = 3 * pixels;
  size_t j = 3;  // pixels 0 and 1 are known equal
#ifdef TQBASE_CODEC_SSE2
  for (; j + 19 <= n; j += 16) {
    const unsigned m = (unsigned)_mm_movemask_epi8(
        _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + j)),
                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + j + 3))));
    if (m != 0xFFFFu) return (j + Ctz(~m & 0xFFFFu)) / 3 + 1;
  }
#endif
  while (j + 3 < n && p[j] == p[j + 3]) ++j;
  return j / 3 + 1;
}

// Pixels from p[0] on equal to the 3-byte pixel at p (bench: BM_Comp_RLE24).
inline size_t RunOfPixel24(const unsigned char* p, size_t pixels) {
  if (pixels < 2 || p[3] != p[0] || p[4] != p[1] || p[5] != p[2]) return 1;
  return RunOfPixel24Long(p, pixels);
}

// Seven pixels of a 1-bit literal (from p[0..6]) as bits 6..0: non-zero
// bytes become 1. Needs 8 readable bytes.
inline unsigned Literal7(const unsigned char* p) {
  uint64_t x;
  std::memcpy(&x, p, 8);
  // High bit of each byte set iff the byte is non-zero, then moved to bit 0.
  const uint64_t lo7 = 0x7F7F7F7F7F7F7F7FULL;
  x = (((x & lo7) + lo7) | x) & ~lo7;
  x >>= 7;
  x &= 0x00FFFFFFFFFFFFFFULL;  // pixels 0..6 only (little-endian byte order)
  // Gathers byte k's bit into bit 7-k of the top byte.
  return (unsigned)((x * 0x8040201008040201ULL) >> 57);
}

inline bool LittleEndianHost() {
  const uint16_t one = 1;
  unsigned char b;
  std::memcpy(&b, &one, 1);
  return b == 1;
}

inline unsigned Literal7Plain(const unsigned char* p, unsigned n) {
  unsigned b = 0;
  for (unsigned k = 0; k < n; ++k)
    if (p[k]) b |= 0x40u >> k;
  return b;
}

// Fills n bytes with v.
inline void Fill(unsigned char* d, unsigned char v, size_t n) {
  switch (n) {
    case 0: return;
    case 1: d[0] = v; return;
    case 2: d[0] = v; d[1] = v; return;
    default: std::memset(d, v, n);
  }
}

// Fills count pixels with the 3-byte pixel at px.
void Fill24(unsigned char* d, const unsigned char* px, size_t count) {
  if (count < 16) {
    for (size_t i = 0; i < count; ++i, d += 3) {
      d[0] = px[0];
      d[1] = px[1];
      d[2] = px[2];
    }
    return;
  }
  unsigned char pat[48];
  for (int i = 0; i < 16; ++i) std::memcpy(pat + 3 * i, px, 3);
  size_t bytes = count * 3;
  for (; bytes >= 48; bytes -= 48, d += 48) std::memcpy(d, pat, 48);
  std::memcpy(d, pat, bytes);
}

// Widest vector the 8-bit decoder uses: 32 with AVX2, 16 with SSE2, else 0.
int HostVectorWidth() {
#ifdef TQBASE_CODEC_AVX2
  if (__builtin_cpu_supports("avx2")) return 32;
#endif
#ifdef TQBASE_CODEC_SSE2
  return 16;
#else
  return 0;
#endif
}

// Chosen once, on first use (so no other static initialiser can see it
// unset); the test suites lower it to reach the narrower paths.
int& DecodeWidth() {
  static int width = HostVectorWidth();
  return width;
}

}  // namespace

int tqbase::codec::SetRleDecodeWidth(int bytes) {
  const int old = DecodeWidth();
  DecodeWidth() = std::min(std::max(bytes, 0), HostVectorWidth());
  return old;
}

// ===========================================================================
// General byte format

namespace {

// Writer with the general format's three capacity rules.
struct RleWriter {
  unsigned char* dst;
  ulong cap;
  ulong w = 0;
  ulong litPos = 0;  // index of the open literal's count byte
  unsigned litN = 0;
  bool litOpen = false;

  void CloseLiteral() {
    if (litOpen) {
      dst[litPos] = (unsigned char)litN;
      litOpen = false;
    }
  }
  bool Repeat(unsigned count, unsigned char v) {
    CloseLiteral();
    if (w + 2 > cap) return false;
    dst[w] = (unsigned char)count;
    dst[w + 1] = v;
    w += 2;
    return true;
  }
  bool Literal(unsigned char v) {
    if (!litOpen) {
      if (w + 3 > cap) return false;
      dst[w] = 0;
      litPos = w + 1;
      w += 2;
      litN = 0;
      litOpen = true;
    }
    dst[w++] = v;
    ++litN;
    if (w >= cap) return false;
    if (litN == 255) CloseLiteral();
    return true;
  }
  // Literal(p[0]), ..., Literal(p[n - 1]) with the same bytes written, the
  // same failure point and the same w when it fails.
  bool Literals(const unsigned char* p, size_t n) {
    while (n) {
      if (!litOpen) {
        if (w + 3 > cap) return false;
        dst[w] = 0;
        litPos = w + 1;
        w += 2;
        litN = 0;
        litOpen = true;
      }
      const size_t k = std::min(n, (size_t)(255 - litN));
      if (k >= cap - w) {  // the byte that reaches cap is written, then fails
        std::memcpy(dst + w, p, cap - w);
        w = cap;
        return false;
      }
      std::memcpy(dst + w, p, k);
      w += k;
      litN += (unsigned)k;
      if (litN == 255) CloseLiteral();
      p += k;
      n -= k;
    }
    return true;
  }
};

// From i (0 < i < n, src[i - 1] != src[i]): the first j >= i with
// src[j] == src[j + 1], or n - 1 when no two neighbours from i on are equal.
ulong LiteralEnd(const unsigned char* src, ulong i, ulong n) {
#ifdef TQBASE_CODEC_SSE2
  for (; i + 17 <= n; i += 16) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 1));
    const unsigned m = (unsigned)_mm_movemask_epi8(_mm_cmpeq_epi8(x, y));
    if (m) return i + Ctz(m);
  }
#endif
  for (; i + 1 < n; ++i)
    if (src[i] == src[i + 1]) return i;
  return n - 1;
}

}  // namespace

int tqbase::codec::Comp_RLEPlain(const unsigned char* src, ulong srcLen, unsigned char* dst,
                                 ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!src || !dst || !srcLen || !dstCap) return 0;
  // On failure dstLen tells how far the writer got, as the fast encoder
  // reports it.
  RleWriter out{dst, dstCap};
  unsigned char v = src[0];
  unsigned len = 1;
  for (ulong i = 1; i < srcLen; ++i) {
    const unsigned char c = src[i];
    if (c == v) {
      if (len == 255) {
        if (!out.Repeat(255, v)) goto full;
        len = 1;
      } else {
        ++len;
      }
      continue;
    }
    if (len >= 2 ? !out.Repeat(len, v) : !out.Literal(v)) goto full;
    v = c;
    len = 1;
  }
  if (!out.Repeat(len, v)) goto full;
  dstLen = out.w;
  return 1;
full:
  dstLen = out.w;
  return 0;
}

int ACompress::Comp_RLE(const unsigned char* src, ulong srcLen, unsigned char* dst, ulong dstCap,
                        ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::Comp_RLE", src, srcLen, dst, dstCap)) return 0;
  // Whole runs at a time; a run of 255k+r bytes behaves as k repeat records
  // of 255 followed by a run of r, exactly as the byte-wise rules give.
  RleWriter out{dst, dstCap};
  ulong i = 0;
  while (i < srcLen) {
    const unsigned char v = src[i];
    size_t len = RunOfByte(src + i, srcLen - i, v);
    i += len;
    for (; len > 255; len -= 255)
      if (!out.Repeat(255, v)) goto full;
    if (len >= 2 || i == srcLen) {
      if (!out.Repeat((unsigned)len, v)) goto full;
      continue;
    }
    // A run of one: it and every following byte up to the next pair of
    // equal bytes (or up to the last byte, which always ends the stream as
    // a repeat record) are literal bytes, copied in bulk (bench: BM_Comp_RLE
    // against BM_Comp_RLEPlain on noise).
    const ulong end = LiteralEnd(src, i, srcLen);
    if (!out.Literals(src + i - 1, end - (i - 1))) goto full;
    i = end;
  }
  dstLen = out.w;
  return 1;
full:
  dstLen = out.w;
  return Fail("ACompress::Comp_RLE: output buffer of %lu bytes is too small", dstCap);
}

int ACompress::UnComp_RLE(const unsigned char* src, ulong srcLen, unsigned char* dst, ulong dstCap,
                          ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::UnComp_RLE", src, srcLen, dst, dstCap)) return 0;
  ulong r = 0, w = 0;
  while (r < srcLen) {
    if (r + 1 >= srcLen) return Fail("ACompress::UnComp_RLE: record cut short at byte %lu", r);
    const unsigned c = src[r];
    if (c) {
      if (c > dstCap - w) return Fail("ACompress::UnComp_RLE: output exceeds %lu bytes", dstCap);
      Fill(dst + w, src[r + 1], c);
      w += c;
      r += 2;
    } else {
      const unsigned n = src[r + 1];
      if (n > srcLen - r - 2) return Fail("ACompress::UnComp_RLE: literal cut short at byte %lu", r);
      if (n > dstCap - w) return Fail("ACompress::UnComp_RLE: output exceeds %lu bytes", dstCap);
      std::memcpy(dst + w, src + r + 2, n);
      w += n;
      r += 2 + n;
    }
  }
  dstLen = w;
  return 1;
}

// ===========================================================================
// 1-bit format

int tqbase::codec::Pack1Plain(const unsigned char* src, ulong srcLen, unsigned char* dst,
                              ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!src || !dst || !srcLen || !dstCap) return 0;
  ulong w = 0, i = 0;
  while (srcLen - i >= 8) {
    const bool v = src[i] != 0;
    ulong len = 1;
    while (i + len < srcLen && (src[i + len] != 0) == v) ++len;
    if (len >= 8) {
      i += len;
      while (len) {
        if (w >= dstCap - 1) return 0;
        dst[w++] = (unsigned char)((v ? 0x40 : 0) | (len & 0x3F));
        len >>= 6;
      }
    } else {
      if (w >= dstCap - 1) return 0;
      dst[w++] = (unsigned char)(0x80 | Literal7Plain(src + i, 7));
      i += 7;
    }
  }
  const unsigned rest = (unsigned)(srcLen - i);
  if (rest) {
    if (w >= dstCap - 1) return 0;
    dst[w++] = (unsigned char)(0x80 | Literal7Plain(src + i, rest));
  }
  dst[w++] = (unsigned char)rest;
  dstLen = w;
  return 1;
}

int ACompress::Pack1(const unsigned char* src, ulong srcLen, unsigned char* dst, ulong dstCap,
                     ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::Pack1", src, srcLen, dst, dstCap)) return 0;
  static const bool kLittle = LittleEndianHost();
  // Every byte but the tail must land below dstCap-1.
  const ulong limit = dstCap - 1;
  ulong w = 0, i = 0;
  while (srcLen - i >= 8) {
    const bool v = src[i] != 0;
    ulong len = RunOfBit(src + i, srcLen - i, v);
    if (len >= 8) {
      i += len;
      const unsigned key = v ? 0x40u : 0u;
      do {
        if (w >= limit) goto full;
        dst[w++] = (unsigned char)(key | (len & 0x3F));
        len >>= 6;
      } while (len);
    } else {
      if (w >= limit) goto full;
      dst[w++] = (unsigned char)(0x80 | (kLittle ? Literal7(src + i) : Literal7Plain(src + i, 7)));
      i += 7;
    }
  }
  {
    const unsigned rest = (unsigned)(srcLen - i);
    if (rest) {
      if (w >= limit) goto full;
      dst[w++] = (unsigned char)(0x80 | Literal7Plain(src + i, rest));
    }
    dst[w++] = (unsigned char)rest;  // the tail byte may take the last place
  }
  dstLen = w;
  return 1;
full:
  dstLen = w;
  return Fail("ACompress::Pack1: output buffer of %lu bytes is too small", dstCap);
}

int tqbase::codec::UnPack1Plain(const unsigned char* src, ulong srcLen, ulong pixels,
                                unsigned char* dst) {
  if (!src || !dst || !srcLen || !pixels) return 0;
  const ulong end = srcLen - 1;  // the tail byte is not read
  ulong r = 0, w = 0;
  while (r < end && w < pixels) {
    const unsigned b = src[r];
    if (b & 0x80) {
      if (pixels - w >= 8) {
        std::memcpy(dst + w, ACompress::s_Loc[b & 0x7F], 7);
        w += 7;
      } else {
        for (unsigned k = 0; k < 7 && w < pixels; ++k) dst[w++] = (unsigned char)((b >> (6 - k)) & 1);
      }
      ++r;
    } else {
      ulong len;
      r += ReadRun(kRun1, src, r, end, ~0ul, len);
      const unsigned char v = (unsigned char)((b >> 6) & 1);
      for (; len && w < pixels; --len) dst[w++] = v;
    }
  }
  ASSERT(w == pixels);
  return 1;
}

int ACompress::UnPack1(const unsigned char* src, ulong srcLen, ulong pixels, unsigned char* dst) {
  if (!CheckArgs("ACompress::UnPack1", src, srcLen, dst, pixels)) return 0;
  const ulong end = srcLen - 1;  // the tail byte is not read
  ulong r = 0, w = 0;
  while (r < end && w < pixels) {
    const unsigned b = src[r];
    if (b & 0x80) {
      if (pixels - w >= 8) {
        // Row (b<<1) of s_BUF is s_Loc[b&0x7F]'s seven pixels and a zero:
        // one 8-byte store, whose last byte the next record overwrites.
        std::memcpy(dst + w, s_BUF[(b << 1) & 0xFF], 8);
        w += 7;
      } else {
        for (unsigned k = 0; k < 7 && w < pixels; ++k) dst[w++] = (unsigned char)((b >> (6 - k)) & 1);
      }
      ++r;
    } else {
      ulong len;
      r += ReadRun(kRun1, src, r, end, ~0ul, len);
      const ulong room = pixels - w;
      if (len > room) len = room;  // an overlong run fills the rest
      std::memset(dst + w, (int)((b >> 6) & 1), len);
      w += len;
    }
  }
  ASSERT(w == pixels);  // a stream that ends short still succeeds
  return 1;
}

// ===========================================================================
// 2-bit format

int ACompress::Pack2(const unsigned char* src, ulong srcLen, unsigned char* dst, ulong dstCap,
                     ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::Pack2", src, srcLen, dst, dstCap)) return 0;
  // The stream must stay below dstCap-1 bytes: a write that brings the
  // length to dstCap-1 fails.
  const ulong limit = dstCap - 1;
  ulong w = 0, i = 0;
#define TQ_PUT2(byte)                    \
  do {                                   \
    dst[w++] = (unsigned char)(byte);    \
    if (w >= limit) goto full;           \
  } while (0)
  while (srcLen - i >= 4) {
    const unsigned v = src[i] & 3u;
    ulong len = RunOfPair(src + i, srcLen - i, v);
    if (len >= 4) {
      i += len;
      do {
        TQ_PUT2((v << 5) | (len & 0x1F));
        len >>= 5;
      } while (len);
    } else {
      TQ_PUT2(0x80 | ((src[i] & 3u) << 4) | ((src[i + 1] & 3u) << 2) | (src[i + 2] & 3u));
      i += 3;
    }
  }
  {
    const unsigned rest = (unsigned)(srcLen - i);
    if (rest) {
      unsigned b = 0x80;
      for (unsigned k = 0; k < rest; ++k) b |= (src[i + k] & 3u) << (4 - 2 * k);
      TQ_PUT2(b);  // positions past the line are written as 0
    }
    TQ_PUT2(rest);
  }
#undef TQ_PUT2
  dstLen = w;
  return 1;
full:
  dstLen = w;
  return Fail("ACompress::Pack2: output buffer of %lu bytes is too small", dstCap);
}

int ACompress::UnPack2(const unsigned char* src, ulong srcLen, ulong pixels, unsigned char* dst) {
  if (!CheckArgs("ACompress::UnPack2", src, srcLen, dst, pixels)) return 0;
  const ulong end = srcLen - 1;
  ulong r = 0, w = 0;
  while (r < end && w < pixels) {
    const unsigned b = src[r];
    if (b & 0x80) {
      if (pixels - w >= 3) {
        dst[w] = (unsigned char)((b >> 4) & 3);
        dst[w + 1] = (unsigned char)((b >> 2) & 3);
        dst[w + 2] = (unsigned char)(b & 3);
        w += 3;
      } else {
        for (unsigned k = 0; k < 3 && w < pixels; ++k) dst[w++] = (unsigned char)((b >> (4 - 2 * k)) & 3);
      }
      ++r;
    } else {
      ulong len;
      r += ReadRun(kRun2, src, r, end, ~0ul, len);
      const ulong room = pixels - w;
      if (len > room) len = room;
      std::memset(dst + w, (int)((b >> 5) & 3), len);
      w += len;
    }
  }
  ASSERT(w == pixels);
  return 1;
}

// ===========================================================================
// Vector fills of the 4-, 8- and 24-bit decoders

namespace {

#ifdef TQBASE_CODEC_SSE2
// Records src[0..safe) of an 8-bit stream, where safe is the start of the
// shortest tail of records holding at least `margin` pixels (0 when the
// whole stream holds fewer). A run decoded before `safe` may store up to
// margin - 1 bytes past its end: later records overwrite them before the
// decoder returns, and they lie inside the decoded line.
ulong SafeEnd8(const unsigned char* src, ulong srcLen, ulong margin) {
  ulong safe = srcLen, tailPixels = 0;
  while (safe && tailPixels < margin) {
    safe -= 2;
    tailPixels += src[safe];
  }
  return tailPixels < margin ? 0 : safe;
}

// Decodes the records before SafeEnd8(.., 16) with 16-byte stores; r and w
// come back at the first record left for the byte-wise loop. False when a
// record overflows dstCap.
bool UnRle8Sse2(const unsigned char* src, ulong srcLen, unsigned char* dst, ulong dstCap, ulong& rOut,
                ulong& wOut) {
  const ulong safe = SafeEnd8(src, srcLen, 16);
  ulong w = 0, r = 0;
  const __m128i countMask = _mm_set1_epi16(0x00FF), one = _mm_set1_epi16(1);
  while (r < safe) {
    // Eight records of one pixel each, as noise gives: their values in one
    // 8-byte store.
    if (safe - r >= 16 && dstCap - w >= 8) {
      const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + r));
      if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(x, countMask), one)) == 0xFFFF) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + w), _mm_packus_epi16(_mm_srli_epi16(x, 8), x));
        w += 8;
        r += 16;
        continue;
      }
    }
    const unsigned c = src[r];
    const unsigned span = (c + 15) & ~15u;
    if (span <= dstCap - w) {
      const __m128i v = _mm_set1_epi8((char)src[r + 1]);
      for (unsigned k = 0; k < span; k += 16) _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + w + k), v);
    } else {
      if (c > dstCap - w) return false;
      std::memset(dst + w, src[r + 1], c);
    }
    w += c;
    r += 2;
  }
  rOut = r;
  wOut = w;
  return true;
}
#endif

#ifdef TQBASE_CODEC_AVX2
// One run of c pixels of `value` at dst + w, w moved past it; false when it
// does not fit dstCap. A run of more than 32 pixels is written from both of
// its ends (at most four 32-byte stores from each), so it never stores past
// itself; a run of up to 32 is one 32-byte store when 32 bytes fit, so the
// caller guarantees 32 pixels of later runs to overwrite the excess. Fewer
// stores than the 16-byte loop and three predictable tests instead of a
// loop (bench: BM_UnComp_RLE8, BM_UnComp_RLE4 against BM_memset).
__attribute__((target("avx2"))) inline bool RunAvx2(unsigned char* dst, ulong& w, ulong dstCap,
                                                    unsigned char value, unsigned c) {
  unsigned char* d = dst + w;
  const ulong room = dstCap - w;
  const __m256i v = _mm256_set1_epi8((char)value);
  if (c <= 32) {
    if (room >= 32) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), v);
    } else {
      if (c > room) return false;
      std::memset(d, value, c);
    }
  } else {
    if (c > room) return false;
    // [0, c) is covered by [0, k) and [c - k, c) for k = 32, 64 or 128 with
    // k < c <= 2k.
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), v);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + c - 32), v);
    if (c > 64) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 32), v);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + c - 64), v);
      if (c > 128) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 64), v);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 96), v);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + c - 128), v);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + c - 96), v);
      }
    }
  }
  w += c;
  return true;
}

// As UnRle8Sse2 with RunAvx2 and a safe margin of 32 pixels.
__attribute__((target("avx2"))) bool UnRle8Avx2(const unsigned char* src, ulong srcLen,
                                                unsigned char* dst, ulong dstCap, ulong& rOut,
                                                ulong& wOut) {
  const ulong safe = SafeEnd8(src, srcLen, 32);
  ulong w = 0, r = 0;
  const __m256i countMask = _mm256_set1_epi16(0x00FF), one = _mm256_set1_epi16(1);
  while (r < safe) {
    // Sixteen records of one pixel each (noise): their values in one
    // 16-byte store.
    if (src[r] == 1 && safe - r >= 32 && dstCap - w >= 16) {
      const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + r));
      if ((unsigned)_mm256_movemask_epi8(_mm256_cmpeq_epi16(_mm256_and_si256(x, countMask), one)) ==
          0xFFFFFFFFu) {
        // Per 128-bit lane: 8 values then 8 copies; gather the two value
        // halves into the low lane.
        const __m256i packed = _mm256_packus_epi16(_mm256_srli_epi16(x, 8), x);
        const __m256i low = _mm256_permute4x64_epi64(packed, 0xD8);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + w), _mm256_castsi256_si128(low));
        w += 16;
        r += 32;
        continue;
      }
    }
    if (!RunAvx2(dst, w, dstCap, src[r + 1], src[r])) return false;
    r += 2;
  }
  rOut = r;
  wOut = w;
  return true;
}

// The 4-bit stream's pairs before the last ones that hold at least 32
// pixels (the lone run A of a 3k+2 stream counted with them), with RunAvx2.
__attribute__((target("avx2"))) bool UnRle4Avx2(const unsigned char* src, ulong srcLen,
                                                unsigned char* dst, ulong dstCap, ulong& kOut,
                                                ulong& wOut) {
  ulong safe = srcLen - srcLen % 3, tailPixels = srcLen % 3 == 2 ? src[safe] : 0;
  while (safe && tailPixels < 32) {
    safe -= 3;
    tailPixels += (ulong)src[safe] + src[safe + 2];
  }
  if (tailPixels < 32) safe = 0;
  ulong w = 0, k = 0;
  for (; k < safe; k += 3) {
    const unsigned vb = src[k + 1];
    if (!RunAvx2(dst, w, dstCap, (unsigned char)(vb >> 4), src[k])) return false;
    if (!RunAvx2(dst, w, dstCap, (unsigned char)(vb & 0x0F), src[k + 2])) return false;
  }
  kOut = k;
  wOut = w;
  return true;
}

// The 24-bit records before the last ones that hold at least 32 pixels.
// Each run is stored as 96-byte blocks of its pixel (three vectors, built
// once per record with byte shuffles): from its start, and a last block
// ending exactly at its end (a multiple of 3 bytes in, so in phase). Runs
// under 32 pixels spill up to 93 bytes into the following records; a run
// of one pixel is a 4-byte copy of its record's bytes 1..4 (bench:
// BM_UnComp_RLE24 against BM_memset).
__attribute__((target("avx2"))) bool UnRle24Avx2(const unsigned char* src, ulong srcLen,
                                                 unsigned char* dst, ulong dstCap, ulong& rOut,
                                                 ulong& wOut) {
  ulong safe = srcLen, tailPixels = 0;
  while (safe && tailPixels < 32) {
    safe -= 4;
    tailPixels += src[safe];
  }
  if (tailPixels < 32) safe = 0;
  // Byte i of the 96-byte block is pixel byte i mod 3; each 128-bit lane
  // shuffles from a lane holding the pixel at bytes 0..2.
  alignas(32) static const unsigned char kIdx[96] = {
      0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1,
      2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0,
      1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2};
  const __m256i i0 = _mm256_load_si256(reinterpret_cast<const __m256i*>(kIdx));
  const __m256i i1 = _mm256_load_si256(reinterpret_cast<const __m256i*>(kIdx + 32));
  const __m256i i2 = _mm256_load_si256(reinterpret_cast<const __m256i*>(kIdx + 64));
  ulong w = 0, r = 0;
  for (; r < safe; r += 4) {
    const unsigned c = src[r];
    unsigned char* d = dst + w;
    const ulong room = dstCap - w, bytes = 3ul * c;
    if (c == 1 && room >= 4) {
      std::memcpy(d, src + r + 1, 4);
    } else if (bytes >= 96 || room >= 96) {
      if (bytes > room) return false;
      uint32_t px;
      std::memcpy(&px, src + r + 1, 3);  // bytes 3 of px unused: shuffled out
      const __m256i p = _mm256_set1_epi32((int)px);
      const __m256i a = _mm256_shuffle_epi8(p, i0), b = _mm256_shuffle_epi8(p, i1),
                    e = _mm256_shuffle_epi8(p, i2);
      ulong k = 0;
      for (; k + 96 < bytes; k += 96) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + k), a);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + k + 32), b);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + k + 64), e);
      }
      k = bytes > 96 ? bytes - 96 : 0;
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + k), a);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + k + 32), b);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + k + 64), e);
    } else {
      if (bytes > room) return false;
      Fill24(d, src + r + 1, c);
    }
    w += bytes;
  }
  rOut = r;
  wOut = w;
  return true;
}
#endif

}  // namespace

// ===========================================================================
// 4-bit format

int ACompress::Comp_RLE4(const unsigned char* src, ulong srcLen, unsigned char* dst, ulong dstCap,
                         ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::Comp_RLE4", src, srcLen, dst, dstCap)) return 0;
  // w is the offset of the pair being filled; it moves by 3 when a pair is
  // complete and by 2 at the end for a lone run A. The capacity checks are
  // made against w and differ by position, as the format always had them:
  // a pair's start needs its 2 bytes, its completion 3 bytes plus a spare
  // (only 3 bytes when the second run is a 255-piece of a longer run).
  ulong w = 0;
  bool half = false;
  auto emit = [&](unsigned count, unsigned char v, bool piece) -> bool {
    if (!half) {
      if (w + 1 >= dstCap) return false;
      dst[w] = (unsigned char)count;
      dst[w + 1] = (unsigned char)(v << 4);
      half = true;
    } else {
      if ((piece ? w + 2 : w + 3) >= dstCap) return false;
      dst[w + 1] = (unsigned char)(dst[w + 1] | v);  // not masked
      dst[w + 2] = (unsigned char)count;
      w += 3;
      half = false;
    }
    return true;
  };
  for (ulong i = 0; i < srcLen;) {
    const unsigned char v = src[i];
    size_t len = RunOfByte(src + i, srcLen - i, v);
    i += len;
    for (; len > 255; len -= 255)
      if (!emit(255, v, true)) goto full;
    if (!emit((unsigned)len, v, false)) goto full;
  }
  if (half) w += 2;
  dstLen = w;
  if (w < dstCap) return 1;
full:
  dstLen = w;
  return Fail("ACompress::Comp_RLE4: output buffer of %lu bytes is too small", dstCap);
}

int ACompress::UnComp_RLE4(const unsigned char* src, ulong srcLen, unsigned char* dst,
                           ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::UnComp_RLE4", src, srcLen, dst, dstCap)) return 0;
  if (srcLen % 3 == 1) return Fail("ACompress::UnComp_RLE4: invalid stream length %lu", srcLen);
  ulong w = 0, k = 0;
#ifdef TQBASE_CODEC_AVX2
  if (DecodeWidth() >= 32 && !UnRle4Avx2(src, srcLen, dst, dstCap, k, w))
    return Fail("ACompress::UnComp_RLE4: output exceeds %lu bytes", dstCap);
#endif
  for (; k < srcLen; k += 3) {
    const unsigned ca = src[k], vb = src[k + 1];
    if (ca > dstCap - w) return Fail("ACompress::UnComp_RLE4: output exceeds %lu bytes", dstCap);
    Fill(dst + w, (unsigned char)(vb >> 4), ca);
    w += ca;
    if (k + 2 < srcLen) {
      const unsigned cb = src[k + 2];
      if (cb > dstCap - w) return Fail("ACompress::UnComp_RLE4: output exceeds %lu bytes", dstCap);
      Fill(dst + w, (unsigned char)(vb & 0x0F), cb);
      w += cb;
    }
  }
  dstLen = w;
  return 1;
}

// ===========================================================================
// 8-bit format

int tqbase::codec::Comp_RLE8Plain(const unsigned char* src, ulong srcLen, unsigned char* dst,
                                  ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!src || !dst || srcLen < 2 || !dstCap) return 0;
  ulong w = 0;
  unsigned char v = src[0];
  unsigned len = 1;
  for (ulong i = 1; i <= srcLen; ++i) {
    if (i < srcLen && src[i] == v && len < 255) {
      ++len;
      continue;
    }
    if (w + 2 >= dstCap) return 0;
    dst[w] = (unsigned char)len;
    dst[w + 1] = v;
    w += 2;
    if (i < srcLen) {
      len = 1;
      v = src[i];
    }
  }
  dstLen = w;
  return 1;
}

int ACompress::Comp_RLE8(const unsigned char* src, ulong srcLen, unsigned char* dst, ulong dstCap,
                         ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::Comp_RLE8", src, srcLen, dst, dstCap)) return 0;
  if (srcLen < 2) return Fail("ACompress::Comp_RLE8: a line needs at least 2 bytes");
  ulong w = 0;
  for (ulong i = 0; i < srcLen;) {
#ifdef TQBASE_CODEC_SSE2
    // Sixteen pixels none of which equals its right neighbour (noise): 16
    // records of count 1 at once, when all of them keep the spare byte.
    if (srcLen - i >= 17 && dstCap - w > 32) {
      const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
      const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 1));
      if (_mm_movemask_epi8(_mm_cmpeq_epi8(x, y)) == 0) {
        const __m128i one = _mm_set1_epi8(1);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + w), _mm_unpacklo_epi8(one, x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + w + 16), _mm_unpackhi_epi8(one, x));
        w += 32;
        i += 16;
        continue;
      }
    }
#endif
    const unsigned char v = src[i];
    size_t len = RunOfByte(src + i, srcLen - i, v);
    i += len;
    while (len) {
      const unsigned n = len > 255 ? 255u : (unsigned)len;
      if (w + 2 >= dstCap) {  // one spare byte always stays
        dstLen = w;
        return Fail("ACompress::Comp_RLE8: output buffer of %lu bytes is too small", dstCap);
      }
      dst[w] = (unsigned char)n;
      dst[w + 1] = v;
      w += 2;
      len -= n;
    }
  }
  dstLen = w;
  return 1;
}

int tqbase::codec::UnComp_RLE8Plain(const unsigned char* src, ulong srcLen, unsigned char* dst,
                                    ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!src || !dst || !srcLen || !dstCap || (srcLen & 1)) return 0;
  ulong w = 0;
  for (ulong r = 0; r < srcLen; r += 2) {
    const unsigned c = src[r];
    if (c > dstCap - w) return 0;
    for (unsigned k = 0; k < c; ++k) dst[w + k] = src[r + 1];
    w += c;
  }
  dstLen = w;
  return 1;
}

int ACompress::UnComp_RLE8(const unsigned char* src, ulong srcLen, unsigned char* dst,
                           ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::UnComp_RLE8", src, srcLen, dst, dstCap)) return 0;
  if (srcLen & 1) return Fail("ACompress::UnComp_RLE8: odd stream length %lu", srcLen);
  ulong w = 0, r = 0;
#ifdef TQBASE_CODEC_AVX2
  if (DecodeWidth() >= 32) {
    if (!UnRle8Avx2(src, srcLen, dst, dstCap, r, w))
      return Fail("ACompress::UnComp_RLE8: output exceeds %lu bytes", dstCap);
  } else
#endif
#ifdef TQBASE_CODEC_SSE2
  if (DecodeWidth() >= 16) {
    if (!UnRle8Sse2(src, srcLen, dst, dstCap, r, w))
      return Fail("ACompress::UnComp_RLE8: output exceeds %lu bytes", dstCap);
  }
#endif
  for (; r < srcLen; r += 2) {
    const unsigned c = src[r];
    if (c > dstCap - w) return Fail("ACompress::UnComp_RLE8: output exceeds %lu bytes", dstCap);
    Fill(dst + w, src[r + 1], c);
    w += c;
  }
  dstLen = w;
  return 1;
}

// ===========================================================================
// 24-bit format

int ACompress::Comp_RLE24(const unsigned char* src, ulong srcLen, unsigned char* dst,
                          ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::Comp_RLE24", src, srcLen, dst, dstCap)) return 0;
  if (srcLen % 3) return Fail("ACompress::Comp_RLE24: length %lu is not a multiple of 3", srcLen);
  const ulong pixels = srcLen / 3;
  ulong w = 0;
  for (ulong i = 0; i < pixels;) {
    const unsigned char* px = src + 3 * i;
    size_t len = RunOfPixel24(px, pixels - i);
    i += len;
    while (len) {
      const unsigned n = len > 255 ? 255u : (unsigned)len;
      if (w + 4 >= dstCap) {  // one spare byte always stays
        dstLen = w;
        return Fail("ACompress::Comp_RLE24: output buffer of %lu bytes is too small", dstCap);
      }
      dst[w] = (unsigned char)n;
      dst[w + 1] = px[0];
      dst[w + 2] = px[1];
      dst[w + 3] = px[2];
      w += 4;
      len -= n;
    }
  }
  dstLen = w;
  return 1;
}

int ACompress::UnComp_RLE24(const unsigned char* src, ulong srcLen, unsigned char* dst,
                            ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::UnComp_RLE24", src, srcLen, dst, dstCap)) return 0;
  if (srcLen % 4) return Fail("ACompress::UnComp_RLE24: length %lu is not a multiple of 4", srcLen);
  ulong w = 0, r = 0;
#ifdef TQBASE_CODEC_AVX2
  if (DecodeWidth() >= 32 && !UnRle24Avx2(src, srcLen, dst, dstCap, r, w))
    return Fail("ACompress::UnComp_RLE24: output exceeds %lu bytes", dstCap);
#endif
  for (; r < srcLen; r += 4) {
    const ulong bytes = 3ul * src[r];
    if (bytes > dstCap - w) return Fail("ACompress::UnComp_RLE24: output exceeds %lu bytes", dstCap);
    Fill24(dst + w, src + r + 1, src[r]);
    w += bytes;
  }
  dstLen = w;
  return 1;
}

// ===========================================================================
// Dispatchers

int ACompress::Pack(const unsigned char* src, ulong srcLen, int depth, unsigned char* dst,
                    ulong dstCap, ulong& dstLen) {
  switch (depth) {
    case 1: return Pack1(src, srcLen, dst, dstCap, dstLen);
    case 2: return Pack2(src, srcLen, dst, dstCap, dstLen);
    case 4: return Comp_RLE4(src, srcLen, dst, dstCap, dstLen);
    case 8: return Comp_RLE8(src, srcLen, dst, dstCap, dstLen);
    case 24: return Comp_RLE24(src, srcLen, dst, dstCap, dstLen);
    default:
      dstLen = 0;
      return Fail("ACompress::Pack: unsupported depth %d", depth);
  }
}

int ACompress::UnPack(const unsigned char* src, ulong srcLen, ulong pixels, int depth,
                      unsigned char* dst) {
  ulong len = 0;
  switch (depth) {
    case 1: return UnPack1(src, srcLen, pixels, dst);
    case 2: return UnPack2(src, srcLen, pixels, dst);
    case 4: return UnComp_RLE4(src, srcLen, dst, pixels, len);
    case 8: return UnComp_RLE8(src, srcLen, dst, pixels, len);
    case 24: {
      ulong bytes;
      if (!tqbase::CheckedMul(pixels, 3ul, &bytes))
        return Fail("ACompress::UnPack: %lu pixels are too many", pixels);
      return UnComp_RLE24(src, srcLen, dst, bytes, len);
    }
    default: return Fail("ACompress::UnPack: unsupported depth %d", depth);
  }
}

int ACompress::UnPack(const unsigned char* src, ulong srcLen, ulong lineWidth, int depth,
                      ulong start, ulong count, unsigned char* dst) {
  switch (depth) {
    case 1: return UnPackSpan1(src, srcLen, lineWidth, start, count, dst);
    case 2: return UnPackSpan2(src, srcLen, lineWidth, start, count, dst);
    case 4: return UnPackSpan4(src, srcLen, lineWidth, start, count, dst);
    case 8: return UnPackSpan8(src, srcLen, lineWidth, start, count, dst);
    case 24: return UnPackSpan24(src, srcLen, lineWidth, start, count, dst);
    default: return Fail("ACompress::UnPack: unsupported depth %d", depth);
  }
}

// ===========================================================================
// Locators

namespace {

// Records of a fixed size (8-bit: 2 bytes, 24-bit: 4) with the count first.
int LocateFixed(const char* fn, const unsigned char* src, ulong srcLen, ulong width, ulong pixel,
                ulong recSize, ulong& offset, ulong& runStart, ulong& runCount) {
  if (!src || !srcLen) return Fail("ACompress::%s: null or empty stream", fn);
  if (pixel >= width) return Fail("ACompress::%s: pixel %lu outside a line of %lu", fn, pixel, width);
  if (srcLen % recSize) return Fail("ACompress::%s: malformed stream length %lu", fn, srcLen);
  if (pixel == 0 || srcLen == recSize) {
    offset = 0;
    runStart = 0;
    runCount = src[0];
    return 1;
  }
  if (pixel < width / 2) {
    ulong sum = 0;
    for (ulong o = 0; o < srcLen; o += recSize) {
      const ulong c = src[o];
      if (sum + c > pixel) {
        offset = o;
        runStart = sum;
        runCount = c;
        return 1;
      }
      sum += c;
    }
  } else {
    ulong rem = width;
    for (ulong o = srcLen - recSize;; o -= recSize) {
      const ulong c = src[o];
      rem = rem > c ? rem - c : 0;
      if (rem <= pixel) {
        offset = o;
        runStart = rem;
        runCount = c;
        return 1;
      }
      if (o == 0) break;
    }
  }
  return Fail("ACompress::%s: pixel %lu lies beyond the stream", fn, pixel);
}

// The 1- and 2-bit formats: literal bytes and runs of digit bytes, then a
// tail byte naming the pixels of the last literal.
int LocateRuns(const char* fn, const RunFormat& f, const unsigned char* src, ulong srcLen,
               ulong width, ulong pixel, ulong& offset, ulong& runStart) {
  if (!src || !srcLen) return Fail("ACompress::%s: null or empty stream", fn);
  if (pixel >= width) return Fail("ACompress::%s: pixel %lu outside a line of %lu", fn, pixel, width);
  const ulong end = srcLen - 1;  // records end at the tail byte
  if (pixel == 0) {
    offset = 0;
    runStart = 0;
    return end ? 1 : Fail("ACompress::%s: stream holds no records", fn);
  }
  if (pixel < width / 2) {
    ulong sum = 0;
    for (ulong o = 0; o < end;) {
      ulong n, bytes;
      if (src[o] & 0x80) {
        n = f.litPixels;
        bytes = 1;
      } else {
        bytes = ReadRun(f, src, o, end, ~0ul, n);
      }
      if (n > pixel - sum) {
        offset = o;
        runStart = sum;
        return 1;
      }
      sum += n;
      o += bytes;
    }
  } else if (end) {
    ulong tail = src[end];
    if (tail > f.litPixels) tail = f.litPixels;
    ulong rem = width;
    ulong q = end - 1;  // last byte of the record being looked at
    for (bool last = true;; last = false) {
      ulong first = q, n;
      if (src[q] & 0x80) {
        n = (last && tail) ? tail : f.litPixels;
      } else {
        const unsigned key = src[q] >> f.keyShift;
        while (first > 0 && (unsigned)(src[first - 1] >> f.keyShift) == key) --first;
        ReadRun(f, src, first, q + 1, ~0ul, n);
      }
      rem = rem > n ? rem - n : 0;
      if (rem <= pixel) {
        offset = first;
        runStart = rem;
        return 1;
      }
      if (first == 0) break;
      q = first - 1;
    }
  }
  return Fail("ACompress::%s: pixel %lu lies beyond the stream", fn, pixel);
}

}  // namespace

int ACompress::GetLoc_RLE8(const unsigned char* src, ulong srcLen, ulong lineWidth, ulong pixel,
                           ulong& offset, ulong& runStart, ulong& runCount) {
  return LocateFixed("GetLoc_RLE8", src, srcLen, lineWidth, pixel, 2, offset, runStart, runCount);
}

int ACompress::GetLoc_RLE24(const unsigned char* src, ulong srcLen, ulong lineWidth, ulong pixel,
                            ulong& offset, ulong& runStart) {
  ulong count;
  return LocateFixed("GetLoc_RLE24", src, srcLen, lineWidth, pixel, 4, offset, runStart, count);
}

int ACompress::GetLoc_RLE1(const unsigned char* src, ulong srcLen, ulong lineWidth, ulong pixel,
                           ulong& offset, ulong& runStart) {
  return LocateRuns("GetLoc_RLE1", kRun1, src, srcLen, lineWidth, pixel, offset, runStart);
}

int ACompress::GetLoc_RLE2(const unsigned char* src, ulong srcLen, ulong lineWidth, ulong pixel,
                           ulong& offset, ulong& runStart) {
  return LocateRuns("GetLoc_RLE2", kRun2, src, srcLen, lineWidth, pixel, offset, runStart);
}

int ACompress::GetLoc_RLE4(const unsigned char* src, ulong srcLen, ulong lineWidth, ulong pixel,
                           ulong& offset, ulong& remain) {
  if (!src || !srcLen) return Fail("ACompress::GetLoc_RLE4: null or empty stream");
  if (pixel >= lineWidth)
    return Fail("ACompress::GetLoc_RLE4: pixel %lu outside a line of %lu", pixel, lineWidth);
  if (srcLen % 3 == 1) return Fail("ACompress::GetLoc_RLE4: invalid stream length %lu", srcLen);
  // Count bytes sit at 3k (run A) and 3k+2 (run B).
  if (pixel == 0 || srcLen == 2) {
    offset = 0;
    remain = src[0] > pixel ? src[0] - pixel : 0;
    return 1;
  }
  if (pixel < lineWidth / 2) {
    ulong sum = 0;
    for (ulong o = 0; o < srcLen; o += (o % 3 == 0) ? 2 : 1) {
      const ulong c = src[o];
      if (sum + c > pixel) {
        offset = o;
        remain = sum + c - pixel;
        return 1;
      }
      sum += c;
    }
  } else {
    ulong rem = lineWidth;
    for (ulong o = (srcLen % 3 == 2) ? srcLen - 2 : srcLen - 1;;) {
      const ulong c = src[o];
      const ulong runEnd = rem;
      rem = rem > c ? rem - c : 0;
      if (rem <= pixel) {
        offset = o;
        remain = runEnd - pixel;
        return 1;
      }
      if (o == 0) break;
      o -= (o % 3 == 2) ? 2 : 1;
    }
  }
  return Fail("ACompress::GetLoc_RLE4: pixel %lu lies beyond the stream", pixel);
}

// ===========================================================================
// Runs of the 1- and 2-bit formats

namespace {

ulong UnPackSeg(const RunFormat& f, const unsigned char* src, ulong pos, ulong span,
                unsigned char& value, ulong& length, int forward) {
  value = 0;
  length = 0;
  if (!src) return 0;
  if (src[pos] & 0x80) return 0;  // a literal byte
  const unsigned key = src[pos] >> f.keyShift;
  if (!forward) {
    for (ulong steps = 0; steps < span && pos > 0 && (unsigned)(src[pos - 1] >> f.keyShift) == key; ++steps)
      --pos;
  }
  value = (unsigned char)(key & (f.keyShift == 6 ? 1u : 3u));
  return ReadRun(f, src, pos, ~0ul, f.maxDigits, length);
}

}  // namespace

ulong ACompress::UnPackSeg1(const unsigned char* src, ulong pos, ulong span, unsigned char& value,
                            ulong& length, int forward) {
  return UnPackSeg(kRun1, src, pos, span, value, length, forward);
}

ulong ACompress::UnPackSeg2(const unsigned char* src, ulong pos, ulong span, unsigned char& value,
                            ulong& length, int forward) {
  return UnPackSeg(kRun2, src, pos, span, value, length, forward);
}

int ACompress::Pack_Value(unsigned char value, ulong length, int depth, unsigned char* dst,
                          ulong& written) {
  if (!dst) {
    ASSERT(dst);
    return Fail("ACompress::Pack_Value: null buffer");
  }
  unsigned bits, maxDigits, key;
  if (depth == 1) {
    bits = 6, maxDigits = 10, key = value ? 0x40u : 0u;
  } else if (depth == 2) {
    bits = 5, maxDigits = 11, key = (value & 3u) << 5;
  } else {
    return Fail("ACompress::Pack_Value: unsupported depth %d", depth);
  }
  unsigned digits = 0;
  for (ulong t = length; t; t >>= bits) ++digits;
  if (digits > maxDigits) return Fail("ACompress::Pack_Value: run of %lu is too long", length);
  const ulong mask = (1ul << bits) - 1;
  for (ulong t = length; t; t >>= bits) dst[written++] = (unsigned char)(key | (t & mask));
  return 1;
}

// ===========================================================================
// Windowed decoding

namespace {

int SpanChecks(const char* fn, const unsigned char* src, ulong srcLen, ulong width, ulong start,
               ulong count, const unsigned char* dst) {
  if (!src || !dst || !srcLen || !count)
    return Fail("ACompress::%s: null buffer or zero length", fn);
  if (start >= width || count > width - start)
    return Fail("ACompress::%s: span %lu+%lu outside a line of %lu", fn, start, count, width);
  return 1;
}

int UnPackSpanRuns(const char* fn, const RunFormat& f, const unsigned char* src, ulong srcLen,
                   ulong width, ulong start, ulong count, unsigned char* dst) {
  if (!SpanChecks(fn, src, srcLen, width, start, count, dst)) return 0;
  ulong off, recStart;
  if (!LocateRuns(fn, f, src, srcLen, width, start, off, recStart)) return 0;
  const ulong end = srcLen - 1;
  const ulong k = start - recStart;  // position inside the located record
  ulong done = 0, next;
  const unsigned b = src[off];
  if (b & 0x80) {
    // The rest of a literal byte: masks 0x40 >> j (1 bit) or 0x30 >> 2j
    // (2 bits).
    for (ulong j = k; j < f.litPixels && done < count; ++j)
      dst[done++] = f.keyShift == 6 ? (unsigned char)((b >> (6 - j)) & 1)
                                    : (unsigned char)((b >> (4 - 2 * j)) & 3);
    next = off + 1;
  } else {
    ulong len;
    next = off + ReadRun(f, src, off, end, ~0ul, len);
    const ulong avail = len > k ? len - k : 0;
    done = avail < count ? avail : count;
    std::memset(dst, (int)((b >> f.keyShift) & (f.keyShift == 6 ? 1u : 3u)), done);
  }
  if (done == count) return 1;
  // The rest of the span is an ordinary whole-line decode from `next`.
  return f.keyShift == 6 ? ACompress::UnPack1(src + next, srcLen - next, count - done, dst + done)
                         : ACompress::UnPack2(src + next, srcLen - next, count - done, dst + done);
}

}  // namespace

int ACompress::UnPackSpan1(const unsigned char* src, ulong srcLen, ulong lineWidth, ulong start,
                           ulong count, unsigned char* dst) {
  return UnPackSpanRuns("UnPackSpan1", kRun1, src, srcLen, lineWidth, start, count, dst);
}

int ACompress::UnPackSpan2(const unsigned char* src, ulong srcLen, ulong lineWidth, ulong start,
                           ulong count, unsigned char* dst) {
  return UnPackSpanRuns("UnPackSpan2", kRun2, src, srcLen, lineWidth, start, count, dst);
}

int ACompress::UnPackSpan4(const unsigned char* src, ulong srcLen, ulong lineWidth, ulong start,
                           ulong count, unsigned char* dst) {
  if (!SpanChecks("UnPackSpan4", src, srcLen, lineWidth, start, count, dst)) return 0;
  ulong off, remain;
  if (!GetLoc_RLE4(src, srcLen, lineWidth, start, off, remain)) return 0;
  ulong done = 0;
  for (bool first = true; off < srcLen && done < count; first = false) {
    const bool isA = off % 3 == 0;
    const unsigned char v = isA ? (unsigned char)(src[off + 1] >> 4) : (unsigned char)(src[off - 1] & 0x0F);
    ulong n = first ? remain : src[off];
    if (n > count - done) n = count - done;
    Fill(dst + done, v, n);
    done += n;
    off += isA ? 2 : 1;
  }
  if (done != count)
    return Fail("ACompress::UnPackSpan4: stream gives %lu of %lu pixels", done, count);
  return 1;
}

int ACompress::UnPackSpan8(const unsigned char* src, ulong srcLen, ulong lineWidth, ulong start,
                           ulong count, unsigned char* dst) {
  if (!SpanChecks("UnPackSpan8", src, srcLen, lineWidth, start, count, dst)) return 0;
  ulong off, runStart, runCount;
  if (!GetLoc_RLE8(src, srcLen, lineWidth, start, off, runStart, runCount)) return 0;
  ulong done = runStart + runCount > start ? runStart + runCount - start : 0;
  if (done >= count) {  // the located run covers the whole span
    Fill(dst, src[off + 1], count);
    return 1;
  }
  Fill(dst, src[off + 1], done);
  for (off += 2; off < srcLen; off += 2) {
#ifdef TQBASE_CODEC_SSE2
    if (srcLen - off >= 16 && count - done >= 8) {  // eight one-pixel records
      const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + off));
      if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(x, _mm_set1_epi16(0x00FF)), _mm_set1_epi16(1))) == 0xFFFF) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + done), _mm_packus_epi16(_mm_srli_epi16(x, 8), x));
        done += 8;
        off += 14;
        if (done == count) return 1;
        continue;
      }
    }
#endif
    const ulong c = src[off];
    if (c >= count - done) {  // the record that reaches the span's end
      Fill(dst + done, src[off + 1], count - done);
      return 1;
    }
    Fill(dst + done, src[off + 1], c);  // single stores for 1 and 2, a fill beyond
    done += c;
  }
  return Fail("ACompress::UnPackSpan8: stream gives %lu of %lu pixels", done, count);
}

int ACompress::UnPackSpan24(const unsigned char* src, ulong srcLen, ulong lineWidth, ulong start,
                            ulong count, unsigned char* dst) {
  if (!SpanChecks("UnPackSpan24", src, srcLen, lineWidth, start, count, dst)) return 0;
  ulong off, runStart;
  if (!GetLoc_RLE24(src, srcLen, lineWidth, start, off, runStart)) return 0;
  ulong done = runStart + src[off] > start ? runStart + src[off] - start : 0;
  if (done >= count) {
    Fill24(dst, src + off + 1, count);
    return 1;
  }
  Fill24(dst, src + off + 1, done);
  for (off += 4; off < srcLen; off += 4) {
    const ulong c = src[off];
    if (c >= count - done) {
      Fill24(dst + 3 * done, src + off + 1, count - done);
      return 1;
    }
    Fill24(dst + 3 * done, src + off + 1, c);
    done += c;
  }
  return Fail("ACompress::UnPackSpan24: stream gives %lu of %lu pixels", done, count);
}

// ===========================================================================
// Blank lines and colour counts

ulong ACompress::InitSpaceBits(unsigned char* dst, int width, unsigned short depth,
                               const unsigned char* colour, int compressed) {
  if (!dst || !colour || width <= 0) {
    ASSERT(dst && colour && width > 0);
    Fail("ACompress::InitSpaceBits: null buffer or width below 1");
    return 0;
  }
  const ulong wd = (ulong)width;
  if (depth != 1 && depth != 2 && depth != 4 && depth != 8 && depth != 24) {
    Fail("ACompress::InitSpaceBits: unsupported depth %u", (unsigned)depth);
    return 0;
  }
  if (!compressed) {
    if (depth != 24) {
      std::memset(dst, colour[0], wd);
      return wd;
    }
    Fill24(dst, colour, wd);
    return 3 * wd;
  }
  const ulong runs = (wd + 254) / 255;
  const unsigned char last = (unsigned char)(wd % 255);
  switch (depth) {
    case 1:
    case 2: {
      ulong w = 0;
      Pack_Value(colour[0], wd, depth, dst, w);
      dst[w++] = 0;
      return w;
    }
    case 4: {
      const unsigned char cc = (unsigned char)((colour[0] & 0x0F) | (colour[0] << 4));
      ulong w = 0;
      for (ulong i = 0; i + 1 < runs; i += 2, w += 3) {
        dst[w] = 255;
        dst[w + 1] = cc;
        dst[w + 2] = 255;
      }
      if (runs & 1) {
        dst[w] = last;
        dst[w + 1] = cc;
        w += 2;
      } else {
        dst[w - 1] = last;  // also 0 when the width is a multiple of 255
      }
      return w;
    }
    case 8: {
      for (ulong i = 0; i < runs; ++i) {
        dst[2 * i] = 255;
        dst[2 * i + 1] = colour[0];
      }
      if (last) dst[2 * runs - 2] = last;
      return 2 * runs;
    }
    default: {
      for (ulong i = 0; i < runs; ++i) {
        dst[4 * i] = 255;
        std::memcpy(dst + 4 * i + 1, colour, 3);
      }
      if (last) dst[4 * runs - 4] = last;
      return 4 * runs;
    }
  }
}

ulong ACompress::CalcMono(unsigned char depth, int compression, int width, int height,
                          const unsigned char* data, ulong dataLen, const unsigned char* colour) {
  if (!data || !colour || !dataLen || width <= 0 || height <= 0) return 0;
  const ulong total = (ulong)width * (ulong)height;
  const bool rle = compression == 12;
  ulong n = 0;
  switch (depth) {
    case 8:
      if (rle) {
        for (ulong r = 0; r + 1 < dataLen; r += 2)
          if (data[r + 1] == colour[0]) n += data[r];
      } else {
        const ulong bytes = std::min(total, dataLen);
        for (ulong i = 0; i < bytes; ++i) n += data[i] == colour[0];
      }
      return n;
    case 24:
      if (rle) {
        for (ulong r = 0; r + 3 < dataLen; r += 4)
          if (std::memcmp(data + r + 1, colour, 3) == 0) n += data[r];
      } else {
        const ulong pixels = std::min(total, dataLen / 3);
        for (ulong i = 0; i < pixels; ++i) n += std::memcmp(data + 3 * i, colour, 3) == 0;
      }
      return n;
    case 1: {
      // Bit counts come from popcount rather than tables rebuilt per colour,
      // so concurrent callers with different colours do not disturb each
      // other.
      const bool one = colour[0] != 0;
      auto bitsOf = [one](unsigned bits, unsigned nbits) {
        const unsigned ones = Popcount(bits);
        return one ? ones : nbits - ones;
      };
      if (!rle) {
        const ulong stride = ((ulong)width + 7) / 8, whole = (ulong)width / 8;
        const unsigned part = (unsigned)(width % 8);
        for (ulong y = 0; y < (ulong)height; ++y) {
          const ulong rowAt = y * stride;
          if (rowAt >= dataLen) break;
          const unsigned char* row = data + rowAt;
          const ulong avail = dataLen - rowAt;
          const ulong full = std::min(whole, avail);
          for (ulong i = 0; i < full; ++i) n += bitsOf(row[i], 8);
          if (part && whole < avail) n += bitsOf(row[whole] >> (8 - part), part);
        }
        return n;
      }
      const ulong end = dataLen - 1;  // up to the tail byte
      ulong pos = 0;
      for (ulong r = 0; r < end && pos < total;) {
        const unsigned b = data[r];
        if (b & 0x80) {
          if (total - pos <= 7) {  // the record that reaches the total
            const unsigned m = (unsigned)(total - pos);
            return n + bitsOf((b >> (7 - m)) & ((1u << m) - 1), m);
          }
          n += bitsOf(b & 0x7F, 7);
          pos += 7;
          ++r;
        } else {
          ulong len;
          r += ReadRun(kRun1, data, r, end, ~0ul, len);
          const bool v = (b & 0x40) != 0;
          if (len >= total - pos) return n + (v == one ? total - pos : 0);
          if (v == one) n += len;
          pos += len;
        }
      }
      return n;
    }
    default: return 0;
  }
}
