// inkcountinfo.cpp - CInkCountInfo: per-byte maps of dots and levels for
// packed depths 1, 2 and 4 bits per pixel (8 bits need no map).
#include "tqbase/inkcountinfo.h"

#include <mutex>

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
  for (int i = 0; i < MAX_INKS; ++i) ullDots[i] = ullLevels[i] = 0;
}

BOOL CInkCountInfo::AddLine(int ink, const BYTE* line, DWORD bytes, int bitsPerPixel) {
  if (ink < 0 || ink >= MAX_INKS || DepthIndex(bitsPerPixel) < 0 || (!line && bytes > 0)) return FALSE;
  if (!line) return TRUE;
  ullDots[ink] += CountDots(line, bytes, bitsPerPixel);
  ullLevels[ink] += CountLevels(line, bytes, bitsPerPixel);
  return TRUE;
}
