// acompress_lzw.cpp - ACompress LZW (bytes <-> 16-bit codes <-> bit stream)
// and the library's Base64 text form.
//
// The encoder finds (prefix, byte) pairs in an open-addressed hash whose
// entries carry a generation stamp, so a clear costs no table wipe; the
// node store with sibling lists (IsStrInList) is kept as the reference
// encoder, and both give the same codes (bench: BM_Comp_LZW against
// BM_Pack_LZWNodes). The decoder keeps no string store: every dictionary
// string is a slice of the output already written (the previous string
// plus one byte), so a table entry is just an offset and a length.
//
// Work buffers come from the memory manager's lendable buffer
// (g_AGV.LockBuffer, a fresh region when it is busy) and go back on every
// path.
#include "acompress_internal.h"

#include "tqbase/memorymanage.h"

#include <cstring>

using namespace tqbase::codec;

namespace {

typedef unsigned long ulong;

const unsigned kClear = 256;
const unsigned kEnd = 257;
const unsigned kFirstCode = 258;
const ulong kCodesPerClear = 3836;  // codes written between clears, counting the clear
const unsigned kMaxStrings = 4096;  // decoder table entries per clear

#if defined(__GNUC__)
#define TQ_UNLIKELY(x) __builtin_expect(!!(x), 0)
#else
#define TQ_UNLIKELY(x) (x)
#endif

inline uint32_t ToBigEndian(uint32_t v) {
  const uint16_t one = 1;
  unsigned char little;
  std::memcpy(&little, &one, 1);
  if (!little) return v;
#if defined(__GNUC__)
  return __builtin_bswap32(v);
#else
  return (v >> 24) | ((v >> 8) & 0xFF00u) | ((v << 8) & 0xFF0000u) | (v << 24);
#endif
}

// Code width by the code's number since the last clear.
inline unsigned WidthFor(ulong number) {
  return number < 255 ? 9u : number < 767 ? 10u : number < 1791 ? 11u : 12u;
}

// A borrowed work area; released when it goes out of scope.
class WorkBuffer {
public:
  explicit WorkBuffer(ulong size) : m_p(size ? g_AGV.LockBuffer(size, TRUE) : nullptr) {}
  ~WorkBuffer() {
    if (m_p) g_AGV.UnlockBuffer(m_p);
  }
  WorkBuffer(const WorkBuffer&) = delete;
  WorkBuffer& operator=(const WorkBuffer&) = delete;
  unsigned char* get() const { return m_p; }

private:
  unsigned char* m_p;
};

// ---- encoder dictionary: generation-stamped hash ----

const unsigned kHashBits = 13;
const unsigned kHashSize = 1u << kHashBits;  // more than twice the 3,835 strings
const ulong kHashBytes = kHashSize * (sizeof(uint32_t) + sizeof(uint16_t));

class LzwHash {
public:
  explicit LzwHash(unsigned char* mem)
      : m_key(reinterpret_cast<uint32_t*>(mem)),
        m_code(reinterpret_cast<uint16_t*>(mem + kHashSize * sizeof(uint32_t))) {
    std::memset(m_key, 0, kHashSize * sizeof(uint32_t));
  }
  // Empties the dictionary: entries of older generations count as free.
  void Clear() {
    if (++m_gen == 4096) {
      std::memset(m_key, 0, kHashSize * sizeof(uint32_t));
      m_gen = 1;
    }
  }
  // Code of (prefix, c), or 0 when absent; slot receives the probe's end.
  unsigned Find(unsigned prefix, unsigned c, unsigned& slot) const {
    const uint32_t key = (m_gen << 20) | (prefix << 8) | c;
    // Multiplicative hash: prefixes of long runs are consecutive codes, which
    // a plain xor would pack into one long probe cluster.
    unsigned h = (((prefix << 8) | c) * 2654435761u) >> (32 - kHashBits);
    for (;; h = (h + 1) & (kHashSize - 1)) {
      const uint32_t k = m_key[h];
      if (k == key) return m_code[h];
      if ((k >> 20) != m_gen) break;
    }
    slot = h;
    return 0;
  }
  void Insert(unsigned slot, unsigned prefix, unsigned c, unsigned code) {
    m_key[slot] = (m_gen << 20) | (prefix << 8) | c;
    m_code[slot] = (uint16_t)code;
  }

private:
  uint32_t* m_key;   // generation << 20 | prefix << 8 | byte
  uint16_t* m_code;
  uint32_t m_gen = 1;
};

int PackLzwHash(const unsigned char* src, ulong srcLen, unsigned short* codes, ulong codeCap,
                ulong& codeCount, unsigned char* hashMem) {
  LzwHash dict(hashMem);
  ulong n = 0;
  if (codeCap < 1) return Fail("ACompress::Pack_LZW: code array is full");
  codes[n++] = kClear;
  ulong sinceClear = 1;  // codes since the last clear, counting it
  unsigned next = kFirstCode;
  unsigned prefix = src[0];
  for (ulong i = 1; i < srcLen; ++i) {
    const unsigned c = src[i];
    unsigned slot = 0;
    const unsigned code = dict.Find(prefix, c, slot);
    if (code) {
      prefix = code;
      continue;
    }
    if (n >= codeCap) {
      codeCount = n;
      return Fail("ACompress::Pack_LZW: code array of %lu codes is full", codeCap);
    }
    codes[n++] = (unsigned short)prefix;
    if (sinceClear < kCodesPerClear) {
      dict.Insert(slot, prefix, c, next++);
      ++sinceClear;
    } else {
      if (n >= codeCap) {
        codeCount = n;
        return Fail("ACompress::Pack_LZW: code array of %lu codes is full", codeCap);
      }
      codes[n++] = kClear;
      dict.Clear();
      next = kFirstCode;
      sinceClear = 1;
    }
    prefix = c;
  }
  // The last prefix, then the end code only while a further place is left.
  if (n >= codeCap || (codes[n++] = (unsigned short)prefix, n + 1 >= codeCap)) {
    codeCount = n;
    return Fail("ACompress::Pack_LZW: code array of %lu codes is full", codeCap);
  }
  codes[n++] = kEnd;
  codeCount = n;
  return 1;
}

// ---- decoder ----

struct LzwEntry {
  const unsigned char* p;  // earlier output, or kSingles for codes 0..255
  ulong length;
};
const ulong kDictEntries = kFirstCode + kMaxStrings;
const ulong kDictBytes = kDictEntries * sizeof(LzwEntry);

// The 256 single-byte strings, padded so that an 8-byte block read from
// any of them stays inside.
struct Singles {
  unsigned char v[264];
  constexpr Singles() : v() {
    for (int i = 0; i < 256; ++i) v[i] = (unsigned char)i;
  }
};
constexpr Singles kSingles;

// Copies a string of len bytes to `to` (room bytes of capacity from there)
// from earlier output or kSingles, which never overlaps the string's
// destination. Short strings move as one 8- or 16-byte block when the
// capacity allows: the block's excess lies beyond the string, where the
// next string (or the spare bytes of the capacity rule) goes.
inline void CopyString(const unsigned char* from, unsigned char* to, ulong len, ulong room) {
  if (len <= 8 && room >= 8) {
    uint64_t v;
    std::memcpy(&v, from, 8);
    std::memcpy(to, &v, 8);
  } else if (len <= 16 && room >= 16) {
    uint64_t v[2];
    std::memcpy(v, from, 16);
    std::memcpy(to, v, 16);
  } else {
    std::memcpy(to, from, len);
  }
}

int UnPackLzwWith(const unsigned short* codes, ulong codeCount, unsigned char* dst, ulong dstCap,
                  ulong& dstLen, LzwEntry* dict) {
  dstLen = 0;
  if (codes[0] > kClear) return Fail("ACompress::UnPack_LZW: stream starts with code %u", codes[0]);
  ulong i = 0;
  while (i < codeCount && (codes[i] == kClear || codes[i] == kEnd)) ++i;
  if (i == codeCount) return Fail("ACompress::UnPack_LZW: no data codes");
  if (codes[i] > 255) return Fail("ACompress::UnPack_LZW: code %u before any string", codes[i]);
  // Every string leaves 6 spare bytes: from here on dstLen <= dstCap - 6.
  if (dstCap < 7) return Fail("ACompress::UnPack_LZW: output buffer of %lu bytes is too small", dstCap);
  const ulong limit = dstCap - 6;
  for (unsigned k = 0; k < 256; ++k) dict[k] = LzwEntry{kSingles.v + k, 1};
  dst[0] = (unsigned char)codes[i];
  ulong prevOff = 0, prevLen = 1, w = 1;
  unsigned next = kFirstCode;
  enum { kOk, kFull, kTooMany } failure = kOk;
  for (++i; i < codeCount; ++i) {
    unsigned c = codes[i];
    if (c - kClear < 2u || c >= next) {  // the rare codes: end, clear, a string being defined
      if (c == kEnd) break;
      if (c == kClear) {
        while (i < codeCount && codes[i] == kClear) ++i;
        if (i == codeCount || codes[i] == kEnd) break;
        c = codes[i];
        if (c > kEnd) {
          dstLen = w;
          return Fail("ACompress::UnPack_LZW: code %u right after a clear", c);
        }
        if (w + 1 > limit) {
          failure = kFull;
          break;
        }
        next = kFirstCode;
        prevOff = w;
        prevLen = 1;
        dst[w++] = (unsigned char)c;
        continue;
      }
      // The previous string plus its own first byte (also for codes beyond
      // the dictionary).
      if (next - kFirstCode >= kMaxStrings) {
        failure = kTooMany;
        break;
      }
      const ulong len = prevLen + 1;
      if (len > limit - w) {
        failure = kFull;
        break;
      }
      CopyString(dst + prevOff, dst + w, prevLen, dstCap - w);
      dst[w + prevLen] = dst[prevOff];
      dict[next++] = LzwEntry{dst + prevOff, len};
      prevOff = w;
      prevLen = len;
      w += len;
      continue;
    }
    // The new entry is the previous string and the first byte of this one,
    // which starts right where the previous one ended.
    if (next - kFirstCode >= kMaxStrings) {
      failure = kTooMany;
      break;
    }
    const LzwEntry e = dict[c];
    if (e.length > limit - w) {
      failure = kFull;
      break;
    }
    CopyString(e.p, dst + w, e.length, dstCap - w);
    dict[next++] = LzwEntry{dst + prevOff, prevLen + 1};
    prevOff = w;
    prevLen = e.length;
    w += e.length;
  }
  dstLen = w;
  if (failure == kTooMany)
    return Fail("ACompress::UnPack_LZW: more than %u strings since a clear", kMaxStrings);
  if (failure == kFull)
    return Fail("ACompress::UnPack_LZW: output buffer of %lu bytes is too small", dstCap);
  return 1;
}

}  // namespace

