// test_acompress_rle.cpp - ACompress run-length codecs: the stated small
// streams, round trips on random lines of every depth, every encoder's
// capacity rule at its exact boundary, the fast paths against the plain
// ones, windowed decodes against slices of whole-line decodes, locators
// against a linear scan, short and malformed streams, blank lines, colour
// counts and the rectangle decoders.
#include "codec_test_util.h"
#include "test_support.h"
#include "acompress_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>

using tqtest::AsCode;
using tqtest::Bytes;

namespace {

typedef unsigned long ulong;

int BytesPerPixel(int depth) { return depth == 24 ? 3 : 1; }

unsigned MaxValue(int depth) { return depth == 1 ? 1 : depth == 2 ? 3 : depth == 4 ? 15 : 255; }

// How a random failure prints itself: the depth and the input as code.
std::string Where(int depth, const Bytes& v, const char* name = "line") {
  return "depth " + std::to_string(depth) + "\n" + AsCode(name, v);
}

// A line for a depth: runs of pixels (3 bytes each at 24).
Bytes LineFor(std::mt19937& rng, int depth, size_t pixels, unsigned meanRun) {
  return depth == 24 ? tqtest::MakeLine24(rng, pixels, meanRun)
                     : tqtest::MakeLine(rng, pixels, MaxValue(depth), meanRun);
}

// Encodes with a generous buffer; the stream is returned trimmed.
Bytes Encode(int depth, const Bytes& line) {
  Bytes out(line.size() * 2 + 64);
  ulong len = 0;
  EXPECT_EQ(ACompress::Pack(line.data(), line.size(), depth, out.data(), out.size(), len), 1) << Where(depth, line);
  out.resize(len);
  return out;
}

Bytes Decode(int depth, const Bytes& stream, size_t pixels) {
  Bytes out(pixels * BytesPerPixel(depth));
  EXPECT_EQ(ACompress::UnPack(stream.data(), stream.size(), pixels, depth, out.data()), 1);
  return out;
}

// The records of a stream, as (offset, first pixel, pixel count).
struct Rec {
  ulong offset, start, count;
};

std::vector<Rec> Records(int depth, const Bytes& s) {
  std::vector<Rec> r;
  ulong px = 0;
  if (depth == 8 || depth == 24) {
    const ulong size = depth == 8 ? 2 : 4;
    for (ulong o = 0; o + size <= s.size(); o += size) {
      r.push_back({o, px, s[o]});
      px += s[o];
    }
  } else if (depth == 4) {
    for (ulong o = 0; o < s.size(); o += (o % 3 == 0) ? 2 : 1) {
      r.push_back({o, px, s[o]});
      px += s[o];
    }
  } else {
    const ulong lit = depth == 1 ? 7 : 3, shift = depth == 1 ? 6 : 5, bits = depth == 1 ? 6 : 5;
    const ulong end = s.size() - 1;
    for (ulong o = 0; o < end;) {
      if (s[o] & 0x80) {
        const bool last = o + 1 == end && s[end];
        r.push_back({o, px, last ? s[end] : lit});
        px += r.back().count;
        ++o;
        continue;
      }
      ulong len = 0, n = 0;
      while (o + n < end && (s[o + n] >> shift) == (s[o] >> shift)) {
        len += (ulong)(s[o + n] & ((1u << bits) - 1)) << (bits * n);
        ++n;
      }
      r.push_back({o, px, len});
      px += len;
      o += n;
    }
  }
  return r;
}

}  // namespace

// ---------------------------------------------------------------------------
// The stated streams

