// inkcountinfo.h - CInkCountInfo, ink-count statistics of a separated job:
// per ink plane, the pixels seen, how many are inked (dots), how much ink
// they carry (the sum of their levels) and, for planes of up to 4 bits,
// how many pixels sit at each level. Lines come packed (1, 2, 4 or 8 bits
// per pixel, first pixel in the most significant bits; counted through
// per-byte maps), expanded (one byte per pixel) or run-length coded in the
// format of their depth (ACompress::Pack); 1-bit coded lines are counted
// without decoding them (ACompress::CalcMono).
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
  // Adds a packed line of ink (0..MAX_INKS-1) to its totals: bytes bytes,
  // all of whose pixels count. FALSE for a bad ink, depth or line.
  BOOL AddLine(int ink, const BYTE* line, DWORD bytes, int bitsPerPixel);
  // An expanded line: pixels values of 0..2^depth - 1 (larger values are
  // taken as the top level).
  BOOL AddExpandedLine(int ink, const BYTE* pixels, DWORD count, int bitsPerPixel);
  // A run-length coded line of `pixels` pixels in the format of its depth
  // (1, 2, 4 or 8). FALSE, and nothing counted, for a stream that does not
  // decode to exactly that many pixels.
  BOOL AddCodedLine(int ink, const BYTE* stream, DWORD length, DWORD pixels, int bitsPerPixel);

  // Inked pixels of the plane in percent of the pixels seen (0 when none).
  double Coverage(int ink) const;
  // Ink in percent of full ink on every pixel seen: levels / (pixels x top
  // level of the plane's depth).
  double InkAmount(int ink) const;

  ULONGLONG ullDots[MAX_INKS];
  ULONGLONG ullLevels[MAX_INKS];
  ULONGLONG ullPixels[MAX_INKS];          // pixels seen
  ULONGLONG ullLevelPixels[MAX_INKS][16]; // pixels per level, planes of up to 4 bits
  int nDepth[MAX_INKS];                   // the depth the plane was counted at (0: none yet)
};

#endif  // TQBASE_INKCOUNTINFO_H
