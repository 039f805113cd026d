// anxfuns.cpp - annex helpers: float-to-integer conversion and string
// resources.
#include "tqbase/anxfuns.h"

int AnxFloatToInt(double value, BOOL bRound) {
  if (value >= 0) {
    if (bRound) value += 0.5;
    return (int)(value + 1e-10);
  }
  if (bRound) value -= 0.5;
  return (int)(value - 1e-10);
}

DWORD AnxFloatToDWORD(double value, BOOL bRound) {
  if (bRound) value += value >= 0 ? 0.5 : -0.5;
  if (value < 0) return 0;
  return (DWORD)(value + 1e-10);
}

CString AnxLoadString(HINSTANCE module, UINT id) {
  (void)module;
  (void)id;
  return CString();
}
