// acompress_lzw_decode.cpp - ACompress LZW, bit stream to 16-bit codes to
// bytes (ResumeDataBit, UnPack_LZW, UnComp_LZW).
//
// No string store: every dictionary string is a slice of the output already
// written (the previous string plus one byte), so an entry is a pointer and
// a length. A fast step takes the common codes, a general step every rule
// of the format. Per call, only the 258 first entries are written. The
// dictionary comes from the memory manager's lendable buffer and goes back
// on every path.
#include "acompress_lzw.h"

#include "tqbase/memorymanage.h"

#include <cstring>

using namespace tqbase::codec;
using namespace tqbase::codec::lzw;

namespace {

// ---- decoder ----

struct LzwEntry {
  const unsigned char* p;  // earlier output, or kSingles for codes 0..255
  ulong length;
};
// The entries of codes 256 and 257 carry a length that no output holds, so
// that the fast step's room check hands them to the general step.
const ulong kNoString = ~(ulong)0 >> 2;
// One entry beyond the last string: the fast step prepares the entry of the
// next free code before that code's string is known.
const ulong kDictBytes = (kDictEntries + 1) * sizeof(LzwEntry);

// Fast copies move a string as one 16-byte block and, when it is longer,
// 32-byte blocks after it: up to kBlock - 1 bytes past its end are read and
// written. (Noise lines hold strings of one to three bytes, mask lines runs
// of tens; bench: BM_LzwDecode_Ours.)
const ulong kBlock = 32;

// The 256 single-byte strings, padded so that a block read from any of
// them stays inside.
struct Singles {
  unsigned char v[256 + kBlock];
  constexpr Singles() : v() {
    for (int i = 0; i < 256; ++i) v[i] = (unsigned char)i;
  }
};
constexpr Singles kSingles;

// Copies len >= 1 bytes in whole blocks. The source may run into the
// destination (the string being defined): every block reads only bytes
// that are final by then or lie past the string's end.
inline void CopyBlocks(const unsigned char* from, unsigned char* to, ulong len) {
  uint64_t head[2];
  std::memcpy(head, from, 16);
  std::memcpy(to, head, 16);
  for (ulong k = 16; k < len; k += 32) {
    uint64_t v[4];
    std::memcpy(v, from + k, 32);
    std::memcpy(to + k, v, 32);
  }
}

// Copies a string of len bytes to `to` (room bytes of capacity from there)
// from earlier output or kSingles, for the general step: whole blocks when
// the capacity allows, else exactly.
inline void CopyString(const unsigned char* from, unsigned char* to, ulong len, ulong room) {
  if (len + kBlock <= room)
    CopyBlocks(from, to, len);
  else
    std::memmove(to, from, len);
}

// The decoder's state between steps. Every string is a slice of the output
// written so far (the previous string plus one byte), so an entry is a
// pointer and a length.
struct DecodeState {
  unsigned char* dst;
  ulong cap;
  LzwEntry* dict;
  ulong w;        // bytes written
  ulong prevOff;  // the previous string is dst[prevOff, prevOff + prevLen)
  ulong prevLen;
  unsigned next;  // the next free code
};

// The fast step, for as long as `codes` gives codes that need none of the
// general step's rules: a string of the dictionary (or the one being
// defined) that fits with a block to spare. It stops in front of any other
// code, leaving it unread.
//
// Its entry for the next free code is made before the code is read: that
// entry is always the previous string plus the first byte of the current
// one, which is written next, at the previous string's end. For the
// string being defined (code == next) that byte is the previous string's
// own first byte, so it is stored there first; any other string's copy
// overwrites it. No branch tells the two cases apart (bench:
// BM_LzwDecode_Ours).
template <class Codes>
inline void FastSteps(DecodeState& s, Codes& codes) {
  if (s.cap < 4 * kBlock) return;
  // A string ending at or below fastEnd leaves room for its last block and
  // for the 6 spare bytes of the capacity rule.
  const ulong fastEnd = s.cap - kBlock;
  // From here on w stays at or below fastEnd, and w plus any entry's
  // length (kNoString included) cannot wrap: only a 32-bit unsigned long
  // with an output of over 3 GiB leaves all to the general step.
  if (s.w >= fastEnd || fastEnd > ~(ulong)0 - kNoString) return;
  unsigned char* const dst = s.dst;
  LzwEntry* const dict = s.dict;
  ulong w = s.w, prevOff = s.prevOff;
  unsigned next = s.next;
  dict[next] = LzwEntry{dst + prevOff, s.prevLen + 1};
  unsigned c;
  while (codes.Peek(c)) {
    if (c > next) break;
    const LzwEntry e = dict[c];
    const ulong wNew = w + e.length;
    if (wNew > fastEnd) break;
    dst[w] = dst[prevOff];
    CopyBlocks(e.p, dst + w, e.length);
    prevOff = w;
    w = wNew;
    dict[++next] = LzwEntry{dst + prevOff, e.length + 1};
    codes.Advance();
  }
  s.w = w;
  s.prevOff = prevOff;
  s.prevLen = dict[next].length - 1;
  s.next = next;
}

// The codes of an array, in order.
class ArrayCodes {
public:
  ArrayCodes(const unsigned short* codes, ulong n) : m_codes(codes), m_n(n) {}
  bool Next(unsigned& code) {
    if (m_i == m_n) return false;
    code = m_codes[m_i++];
    return true;
  }
  // Fast steps for the codes that may still add strings.
  void Fast(DecodeState& s) {
    struct Window {
      const unsigned short* codes;
      ulong i, end;
      bool Peek(unsigned& c) const {
        if (i == end) return false;
        c = codes[i];
        return true;
      }
      void Advance() { ++i; }
    };
    const ulong room = kDictEntries - s.next;
    Window win{m_codes, m_i, m_n - m_i < room ? m_n : m_i + room};
    FastSteps(s, win);
    m_i = win.i;
  }

private:
  const unsigned short* m_codes;
  ulong m_n, m_i = 0;
};

// The codes of a bit stream as ResumeDataBit reads them, end code
// included, nothing after it. Away from the end a code is cut from one
// big-endian 64-bit load at its bit position; the last bytes follow
// ResumeDataBit's own rules (a 3-byte window whose bytes past the stream
// read as 0; the stream ends when fewer than two bytes are left).
class StreamCodes {
public:
  StreamCodes(const unsigned char* src, ulong len) : m_src(src), m_len(len) {}
  bool Next(unsigned& code) {
    const ulong p = (ulong)(m_bit >> 3);
    if (TQ_LIKELY(m_len >= 8 && p <= m_len - 8)) {
      code = Cut(m_bit, m_width);
    } else if (!Tail(p, code)) {
      return false;
    }
    m_bit += m_width;
    if (TQ_UNLIKELY(code - kClear < 2u)) {
      if (code == kEnd) {
        m_len = 0;  // nothing after the end code
        return true;
      }
      if (m_width == 12) {  // a clear at full width restarts the schedule
        m_number = 1;
        m_width = 9;
        m_widen = WidenAt(9);
        return true;
      }
    }
    if (TQ_UNLIKELY(++m_number == m_widen)) m_widen = WidenAt(++m_width);
    return true;
  }

