// acompress_lzw.cpp - ACompress LZW, bytes to 16-bit codes to bit stream
// (Pack_LZW, TransformDataBits, Comp_LZW) and the node-store lookup
// IsStrInList.
//
// A pair (prefix, byte) is looked up with one load in a direct table that
// is never cleared (its entries are confirmed against the codes made since
// the last clear), and a run of one byte costs one step per code emitted.
// Comp_LZW runs the encoder straight into a 64-bit bit writer rather than
// through a code array; stream, result and failure rules are those of
// Pack_LZW followed by TransformDataBits. Nothing is set up per call in
// proportion to the dictionary.
//
// The decoders live in acompress_lzw_decode.cpp; the plain forms, which the
// tests compare against, in acompress_lzw_plain.cpp. Work buffers come from
// the memory manager's lendable buffer (g_AGV.LockBuffer, a fresh region
// when it is busy) and go back on every path.
#include "acompress_lzw.h"
#include "acompress_simd.h"

#include "tqbase/memorymanage.h"

#include <algorithm>
#include <cstring>

using namespace tqbase::codec;
using namespace tqbase::codec::lzw;

namespace {

// ---- bit stream ----

// Codes into bytes, most significant bit first. While 8 bytes of room are
// left, a code's bits go out with one 8-byte store at the first incomplete
// byte, and the complete bytes are counted; near the end, byte by byte.
// The stream must stay strictly shorter than cap: Put fails as soon as the
// complete bytes reach cap, as a byte-at-a-time packer would.
class BitWriter {
public:
  BitWriter(unsigned char* dst, ulong cap) : m_dst(dst), m_cap(cap), m_fastEnd(cap >= 8 ? cap - 7 : 0) {}
  // code must fit in width bits; width is 9 to 12.
  bool Put(unsigned code, unsigned width) {
    m_acc = (m_acc << width) | code;
    m_bits += width;  // at most 7 + 12
    if (TQ_LIKELY(m_w < m_fastEnd)) {
      StoreBE64(m_dst + m_w, m_acc << (64 - m_bits));
      m_w += m_bits >> 3;
      m_bits &= 7;
      return true;
    }
    while (m_bits >= 8) {
      if (m_cap - m_w <= 1) return false;
      m_bits -= 8;
      m_dst[m_w++] = (unsigned char)(m_acc >> m_bits);
    }
    return true;
  }
  // Writes what is pending, the last byte padded with zero bits.
  bool Finish(ulong& len) {
    const ulong rest = m_bits ? 1 : 0;
    if (m_cap - m_w <= rest) return false;
    if (rest) m_dst[m_w] = (unsigned char)(m_acc << (8 - m_bits));
    len = m_w + rest;
    return true;
  }

private:
  unsigned char* m_dst;
  ulong m_cap;
  ulong m_fastEnd;   // below it, 8 bytes from m_w on are the caller's
  ulong m_w = 0;     // complete bytes; always below m_cap
  uint64_t m_acc = 0;  // pending bits in the low m_bits
  unsigned m_bits = 0;
};

// ---- encoder ----

// The dictionary in one work area of kEncoderBytes, none of which needs
// clearing, neither per call nor at a clear code:
//  - table[prefix << 8 | byte]: the code of that pair, 2 MiB of 16-bit
//    entries, read without being initialised;
//  - keys[code]: the pair of every code made since the last clear.
// A pair is in the dictionary exactly when its table entry holds a code
// below the next free one whose key is the pair: that code was made for
// that pair since the last clear, and a later pair never writes this
// entry. Whatever else the entry holds (an older round's code, another
// coder's bytes) fails one of the two tests. So one load answers a
// lookup, and no probe sequence or wiping costs time per call.
//  - runTop[x], runLen[x]: the longest string of byte x alone in the
//    dictionary and its length K (the strings x, xx, ..., x^K are all
//    there, as each was made from the one before);
//  - runCode[x][k]: the code of x^k for k < kRunCap.
// A run of x after an emitted code then costs one step per code emitted,
// not one per byte: the encoder would extend x through x^K and emit it
// (bench: BM_LzwEncode_Ours on mask and packed lines).
const ulong kTableBytes = (ulong)4096 * 256 * sizeof(uint16_t);
const unsigned kRunCap = 256;
const ulong kKeysOffset = kTableBytes;
const ulong kRunTopOffset = kKeysOffset + 4096 * sizeof(uint32_t);
const ulong kRunLenOffset = kRunTopOffset + 256 * sizeof(uint16_t);
const ulong kRunCodeOffset = kRunLenOffset + 256 * sizeof(uint16_t);
const ulong kEncoderBytes = kRunCodeOffset + 256 * kRunCap * sizeof(uint16_t);

// Pack_LZW's output: the code array. The end code needs a further free
// place after it (codeCount + 1 < codeCap after the last data code).
struct CodeSink {
  unsigned short* codes;
  ulong cap;
  ulong n;
  bool Put(unsigned code, unsigned) {
    if (n >= cap) return false;
    codes[n++] = (unsigned short)code;
    return true;
  }
  bool PutEnd(unsigned) {
    if (n + 1 >= cap) return false;
    codes[n++] = (unsigned short)kEnd;
    return true;
  }
};

// Comp_LZW's output: the codes packed as they come.
struct StreamSink {
  BitWriter bits;
  bool Put(unsigned code, unsigned width) { return bits.Put(code, width); }
  bool PutEnd(unsigned width) { return bits.Put(kEnd, width); }
};

template <class Sink>
class Encoder {
public:
  Encoder(Sink& out, unsigned char* work)
      : m_out(out),
        m_table(reinterpret_cast<uint16_t*>(work)),
        m_keys(reinterpret_cast<uint32_t*>(work + kKeysOffset)),
        m_runTop(reinterpret_cast<uint16_t*>(work + kRunTopOffset)),
        m_runLen(reinterpret_cast<uint16_t*>(work + kRunLenOffset)),
        m_runCode(reinterpret_cast<uint16_t*>(work + kRunCodeOffset)) {
    ResetRuns();
  }