TEST(ACompressRleStreams, SmallStreamsOfEveryFormat) {
  typedef int (*Encoder)(const unsigned char*, ulong, unsigned char*, ulong, ulong&);
  struct Case {
    Encoder enc;
    Bytes src, stream;  // an empty stream: the encoder refuses
  };
  const Case cases[] = {
      {ACompress::Comp_RLE, {'A', 'B'}, {0x00, 0x01, 0x41, 0x01, 0x42}},
      {ACompress::Comp_RLE, Bytes(256, 0x7E), {0xFF, 0x7E, 0x01, 0x7E}},
      {ACompress::Comp_RLE, {'a', 'b', 'c', 'c'}, {0x00, 0x02, 'a', 'b', 0x02, 'c'}},
      {ACompress::Pack1, Bytes(8, 0), {0x08, 0x00}},
      {ACompress::Pack1, {1, 0, 1, 0, 1, 0, 1, 0, 1, 0}, {0x80 | 0x55, 0x80 | 0x20, 0x03}},
      {ACompress::Pack1, Bytes(100, 1), {0x40 | 36, 0x40 | 1, 0x00}},  // digits 36 and 1 (36 + 64)
      {ACompress::Pack1, {1, 1}, {0x80 | 0x60, 0x02}},
      {ACompress::Pack2, {3, 3, 3, 3, 3, 1, 2}, {0x65, 0x80 | 0x18, 0x02}},
      {ACompress::Comp_RLE4, {1, 1, 2, 3, 3, 3}, {2, 0x12, 1, 3, 0x30}},
      {ACompress::Comp_RLE8, {5}, {}},
      {ACompress::Comp_RLE8, Bytes(300, 9), {0xFF, 9, 0x2D, 9}},
      {ACompress::Comp_RLE24, {1, 2, 3, 1, 2, 3, 1, 2, 4}, {2, 1, 2, 3, 1, 1, 2, 4}},
      {ACompress::Comp_RLE24, {1, 2, 3, 1, 2, 3, 1, 2}, {}},
  };
  for (const Case& c : cases) {
    unsigned char out[32];
    ulong len = 0;
    const int ok = c.enc(c.src.data(), c.src.size(), out, sizeof out, len);
    ASSERT_EQ(ok, c.stream.empty() ? 0 : 1) << AsCode("src", c.src);
    if (ok) {
      EXPECT_EQ(Bytes(out, out + len), c.stream) << AsCode("src", c.src);
    }
  }
  ulong len = 0;
  unsigned char out[16];
  EXPECT_EQ(ACompress::Pack(cases[11].src.data(), 9, 16, out, sizeof out, len), 0);
  // 255 single bytes fill one literal; the 256th opens a second one, and
  // the last byte is a repeat record of 1.
  Bytes ramp(257), big(400);
  for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = (unsigned char)(i * 7);
  ASSERT_EQ(ACompress::Comp_RLE(ramp.data(), ramp.size(), big.data(), big.size(), len), 1);
  ASSERT_EQ(len, 2u + 255 + 2 + 1 + 2);
  EXPECT_EQ(Bytes({big[0], big[1], big[257], big[258], big[260]}), (Bytes{0, 255, 0, 1, 1}));
}

// ---------------------------------------------------------------------------
// Round trips and fast paths

// Every depth round-trips on random lines, and each encoder fails one byte
// below the room it needs (the stream plus 0 bytes at 1 bit, 2 at 2 bits,
// else 1). On the way the fast encoders and Pack1's decoder agree with
// their plain forms, and the 24-bit encoder (runs measured by vector
// compares) with records built pixel by pixel, on lines whose neighbouring
// pixels often differ in one byte only.
TEST(ACompressRleRoundTrip, EveryDepthAgainstPlainForms) {
  std::mt19937 rng(21);
  const unsigned means[] = {1, 2, 4, 17, 40, 400};
  for (int depth : {1, 2, 4, 8, 24}) {
    for (int iter = 0; iter < 1500; ++iter) {
      const size_t pixels = 2 + rng() % (iter % 10 == 0 ? 5000 : 200);
      Bytes line = depth == 1 && iter % 2 ? tqtest::MakeLine(rng, pixels, 255, means[iter % 6])  // non-zero is 1
                                          : LineFor(rng, depth, pixels, means[iter % 6]);
      for (size_t q = 1; depth == 24 && q < pixels; ++q)  // one byte off its neighbour
        if (rng() % 9 == 0) line[3 * q + rng() % 3] ^= (unsigned char)(1 + rng() % 255);
      const Bytes stream = Encode(depth, line);
      Bytes want = line, plain(line.size() * 2 + 64), model;
      for (size_t i = 0; depth == 1 && i < want.size(); ++i) want[i] = want[i] != 0;
      const std::string where = Where(depth, line);
      ASSERT_EQ(Decode(depth, stream, pixels), want) << where;
      ulong lp = 0;
      Bytes room(stream.size() + (depth == 1 ? 0 : depth == 2 ? 2 : 1));
      ASSERT_EQ(ACompress::Pack(line.data(), line.size(), depth, room.data(), room.size(), lp), 1) << where;
      ASSERT_EQ(ACompress::Pack(line.data(), line.size(), depth, room.data(), room.size() - 1, lp), 0) << where;
      if (depth == 1) {
        ASSERT_EQ(tqbase::codec::Pack1Plain(line.data(), pixels, plain.data(), plain.size(), lp), 1);
        Bytes back(pixels, 0xEE);
        ASSERT_EQ(tqbase::codec::UnPack1Plain(stream.data(), stream.size(), pixels, back.data()), 1);
        ASSERT_EQ(back, want) << where;
      } else if (depth == 8) {
        ASSERT_EQ(tqbase::codec::Comp_RLE8Plain(line.data(), pixels, plain.data(), plain.size(), lp), 1);
      }
      for (size_t q = 0; depth == 24 && q < pixels;) {
        size_t len = 1;
        while (q + len < pixels && len < 255 && std::equal(&line[3 * q], &line[3 * q] + 3, &line[3 * (q + len)]))
          ++len;
        model.push_back((unsigned char)len);
        model.insert(model.end(), &line[3 * q], &line[3 * q] + 3);
        q += len;
      }
      if (depth == 24) plain = model, lp = model.size();
      if (depth != 2 && depth != 4) {
        ASSERT_EQ(Bytes(plain.begin(), plain.begin() + lp), stream) << where;
      }
    }
  }
}

