// colorspace.cpp - ColorSpace: the working spaces' primaries, whites and
// companding, the illuminants, and the conversions between spaces.
//
// The RGB-to-XYZ matrix of a working space is built from its primaries'
// chromaticities and its white: the columns are the primaries' XYZ, each
// scaled so that RGB (1, 1, 1) gives the white. When the reference white
// differs from the space's own, the Bradford transform is folded into the
// matrix. Lab uses the CIE's exact constants (epsilon 216/24389, kappa
// 24389/27), so the conversions invert each other to rounding.
#include "tqbase/colorspace.h"

#include <cctype>
#include <cmath>
#include <cstring>

namespace {

struct Space {
  const char* name;
  double xr, yr, xg, yg, xb, yb;
  int white;
  int companding;
  double gamma;
};

const Space kSpaces[ColorSpace::RGB_SPACE_COUNT] = {
    {"Adobe RGB (1998)", 0.6400, 0.3300, 0.2100, 0.7100, 0.1500, 0.0600, ColorSpace::ILLUM_D65, ColorSpace::COMPANDING_GAMMA, 2.2},
    {"Apple RGB", 0.6250, 0.3400, 0.2800, 0.5950, 0.1550, 0.0700, ColorSpace::ILLUM_D65, ColorSpace::COMPANDING_GAMMA, 1.8},
    {"Best RGB", 0.7347, 0.2653, 0.2150, 0.7750, 0.1300, 0.0350, ColorSpace::ILLUM_D50, ColorSpace::COMPANDING_GAMMA, 2.2},
    {"Beta RGB", 0.6888, 0.3112, 0.1986, 0.7551, 0.1265, 0.0352, ColorSpace::ILLUM_D50, ColorSpace::COMPANDING_GAMMA, 2.2},
    {"Bruce RGB", 0.6400, 0.3300, 0.2800, 0.6500, 0.1500, 0.0600, ColorSpace::ILLUM_D65, ColorSpace::COMPANDING_GAMMA, 2.2},
    {"CIE RGB", 0.7350, 0.2650, 0.2740, 0.7170, 0.1670, 0.0090, ColorSpace::ILLUM_E, ColorSpace::COMPANDING_GAMMA, 2.2},
    {"ColorMatch RGB", 0.6300, 0.3400, 0.2950, 0.6050, 0.1500, 0.0750, ColorSpace::ILLUM_D50, ColorSpace::COMPANDING_GAMMA, 1.8},
    {"Don RGB 4", 0.6960, 0.3000, 0.2150, 0.7650, 0.1300, 0.0350, ColorSpace::ILLUM_D50, ColorSpace::COMPANDING_GAMMA, 2.2},
    {"ECI RGB v2", 0.6700, 0.3300, 0.2100, 0.7100, 0.1400, 0.0800, ColorSpace::ILLUM_D50, ColorSpace::COMPANDING_LSTAR, 0},
    {"Ekta Space PS5", 0.6950, 0.3050, 0.2600, 0.7000, 0.1100, 0.0050, ColorSpace::ILLUM_D50, ColorSpace::COMPANDING_GAMMA, 2.2},
    {"NTSC RGB", 0.6700, 0.3300, 0.2100, 0.7100, 0.1400, 0.0800, ColorSpace::ILLUM_C, ColorSpace::COMPANDING_GAMMA, 2.2},
    {"PAL/SECAM RGB", 0.6400, 0.3300, 0.2900, 0.6000, 0.1500, 0.0600, ColorSpace::ILLUM_D65, ColorSpace::COMPANDING_GAMMA, 2.2},
    {"ProPhoto RGB", 0.7347, 0.2653, 0.1596, 0.8404, 0.0366, 0.0001, ColorSpace::ILLUM_D50, ColorSpace::COMPANDING_GAMMA, 1.8},
    {"SMPTE-C RGB", 0.6300, 0.3400, 0.3100, 0.5950, 0.1550, 0.0700, ColorSpace::ILLUM_D65, ColorSpace::COMPANDING_GAMMA, 2.2},
    {"sRGB", 0.6400, 0.3300, 0.3000, 0.6000, 0.1500, 0.0600, ColorSpace::ILLUM_D65, ColorSpace::COMPANDING_SRGB, 0},
    {"Wide Gamut RGB", 0.7350, 0.2650, 0.1150, 0.8260, 0.1570, 0.0180, ColorSpace::ILLUM_D50, ColorSpace::COMPANDING_GAMMA, 2.2},
};

struct White {
  const char* name;
  double X, Z;  // Y = 1
};
// The CIE whites of the 2 degree observer, but for D50 and D65, which
// follow the colour standards that rest on them: D50 is the ICC profile
// connection white (0.9642, 1, 0.8249), and D65 is the white of the sRGB
// standard, from its chromaticity (0.3127, 0.3290). So Lab under D50
// agrees with ICC colour management to well under a thousandth.
const White kWhites[ColorSpace::ILLUMINANT_COUNT] = {
    {"A", 1.09850, 0.35585},  {"B", 0.99072, 0.85223},   {"C", 0.98074, 1.18232}, {"D50", 0.9642, 0.8249},
    {"D55", 0.95682, 0.92149}, {"D65", 0.3127 / 0.3290, (1.0 - 0.3127 - 0.3290) / 0.3290}, {"D75", 0.94972, 1.22638}, {"E", 1.0, 1.0},
    {"F2", 0.99186, 0.67393},  {"F7", 0.95041, 1.08747},  {"F11", 1.00962, 0.64350},
};

const double kEpsilon = 216.0 / 24389.0;
const double kKappa = 24389.0 / 27.0;
const double kPi = 3.14159265358979323846;

void Mul(const double m[9], const double v[3], double out[3]) {
  const double a = m[0] * v[0] + m[1] * v[1] + m[2] * v[2];
  const double b = m[3] * v[0] + m[4] * v[1] + m[5] * v[2];
  const double c = m[6] * v[0] + m[7] * v[1] + m[8] * v[2];
  out[0] = a;
  out[1] = b;
  out[2] = c;
}

void MulM(const double a[9], const double b[9], double out[9]) {
  double r[9];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) r[3 * i + j] = a[3 * i] * b[j] + a[3 * i + 1] * b[3 + j] + a[3 * i + 2] * b[6 + j];
  std::memcpy(out, r, sizeof r);
}

