// abaseobj.cpp - AGFLAGS (the preference flags and their INI and profile
// forms), CAppPath (the installation's directories) and AEnvObj (display
// and system facts). The global objects themselves live in tqbase.cpp with
// the module's other globals, so that their construction is ordered before
// the module's start-up.
//
// The stored fields are described once, in kFields below, in the INI
// file's key order; loading, saving and the key/value accessors all walk
// that table.
#include "tqbase/abaseobj.h"

#include "tqbase/adocobj.h"
#include "tqbase/errorinfo.h"
#include "tqbase/profile.h"
#include "tqbase/unittrans.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#ifndef _WIN32
#include <dlfcn.h>
#include <sys/utsname.h>
#include <unistd.h>
#endif

// ---------------------------------------------------------------------------
// AGFLAGS

namespace {

const char kIniSection[] = "GlobalFlags";
const char kProfileSection[] = "GeneralParams\\GlobalFlags";

enum FieldType { FT_RESUNIT, FT_SIZEUNIT, FT_DOUBLE, FT_INT, FT_BOOL8, FT_DWORD, FT_STRING };

struct FieldDesc {
  const char* key;      // INI key: the field's name
  const char* profile;  // profile-store value name, null when not stored there
  FieldType type;
  AResUnit AGFLAGS::*resUnit;
  ASizeUnit AGFLAGS::*sizeUnit;
  double AGFLAGS::*d;
  int AGFLAGS::*i;
  bool AGFLAGS::*b;
  DWORD AGFLAGS::*u;
  CString AGFLAGS::*s;
};

constexpr FieldDesc R(const char* k, const char* p, AResUnit AGFLAGS::*m) {
  return {k, p, FT_RESUNIT, m, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
}
constexpr FieldDesc Z(const char* k, const char* p, ASizeUnit AGFLAGS::*m) {
  return {k, p, FT_SIZEUNIT, nullptr, m, nullptr, nullptr, nullptr, nullptr, nullptr};
}
constexpr FieldDesc D(const char* k, const char* p, double AGFLAGS::*m) {
  return {k, p, FT_DOUBLE, nullptr, nullptr, m, nullptr, nullptr, nullptr, nullptr};
}
constexpr FieldDesc I(const char* k, const char* p, int AGFLAGS::*m) {
  return {k, p, FT_INT, nullptr, nullptr, nullptr, m, nullptr, nullptr, nullptr};
}
constexpr FieldDesc B(const char* k, const char* p, bool AGFLAGS::*m) {
  return {k, p, FT_BOOL8, nullptr, nullptr, nullptr, nullptr, m, nullptr, nullptr};
}
constexpr FieldDesc U(const char* k, const char* p, DWORD AGFLAGS::*m) {
  return {k, p, FT_DWORD, nullptr, nullptr, nullptr, nullptr, nullptr, m, nullptr};
}
constexpr FieldDesc S(const char* k, const char* p, CString AGFLAGS::*m) {
  return {k, p, FT_STRING, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, m};
}

// The INI file's key order: the field order, except that the map-data
// directory is written before bMapDataFileEnable. "ThumbWithMon" and
// "ShowSpashScreen" are the stored names as they stand.
const FieldDesc kFields[] = {
    R("ResUnit", "ResUnit", &AGFLAGS::ResUnit),
    Z("SizeUnit", "SizeUnit", &AGFLAGS::SizeUnit),
    D("dDefRes", nullptr, &AGFLAGS::dDefRes),
    D("dDefWidth", "DefaultWidth", &AGFLAGS::dDefWidth),
    D("dDefHeight", "DefaultHeight", &AGFLAGS::dDefHeight),
    I("ShowRuler", "ShowRuler", &AGFLAGS::ShowRuler),
    I("ShowGridline", "ShowGridline", &AGFLAGS::ShowGridline),
    I("nLRSpace", "LRSpaceWidth", &AGFLAGS::nLRSpace),
    I("nTBSpace", "TBSpaceWidth", &AGFLAGS::nTBSpace),
    I("bDirectDelete", "DirectDelete", &AGFLAGS::bDirectDelete),
    S("strCacheDirectory", "CacheDirectory", &AGFLAGS::strCacheDirectory),
    I("bShowColorGroup", "ShowColorGroup", &AGFLAGS::bShowColorGroup),
    I("bEnableToolTip", "EnableToolTip", &AGFLAGS::bEnableToolTip),
    I("nApplicationLook", "ApplicationLook", &AGFLAGS::nApplicationLook),
    S("PrintDeviceModule", "PrintDeviceModule", &AGFLAGS::PrintDeviceModule),
    I("bThumbWithMono", "ThumbWithMon", &AGFLAGS::bThumbWithMono),
    I("bScaleLimit", "ScaleLimit", &AGFLAGS::bScaleLimit),
    B("bDyeMixWay", "DyeMixWay", &AGFLAGS::bDyeMixWay),
    I("DefaultOpacity", "DefaultOpacity", &AGFLAGS::DefaultOpacity),
    B("bDyeMixOpacityWay", "DyeMixOpacityWay", &AGFLAGS::bDyeMixOpacityWay),
    I("bLoadCMYKFileToRGB", "LoadCMYKFileToRGB", &AGFLAGS::bLoadCMYKFileToRGB),
    I("bUsedEmbedICC", "UsedEmbedICC", &AGFLAGS::bUsedEmbedICC),
    I("bNeedCloth", "NeedCloth", &AGFLAGS::bNeedCloth),
    I("bBackgroundPaintEnable", "BackgroundPaintEnable", &AGFLAGS::bBackgroundPaintEnable),
    I("nPaintSize", "PaintSize", &AGFLAGS::nPaintSize),
    S("strMapDataCacheDirectory", "MapDataCacheDirectory", &AGFLAGS::strMapDataCacheDirectory),
    I("bMapDataFileEnable", "MapDataFileEnable", &AGFLAGS::bMapDataFileEnable),
    I("bShowSpashScreen", "ShowSpashScreen", &AGFLAGS::bShowSpashScreen),
    U("dwPrnFileSizeLimit", "PrnFileSizeLimit", &AGFLAGS::dwPrnFileSizeLimit),
    I("bMouseWheelForZoomScale", "MouseWheelForZoomScale", &AGFLAGS::bMouseWheelForZoomScale),
    I("bProofDisplay", "ProofDisplay", &AGFLAGS::bProofDisplay),
    S("strRIPDataCacheDirectory", "RipDataCacheDirectory", &AGFLAGS::strRIPDataCacheDirectory),
    I("page_bLayoutLimit", "page_LayoutLimit", &AGFLAGS::page_bLayoutLimit),
    I("page_bSpaceLimit_Enable", "page_SpaceLimit", &AGFLAGS::page_bSpaceLimit_Enable),
    D("page_dSpaceLimit_hor", "page_SpaceLimit_hor", &AGFLAGS::page_dSpaceLimit_hor),
    D("page_dSpaceLimit_ver", "page_SpaceLimit_ver", &AGFLAGS::page_dSpaceLimit_ver),
    I("page_bDefaultToCustomCut", "page_DefaultToCustomCut", &AGFLAGS::page_bDefaultToCustomCut),
    S("strDefaultFontName", "DefaultFontName", &AGFLAGS::strDefaultFontName),
    I("bVirtualBitmapUsed", "VirtualBitmapUsed", &AGFLAGS::bVirtualBitmapUsed),
    I("bCompactFilePalette", "CompactFilePalette", &AGFLAGS::bCompactFilePalette),
    I("bEnableAccountPrivilege", "EnableAccountPrivilege", &AGFLAGS::bEnableAccountPrivilege),
};

const int kFieldCount = (int)(sizeof kFields / sizeof kFields[0]);

// from_chars takes a leading '-' only: a single '+' is skipped here, and a
// sign after it refused (null).
const char* SkipPlus(const char* text) {
  if (*text != '+') return text;
  ++text;
  return (*text == '+' || *text == '-') ? nullptr : text;
}

// Whole-text integer parse: optional sign, decimal digits, nothing else.
bool ParseInt64(const char* text, long long* out) {
  if (!text || !*text) return false;
  const char* p = SkipPlus(text);
  if (!p) return false;
  auto r = std::from_chars(p, p + std::strlen(p), *out);
  return r.ec == std::errc() && *r.ptr == '\0';
}

// Whole-text decimal parse of a finite double, independent of the locale.
bool ParseDouble(const char* text, double* out) {
  if (!text || !*text) return false;
  const char* p = SkipPlus(text);
  if (!p) return false;
  double v = 0;
  auto r = std::from_chars(p, p + std::strlen(p), v, std::chars_format::general);
  if (r.ec != std::errc() || *r.ptr != '\0' || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

// "%.16f", independent of the locale.
CString FormatDouble(double v) {
  char buf[512];
  auto r = std::to_chars(buf, buf + sizeof buf - 1, v, std::chars_format::fixed, 16);
  if (r.ec != std::errc()) return CString("0.0000000000000000");
  *r.ptr = '\0';
  return CString(buf);
}

// Decimal text of an integer field.
CString FormatInt(long long v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%lld", v);
  return CString(buf);
}

CString FormatField(const AGFLAGS& f, const FieldDesc& d) {
  switch (d.type) {
    case FT_RESUNIT: return FormatInt(f.*d.resUnit);
    case FT_SIZEUNIT: return FormatInt(f.*d.sizeUnit);
    case FT_DOUBLE: return FormatDouble(f.*d.d);
    case FT_INT: return FormatInt(f.*d.i);
    case FT_BOOL8: return FormatInt(f.*d.b);
    case FT_DWORD: return FormatInt(f.*d.u);
    case FT_STRING: return f.*d.s;
  }
  return CString();
}

// Takes text into the field when it parses as the field's type and range;
// false (field untouched) otherwise.
bool ParseField(AGFLAGS& f, const FieldDesc& d, const char* text) {
  switch (d.type) {
    case FT_STRING: f.*d.s = text ? text : ""; return true;
    case FT_DOUBLE: return ParseDouble(text, &(f.*d.d));
    default: break;
  }
  // The integer types: a whole-text integer within the type's range.
  long long lo = INT_MIN, hi = INT_MAX, n = 0;
  if (d.type == FT_RESUNIT) {
    lo = RESUNIT_DPI;
    hi = RESUNIT_DPM;
  } else if (d.type == FT_SIZEUNIT) {
    lo = SIZEUNIT_PIXEL;
    hi = SIZEUNIT_INCH;
  } else if (d.type == FT_DWORD) {
    if (!text || *text == '-') return false;  // "-0" is refused too
    lo = 0;
    hi = 0xFFFFFFFFLL;
  }
  if (!ParseInt64(text, &n) || n < lo || n > hi) return false;
  switch (d.type) {
    case FT_RESUNIT: f.*d.resUnit = (AResUnit)n; break;
    case FT_SIZEUNIT: f.*d.sizeUnit = (ASizeUnit)n; break;
    case FT_INT: f.*d.i = (int)n; break;
    case FT_BOOL8: f.*d.b = n != 0; break;
    case FT_DWORD: f.*d.u = (DWORD)n; break;
    default: break;
  }
  return true;
}

void SetDefaults(AGFLAGS& f) {
  f.ResUnit = RESUNIT_DPI;
  f.SizeUnit = SIZEUNIT_MM;
  f.dDefRes = 600.0;  // 600 dots per inch in ResUnit
  f.dDefWidth = 1800.0;
  f.dDefHeight = 10000.0;
  f.ShowRuler = 1;
  f.ShowGridline = 0;
  f.nLRSpace = 30;
  f.nTBSpace = 30;
  f.bDirectDelete = 0;
  f.strCacheDirectory.Empty();
  f.bShowColorGroup = 0;
  f.bEnableToolTip = 1;
  f.nApplicationLook = 0;
  f.PrintDeviceModule.Empty();
  f.bThumbWithMono = 1;
  f.bScaleLimit = 1;
  f.bDyeMixWay = true;
  f.DefaultOpacity = 100;
  f.nReserved1 = 0;
  f.bDyeMixOpacityWay = false;
  f.bLoadCMYKFileToRGB = 1;
  f.bUsedEmbedICC = 1;
  f.bNeedCloth = 0;
  f.bBackgroundPaintEnable = 1;
  f.nPaintSize = 128;
  f.nReserved2 = 1;
  f.nReserved3 = 1;
  f.bMapDataFileEnable = 1;
  f.strMapDataCacheDirectory.Empty();
  f.bShowSpashScreen = 1;
  f.dwPrnFileSizeLimit = 0;
  f.bMouseWheelForZoomScale = 1;
  f.bProofDisplay = 0;
  f.strRIPDataCacheDirectory.Empty();
  f.page_bLayoutLimit = 0;
  f.page_bSpaceLimit_Enable = 0;
  f.page_dSpaceLimit_hor = -1.0;
  f.page_dSpaceLimit_ver = -1.0;
  f.page_bDefaultToCustomCut = 1;
  f.strDefaultFontName = "宋体";
  f.bVirtualBitmapUsed = 0;
  f.bCompactFilePalette = 1;
  f.bEnableAccountPrivilege = 0;
}

// The profile store's file, or false (error set) when it has none.
bool ProfileStorePath(CString& path) {
  path = AProfile::GetAppProfilePath();
  if (!path.IsEmpty()) return true;
  g_Error.SetLastError("The profile store has no path");
  return false;
}

// False (asserted, error set) for a missing or empty file name.
bool IniFileGiven(const char* iniFile) {
  if (iniFile && *iniFile) return true;
  ASSERT(iniFile != nullptr && *iniFile);
  g_Error.SetLastError("No preferences file given");
  return false;
}

}  // namespace

AGFLAGS::AGFLAGS() { SetDefaults(*this); }

BOOL AGFLAGS::Init() {
  try {
    SetDefaults(*this);
    dDefRes = ConvertRes(600, RESUNIT_DPI, ResUnit, TRUE);
    char temp[MAX_PATH + 1];
    if (ADocObj::GetTempDirectory(temp, sizeof temp)) strCacheDirectory = temp;
    strMapDataCacheDirectory = strCacheDirectory;
    strRIPDataCacheDirectory = strCacheDirectory;
  } catch (const std::bad_alloc&) {
    // The strings that could not be had stay empty; the numbers are set.
  }
  return TRUE;
}

int AGFLAGS::GetKeyCount() { return kFieldCount; }

const char* AGFLAGS::GetKeyName(int index) {
  return index >= 0 && index < kFieldCount ? kFields[index].key : nullptr;
}

const char* AGFLAGS::GetProfileValueName(int index) {
  return index >= 0 && index < kFieldCount ? kFields[index].profile : nullptr;
}

CString AGFLAGS::GetKeyValue(int index) const {
  if (index < 0 || index >= kFieldCount) return CString();
  try {
    return FormatField(*this, kFields[index]);
  } catch (const std::bad_alloc&) {
    return CString();
  }
}

BOOL AGFLAGS::SetKeyValue(const char* key, const char* text) {
  if (!key) return FALSE;
  for (const FieldDesc& d : kFields) {
    if (std::strcmp(d.key, key) != 0) continue;
    try {
      return ParseField(*this, d, text) ? TRUE : FALSE;
    } catch (const std::bad_alloc&) {
      return FALSE;
    }
  }
  return FALSE;
}

// The default resolution is stored in ResUnit. When a load changes the unit
// without bringing a resolution of its own (the profile form never holds
// one), the resolution is carried over into the new unit, so that it stays
// the same physical resolution.
BOOL AGFLAGS::LoadSection(const char* file, const char* section, bool profileForm, bool mustExist) {
  try {
    AProfile ini;
    if (!ADocObj::FileExists(file)) {
      if (!mustExist) return TRUE;
      g_Error.SetLastError("Cannot open preferences file \"%s\": no such file", file);
      return FALSE;
    }
    if (!ini.Load(file)) return FALSE;
    AGFLAGS loaded(*this);
    bool resRead = false;
    CString text;
    for (const FieldDesc& d : kFields) {
      const char* name = profileForm ? d.profile : d.key;
      if (!name) continue;
      if (!ini.GetString(section, name, text)) {
        if (ini.HasKey(section, name)) throw std::bad_alloc();  // there, but memory failed
        continue;
      }
      if (ParseField(loaded, d, text.GetString()) && d.d == &AGFLAGS::dDefRes) resRead = true;
    }
    if (!resRead && loaded.ResUnit != ResUnit && loaded.dDefRes > 0)
      loaded.dDefRes = ConvertRes(loaded.dDefRes, ResUnit, loaded.ResUnit, TRUE);
    *this = loaded;
    return TRUE;
  } catch (const std::bad_alloc&) {
    g_Error.SetLastError("Out of memory loading preferences from \"%s\"", file);
    return FALSE;
  }
}

BOOL AGFLAGS::SaveSection(const char* file, const char* section, bool profileForm) const {
  try {
    AProfile ini;
    if (ADocObj::FileExists(file) && !ini.Load(file)) return FALSE;
    for (const FieldDesc& d : kFields) {
      const char* name = profileForm ? d.profile : d.key;
      if (!name) continue;
      if (!ini.SetString(section, name, FormatField(*this, d).GetString())) return FALSE;
    }
    return ini.Save(file);
  } catch (const std::bad_alloc&) {
    g_Error.SetLastError("Out of memory saving preferences to \"%s\"", file);
    return FALSE;
  }
}

BOOL AGFLAGS::LoadFromProfile() {
  CString path;
  if (!ProfileStorePath(path)) return FALSE;
  return LoadSection(path.GetString(), kProfileSection, true, false);
}

BOOL AGFLAGS::SaveToProfile() {
  CString path;
  if (!ProfileStorePath(path)) return FALSE;
  CString folder = ADocObj::GetFolder(path.GetString());
  if (!folder.IsEmpty() && !ADocObj::MakeDirectories(folder.GetString())) return FALSE;
  return SaveSection(path.GetString(), kProfileSection, true);
}

BOOL AGFLAGS::LoadFromProfile(const char* iniFile) {
  if (!IniFileGiven(iniFile)) return FALSE;
  return LoadSection(iniFile, kIniSection, false, true);
}

BOOL AGFLAGS::SaveToProfile(const char* iniFile) {
  if (!IniFileGiven(iniFile)) return FALSE;
  return SaveSection(iniFile, kIniSection, false);
}

// ---------------------------------------------------------------------------
// CAppPath

namespace {

struct PathDesc {
  const char* name;  // directory name; "" for the installation directory
  int parent;        // index of the parent, -1 for the installation directory
};

const PathDesc kPaths[APP_PATH_COUNT] = {
    {"", -1},
    {"FMT", APP_PATH_ROOT},
    {"DRV", APP_PATH_ROOT},
    {"LIB", APP_PATH_ROOT},
    {"RPT", APP_PATH_ROOT},
    {"Profile", APP_PATH_ROOT},
    {"Config", APP_PATH_ROOT},
    {"Chart", APP_PATH_ROOT},
    {"Template", APP_PATH_ROOT},
    {"Printer", APP_PATH_CONFIG},
    {"Debug", APP_PATH_ROOT},
    {"Input", APP_PATH_PROFILE},
    {"InputCMYK", APP_PATH_PROFILE},
    {"Monitor", APP_PATH_PROFILE},
    {"Output", APP_PATH_PROFILE},
    {"Curve", APP_PATH_PROFILE},
    {"NameColor", APP_PATH_PROFILE},
    {"InkLevel", APP_PATH_PROFILE},
    {"ChartLine", APP_PATH_CHART},
    {"ChartICC", APP_PATH_CHART},
    {"ChartProof", APP_PATH_CHART},
};

// The order in which CreatePath makes the directories: parents first.
const int kCreateOrder[APP_PATH_COUNT] = {
    APP_PATH_ROOT,
    APP_PATH_FMT, APP_PATH_DRV, APP_PATH_LIB, APP_PATH_RPT, APP_PATH_PROFILE, APP_PATH_CONFIG, APP_PATH_CHART,
    APP_PATH_INPUT, APP_PATH_INPUTCMYK, APP_PATH_MONITOR, APP_PATH_OUTPUT, APP_PATH_CURVE, APP_PATH_NAMECOLOR,
    APP_PATH_CHARTLINE, APP_PATH_CHARTICC, APP_PATH_CHARTPROOF,
    APP_PATH_TEMPLATE, APP_PATH_PRINTER, APP_PATH_DEBUG,
    APP_PATH_INKLEVEL,
};

bool EndsWithSeparator(const CString& s) {
  if (s.IsEmpty()) return false;
  char c = s[s.GetLength() - 1];
#ifdef _WIN32
  return c == '\\' || c == '/';
#else
  return c == '/';
#endif
}

// The full file name of module, or empty.
CString ModuleFileName(HINSTANCE module) {
#ifdef _WIN32
  wchar_t w[32768];
  DWORD n = GetModuleFileNameW(module, w, (DWORD)(sizeof w / sizeof w[0]));
  if (n == 0 || n >= sizeof w / sizeof w[0]) return CString();
  int bytes = WideCharToMultiByte(CP_UTF8, 0, w, (int)n, nullptr, 0, nullptr, nullptr);
  std::string s((size_t)(bytes > 0 ? bytes : 0), '\0');
  if (bytes > 0) WideCharToMultiByte(CP_UTF8, 0, w, (int)n, &s[0], bytes, nullptr, nullptr);
  return CString(std::move(s));
#else
  Dl_info info;
  std::memset(&info, 0, sizeof info);
  if (!module || dladdr(reinterpret_cast<void*>(module), &info) == 0 || info.dli_fbase != (void*)module)
    return CString();
  std::string name = info.dli_fname ? info.dli_fname : "";
  if (name.find('/') == std::string::npos) {
    // The main program is named as it was started; ask the system instead.
    char exe[4096];
    ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) return CString();
    name.assign(exe, (size_t)n);
  }
  if (name[0] != '/') {
    char cwd[4096];
    if (!::getcwd(cwd, sizeof cwd)) return CString();
    name = std::string(cwd) + "/" + name;
  }
  return CString(std::move(name));
#endif
}

CString ProgramFileName() {
#ifdef _WIN32
  return ModuleFileName(nullptr);
#else
  char exe[4096];
  ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
  return n > 0 ? CString(exe, (int)n) : CString();
#endif
}

}  // namespace

CString* CAppPath::Slot(int index) {
  CString* slots[APP_PATH_COUNT] = {
      &strAppPath,    &strFmtPath,       &strDrvPath,     &strLibPath,    &strRptPath,      &strProfilePath,
      &strConfigPath, &strChartPath,     &strTemplatePath, &strPrinterPath, &strDebugPath,   &strInputPath,
      &strInputCMYKPath, &strMonitorPath, &strOutputPath,  &strCurvePath,  &strNameColorPath, &strInkLevelPath,
      &strChartLinePath, &strChartICCPath, &strChartProofPath,
  };
  return index >= 0 && index < APP_PATH_COUNT ? slots[index] : nullptr;
}

const CString& CAppPath::GetPath(int index) const {
  static const CString empty;
  const CString* p = const_cast<CAppPath*>(this)->Slot(index);
  return p ? *p : empty;
}

const char* CAppPath::GetPathName(int index) {
  return index >= 0 && index < APP_PATH_COUNT ? kPaths[index].name : nullptr;
}

BOOL CAppPath::InitFromFolder(const char* dir) {
  try {
    CString root(dir ? dir : "");
    if (!EndsWithSeparator(root)) root += TQ_PATH_SEPARATOR;
    strAppPath = root;
    for (int i = 1; i < APP_PATH_COUNT; ++i) {
      // Parents come before children in the table, so each parent is built.
      *Slot(i) = *Slot(kPaths[i].parent) + kPaths[i].name + TQ_PATH_SEPARATOR;
    }
    return TRUE;
  } catch (const std::bad_alloc&) {
    return g_Error.SetLastError("Out of memory building the application paths") && FALSE;
  }
}

BOOL CAppPath::Init(HINSTANCE module) {
  try {
    CString file = ModuleFileName(module ? module : tqGetModuleInstance());
    BOOL found = !file.IsEmpty();
    if (!found) file = ProgramFileName();
    CString folder = ADocObj::GetFolder(file.GetString());
    if (!InitFromFolder(folder.GetString())) return FALSE;
    if (!found) {
      g_Error.SetLastError("No module file for instance handle %p; paths are under \"%s\"", (void*)module,
                           strAppPath.GetString());
    }
    return TRUE;
  } catch (const std::bad_alloc&) {
    return g_Error.SetLastError("Out of memory building the application paths") && FALSE;
  }
}

BOOL CAppPath::CreatePath() {
  BOOL ok = TRUE;
  CString firstError;
  for (int index : kCreateOrder) {
    const CString& dir = GetPath(index);
    BOOL made = index == APP_PATH_ROOT ? ADocObj::MakeDirectories(dir.GetString())
                                       : ADocObj::MakeDirectory(dir.GetString());
    if (!made && ok) {
      ok = FALSE;
      g_Error.GetLastError(firstError);
    }
  }
  if (!ok) g_Error.SetLastError("%s", firstError.GetString());
  return TRUE;
}

// ---------------------------------------------------------------------------
// AEnvObj

AEnvObj::AEnvObj()
    : nBitsPixel(32),
      nScreenWidth(1920),
      nScreenHeight(1080),
      nLogPixelsX(96),
      nLogPixelsY(96),
      nHorzSize(508),
      nVertSize(286),
      dScreenResX(96.0),
      dScreenResY(96.0) {
  std::memset(&osVersion, 0, sizeof osVersion);
  osVersion.dwOSVersionInfoSize = sizeof osVersion;
  std::memset(&sysInfo, 0, sizeof sysInfo);
}

void AEnvObj::SetScreen(int bitsPixel, int width, int height, int logPixelsX, int logPixelsY, int widthMM,
                        int heightMM) {
  nBitsPixel = bitsPixel;
  nScreenWidth = width;
  nScreenHeight = height;
  nLogPixelsX = logPixelsX;
  nLogPixelsY = logPixelsY;
  nHorzSize = widthMM;
  nVertSize = heightMM;
  ComputeScreenRes();
}

// Physical dots per millimetre from pixels over millimetres (the logical
// resolution where the size is unknown); the two directions are taken as
// one when they differ by no more than the resolution tolerance; stored as
// dots per inch.
void AEnvObj::ComputeScreenRes() {
  double h = nHorzSize > 0 ? (double)nScreenWidth / nHorzSize : nLogPixelsX / 25.4;
  double v = nVertSize > 0 ? (double)nScreenHeight / nVertSize : nLogPixelsY / 25.4;
  if (std::fabs(h - v) <= (double)TQ_MIN_DPMM) v = h;
  dScreenResX = h * 25.4;
  dScreenResY = v * 25.4;
}

BOOL AEnvObj::Init(int bLoadSettings) {
  // 1. The screen. Without a display server to ask, the usual desktop.
#ifdef _WIN32
  HDC dc = GetDC(nullptr);
  if (dc) {
    nBitsPixel = GetDeviceCaps(dc, BITSPIXEL);
    nScreenWidth = GetDeviceCaps(dc, HORZRES);
    nScreenHeight = GetDeviceCaps(dc, VERTRES);
    nLogPixelsX = GetDeviceCaps(dc, LOGPIXELSX);
    nLogPixelsY = GetDeviceCaps(dc, LOGPIXELSY);
    nHorzSize = GetDeviceCaps(dc, HORZSIZE);
    nVertSize = GetDeviceCaps(dc, VERTSIZE);
    ReleaseDC(nullptr, dc);
  }
#else
  nBitsPixel = 32;
  nScreenWidth = 1920;
  nScreenHeight = 1080;
  nLogPixelsX = 96;
  nLogPixelsY = 96;
  nHorzSize = AnxFloatToInt(1920 * 25.4 / 96, TRUE);
  nVertSize = AnxFloatToInt(1080 * 25.4 / 96, TRUE);
#endif

  // 2. The operating system's version record.
  std::memset(&osVersion, 0, sizeof osVersion);
  osVersion.dwOSVersionInfoSize = sizeof osVersion;
#ifdef _WIN32
#ifdef _MSC_VER
#pragma warning(suppress : 4996)  // GetVersionExA is deprecated but is the record callers expect
#endif
  if (!GetVersionExA(&osVersion)) osVersion.dwPlatformId = 1;
#else
  struct utsname u;
  if (::uname(&u) == 0) {
    unsigned major = 0, minor = 0, build = 0;
    std::sscanf(u.release, "%u.%u.%u", &major, &minor, &build);
    osVersion.dwMajorVersion = major;
    osVersion.dwMinorVersion = minor;
    osVersion.dwBuildNumber = build;
    osVersion.dwPlatformId = 2;  // a multi-user, protected-memory system, as NT
    std::string text = std::string(u.sysname) + " " + u.release + " " + u.machine;
    size_t n = text.size() < sizeof osVersion.szCSDVersion - 1 ? text.size() : sizeof osVersion.szCSDVersion - 1;
    std::memcpy(osVersion.szCSDVersion, text.data(), n);
    osVersion.szCSDVersion[n] = '\0';
  } else {
    osVersion.dwPlatformId = 1;
  }
#endif

  // 3. The screen's physical resolution.
  ComputeScreenRes();

  // 4. The system information record.
  std::memset(&sysInfo, 0, sizeof sysInfo);
#ifdef _WIN32
  GetSystemInfo(&sysInfo);
#else
  long page = ::sysconf(_SC_PAGESIZE);
  long cpus = ::sysconf(_SC_NPROCESSORS_ONLN);
  if (page <= 0) page = 4096;
  if (cpus <= 0) cpus = 1;
#if defined(__x86_64__)
  sysInfo.wProcessorArchitecture = 9;  // AMD64
  sysInfo.dwProcessorType = 8664;
  sysInfo.wProcessorLevel = 6;
#elif defined(__aarch64__)
  sysInfo.wProcessorArchitecture = 12;  // ARM64
#elif defined(__i386__)
  sysInfo.wProcessorArchitecture = 0;  // x86
  sysInfo.dwProcessorType = 586;
  sysInfo.wProcessorLevel = 6;
#else
  sysInfo.wProcessorArchitecture = 0xFFFF;  // unknown
#endif
  sysInfo.dwPageSize = (DWORD)page;
  sysInfo.dwAllocationGranularity = (DWORD)page;  // mmap's granularity
  sysInfo.lpMinimumApplicationAddress = reinterpret_cast<LPVOID>((uintptr_t)page);
  sysInfo.lpMaximumApplicationAddress = reinterpret_cast<LPVOID>(
      sizeof(void*) == 8 ? (uintptr_t)0x00007FFFFFFEFFFFull : (uintptr_t)0xBFFEFFFFul);
  sysInfo.dwNumberOfProcessors = (DWORD)cpus;
  const int maskBits = (int)(sizeof(DWORD_PTR) * 8);
  sysInfo.dwActiveProcessorMask =
      cpus >= maskBits ? ~(DWORD_PTR)0 : (((DWORD_PTR)1 << (unsigned)cpus) - 1);
#endif

  // The settings: the user's preferences from the host's profile store.
  if (bLoadSettings) g_Flags.LoadFromProfile();
  return TRUE;
}
