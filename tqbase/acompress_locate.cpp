// acompress_locate.cpp - finding the record that holds a pixel in a coded
// line (the locators), and decoding a window of pixels from the middle of
// a line without decoding what comes before it.
#include "acompress_simd.h"

using namespace tqbase::codec;

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
