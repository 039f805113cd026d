// colorspace.h - ColorSpace: colour-space conversions in double precision
// between RGB (one of sixteen working spaces), XYZ, Lab, LCh, xyY, HSV and
// HSL; the standard illuminants; Bradford chromatic adaptation; colour
// differences (CIE 1976 and CIEDE2000).
//
// Conventions: RGB, HSV's and HSL's S, V, L and xyY's Y, and XYZ are on the
// 0..1 scale (a white of Y = 1); L* is 0..100; hues are degrees 0..360.
// A ColorSpace object holds an RGB working space and the reference white
// of Lab and XYZ (D50 by default, the ICC's connection white). RGB values
// are companded (as stored); XYZ is relative to the reference white, with
// Bradford adaptation from the working space's own white when the two
// differ. Conversions into RGB clamp to 0..1 and return FALSE when they
// had to (the colour lies outside the working space); every other
// conversion keeps its values.
#ifndef TQBASE_COLORSPACE_H
#define TQBASE_COLORSPACE_H

#include "tqbase/tqbasexp.h"

class TQBASE_API ColorSpace {
public:
  enum RgbSpace {
    ADOBE_RGB_1998, APPLE_RGB, BEST_RGB, BETA_RGB, BRUCE_RGB, CIE_RGB, COLORMATCH_RGB, DON_RGB_4,
    ECI_RGB_V2, EKTA_SPACE_PS5, NTSC_RGB, PAL_SECAM_RGB, PROPHOTO_RGB, SMPTE_C_RGB, SRGB, WIDE_GAMUT_RGB,
    RGB_SPACE_COUNT
  };
  enum Illuminant { ILLUM_A, ILLUM_B, ILLUM_C, ILLUM_D50, ILLUM_D55, ILLUM_D65, ILLUM_D75, ILLUM_E,
                    ILLUM_F2, ILLUM_F7, ILLUM_F11, ILLUMINANT_COUNT };
  enum Companding { COMPANDING_GAMMA, COMPANDING_SRGB, COMPANDING_LSTAR };

  // The working space's name ("sRGB", "Adobe RGB (1998)", ...) and the
  // illuminant's ("D65", ...); null when out of range.
  static const char* RgbSpaceName(int space);
  static const char* IlluminantName(int illuminant);
  // Looks a name up (case and spaces ignored); -1 when unknown.
  static int FindRgbSpace(const char* name);
  static int FindIlluminant(const char* name);
  // The illuminant's white (2 degree observer) as XYZ with Y = 1.
  static BOOL WhitePoint(int illuminant, double xyz[3]);

  // An unusable space or white (out of range) falls back to sRGB and D50;
  // IsValid then says FALSE.
  explicit ColorSpace(int rgbSpace = SRGB, int referenceWhite = ILLUM_D50);
  BOOL IsValid() const { return m_valid; }
  int GetRgbSpace() const { return m_space; }
  int GetReferenceWhite() const { return m_white; }

  // RGB <-> XYZ (relative to the reference white).
  void RGBToXYZ(const double rgb[3], double xyz[3]) const;
  BOOL XYZToRGB(const double xyz[3], double rgb[3]) const;
  // XYZ <-> Lab under the reference white; Lab <-> LCh(ab).
  void XYZToLab(const double xyz[3], double lab[3]) const;
  void LabToXYZ(const double lab[3], double xyz[3]) const;
  static void LabToLCh(const double lab[3], double lch[3]);
  static void LChToLab(const double lch[3], double lab[3]);
  // The common chains.
  void RGBToLab(const double rgb[3], double lab[3]) const;
  BOOL LabToRGB(const double lab[3], double rgb[3]) const;
  // XYZ <-> xyY (a black XYZ gives the reference white's chromaticity, Y 0).
  void XYZToxyY(const double xyz[3], double xyy[3]) const;
  static void xyYToXYZ(const double xyy[3], double xyz[3]);
  // RGB <-> HSV and HSL (on the companded values; hue 0 for greys).
  static void RGBToHSV(const double rgb[3], double hsv[3]);
  static void HSVToRGB(const double hsv[3], double rgb[3]);
  static void RGBToHSL(const double rgb[3], double hsl[3]);
  static void HSLToRGB(const double hsl[3], double rgb[3]);

  // Bradford adaptation of an XYZ colour from one white to another.
  static void Adapt(const double xyz[3], const double fromWhite[3], const double toWhite[3], double out[3]);
  // Colour differences of two Lab colours.
  static double DeltaE76(const double lab1[3], const double lab2[3]);
  static double DeltaE2000(const double lab1[3], const double lab2[3]);

  // Companding of one channel of the working space: linear <-> companded.
  double Compand(double linear) const;
  double Linearize(double companded) const;

private:
  int m_space, m_white;
  BOOL m_valid;
  double m_toXYZ[9];    // linear RGB -> XYZ under the reference white
  double m_fromXYZ[9];  // its inverse
  double m_whiteXYZ[3];
};

#endif  // TQBASE_COLORSPACE_H
