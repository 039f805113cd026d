// argbtocmyk.cpp - ARGBToCMYK over Little CMS 2: profile pairs, their
// transforms (one per pixel layout, built on first use), and the search
// for the default CMYK profile.
//
// A loaded pair lives in an Impl that never changes after loading except
// for its transform cache; the engine swaps a whole Impl in on a
// successful load, and conversions hold their Impl while they run, so a
// reload or Exit never pulls a transform from under a conversion.
#include "tqbase/argbtocmyk.h"

#include "tqbase/abaseobj.h"
#include "tqbase/errorinfo.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>

#ifdef TQBASE_HAVE_LCMS2
#include <lcms2.h>
#endif

namespace {

const char kOp[] = "ARGBToCMYK";

void Failed(const std::string& text) { g_Error.SetLastError("%s: %s", kOp, text.c_str()); }

}  // namespace

#ifdef TQBASE_HAVE_LCMS2

namespace {

thread_local std::string t_lcmsError;

// Called from inside Little CMS: nothing may be thrown through it.
void LcmsErrors(cmsContext, cmsUInt32Number, const char* text) noexcept {
  try {
    t_lcmsError = text ? text : "";
  } catch (...) {
    t_lcmsError.clear();
  }
}

void InstallErrorHandler() {
  static std::once_flag once;
  std::call_once(once, [] { cmsSetLogErrorHandler(LcmsErrors); });
}

const cmsUInt32Number kRgbFormats[ARGBToCMYK::LAYOUT_COUNT] = {TYPE_RGB_8, TYPE_BGR_8, TYPE_BGRA_8, TYPE_RGB_16};

CString Description(cmsHPROFILE p) {
  char text[256] = {0};
  cmsGetProfileInfoASCII(p, cmsInfoDescription, "en", "US", text, sizeof text);
  return CString(text);
}

// The default CMYK profile's path: the environment's choice, then the
// library's profile folder, then Ghostscript's colour folders.
std::string DefaultCmykPath() {
  if (const char* env = std::getenv("TQBASE_CMYK_PROFILE"))
    if (*env) return env;
  std::string candidates[] = {
      std::string(g_AppPath.GetPath(APP_PATH_PROFILE).GetString()) + "/default_cmyk.icc",
      "/usr/share/color/icc/ghostscript/default_cmyk.icc",
      "/usr/share/ghostscript/iccprofiles/default_cmyk.icc",
      "/usr/local/share/color/icc/default_cmyk.icc",
  };
  for (const std::string& c : candidates)
    if (FILE* f = std::fopen(c.c_str(), "rb")) {
      std::fclose(f);
      return c;
    }
  return std::string();
}

}  // namespace

struct ARGBToCMYK::Impl {
  cmsHPROFILE rgb = nullptr, cmyk = nullptr;
  int intent = 0;
  bool bpc = true;
  CString rgbName, cmykName;
  std::mutex m;
  cmsHTRANSFORM forward[LAYOUT_COUNT][2] = {};
  cmsHTRANSFORM reverse = nullptr;

  ~Impl() {
    for (auto& row : forward)
      for (cmsHTRANSFORM t : row)
        if (t) cmsDeleteTransform(t);
    if (reverse) cmsDeleteTransform(reverse);
    if (rgb) cmsCloseProfile(rgb);
    if (cmyk) cmsCloseProfile(cmyk);
  }
  cmsUInt32Number Flags() const { return cmsFLAGS_NOCACHE | (bpc ? cmsFLAGS_BLACKPOINTCOMPENSATION : 0); }
  // The transform of a layout, built on first use; null when it cannot be.
  cmsHTRANSFORM Forward(int layout, bool cmyk16) {
    std::lock_guard<std::mutex> lock(m);
    cmsHTRANSFORM& t = forward[layout][cmyk16 ? 1 : 0];
    if (!t)
      t = cmsCreateTransform(rgb, kRgbFormats[layout], cmyk, cmyk16 ? TYPE_CMYK_16 : TYPE_CMYK_8, (cmsUInt32Number)intent,
                             Flags());
    return t;
  }
};

