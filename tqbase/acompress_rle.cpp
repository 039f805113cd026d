// acompress_rle.cpp - ACompress run-length coding: the general byte format
// (Comp_RLE, UnComp_RLE), the per-depth dispatchers (Pack, UnPack), and
// the decode-width switch of the test suites. The line formats live in
// acompress_rle12.cpp (1 and 2 bits) and acompress_rle8.cpp (4, 8, 24
// bits), locators and windowed decoding in acompress_locate.cpp, blank
// lines and colour counts in acompress_blank.cpp, the rectangle decoders
// in acompress_rect.cpp.
//
// Every reader is bounded by the stream length it is given and every
// writer by its capacity; a record that would cross either fails the call.
// The general encoder copies stretches of literal bytes in bulk (bench:
// BM_Comp_RLE against BM_Comp_RLEPlain).
#include "acompress_simd.h"

using namespace tqbase::codec;

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
