// anxfuns.cpp - annex helpers: float-to-integer conversion, number text,
// string resources and the user-interface stand-ins.
//
// The string tables live in one registry created on first use and never
// destroyed, so that g_Error can load texts during any module's static
// initialisation and at unload. Nothing here needs dynamic initialisation
// of its own: the handler slots are constant-initialised atomics.
#include "tqbase/anxfuns.h"

#include <atomic>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#ifndef _WIN32
#include <dlfcn.h>
#endif

// ---------------------------------------------------------------------------
// Numbers

int AnxFloatToInt(double value, BOOL bRound) {
  if (std::isnan(value)) return 0;
  if (value >= 0) {
    if (bRound) value += 0.5;
    value += 1e-10;
    return value >= 2147483648.0 ? INT_MAX : (int)value;
  }
  if (bRound) value -= 0.5;
  value -= 1e-10;
  return value <= -2147483649.0 ? INT_MIN : (int)value;
}

DWORD AnxFloatToDWORD(double value, BOOL bRound) {
  if (std::isnan(value)) return 0;
  if (bRound) value += value >= 0 ? 0.5 : -0.5;
  if (value < 0) return 0;
  value += 1e-10;
  return value >= 4294967296.0 ? 0xFFFFFFFFu : (DWORD)value;
}

namespace {

// AnxFloatToInt's rule in 64 bits, for the text helpers: ten decimals of a
// fraction need more than 32 bits, and the whole part of a large value
// should print as itself rather than wrap.
long long FloatToI64(double value, bool round) {
  if (std::isnan(value)) return 0;
  if (value >= 0) {
    if (round) value += 0.5;
    value += 1e-10;
    return value >= 9223372036854775808.0 ? LLONG_MAX : (long long)value;
  }
  if (round) value -= 0.5;
  value -= 1e-10;
  return value <= -9223372036854775808.0 ? LLONG_MIN : (long long)value;
}

int DecimalDigits(unsigned long long v) {
  int n = 1;
  while (v >= 10) {
    v /= 10;
    ++n;
  }
  return n;
}

CString GroupedDigits(unsigned long long magnitude, bool negative, int nGroup, char sep) {
  char digits[32];
  std::snprintf(digits, sizeof digits, "%llu", magnitude);
  std::string out;
  if (negative) out += '-';
  size_t n = std::strlen(digits);
  for (size_t i = 0; i < n; ++i) {
    if (nGroup > 0 && i > 0 && (n - i) % (size_t)nGroup == 0) out += sep;
    out += digits[i];
  }
  return CString(std::move(out));
}

}  // namespace

CString AnxFloatPrecisionString(double value, int digits, BOOL bRound) {
  try {
    if (digits > 10) digits = 10;
    // Beyond 2^63 (and for infinities and NaN) a double has no fraction to
    // show; such values take the whole-number form.
    if (!(std::fabs(value) < 9.0e18)) digits = 0;
    long long ip = 0, frac = 0;
    if (digits > 0) {
      long long scale = 1;
      for (int i = 0; i < digits; ++i) scale *= 10;
      ip = FloatToI64(value, false);
      frac = FloatToI64((value - (double)ip) * (double)scale, bRound != FALSE);
      if (frac == scale || frac == -scale) frac = 0;  // rounding carried into the whole part
      if (frac != 0) {
        unsigned long long mag = frac < 0 ? (unsigned long long)(-frac) : (unsigned long long)frac;
        char head[40];
        if (ip == 0 && frac < 0)
          std::snprintf(head, sizeof head, "-%lld.", ip);
        else
          std::snprintf(head, sizeof head, "%lld.", ip);
        std::string text(head);
        text.append((size_t)(digits - DecimalDigits(mag) > 0 ? digits - DecimalDigits(mag) : 0), '0');
        text += std::to_string(mag);
        return CString(std::move(text));
      }
    }
    char whole[40];
    std::snprintf(whole, sizeof whole, "%lld", FloatToI64(value, bRound != FALSE));
    return CString(whole);
  } catch (const std::bad_alloc&) {
    return CString();
  }
}

double AnxFloatPrecision(double value, int digits, BOOL bRound) {
  CString text = AnxFloatPrecisionString(value, digits, bRound);
  return std::strtod(text.GetString(), nullptr);
}

CString AnxIntString(int value, int nGroup, char chSeparator) {
  try {
    long long v = value;
    return GroupedDigits((unsigned long long)(v < 0 ? -v : v), v < 0, nGroup, chSeparator);
  } catch (const std::bad_alloc&) {
    return CString();
  }
}

CString AnxDWORDString(DWORD value, int nGroup, char chSeparator) {
  try {
    return GroupedDigits(value, false, nGroup, chSeparator);
  } catch (const std::bad_alloc&) {
    return CString();
  }
}

// ---------------------------------------------------------------------------
// String resources