namespace {

// A profile pair checked and made into an engine state; null (with the
// text recorded) when a profile is missing or of the wrong kind. Takes
// the profiles either way.
std::shared_ptr<ARGBToCMYK::Impl> Build(cmsHPROFILE rgb, cmsHPROFILE cmyk, int intent, bool bpc,
                                          const std::string& rgbWhat, const std::string& cmykWhat) {
  std::shared_ptr<ARGBToCMYK::Impl> impl;
  try {
    impl = std::make_shared<ARGBToCMYK::Impl>();
  } catch (...) {
    if (rgb) cmsCloseProfile(rgb);
    if (cmyk) cmsCloseProfile(cmyk);
    throw;
  }
  impl->rgb = rgb;
  impl->cmyk = cmyk;
  impl->intent = intent;
  impl->bpc = bpc;
  if (!rgb) {
    Failed("cannot read the RGB profile " + rgbWhat + (t_lcmsError.empty() ? "" : " (" + t_lcmsError + ")"));
    return nullptr;
  }
  if (!cmyk) {
    Failed("cannot read the CMYK profile " + cmykWhat + (t_lcmsError.empty() ? "" : " (" + t_lcmsError + ")"));
    return nullptr;
  }
  if (cmsGetColorSpace(rgb) != cmsSigRgbData) {
    Failed("the profile " + rgbWhat + " is not an RGB profile");
    return nullptr;
  }
  if (cmsGetColorSpace(cmyk) != cmsSigCmykData || cmsGetDeviceClass(cmyk) != cmsSigOutputClass) {
    Failed("the profile " + cmykWhat + " is not a CMYK output profile");
    return nullptr;
  }
  if (intent < 0 || intent > 3) {
    Failed("unknown rendering intent " + std::to_string(intent));
    return nullptr;
  }
  impl->rgbName = Description(rgb);
  impl->cmykName = Description(cmyk);
  impl->reverse = cmsCreateTransform(cmyk, TYPE_CMYK_8, rgb, TYPE_RGB_8, (cmsUInt32Number)intent, impl->Flags());
  if (!impl->Forward(ARGBToCMYK::LAYOUT_RGB8, false) || !impl->reverse) {
    Failed("the profiles " + rgbWhat + " and " + cmykWhat + " give no transform" +
           (t_lcmsError.empty() ? "" : " (" + t_lcmsError + ")"));
    return nullptr;
  }
  return impl;
}

}  // namespace

#else  // no Little CMS

struct ARGBToCMYK::Impl {};

#endif

ARGBToCMYK::ARGBToCMYK() {}

ARGBToCMYK::~ARGBToCMYK() { Exit(); }

std::shared_ptr<ARGBToCMYK::Impl> ARGBToCMYK::Current() const {
  std::lock_guard<std::mutex> lock(m_lock);
  return m_cur;
}

void ARGBToCMYK::Install(std::shared_ptr<Impl> impl) {
  std::lock_guard<std::mutex> lock(m_lock);
  m_cur.swap(impl);  // the old pair goes when the last conversion using it ends
}

BOOL ARGBToCMYK::IsReady() const { return Current() != nullptr; }

void ARGBToCMYK::Exit() { Install(nullptr); }

BOOL ARGBToCMYK::Init() { return SetProfiles(nullptr, nullptr); }

#ifdef TQBASE_HAVE_LCMS2

BOOL ARGBToCMYK::SetProfiles(const char* rgbPath, const char* cmykPath, int intent, BOOL bpc) try {
  InstallErrorHandler();
  t_lcmsError.clear();
  std::string cmykFile = cmykPath && *cmykPath ? cmykPath : DefaultCmykPath();
  if (cmykFile.empty()) {
    Failed("no CMYK profile: default_cmyk.icc was not found (set TQBASE_CMYK_PROFILE or install libgs-common)");
    return FALSE;
  }
  const bool builtIn = !rgbPath || !*rgbPath;
  cmsHPROFILE rgb = builtIn ? cmsCreate_sRGBProfile() : cmsOpenProfileFromFile(rgbPath, "r");
  cmsHPROFILE cmyk = cmsOpenProfileFromFile(cmykFile.c_str(), "r");
  auto impl = Build(rgb, cmyk, intent, bpc != FALSE, builtIn ? "(built-in sRGB)" : std::string(rgbPath), cmykFile);
  if (!impl) return FALSE;
  Install(impl);
  return TRUE;
} catch (const std::bad_alloc&) {
  g_Error.SetLastError("%s: out of memory", kOp);
  return FALSE;
}

