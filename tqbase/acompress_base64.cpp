// acompress_base64.cpp - the library's Base64 text form: the standard
// alphabet without '=' padding, text in and text out.
#include "acompress_internal.h"

#include "tqbase/memorymanage.h"

#include <cstring>

using namespace tqbase::codec;

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct DecodeTable {
  signed char v[256];
  constexpr DecodeTable() : v() {
    for (int i = 0; i < 256; ++i) v[i] = -1;
    for (int i = 0; i < 64; ++i) v[(unsigned char)kAlphabet[i]] = (signed char)i;
  }
};
constexpr DecodeTable kDecode;

}  // namespace

char* ACompress::Base64_Encode(const char* text) {
  if (!text) {
    ASSERT(text);
    Fail("ACompress::Base64_Encode: null text");
    return nullptr;
  }
  const size_t n = std::strlen(text);
  const size_t groups = n / 3 + (n % 3 != 0);
  size_t outLen;
  if (!tqbase::CheckedBytes((long long)groups, 4, &outLen) || outLen >= 0xFFFFFFFFu) {
    Fail("ACompress::Base64_Encode: text of %zu bytes is too long", n);
    return nullptr;
  }
  char* out = static_cast<char*>(AGlobalAllocPtr(GMEM_MOVEABLE, (DWORD)(outLen + 1)));
  if (!out) {
    Fail("ACompress::Base64_Encode: out of memory");
    return nullptr;
  }
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  char* d = out;
  size_t i = 0;
  for (; i + 3 <= n; i += 3, d += 4) {
    const uint32_t v = ((uint32_t)s[i] << 16) | ((uint32_t)s[i + 1] << 8) | s[i + 2];
    d[0] = kAlphabet[v >> 18];
    d[1] = kAlphabet[(v >> 12) & 63];
    d[2] = kAlphabet[(v >> 6) & 63];
    d[3] = kAlphabet[v & 63];
  }
  if (i < n) {  // zero padding comes out as 'A's, never '='
    uint32_t v = (uint32_t)s[i] << 16;
    if (i + 1 < n) v |= (uint32_t)s[i + 1] << 8;
    d[0] = kAlphabet[v >> 18];
    d[1] = kAlphabet[(v >> 12) & 63];
    d[2] = kAlphabet[(v >> 6) & 63];
    d[3] = kAlphabet[v & 63];
    d += 4;
  }
  *d = '\0';
  return out;
}

char* ACompress::Base64_Decode(const char* text) {
  if (!text) {
    ASSERT(text);
    Fail("ACompress::Base64_Decode: null text");
    return nullptr;
  }
  const size_t n = std::strlen(text);
  const size_t outLen = n / 4 * 3 + (n % 4) * 3 / 4;  // 3n/4 without overflow
  if (outLen >= 0xFFFFFFFFu) {
    Fail("ACompress::Base64_Decode: text of %zu bytes is too long", n);
    return nullptr;
  }
  unsigned char* out = static_cast<unsigned char*>(AGlobalAllocPtr(GMEM_MOVEABLE, (DWORD)(outLen + 1)));
  if (!out) {
    Fail("ACompress::Base64_Decode: out of memory");
    return nullptr;
  }
  std::memset(out, 0, outLen + 1);
  const unsigned char* s = reinterpret_cast<const unsigned char*>(text);
  // Translation stops at the first character outside the alphabet; it and
  // everything after count as 0, which the zero-filled buffer already holds.
  size_t i = 0, o = 0;
  for (; i + 4 <= n; i += 4, o += 3) {
    const int a = kDecode.v[s[i]], b = kDecode.v[s[i + 1]], c = kDecode.v[s[i + 2]],
              e = kDecode.v[s[i + 3]];
    if ((a | b | c | e) < 0) break;
    const uint32_t v = ((uint32_t)a << 18) | ((uint32_t)b << 12) | ((uint32_t)c << 6) | (uint32_t)e;
    out[o] = (unsigned char)(v >> 16);
    out[o + 1] = (unsigned char)(v >> 8);
    out[o + 2] = (unsigned char)v;
  }
  if (i < n) {
    uint32_t v = 0;
    for (size_t k = 0; k < 4; ++k) {
      const int x = i + k < n ? kDecode.v[s[i + k]] : -1;
      if (x < 0) break;
      v |= (uint32_t)x << (18 - 6 * k);
    }
    for (size_t k = 0; k < 3 && o + k < outLen; ++k) out[o + k] = (unsigned char)(v >> (16 - 8 * k));
  }
  return reinterpret_cast<char*>(out);
}

void ACompress::Base64_Free(char** p) {
  if (!p || !*p) return;
  AGlobalFreePtr(*p);
  *p = nullptr;
}