// ---------------------------------------------------------------------------
// Reference encoder: node store and sibling lists

int ACompress::IsStrInList(unsigned short prefix, unsigned char ch, const unsigned char* nodes,
                           unsigned short first, unsigned short* code, unsigned short* last) {
  (void)prefix;
  if (last) *last = 0;
  if (!nodes) return 0;
  for (unsigned o = first; o;) {
    if (nodes[o] == ch) {
      if (code) *code = (unsigned short)(o / 3 + 257);
      return 1;
    }
    if (last) *last = (unsigned short)o;
    o = (unsigned)nodes[o + 1] | ((unsigned)nodes[o + 2] << 8);
  }
  return 0;
}

int tqbase::codec::Pack_LZWNodes(const unsigned char* src, ulong srcLen, unsigned short* codes,
                                 ulong codeCap, ulong& codeCount) {
  codeCount = 0;
  if (!src || !srcLen || !codes || !codeCap) return 0;
  ulong storeSize = 6144;
  unsigned char* nodes = static_cast<unsigned char*>(AGlobalAllocPtr(GMEM_MOVEABLE, (DWORD)storeSize));
  unsigned short* head = static_cast<unsigned short*>(AGlobalAllocPtr(GHND, 4096 * sizeof(unsigned short)));
  int ok = 0;
  ulong n = 0, sinceClear = 1;
  unsigned nextOff = 3;
  unsigned prefix = src[0];
  if (!nodes || !head) goto done;
  std::memset(head, 0, 4096 * sizeof(unsigned short));
  codes[n++] = 256;
  for (ulong i = 1; i < srcLen; ++i) {
    const unsigned char c = src[i];
    unsigned short code = 0, last = 0;
    const unsigned short first = head[prefix];
    if (first && ACompress::IsStrInList((unsigned short)prefix, c, nodes, first, &code, &last)) {
      prefix = code;
      continue;
    }
    if (n >= codeCap) goto done;
    codes[n++] = (unsigned short)prefix;
    if (sinceClear < kCodesPerClear) {
      if (storeSize - nextOff < 3) {
        // A fresh block and a copy: a failed re-allocation would lose the
        // store's contents.
        unsigned char* grown = static_cast<unsigned char*>(
            AGlobalAllocPtr(GMEM_MOVEABLE, (DWORD)(storeSize * 2)));
        if (!grown) goto done;
        std::memcpy(grown, nodes, storeSize);
        AGlobalFreePtr(nodes);
        nodes = grown;
        storeSize *= 2;
      }
      nodes[nextOff] = c;
      nodes[nextOff + 1] = nodes[nextOff + 2] = 0;
      if (!first) {
        head[prefix] = (unsigned short)nextOff;
      } else {
        nodes[last + 1] = (unsigned char)(nextOff & 0xFF);
        nodes[last + 2] = (unsigned char)(nextOff >> 8);
      }
      nextOff += 3;
      ++sinceClear;
    } else {
      if (n >= codeCap) goto done;
      codes[n++] = 256;
      std::memset(head, 0, 4096 * sizeof(unsigned short));
      nextOff = 3;
      sinceClear = 1;
    }
    prefix = c;
  }
  if (n >= codeCap) goto done;
  codes[n++] = (unsigned short)prefix;
  if (n + 1 >= codeCap) goto done;
  codes[n++] = 257;
  ok = 1;
done:
  codeCount = n;
  if (nodes) AGlobalFreePtr(nodes);
  if (head) AGlobalFreePtr(head);
  return ok;
}

