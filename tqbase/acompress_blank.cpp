// acompress_blank.cpp - blank coded lines (InitSpaceBits) and counting the
// pixels of each value in coded lines without decoding them (CalcMono).
#include "acompress_simd.h"

using namespace tqbase::codec;

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