// The decoders' vector paths against a plain reference: the 8-bit decoder
// at each vector width (32, 16, byte-wise; capped at what the CPU has)
// against its plain form, the 4- and 24-bit ones against their byte-wise
// path (the same entry point with the vector width capped at 0). Whole
// lines, from noise to runs longer than a record, go into exact-size
// buffers (the sanitizer sees an overrun) and larger ones (whose excess
// must stay untouched); then random byte streams at random capacities.
// Decoding allocates nothing.
TEST(ACompressRleRoundTrip, DecodersMatchTheirPlainReferences) {
  std::mt19937 rng(35);
  const int saved = tqbase::codec::SetRleDecodeWidth(32);
  // The fast decoder at `width`, or with width < 0 the reference.
  auto dec = [](int depth, int width, const Bytes& s, Bytes& out, ulong cap, ulong& len) {
    if (depth == 8 && width < 0) return tqbase::codec::UnComp_RLE8Plain(s.data(), s.size(), out.data(), cap, len);
    tqbase::codec::SetRleDecodeWidth(width < 0 ? 0 : width);
    return depth == 4 ? ACompress::UnComp_RLE4(s.data(), s.size(), out.data(), cap, len)
           : depth == 8 ? ACompress::UnComp_RLE8(s.data(), s.size(), out.data(), cap, len)
                        : ACompress::UnComp_RLE24(s.data(), s.size(), out.data(), cap, len);
  };
  const struct { int depth, width; } runs[] = {{8, 32}, {8, 16}, {8, 0}, {4, 32}, {24, 32}};
  for (const auto& run : runs) {
    const int depth = run.depth, width = run.width;
    for (int iter = 0; iter < 1500; ++iter) {
      const unsigned means[] = {1, 2, 9, 33, 130, 300, 2000};
      const size_t pixels = 2 + rng() % (iter % 7 == 0 ? 5000 : 350);
      const Bytes line = depth == 8 && iter % 3 == 0 ? tqtest::MakeLine(rng, pixels, 3, means[iter % 7])
                                                     : LineFor(rng, depth, pixels, means[iter % 7]);
      const Bytes s = Encode(depth, line);
      const std::string where = "width " + std::to_string(width) + " " + Where(depth, line);
      const size_t n = line.size();
      Bytes exact(n), big(n + 100, 0xEE), ref(n + 100, 0xEE);
      ulong l1 = 0, l2 = 0;
      const tqtest::MemoryCounts before;
      ASSERT_TRUE(dec(depth, width, s, exact, n, l1) == 1 && l1 == n && exact == line) << where;
      ASSERT_TRUE(tqtest::MemoryCounts() == before);
      ASSERT_EQ(dec(depth, width, s, big, big.size(), l1), 1);
      ASSERT_EQ(dec(depth, -1, s, ref, ref.size(), l2), 1);
      ASSERT_EQ(big, ref) << where;
      ASSERT_EQ(dec(depth, width, s, exact, n - 1, l1), 0);

      // Records of 2, 3 (a 4-bit pair, or a lone count at the end) and 4
      // bytes, their counts often small.
      const size_t rec = depth == 8 ? 2 : depth == 4 ? 3 : 4;
      Bytes hostile = tqtest::RandomBytes(rng, rec * (1 + rng() % 150) - (depth == 4 && iter % 2 ? 1 : 0));
      if (iter % 3)
        for (size_t k = 0; k < hostile.size(); k += depth == 4 ? 2 : rec) hostile[k] = (unsigned char)(rng() % 40);
      ulong total = 0;
      for (size_t k = 0; k < hostile.size(); k += rec)
        total += hostile[k] + (depth == 4 && k + 2 < hostile.size() ? hostile[k + 2] : 0);
      const ulong cap = 1 + rng() % ((depth == 24 ? 3 : 1) * total + 40);
      Bytes out(cap), want(cap);
      const int g = dec(depth, width, hostile, out, cap, l1), h = dec(depth, -1, hostile, want, cap, l2);
      out.resize(g ? l1 : 0);
      want.resize(h ? l2 : 0);
      ASSERT_TRUE(g == h && out == want) << "width " << width << " cap " << cap << " "
                                         << Where(depth, hostile, "stream");
    }
  }
  tqbase::codec::SetRleDecodeWidth(saved);
}

// ---------------------------------------------------------------------------
// The general format's capacity rule at every boundary

