// unittrans.h - units and resolutions: conversions of lengths and
// resolutions between units, resolution comparison with unit-aware
// tolerances, range checks and clamps, unit names, CUnitTrans (a length in
// unit-free form) and the zoom-ratio steps.
//
// Units are AResUnit / ASizeUnit values (tqbasexp.h), taken as int so that
// any value may be passed: 0 means the user's default unit (the first two
// fields of g_Flags), and a value outside the lists is treated as the row
// each function names for its default case (dots per inch for resolutions,
// pixels for sizes). Every function asserts that g_Flags' default units are
// set. Nothing here reports through g_Error.
//
// Pixel conversions need a resolution; one of 0 or less (or one that is
// not a finite number) falls back to g_Flags.dDefRes in g_Flags.ResUnit
// when that is a finite number above 0, else to 600 in unit 3 (dots per
// millimetre); 600 goes with unit 3 on purpose, whatever unit the caller
// passed.
//
// Non-finite values, a rule of this library: the conversions compute in
// IEEE arithmetic, so a NaN or infinite value comes out NaN or infinite
// (and a finite one may overflow to an infinity); the whole-number forms
// (ToNDPI, ToNPIXEL, bInteger) follow AnxFloatToInt: beyond the 32-bit
// range they saturate, NaN gives 0. In the comparisons NaN equals nothing
// and lies in no range (RightRes clamps it to the lower limit).
#ifndef TQBASE_UNITTRANS_H
#define TQBASE_UNITTRANS_H

#include "tqbase/anxfuns.h"

// Resolution limits, inclusive, kept in single precision and widened where
// compared: 1..20000 dots per inch, 1/25.4..20000/25.4 dots per millimetre.
#define TQ_MIN_DPI 1.0f
#define TQ_MAX_DPI 20000.0f
#define TQ_MIN_DPMM 0.03937008f
#define TQ_MAX_DPMM 787.40155f

// ---- resolutions ----
// value (> 0, asserted) in resUnit as dots per inch / dots per millimetre.
TQBASE_API double ToDPI(double value, int resUnit = RESUNIT_DEFAULT);
TQBASE_API double ToDPMM(double value, int resUnit = RESUNIT_DEFAULT);
// ToDPI rounded to a whole number.
TQBASE_API int ToNDPI(double value, int resUnit = RESUNIT_DEFAULT);
// value from fromUnit into toUnit; a dots-per-inch target is rounded to a
// whole number when bInteger.
TQBASE_API double ConvertRes(double value, int fromUnit, int toUnit, BOOL bInteger = FALSE);

// ---- sizes ----
// value in sizeUnit as millimetres / inches / pixels at res in resUnit.
TQBASE_API double ToMM(double value, double res, int resUnit = RESUNIT_DEFAULT, int sizeUnit = SIZEUNIT_DEFAULT);
TQBASE_API double ToINCH(double value, double res, int resUnit = RESUNIT_DEFAULT, int sizeUnit = SIZEUNIT_DEFAULT);
TQBASE_API double ToPIXEL(double value, double res, int resUnit = RESUNIT_DEFAULT, int sizeUnit = SIZEUNIT_DEFAULT);
// ToPIXEL rounded to a whole number.
TQBASE_API int ToNPIXEL(double value, double res, int resUnit = RESUNIT_DEFAULT, int sizeUnit = SIZEUNIT_DEFAULT);
// value from fromUnit into toUnit at res (> 0, asserted) in resUnit; a
// pixel target is rounded to a whole number when bInteger.
TQBASE_API double ConvertSize(double value, int fromUnit, int toUnit, double res, int resUnit = RESUNIT_DEFAULT,
                              BOOL bInteger = FALSE);

// ---- comparison and range ----
// The tolerance within which two resolutions in resUnit are equal: one dot
// per inch, 1/25.4 dot per millimetre, and so on per unit.
TQBASE_API double DefResPrecision(int resUnit = RESUNIT_DEFAULT);
TQBASE_API BOOL EqualDPI(double a, double b);    // |a - b| < 1
TQBASE_API BOOL EqualNDPI(double a, double b);   // both round to one integer (NaN: never)
TQBASE_API BOOL EqualDPMM(double a, double b);   // |a - b| <= DefResPrecision(3)
TQBASE_API BOOL EqualRes(double a, double b, int resUnit = RESUNIT_DEFAULT, BOOL bInteger = FALSE);
// value within the resolution limits (and above 0).
TQBASE_API BOOL IsValidRes(double value, int resUnit = RESUNIT_DEFAULT);
// value clamped into the resolution limits.
TQBASE_API double RightRes(double value, int resUnit = RESUNIT_DEFAULT);

// ---- unit names ----
// The unit's display text into buffer (size bytes with the terminator; cut
// at a whole UTF-8 character when short). Returns the bytes written without
// the terminator; an unknown unit gives an empty text and 0.
TQBASE_API int ResUnitString(char* buffer, int size, int resUnit = RESUNIT_DEFAULT);
TQBASE_API int SizeUnitString(char* buffer, int size, int sizeUnit = SIZEUNIT_DEFAULT);
TQBASE_API int ResUnitString(CString& text, int resUnit = RESUNIT_DEFAULT);
TQBASE_API int SizeUnitString(CString& text, int sizeUnit = SIZEUNIT_DEFAULT);

// ---- a length in unit-free form ----
class TQBASE_API CUnitTrans {
public:
  CUnitTrans() : dMM(0), dDPMM(0) {}

  // dMM from value in sizeUnit at res (the sign of value kept); dDPMM from
  // res, 0 when res <= 0 or NaN, or when its dots per millimetre are not
  // finite. Returns IsValid().
  BOOL SetParams(double value, double res, int resUnit = RESUNIT_DEFAULT, int sizeUnit = SIZEUNIT_DEFAULT);
  // Sets only dDPMM, as SetParams does. Returns IsValid().
  BOOL SetRes(double res, int resUnit = RESUNIT_DEFAULT);
  // A resolution is held (above 0 and not equal to 0 within tolerance).
  BOOL IsValid() const;
  // The length in sizeUnit: a whole number of pixels when bInteger, else
  // with at most digits decimals, rounded. 0 when not valid. A length that
  // is not finite follows AnxFloatToInt and AnxFloatPrecision (NaN gives
  // 0, infinities saturate).
  double GetValue(int sizeUnit = SIZEUNIT_DEFAULT, int digits = 2, BOOL bInteger = FALSE) const;

  double dMM;    // the length in millimetres (signed)
  double dDPMM;  // the resolution in dots per millimetre, 0 when none
};

// ---- zoom steps ----
// The view scale moves along one ladder: whole ratios 1..100 above 1:1 and
// whole reciprocals 1/2 .. 1/20000 below it. Each step replaces ratio. A
// ratio that is NaN, 0 or less, or within 1e-10 of 0 counts as 1 first;
// +infinity counts as above 100.
//
// Zoom in: up by whole numbers to 100; below 1:1 by steps of 1 down to
// 1/11 and of a sixth of the reciprocal above that.
TQBASE_API void AnxZoomInRatio(double& ratio);
// Zoom out: the exact reverse of zoom in on the ladder, so that zooming in
// after zooming out returns to the same ratio (for every whole ratio and
// every reciprocal 1/2 .. 1/10000); the smallest ratio is 1/20000.
TQBASE_API void AnxZoomOutRatio(double& ratio);
// The nearest ladder ratio: a whole ratio (at most 100) above 1:1, a whole
// reciprocal (at least 1/20000) below it.
TQBASE_API void AnxZoomNormalRatio(double& ratio);

#endif  // TQBASE_UNITTRANS_H