bool Invert(const double m[9], double out[9]) {
  const double c0 = m[4] * m[8] - m[5] * m[7], c1 = m[5] * m[6] - m[3] * m[8], c2 = m[3] * m[7] - m[4] * m[6];
  const double det = m[0] * c0 + m[1] * c1 + m[2] * c2;
  if (det == 0 || !std::isfinite(det)) return false;
  const double r[9] = {c0 / det, (m[2] * m[7] - m[1] * m[8]) / det, (m[1] * m[5] - m[2] * m[4]) / det,
                       c1 / det, (m[0] * m[8] - m[2] * m[6]) / det, (m[2] * m[3] - m[0] * m[5]) / det,
                       c2 / det, (m[1] * m[6] - m[0] * m[7]) / det, (m[0] * m[4] - m[1] * m[3]) / det};
  std::memcpy(out, r, sizeof r);
  return true;
}

const double kBradford[9] = {0.8951, 0.2664, -0.1614, -0.7502, 1.7135, 0.0367, 0.0389, -0.0685, 1.0296};

// The Bradford transform from one white to another, as one matrix.
void BradfordMatrix(const double from[3], const double to[3], double out[9]) {
  double inv[9], s[3], d[3];
  Invert(kBradford, inv);
  Mul(kBradford, from, s);
  Mul(kBradford, to, d);
  const double scale[9] = {d[0] / s[0], 0, 0, 0, d[1] / s[1], 0, 0, 0, d[2] / s[2]};
  double t[9];
  MulM(scale, kBradford, t);
  MulM(inv, t, out);
}