// The general encoder copies literal stretches in bulk; at every capacity
// from 1 to beyond the stream's length it must stop where the byte-wise
// writer stops, with the same bytes written and the same dstLen. Its
// stream decodes back, into no less than the line's length.
TEST(ACompressRleCapacity, GeneralEncoderFailsWhereThePlainOneDoes) {
  std::mt19937 rng(36);
  for (int iter = 0; iter < 400; ++iter) {
    const unsigned means[] = {1, 1, 2, 4, 300};
    const size_t n = 1 + rng() % (iter % 5 == 0 ? 1200 : 90);
    Bytes src = tqtest::MakeLine(rng, n, iter % 4 ? 255 : 3, means[iter % 5]);
    if (iter % 9 == 0)  // long literal stretches broken by single pairs
      for (size_t k = 0; k < n; ++k) src[k] = (unsigned char)(k % 251 == 250 ? src[k ? k - 1 : 0] : k * 7 + 1);
    ulong full = 0, lback = 0;
    Bytes a(2 * n + 8, 0xEE), back(n), tight(n - 1);  // exact sizes: the sanitizer sees overruns
    ASSERT_EQ(ACompress::Comp_RLE(src.data(), n, a.data(), a.size(), full), 1);
    ASSERT_NE(a[full - 2], 0);  // always ends with a repeat record
    ASSERT_EQ(ACompress::UnComp_RLE(a.data(), full, back.data(), n, lback), 1);
    ASSERT_TRUE(lback == n && back == src) << AsCode("src", src);
    if (n > 1) {
      ASSERT_EQ(ACompress::UnComp_RLE(a.data(), full, tight.data(), n - 1, lback), 0);
    }
    for (ulong cap = 1; cap <= full + 2; cap += (n > 300 && cap + 40 < full) ? 1 + rng() % 23 : 1) {
      Bytes x(cap, 0xEE), y(cap, 0xEE);
      ulong lx = 7, ly = 7;
      const int gx = ACompress::Comp_RLE(src.data(), n, x.data(), cap, lx);
      const int gy = tqbase::codec::Comp_RLEPlain(src.data(), n, y.data(), cap, ly);
      ASSERT_TRUE(gx == gy && lx == ly && x == y) << "cap " << cap << "\n" << AsCode("src", src);
      ASSERT_EQ(gx, cap >= full ? 1 : 0) << "cap " << cap;
    }
  }
}

// ---------------------------------------------------------------------------
// Locators and windowed decoding

// On random lines of every depth: each locator finds the record a linear
// scan of the stream finds, and windowed decodes (into exact-size buffers)
// equal slices of the line; spans past the line or empty are refused.
// Neither allocates anything.
TEST(ACompressRleLocate, LocatorsAndWindowsAgreeWithTheWholeLine) {
  std::mt19937 rng(26);
  const tqtest::MemoryCounts before;
  for (int depth : {1, 2, 4, 8, 24}) {
    const int bpp = BytesPerPixel(depth);
    for (int iter = 0; iter < 400; ++iter) {
      const size_t pixels = 2 + rng() % (iter % 5 ? 150 : 4000);
      const Bytes line = LineFor(rng, depth, pixels, 1 + rng() % 80);
      const Bytes s = Encode(depth, line);
      const std::vector<Rec> recs = Records(depth, s);
      for (int probe = 0; probe < 30; ++probe) {
        const ulong p = probe == 0 ? 0 : probe == 1 ? pixels - 1 : rng() % pixels;
        const Rec* want = nullptr;
        for (const Rec& r : recs)
          if (r.start <= p && p < r.start + r.count) { want = &r; break; }
        ASSERT_TRUE(want);
        ulong off = 0, a = 0, b = 0;
        int ok;
        switch (depth) {
          case 1: ok = ACompress::GetLoc_RLE1(s.data(), s.size(), pixels, p, off, a); break;
          case 2: ok = ACompress::GetLoc_RLE2(s.data(), s.size(), pixels, p, off, a); break;
          case 4: ok = ACompress::GetLoc_RLE4(s.data(), s.size(), pixels, p, off, a); break;
          case 8: ok = ACompress::GetLoc_RLE8(s.data(), s.size(), pixels, p, off, a, b); break;
          default: ok = ACompress::GetLoc_RLE24(s.data(), s.size(), pixels, p, off, a); break;
        }
        // 4 bits: the pixels left in the record; 8 bits: also its count.
        ASSERT_TRUE(ok == 1 && off == want->offset && a == (depth == 4 ? want->start + want->count - p : want->start) &&
                    (depth != 8 || b == want->count))
            << "pixel " << p << " " << Where(depth, line);
        if (probe >= 20) continue;
        const ulong start = p, count = 1 + rng() % (probe % 3 ? std::min<ulong>(pixels - p, 20) : pixels - p);
        Bytes out(count * bpp);
        ASSERT_EQ(ACompress::UnPack(s.data(), s.size(), pixels, depth, start, count, out.data()), 1);
        ASSERT_EQ(out, Bytes(line.begin() + start * bpp, line.begin() + (start + count) * bpp))
            << "start " << start << " count " << count << " " << Where(depth, line);
      }
      ulong off, a, b;
      unsigned char out[4];
      EXPECT_EQ(ACompress::GetLoc_RLE8(s.data(), s.size(), pixels, pixels, off, a, b), 0);
      EXPECT_EQ(ACompress::UnPack(s.data(), s.size(), pixels, depth, pixels, 1, out), 0);
      EXPECT_EQ(ACompress::UnPack(s.data(), s.size(), pixels, depth, 1, pixels, out), 0);
      EXPECT_EQ(ACompress::UnPack(s.data(), s.size(), pixels, depth, 0, 0, out), 0);
    }
  }
  EXPECT_TRUE(tqtest::MemoryCounts() == before);
}

