// acompress_simd.h - the run-length codecs' shared primitives, private to
// their sources: run measuring (SSE2 compares where available), literal
// gathering, vector fills, and the decode width the 4-, 8- and 24-bit
// decoders use (AVX2, SSE2 or bytes; chosen once at run time, lowered by
// the test suites through SetRleDecodeWidth to reach every path).
#ifndef TQBASE_ACOMPRESS_SIMD_H
#define TQBASE_ACOMPRESS_SIMD_H

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

namespace tqbase {
namespace codec {

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
inline size_t RunOfByteLong(const unsigned char* p, size_t n, unsigned char v) {
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
// Long runs are crossed 64 bytes a step with one test for the four
// vectors, asking for the bytes 4 KiB ahead: a line of one-byte pixels
// comes from memory once, and the hardware's prefetcher stops at every
// page (bench: BM_Bits1Encode_Ours, which reads 24 MB of lines).
inline size_t RunOfBit(const unsigned char* p, size_t n, bool nonZero) {
  size_t i = 0;
#ifdef TQBASE_CODEC_SSE2
  const __m128i zero = _mm_setzero_si128();
  const __m128i* v = reinterpret_cast<const __m128i*>(p);
  if (nonZero) {
    for (; i + 64 <= n; i += 64, v += 4) {
      _mm_prefetch(reinterpret_cast<const char*>(p + i + 4096), _MM_HINT_T0);
      const __m128i lo = _mm_min_epu8(_mm_loadu_si128(v), _mm_loadu_si128(v + 1));
      const __m128i hi = _mm_min_epu8(_mm_loadu_si128(v + 2), _mm_loadu_si128(v + 3));
      if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(lo, hi), zero))) break;
    }
  } else {
    for (; i + 64 <= n; i += 64, v += 4) {
      _mm_prefetch(reinterpret_cast<const char*>(p + i + 4096), _MM_HINT_T0);
      const __m128i lo = _mm_or_si128(_mm_loadu_si128(v), _mm_loadu_si128(v + 1));
      const __m128i hi = _mm_or_si128(_mm_loadu_si128(v + 2), _mm_loadu_si128(v + 3));
      if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_or_si128(lo, hi), zero)) != 0xFFFF) break;
    }
  }
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
inline size_t RunOfPixel24Long(const unsigned char* p, size_t pixels) {
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
inline void Fill24(unsigned char* d, const unsigned char* px, size_t count) {
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
inline int HostVectorWidth() {
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
inline int& DecodeWidth() {
  static int width = HostVectorWidth();
  return width;
}

}  // namespace codec
}  // namespace tqbase

#endif  // TQBASE_ACOMPRESS_SIMD_H