void WhiteXYZ(int illuminant, double xyz[3]) {
  xyz[0] = kWhites[illuminant].X;
  xyz[1] = 1.0;
  xyz[2] = kWhites[illuminant].Z;
}

// Names compared without case, spaces and punctuation.
bool SameName(const char* a, const char* b) {
  for (;;) {
    while (*a && !std::isalnum((unsigned char)*a)) ++a;
    while (*b && !std::isalnum((unsigned char)*b)) ++b;
    if (!*a || !*b) return !*a && !*b;
    if (std::tolower((unsigned char)*a) != std::tolower((unsigned char)*b)) return false;
    ++a;
    ++b;
  }
}

double Clamp01(double v, bool& clamped) {
  if (v < 0.0) {
    clamped = clamped || v < -1e-12;
    return 0.0;
  }
  if (v > 1.0) {
    clamped = clamped || v > 1.0 + 1e-12;
    return 1.0;
  }
  return v;
}

}  // namespace

const char* ColorSpace::RgbSpaceName(int space) {
  return space >= 0 && space < RGB_SPACE_COUNT ? kSpaces[space].name : nullptr;
}

const char* ColorSpace::IlluminantName(int illuminant) {
  return illuminant >= 0 && illuminant < ILLUMINANT_COUNT ? kWhites[illuminant].name : nullptr;
}

int ColorSpace::FindRgbSpace(const char* name) {
  if (!name) return -1;
  for (int i = 0; i < RGB_SPACE_COUNT; ++i)
    if (SameName(name, kSpaces[i].name)) return i;
  if (SameName(name, "Adobe RGB") || SameName(name, "AdobeRGB")) return ADOBE_RGB_1998;
  if (SameName(name, "ProPhoto")) return PROPHOTO_RGB;
  return -1;
}

int ColorSpace::FindIlluminant(const char* name) {
  if (!name) return -1;
  for (int i = 0; i < ILLUMINANT_COUNT; ++i)
    if (SameName(name, kWhites[i].name)) return i;
  return -1;
}

BOOL ColorSpace::WhitePoint(int illuminant, double xyz[3]) {
  if (!xyz || illuminant < 0 || illuminant >= ILLUMINANT_COUNT) return FALSE;
  WhiteXYZ(illuminant, xyz);
  return TRUE;
}

ColorSpace::ColorSpace(int rgbSpace, int referenceWhite) {
  m_valid = rgbSpace >= 0 && rgbSpace < RGB_SPACE_COUNT && referenceWhite >= 0 && referenceWhite < ILLUMINANT_COUNT;
  m_space = m_valid ? rgbSpace : SRGB;
  m_white = m_valid ? referenceWhite : ILLUM_D50;
  const Space& s = kSpaces[m_space];
  // Primaries as XYZ with Y = 1, scaled so that they sum to the white.
  const double P[9] = {s.xr / s.yr, s.xg / s.yg, s.xb / s.yb, 1, 1, 1, (1 - s.xr - s.yr) / s.yr,
                       (1 - s.xg - s.yg) / s.yg, (1 - s.xb - s.yb) / s.yb};
  double own[3], inv[9], S[3];
  WhiteXYZ(s.white, own);
  Invert(P, inv);
  Mul(inv, own, S);
  double M[9] = {P[0] * S[0], P[1] * S[1], P[2] * S[2], P[3] * S[0], P[4] * S[1],
                 P[5] * S[2], P[6] * S[0], P[7] * S[1], P[8] * S[2]};
  WhiteXYZ(m_white, m_whiteXYZ);
  if (s.white != m_white) {
    double B[9];
    BradfordMatrix(own, m_whiteXYZ, B);
    MulM(B, M, M);
  }
  std::memcpy(m_toXYZ, M, sizeof M);
  Invert(m_toXYZ, m_fromXYZ);
}