// ---------------------------------------------------------------------------
// Codes

int ACompress::Pack_LZW(const unsigned char* src, ulong srcLen, unsigned short* codes,
                        ulong codeCap, ulong& codeCount) {
  codeCount = 0;
  if (!src || !srcLen || !codes || !codeCap) {
    ASSERT(src && srcLen && codes && codeCap);
    return Fail("ACompress::Pack_LZW: null buffer or zero length");
  }
  WorkBuffer work(kHashBytes);
  if (!work.get()) return Fail("ACompress::Pack_LZW: out of memory");
  return PackLzwHash(src, srcLen, codes, codeCap, codeCount, work.get());
}

int ACompress::UnPack_LZW(const unsigned short* codes, ulong codeCount, unsigned char* dst,
                          ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!codes || !codeCount || !dst || !dstCap) {
    ASSERT(codes && codeCount && dst && dstCap);
    return Fail("ACompress::UnPack_LZW: null buffer or zero length");
  }
  WorkBuffer work(kDictBytes);
  if (!work.get()) return Fail("ACompress::UnPack_LZW: out of memory");
  return UnPackLzwWith(codes, codeCount, dst, dstCap, dstLen, reinterpret_cast<LzwEntry*>(work.get()));
}

// ---------------------------------------------------------------------------
// Bit stream

