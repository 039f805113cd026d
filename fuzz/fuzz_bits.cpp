// fuzz_bits.cpp - packing and expansion: shrink then expand restores the
// pixels at every depth and phase, and the 1-bit fast paths agree with the
// table forms. Input: selector byte, start, then the pixels.
#include "fuzz_codec_common.h"

#include "acompress_internal.h"

#include <cstdio>
#include <memory>

using tqfuzz::Reader;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tqfuzz::Quiet();
  Reader r{data, size};
  const unsigned sel = r.Byte();
  const unsigned long startSel = r.U16();
  std::vector<uint8_t> px = r.Rest();
  if (px.empty()) return 0;
  static const int kDepths[3] = {1, 2, 4};
  const int depth = kDepths[sel % 3];
  const unsigned long total = px.size();
  unsigned long start = startSel % total;
  if (depth == 1) start &= ~7ul;  // a span inside one byte stays unpacked by design
  const unsigned long count = total - start;
  for (auto& v : px) v &= (uint8_t)((1u << depth) - 1);
  const size_t packedBytes = (total * depth + 7) / 8;
  std::unique_ptr<uint8_t[]> packed(new uint8_t[packedBytes]);
  std::memset(packed.get(), 0, packedBytes);
  FUZZ_CHECK(ACompress::ShrinkBit(px.data(), start, count, depth, packed.get()));
  std::unique_ptr<uint8_t[]> wide(new uint8_t[total]);
  std::memset(wide.get(), 0xEE, total);
  if (depth == 1) {
    FUZZ_CHECK(ACompress::ExpandBit(packed.get() + start / 8, start, count, 1, wide.get() + start));
    std::unique_ptr<uint8_t[]> ref(new uint8_t[count]);
    FUZZ_CHECK(tqbase::codec::ExpandBit1Table(packed.get() + start / 8, start, count, ref.get()));
    FUZZ_CHECK(std::memcmp(ref.get(), wide.get() + start, count) == 0);
    std::unique_ptr<uint8_t[]> plain(new uint8_t[packedBytes]);
    std::memset(plain.get(), 0, packedBytes);
    FUZZ_CHECK(tqbase::codec::ShrinkBit1Plain(px.data(), start, count, plain.get()));
    FUZZ_CHECK(std::memcmp(plain.get(), packed.get(), packedBytes) == 0);
  } else {
    FUZZ_CHECK(ACompress::ExpandBit(packed.get(), start, count, depth, wide.get()));
  }
  FUZZ_CHECK(std::memcmp(wide.get() + start, px.data() + start, count) == 0);
  return 0;
}
