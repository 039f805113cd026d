// argbtocmyk.cpp - ARGBToCMYK: the device-formula RGB-to-CMYK conversion
// with full grey component replacement, table driven.
#include "tqbase/argbtocmyk.h"

#include <cstring>

ARGBToCMYK::ARGBToCMYK() : m_bReady(FALSE) { std::memset(m_scale, 0, sizeof m_scale); }

ARGBToCMYK::~ARGBToCMYK() { Exit(); }

BOOL ARGBToCMYK::Init() {
  for (int k = 0; k < 255; ++k) m_scale[k] = (DWORD)((255u << 16) / (DWORD)(255 - k));
  m_bReady = TRUE;
  return TRUE;
}

void ARGBToCMYK::Exit() { m_bReady = FALSE; }

// With m = 255 - K = max(R, G, B): C = (m - R) * 255 / m, rounded.
BOOL ARGBToCMYK::Convert(const BYTE* rgb, BYTE* cmyk, int count) const {
  if (!m_bReady || count < 0 || (count > 0 && (!rgb || !cmyk))) return FALSE;
  for (int i = 0; i < count; ++i, rgb += 3, cmyk += 4) {
    unsigned r = rgb[0], g = rgb[1], b = rgb[2];
    unsigned m = r > g ? r : g;
    if (b > m) m = b;
    unsigned k = 255 - m;
    if (m == 0) {
      cmyk[0] = cmyk[1] = cmyk[2] = 0;
    } else {
      DWORD s = m_scale[k];  // 255 / m in 16.16; (m - r) * s stays below 2^24
      cmyk[0] = (BYTE)(((m - r) * s + 0x8000) >> 16);
      cmyk[1] = (BYTE)(((m - g) * s + 0x8000) >> 16);
      cmyk[2] = (BYTE)(((m - b) * s + 0x8000) >> 16);
    }
    cmyk[3] = (BYTE)k;
  }
  return TRUE;
}

BOOL ARGBToCMYK::ConvertColor(COLORREF rgb, BYTE cmyk[4]) const {
  BYTE px[3] = {GetRValue(rgb), GetGValue(rgb), GetBValue(rgb)};
  return Convert(px, cmyk, 1);
}
