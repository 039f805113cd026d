// acompress_lzw.h - what the LZW coders share, private to them: the code
// numbers and widths of the stream, byte order, and the borrowed work area.
#ifndef TQBASE_ACOMPRESS_LZW_H
#define TQBASE_ACOMPRESS_LZW_H

#include "acompress_internal.h"

#include "tqbase/memorymanage.h"

#include <cstdint>
#include <cstring>

namespace tqbase {
namespace codec {
namespace lzw {

typedef unsigned long ulong;

const unsigned kClear = 256;
const unsigned kEnd = 257;
const unsigned kFirstCode = 258;
const ulong kCodesPerClear = 3836;  // codes written between clears, counting the clear
const unsigned kMaxStrings = 4096;  // decoder table entries per clear
const ulong kDictEntries = kFirstCode + kMaxStrings;

inline bool LittleEndian() {
  const uint16_t one = 1;
  unsigned char low;
  std::memcpy(&low, &one, 1);
  return low == 1;
}

inline uint32_t ToBigEndian(uint32_t v) {
  if (!LittleEndian()) return v;
#if defined(__GNUC__)
  return __builtin_bswap32(v);
#else
  return (v >> 24) | ((v >> 8) & 0xFF00u) | ((v << 8) & 0xFF0000u) | (v << 24);
#endif
}

inline uint64_t ToBigEndian64(uint64_t v) {
  if (!LittleEndian()) return v;
#if defined(__GNUC__)
  return __builtin_bswap64(v);
#else
  return ((uint64_t)ToBigEndian((uint32_t)v) << 32) | ToBigEndian((uint32_t)(v >> 32));
#endif
}

inline void StoreBE64(unsigned char* p, uint64_t v) {
  v = ToBigEndian64(v);
  std::memcpy(p, &v, 8);
}

inline void StoreBE32(unsigned char* p, uint32_t v) {
  v = ToBigEndian(v);
  std::memcpy(p, &v, 4);
}

// Code width by the code's number since the last clear: 9 bits for 0..254,
// 10 for 255..766, 11 for 767..1,790, 12 from 1,791 on.
inline unsigned WidthFor(uint64_t number) {
  return number < 255 ? 9u : number < 767 ? 10u : number < 1791 ? 11u : 12u;
}
// The number at which codes of `width` bits give way to wider ones.
inline uint64_t WidenAt(unsigned width) {
  return width == 9 ? 255 : width == 10 ? 767 : width == 11 ? 1791 : ~(uint64_t)0;
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

// A memory-manager block that holds at least `need` bytes: the old one
// when it does, else one of twice its size (or `need`, when larger) with
// the first `keep` bytes copied over and the old one freed. Sizes are
// checked against overflow and the block size limit; null (the old block
// kept) when the block cannot grow.
inline unsigned char* GrowBlock(unsigned char* block, ulong& size, ulong need, ulong keep) {
  if (need <= size) return block;
  ulong grown;
  if (!tqbase::CheckedMul(size, 2ul, &grown)) grown = need;
  if (grown < need) grown = need;
  if (grown > 0xFFFFFFFFul) return nullptr;
  unsigned char* p = static_cast<unsigned char*>(AGlobalAllocPtr(GMEM_MOVEABLE, (DWORD)grown));
  if (!p) return nullptr;
  std::memcpy(p, block, keep);
  AGlobalFreePtr(block);
  size = grown;
  return p;
}

}  // namespace lzw
}  // namespace codec
}  // namespace tqbase

#endif  // TQBASE_ACOMPRESS_LZW_H
