// args.cpp - the value grammar shared by the tqbase tool's commands.
#include "args.h"

#include <tqbase/tqbase.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace tqtool {

namespace {
const UnitName kUnitNames[] = {
    {"px", false, SIZEUNIT_PIXEL},   {"pixel", false, SIZEUNIT_PIXEL}, {"pixels", false, SIZEUNIT_PIXEL},
    {"sm", false, SIZEUNIT_SM},      {"0.01mm", false, SIZEUNIT_SM},   {"mm", false, SIZEUNIT_MM},
    {"cm", false, SIZEUNIT_CM},      {"m", false, SIZEUNIT_M},         {"in", false, SIZEUNIT_INCH},
    {"inch", false, SIZEUNIT_INCH},  {"inches", false, SIZEUNIT_INCH}, {"dpi", true, RESUNIT_DPI},
    {"dpsm", true, RESUNIT_DPSM},    {"dpmm", true, RESUNIT_DPMM},     {"dpcm", true, RESUNIT_DPCM},
    {"dpm", true, RESUNIT_DPM},
};

}  // namespace

const char* const kSizeShort[] = {"", "px", "sm", "mm", "cm", "m", "in"};
const char* const kResShort[] = {"", "dpi", "dpsm", "dpmm", "dpcm", "dpm"};

const char kUnitHelp[] =
    "size units: px, sm (0.01 mm), mm, cm, m, in; resolution units: dpi, dpsm (dots per 0.01 mm), dpmm, "
    "dpcm, dpm";

std::string Lower(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = (char)(c - 'A' + 'a');
  return s;
}

// A unit by its short name (any case) or by the library's display name.
bool FindUnit(const std::string& text, UnitName* out) {
  std::string key = Lower(text);
  for (const UnitName& u : kUnitNames)
    if (key == u.name) {
      *out = u;
      return true;
    }
  CString name;
  for (int u = 1; u <= 6; ++u)
    if (SizeUnitString(name, u) > 0 && text == name.GetString()) {
      *out = {kSizeShort[u], false, u};
      return true;
    }
  for (int u = 1; u <= 5; ++u)
    if (ResUnitString(name, u) > 0 && text == name.GetString()) {
      *out = {kResShort[u], true, u};
      return true;
    }
  return false;
}

// "25.4", "25.4mm", "300 dpi": the number and the unit text after it.
bool SplitQuantity(const std::string& text, double* value, std::string* unit) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  double v = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || errno == ERANGE || !std::isfinite(v)) return false;
  std::string rest(end);
  rest.erase(0, rest.find_first_not_of(" \t"));
  *value = v;
  *unit = rest;
  return true;
}

// At most digits decimals, without trailing zeros ("11.8", not "11.8000").
std::string Number(double v, int digits) {
  std::string s = AnxFloatPrecisionString(v, digits, TRUE).GetString();
  if (s.find('.') != std::string::npos) {
    s.erase(s.find_last_not_of('0') + 1);
    if (s.back() == '.') s.pop_back();
  }
  return s;
}


bool ParseQuantity(const std::string& text, bool resolution, double* value, int* unit, std::string* err) {
  std::string unitText;
  UnitName u;
  if (!SplitQuantity(text, value, &unitText) || !FindUnit(unitText, &u) || u.resolution != resolution ||
      !(*value > 0)) {
    *err = "'" + text + "' is not a " + (resolution ? "resolution, such as 300dpi" : "size, such as 64cm") +
           " (" + kUnitHelp + ")";
    return false;
  }
  *unit = u.unit;
  return true;
}

bool ParseCycle(const std::string& text, int* w, int* h, int* p, std::string* err, long long maxSide) {
  const char* s = text.c_str();
  // A whole number at s (signed only where allowed), s moved past it.
  auto number = [&s](long long* v, bool sign) {
    if (!sign && !(*s >= '0' && *s <= '9')) return false;
    errno = 0;
    char* end = nullptr;
    *v = std::strtoll(s, &end, 10);
    if (end == s || errno == ERANGE) return false;
    s = end;
    return true;
  };
  long long v[3] = {0, 0, 0};
  bool ok = number(&v[0], false) && (*s == 'x' || *s == 'X') && (++s, number(&v[1], false));
  if (ok && *s) ok = (*s == '+' || *s == '-') && number(&v[2], true) && *s == '\0';
  if (!ok) {
    *err = "a repeat cell is given as WxH or WxH+P (P the displacement), such as 100x50+25, not '" + text + "'";
    return false;
  }
  if (v[0] < 1 || v[1] < 1 || v[0] > maxSide || v[1] > maxSide || v[2] < -maxSide || v[2] > maxSide) {
    *err = "the repeat cell must be 1 to " + std::to_string(maxSide) + " pixels each way";
    return false;
  }
  *w = (int)v[0];
  *h = (int)v[1];
  *p = (int)v[2];
  return true;
}

}  // namespace tqtool
