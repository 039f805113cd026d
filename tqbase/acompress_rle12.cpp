// acompress_rle12.cpp - the 1- and 2-bit line formats (Pack1, UnPack1,
// Pack2, UnPack2), their run records (UnPackSeg1/2) and the run writer
// Pack_Value. Runs are measured with SSE2 compares where available (bench:
// BM_Pack1 against BM_Pack1Plain).
#include "acompress_simd.h"

using namespace tqbase::codec;

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
  if (depth != 1 && depth != 2) return Fail("ACompress::Pack_Value: unsupported depth %d", depth);
  const RunFormat& f = depth == 1 ? kRun1 : kRun2;
  // The run's key: its value in the bits above the digits (one bit at
  // depth 1, two at depth 2), under a clear top bit.
  const unsigned key = (depth == 1 ? (value ? 1u : 0u) : (value & 3u)) << f.keyShift;
  unsigned digits = 0;
  for (ulong t = length; t; t >>= f.digitBits) ++digits;
  if (digits > f.maxDigits) return Fail("ACompress::Pack_Value: run of %lu is too long", length);
  for (ulong t = length; t; t >>= f.digitBits) dst[written++] = (unsigned char)(key | (t & f.digitMask));
  return 1;
}