BOOL ARGBToCMYK::SetProfilesFromMemory(const void* rgb, DWORD rgbSize, const void* cmyk, DWORD cmykSize, int intent,
                                       BOOL bpc) try {
  InstallErrorHandler();
  t_lcmsError.clear();
  if (!cmyk || !cmykSize || (!rgb && rgbSize)) {
    Failed("null or empty profile block");
    return FALSE;
  }
  cmsHPROFILE r = rgb ? cmsOpenProfileFromMem(rgb, rgbSize) : cmsCreate_sRGBProfile();
  cmsHPROFILE c = cmsOpenProfileFromMem(cmyk, cmykSize);
  auto impl = Build(r, c, intent, bpc != FALSE, rgb ? "(memory block)" : "(built-in sRGB)", "(memory block)");
  if (!impl) return FALSE;
  Install(impl);
  return TRUE;
} catch (const std::bad_alloc&) {
  g_Error.SetLastError("%s: out of memory", kOp);
  return FALSE;
}

CString ARGBToCMYK::GetRgbProfileName() const {
  auto impl = Current();
  return impl ? impl->rgbName : CString();
}

CString ARGBToCMYK::GetCmykProfileName() const {
  auto impl = Current();
  return impl ? impl->cmykName : CString();
}

int ARGBToCMYK::GetIntent() const {
  auto impl = Current();
  return impl ? impl->intent : INTENT_PERCEPTUAL;
}

BOOL ARGBToCMYK::GetBlackPointCompensation() const {
  auto impl = Current();
  return impl && impl->bpc ? TRUE : FALSE;
}

BOOL ARGBToCMYK::ConvertLine(const void* src, int layout, void* cmyk, BOOL cmyk16, int count) const {
  if (count == 0) return IsReady();
  if (!src || !cmyk || count < 0 || layout < 0 || layout >= LAYOUT_COUNT) return FALSE;
  auto impl = Current();
  if (!impl) return FALSE;
  cmsHTRANSFORM t = impl->Forward(layout, cmyk16 != FALSE);
  if (!t) return FALSE;
  cmsDoTransform(t, src, cmyk, (cmsUInt32Number)count);
  return TRUE;
}

BOOL ARGBToCMYK::ConvertToRGB(const BYTE* cmyk, BYTE* rgb, int count) const {
  if (count == 0) return IsReady();
  if (!cmyk || !rgb || count < 0) return FALSE;
  auto impl = Current();
  if (!impl) return FALSE;
  cmsDoTransform(impl->reverse, cmyk, rgb, (cmsUInt32Number)count);
  return TRUE;
}

#else

// Out of memory for the text itself: the failure stands without it.
BOOL ARGBToCMYK::SetProfiles(const char*, const char*, int, BOOL) try {
  Failed("built without Little CMS: no colour engine");
  return FALSE;
} catch (const std::bad_alloc&) {
  return FALSE;
}
BOOL ARGBToCMYK::SetProfilesFromMemory(const void*, DWORD, const void*, DWORD, int, BOOL) try {
  Failed("built without Little CMS: no colour engine");
  return FALSE;
} catch (const std::bad_alloc&) {
  return FALSE;
}
CString ARGBToCMYK::GetRgbProfileName() const { return CString(); }
CString ARGBToCMYK::GetCmykProfileName() const { return CString(); }
int ARGBToCMYK::GetIntent() const { return INTENT_PERCEPTUAL; }
BOOL ARGBToCMYK::GetBlackPointCompensation() const { return FALSE; }
BOOL ARGBToCMYK::ConvertLine(const void*, int, void*, BOOL, int) const { return FALSE; }
BOOL ARGBToCMYK::ConvertToRGB(const BYTE*, BYTE*, int) const { return FALSE; }

#endif

BOOL ARGBToCMYK::Convert(const BYTE* rgb, BYTE* cmyk, int count) const {
  return ConvertLine(rgb, LAYOUT_RGB8, cmyk, FALSE, count);
}

BOOL ARGBToCMYK::ConvertColor(COLORREF rgb, BYTE cmyk[4]) const {
  const BYTE px[3] = {GetRValue(rgb), GetGValue(rgb), GetBValue(rgb)};
  return Convert(px, cmyk, 1);
}

BOOL ARGBToCMYK::ConvertColorToRGB(const BYTE cmyk[4], COLORREF* rgb) const {
  BYTE px[3];
  if (!rgb || !ConvertToRGB(cmyk, px, 1)) return FALSE;
  *rgb = RGB(px[0], px[1], px[2]);
  return TRUE;
}
