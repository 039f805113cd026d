// acompress_rect.cpp - ACompress rectangle decoders: a rectangle of an
// image held as one run-length stream per line (depth 1, 8 or 24), decoded
// line by line with the windowed decoders, and the flag-bitmap forms that
// write only the pixels whose flag bit is set.
//
// Line streams are found through the caller's offset/length tables, or,
// without tables, by walking each line's records from the start of the data
// (a line's stream ends where its counts reach the image width; a 1-bit
// line then has its tail byte).
#include "acompress_internal.h"

#include <algorithm>

using namespace tqbase::codec;

namespace {

typedef unsigned long ulong;

struct RectJob {
  ulong width, height;  // image
  ulong x0, y0;         // rectangle origin
  ulong cx, cy;         // rectangle size
  bool tables;
};

int CheckRect(const char* fn, const SIZE* img, const unsigned char* data, ulong dataLen,
              const unsigned char* dst, int dstStride, const POINT* origin, const SIZE* size,
              const ulong* offs, const ulong* lens, ulong bytesPerPixel, RectJob& job) {
  if (!img || !data || !dataLen || !dst || !size)
    return Fail("ACompress::%s: null argument or empty data", fn);
  if (dstStride <= 0) return Fail("ACompress::%s: stride %d is not positive", fn, dstStride);
  if (!offs != !lens) return Fail("ACompress::%s: line offsets and lengths go together", fn);
  if (img->cx <= 0 || img->cy <= 0) return Fail("ACompress::%s: empty image", fn);
  if (size->cx < 1 || size->cy < 1) return Fail("ACompress::%s: empty rectangle", fn);
  const long long w = img->cx, h = img->cy;
  if (origin) {
    if (origin->x < 0 || origin->y < 0 || origin->x > w || origin->y > h)
      return Fail("ACompress::%s: origin (%d,%d) outside the image", fn, (int)origin->x, (int)origin->y);
    if (!offs && ((long long)origin->x + size->cx > w || (long long)origin->y + size->cy > h))
      return Fail("ACompress::%s: rectangle leaves the image", fn);
  } else if (size->cx > w || size->cy > h) {
    return Fail("ACompress::%s: rectangle larger than the image", fn);
  }
  if ((unsigned long long)size->cx * bytesPerPixel > (unsigned long long)dstStride)
    return Fail("ACompress::%s: stride %d is shorter than a row", fn, dstStride);
  job.width = (ulong)w;
  job.height = (ulong)h;
  job.x0 = origin ? (ulong)origin->x : 0;
  job.y0 = origin ? (ulong)origin->y : 0;
  job.cx = (ulong)size->cx;
  job.cy = (ulong)size->cy;
  job.tables = offs != nullptr;
  return 1;
}

// Byte length of the line stream at data (at most avail bytes) for a line
// of `width` pixels; 0 when the stream ends first.
ulong LineLength(int depth, const unsigned char* data, ulong avail, ulong width) {
  ulong pixels = 0, r = 0;
  if (depth == 8 || depth == 24) {
    const ulong rec = depth == 8 ? 2 : 4;
    while (pixels < width) {
      if (avail - r < rec) return 0;
      pixels += data[r];
      r += rec;
    }
    return r;
  }
  while (pixels < width) {
    if (r >= avail) return 0;
    if (data[r] & 0x80) {
      pixels += 7;
      ++r;
    } else {
      // The run's digits, until they reach the pixels still missing: the
      // most significant digit of a run is never 0, so the run that ends
      // the line ends there, and a 0 byte after it is the tail.
      const unsigned key = data[r] >> kRun1.keyShift;
      const ulong need = width - pixels;
      ulong len = 0;
      unsigned shift = 0;
      while (r < avail && len < need && (unsigned)(data[r] >> kRun1.keyShift) == key) {
        const ulong d = data[r] & kRun1.digitMask;
        if (shift < 8 * sizeof(ulong) - 6) len += d << shift;
        else if (d) len = need;
        shift += 6;
        ++r;
      }
      pixels = len > need ? width : pixels + len;
    }
  }
  return r < avail ? r + 1 : 0;  // and the tail byte
}

// Runs the rectangle: for every row inside the image, finds its stream and
// calls line(stream, length, rowIndex, pixelCount).
template <class LineFn>
int ForEachRow(const char* fn, int depth, const RectJob& job, const unsigned char* data,
               ulong dataLen, const ulong* offs, const ulong* lens, LineFn&& line) {
  ulong pos = 0;  // sequential walk position when there are no tables
  if (!job.tables) {
    for (ulong y = 0; y < job.y0; ++y) {
      const ulong n = LineLength(depth, data + pos, dataLen - pos, job.width);
      if (!n) return Fail("ACompress::%s: line %lu is cut short", fn, y);
      pos += n;
    }
  }
  const ulong cols = job.x0 < job.width ? std::min(job.cx, job.width - job.x0) : 0;
  for (ulong r = 0; r < job.cy; ++r) {
    const ulong y = job.y0 + r;
    if (y >= job.height) break;  // only with tables: rows below the image
    const unsigned char* stream;
    ulong len;
    if (job.tables) {
      if (!tqbase::RangeInside(offs[y], lens[y], dataLen))
        return Fail("ACompress::%s: line %lu lies outside the data", fn, y);
      stream = data + offs[y];
      len = lens[y];
    } else {
      len = LineLength(depth, data + pos, dataLen - pos, job.width);
      if (!len) return Fail("ACompress::%s: line %lu is cut short", fn, y);
      stream = data + pos;
      pos += len;
    }
    if (cols && !line(stream, len, r, cols)) return 0;
  }
  return 1;
}

int DecodeRect(const char* fn, int depth, const SIZE* img, const unsigned char* data,
               ulong dataLen, unsigned char* dst, int dstStride, const POINT* origin,
               const SIZE* size, const ulong* offs, const ulong* lens) {
  const ulong bpp = depth == 24 ? 3 : 1;
  RectJob job{};
  if (!CheckRect(fn, img, data, dataLen, dst, dstStride, origin, size, offs, lens, bpp, job))
    return 0;
  return ForEachRow(fn, depth, job, data, dataLen, offs, lens,
                    [&](const unsigned char* s, ulong len, ulong r, ulong cols) {
                      return ACompress::UnPack(s, len, job.width, depth, job.x0, cols,
                                               dst + r * (ulong)dstStride);
                    });
}

// Walks the pixels start..start+count-1 of one line as runs, calling
// put(index in span, pixel count, pointer to the value bytes).
template <class Put>
bool VisitSpan(int depth, const unsigned char* src, ulong srcLen, ulong width, ulong start,
               ulong count, Put&& put) {
  ulong done = 0;
  if (depth == 8 || depth == 24) {
    const ulong rec = depth == 8 ? 2 : 4;
    ulong off, runStart, runCount;
    const int found = depth == 8
                          ? ACompress::GetLoc_RLE8(src, srcLen, width, start, off, runStart, runCount)
                          : ACompress::GetLoc_RLE24(src, srcLen, width, start, off, runStart);
    if (!found) return false;
    ulong n = runStart + src[off] > start ? runStart + src[off] - start : 0;
    for (;;) {
      if (n > count - done) n = count - done;
      put(done, n, src + off + 1);
      done += n;
      off += rec;
      if (done == count || off >= srcLen) break;
      n = src[off];
    }
    return done == count;
  }
  ulong off, recStart;
  if (!ACompress::GetLoc_RLE1(src, srcLen, width, start, off, recStart)) return false;
  const ulong end = srcLen - 1;
  ulong k = start - recStart;
  static const unsigned char kBits[2] = {0, 1};
  while (done < count && off < end) {
    const unsigned b = src[off];
    if (b & 0x80) {
      for (ulong j = k; j < 7 && done < count; ++j) put(done++, 1, &kBits[(b >> (6 - j)) & 1]);
      ++off;
    } else {
      ulong len;
      off += ReadRun(kRun1, src, off, end, ~0ul, len);
      ulong n = len > k ? len - k : 0;
      if (n > count - done) n = count - done;
      put(done, n, &kBits[(b >> 6) & 1]);
      done += n;
    }
    k = 0;
  }
  return done == count;
}

int DecodeFlagRect(const char* fn, int depth, const SIZE* img, const unsigned char* data,
                   ulong dataLen, unsigned char* dst, int dstStride, const POINT* origin,
                   const SIZE* size, const ulong* offs, const ulong* lens,
                   const unsigned char* flags, int flagStride) {
  RectJob job{};
  if (!CheckRect(fn, img, data, dataLen, dst, dstStride, origin, size, offs, lens, 1, job))
    return 0;
  if (!flags) return Fail("ACompress::%s: null flag bitmap", fn);
  if (flagStride <= 0 || (ulong)flagStride < (job.cx + 7) / 8)
    return Fail("ACompress::%s: flag stride %d is shorter than a row", fn, flagStride);
  return ForEachRow(
      fn, depth, job, data, dataLen, offs, lens,
      [&](const unsigned char* s, ulong len, ulong r, ulong cols) {
        const unsigned char* f = flags + r * (ulong)flagStride;
        unsigned char* d = dst + r * (ulong)dstStride;
        const bool ok = VisitSpan(depth, s, len, job.width, job.x0, cols,
                                  [&](ulong i, ulong n, const unsigned char* v) {
                                    for (ulong e = i + n; i < e; ++i)
                                      if (f[i >> 3] & (0x80u >> (i & 7))) d[i] = *v;
                                  });
        return ok ? 1 : Fail("ACompress::%s: line %lu does not cover the rectangle", fn, job.y0 + r);
      });
}

}  // namespace

