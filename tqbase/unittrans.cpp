// unittrans.cpp - unit and resolution conversions, comparisons, clamps,
// unit names, CUnitTrans and the zoom steps.
//
// Relies on g_Flags (abaseobj.h) for the default units and resolution and
// on the library's string table (anxfuns.h) for the unit names.
//
// Rules of this library worth knowing:
//  - ToINCH divides a length by a fixed divisor per size unit: 0.01 mm by
//    0.254, millimetres by 25.4, centimetres by 254, metres by 25400;
//    inches stay as they are. Only the millimetre divisor is the physical
//    ratio, so for 0.01 mm, centimetres and metres ToINCH is not
//    ToMM / 25.4, and a length converted to inches and back through
//    ConvertSize does not come back for those units.
//  - Pixels (and any unknown size unit) become inches by dividing by the
//    resolution rounded to whole dots per inch, ToNDPI(res, resUnit), after
//    the fallback resolution rule, whereas ToMM divides pixels by the exact
//    dots per millimetre. A resolution that rounds to 0 dots per inch has no
//    whole-number form; ToINCH then divides by the exact ToDPI(res, resUnit)
//    rather than by zero.
#include "tqbase/unittrans.h"

#include "tqbase/abaseobj.h"

#include <cmath>
#include <cstring>

namespace {

const double kMinDPI = (double)TQ_MIN_DPI;
const double kMaxDPI = (double)TQ_MAX_DPI;
const double kMinDPMM = (double)TQ_MIN_DPMM;
const double kMaxDPMM = (double)TQ_MAX_DPMM;

void CheckDefaults() { ASSERT(g_Flags.ResUnit != 0 && g_Flags.SizeUnit != 0); }

int ResUnitOf(int unit) { return unit == RESUNIT_DEFAULT ? (int)g_Flags.ResUnit : unit; }
int SizeUnitOf(int unit) { return unit == SIZEUNIT_DEFAULT ? (int)g_Flags.SizeUnit : unit; }

// The conversions themselves, without the argument checks of the public
// forms (callers that compare differences may pass 0).
double DpiOf(double value, int resUnit) {
  switch (ResUnitOf(resUnit)) {
    case RESUNIT_DPI: return value;
    case RESUNIT_DPSM: return value * 2540.0;
    case RESUNIT_DPCM: return value * 2.54;
    case RESUNIT_DPM: return value * 0.0254;
    default: return value * 25.4;  // dots per millimetre
  }
}

double DpmmOf(double value, int resUnit) {
  switch (ResUnitOf(resUnit)) {
    case RESUNIT_DPSM: return value * 100.0;
    case RESUNIT_DPMM: return value;
    case RESUNIT_DPCM: return value * 0.1;
    case RESUNIT_DPM: return value * 0.001;
    default: return value / 25.4;  // dots per inch
  }
}

// A pixel conversion's resolution: res itself when it is a finite number
// above 0 (NaN and infinities are no resolution), else the user's default
// resolution when that is one, else 600 in unit 3.
void FallbackRes(double& res, int& resUnit) {
  if (res > 0 && std::isfinite(res)) return;
  if (g_Flags.dDefRes > 0 && std::isfinite(g_Flags.dDefRes)) {
    res = g_Flags.dDefRes;
    resUnit = (int)g_Flags.ResUnit;
  } else {
    res = 600.0;
    resUnit = RESUNIT_DPMM;
  }
}

UINT ResUnitStringId(int resUnit) {
  switch (ResUnitOf(resUnit)) {
    case RESUNIT_DPI: return 9;
    case RESUNIT_DPSM: return 14;
    case RESUNIT_DPMM: return 10;
    case RESUNIT_DPCM: return 11;
    case RESUNIT_DPM: return 12;
    default: return 0;
  }
}

UINT SizeUnitStringId(int sizeUnit) {
  switch (SizeUnitOf(sizeUnit)) {
    case SIZEUNIT_PIXEL: return 5;
    case SIZEUNIT_SM: return 13;
    case SIZEUNIT_MM: return 6;
    case SIZEUNIT_CM: return 7;
    case SIZEUNIT_M: return 8;
    case SIZEUNIT_INCH: return 22;
    default: return 0;
  }
}

// Copies text into buffer, cut at a whole UTF-8 character when it does not
// fit. Returns the bytes copied without the terminator.
int CopyText(char* buffer, int size, const CString& text) {
  if (!buffer || size <= 0) {
    ASSERT(buffer != nullptr && size > 0);
    return 0;
  }
  int n = text.GetLength();
  if (n > size - 1) {
    n = size - 1;
    while (n > 0 && ((unsigned char)text[n] & 0xC0) == 0x80) --n;  // text[n] starts the cut character
  }
  if (n > 0) std::memcpy(buffer, text.GetString(), (size_t)n);
  buffer[n] = '\0';
  return n;
}

}  // namespace