  // Fast steps over the codes that lie wholly in 64-bit loads, one width
  // at a time (the width is a constant of the loop), as many as may still
  // add strings. The fast step takes neither clear nor end codes, so the
  // width schedule only counts.
  void Fast(DecodeState& s) {
    if (m_len < 8) return;
    const uint64_t bitLimit = (uint64_t)(m_len - 7) * 8;  // codes starting below load 8 whole bytes
    for (;;) {
      uint64_t n = m_widen - m_number;
      const uint64_t room = kDictEntries - s.next;
      if (n > room) n = room;
      if (m_bit >= bitLimit || n == 0) return;
      uint64_t end = m_bit + n * m_width;
      if (end > bitLimit) end = bitLimit;
      const uint64_t start = m_bit;
      switch (m_width) {
        case 9: Run<9>(s, end); break;
        case 10: Run<10>(s, end); break;
        case 11: Run<11>(s, end); break;
        default: Run<12>(s, end); break;
      }
      m_number += (m_bit - start) / m_width;
      if (m_number == m_widen) m_widen = WidenAt(++m_width);
      if (m_bit < end) return;  // stopped in front of a code for the general step
    }
  }

private:
  template <unsigned W>
  void Run(DecodeState& s, uint64_t end) {
    struct Window {
      const unsigned char* src;
      uint64_t bit, end;
      bool Peek(unsigned& c) const {
        if (bit >= end) return false;
        c = Cut(src, bit, W);
        return true;
      }
      void Advance() { bit += W; }
    };
    Window win{m_src, m_bit, end};
    FastSteps(s, win);
    m_bit = win.bit;
  }

