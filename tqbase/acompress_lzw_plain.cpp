// acompress_lzw_plain.cpp - the LZW coders in their plain forms, which the
// tests compare the fast ones against: the encoder with its node store and
// sibling lists (IsStrInList), a decoder that spells every string out in a
// store, and the bit stream one bit at a time. Same results, lengths and
// failures as the fast forms; no failure texts.
#include "acompress_lzw.h"

using namespace tqbase::codec;
using namespace tqbase::codec::lzw;

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
        unsigned char* grown = GrowBlock(nodes, storeSize, (ulong)nextOff + 3, storeSize);
        if (!grown) goto done;
        nodes = grown;
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

int tqbase::codec::UnPack_LZWPlain(const unsigned short* codes, ulong codeCount,
                                   unsigned char* dst, ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!codes || !codeCount || !dst || !dstCap) return 0;
  // The store holds the 256 single bytes and then every new string in full;
  // string k is store[start[k] .. start[k] + length[k]).
  ulong storeSize = 2 * codeCount > 258 ? 2 * codeCount : 258, used = 256;
  unsigned char* store = static_cast<unsigned char*>(AGlobalAllocPtr(GMEM_MOVEABLE, (DWORD)storeSize));
  ulong* start = static_cast<ulong*>(AGlobalAllocPtr(GMEM_MOVEABLE, (DWORD)(2 * kDictEntries * sizeof(ulong))));
  ulong* length = start ? start + kDictEntries : nullptr;
  int ok = 0;
  ulong i = 0, w = 0;
  unsigned next = kFirstCode, prev = 0;
  if (!store || !start) goto done;
  for (unsigned k = 0; k < 256; ++k) {
    store[k] = (unsigned char)k;
    start[k] = k;
    length[k] = 1;
  }
  if (codes[0] > 256) goto done;
  while (i < codeCount && (codes[i] == 256 || codes[i] == 257)) ++i;
  if (i == codeCount || codes[i] > 255) goto done;
  // A string goes out only if it leaves 6 spare bytes.
  if (w + 1 + 6 > dstCap) goto done;
  dst[w++] = (unsigned char)codes[i];
  prev = codes[i];
  for (++i; i < codeCount; ++i) {
    unsigned c = codes[i];
    if (c == 257) break;
    if (c == 256) {
      while (i < codeCount && codes[i] == 256) ++i;
      if (i == codeCount || codes[i] == 257) break;
      c = codes[i];
      if (c > 257 || w + 1 + 6 > dstCap) goto done;
      next = kFirstCode;
      dst[w++] = (unsigned char)c;
      prev = c;
      continue;
    }
    if (next - kFirstCode >= 4096) goto done;  // one string too many
    // The new string: the previous one and the current one's first byte,
    // which for a code not yet defined is the previous one's first byte.
    const bool defined = c < next;
    const ulong len = defined ? length[c] : length[prev] + 1;
    if (w + len + 6 > dstCap) goto done;
    const unsigned char firstByte = store[start[defined ? c : prev]];
    if (storeSize - used < length[prev] + 1) {
      unsigned char* grown = GrowBlock(store, storeSize, used + length[prev] + 1, used);
      if (!grown) goto done;
      store = grown;
    }
    std::memcpy(store + used, store + start[prev], length[prev]);
    store[used + length[prev]] = firstByte;
    start[next] = used;
    length[next] = length[prev] + 1;
    used += length[next];
    const unsigned cur = defined ? c : next;
    ++next;
    std::memcpy(dst + w, store + start[cur], length[cur]);
    w += length[cur];
    prev = cur;
  }
  ok = 1;
done:
  dstLen = w;
  if (store) AGlobalFreePtr(store);
  if (start) AGlobalFreePtr(start);
  return ok;
}

int tqbase::codec::TransformDataBitsPlain(const unsigned short* codes, ulong codeCount,
                                          unsigned char* dst, ulong dstCap, ulong& dstLen) {
  dstLen = 0;
  if (!codes || !codeCount || !dst || !dstCap) return 0;
  ulong w = 0, number = 0;
  unsigned byte = 0, filled = 0;
  for (ulong i = 0; i <= codeCount; ++i) {
    // After the last code, zero bits up to the byte's end.
    const unsigned width = i < codeCount ? WidthFor(number) : (filled ? 8 - filled : 0);
    const unsigned code = i < codeCount ? codes[i] : 0;
    for (unsigned b = width; b-- > 0;) {
      byte = (byte << 1) | ((code >> b) & 1);
      if (++filled == 8) {
        dst[w++] = (unsigned char)byte;
        if (w >= dstCap) {
          dstLen = 1;
          return 0;
        }
        byte = filled = 0;
      }
    }
    if (i < codeCount) number = (code == 256 && width == 12) ? 1 : number + 1;
  }
  dstLen = w;
  return 1;
}

int tqbase::codec::ResumeDataBitPlain(const unsigned char* src, ulong srcLen,
                                      unsigned short* codes, ulong& codeCount) {
  codeCount = 0;
  if (!src || !srcLen || !codes) return 0;
  ulong n = 0, number = 0, bit = 0;
  while (srcLen - bit / 8 >= 2) {
    const unsigned width = WidthFor(number);
    unsigned code = 0;
    for (unsigned b = 0; b < width; ++b, ++bit) {
      const unsigned byte = bit / 8 < srcLen ? src[bit / 8] : 0;
      code = (code << 1) | ((byte >> (7 - bit % 8)) & 1);
    }
    codes[n++] = (unsigned short)code;
    if (code == 257) break;
    number = (code == 256 && width == 12) ? 1 : number + 1;
  }
  codeCount = n;
  return 1;
}