int ACompress::TransformDataBits(const unsigned short* codes, ulong codeCount, unsigned char* dst,
                                 ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!codes || !codeCount || !dst || !dstCap) {
    ASSERT(codes && codeCount && dst && dstCap);
    return Fail("ACompress::TransformDataBits: null buffer or zero length");
  }
  uint64_t acc = 0;
  unsigned bits = 0;
  ulong w = 0, number = 0;
  for (ulong i = 0; i < codeCount; ++i) {
    const unsigned width = WidthFor(number);
    const unsigned code = codes[i];
    acc = (acc << width) | (code & ((1u << width) - 1));
    bits += width;
    number = (code == kClear && width == 12) ? 1 : number + 1;
    while (bits >= 8) {
      bits -= 8;
      dst[w++] = (unsigned char)(acc >> bits);
      if (w >= dstCap) {  // the stream must stay shorter than the buffer
        dstLen = 1;
        return Fail("ACompress::TransformDataBits: output buffer of %lu bytes is too small", dstCap);
      }
    }
  }
  if (bits) {
    dst[w++] = (unsigned char)(acc << (8 - bits));
    if (w >= dstCap) {
      dstLen = 1;
      return Fail("ACompress::TransformDataBits: output buffer of %lu bytes is too small", dstCap);
    }
  }
  dstLen = w;
  return 1;
}