// ---------------------------------------------------------------------------
// Resolutions

double ToDPI(double value, int resUnit) {
  CheckDefaults();
  ASSERT(value > 0);
  return DpiOf(value, resUnit);
}

double ToDPMM(double value, int resUnit) {
  CheckDefaults();
  ASSERT(value > 0);
  return DpmmOf(value, resUnit);
}

int ToNDPI(double value, int resUnit) { return AnxFloatToInt(ToDPI(value, resUnit), TRUE); }

double ConvertRes(double value, int fromUnit, int toUnit, BOOL bInteger) {
  CheckDefaults();
  switch (ResUnitOf(toUnit)) {
    case RESUNIT_DPSM: return ToDPMM(value, fromUnit) / 100.0;
    case RESUNIT_DPMM: return ToDPMM(value, fromUnit);
    case RESUNIT_DPCM: return ToDPMM(value, fromUnit) * 10.0;
    case RESUNIT_DPM: return ToDPMM(value, fromUnit) * 1000.0;
    default: return bInteger ? (double)ToNDPI(value, fromUnit) : ToDPI(value, fromUnit);
  }
}

// ---------------------------------------------------------------------------
// Sizes

double ToMM(double value, double res, int resUnit, int sizeUnit) {
  CheckDefaults();
  switch (SizeUnitOf(sizeUnit)) {
    case SIZEUNIT_SM: return value / 100.0;
    case SIZEUNIT_MM: return value;
    case SIZEUNIT_CM: return value * 10.0;
    case SIZEUNIT_M: return value * 1000.0;
    case SIZEUNIT_INCH: return value * 25.4;
    default:
      FallbackRes(res, resUnit);
      return value / ToDPMM(res, resUnit);
  }
}

// Fixed divisors per size unit (see the rules at the top of this file):
// lengths that callers stored in inches were computed with exactly these.
double ToINCH(double value, double res, int resUnit, int sizeUnit) {
  CheckDefaults();
  switch (SizeUnitOf(sizeUnit)) {
    case SIZEUNIT_SM: return value / 0.254;
    case SIZEUNIT_MM: return value / 25.4;
    case SIZEUNIT_CM: return value / 254.0;
    case SIZEUNIT_M: return value / 25400.0;
    case SIZEUNIT_INCH: return value;
    default: {
      FallbackRes(res, resUnit);
      int dpi = ToNDPI(res, resUnit);
      return dpi != 0 ? value / (double)dpi : value / ToDPI(res, resUnit);
    }
  }
}

double ToPIXEL(double value, double res, int resUnit, int sizeUnit) {
  CheckDefaults();
  int unit = SizeUnitOf(sizeUnit);
  if (unit == SIZEUNIT_PIXEL) return value;
  FallbackRes(res, resUnit);
  if (unit == SIZEUNIT_INCH && ResUnitOf(resUnit) == RESUNIT_DPI) return value * res;
  double d = ToDPMM(res, resUnit);
  switch (unit) {
    case SIZEUNIT_SM: return value * (d / 100.0);
    case SIZEUNIT_CM: return value * d * 10.0;
    case SIZEUNIT_M: return value * d * 1000.0;
    case SIZEUNIT_INCH: return value * d * 25.4;
    default: return value * d;  // millimetres
  }
}

int ToNPIXEL(double value, double res, int resUnit, int sizeUnit) {
  return AnxFloatToInt(ToPIXEL(value, res, resUnit, sizeUnit), TRUE);
}

double ConvertSize(double value, int fromUnit, int toUnit, double res, int resUnit, BOOL bInteger) {
  CheckDefaults();
  ASSERT(res > 0);
  switch (SizeUnitOf(toUnit)) {
    case SIZEUNIT_SM: return ToMM(value, res, resUnit, fromUnit) * 100.0;
    case SIZEUNIT_MM: return ToMM(value, res, resUnit, fromUnit);
    case SIZEUNIT_CM: return ToMM(value, res, resUnit, fromUnit) / 10.0;
    case SIZEUNIT_M: return ToMM(value, res, resUnit, fromUnit) / 1000.0;
    case SIZEUNIT_INCH: return ToINCH(value, res, resUnit, fromUnit);
    default:
      return bInteger ? (double)ToNPIXEL(value, res, resUnit, fromUnit) : ToPIXEL(value, res, resUnit, fromUnit);
  }
}