  // Returns 0 when the sink is full; srcLen >= 1.
  int Encode(const unsigned char* src, ulong srcLen) {
    if (!m_out.Put(kClear, 9)) return 0;
    unsigned prefix = src[0];
    ulong i = 1;
    if (i < srcLen && src[i] == prefix && !Run(src, srcLen, i, prefix)) return 0;
    while (i < srcLen) {
      const unsigned c = src[i];
      const uint32_t key = (prefix << 8) | c;
      const unsigned code = m_table[key];
      if ((code - kFirstCode < m_next - kFirstCode) & (m_keys[code & 0xFFFu] == key)) {
        prefix = code;
        ++i;
        continue;
      }
      if (!Emit(prefix, c)) return 0;
      prefix = c;
      ++i;
      if (i < srcLen && src[i] == c && !Run(src, srcLen, i, prefix)) return 0;
    }
    if (!m_out.Put(prefix, m_width)) return 0;
    return m_out.PutEnd(WidthFor(m_sinceClear + 1)) ? 1 : 0;
  }

private:
  // Emits prefix, the longest string found, and makes prefix + c (or, when
  // the round is full, emits a clear code and starts a new round).
  bool Emit(unsigned prefix, unsigned c) {
    if (!m_out.Put(prefix, m_width)) return false;
    if (m_sinceClear < kCodesPerClear) {
      const uint32_t key = (prefix << 8) | c;
      m_table[key] = (uint16_t)m_next;
      m_keys[m_next] = key;
      if (prefix == m_runTop[c]) {  // x^K + x
        const unsigned k = ++m_runLen[c];
        m_runTop[c] = (uint16_t)m_next;
        if (k < kRunCap) m_runCode[c * kRunCap + k] = (uint16_t)m_next;
      }
      ++m_next;
      if (++m_sinceClear == m_widen) {
        ++m_width;
        m_widen = (ulong)WidenAt(m_width);
      }
      return true;
    }
    if (!m_out.Put(kClear, m_width)) return false;
    m_next = kFirstCode;
    m_sinceClear = 1;
    m_width = 9;
    m_widen = 255;
    ResetRuns();
    return true;
  }

  // The prefix is the single byte x and src[i] is x too. Takes the run of
  // x as the byte-by-byte encoder would: with x^K the longest run string,
  // a run of K more bytes extends to x^K and fails on the K-th, which emits
  // x^K and makes x^(K+1); a shorter run r extends to x^(1+r).
  bool Run(const unsigned char* src, ulong srcLen, ulong& i, unsigned& prefix) {
    const unsigned x = prefix;
    for (;;) {
      const unsigned k = m_runLen[x];
      const ulong r = i < srcLen && src[i] == x ? RunOfByte(src + i, std::min<ulong>(srcLen - i, k), (unsigned char)x) : 0;
      if (r < k) {
        // Extends to x^(1+r); past the stored lengths, the byte-by-byte
        // steps take over from the longest stored one.
        const ulong m = std::min<ulong>(1 + r, kRunCap - 1);
        prefix = m == 1 ? x : m_runCode[x * kRunCap + m];
        i += m - 1;
        return true;
      }
      i += k - 1;
      if (!Emit(m_runTop[x], x)) return false;
      ++i;
    }
  }

  void ResetRuns() {
    for (unsigned x = 0; x < 256; ++x) {
      m_runTop[x] = (uint16_t)x;
      m_runLen[x] = 1;
    }
  }