double ColorSpace::Linearize(double v) const {
  const Space& s = kSpaces[m_space];
  const double sign = v < 0 ? -1.0 : 1.0, a = std::fabs(v);
  switch (s.companding) {
    case COMPANDING_SRGB:
      return sign * (a <= 0.04045 ? a / 12.92 : std::pow((a + 0.055) / 1.055, 2.4));
    case COMPANDING_LSTAR:
      return sign * (a <= 0.08 ? 100.0 * a / kKappa : std::pow((a + 0.16) / 1.16, 3.0));
    default:
      return sign * std::pow(a, s.gamma);
  }
}

double ColorSpace::Compand(double v) const {
  const Space& s = kSpaces[m_space];
  const double sign = v < 0 ? -1.0 : 1.0, a = std::fabs(v);
  switch (s.companding) {
    case COMPANDING_SRGB:
      return sign * (a <= 0.0031308 ? 12.92 * a : 1.055 * std::pow(a, 1.0 / 2.4) - 0.055);
    case COMPANDING_LSTAR:
      return sign * (a <= kEpsilon ? a * kKappa / 100.0 : 1.16 * std::cbrt(a) - 0.16);
    default:
      return sign * std::pow(a, 1.0 / s.gamma);
  }
}

void ColorSpace::RGBToXYZ(const double rgb[3], double xyz[3]) const {
  const double lin[3] = {Linearize(rgb[0]), Linearize(rgb[1]), Linearize(rgb[2])};
  Mul(m_toXYZ, lin, xyz);
}

BOOL ColorSpace::XYZToRGB(const double xyz[3], double rgb[3]) const {
  double lin[3];
  Mul(m_fromXYZ, xyz, lin);
  bool clamped = false;
  for (int i = 0; i < 3; ++i) rgb[i] = Clamp01(Compand(lin[i]), clamped);
  return clamped ? FALSE : TRUE;
}

void ColorSpace::XYZToLab(const double xyz[3], double lab[3]) const {
  double f[3];
  for (int i = 0; i < 3; ++i) {
    const double r = xyz[i] / m_whiteXYZ[i];
    f[i] = r > kEpsilon ? std::cbrt(r) : (kKappa * r + 16.0) / 116.0;
  }
  lab[0] = 116.0 * f[1] - 16.0;
  lab[1] = 500.0 * (f[0] - f[1]);
  lab[2] = 200.0 * (f[1] - f[2]);
}

void ColorSpace::LabToXYZ(const double lab[3], double xyz[3]) const {
  const double fy = (lab[0] + 16.0) / 116.0, fx = lab[1] / 500.0 + fy, fz = fy - lab[2] / 200.0;
  const double fx3 = fx * fx * fx, fz3 = fz * fz * fz;
  const double xr = fx3 > kEpsilon ? fx3 : (116.0 * fx - 16.0) / kKappa;
  const double yr = lab[0] > kKappa * kEpsilon ? fy * fy * fy : lab[0] / kKappa;
  const double zr = fz3 > kEpsilon ? fz3 : (116.0 * fz - 16.0) / kKappa;
  xyz[0] = xr * m_whiteXYZ[0];
  xyz[1] = yr * m_whiteXYZ[1];
  xyz[2] = zr * m_whiteXYZ[2];
}

void ColorSpace::LabToLCh(const double lab[3], double lch[3]) {
  const double L = lab[0], C = std::hypot(lab[1], lab[2]);
  double h = std::atan2(lab[2], lab[1]) * 180.0 / kPi;
  if (h < 0) h += 360.0;
  lch[0] = L;
  lch[1] = C;
  lch[2] = h;
}

