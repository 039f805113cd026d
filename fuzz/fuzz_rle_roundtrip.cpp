// fuzz_rle_roundtrip.cpp - every run-length encoder on arbitrary lines, at an
// arbitrary capacity: whatever succeeds must decode to the line (values
// reduced to the depth), and every encoder's output must stay in its
// buffer. Input: selector byte, capacity, then the line.
#include "fuzz_codec_common.h"

#include <cstdio>
#include <memory>

using tqfuzz::Reader;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tqfuzz::Quiet();
  Reader r{data, size};
  const unsigned sel = r.Byte();
  const unsigned long capSel = r.U16();
  std::vector<uint8_t> line = r.Rest();
  if (line.empty()) return 0;
  static const int kDepths[6] = {0, 1, 2, 4, 8, 24};  // 0: the general format
  const int depth = kDepths[sel % 6];
  if (depth == 24) line.resize(line.size() / 3 * 3);
  if (line.empty()) return 0;
  if (depth == 1 || depth == 2 || depth == 4)
    for (auto& v : line) v &= (uint8_t)((1u << depth) - 1);
  const unsigned long n = line.size();
  const unsigned long cap = (sel & 0x80) ? capSel % (2 * n + 8) : 2 * n + 64;
  std::unique_ptr<uint8_t[]> enc(new uint8_t[cap ? cap : 1]);
  unsigned long len = 0;
  const int ok = depth ? ACompress::Pack(line.data(), n, depth, enc.get(), cap, len)
                       : ACompress::Comp_RLE(line.data(), n, enc.get(), cap, len);
  if (!ok) {
    FUZZ_CHECK((sel & 0x80) || (depth == 8 && n < 2));  // a generous buffer always suffices
    return 0;
  }
  FUZZ_CHECK(len <= cap);
  std::unique_ptr<uint8_t[]> stream(new uint8_t[len]);
  std::memcpy(stream.get(), enc.get(), len);
  std::unique_ptr<uint8_t[]> dec(new uint8_t[n]);
  unsigned long dlen = 0;
  if (depth == 0) {
    FUZZ_CHECK(ACompress::UnComp_RLE(stream.get(), len, dec.get(), n, dlen));
    FUZZ_CHECK(dlen == n);
  } else {
    const unsigned long pixels = depth == 24 ? n / 3 : n;
    FUZZ_CHECK(ACompress::UnPack(stream.get(), len, pixels, depth, dec.get()));
    // And a window from the middle agrees with the whole line.
    const unsigned long start = capSel % pixels, count = 1 + (capSel >> 3) % (pixels - start);
    const int bpp = depth == 24 ? 3 : 1;
    std::unique_ptr<uint8_t[]> win(new uint8_t[count * bpp]);
    FUZZ_CHECK(ACompress::UnPack(stream.get(), len, pixels, depth, start, count, win.get()));
    FUZZ_CHECK(std::memcmp(win.get(), line.data() + start * bpp, count * bpp) == 0);
  }
  FUZZ_CHECK(std::memcmp(dec.get(), line.data(), n) == 0);
  return 0;
}
