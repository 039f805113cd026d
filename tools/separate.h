// separate.h - RGB pictures into the ink planes of an ink mode, through
// the library's colour engine (g_RGBtoCMYK), for `tqbase cmyk` and the
// demo.
//
// The engine gives C, M, Y and K. A mode's light inks take the light part
// of their dark ink: light = min(1, 2v), dark = max(0, 2v - 1) for the
// dark ink's amount v (so the two together hold v); Orange, Red, Green,
// Blue, spot inks and inks without a name get empty planes.
#ifndef TQBASE_TOOLS_SEPARATE_H
#define TQBASE_TOOLS_SEPARATE_H

#include "image_io.h"

#include <tqbase/tqbase.h>

#include <string>
#include <vector>

namespace tqtool {

struct Plane {
  unsigned char code;  // ink code
  std::string name;    // short name ("C", "Lc", "Spot0", ...)
  Image ink;           // one byte per pixel: 0 no ink .. 255 full ink
};

// The planes of `mode` for an RGB image (depth 24); false with err when
// the engine cannot convert.
bool Separate(const Image& rgb, int mode, std::vector<Plane>& planes, std::string* err);
// A plane as a picture: ink dark on white.
Image InkPicture(const Image& ink);
// An ink mode by number or by name (any case); -1 when unknown.
int FindInkMode(const std::string& text);

}  // namespace tqtool

#endif  // TQBASE_TOOLS_SEPARATE_H