void ColorSpace::LChToLab(const double lch[3], double lab[3]) {
  const double h = lch[2] * kPi / 180.0, L = lch[0], C = lch[1];
  lab[0] = L;
  lab[1] = C * std::cos(h);
  lab[2] = C * std::sin(h);
}

void ColorSpace::RGBToLab(const double rgb[3], double lab[3]) const {
  double xyz[3];
  RGBToXYZ(rgb, xyz);
  XYZToLab(xyz, lab);
}

BOOL ColorSpace::LabToRGB(const double lab[3], double rgb[3]) const {
  double xyz[3];
  LabToXYZ(lab, xyz);
  return XYZToRGB(xyz, rgb);
}

void ColorSpace::XYZToxyY(const double xyz[3], double xyy[3]) const {
  const double sum = xyz[0] + xyz[1] + xyz[2];
  const double Y = xyz[1];
  if (sum == 0.0) {
    const double w = m_whiteXYZ[0] + m_whiteXYZ[1] + m_whiteXYZ[2];
    xyy[0] = m_whiteXYZ[0] / w;
    xyy[1] = m_whiteXYZ[1] / w;
  } else {
    xyy[0] = xyz[0] / sum;
    xyy[1] = xyz[1] / sum;
  }
  xyy[2] = Y;
}

void ColorSpace::xyYToXYZ(const double xyy[3], double xyz[3]) {
  const double x = xyy[0], y = xyy[1], Y = xyy[2];
  if (y == 0.0) {
    xyz[0] = xyz[1] = xyz[2] = 0.0;
    return;
  }
  xyz[0] = x * Y / y;
  xyz[1] = Y;
  xyz[2] = (1.0 - x - y) * Y / y;
}

void ColorSpace::RGBToHSV(const double rgb[3], double hsv[3]) {
  const double r = rgb[0], g = rgb[1], b = rgb[2];
  const double mx = std::fmax(r, std::fmax(g, b)), mn = std::fmin(r, std::fmin(g, b)), d = mx - mn;
  double h = 0.0;
  if (d > 0) {
    if (mx == r)
      h = 60.0 * std::fmod((g - b) / d, 6.0);
    else if (mx == g)
      h = 60.0 * ((b - r) / d + 2.0);
    else
      h = 60.0 * ((r - g) / d + 4.0);
    if (h < 0) h += 360.0;
  }
  hsv[0] = h;
  hsv[1] = mx > 0 ? d / mx : 0.0;
  hsv[2] = mx;
}

namespace {
// RGB from hue (degrees), chroma and the amount m added to each channel.
void FromHue(double h, double c, double m, double rgb[3]) {
  h = std::fmod(h, 360.0);
  if (h < 0) h += 360.0;
  const double hp = h / 60.0, x = c * (1.0 - std::fabs(std::fmod(hp, 2.0) - 1.0));
  double r = 0, g = 0, b = 0;
  switch ((int)hp) {
    case 0: r = c, g = x; break;
    case 1: r = x, g = c; break;
    case 2: g = c, b = x; break;
    case 3: g = x, b = c; break;
    case 4: r = x, b = c; break;
    default: r = c, b = x; break;
  }
  rgb[0] = r + m;
  rgb[1] = g + m;
  rgb[2] = b + m;
}
}  // namespace

void ColorSpace::HSVToRGB(const double hsv[3], double rgb[3]) {
  const double c = hsv[2] * hsv[1];
  FromHue(hsv[0], c, hsv[2] - c, rgb);
}

void ColorSpace::RGBToHSL(const double rgb[3], double hsl[3]) {
  double hsv[3];
  RGBToHSV(rgb, hsv);
  const double mx = hsv[2], mn = std::fmin(rgb[0], std::fmin(rgb[1], rgb[2])), l = (mx + mn) / 2.0, d = mx - mn;
  hsl[0] = hsv[0];
  hsl[1] = d == 0 ? 0.0 : d / (1.0 - std::fabs(2.0 * l - 1.0));
  hsl[2] = l;
}

