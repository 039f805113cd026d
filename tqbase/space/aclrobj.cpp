// aclrobj.cpp - AClrObj: the ink code, flag and mode tables.
#include "tqbase/aclrobj.h"

#include <cmath>
#include <cstring>

namespace {

struct InkEntry {
  unsigned char code;
  const char* longName;
  const char* shortName;
  unsigned long flag;
  COLORREF screen;
};

// Blue and Green are out of flag order (0x40000, 0x20000): the flags are
// fixed values, not positions.
const InkEntry kInks[] = {
    {0, "Cyan", "C", 0x00000001ul, RGB(0, 174, 239)},
    {1, "Magenta", "M", 0x00000002ul, RGB(236, 0, 140)},
    {2, "Yellow", "Y", 0x00000004ul, RGB(255, 242, 0)},
    {3, "Black", "K", 0x00000008ul, RGB(35, 31, 32)},
    {4, "Red", "R", 0x00010000ul, RGB(237, 28, 36)},
    {5, "Blue", "B", 0x00040000ul, RGB(46, 49, 146)},
    {6, "Green", "G", 0x00020000ul, RGB(0, 166, 81)},
    {7, "Orange", "Or", 0x00080000ul, RGB(247, 148, 29)},
    {20, "Light Cyan", "Lc", 0x00000010ul, RGB(128, 214, 247)},
    {21, "Light Magenta", "Lm", 0x00000020ul, RGB(245, 128, 198)},
    {22, "Light Yellow", "Ly", 0x00000040ul, RGB(255, 249, 128)},
    {23, "Light Black(Gray)", "Lk", 0x00000080ul, RGB(147, 149, 152)},
};
const unsigned long kSpotFlag = 0x80000000ul;

const InkEntry* Find(unsigned char code) {
  for (const InkEntry& e : kInks)
    if (e.code == code) return &e;
  return nullptr;
}

bool IsSpot(unsigned char code) { return code >= AClrObj::SPOT_FIRST && code <= AClrObj::SPOT_LAST; }

struct ModeEntry {
  const char* name;
  unsigned char count;
  unsigned char inks[8];
};

// Modes 1..16. Spot planes come before light planes where both occur
// (modes 8, 9, 11); Mono is the first spot ink; the last plane of mode 16
// is code 8, which has no name and no flag.
const ModeEntry kModes[16] = {
    {"CMYK", 4, {0, 1, 2, 3}},
    {"CMYKcm", 6, {0, 1, 2, 3, 20, 21}},
    {"CMYKcmyk", 8, {0, 1, 2, 3, 20, 21, 22, 23}},
    {"CMYK+1SPOT", 5, {0, 1, 2, 3, 200}},
    {"CMYK+2SPOT", 6, {0, 1, 2, 3, 200, 201}},
    {"CMYK+3SPOT", 7, {0, 1, 2, 3, 200, 201, 202}},
    {"CMYK+4SPOT", 8, {0, 1, 2, 3, 200, 201, 202, 203}},
    {"CMYKcm+1SPOT", 7, {0, 1, 2, 3, 200, 20, 21}},
    {"CMYKcm+2SPOT", 8, {0, 1, 2, 3, 200, 201, 20, 21}},
    {"CMYKcmk", 7, {0, 1, 2, 3, 20, 21, 23}},
    {"CMYKcmk+1SPOT", 8, {0, 1, 2, 3, 200, 20, 21, 23}},
    {"Mono", 1, {200}},
    {"CMYKOrB", 6, {0, 1, 2, 3, 7, 5}},
    {"CMYKcmkB", 8, {0, 1, 2, 3, 5, 20, 21, 23}},
    {"CMYKcmOrB", 8, {0, 1, 2, 3, 7, 5, 20, 21}},
    {"CMYKRBOrGr", 8, {0, 1, 2, 3, 4, 5, 7, 8}},
};

}  // namespace

int AClrObj::GetInkInfoFromInkMode(KY_INKINFO& info, int mode) {
  std::memset(&info, 0, sizeof info);
  const ModeEntry& m = kModes[mode >= INKMODE_FIRST && mode <= INKMODE_LAST ? mode - 1 : 0];
  info.nCount = m.count;
  std::memcpy(info.inks, m.inks, sizeof info.inks);
  return info.nCount;
}

BOOL AClrObj::GetInkModeName(CString& name, int mode) {
  name = mode >= INKMODE_FIRST && mode <= INKMODE_LAST ? kModes[mode - 1].name : "";
  return !name.IsEmpty();
}

CString AClrObj::ColorName(unsigned char inkCode, int longForm) {
  CString name;
  if (IsSpot(inkCode))
    name.Format(longForm ? "SpotColor_%d" : "Spot%d", inkCode - SPOT_FIRST);
  else if (const InkEntry* e = Find(inkCode))
    name = longForm ? e->longName : e->shortName;
  return name;
}

BOOL AClrObj::GetInkNameFromInkclrIndex(CString& name, int index) {
  name = index >= 0 && index <= 3 ? kInks[index].shortName : "";
  return !name.IsEmpty();
}

unsigned long AClrObj::TransInkOrderToColor(unsigned char inkCode) {
  if (IsSpot(inkCode)) return kSpotFlag;
  const InkEntry* e = Find(inkCode);
  return e ? e->flag : 0;
}

unsigned char AClrObj::TransColorToInkOrder(unsigned long flag) {
  if (flag == kSpotFlag) return SPOT_FIRST;
  for (const InkEntry& e : kInks)
    if (e.flag == flag) return e.code;
  return INK_NONE;
}

unsigned long AClrObj::TransInkOrderToColor(unsigned char count, const unsigned char* codes) {
  if (!codes) return 0;
  unsigned long flags = 0;
  for (int i = 0; i < count && i < 8; ++i) flags |= TransInkOrderToColor(codes[i]);
  return flags;
}

int AClrObj::TransColorToInkOrder(unsigned long flags, unsigned char* codes, int max) {
  if (!codes || max < 1) return 0;
  int n = 0;
  for (int bit = 0; bit < 32 && n < max; ++bit) {
    const unsigned long f = flags & (1ul << bit);
    if (!f) continue;
    const unsigned char code = TransColorToInkOrder(f);
    if (code != INK_NONE) codes[n++] = code;
  }
  return n;
}

BOOL AClrObj::IsInkInfoEqual(const KY_INKINFO& a, const KY_INKINFO& b) {
  return a.nCount == b.nCount && a.nCount <= 8 && std::memcmp(a.inks, b.inks, a.nCount) == 0;
}

BOOL AClrObj::CMYK_IsValid(const double cmyk[4]) {
  if (!cmyk) return FALSE;
  for (int i = 0; i < 4; ++i)
    if (!std::isfinite(cmyk[i]) || cmyk[i] < 0.0 || cmyk[i] > 100.0) return FALSE;
  return TRUE;
}

COLORREF AClrObj::DefaultColorValue(unsigned char inkCode) {
  static const COLORREF kSpots[4] = {RGB(0, 146, 69), RGB(102, 45, 145), RGB(198, 156, 109), RGB(0, 169, 157)};
  if (IsSpot(inkCode)) return kSpots[(inkCode - SPOT_FIRST) % 4];
  const InkEntry* e = Find(inkCode);
  return e ? e->screen : RGB(255, 255, 255);
}
