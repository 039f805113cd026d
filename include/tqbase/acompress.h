// acompress.h - ACompress: packing and expanding raster lines between
// packed (1, 2, 4 bits per pixel, first pixel in the most significant bits)
// and one-byte-per-pixel forms, the run-length codecs per depth, LZW and
// Base64. All members are static; the tables are filled once by Init.
#ifndef TQBASE_ACOMPRESS_H
#define TQBASE_ACOMPRESS_H

#include "tqbase/tqbasexp.h"

class TQBASE_API ACompress {
public:
  // Fills the bit-packing tables; returns 1. Called once at start-up.
  static BOOL Init();
  // Releases nothing; the tables stay readable.
  static void Exit();
};

#endif  // TQBASE_ACOMPRESS_H
