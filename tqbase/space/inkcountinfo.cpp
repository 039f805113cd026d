// inkcountinfo.cpp - CInkCountInfo: per-byte maps of dots and levels for
// packed depths 1, 2 and 4 bits per pixel (8 bits need no map).
#include "tqbase/inkcountinfo.h"

#include "tqbase/acompress.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

namespace {

// s_dots[d][v], s_levels[d][v]: dots and level sum in byte v at depth 1 << d.
BYTE s_dots[3][256];
WORD s_levels[3][256];
std::once_flag s_mapOnce;

void FillMaps() {
  for (int d = 0; d < 3; ++d) {
    int bits = 1 << d, mask = (1 << bits) - 1;
    for (int v = 0; v < 256; ++v) {
      int dots = 0, levels = 0;
      for (int shift = 0; shift < 8; shift += bits) {
        int px = (v >> shift) & mask;
        dots += px != 0;
        levels += px;
      }
      s_dots[d][v] = (BYTE)dots;
      s_levels[d][v] = (WORD)levels;
    }
  }
}

int DepthIndex(int bitsPerPixel) {
  switch (bitsPerPixel) {
    case 1: return 0;
    case 2: return 1;
    case 4: return 2;
    case 8: return 3;
    default: return -1;
  }
}

}  // namespace

BOOL CInkCountInfo::InitMap() {
  std::call_once(s_mapOnce, FillMaps);
  return TRUE;
}

ULONGLONG CInkCountInfo::CountDots(const BYTE* line, DWORD bytes, int bitsPerPixel) {
  int d = DepthIndex(bitsPerPixel);
  if (!line || d < 0) return 0;
  ULONGLONG n = 0;
  if (d == 3) {
    for (DWORD i = 0; i < bytes; ++i) n += line[i] != 0;
    return n;
  }
  InitMap();
  for (DWORD i = 0; i < bytes; ++i) n += s_dots[d][line[i]];
  return n;
}

ULONGLONG CInkCountInfo::CountLevels(const BYTE* line, DWORD bytes, int bitsPerPixel) {
  int d = DepthIndex(bitsPerPixel);
  if (!line || d < 0) return 0;
  ULONGLONG n = 0;
  if (d == 3) {
    for (DWORD i = 0; i < bytes; ++i) n += line[i];
    return n;
  }
  InitMap();
  for (DWORD i = 0; i < bytes; ++i) n += s_levels[d][line[i]];
  return n;
}

void CInkCountInfo::Reset() {
  for (int i = 0; i < MAX_INKS; ++i) ullDots[i] = ullLevels[i] = ullPixels[i] = 0;
  std::memset(ullLevelPixels, 0, sizeof ullLevelPixels);
  std::memset(nDepth, 0, sizeof nDepth);
}

BOOL CInkCountInfo::AddLine(int ink, const BYTE* line, DWORD bytes, int bitsPerPixel) {
  if (ink < 0 || ink >= MAX_INKS || DepthIndex(bitsPerPixel) < 0 || (!line && bytes > 0)) return FALSE;
  if (!line) return TRUE;
  ullDots[ink] += CountDots(line, bytes, bitsPerPixel);
  ullLevels[ink] += CountLevels(line, bytes, bitsPerPixel);
  ullPixels[ink] += (ULONGLONG)bytes * (8 / bitsPerPixel);
  nDepth[ink] = bitsPerPixel;
  if (bitsPerPixel < 8) {
    const int mask = (1 << bitsPerPixel) - 1;
    for (DWORD i = 0; i < bytes; ++i)
      for (int shift = 8 - bitsPerPixel; shift >= 0; shift -= bitsPerPixel) ++ullLevelPixels[ink][(line[i] >> shift) & mask];
  }
  return TRUE;
}

BOOL CInkCountInfo::AddExpandedLine(int ink, const BYTE* pixels, DWORD count, int bitsPerPixel) {
  if (ink < 0 || ink >= MAX_INKS || DepthIndex(bitsPerPixel) < 0 || (!pixels && count > 0)) return FALSE;
  const unsigned top = bitsPerPixel == 8 ? 255u : (1u << bitsPerPixel) - 1;
  ULONGLONG dots = 0, levels = 0;
  for (DWORD i = 0; i < count; ++i) {
    const unsigned v = std::min<unsigned>(pixels[i], top);
    dots += v != 0;
    levels += v;
    if (bitsPerPixel < 8) ++ullLevelPixels[ink][v];
  }
  ullDots[ink] += dots;
  ullLevels[ink] += levels;
  ullPixels[ink] += count;
  nDepth[ink] = bitsPerPixel;
  return TRUE;
}

BOOL CInkCountInfo::AddCodedLine(int ink, const BYTE* stream, DWORD length, DWORD pixels, int bitsPerPixel) {
  if (ink < 0 || ink >= MAX_INKS || DepthIndex(bitsPerPixel) < 0 || !stream || !length || !pixels) return FALSE;
  if (bitsPerPixel == 1) {
    // Counted on the runs: the blank pixels, without decoding the line.
    const unsigned char blank = 0;
    const unsigned long zeros = ACompress::CalcMono(1, 12, (int)pixels, 1, stream, length, &blank);
    // Counting both values tells whether the runs hold exactly `pixels`.
    const unsigned char one = 1;
    const unsigned long ones = ACompress::CalcMono(1, 12, (int)pixels, 1, stream, length, &one);
    if ((ULONGLONG)zeros + ones != pixels) return FALSE;
    ullDots[ink] += ones;
    ullLevels[ink] += ones;
    ullPixels[ink] += pixels;
    ullLevelPixels[ink][0] += zeros;
    ullLevelPixels[ink][1] += ones;
    nDepth[ink] = 1;
    return TRUE;
  }
  std::vector<BYTE> line((size_t)pixels);
  unsigned long n = pixels;
  bool ok;
  if (bitsPerPixel == 2)
    ok = ACompress::UnPack2(stream, length, pixels, line.data()) != 0;
  else if (bitsPerPixel == 4)
    ok = ACompress::UnComp_RLE4(stream, length, line.data(), pixels, n) != 0;
  else
    ok = ACompress::UnComp_RLE8(stream, length, line.data(), pixels, n) != 0;
  if (!ok || n != pixels) return FALSE;
  return AddExpandedLine(ink, line.data(), pixels, bitsPerPixel);
}

double CInkCountInfo::Coverage(int ink) const {
  if (ink < 0 || ink >= MAX_INKS || ullPixels[ink] == 0) return 0.0;
  return 100.0 * (double)ullDots[ink] / (double)ullPixels[ink];
}

double CInkCountInfo::InkAmount(int ink) const {
  if (ink < 0 || ink >= MAX_INKS || ullPixels[ink] == 0 || nDepth[ink] == 0) return 0.0;
  const double top = nDepth[ink] == 8 ? 255.0 : (double)((1 << nDepth[ink]) - 1);
  return 100.0 * (double)ullLevels[ink] / ((double)ullPixels[ink] * top);
}