// ---------------------------------------------------------------------------
// Comparison and range

double DefResPrecision(int resUnit) {
  CheckDefaults();
  switch (ResUnitOf(resUnit)) {
    case RESUNIT_DPI: return 1.0;
    case RESUNIT_DPSM: return kMinDPMM / 100.0;
    case RESUNIT_DPCM: return kMinDPMM * 10.0;
    case RESUNIT_DPM: return kMinDPMM * 1000.0;
    default: return kMinDPMM;
  }
}

BOOL EqualDPI(double a, double b) {
  CheckDefaults();
  return std::fabs(a - b) < 1.0;
}

BOOL EqualNDPI(double a, double b) {
  CheckDefaults();
  // NaN equals nothing, although AnxFloatToInt takes it to 0.
  if (std::isnan(a) || std::isnan(b)) return FALSE;
  return AnxFloatToInt(a, TRUE) == AnxFloatToInt(b, TRUE);
}

BOOL EqualDPMM(double a, double b) {
  CheckDefaults();
  return std::fabs(a - b) <= DefResPrecision(RESUNIT_DPMM);
}

BOOL EqualRes(double a, double b, int resUnit, BOOL bInteger) {
  CheckDefaults();
  switch (ResUnitOf(resUnit)) {
    case RESUNIT_DPSM:
    case RESUNIT_DPMM:
    case RESUNIT_DPCM:
    case RESUNIT_DPM: return DpmmOf(std::fabs(a - b), resUnit) <= DefResPrecision(RESUNIT_DPMM);
    default: return bInteger ? EqualNDPI(a, b) : EqualDPI(a, b);
  }
}

BOOL IsValidRes(double value, int resUnit) {
  CheckDefaults();
  if (!(value > 0)) return FALSE;
  if (ResUnitOf(resUnit) == RESUNIT_DPI) return kMinDPI <= value && value <= kMaxDPI;
  double d = DpmmOf(value, resUnit);
  return kMinDPMM <= d && d <= kMaxDPMM;
}

// NaN, which lies in no range, clamps to the lower limit.
double RightRes(double value, int resUnit) {
  CheckDefaults();
  int unit = ResUnitOf(resUnit);
  if (unit == RESUNIT_DPI) {
    if (value > kMaxDPI) return kMaxDPI;
    return value >= kMinDPI ? value : kMinDPI;
  }
  double d = DpmmOf(value, unit);
  if (d > kMaxDPMM) return ConvertRes(kMaxDPMM, RESUNIT_DPMM, unit, TRUE);
  if (!(d >= kMinDPMM)) return ConvertRes(kMinDPMM, RESUNIT_DPMM, unit, TRUE);
  return value;
}

// ---------------------------------------------------------------------------
// Unit names

int ResUnitString(char* buffer, int size, int resUnit) {
  CheckDefaults();
  UINT id = ResUnitStringId(resUnit);
  return CopyText(buffer, size, id ? AnxLoadString(tqGetModuleInstance(), id) : CString());
}

int SizeUnitString(char* buffer, int size, int sizeUnit) {
  CheckDefaults();
  UINT id = SizeUnitStringId(sizeUnit);
  return CopyText(buffer, size, id ? AnxLoadString(tqGetModuleInstance(), id) : CString());
}

int ResUnitString(CString& text, int resUnit) {
  CheckDefaults();
  UINT id = ResUnitStringId(resUnit);
  text = id ? AnxLoadString(tqGetModuleInstance(), id) : CString();
  return text.GetLength();
}

int SizeUnitString(CString& text, int sizeUnit) {
  CheckDefaults();
  UINT id = SizeUnitStringId(sizeUnit);
  text = id ? AnxLoadString(tqGetModuleInstance(), id) : CString();
  return text.GetLength();
}

// ---------------------------------------------------------------------------
// CUnitTrans

BOOL CUnitTrans::SetParams(double value, double res, int resUnit, int sizeUnit) {
  dMM = value < 0 ? -ToMM(-value, res, resUnit, sizeUnit) : ToMM(value, res, resUnit, sizeUnit);
  return SetRes(res, resUnit);
}

BOOL CUnitTrans::SetRes(double res, int resUnit) {
  const double d = res > 0 ? ToDPMM(res, resUnit) : 0.0;
  dDPMM = std::isfinite(d) ? d : 0.0;  // an infinite resolution is none
  return IsValid();
}

