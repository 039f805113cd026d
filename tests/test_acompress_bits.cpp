// test_acompress_bits.cpp - ACompress bit packing: expanders and
// shrinkers against a pixel-by-pixel model (including the indexing
// asymmetry and the kept neighbour bits), the SSE2 paths against the table
// paths, ZoomBits and ResampleLine.
#include "codec_test_util.h"
#include "test_support.h"
#include "acompress_internal.h"

#include <gtest/gtest.h>

using tqtest::AsCode;
using tqtest::Bytes;

namespace {

// Pixel i of a packed line at the given depth.
unsigned PackedPixel(const Bytes& packed, size_t i, int depth) {
  const size_t bit = i * depth;
  return (packed[bit / 8] >> (8 - depth - bit % 8)) & ((1u << depth) - 1);
}

void SetPackedPixel(Bytes& packed, size_t i, int depth, unsigned v) {
  const size_t bit = i * depth;
  const unsigned shift = (unsigned)(8 - depth - bit % 8);
  const unsigned mask = ((1u << depth) - 1) << shift;
  packed[bit / 8] = (unsigned char)((packed[bit / 8] & ~mask) | ((v << shift) & mask));
}

}  // namespace

TEST(ACompressExpand, DispatchAndArgumentChecks) {
  unsigned char src[4] = {0xA5, 0x5A, 0xFF, 0x00};
  unsigned char dst[16];
  std::memset(dst, 0xEE, sizeof dst);
  EXPECT_EQ(ACompress::ExpandBit(src, 0, 8, 8, dst), 1);  // depth 8: nothing to do
  EXPECT_EQ(ACompress::ExpandBit(src, 0, 8, 32, dst), 1);
  for (unsigned char b : dst) EXPECT_EQ(b, 0xEE);
  EXPECT_EQ(ACompress::ExpandBit(src, 0, 8, 3, dst), 0);
  EXPECT_EQ(ACompress::ShrinkBit(dst, 3, 2, 3, src), 0);
  EXPECT_EQ(ACompress::ShrinkBit(dst, 3, 2, 8, src), 1);  // depth 8: nothing to do
  EXPECT_EQ(src[0], 0xA5);
  tqtest::HookCapture hooks;
  EXPECT_EQ(ACompress::ExpandBit(nullptr, 0, 8, 1, dst), 0);
  EXPECT_EQ(ACompress::ExpandBit(src, 0, 8, 1, nullptr), 0);
  EXPECT_EQ(ACompress::ExpandBit(src, 0, 0, 1, dst), 0);
  EXPECT_GE(hooks.Assertions(), 3);
  EXPECT_TRUE(g_Error.IsError());
}

// ExpandBit1 reads relative to the byte holding `start` and writes from
// dst[0]; ExpandBit2/4 are absolute in both buffers. Every other byte of
// dst stays as it was.
TEST(ACompressExpand, MatchesPixelModelForEveryDepthAndPhase) {
  std::mt19937 rng(11);
  for (int depth : {1, 2, 4}) {
    for (int iter = 0; iter < 3000; ++iter) {
      const size_t pixels = 1 + rng() % 700;
      Bytes packed = tqtest::RandomBytes(rng, (pixels * depth + 7) / 8);
      const unsigned long start = rng() % pixels;
      const unsigned long count = 1 + rng() % (pixels - start);
      Bytes dst(pixels + 16, 0xEE), want(dst);
      int ok;
      if (depth == 1) {
        for (unsigned long i = 0; i < count; ++i) want[i] = (unsigned char)PackedPixel(packed, start + i, 1);
        ok = ACompress::ExpandBit(packed.data() + start / 8, start, count, 1, dst.data());
      } else {
        for (unsigned long i = 0; i < count; ++i)
          want[start + i] = (unsigned char)PackedPixel(packed, start + i, depth);
        ok = ACompress::ExpandBit(packed.data(), start, count, depth, dst.data());
      }
      ASSERT_EQ(ok, 1);
      ASSERT_EQ(dst, want) << "depth " << depth << " start " << start << " count " << count << "\n"
                           << AsCode("packed", packed);
    }
  }
}

TEST(ACompressExpand, Sse2PathAgreesWithTablePath) {
  std::mt19937 rng(12);
  for (int iter = 0; iter < 2000; ++iter) {
    const size_t bytes = 1 + rng() % 300;
    Bytes packed = tqtest::RandomBytes(rng, bytes);
    const unsigned long start = rng() % 8;
    if (bytes * 8 <= start) continue;
    const unsigned long count = 1 + rng() % (bytes * 8 - start);
    Bytes a(count + 8, 0x55), b(a);
    ASSERT_EQ(ACompress::ExpandBit1(packed.data(), start, count, a.data()), 1);
    ASSERT_EQ(tqbase::codec::ExpandBit1Table(packed.data(), start, count, b.data()), 1);
    ASSERT_EQ(a, b) << "start " << start << " count " << count << "\n" << AsCode("packed", packed);
  }
}

