// test_units.cpp - units and resolutions: the conversions against an
// independent model on seeded random inputs, the boundaries of the
// resolution range, the number and unit texts, string tables, CUnitTrans
// and the zoom ladder.
#include <gtest/gtest.h>

#include <tqbase/tqbase.h>

#include "test_support.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>

namespace {

// Keeps g_Flags as it was around each test that changes the defaults.
class UnitsTest : public ::testing::Test {
protected:
  void SetUp() override { m_saved = g_Flags; }
  void TearDown() override { g_Flags = m_saved; }
  AGFLAGS m_saved;
};

bool Close(double a, double b, double rel = 1e-12) {
  return std::fabs(a - b) <= rel * std::fmax(1.0, std::fmax(std::fabs(a), std::fabs(b)));
}

TEST_F(UnitsTest, FallbackResolutionAndDefaultUnits) {
  // No resolution and no default resolution: 600 dots per millimetre.
  g_Flags.dDefRes = 0;
  EXPECT_DOUBLE_EQ(ToMM(100, 0, 1, 1), 100.0 / 600.0);
  EXPECT_DOUBLE_EQ(ToPIXEL(1, -5, 1, 3), 600.0);
  // A default resolution is used in the default unit, not the given one.
  g_Flags.ResUnit = RESUNIT_DPI;
  g_Flags.dDefRes = 254;
  EXPECT_DOUBLE_EQ(ToMM(100, 0, 3, 1), 10.0);
  EXPECT_DOUBLE_EQ(ToINCH(254, 0, 3, 1), 1.0);
  EXPECT_EQ(ToNPIXEL(1, 0, 5, 6), 254);
  // Pixels to inches go through whole dots per inch: 11.8 dpmm is 299.72
  // dpi, taken as 300.
  EXPECT_DOUBLE_EQ(ToINCH(300, 11.8, 3, 1), 1.0);
  EXPECT_DOUBLE_EQ(ToMM(300, 11.8, 3, 1), 300 / 11.8);
  // Unit 0 is the default unit of the flags.
  g_Flags.ResUnit = RESUNIT_DPMM;
  g_Flags.SizeUnit = SIZEUNIT_CM;
  EXPECT_DOUBLE_EQ(ToDPI(10, 0), 254.0);
  EXPECT_DOUBLE_EQ(ToMM(2, 10, 0, 0), 20.0);
  EXPECT_DOUBLE_EQ(ConvertSize(1, 0, 3, 10), 10.0);
  CString name;
  ResUnitString(name, 0);
  EXPECT_STREQ(name, "DPMM");
  SizeUnitString(name, 0);
  EXPECT_STREQ(name, "厘米");
}

TEST_F(UnitsTest, MisuseFiresAssertions) {
  tqtest::HookCapture hooks;
  EXPECT_DOUBLE_EQ(ToDPI(0, 3), 0.0);  // computes on after the assertion
  EXPECT_EQ(hooks.Assertions(), 1);
  ConvertSize(1, 3, 3, 0, 1);
  EXPECT_EQ(hooks.Assertions(), 2);
  g_Flags.ResUnit = (AResUnit)0;
  EqualDPI(1, 2);
  EXPECT_EQ(hooks.Assertions(), 3);
  g_Flags.ResUnit = RESUNIT_DPI;
  hooks.Clear();
  // Comparing equal resolutions is no misuse.
  EXPECT_TRUE(EqualRes(5, 5, 3, FALSE));
  EXPECT_EQ(hooks.Assertions(), 0);
}

TEST_F(UnitsTest, UnknownUnitsTakeTheDefaultRow) {
  for (int unit : {7, 9, 100, -1}) {
    EXPECT_DOUBLE_EQ(ToDPI(2, unit), 2 * 25.4) << unit;   // treated as dots per millimetre
    EXPECT_DOUBLE_EQ(ToDPMM(254, unit), 10.0) << unit;   // treated as dots per inch
    EXPECT_DOUBLE_EQ(ToMM(100, 10, 3, unit), 10.0) << unit;  // pixels
    EXPECT_DOUBLE_EQ(ConvertSize(100, 3, unit, 10, 3), 1000.0) << unit;  // to pixels
    EXPECT_DOUBLE_EQ(DefResPrecision(unit), (double)TQ_MIN_DPMM) << unit;
    char buf[16] = "junk";
    EXPECT_EQ(ResUnitString(buf, sizeof buf, unit), 0);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(SizeUnitString(buf, sizeof buf, unit), 0);
  }
}

// One length and one resolution written in every unit, as physical facts:
// every conversion between two units takes one to the other.
TEST_F(UnitsTest, ConversionsBetweenEveryPairOfUnits) {
  const double inch[] = {0, 300, 2540, 25.4, 2.54, 0.0254, 1};  // pixels at 300 dpi
  const double dpi300[] = {0, 300, 300 / 2540.0, 300 / 25.4, 300 / 2.54, 300 / 0.0254};
  for (int a = 1; a <= 5; ++a)
    for (int b = 1; b <= 5; ++b) {
      EXPECT_TRUE(Close(ConvertRes(dpi300[a], a, b, FALSE), dpi300[b])) << a << " -> " << b;
      EXPECT_TRUE(Close(ConvertSize(inch[a], a, b, dpi300[3], 3, FALSE), inch[b])) << a << " -> " << b;
    }
  for (int a = 1; a <= 6; ++a) {
    EXPECT_TRUE(Close(ToMM(inch[a], 300, 1, a), 25.4)) << a;
    EXPECT_TRUE(Close(ToPIXEL(inch[a], dpi300[a <= 5 ? a : 1], a <= 5 ? a : 1, a), 300)) << a;
  }
  // ToINCH: millimetres, pixels and inches by the physical ratio; 0.01 mm,
  // centimetres and metres by its own fixed divisors.
  for (int a : {1, 3, 6}) EXPECT_TRUE(Close(ToINCH(inch[a], 300, 1, a), 1)) << a;
  EXPECT_DOUBLE_EQ(ToINCH(0.254, 300, 1, 2), 1.0);
  EXPECT_DOUBLE_EQ(ToINCH(254, 300, 1, 4), 1.0);
  EXPECT_DOUBLE_EQ(ToINCH(25400, 300, 1, 5), 1.0);
  EXPECT_DOUBLE_EQ(ConvertSize(254, 4, 6, 300, 1), 1.0);
}

TEST_F(UnitsTest, RoundTrips) {
  std::mt19937 rng(1205);
  std::uniform_real_distribution<double> val(0.001, 1e6);
  for (int iter = 0; iter < 20000; ++iter) {
    int a = 1 + (int)(rng() % 5), b = 1 + (int)(rng() % 5);
    double v = val(rng);
    double there = ConvertRes(v, a, b, FALSE), back = ConvertRes(there, b, a, FALSE);
    ASSERT_TRUE(Close(back, v)) << "repro: ConvertRes(ConvertRes(" << std::hexfloat << v << ", " << a << ", "
                                << b << ", FALSE), " << b << ", " << a << ", FALSE)";
    int su = 1 + (int)(rng() % 6), tu = 1 + (int)(rng() % 6);
    // Inches reached from 0.01 mm, cm or m use other divisors than the way
    // back, so those pairs do not round-trip by design.
    if ((tu == 6 && (su == 2 || su == 4 || su == 5)) || (su == 6 && (tu == 2 || tu == 4 || tu == 5))) continue;
    double res = std::floor(val(rng) / 100) + 1;  // whole dots per inch
    double s1 = ConvertSize(v, su, tu, res, 1, FALSE), s2 = ConvertSize(s1, tu, su, res, 1, FALSE);
    ASSERT_TRUE(Close(s2, v)) << "repro: ConvertSize(ConvertSize(" << std::hexfloat << v << ", " << su << ", "
                              << tu << ", " << res << ", 1, FALSE), " << tu << ", " << su << ", res, 1, FALSE)";
  }
  // Whole-number forms round: 10 mm at 300 dpi is 118.11 pixels.
  EXPECT_EQ(ConvertSize(10, 3, 1, 300, 1, TRUE), 118.0);
  EXPECT_EQ(ConvertRes(10, 3, 1, TRUE), 254.0);
}

TEST_F(UnitsTest, ResolutionRangeBoundaries) {
  const double lo = (double)TQ_MIN_DPMM, hi = (double)TQ_MAX_DPMM;
  struct { double v; int unit; bool valid; } cases[] = {
      {1, 1, true},     {std::nextafter(1.0, 0.0), 1, false}, {20000, 1, true}, {20000.5, 1, false},
      {0, 3, false},    {-1, 1, false},  {NAN, 3, false},     {lo, 3, true},    {hi, 3, true},
      {std::nextafter(lo, 0.0), 3, false}, {std::nextafter(hi, 1e9), 3, false},
      {7.87, 2, true},  {7.88, 2, false}};  // 787 and 788 dots per millimetre
  for (auto c : cases) EXPECT_EQ(IsValidRes(c.v, c.unit) != 0, c.valid) << c.v << " in unit " << c.unit;
  EXPECT_EQ(RightRes(0.5, 1), 1.0);
  EXPECT_EQ(RightRes(25000, 1), 20000.0);
  EXPECT_EQ(RightRes(NAN, 1), 1.0);
  EXPECT_EQ(RightRes(1000, 3), hi);
  EXPECT_EQ(RightRes(-3, 4), lo * 10);
  // Clamping a random value gives a value in range, and leaves values in
  // range alone.
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> e(-6, 8);
  for (int iter = 0; iter < 20000; ++iter) {
    int u = 1 + (int)(rng() % 5);
    double v = std::pow(10.0, e(rng));
    double r = RightRes(v, u);
    ASSERT_TRUE(IsValidRes(r, u)) << "repro: IsValidRes(RightRes(" << std::hexfloat << v << ", " << u << "), "
                                  << u << ")";
    if (IsValidRes(v, u)) {
      ASSERT_EQ(r, v) << "repro: RightRes(" << std::hexfloat << v << ", " << u << ")";
    }
  }
}

TEST_F(UnitsTest, ResolutionEquality) {
  EXPECT_EQ(DefResPrecision(1), 1.0);
  const double tol = (double)TQ_MIN_DPMM;
  EXPECT_TRUE(EqualDPMM(10, 10 + tol));
  EXPECT_FALSE(EqualDPMM(10, 10 + tol * 1.001));
  EXPECT_TRUE(EqualDPI(300, 300.9));
  EXPECT_FALSE(EqualDPI(300, 301));
  // In every unit the tolerance is the same physical resolution.
  for (int u = 2; u <= 5; ++u) {
    double t = DefResPrecision(u);
    EXPECT_DOUBLE_EQ(ToDPMM(t, u), tol) << u;
    EXPECT_TRUE(EqualRes(100, 100 + t * 0.999, u, FALSE)) << u;
    EXPECT_FALSE(EqualRes(100, 100 + t * 1.01, u, FALSE)) << u;
  }
  EXPECT_TRUE(EqualRes(300, 300.6, 1, FALSE));
  EXPECT_FALSE(EqualRes(300.4, 300.6, 1, TRUE));  // round to 300 and 301
  EXPECT_TRUE(EqualRes(299.6, 300.4, 1, TRUE));
  EXPECT_TRUE(EqualNDPI(-2.4, -1.6));
  EXPECT_FALSE(EqualNDPI(-2.5, -2.4));
}

// Non-finite values: a resolution that is not a finite number is none (the
// fallback applies, CUnitTrans holds none), NaN equals nothing, the texts
// and zooms saturate. (An infinite resolution once turned lengths into 0
// and NaN, and EqualNDPI took NaN for 0.)
TEST_F(UnitsTest, NonFiniteValues) {
  g_Flags.dDefRes = 0;
  EXPECT_DOUBLE_EQ(ToMM(100, INFINITY, 1, 1), 100.0 / 600.0);
  EXPECT_DOUBLE_EQ(ToMM(100, NAN, 1, 1), 100.0 / 600.0);
  EXPECT_DOUBLE_EQ(ToPIXEL(1, INFINITY, 3, 3), 600.0);
  EXPECT_DOUBLE_EQ(ToINCH(600 * 25.4, -INFINITY, 1, 1), 1.0);
  g_Flags.dDefRes = INFINITY;  // no default resolution either
  EXPECT_DOUBLE_EQ(ToPIXEL(1, NAN, 1, 3), 600.0);
  EXPECT_TRUE(std::isnan(ToMM(NAN, 300, 1, 3)) && std::isinf(ToPIXEL(INFINITY, 300, 1, 3)));
  EXPECT_EQ(ToNPIXEL(INFINITY, 300, 1, 3), INT_MAX);
  EXPECT_EQ(ToNPIXEL(NAN, 300, 1, 3), 0);

  EXPECT_FALSE(EqualNDPI(NAN, 0.3));
  EXPECT_FALSE(EqualNDPI(NAN, NAN));
  EXPECT_FALSE(EqualRes(NAN, 0, RESUNIT_DPI, TRUE));
  EXPECT_FALSE(EqualRes(0, NAN, RESUNIT_DPMM, FALSE));
  EXPECT_TRUE(EqualNDPI(INFINITY, 1e300));  // both saturate

  CUnitTrans t;
  EXPECT_FALSE(t.SetRes(INFINITY, 1));
  EXPECT_EQ(t.dDPMM, 0.0);
  EXPECT_FALSE(t.SetRes(1e307, RESUNIT_DPSM));  // dots per mm overflow
  EXPECT_FALSE(t.SetParams(5, NAN, 1, 3));
  EXPECT_TRUE(t.SetParams(NAN, 300, 1, 3));
  EXPECT_EQ(t.GetValue(3, 2, FALSE), 0.0);
  EXPECT_TRUE(t.SetParams(INFINITY, 300, 1, 3));
  EXPECT_EQ(t.GetValue(1, 0, TRUE), (double)INT_MAX);

  EXPECT_STREQ(AnxFloatPrecisionString(INFINITY, 2, TRUE), "9223372036854775807");
  EXPECT_STREQ(AnxFloatPrecisionString(-1e300, 2, TRUE), "-9223372036854775808");
  double r = INFINITY;
  AnxZoomInRatio(r);
  EXPECT_EQ(r, 100.0);
  r = INFINITY;
  AnxZoomOutRatio(r);
  EXPECT_EQ(r, 99.0);
  r = INFINITY;
  AnxZoomNormalRatio(r);
  EXPECT_EQ(r, 100.0);
}

TEST(AnxNumbers, FloatToIntRoundsAwayFromZeroAndSaturates) {
  struct { double v; BOOL round; int i; DWORD u; } cases[] = {
      {2.5, TRUE, 3, 3},          {-2.5, TRUE, -3, 0},           {2.9999999999, FALSE, 3, 3},
      {-2.9999999999, FALSE, -3, 0}, {0.0, TRUE, 0, 0},           {1e20, FALSE, INT_MAX, 0xFFFFFFFFu},
      {-1e20, TRUE, INT_MIN, 0},  {2147483647.2, TRUE, INT_MAX, 2147483647u},
      {-2147483648.4, FALSE, INT_MIN, 0}, {NAN, TRUE, 0, 0},  {-0.4, TRUE, 0, 0}};
  for (auto c : cases) {
    EXPECT_EQ(AnxFloatToInt(c.v, c.round), c.i) << c.v;
    EXPECT_EQ(AnxFloatToDWORD(c.v, c.round), c.u) << c.v;
  }
  EXPECT_EQ(AnxFloatToDWORD(4294967295.0, FALSE), 0xFFFFFFFFu);
  EXPECT_EQ(AnxFloatToDWORD(NAN, FALSE), 0u);
}

TEST(AnxNumbers, PrecisionString) {
  struct { double v; int digits; BOOL round; const char* text; } cases[] = {
      {1.05, 2, TRUE, "1.05"},  {1.999, 2, TRUE, "2"},     {-0.5, 1, TRUE, "-0.5"},      {1.5, 2, TRUE, "1.50"},
      {1.26, 1, FALSE, "1.2"},  {3.7, -2, FALSE, "3"},     {3e9, 2, TRUE, "3000000000"}, {NAN, 2, TRUE, "0"},
      {0.123456789012, 15, TRUE, "0.1234567890"}};  // 10 digits at most
  for (auto c : cases) EXPECT_STREQ(AnxFloatPrecisionString(c.v, c.digits, c.round), c.text) << c.v;
  EXPECT_EQ(AnxFloatPrecision(1.23456, 3, TRUE), 1.235);
  // Random values: at most `digits` decimals (exactly that many when there
  // is a fraction), and within half a unit of the last decimal.
  std::mt19937 rng(42);
  std::uniform_real_distribution<double> val(-1e6, 1e6);
  for (int iter = 0; iter < 20000; ++iter) {
    double v = val(rng) / std::pow(10.0, (double)(rng() % 6));
    int digits = 1 + (int)(rng() % 8);
    CString s = AnxFloatPrecisionString(v, digits, TRUE);
    const char* dot = std::strchr(s, '.');
    double back = std::strtod(s, nullptr);
    bool ok = (!dot || (int)std::strlen(dot + 1) == digits) &&
              std::fabs(back - v) <= 0.5 * std::pow(10.0, -digits) + 1e-9 * std::fmax(1.0, std::fabs(v));
    ASSERT_TRUE(ok) << "repro: AnxFloatPrecisionString(" << std::hexfloat << v << ", " << digits
                    << ", TRUE) gave " << s.GetString();
  }
}

TEST(AnxNumbers, IntegerText) {
  EXPECT_STREQ(AnxIntString(-42), "-42");
  EXPECT_STREQ(AnxIntString(-1234567, 3, '.'), "-1.234.567");
  EXPECT_STREQ(AnxIntString(123, 3), "123");
  EXPECT_STREQ(AnxIntString(INT_MIN, 3), "-2,147,483,648");
  EXPECT_STREQ(AnxIntString(123456, 4, ' '), "12 3456");
  EXPECT_STREQ(AnxDWORDString(4294967295u, 3), "4,294,967,295");
}

TEST(AnxStrings, UnitNamesFromTheLibraryTable) {
  const char* res[] = {"", "DPI", "像素/丝米", "DPMM", "像素/厘米", "DPM"};
  const char* size[] = {"", "像素", "丝米", "毫米", "厘米", "米", "英寸"};
  char buf[64];
  for (int u = 1; u <= 6; ++u) {
    if (u <= 5) {
      EXPECT_EQ(ResUnitString(buf, sizeof buf, u), (int)std::strlen(res[u]));
      EXPECT_STREQ(buf, res[u]);
    }
    CString s;
    EXPECT_EQ(SizeUnitString(s, u), (int)std::strlen(size[u]));
    EXPECT_STREQ(s, size[u]);
  }
  // A short buffer cuts at a whole character: "像素/丝米" is 3+3+1+3+3 bytes.
  char small[8];
  EXPECT_EQ(ResUnitString(small, sizeof small, 2), 7);
  EXPECT_STREQ(small, "像素/");
  EXPECT_EQ(ResUnitString(small, 3, 2), 0);
  EXPECT_STREQ(small, "");
}

TEST(AnxStrings, LoadStringAndHostTables) {
  HINSTANCE self = tqGetModuleInstance();
  ASSERT_NE(self, nullptr);
  EXPECT_FALSE(AnxLoadString(self, 101).IsEmpty());
  EXPECT_TRUE(AnxLoadString(self, 4).IsEmpty());
  EXPECT_TRUE(AnxLoadString(nullptr, 22).IsEmpty());

  // A host's own module.
  static int hostModuleAnchor;
  HINSTANCE host = reinterpret_cast<HINSTANCE>(&hostModuleAnchor);
  const ANXSTRINGRES table[] = {{1, "one"}, {2, "two"}, {3, nullptr}};
  EXPECT_TRUE(AnxRegisterStringTable(host, table, 3));
  EXPECT_STREQ(AnxLoadString(host, 2), "two");
  EXPECT_TRUE(AnxLoadString(host, 3).IsEmpty());
  const ANXSTRINGRES more[] = {{2, "zwei"}, {4, "vier"}};
  EXPECT_TRUE(AnxRegisterStringTable(host, more, 2));
  EXPECT_STREQ(AnxLoadString(host, 1), "one");
  EXPECT_STREQ(AnxLoadString(host, 2), "zwei");
  EXPECT_FALSE(AnxRegisterStringTable(host, more, -1));
  EXPECT_TRUE(AnxRegisterStringTable(host, nullptr, 0));
  EXPECT_TRUE(AnxLoadString(host, 1).IsEmpty());

  // g_Error's resource form goes through the same tables.
  EXPECT_TRUE(AnxRegisterStringTable(host, table, 2));
  g_Error.SetLastError(host, 1);
  CString text;
  EXPECT_TRUE(g_Error.GetLastError(text));
  EXPECT_STREQ(text, "one");
  AnxRegisterStringTable(host, nullptr, 0);
  g_Error.ClearError();

  // A translation of the library's own texts wins over the built-in ones.
  const ANXSTRINGRES english[] = {{22, "inch"}};
  EXPECT_TRUE(AnxRegisterStringTable(self, english, 1));
  CString unit;
  SizeUnitString(unit, 6);
  EXPECT_STREQ(unit, "inch");
  AnxRegisterStringTable(self, nullptr, 0);
  SizeUnitString(unit, 6);
  EXPECT_STREQ(unit, "英寸");
}

std::string g_uiText;
int DialogHook(const char* text, UINT type) {
  g_uiText = std::string(text) + "/" + std::to_string(type);
  return 7;
}
void StatusHook(const char* text) { g_uiText = std::string("status:") + text; }
BOOL MapHook(HWND, HWND, POINT* pt) { return pt->x += 10, TRUE; }

TEST(AnxStrings, UserInterfaceStandIns) {
  tqtest::HookCapture hooks;
  EXPECT_EQ(AnxDialogMsg("hello"), IDOK);  // default: to the trace
  EXPECT_NE(hooks.Trace().find("hello"), std::string::npos);
  AnxSetDialogHandler(&DialogHook);
  AnxSetStatusHandler(&StatusHook);
  AnxSetMapPointHandler(&MapHook);
  EXPECT_EQ(AnxDialogMsg(tqGetModuleInstance(), 9, MB_OK | MB_ICONERROR), 7);
  EXPECT_EQ(g_uiText, "DPI/" + std::to_string(MB_OK | MB_ICONERROR));
  AnxStatusMsg(tqGetModuleInstance(), 10);
  EXPECT_EQ(g_uiText, "status:DPMM");
  POINT pt = {1, 2};
  EXPECT_TRUE(AnxMapPoint(nullptr, nullptr, pt));
  EXPECT_EQ(pt.x, 11);
  EXPECT_EQ(AnxSetDialogHandler(nullptr), &DialogHook);
  AnxSetStatusHandler(nullptr);
  AnxSetMapPointHandler(nullptr);

  void* object = nullptr;  // pointer-aligned, as framework objects are
  EXPECT_TRUE(AnxValidObject(&object));
  EXPECT_FALSE(AnxValidObject(nullptr));
  EXPECT_FALSE(AnxValidObject(reinterpret_cast<const char*>(&object) + 1));
}

TEST_F(UnitsTest, UnitTrans) {
  CUnitTrans t;
  EXPECT_FALSE(t.IsValid());
  EXPECT_EQ(t.GetValue(3, 2, FALSE), 0.0);
  EXPECT_TRUE(t.SetParams(-10, 300, 1, 3));
  EXPECT_EQ(t.dMM, -10.0);
  EXPECT_DOUBLE_EQ(t.dDPMM, 300 / 25.4);
  EXPECT_EQ(t.GetValue(1, 0, TRUE), -118.0);
  EXPECT_EQ(t.GetValue(6, 3, FALSE), -0.394);
  // Signs are symmetric, also for pixels.
  CUnitTrans p, n;
  p.SetParams(1234, 11.8, 3, 1);
  n.SetParams(-1234, 11.8, 3, 1);
  EXPECT_EQ(p.dMM, -n.dMM);
  EXPECT_DOUBLE_EQ(p.GetValue(3, 4, FALSE), 104.5763);
  // No resolution: invalid; a resolution within tolerance of 0: invalid.
  EXPECT_FALSE(t.SetRes(0, 1));
  EXPECT_EQ(t.dDPMM, 0.0);
  EXPECT_FALSE(t.SetRes(0.5, 1));
  EXPECT_TRUE(t.SetRes(2, 1));
  EXPECT_TRUE(t.SetRes(0.04, 3));
}

// ---------------------------------------------------------------------------
// Zoom

// The stated steps and edges of the three zooms. In: 1/12 steps by 2 above
// 1/11.1; 1e-9 has reciprocal 1e9: step 10000, then the 1/20000 floor;
// 1e-11 is within 1e-10 of 0 and taken as 1 first. Out: 2.5 goes 2 -> 1;
// 0.3 lies between 1/4 and 1/3 and steps out from 1/4; the smallest ratio
// stays. Normal: the nearest ladder ratio.
TEST(Zoom, StatedStepsAndEdges) {
  void (*const in)(double&) = AnxZoomInRatio, (*const out)(double&) = AnxZoomOutRatio,
                (*const normal)(double&) = AnxZoomNormalRatio;
  struct { void (*fn)(double&); double from, to; } cases[] = {
      {in, 0, 2},         {in, 1.5, 3},     {in, 0.5, 1},       {in, 0.25, 1.0 / 3}, {in, 150, 100},
      {in, -3, 2},        {in, NAN, 2},     {in, 1.0 / 12, 0.1}, {in, 1e-9, 1.0 / 20000}, {in, 1e-11, 2},
      {out, 2.5, 1},      {out, 1.5, 0.5},  {out, 0.3, 0.2},    {out, 500, 99},      {out, 0, 0.5},
      {out, 1.0 / 20000, 1.0 / 20000},      {normal, 2.4, 2},   {normal, 2.5, 3},    {normal, 0.9, 1},
      {normal, 0.3, 1.0 / 3}, {normal, 0.26, 0.25}, {normal, 1e9, 100}, {normal, 1e-9, 1.0 / 20000},
      {normal, -1, 1},    {normal, NAN, 1}};
  for (auto c : cases) {
    double r = c.from;
    c.fn(r);
    EXPECT_DOUBLE_EQ(r, c.to) << (c.fn == in ? "in " : c.fn == out ? "out " : "normal ") << c.from;
  }
}

// The ladder: whole ratios 1..100 and whole reciprocals 1/2..1/10000.
// Each reciprocal's ladder value is canonical (the largest double at or
// below 1/n, a fixed point of the normal zoom), and zooming out then in
// comes back to every ladder value exactly.
TEST(Zoom, LadderIsCanonicalAndZoomOutThenInReturns) {
  std::vector<double> ladder;
  for (int k = 1; k <= 100; ++k) ladder.push_back(k);
  for (int n = 1; n <= 20000; ++n) {
    double r = 1.0 / n;
    AnxZoomNormalRatio(r);
    ASSERT_TRUE(std::floor(1.0 / r) == n && r <= 1.0 / n && 1.0 / n - r <= 4e-16 / n) << n;
    double again = r;
    AnxZoomNormalRatio(again);
    ASSERT_EQ(again, r) << n;
    if (n >= 2 && n <= 10000) ladder.push_back(r);
  }
  for (double r0 : ladder) {
    double r = r0;
    AnxZoomOutRatio(r);
    ASSERT_LT(r, r0) << "repro: r = " << std::hexfloat << r0 << "; AnxZoomOutRatio(r);";
    AnxZoomInRatio(r);
    ASSERT_EQ(r, r0) << "repro: r = " << std::hexfloat << r0 << "; AnxZoomOutRatio(r); AnxZoomInRatio(r);";
  }
}

}  // namespace