// ---------------------------------------------------------------------------
// Runs of the 1- and 2-bit formats

// A run written by Pack_Value reads back through UnPackSeg forward from its
// first byte and backward from any of its digits (behind a literal byte,
// where the step back stops); the literal itself is no run.
TEST(ACompressRleRuns, RunDigitsRoundTrip) {
  std::mt19937 rng(25);
  for (int iter = 0; iter < 4000; ++iter) {
    const int depth = 1 + iter % 2;
    const unsigned char value = (unsigned char)(rng() % (depth == 1 ? 2 : 4));
    const ulong length = 1 + (rng() >> (rng() % 32));
    unsigned char buf[24] = {0x80, 0x80};
    ulong end = 2;
    ASSERT_EQ(ACompress::Pack_Value(value, length, depth, buf, end), 1);
    buf[end] = 0x80;
    const ulong digits = end - 2, k = rng() % digits;
    unsigned char v = 9;
    ulong len = 0;
    auto seg = [&](ulong pos, ulong span, int forward) {
      return depth == 1 ? ACompress::UnPackSeg1(buf, pos, span, v, len, forward)
                        : ACompress::UnPackSeg2(buf, pos, span, v, len, forward);
    };
    const std::string where = "depth " + std::to_string(depth) + " value " + std::to_string(value) + " length " +
                              std::to_string(length) + " digit " + std::to_string(k);
    ASSERT_EQ(seg(2, 0, 1), digits) << where;
    ASSERT_TRUE(v == value && len == length) << where;
    v = 9;
    ASSERT_EQ(seg(2 + k, k + rng() % 3, 0), digits) << where;
    ASSERT_TRUE(v == value && len == length) << where;
    ASSERT_EQ(seg(end, 2, 0), 0u) << where;
  }
  // Lengths beyond the digits a run can have are refused; 0 writes nothing.
  unsigned char buf[16];
  ulong w = 0;
  EXPECT_EQ(ACompress::Pack_Value(1, 0, 1, buf, w), 1);
  EXPECT_EQ(w, 0u);
  EXPECT_EQ(ACompress::Pack_Value(1, 5, 4, buf, w), 0);
#if ULONG_MAX > 0xFFFFFFFFul  // lengths of 60 bits need a 64-bit unsigned long (LP64)
  w = 0;
  EXPECT_EQ(ACompress::Pack_Value(0, (1ul << 60) - 1, 1, buf, w), 1);
  EXPECT_EQ(w, 10u);
  EXPECT_EQ(ACompress::Pack_Value(0, 1ul << 60, 1, buf, w = 0), 0);
  EXPECT_EQ(ACompress::Pack_Value(3, 1ul << 55, 2, buf, w = 0), 0);
#endif
}

// ---------------------------------------------------------------------------
// Short and malformed streams: each decoder and locator's stated answer.

TEST(ACompressRleHostile, ShortAndMalformedStreams) {
  unsigned char out[64];
  ulong len = 0, off = 0, a = 0, b = 0;
  // A 4-bit stream of 3k + 1 bytes (k >= 1) is refused; its first pair alone decodes.
  const Bytes s4 = {2, 0x12, 1, 4};
  EXPECT_EQ(ACompress::UnComp_RLE4(s4.data(), 4, out, 16, len), 0);
  EXPECT_EQ(ACompress::UnComp_RLE4(s4.data(), 1, out, 16, len), 0);
  EXPECT_EQ(ACompress::GetLoc_RLE4(s4.data(), 4, 7, 2, off, a), 0);
  EXPECT_TRUE(ACompress::UnComp_RLE4(s4.data(), 2, out, 16, len) == 1 && len == 2u);
  // Locators: an odd 8-bit length, walks off either end of the stream.
  const Bytes s8 = {3, 1, 4, 2}, s24 = {2, 1, 2, 3, 1}, one = {9, 7};
  EXPECT_EQ(ACompress::GetLoc_RLE8(s8.data(), 3, 7, 1, off, a, b), 0);
  EXPECT_EQ(ACompress::GetLoc_RLE8(s8.data(), 4, 20, 8, off, a, b), 0);   // forward walk runs off
  EXPECT_EQ(ACompress::GetLoc_RLE8(s8.data(), 4, 30, 16, off, a, b), 0);  // backward from 30 misses 0..1
  EXPECT_TRUE(ACompress::GetLoc_RLE8(s8.data(), 4, 7, 6, off, a, b) == 1 && off == 2u && a == 3u);
  EXPECT_EQ(ACompress::GetLoc_RLE24(s24.data(), 5, 3, 1, off, a), 0);
  EXPECT_TRUE(ACompress::GetLoc_RLE8(one.data(), 2, 9, 8, off, a, b) == 1 && off == 0u && a == 0u && b == 9u);
  // A window must be covered by the stream exactly.
  const Bytes w8 = {3, 1, 2, 2}, w4 = {3, 0x12, 2};  // 5 pixels each
  EXPECT_EQ(ACompress::UnPack(w8.data(), 4, 5, 8, 1, 4, out), 1);
  EXPECT_EQ(ACompress::UnPack(w8.data(), 4, 8, 8, 1, 6, out), 0);
  EXPECT_EQ(ACompress::UnPack(w4.data(), 3, 8, 4, 1, 6, out), 0);
  // 1 bit: a run of 100 for 10 pixels fills them; digits that never end
  // saturate and fill; a stream that ends short asserts and succeeds.
  const Bytes overlong = {0x24, 0x01, 0x00}, shortS = {0x08, 0x00};
  Bytes endless(100, 0x7F);
  endless.push_back(0);
  ASSERT_EQ(ACompress::UnPack1(overlong.data(), 3, 10, out), 1);
  EXPECT_EQ(Bytes(out, out + 10), Bytes(10, 0));
  ASSERT_EQ(ACompress::UnPack1(endless.data(), endless.size(), 50, out), 1);
  EXPECT_EQ(Bytes(out, out + 50), Bytes(50, 1));
  tqtest::HookCapture hooks;
  EXPECT_EQ(ACompress::UnPack1(shortS.data(), 2, 20, out), 1);
  EXPECT_EQ(hooks.Assertions(), 1);
}

