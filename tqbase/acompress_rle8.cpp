// acompress_rle8.cpp - the 4-, 8- and 24-bit line formats. The decoders
// store short runs as whole vectors where later records are known to
// overwrite the excess: 32-byte AVX2 stores when the CPU has them, else
// 16-byte SSE2 stores for the 8-bit format (bench: BM_UnComp_RLE8 against
// BM_UnComp_RLE8Plain and BM_memset).
#include "acompress_simd.h"

using namespace tqbase::codec;

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
  const __m256i countMask = _mm256_set1_epi16(0x00FF), one = _mm256_set1_epi8(1);
  while (r < safe) {
    // Records of one pixel each (noise), thirty-two at a time: their values
    // in one 32-byte store, of which the leading one-pixel records are
    // kept. The rest of the store is excess: the records from r on write
    // at least 32 more bytes from w, over it.
    if (src[r] == 1 && safe - r >= 64 && dstCap - w >= 32) {
      const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + r));
      const __m256i y = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + r + 32));
      // Packing works per 128-bit lane; the permute puts the records back
      // in order (x 0-7, x 8-15, y 0-7, y 8-15).
      const __m256i counts = _mm256_permute4x64_epi64(
          _mm256_packus_epi16(_mm256_and_si256(x, countMask), _mm256_and_si256(y, countMask)), 0xD8);
      const __m256i values = _mm256_permute4x64_epi64(
          _mm256_packus_epi16(_mm256_srli_epi16(x, 8), _mm256_srli_epi16(y, 8)), 0xD8);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + w), values);
      const unsigned ones = (unsigned)_mm256_movemask_epi8(_mm256_cmpeq_epi8(counts, one));
      if (TQ_LIKELY(ones == 0xFFFFFFFFu)) {  // a branch, so that r does not wait for the mask
        w += 32;
        r += 64;
        continue;
      }
      const unsigned lead = Ctz(~ones);
      w += lead;
      r += 2 * (ulong)lead;
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