void ColorSpace::HSLToRGB(const double hsl[3], double rgb[3]) {
  const double c = (1.0 - std::fabs(2.0 * hsl[2] - 1.0)) * hsl[1];
  FromHue(hsl[0], c, hsl[2] - c / 2.0, rgb);
}

void ColorSpace::Adapt(const double xyz[3], const double fromWhite[3], const double toWhite[3], double out[3]) {
  double B[9];
  BradfordMatrix(fromWhite, toWhite, B);
  Mul(B, xyz, out);
}

double ColorSpace::DeltaE76(const double a[3], const double b[3]) {
  return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}

// CIEDE2000 with kL = kC = kH = 1.
double ColorSpace::DeltaE2000(const double lab1[3], const double lab2[3]) {
  const double L1 = lab1[0], a1 = lab1[1], b1 = lab1[2], L2 = lab2[0], a2 = lab2[1], b2 = lab2[2];
  const double C1 = std::hypot(a1, b1), C2 = std::hypot(a2, b2), Cm = (C1 + C2) / 2.0;
  const double Cm7 = std::pow(Cm, 7.0), G = 0.5 * (1.0 - std::sqrt(Cm7 / (Cm7 + std::pow(25.0, 7.0))));
  const double a1p = (1.0 + G) * a1, a2p = (1.0 + G) * a2;
  const double C1p = std::hypot(a1p, b1), C2p = std::hypot(a2p, b2);
  auto hue = [](double b, double a) {
    if (a == 0 && b == 0) return 0.0;
    double h = std::atan2(b, a) * 180.0 / kPi;
    return h < 0 ? h + 360.0 : h;
  };
  const double h1p = hue(b1, a1p), h2p = hue(b2, a2p);
  const double dLp = L2 - L1, dCp = C2p - C1p;
  double dhp = 0.0;
  if (C1p * C2p != 0) {
    dhp = h2p - h1p;
    if (dhp > 180.0)
      dhp -= 360.0;
    else if (dhp < -180.0)
      dhp += 360.0;
  }
  const double dHp = 2.0 * std::sqrt(C1p * C2p) * std::sin(dhp * kPi / 360.0);
  const double Lpm = (L1 + L2) / 2.0, Cpm = (C1p + C2p) / 2.0;
  double hpm = h1p + h2p;
  if (C1p * C2p != 0) {
    if (std::fabs(h1p - h2p) <= 180.0)
      hpm /= 2.0;
    else
      hpm = hpm < 360.0 ? (hpm + 360.0) / 2.0 : (hpm - 360.0) / 2.0;
  }
  const double T = 1.0 - 0.17 * std::cos((hpm - 30.0) * kPi / 180.0) + 0.24 * std::cos(2.0 * hpm * kPi / 180.0) +
                   0.32 * std::cos((3.0 * hpm + 6.0) * kPi / 180.0) - 0.20 * std::cos((4.0 * hpm - 63.0) * kPi / 180.0);
  const double dTheta = 30.0 * std::exp(-((hpm - 275.0) / 25.0) * ((hpm - 275.0) / 25.0));
  const double Cpm7 = std::pow(Cpm, 7.0), Rc = 2.0 * std::sqrt(Cpm7 / (Cpm7 + std::pow(25.0, 7.0)));
  const double Lm50 = (Lpm - 50.0) * (Lpm - 50.0);
  const double Sl = 1.0 + 0.015 * Lm50 / std::sqrt(20.0 + Lm50), Sc = 1.0 + 0.045 * Cpm, Sh = 1.0 + 0.015 * Cpm * T;
  const double Rt = -std::sin(2.0 * dTheta * kPi / 180.0) * Rc;
  const double l = dLp / Sl, c = dCp / Sc, h = dHp / Sh;
  return std::sqrt(l * l + c * c + h * h + Rt * c * h);
}
