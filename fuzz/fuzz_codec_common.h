// fuzz_codec_common.h - shared pieces of the codec fuzz targets: quiet
// hooks, a byte reader for parameters, and exact-size copies so that the
// sanitizer sees any read or write past a buffer.
#ifndef TQBASE_FUZZ_CODEC_COMMON_H
#define TQBASE_FUZZ_CODEC_COMMON_H

#include <tqbase/tqbase.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
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
  std::vector<uint8_t> Rest() { return std::vector<uint8_t>(p, p + n); }
};

#define FUZZ_CHECK(cond)                                                        \
  do {                                                                          \
    if (!(cond)) {                                                              \
      std::fprintf(stderr, "check failed: %s (%s:%d)\n", #cond, __FILE__, __LINE__); \
      std::abort();                                                             \
    }                                                                           \
  } while (0)

}  // namespace tqfuzz

#endif  // TQBASE_FUZZ_CODEC_COMMON_H