// Model: the packed line after writing pixels start..start+count-1; bits
// outside the span stay. ShrinkBit1 alone leaves a span inside one byte
// that does not begin on a boundary untouched.
TEST(ACompressShrink, MatchesPixelModelAndKeepsNeighbourBits) {
  std::mt19937 rng(13);
  for (int depth : {1, 2, 4}) {
    const unsigned maxValue = depth == 4 ? 15u : depth == 2 ? 3u : 1u;
    for (int iter = 0; iter < 3000; ++iter) {
      const size_t pixels = 1 + rng() % 500;
      Bytes line = tqtest::MakeLine(rng, pixels, depth == 1 ? 255 : maxValue, 1 + rng() % 9);
      const unsigned long start = rng() % pixels;
      const unsigned long count = 1 + rng() % (pixels - start);
      Bytes packed = tqtest::RandomBytes(rng, (pixels * depth + 7) / 8);
      Bytes want = packed;
      const bool untouched = depth == 1 && start % 8 && (start + count) / 8 == start / 8;
      if (!untouched)
        for (unsigned long i = start; i < start + count; ++i)
          SetPackedPixel(want, i, depth, depth == 1 ? line[i] != 0 : line[i]);
      Bytes got = packed;
      ASSERT_EQ(ACompress::ShrinkBit(line.data(), start, count, depth, got.data()), 1);
      ASSERT_EQ(got, want) << "depth " << depth << " start " << start << " count " << count << "\n"
                           << AsCode("line", line) << "\n" << AsCode("packed", packed);
      if (depth == 1) {
        Bytes plain = packed;
        ASSERT_EQ(tqbase::codec::ShrinkBit1Plain(line.data(), start, count, plain.data()), 1);
        ASSERT_EQ(plain, got);
      }
    }
  }
}

TEST(ACompressShrink, NullDestinationPacksInPlace) {
  std::mt19937 rng(14);
  for (int depth : {1, 2, 4}) {
    for (int iter = 0; iter < 200; ++iter) {
      const size_t pixels = 1 + rng() % 400;
      Bytes line = tqtest::MakeLine(rng, pixels, (1u << depth) - 1, 5);
      Bytes separate((pixels * depth + 7) / 8, 0);
      ASSERT_EQ(ACompress::ShrinkBit(line.data(), 0, pixels, depth, separate.data()), 1);
      ASSERT_EQ(ACompress::ShrinkBit(line.data(), 0, pixels, depth, nullptr), 1);
      ASSERT_EQ(Bytes(line.begin(), line.begin() + separate.size() - 1),
                Bytes(separate.begin(), separate.end() - 1))
          << AsCode("line", line);
    }
  }
}

TEST(ACompressShrink, FourBitValuesAreNotMasked) {
  unsigned char px[2] = {0x1F, 0x02};
  unsigned char out[1] = {0};
  ASSERT_EQ(ACompress::ShrinkBit4(px, 0, 2, out), 1);
  EXPECT_EQ(out[0], (unsigned char)((0x1F << 4) | 0x02));
  unsigned char keep[1] = {0xA0};
  unsigned char big[2] = {0, 0x13};
  ASSERT_EQ(ACompress::ShrinkBit4(big, 1, 1, keep), 1);  // low nibble 3 and the spill 0x10
  EXPECT_EQ(keep[0], 0xB3);
}

TEST(ACompressShrink, ExpandThenShrinkRestoresPackedBytes) {
  std::mt19937 rng(15);
  for (int depth : {1, 2, 4}) {
    for (int iter = 0; iter < 1000; ++iter) {
      const size_t pixels = 2 + rng() % 300;
      Bytes packed = tqtest::RandomBytes(rng, (pixels * depth + 7) / 8);
      unsigned long start = rng() % pixels;
      if (depth == 2 && start % 2 == 0) ++start;  // odd starts
      if (start >= pixels) continue;
      unsigned long count = 1 + rng() % (pixels - start);
      if (depth == 1) {  // keep clear of the one-byte exception
        start &= ~7ul;
        count = pixels - start;
      }
      Bytes wide(pixels, 0);
      ASSERT_EQ(ACompress::ExpandBit(packed.data() + (depth == 1 ? start / 8 : 0), start, count,
                                     depth, wide.data() + (depth == 1 ? start : 0)),
                1);
      Bytes back = packed;
      ASSERT_EQ(ACompress::ShrinkBit(wide.data(), start, count, depth, back.data()), 1);
      ASSERT_EQ(back, packed) << "depth " << depth << " start " << start << " count " << count
                              << "\n" << AsCode("packed", packed);
    }
  }
}

TEST(ACompressZoom, NearestNeighbourWithRoundingAndClampedEdge) {
  // 3 -> 6 columns: trunc(0.5*c + 0.5) = 0,1,1,2,2,3 -> the last takes 2;
  // 6 -> 3: steps of 2.
  const unsigned char src[3] = {10, 20, 30}, s6[6] = {1, 2, 3, 4, 5, 6};
  unsigned char dst[6] = {}, d3[3];
  ASSERT_EQ(ACompress::ZoomBits(3, 1, 8, src, 6, 1, dst), 1);
  EXPECT_EQ(Bytes(dst, dst + 6), (Bytes{10, 20, 20, 30, 30, 30}));
  ASSERT_EQ(ACompress::ZoomBits(6, 1, 1, s6, 3, 1, d3), 1);
  EXPECT_EQ(Bytes(d3, d3 + 3), (Bytes{1, 3, 5}));
}

