// fuzz_rle_decode.cpp - every run-length decoder, windowed decoder, locator,
// run reader, colour count and rectangle decoder on arbitrary streams.
// Input: selector byte, parameters, then the stream. Buffers are exact-size
// heap copies, so any access past them is caught.
#include "fuzz_codec_common.h"

#include <cstdio>
#include <memory>

using tqfuzz::Reader;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tqfuzz::Quiet();
  Reader r{data, size};
  const unsigned sel = r.Byte();
  const unsigned long width = 1 + r.U16() % 4096;
  const unsigned long a = r.U16(), b = r.U16();
  const unsigned long cap = r.U16();
  std::vector<uint8_t> s = r.Rest();
  const unsigned long n = s.size();
  std::unique_ptr<uint8_t[]> src(new uint8_t[n ? n : 1]);
  if (n) std::memcpy(src.get(), s.data(), n);
  static const int kDepths[5] = {1, 2, 4, 8, 24};
  const int depth = kDepths[(sel >> 4) % 5];
  unsigned long len = 0;
  switch (sel & 15) {
    case 0: {
      std::unique_ptr<uint8_t[]> out(new uint8_t[cap ? cap : 1]);
      ACompress::UnComp_RLE(src.get(), n, out.get(), cap, len);
      ACompress::UnComp_RLE4(src.get(), n, out.get(), cap, len);
      ACompress::UnComp_RLE8(src.get(), n, out.get(), cap, len);
      ACompress::UnComp_RLE24(src.get(), n, out.get(), cap, len);
      break;
    }
    case 1: {  // whole-line decode of `width` pixels
      std::unique_ptr<uint8_t[]> out(new uint8_t[width * 3]);
      ACompress::UnPack(src.get(), n, width, depth, out.get());
      break;
    }
    case 2: {  // windowed decode
      const unsigned long start = a % width, count = 1 + b % (width - start);
      std::unique_ptr<uint8_t[]> out(new uint8_t[count * (depth == 24 ? 3 : 1)]);
      ACompress::UnPack(src.get(), n, width, depth, start, count, out.get());
      break;
    }
    case 3: {  // locators
      const unsigned long p = a % (width + 1);
      unsigned long off = 0, x = 0, y = 0;
      int ok = 0;
      switch (depth) {
        case 1: ok = ACompress::GetLoc_RLE1(src.get(), n, width, p, off, x); break;
        case 2: ok = ACompress::GetLoc_RLE2(src.get(), n, width, p, off, x); break;
        case 4: ok = ACompress::GetLoc_RLE4(src.get(), n, width, p, off, x); break;
        case 8: ok = ACompress::GetLoc_RLE8(src.get(), n, width, p, off, x, y); break;
        default: ok = ACompress::GetLoc_RLE24(src.get(), n, width, p, off, x); break;
      }
      if (ok) FUZZ_CHECK(off < n);
      break;
    }
    case 4: {  // run readers: the stream padded with literal bytes, as documented
      if (!n) break;
      std::unique_ptr<uint8_t[]> padded(new uint8_t[n + 11]);
      std::memcpy(padded.get(), src.get(), n);
      std::memset(padded.get() + n, 0x80, 11);
      unsigned char v;
      unsigned long l;
      ACompress::UnPackSeg1(padded.get(), a % n, b, v, l, sel & 0x80);
      ACompress::UnPackSeg2(padded.get(), a % n, b, v, l, sel & 0x80);
      break;
    }
    case 5: {  // colour counts
      const unsigned char colour[3] = {(unsigned char)a, (unsigned char)(a >> 8), (unsigned char)b};
      const int h = 1 + (int)(b % 8);
      for (unsigned char d : {1, 8, 24}) {
        ACompress::CalcMono(d, 12, (int)width, h, src.get(), n, colour);
        ACompress::CalcMono(d, 0, (int)width, h, src.get(), n, colour);
      }
      break;
    }
    case 6:
    case 7: {  // rectangles, sequential lines or with line tables
      const int rd = depth == 24 ? 24 : depth <= 2 ? 1 : 8;
      const long w = 1 + (long)(width % 64), h = 1 + (long)(cap % 6);
      const POINT org = {(LONG)(a % w), (LONG)(b % h)};
      const SIZE img = {(LONG)w, (LONG)h}, sz = {(LONG)(w - org.x), (LONG)(h - org.y)};
      const int bpp = rd == 24 ? 3 : 1;
      std::vector<unsigned long> offs(h), lens(h);
      for (long y = 0; y < h; ++y) {
        offs[y] = n ? (y * 7) % n : 0;
        lens[y] = n ? (unsigned long)(n - offs[y]) / (1 + (y % 3)) : 0;
      }
      const bool tables = (sel & 15) == 7;
      std::unique_ptr<uint8_t[]> out(new uint8_t[(size_t)sz.cx * sz.cy * bpp]);
      ACompress::UnPack(&img, rd, src.get(), n, out.get(), sz.cx * bpp, &org, &sz,
                        tables ? offs.data() : nullptr, tables ? lens.data() : nullptr);
      if (rd != 24) {
        std::vector<uint8_t> flags((size_t)((sz.cx + 7) / 8) * sz.cy, (uint8_t)a);
        ACompress::UnPackFlagBits(&img, rd, src.get(), n, out.get(), sz.cx, &org, &sz,
                                  tables ? offs.data() : nullptr, tables ? lens.data() : nullptr,
                                  flags.data(), (sz.cx + 7) / 8);
      }
      break;
    }
    default: {  // the whole-line decoders at exact pixel counts
      std::unique_ptr<uint8_t[]> out(new uint8_t[width]);
      ACompress::UnPack1(src.get(), n, width, out.get());
      ACompress::UnPack2(src.get(), n, width, out.get());
      break;
    }
  }
  return 0;
}
