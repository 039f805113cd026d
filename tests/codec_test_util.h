// codec_test_util.h - helpers for the ACompress suites: seeded line
// generators and a printer that turns a failing random input into code
// that reproduces it.
#ifndef TQBASE_TESTS_CODEC_TEST_UTIL_H
#define TQBASE_TESTS_CODEC_TEST_UTIL_H

#include <tqbase/tqbase.h>

#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace tqtest {

typedef std::vector<unsigned char> Bytes;

// "Bytes name = {0x01, ...};" for pasting a failing case into a test.
inline std::string AsCode(const char* name, const Bytes& v) {
  std::ostringstream o;
  o << "Bytes " << name << " = {";
  for (size_t i = 0; i < v.size(); ++i) {
    static const char* hex = "0123456789abcdef";
    o << (i ? ", " : "") << "0x" << hex[v[i] >> 4] << hex[v[i] & 15];
  }
  o << "};";
  return o.str();
}

// A line of `len` pixels of values 0..maxValue made of runs whose lengths
// are drawn around meanRun (1 gives noise), like print masks with edges.
inline Bytes MakeLine(std::mt19937& rng, size_t len, unsigned maxValue, unsigned meanRun) {
  Bytes v;
  v.reserve(len);
  std::uniform_int_distribution<unsigned> val(0, maxValue);
  std::geometric_distribution<unsigned> run(1.0 / (meanRun ? meanRun : 1));
  while (v.size() < len) {
    size_t n = 1 + run(rng);
    const unsigned char x = (unsigned char)val(rng);
    for (; n && v.size() < len; --n) v.push_back(x);
  }
  return v;
}

inline Bytes RandomBytes(std::mt19937& rng, size_t len) {
  Bytes v(len);
  std::uniform_int_distribution<unsigned> val(0, 255);
  for (auto& b : v) b = (unsigned char)val(rng);
  return v;
}

// The same for 24-bit pixels (3 bytes each); colours from a palette of four
// so that runs form.
inline Bytes MakeLine24(std::mt19937& rng, size_t pixels, unsigned meanRun) {
  const Bytes pal = RandomBytes(rng, 12);
  Bytes v;
  for (unsigned char k : MakeLine(rng, pixels, 3, meanRun)) v.insert(v.end(), &pal[3 * k], &pal[3 * k] + 3);
  return v;
}

// Live blocks and regions of the memory manager, to see that a codec gave
// back every work buffer.
struct MemoryCounts {
  int global = AGV::GetGlobalAllocCount();
  int pages = AGV::GetVirtualAllocCount();
  bool operator==(const MemoryCounts& o) const { return global == o.global && pages == o.pages; }
};

}  // namespace tqtest

#endif  // TQBASE_TESTS_CODEC_TEST_UTIL_H