int ACompress::ResumeDataBit(const unsigned char* src, ulong srcLen, unsigned short* codes,
                             ulong& codeCount) {
  codeCount = 0;
  if (!src || !srcLen || !codes) {
    ASSERT(src && srcLen && codes);
    return Fail("ACompress::ResumeDataBit: null buffer or zero length");
  }
  ulong n = 0, number = 0;
  uint64_t bitPos = 0;
  // Away from the end a code is cut from one big-endian 32-bit word. The
  // width stays fixed up to the next threshold, so the loop carries only
  // the bit position; a clear at width 12 restarts the schedule.
  while (srcLen >= 4 && (bitPos >> 3) <= srcLen - 4) {
    const unsigned width = WidthFor(number);
    const ulong until = number < 255 ? 255 : number < 767 ? 767 : number < 1791 ? 1791 : ~0ul;
    while (number < until && (bitPos >> 3) <= srcLen - 4) {
      uint32_t word;
      std::memcpy(&word, src + (bitPos >> 3), 4);
      word = ToBigEndian(word);
      const unsigned code = (word << (unsigned)(bitPos & 7)) >> (32 - width);
      codes[n++] = (unsigned short)code;
      bitPos += width;
      ++number;
      if (TQ_UNLIKELY(code - kClear < 2u)) {
        if (code == kEnd) {
          codeCount = n;
          return 1;
        }
        if (width == 12) {
          number = 1;
          break;
        }
      }
    }
  }
  for (;;) {
    const ulong p = (ulong)(bitPos >> 3);
    if (srcLen - p < 2) break;  // fewer than two bytes left
    const unsigned width = WidthFor(number);
    // A code spans at most 3 bytes; bytes past the stream read as 0.
    const uint32_t b0 = src[p], b1 = src[p + 1], b2 = p + 2 < srcLen ? src[p + 2] : 0;
    const uint32_t word = (b0 << 16) | (b1 << 8) | b2;
    const unsigned code = (word >> (24 - (unsigned)(bitPos & 7) - width)) & ((1u << width) - 1);
    codes[n++] = (unsigned short)code;
    bitPos += width;
    if (code == kEnd) break;
    number = (code == kClear && width == 12) ? 1 : number + 1;
  }
  codeCount = n;
  return 1;
}

// ---------------------------------------------------------------------------
// Both stages

int ACompress::Comp_LZW(const unsigned char* src, ulong srcLen, unsigned char* dst, ulong dstCap,
                        ulong& dstLen) {
  dstLen = 0;
  if (!src || !srcLen || !dst || !dstCap) {
    ASSERT(src && srcLen && dst && dstCap);
    return Fail("ACompress::Comp_LZW: null buffer or zero length");
  }
  ulong codeCap, codeBytes, total;
  if (!tqbase::CheckedMul(srcLen, 3ul, &codeCap) ||
      !tqbase::CheckedMul(codeCap / 2, (ulong)sizeof(unsigned short), &codeBytes) ||
      !tqbase::CheckedAdd(codeBytes, kHashBytes, &total))
    return Fail("ACompress::Comp_LZW: input of %lu bytes is too large", srcLen);
  codeCap /= 2;  // 1.5 codes per input byte, rounded down
  WorkBuffer work(total);
  if (!work.get()) return Fail("ACompress::Comp_LZW: out of memory for %lu bytes", total);
  unsigned short* codes = reinterpret_cast<unsigned short*>(work.get() + kHashBytes);
  ulong codeCount = 0;
  if (!PackLzwHash(src, srcLen, codes, codeCap, codeCount, work.get())) return 0;
  return TransformDataBits(codes, codeCount, dst, dstCap, dstLen);
}

int ACompress::UnComp_LZW(const unsigned char* src, ulong srcLen, unsigned char* dst,
                          ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!src || !srcLen || !dst || !dstCap) {
    ASSERT(src && srcLen && dst && dstCap);
    return Fail("ACompress::UnComp_LZW: null buffer or zero length");
  }
  ulong codeBytes, total;
  if (!tqbase::CheckedMul(srcLen, (ulong)sizeof(unsigned short), &codeBytes) ||
      !tqbase::CheckedAdd(codeBytes, kDictBytes, &total))
    return Fail("ACompress::UnComp_LZW: input of %lu bytes is too large", srcLen);
  WorkBuffer work(total);
  if (!work.get()) return Fail("ACompress::UnComp_LZW: out of memory for %lu bytes", total);
  unsigned short* codes = reinterpret_cast<unsigned short*>(work.get() + kDictBytes);
  ulong codeCount = 0;
  if (!ResumeDataBit(src, srcLen, codes, codeCount)) return 0;
  if (!codeCount) return Fail("ACompress::UnComp_LZW: stream of %lu bytes holds no codes", srcLen);
  return UnPackLzwWith(codes, codeCount, dst, dstCap, dstLen, reinterpret_cast<LzwEntry*>(work.get()));
}

// ---------------------------------------------------------------------------
// Base64

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