// ---------------------------------------------------------------------------
// Blank lines and colour counts

TEST(ACompressRleSpace, BlankLinesOfEveryDepth) {
  struct Case {
    int width, depth;
    unsigned char colour;
    Bytes stream;
  };
  const Case cases[] = {
      {510, 8, 0x33, {0xFF, 0x33, 0xFF, 0x33}},
      {300, 8, 0x33, {0xFF, 0x33, 45, 0x33}},
      {256, 24, 1, {0xFF, 1, 2, 3, 1, 1, 2, 3}},          // colour 1, 2, 3
      {600, 4, 5, {0xFF, 0x55, 0xFF, 90, 0x55}},          // N = 3
      {400, 4, 5, {0xFF, 0x55, 145}},                     // N = 2
      {510, 4, 5, {0xFF, 0x55, 0x00}},                    // count of the last run: 0
      {100, 1, 1, {0x40 | 36, 0x41, 0x00}},
  };
  unsigned char out[64];
  for (const Case& c : cases) {
    const unsigned char col[3] = {c.colour, 2, 3};
    const ulong len = ACompress::InitSpaceBits(out, c.width, (unsigned short)c.depth, col, 1);
    EXPECT_EQ(Bytes(out, out + len), c.stream) << "depth " << c.depth << " width " << c.width;
  }
  const unsigned char c8 = 0x33;
  // Blank lines decode to the colour (4-bit multiples of 255 excepted).
  std::mt19937 rng(29);
  for (int depth : {1, 2, 4, 8, 24}) {
    for (int iter = 0; iter < 200; ++iter) {
      const int width = 1 + rng() % 3000;
      if (depth == 4 && width % 255 == 0) continue;
      const unsigned char col[3] = {(unsigned char)(rng() % (MaxValue(depth) + 1)), 7, 9};
      Bytes s(4 * (width / 255 + 2) + 16);
      const ulong len = ACompress::InitSpaceBits(s.data(), width, (unsigned short)depth, col, 1);
      ASSERT_GT(len, 0u);
      s.resize(len);
      Bytes want;
      for (int i = 0; i < width; ++i) want.insert(want.end(), col, col + BytesPerPixel(depth));
      ASSERT_EQ(Decode(depth, s, width), want) << "depth " << depth << " width " << width;
      Bytes raw(width * 3);
      ASSERT_EQ(ACompress::InitSpaceBits(raw.data(), width, (unsigned short)depth, col, 0),
                (ulong)width * BytesPerPixel(depth));
      raw.resize(want.size());
      ASSERT_EQ(raw, want);
    }
  }
  EXPECT_EQ(ACompress::InitSpaceBits(out, 10, 3, &c8, 1), 0u);
  tqtest::HookCapture hooks;
  EXPECT_EQ(ACompress::InitSpaceBits(out, 0, 8, &c8, 1), 0u);
}