TEST(ACompressZoom, IdentityCopiesAndRowsFollowTheSameRule) {
  std::mt19937 rng(16);
  for (int bpp : {8, 24}) {
    const int b = bpp == 8 ? 1 : 3;
    for (int iter = 0; iter < 100; ++iter) {
      const int sw = 1 + rng() % 40, sh = 1 + rng() % 40, dw = 1 + rng() % 60, dh = 1 + rng() % 60;
      Bytes src = tqtest::RandomBytes(rng, (size_t)sw * sh * b);
      Bytes same((size_t)sw * sh * b);
      ASSERT_EQ(ACompress::ZoomBits(sw, sh, (unsigned short)bpp, src.data(), sw, sh, same.data()), 1);
      ASSERT_EQ(same, src);
      Bytes dst((size_t)dw * dh * b);
      ASSERT_EQ(ACompress::ZoomBits(sw, sh, (unsigned short)bpp, src.data(), dw, dh, dst.data()), 1);
      // Each destination row is ResampleLine of some source row, and the
      // columns follow ResampleLineMap.
      std::vector<unsigned long> map(dw + 2);
      ASSERT_TRUE(AMathOpt::ResampleLineMap(sw, dw, map.data()));
      std::vector<unsigned long> rows(dh + 2);
      ASSERT_TRUE(AMathOpt::ResampleLineMap(sh, dh, rows.data()));
      for (int r = 0; r < dh; ++r)
        for (int c = 0; c < dw; ++c)
          for (int k = 0; k < b; ++k)
            ASSERT_EQ(dst[((size_t)r * dw + c) * b + k], src[(rows[r] * sw + map[c]) * b + k]);
    }
  }
}

TEST(ACompressZoom, OtherPixelSizesWriteNothing) {
  unsigned char src[8] = {1, 2, 3, 4, 5, 6, 7, 8}, dst[8];
  std::memset(dst, 0xEE, 8);
  EXPECT_EQ(ACompress::ZoomBits(2, 1, 16, src, 2, 1, dst), 1);
  EXPECT_EQ(ACompress::ZoomBits(1, 1, 32, src, 1, 1, dst), 1);
  for (unsigned char b : dst) EXPECT_EQ(b, 0xEE);
  tqtest::HookCapture hooks;
  EXPECT_EQ(ACompress::ZoomBits(2, 1, 8, nullptr, 2, 1, dst), 0);
  EXPECT_EQ(ACompress::ZoomBits(2, 1, 8, src, 2, 1, nullptr), 0);
}

TEST(ACompressResample, LineMatchesMapAndChecksItsArguments) {
  tqtest::MemoryCounts before;
  std::mt19937 rng(17);
  for (int iter = 0; iter < 300; ++iter) {
    const int bpp = iter % 3 == 0 ? 24 : iter % 3 == 1 ? 8 : 32;
    const size_t b = bpp == 8 ? 1 : (size_t)(bpp + 7) / 8;
    const int sc = 1 + rng() % 200, dc = 1 + rng() % 200;
    Bytes src = tqtest::RandomBytes(rng, sc * b), dst(dc * b);
    ASSERT_EQ(ACompress::ResampleLine(src.data(), bpp, sc, dst.data(), dc), 1);
    std::vector<unsigned long> map(std::max(sc, dc) + 2);
    ASSERT_TRUE(AMathOpt::ResampleLineMap(sc, dc, map.data()));
    for (int i = 0; i < dc; ++i)
      ASSERT_EQ(0, std::memcmp(&dst[i * b], &src[map[i] * b], b)) << sc << "->" << dc << " at " << i;
  }
  EXPECT_TRUE(tqtest::MemoryCounts() == before);  // the map went back
  // A caller's map; entries outside the source fail.
  const unsigned char src[4] = {1, 2, 3, 4};
  unsigned char dst[3];
  const unsigned long reverse[3] = {3, 1, 0};
  ASSERT_EQ(ACompress::ResampleLine(src, 8, 4, dst, 3, reverse), 1);
  EXPECT_EQ(Bytes(dst, dst + 3), (Bytes{4, 2, 1}));
  const unsigned long bad[3] = {0, 4, 1};
  EXPECT_EQ(ACompress::ResampleLine(src, 8, 4, dst, 3, bad), 0);
  tqtest::HookCapture hooks;
  EXPECT_EQ(ACompress::ResampleLine(src, 8, 0, dst, 3), 0);
  EXPECT_EQ(ACompress::ResampleLine(src, 8, 4, dst, 0), 0);
  EXPECT_EQ(ACompress::ResampleLine(nullptr, 8, 4, dst, 3), 0);
  unsigned char copy[4];
  ASSERT_EQ(ACompress::ResampleLine(src, 8, 4, copy, 4), 1);
  EXPECT_EQ(0, std::memcmp(copy, src, 4));
}
