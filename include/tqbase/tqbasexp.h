// tqbasexp.h - the export macro and the plain records shared by tqBase's
// class families: unit enumerations, the fill mode, combination modes and
// results, and the scanline region piece RSRLINE.
//
// Relies on winport.h for the Windows vocabulary (it defines TQBASE_API).
#ifndef TQBASE_TQBASEXP_H
#define TQBASE_TQBASEXP_H

#include "tqbase/winport.h"

// Resolution units. 0 stands for the user's default resolution unit.
enum AResUnit {
  RESUNIT_DEFAULT = 0,
  RESUNIT_DPI = 1,    // dots per inch
  RESUNIT_DPSM = 2,   // dots per 0.01 mm
  RESUNIT_DPMM = 3,   // dots per millimetre
  RESUNIT_DPCM = 4,   // dots per centimetre
  RESUNIT_DPM = 5     // dots per metre
};

// Size units. 0 stands for the user's default size unit.
enum ASizeUnit {
  SIZEUNIT_DEFAULT = 0,
  SIZEUNIT_PIXEL = 1,
  SIZEUNIT_SM = 2,     // 0.01 mm
  SIZEUNIT_MM = 3,
  SIZEUNIT_CM = 4,
  SIZEUNIT_M = 5,
  SIZEUNIT_INCH = 6
};

// Polygon fill modes, the platform's values: 1 even-odd, 2 non-zero.
enum AFillMode { ALTERNATE_FILL = 1, WINDING_FILL = 2 };

// Region combination modes and results.
enum { RST_AND = 5, RST_OR = 6, RST_DIFF = 7, RST_XOR = 8 };
enum { RST_NOTEMPTY = 0, RST_EMPTY = 1, RST_FAILED = 2 };

// One horizontal run of a region row: both ends inclusive, x1 <= x2.
struct RSRUN {
  int x1;
  int x2;
};

// One scanline region piece: runs row after row from the top row down, the
// number of runs of each row, and the inclusive box. Its invariant and the
// operations on it are CRstLines' (crstlines.h).
struct RSRLINE {
  CArray<RSRUN, const RSRUN&> arRun;   // all runs, row after row, top row first
  CArray<int, int> arCount;            // runs per row, top row first
  RECT rcBox;                          // inclusive bounds

  RSRLINE() { rcBox.left = rcBox.top = rcBox.right = rcBox.bottom = 0; }
};

typedef CArray<RSRLINE*, RSRLINE*> CRasterArray;

#endif  // TQBASE_TQBASEXP_H