TEST(ACompressRleMono, CountsAgreeWithCountingDecodedPixels) {
  std::mt19937 rng(30);
  for (int iter = 0; iter < 400; ++iter) {
    const int width = 1 + rng() % 200, height = 1 + rng() % 4;
    const size_t total = (size_t)width * height;
    // 8 bits: run-length and plain.
    const Bytes img8 = tqtest::MakeLine(rng, total, 3, 1 + rng() % 20);
    const unsigned char c8 = (unsigned char)(rng() % 4);
    const ulong want8 = std::count(img8.begin(), img8.end(), c8);
    if (total >= 2) {
      const Bytes s8 = Encode(8, img8);
      EXPECT_EQ(ACompress::CalcMono(8, 12, width, height, s8.data(), s8.size(), &c8), want8);
    }
    EXPECT_EQ(ACompress::CalcMono(8, 0, width, height, img8.data(), img8.size(), &c8), want8);
    // 24 bits.
    const Bytes img24 = tqtest::MakeLine24(rng, total, 1 + rng() % 20);
    const unsigned char* c24 = &img24[3 * (rng() % total)];
    ulong want24 = 0;
    for (size_t i = 0; i < total; ++i) want24 += std::memcmp(&img24[3 * i], c24, 3) == 0;
    const Bytes s24 = Encode(24, img24);
    EXPECT_EQ(ACompress::CalcMono(24, 12, width, height, s24.data(), s24.size(), c24), want24);
    EXPECT_EQ(ACompress::CalcMono(24, 0, width, height, img24.data(), img24.size(), c24), want24);
    // 1 bit: one stream for the whole image, and packed rows.
    const Bytes img1 = tqtest::MakeLine(rng, total, 1, 1 + rng() % 30);
    for (unsigned char c1 : {0, 1}) {
      const ulong want1 = std::count(img1.begin(), img1.end(), c1);
      const Bytes s1 = Encode(1, img1);
      EXPECT_EQ(ACompress::CalcMono(1, 12, width, height, s1.data(), s1.size(), &c1), want1)
          << AsCode("img", img1);
      const size_t stride = (width + 7) / 8;
      Bytes packed(stride * height, 0xFF);  // padding bits set: never counted
      for (int y = 0; y < height; ++y)
        ASSERT_EQ(ACompress::ShrinkBit1(&img1[(size_t)y * width], 0, width, &packed[y * stride]), 1);
      EXPECT_EQ(ACompress::CalcMono(1, 0, width, height, packed.data(), packed.size(), &c1), want1);
    }
  }
  const unsigned char c = 0;
  const Bytes any = {1, 2, 3};
  EXPECT_EQ(ACompress::CalcMono(2, 12, 3, 1, any.data(), 3, &c), 0u);
  EXPECT_EQ(ACompress::CalcMono(4, 0, 3, 1, any.data(), 3, &c), 0u);
}

// ---------------------------------------------------------------------------
// Rectangles

namespace {

struct Image {
  int depth, width, height;
  std::vector<Bytes> lines;  // expanded
  Bytes data;                // the streams, one after another
  std::vector<ulong> offs, lens;
};

Image MakeImage(std::mt19937& rng, int depth, int width, int height) {
  Image im{depth, width, height, {}, {}, {}, {}};
  for (int y = 0; y < height; ++y) {
    im.lines.push_back(LineFor(rng, depth, width, 1 + rng() % 40));
    const Bytes s = Encode(depth, im.lines.back());
    im.offs.push_back(im.data.size());
    im.lens.push_back(s.size());
    im.data.insert(im.data.end(), s.begin(), s.end());
  }
  return im;
}

}  // namespace

// Random rectangles of random images, with and without line tables: the
// plain form copies the pixels (the stride's padding untouched), the flag
// form (1 and 8 bits) writes exactly the flagged pixels.
TEST(ACompressRleRect, RectanglesMatchTheImageWithAndWithoutTables) {
  std::mt19937 rng(31);
  for (int depth : {1, 8, 24}) {
    const int bpp = BytesPerPixel(depth);
    for (int iter = 0; iter < 60; ++iter) {
      const int w = 2 + rng() % 300, h = 1 + rng() % 12;
      const Image im = MakeImage(rng, depth, w, h);
      const SIZE img = {w, h};
      for (int k = 0; k < 10; ++k) {
        const POINT org = {(LONG)(rng() % w), (LONG)(rng() % h)};
        const SIZE sz = {(LONG)(1 + rng() % (w - org.x)), (LONG)(1 + rng() % (h - org.y))};
        const int stride = sz.cx * bpp + (int)(rng() % 5), fstride = (sz.cx + 7) / 8 + (int)(rng() % 3);
        const Bytes flags = tqtest::RandomBytes(rng, (size_t)fstride * sz.cy);
        for (bool tables : {false, true}) {
          const ulong* offs = tables ? im.offs.data() : nullptr;
          const ulong* lens = tables ? im.lens.data() : nullptr;
          Bytes dst((size_t)stride * sz.cy, 0xEE), fdst((size_t)sz.cx * sz.cy, 0xEE);
          ASSERT_EQ(ACompress::UnPack(&img, depth, im.data.data(), im.data.size(), dst.data(), stride, &org, &sz,
                                      offs, lens), 1) << "depth " << depth;
          const bool flagged = depth != 24;
          ASSERT_TRUE(!flagged || ACompress::UnPackFlagBits(&img, depth, im.data.data(), im.data.size(), fdst.data(),
                                                            sz.cx, &org, &sz, offs, lens, flags.data(), fstride));
          for (int r = 0; r < sz.cy; ++r) {
            const Bytes& line = im.lines[org.y + r];
            ASSERT_EQ(Bytes(dst.begin() + (size_t)r * stride, dst.begin() + (size_t)r * stride + sz.cx * bpp),
                      Bytes(line.begin() + org.x * bpp, line.begin() + (org.x + sz.cx) * bpp));
            for (int x = sz.cx * bpp; x < stride; ++x) ASSERT_EQ(dst[(size_t)r * stride + x], 0xEE);
            for (int x = 0; flagged && x < sz.cx; ++x) {
              const bool set = flags[(size_t)r * fstride + x / 8] & (0x80 >> (x % 8));
              ASSERT_EQ(fdst[(size_t)r * sz.cx + x], set ? line[org.x + x] : 0xEE) << "depth " << depth << " x " << x;
            }
          }
        }
      }
      // Without an origin: the top-left rectangle.
      const SIZE sz = {w, h};
      Bytes all((size_t)w * h * bpp);
      ASSERT_EQ(ACompress::UnPack(&img, depth, im.data.data(), im.data.size(), all.data(), w * bpp, nullptr, &sz,
                                  nullptr, nullptr), 1);
      for (int y = 0; y < h; ++y)
        ASSERT_EQ(Bytes(all.begin() + (size_t)y * w * bpp, all.begin() + (size_t)(y + 1) * w * bpp), im.lines[y]);
    }
  }
}

