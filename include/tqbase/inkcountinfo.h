// inkcountinfo.h - CInkCountInfo, ink-count statistics: how many dots and
// how much ink (the sum of the dots' levels) each ink puts down, counted
// from packed raster lines of 1, 2, 4 or 8 bits per pixel (first pixel in
// the most significant bits) through per-byte lookup maps.
#ifndef TQBASE_INKCOUNTINFO_H
#define TQBASE_INKCOUNTINFO_H

#include "tqbase/tqbasexp.h"

class TQBASE_API CInkCountInfo {
public:
  enum { MAX_INKS = 16 };

  CInkCountInfo() { Reset(); }

  // Fills the per-byte maps; returns TRUE. Start-up calls it; the counting
  // functions fill the maps themselves if it has not run.
  static BOOL InitMap();
  // Dots (non-zero pixels) and levels (the pixels' values summed) in bytes
  // bytes of a packed line. 0 for a null line or a depth other than 1, 2, 4
  // or 8; every byte is counted in full (pad pixels are expected to be 0).
  static ULONGLONG CountDots(const BYTE* line, DWORD bytes, int bitsPerPixel);
  static ULONGLONG CountLevels(const BYTE* line, DWORD bytes, int bitsPerPixel);

  void Reset();
  // Adds a line of ink (0..MAX_INKS-1) to its totals. FALSE for a bad ink,
  // depth or line.
  BOOL AddLine(int ink, const BYTE* line, DWORD bytes, int bitsPerPixel);

  ULONGLONG ullDots[MAX_INKS];
  ULONGLONG ullLevels[MAX_INKS];
};

#endif  // TQBASE_INKCOUNTINFO_H