int ACompress::UnPack(const SIZE* imageSize, int depth, const unsigned char* data,
                      unsigned long dataLen, unsigned char* dst, int dstStride, const POINT* origin,
                      const SIZE* size, const unsigned long* lineOffsets,
                      const unsigned long* lineLengths) {
  switch (depth) {
    case 1: return UnPack1(imageSize, data, dataLen, dst, dstStride, origin, size, lineOffsets, lineLengths);
    case 8: return UnPack8(imageSize, data, dataLen, dst, dstStride, origin, size, lineOffsets, lineLengths);
    case 24: return UnPack24(imageSize, data, dataLen, dst, dstStride, origin, size, lineOffsets, lineLengths);
    default: return Fail("ACompress::UnPack: unsupported depth %d for a rectangle", depth);
  }
}

int ACompress::UnPack1(const SIZE* imageSize, const unsigned char* data, unsigned long dataLen,
                       unsigned char* dst, int dstStride, const POINT* origin, const SIZE* size,
                       const unsigned long* lineOffsets, const unsigned long* lineLengths) {
  return DecodeRect("UnPack1", 1, imageSize, data, dataLen, dst, dstStride, origin, size,
                    lineOffsets, lineLengths);
}

int ACompress::UnPack8(const SIZE* imageSize, const unsigned char* data, unsigned long dataLen,
                       unsigned char* dst, int dstStride, const POINT* origin, const SIZE* size,
                       const unsigned long* lineOffsets, const unsigned long* lineLengths) {
  return DecodeRect("UnPack8", 8, imageSize, data, dataLen, dst, dstStride, origin, size,
                    lineOffsets, lineLengths);
}