  Sink& m_out;
  uint16_t* const m_table;
  uint32_t* const m_keys;
  uint16_t* const m_runTop;
  uint16_t* const m_runLen;
  uint16_t* const m_runCode;
  // m_sinceClear counts the codes since the last clear, counting it; it is
  // also the number of the next code, whose width is m_width.
  ulong m_sinceClear = 1;
  ulong m_widen = 255;
  unsigned m_width = 9;
  unsigned m_next = kFirstCode;
};

template <class Sink>
int EncodeLzw(const unsigned char* src, ulong srcLen, Sink& out, unsigned char* work) {
  Encoder<Sink> enc(out, work);
  return enc.Encode(src, srcLen);
}

}  // namespace

// ---------------------------------------------------------------------------
// Codes

int ACompress::Pack_LZW(const unsigned char* src, ulong srcLen, unsigned short* codes,
                        ulong codeCap, ulong& codeCount) {
  codeCount = 0;
  if (!CheckArgs("ACompress::Pack_LZW", src, srcLen, codes, codeCap)) return 0;
  WorkBuffer work(kEncoderBytes);
  if (!work.get()) return Fail("ACompress::Pack_LZW: out of memory");
  CodeSink out{codes, codeCap, 0};
  const int ok = EncodeLzw(src, srcLen, out, work.get());
  codeCount = out.n;
  return ok ? 1 : Fail("ACompress::Pack_LZW: code array of %lu codes is full", codeCap);
}

// ---------------------------------------------------------------------------
// Bit stream

int ACompress::TransformDataBits(const unsigned short* codes, ulong codeCount, unsigned char* dst,
                                 ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::TransformDataBits", codes, codeCount, dst, dstCap)) return 0;
  BitWriter out(dst, dstCap);
  uint64_t number = 0, widen = WidenAt(9);
  unsigned width = 9;
  for (ulong i = 0; i < codeCount; ++i) {
    const unsigned code = codes[i];
    if (!out.Put(code & ((1u << width) - 1), width)) goto full;
    if (code == kClear && width == 12) {
      number = 1;
      width = 9;
      widen = WidenAt(9);
    } else if (++number == widen) {
      ++width;
      widen = WidenAt(width);
    }
  }
  if (out.Finish(dstLen)) return 1;
full:
  dstLen = 1;  // as the byte-at-a-time packer left it; not a length
  return Fail("ACompress::TransformDataBits: output buffer of %lu bytes is too small", dstCap);
}

// ---------------------------------------------------------------------------
// Both stages

int ACompress::Comp_LZW(const unsigned char* src, ulong srcLen, unsigned char* dst, ulong dstCap,
                        ulong& dstLen) {
  dstLen = 0;
  if (!CheckArgs("ACompress::Comp_LZW", src, srcLen, dst, dstCap)) return 0;
  ulong codeCap, codeBytes, total;
  if (!tqbase::CheckedMul(srcLen, 3ul, &codeCap) ||
      !tqbase::CheckedMul(codeCap / 2, (ulong)sizeof(unsigned short), &codeBytes) ||
      !tqbase::CheckedAdd(codeBytes, kEncoderBytes, &total))
    return Fail("ACompress::Comp_LZW: input of %lu bytes is too large", srcLen);
  codeCap /= 2;  // 1.5 codes per input byte, rounded down
  if (srcLen < 6) {
    // Here the code array can fill up (every input of 1 to 3 bytes, and
    // 4 or 5 bytes without a repeat), so go through it.
    WorkBuffer work(total);
    if (!work.get()) return Fail("ACompress::Comp_LZW: out of memory for %lu bytes", total);
    unsigned short* codes = reinterpret_cast<unsigned short*>(work.get() + kEncoderBytes);
    CodeSink out{codes, codeCap, 0};
    if (!EncodeLzw(src, srcLen, out, work.get()))
      return Fail("ACompress::Pack_LZW: code array of %lu codes is full", codeCap);
    return TransformDataBits(codes, out.n, dst, dstCap, dstLen);
  }
  // From 6 bytes on it cannot: there are at most srcLen data codes, a clear
  // per 3,835 of them, the first clear and the end code, fewer than
  // 1.5 x srcLen - 1. So only the bit stream's capacity can fail.
  WorkBuffer work(kEncoderBytes);
  if (!work.get()) return Fail("ACompress::Comp_LZW: out of memory for %lu bytes", kEncoderBytes);
  StreamSink out{BitWriter(dst, dstCap)};
  if (EncodeLzw(src, srcLen, out, work.get()) && out.bits.Finish(dstLen)) return 1;
  dstLen = 1;
  return Fail("ACompress::TransformDataBits: output buffer of %lu bytes is too small", dstCap);
}

// ---------------------------------------------------------------------------
// The node-store lookup of the interface (the plain encoder in
// acompress_lzw_plain.cpp builds on it)

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
