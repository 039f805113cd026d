// fuzz_codec_common.h - shared pieces of the fuzz targets: quiet hooks, a
// byte reader for parameters (with integers and doubles that favour the
// edges: the 32-bit limits, NaN, infinities, denormals), and exact-size
// copies so that the sanitizer sees any read or write past a buffer.
#ifndef TQBASE_FUZZ_CODEC_COMMON_H
#define TQBASE_FUZZ_CODEC_COMMON_H

#include <tqbase/tqbase.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace tqfuzz {

inline void QuietAssert(const char*, int, const char*) {}
inline void QuietTrace(const char*) {}

// Installs quiet hooks once: decoders assert on short streams by design.
inline void Quiet() {
  static bool done = (tqSetAssertHandler(&QuietAssert), tqSetTraceSink(&QuietTrace), true);
  (void)done;
}

// Takes parameters from the front of the input.
struct Reader {
  const uint8_t* p;
  size_t n;
  uint8_t Byte() { return n ? (--n, *p++) : 0; }
  uint32_t U16() { return (uint32_t)Byte() | (uint32_t)Byte() << 8; }
  uint32_t U32() {
    const uint32_t lo = U16();
    return lo | U16() << 16;
  }
  uint64_t U64() {
    const uint64_t lo = U32();
    return lo | (uint64_t)U32() << 32;
  }
  std::vector<uint8_t> Rest() { return std::vector<uint8_t>(p, p + n); }

  // Any int: one of the edges half of the time, else raw bytes.
  int AnyInt() {
    static const int kEdges[] = {INT_MIN, INT_MIN + 1, INT_MIN / 2, -65536, -2, -1, 0, 1, 2, 3,
                                 65536,   INT_MAX / 2, INT_MAX - 2, INT_MAX - 1, INT_MAX, 100};
    const uint8_t sel = Byte();
    if (sel < 128) return kEdges[sel % 16];
    uint32_t v = U32();
    int out;
    std::memcpy(&out, &v, sizeof out);
    return out;
  }

  // Any double: the edges (NaN, infinities, zeros of both signs, denormals,
  // the largest values, the 32-bit limits and their neighbours, halves)
  // half of the time, a small value a quarter, else raw bytes.
  double AnyDouble() {
    static const double kEdges[] = {std::numeric_limits<double>::quiet_NaN(),
                                    std::numeric_limits<double>::infinity(),
                                    -std::numeric_limits<double>::infinity(),
                                    0.0,
                                    -0.0,
                                    std::numeric_limits<double>::denorm_min(),
                                    -std::numeric_limits<double>::denorm_min(),
                                    DBL_MIN,
                                    DBL_MAX,
                                    -DBL_MAX,
                                    2147483647.0,
                                    2147483647.5,
                                    2147483648.0,
                                    -2147483648.0,
                                    -2147483648.5,
                                    -2147483649.0,
                                    4294967295.5,
                                    4294967296.0,
                                    9223372036854775807.0,
                                    1e300,
                                    -1e300,
                                    0.5,
                                    -0.5,
                                    1e-10,
                                    -1e-10,
                                    5e-11,
                                    2.9999999999,
                                    1.0,
                                    -1.0,
                                    3.141592653589793,
                                    1e15,
                                    -1e15};
    const uint8_t sel = Byte();
    if (sel < 128) return kEdges[sel % (sizeof kEdges / sizeof kEdges[0])];
    if (sel < 192) return ((double)(int16_t)U16()) / (double)(1 + Byte() % 64);
    uint64_t v = U64();
    double out;
    std::memcpy(&out, &v, sizeof out);
    return out;
  }
};

// The case under test as code, printed when a check fails (targets that
// build their inputs from parameters set it).
inline std::string& Context() {
  static std::string text;
  return text;
}

#define FUZZ_CHECK(cond)                                                        \
  do {                                                                          \
    if (!(cond)) {                                                              \
      std::fprintf(stderr, "check failed: %s (%s:%d)\n", #cond, __FILE__, __LINE__); \
      if (!tqfuzz::Context().empty()) std::fprintf(stderr, "%s\n", tqfuzz::Context().c_str()); \
      std::abort();                                                             \
    }                                                                           \
  } while (0)

}  // namespace tqfuzz

#endif  // TQBASE_FUZZ_CODEC_COMMON_H
