// aclrobj.h - the ink model: ink codes (one byte naming an ink kind and
// ordering planes), ink colour flags (one bit per ink kind, for sets of
// inks), and ink modes (1..16, each an ordered list of ink codes in a
// KY_INKINFO). All members of AClrObj are static.
//
// Ink codes: 0 Cyan, 1 Magenta, 2 Yellow, 3 Black, 4 Red, 5 Blue, 6 Green,
// 7 Orange, 20..23 the light inks (Light Cyan, Light Magenta, Light
// Yellow, Light Black(Gray)), 200..219 spot inks 0..19. Any other code has
// no name and the flag 0.
#ifndef TQBASE_ACLROBJ_H
#define TQBASE_ACLROBJ_H

#include "tqbase/tqbasexp.h"

#pragma pack(push, 1)
// The inks of a mode: how many (0..8), then their codes in plane order;
// unused entries are 0.
struct KY_INKINFO {
  unsigned char nCount;
  unsigned char inks[8];
};
#pragma pack(pop)
static_assert(sizeof(KY_INKINFO) == 9, "KY_INKINFO is 9 bytes");

class TQBASE_API AClrObj {
public:
  enum { INKMODE_FIRST = 1, INKMODE_LAST = 16, SPOT_FIRST = 200, SPOT_LAST = 219, INK_NONE = 255 };

  // Clears all 9 bytes, fills info from the mode table and returns the ink
  // count. An unknown mode gives the four process inks, like mode 1.
  static int GetInkInfoFromInkMode(KY_INKINFO& info, int mode);
  // The mode's name ("CMYK", "CMYKcm", ...); empty and FALSE for an
  // unknown mode.
  static BOOL GetInkModeName(CString& name, int mode);
  // The ink's long ("Cyan", "SpotColor_3") or short ("C", "Spot3") name;
  // empty for a code without a name.
  static CString ColorName(unsigned char inkCode, int longForm);
  // "C", "M", "Y", "K" for the process inks 0..3; empty (FALSE) otherwise.
  static BOOL GetInkNameFromInkclrIndex(CString& name, int index);
  // The ink's colour flag; every spot ink gives 0x80000000, an unknown
  // code 0.
  static unsigned long TransInkOrderToColor(unsigned char inkCode);
  // The ink code of a single flag: 0x80000000 gives 200 (the spot number is
  // not kept); any other value, combinations of flags included, gives 255.
  static unsigned char TransColorToInkOrder(unsigned long flag);

  // ---- helpers on the same vocabularies --------------------------------------

  // The flags of count inks combined (count clamped to 0..8; null codes
  // give 0). For the inks of a KY_INKINFO: (info.nCount, info.inks).
  static unsigned long TransInkOrderToColor(unsigned char count, const unsigned char* codes);
  // The ink codes of a set of flags, lowest bit first, into codes (at most
  // max); returns how many were written. The spot flag gives code 200.
  static int TransColorToInkOrder(unsigned long flags, unsigned char* codes, int max);
  // Equal counts and equal codes in the counted places (what lies beyond
  // the count does not matter).
  static BOOL IsInkInfoEqual(const KY_INKINFO& a, const KY_INKINFO& b);
  // A CMYK colour in percent: every component finite and within 0..100.
  static BOOL CMYK_IsValid(const double cmyk[4]);
  // The colour an ink is shown in on screen (COLORREF, red in the low
  // byte): the process and extra inks their own hue, the light inks a
  // lighter one, Light Black grey, spot inks a fixed palette by spot
  // number; white for a code without a name.
  static COLORREF DefaultColorValue(unsigned char inkCode);
};

#endif  // TQBASE_ACLROBJ_H