int ACompress::UnPack24(const SIZE* imageSize, const unsigned char* data, unsigned long dataLen,
                        unsigned char* dst, int dstStride, const POINT* origin, const SIZE* size,
                        const unsigned long* lineOffsets, const unsigned long* lineLengths) {
  return DecodeRect("UnPack24", 24, imageSize, data, dataLen, dst, dstStride, origin, size,
                    lineOffsets, lineLengths);
}

int ACompress::UnPackFlagBits(const SIZE* imageSize, int depth, const unsigned char* data,
                              unsigned long dataLen, unsigned char* dst, int dstStride,
                              const POINT* origin, const SIZE* size,
                              const unsigned long* lineOffsets, const unsigned long* lineLengths,
                              const unsigned char* flags, int flagStride) {
  switch (depth) {
    case 1:
      return UnPackFlagBits1(imageSize, data, dataLen, dst, dstStride, origin, size, lineOffsets,
                             lineLengths, flags, flagStride);
    case 8:
      return UnPackFlagBits8(imageSize, data, dataLen, dst, dstStride, origin, size, lineOffsets,
                             lineLengths, flags, flagStride);
    default: return Fail("ACompress::UnPackFlagBits: unsupported depth %d", depth);
  }
}

int ACompress::UnPackFlagBits1(const SIZE* imageSize, const unsigned char* data,
                               unsigned long dataLen, unsigned char* dst, int dstStride,
                               const POINT* origin, const SIZE* size,
                               const unsigned long* lineOffsets, const unsigned long* lineLengths,
                               const unsigned char* flags, int flagStride) {
  return DecodeFlagRect("UnPackFlagBits1", 1, imageSize, data, dataLen, dst, dstStride, origin,
                        size, lineOffsets, lineLengths, flags, flagStride);
}

int ACompress::UnPackFlagBits8(const SIZE* imageSize, const unsigned char* data,
                               unsigned long dataLen, unsigned char* dst, int dstStride,
                               const POINT* origin, const SIZE* size,
                               const unsigned long* lineOffsets, const unsigned long* lineLengths,
                               const unsigned char* flags, int flagStride) {
  return DecodeFlagRect("UnPackFlagBits8", 8, imageSize, data, dataLen, dst, dstStride, origin,
                        size, lineOffsets, lineLengths, flags, flagStride);
}