  // The code of `width` bits at bit position `bit`; 8 bytes from its byte
  // on are readable.
  static unsigned Cut(const unsigned char* src, uint64_t bit, unsigned width) {
    uint64_t word;
    std::memcpy(&word, src + (bit >> 3), 8);
    return (unsigned)((ToBigEndian64(word) << (unsigned)(bit & 7)) >> (64 - width));
  }
  unsigned Cut(uint64_t bit, unsigned width) const { return Cut(m_src, bit, width); }
  bool Tail(ulong p, unsigned& code) const {
    if (m_len - p < 2 || p >= m_len) return false;
    const uint32_t b0 = m_src[p], b1 = m_src[p + 1], b2 = p + 2 < m_len ? m_src[p + 2] : 0;
    const uint32_t word = (b0 << 16) | (b1 << 8) | b2;
    code = (word >> (24 - (unsigned)(m_bit & 7) - m_width)) & ((1u << m_width) - 1);
    return true;
  }
  const unsigned char* m_src;
  ulong m_len;
  uint64_t m_bit = 0;
  uint64_t m_number = 0;  // codes since the last clear at full width
  uint64_t m_widen = WidenAt(9);
  unsigned m_width = 9;
};

// Decodes the codes of in (at least one) into dst; the same results,
// lengths and failures whichever source they come from. Fast steps take
// the common codes; the general step below takes one code with every rule
// of the format (clears, the end, the string being defined, codes beyond
// the dictionary, a full output or dictionary).
template <class Codes>
int DecodeLzw(Codes in, unsigned char* dst, ulong dstCap, ulong& dstLen, LzwEntry* dict) {
  dstLen = 0;
  unsigned c = 0;
  in.Next(c);
  if (c > kClear) return Fail("ACompress::UnPack_LZW: stream starts with code %u", c);
  while (c == kClear || c == kEnd)
    if (!in.Next(c)) return Fail("ACompress::UnPack_LZW: no data codes");
  if (c > 255) return Fail("ACompress::UnPack_LZW: code %u before any string", c);
  // Every string leaves 6 spare bytes: from here on dstLen <= dstCap - 6.
  if (dstCap < 7) return Fail("ACompress::UnPack_LZW: output buffer of %lu bytes is too small", dstCap);
  const ulong limit = dstCap - 6;
  for (unsigned k = 0; k < 256; ++k) dict[k] = LzwEntry{kSingles.v + k, 1};
  dict[kClear] = dict[kEnd] = LzwEntry{kSingles.v, kNoString};
  dst[0] = (unsigned char)c;
  DecodeState s{dst, dstCap, dict, 1, 0, 1, kFirstCode};
  enum { kOk, kFull, kTooMany } failure = kOk;
  for (;;) {
    in.Fast(s);
    if (!in.Next(c)) break;
    if (c == kEnd) break;
    if (c == kClear) {
      bool more;
      while ((more = in.Next(c)) && c == kClear) {
      }
      if (!more || c == kEnd) break;
      if (c > kEnd) {
        dstLen = s.w;
        return Fail("ACompress::UnPack_LZW: code %u right after a clear", c);
      }
      if (s.w + 1 > limit) {
        failure = kFull;
        break;
      }
      s.next = kFirstCode;
      s.prevOff = s.w;
      s.prevLen = 1;
      dst[s.w++] = (unsigned char)c;
      continue;
    }
    if (s.next - kFirstCode >= kMaxStrings) {
      failure = kTooMany;
      break;
    }
    // The new entry is the previous string and the first byte of this one,
    // which starts right where the previous one ended. From the next free
    // code on (codes beyond the dictionary too), this one is that entry.
    LzwEntry e;
    const bool defining = c >= s.next;
    if (defining)
      e = LzwEntry{dst + s.prevOff, s.prevLen + 1};
    else
      e = dict[c];
    if (e.length > limit - s.w) {
      failure = kFull;
      break;
    }
    if (defining) {
      CopyString(dst + s.prevOff, dst + s.w, s.prevLen, dstCap - s.w);
      dst[s.w + s.prevLen] = dst[s.prevOff];
    } else {
      CopyString(e.p, dst + s.w, e.length, dstCap - s.w);
    }
    dict[s.next++] = LzwEntry{dst + s.prevOff, s.prevLen + 1};
    s.prevOff = s.w;
    s.prevLen = e.length;
    s.w += e.length;
  }
  dstLen = s.w;
  if (failure == kTooMany)
    return Fail("ACompress::UnPack_LZW: more than %u strings since a clear", kMaxStrings);
  if (failure == kFull)
    return Fail("ACompress::UnPack_LZW: output buffer of %lu bytes is too small", dstCap);
  return 1;
}

}  // namespace

// ---------------------------------------------------------------------------
// Codes and bit stream

int ACompress::UnPack_LZW(const unsigned short* codes, ulong codeCount, unsigned char* dst,
                          ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::UnPack_LZW", codes, codeCount, dst, dstCap)) return 0;
  WorkBuffer work(kDictBytes);
  if (!work.get()) return Fail("ACompress::UnPack_LZW: out of memory");
  ArrayCodes in(codes, codeCount);
  return DecodeLzw(in, dst, dstCap, dstLen, reinterpret_cast<LzwEntry*>(work.get()));
}

int ACompress::ResumeDataBit(const unsigned char* src, ulong srcLen, unsigned short* codes,
                             ulong& codeCount) {
  codeCount = 0;
  if (!CheckArgs("ACompress::ResumeDataBit", src, srcLen, codes, 1ul)) return 0;
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

int ACompress::UnComp_LZW(const unsigned char* src, ulong srcLen, unsigned char* dst,
                          ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::UnComp_LZW", src, srcLen, dst, dstCap)) return 0;
  // A stream of one byte holds no code; from two bytes on it holds one.
  if (srcLen < 2) return Fail("ACompress::UnComp_LZW: stream of %lu bytes holds no codes", srcLen);
  WorkBuffer work(kDictBytes);
  if (!work.get()) return Fail("ACompress::UnComp_LZW: out of memory for %lu bytes", kDictBytes);
  StreamCodes in(src, srcLen);
  return DecodeLzw(in, dst, dstCap, dstLen, reinterpret_cast<LzwEntry*>(work.get()));
}