namespace {

// This library's string table. The unit names are the texts users see in
// every unit list of the RIP; 101 is shown when start-up cannot bring up
// the network layer.
constexpr ANXSTRINGRES kOwnStrings[] = {
    {5, "像素"},           // pixels
    {6, "毫米"},           // millimetres
    {7, "厘米"},           // centimetres
    {8, "米"},             // metres
    {9, "DPI"},
    {10, "DPMM"},
    {11, "像素/厘米"},     // dots per centimetre
    {12, "DPM"},
    {13, "丝米"},          // 0.01 mm
    {14, "像素/丝米"},     // dots per 0.01 mm
    {22, "英寸"},          // inches
    {101, "无法初始化网络套接字，程序库不能启动。"},  // the sockets could not be started
};

struct StringRegistry {
  std::mutex mutex;
  std::map<HINSTANCE, std::map<UINT, std::string>> tables;
};

StringRegistry& Registry() {
  static StringRegistry* r = new StringRegistry;  // never destroyed: used at unload
  return *r;
}

HINSTANCE LookupOwnInstance() {
#ifdef _WIN32
  HMODULE h = nullptr;
  GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCSTR>(&LookupOwnInstance), &h);
  return h;
#else
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(&LookupOwnInstance), &info) != 0 && info.dli_fbase)
    return reinterpret_cast<HINSTANCE>(info.dli_fbase);
  return nullptr;
#endif
}

#ifdef _WIN32
CString LoadModuleResource(HINSTANCE module, UINT id) {
  const wchar_t* res = nullptr;
  int n = LoadStringW(module, id, reinterpret_cast<LPWSTR>(&res), 0);
  if (n <= 0 || !res) return CString();
  int bytes = WideCharToMultiByte(CP_UTF8, 0, res, n, nullptr, 0, nullptr, nullptr);
  if (bytes <= 0) return CString();
  std::string out((size_t)bytes, '\0');
  WideCharToMultiByte(CP_UTF8, 0, res, n, &out[0], bytes, nullptr, nullptr);
  return CString(std::move(out));
}
#endif

}  // namespace

HINSTANCE tqGetModuleInstance() {
  static const HINSTANCE self = LookupOwnInstance();
  return self;
}

BOOL AnxRegisterStringTable(HINSTANCE module, const ANXSTRINGRES* entries, int count) {
  if (count < 0) return FALSE;
  StringRegistry& reg = Registry();
  try {
    std::lock_guard<std::mutex> lock(reg.mutex);
    if (!entries || count == 0) {
      reg.tables.erase(module);
      return TRUE;
    }
    std::map<UINT, std::string> merged = reg.tables[module];
    for (int i = 0; i < count; ++i)
      if (entries[i].text) merged[entries[i].id] = entries[i].text;
    reg.tables[module].swap(merged);
    return TRUE;
  } catch (const std::bad_alloc&) {
    return FALSE;
  }
}

CString AnxLoadString(HINSTANCE module, UINT id) {
  try {
    StringRegistry& reg = Registry();
    {
      std::lock_guard<std::mutex> lock(reg.mutex);
      auto t = reg.tables.find(module);
      if (t != reg.tables.end()) {
        auto s = t->second.find(id);
        if (s != t->second.end()) return CString(s->second);
      }
    }
    if (module && module == tqGetModuleInstance()) {
      for (const ANXSTRINGRES& e : kOwnStrings)
        if (e.id == id) return CString(e.text);
      return CString();
    }
#ifdef _WIN32
    if (module) return LoadModuleResource(module, id);
#endif
    return CString();
  } catch (const std::bad_alloc&) {
    return CString();
  }
}

// ---------------------------------------------------------------------------
// User-interface stand-ins

namespace {

int DefaultDialog(const char* text, UINT type) {
  (void)type;
  tqTrace("%s\n", text);
  return IDOK;
}

void DefaultStatus(const char*) {}

BOOL DefaultMapPoint(HWND from, HWND to, POINT* pt) {
#ifdef _WIN32
  MapWindowPoints(from, to, pt, 1);
  return TRUE;
#else
  (void)from;
  (void)to;
  (void)pt;
  return TRUE;
#endif
}

std::atomic<ANXDIALOGHANDLER> g_dialogHandler{&DefaultDialog};
std::atomic<ANXSTATUSHANDLER> g_statusHandler{&DefaultStatus};
std::atomic<ANXMAPPOINTHANDLER> g_mapPointHandler{&DefaultMapPoint};

}  // namespace

ANXDIALOGHANDLER AnxSetDialogHandler(ANXDIALOGHANDLER handler) {
  return g_dialogHandler.exchange(handler ? handler : &DefaultDialog);
}

ANXSTATUSHANDLER AnxSetStatusHandler(ANXSTATUSHANDLER handler) {
  return g_statusHandler.exchange(handler ? handler : &DefaultStatus);
}

ANXMAPPOINTHANDLER AnxSetMapPointHandler(ANXMAPPOINTHANDLER handler) {
  return g_mapPointHandler.exchange(handler ? handler : &DefaultMapPoint);
}

int AnxDialogMsg(LPCSTR text, UINT type) { return g_dialogHandler.load()(text ? text : "", type); }

int AnxDialogMsg(HINSTANCE module, UINT id, UINT type) {
  CString text = AnxLoadString(module, id);
  return AnxDialogMsg(text.GetString(), type);
}

void AnxStatusMsg(LPCSTR text) { g_statusHandler.load()(text ? text : ""); }

void AnxStatusMsg(HINSTANCE module, UINT id) {
  CString text = AnxLoadString(module, id);
  AnxStatusMsg(text.GetString());
}

BOOL AnxValidObject(const void* p) {
  return p != nullptr && (reinterpret_cast<uintptr_t>(p) % alignof(void*)) == 0;
}

BOOL AnxMapPoint(HWND from, HWND to, POINT& pt) { return g_mapPointHandler.load()(from, to, &pt); }