BOOL CUnitTrans::IsValid() const { return dDPMM > 0 && !EqualDPMM(dDPMM, 0); }

double CUnitTrans::GetValue(int sizeUnit, int digits, BOOL bInteger) const {
  if (!IsValid()) return 0;
  double v = ConvertSize(dMM, SIZEUNIT_MM, sizeUnit, dDPMM, RESUNIT_DPMM, bInteger);
  return bInteger ? v : AnxFloatPrecision(v, digits, TRUE);
}

// ---------------------------------------------------------------------------
// Zoom steps
//
// Below 1:1 a ratio stands for a whole reciprocal 1/n and zoom in reads n
// back as floor(1 / ratio). For some n (93 is the first) the double nearest
// 1/n reads back as n - 1, so every step stores 1/n as the largest double
// not above 1/n that reads back as n: the same double for all but a few n,
// one unit in the last place below it for those. That keeps each ladder
// ratio a single double, which the steps map onto each other exactly.
//
// Zoom in from 1/n goes to 1/g(n) with g(n) = n - 1 for n < 11.1,
// n - floor(n/6) up to 10001, n - 10000 beyond (at most 20000). Zoom out
// takes 1/n to the largest m with g(m) = n, so zoom in undoes it exactly;
// for n above 10000 no m up to 20000 exists and zoom out stops at 1/20000.

namespace {

const double kMaxZoom = 100.0;
const double kMinZoomReciprocal = 20000.0;

double Reciprocal(double n) {
  double r = 1.0 / n;
  while (r > 0 && std::floor(1.0 / r) < n) r = std::nextafter(r, 0.0);
  return r;
}

// The largest m with g(m) == n (see above), or 20000.
double ZoomOutIndex(double n) {
  if (n <= 9) return n + 1;
  if (n <= 8335) {
    // m = 6q + s, s < 5, gives g(m) = 5q + s; q = n / 5, s = n % 5.
    long long k = (long long)n;
    long long m = 6 * (k / 5) + k % 5;
    return (double)(m > 10001 ? 10001 : m);
  }
  if (n <= 10000) return n + 10000;
  return kMinZoomReciprocal;
}

// The whole number nearest x when x is one within rounding error.
bool NearWhole(double x, double* whole) {
  double w = std::nearbyint(x);
  if (std::fabs(x - w) <= 1e-9 * (w > 1 ? w : 1)) {
    *whole = w;
    return true;
  }
  return false;
}

}  // namespace

void AnxZoomInRatio(double& ratio) {
  if (!(ratio > 0) || std::fabs(ratio) < 1e-10) ratio = 1;  // NaN too
  if (ratio >= 1) {
    ratio = std::ceil(ratio) + 1;
  } else {
    double n = std::floor(1.0 / ratio);
    double step = n < 11.1 ? 1 : (n <= 10001.1 ? std::floor(n / 6) : 10000);
    n -= step;
    if (n > kMinZoomReciprocal) n = kMinZoomReciprocal;
    ratio = n >= 1 ? Reciprocal(n) : 1;
  }
  if (ratio > kMaxZoom) ratio = kMaxZoom;
}

// The mirror of zoom in: the current ratio is first taken to the ladder
// ratio at or below it (zoom in takes it to the one at or above), then one
// step is made down.
void AnxZoomOutRatio(double& ratio) {
  if (!(ratio > 0) || std::fabs(ratio) < 1e-10) ratio = 1;
  if (ratio > kMaxZoom) ratio = kMaxZoom;
  double n;  // the reciprocal to step down from
  if (ratio >= 1) {
    double k;
    if (!NearWhole(ratio, &k)) k = std::floor(ratio);
    if (k >= 2) {
      ratio = k - 1;
      return;
    }
    n = 1;
  } else {
    double x = 1.0 / ratio;
    if (!NearWhole(x, &n)) n = std::ceil(x);
    if (n > kMinZoomReciprocal) n = kMinZoomReciprocal;
  }
  ratio = Reciprocal(ZoomOutIndex(n));
}

void AnxZoomNormalRatio(double& ratio) {
  if (!(ratio > 0) || std::fabs(ratio) < 1e-10) {
    ratio = 1;
    return;
  }
  if (ratio >= 1) {
    double k = std::floor(ratio + 0.5);
    ratio = k > kMaxZoom ? kMaxZoom : k;
    return;
  }
  double n = std::floor(1.0 / ratio + 0.5);
  if (n < 1) n = 1;
  if (n > kMinZoomReciprocal) n = kMinZoomReciprocal;
  ratio = Reciprocal(n);
}
