// argbtocmyk.h - ARGBToCMYK, the RGB-to-CMYK engine (g_RGBtoCMYK for
// output, g_InputCMYK for CMYK input). Until an ICC profile pair is
// attached the engine converts by the device formula with full grey
// component replacement: K = 255 - max(R, G, B), and C, M, Y the remaining
// shares of the other channels.
#ifndef TQBASE_ARGBTOCMYK_H
#define TQBASE_ARGBTOCMYK_H

#include "tqbase/tqbasexp.h"

class TQBASE_API ARGBToCMYK {
public:
  ARGBToCMYK();
  ~ARGBToCMYK();
  ARGBToCMYK(const ARGBToCMYK&) = delete;
  ARGBToCMYK& operator=(const ARGBToCMYK&) = delete;

  // Prepares the engine; TRUE when it can convert. Never stops the load.
  BOOL Init();
  // Releases what Init prepared; Convert fails until the next Init.
  void Exit();
  BOOL IsReady() const { return m_bReady; }

  // count pixels: rgb holds R, G, B bytes per pixel, cmyk receives C, M, Y,
  // K bytes per pixel. FALSE when not ready or given null buffers.
  BOOL Convert(const BYTE* rgb, BYTE* cmyk, int count) const;
  // One colour (COLORREF order: red in the low byte) to C, M, Y, K.
  BOOL ConvertColor(COLORREF rgb, BYTE cmyk[4]) const;

private:
  BOOL m_bReady;
  // 255 / (255 - K) for K in 0..254 as a 16.16 fraction: the division of
  // every chromatic channel by the range that K leaves.
  DWORD m_scale[255];
};

extern TQBASE_API ARGBToCMYK g_RGBtoCMYK;
extern TQBASE_API ARGBToCMYK g_InputCMYK;

#endif  // TQBASE_ARGBTOCMYK_H