// Every refused argument on an 8-bit image of 20 x 4; with tables a
// rectangle may reach past the image, whose part outside stays untouched.
TEST(ACompressRleRect, ArgumentChecks) {
  std::mt19937 rng(32);
  const Image im = MakeImage(rng, 8, 20, 4);
  const SIZE img = {20, 4}, sz = {10, 3}, tooBig = {21, 1}, empty = {0, 1}, four = {4, 1};
  const POINT org = {5, 1}, neg = {-1, 0}, beyond = {15, 0};  // beyond: 15 + 10 > 20
  const unsigned char* d = im.data.data();
  const ulong n = im.data.size(), *offs = im.offs.data(), *lens = im.lens.data();
  std::vector<ulong> badOffs = im.offs;
  badOffs[2] = n;  // a table entry past the data
  const unsigned char flag = 0xFF, s24[] = {4, 1, 2, 3};
  Bytes dst(20 * 8, 0xEE);
  // Valid; then a stride of 0 and one below the width, offsets without
  // lengths, depth 4, no data, a negative origin, a rectangle past the image
  // without tables, one larger than the image, an empty one, truncated data
  // and a table entry past the data.
  const struct { int depth; const unsigned char* data; ulong n; int stride; const POINT* org; const SIZE* sz;
                 const ulong *offs, *lens; int want; } cases[] = {
      {8, d, n, 20, &org, &sz, nullptr, nullptr, 1},     {8, d, n, 0, &org, &sz, nullptr, nullptr, 0},
      {8, d, n, 9, &org, &sz, nullptr, nullptr, 0},      {8, d, n, 20, &org, &sz, offs, nullptr, 0},
      {4, d, n, 20, &org, &sz, nullptr, nullptr, 0},     {8, nullptr, n, 20, &org, &sz, nullptr, nullptr, 0},
      {8, d, n, 20, &neg, &sz, nullptr, nullptr, 0},     {8, d, n, 20, &beyond, &sz, nullptr, nullptr, 0},
      {8, d, n, 40, nullptr, &tooBig, nullptr, nullptr, 0}, {8, d, n, 40, nullptr, &empty, nullptr, nullptr, 0},
      {8, d, n - 3, 20, &org, &sz, nullptr, nullptr, 0}, {8, d, n, 20, &org, &sz, badOffs.data(), lens, 0},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ACompress::UnPack(&img, c.depth, c.data, c.n, dst.data(), c.stride, c.org, c.sz, c.offs, c.lens), c.want)
        << "case " << &c - cases;
  std::fill(dst.begin(), dst.end(), 0xEE);
  ASSERT_EQ(ACompress::UnPack(&img, 8, d, n, dst.data(), 20, &beyond, &sz, offs, lens), 1);
  EXPECT_EQ(Bytes(dst.begin(), dst.begin() + 5), Bytes(im.lines[0].begin() + 15, im.lines[0].end()));
  EXPECT_EQ(dst[5], 0xEE);
  EXPECT_EQ(ACompress::UnPackFlagBits(&img, 8, d, n, dst.data(), 10, &org, &sz, nullptr, nullptr, nullptr, 2), 0);
  EXPECT_EQ(ACompress::UnPackFlagBits(&four, 24, s24, 4, dst.data(), 12, nullptr, &four, nullptr, nullptr, &flag, 1),
            0);
}
