// abaseobj.h - the application services: the global preference flags
// AGFLAGS (g_Flags) with their two stored forms, the installation's
// directory tree CAppPath (g_AppPath), and the environment object AEnvObj
// (g_EnvObj) with the screen's and the system's facts.
//
// Stored forms of the preferences:
//  - an INI file of the caller's choice, section "GlobalFlags", one key per
//    field named after the field, in the field order except that
//    strMapDataCacheDirectory is written before bMapDataFileEnable;
//  - the host's profile store (an INI file whose path the host sets, see
//    AProfile::SetAppProfilePath), section "GeneralParams\GlobalFlags",
//    value names as listed beside the fields; the default resolution is not
//    part of this form.
// Reading either form: a missing or unreadable value keeps the field's
// current value; a value is taken only when its whole text parses as the
// field's type and lies in the field's range (units 1..5 and 1..6, finite
// doubles, 32-bit integers). When a load changes ResUnit without bringing
// a dDefRes (the profile form never does), dDefRes is carried into the new
// unit, so that it stays the same physical resolution.
// Doubles are written with 16 decimals ("%.16f"): exact for magnitudes of
// 1 and more, to the 16th decimal below that.
#ifndef TQBASE_ABASEOBJ_H
#define TQBASE_ABASEOBJ_H

#include "tqbase/anxfuns.h"

class TQBASE_API AGFLAGS {
public:
  // Every field at its default, except the cache directories, which stay
  // empty until Init asks the system for its temporary directory.
  AGFLAGS();
  AGFLAGS(const AGFLAGS& other) = default;
  AGFLAGS& operator=(const AGFLAGS& other) = default;

  // Every field to its default; returns 1.
  BOOL Init();
  // From / to the host's profile store, section "GeneralParams\GlobalFlags".
  // A store without the section leaves every field as it was. Save creates
  // the store's folder when missing.
  BOOL LoadFromProfile();
  BOOL SaveToProfile();
  // From / to an INI file, section "GlobalFlags". Load fails (fields kept)
  // when the file cannot be read; Save replaces the file atomically and
  // keeps its other sections and keys.
  BOOL LoadFromProfile(const char* iniFile);
  BOOL SaveToProfile(const char* iniFile);

  // The stored fields as key/value text, in the INI file's key order: for
  // settings pages and tools. GetKeyValue and SetKeyValue take the INI key
  // (the field name); SetKeyValue parses like a load and returns FALSE for
  // an unknown key or a value it does not take.
  static int GetKeyCount();
  static const char* GetKeyName(int index);
  static const char* GetProfileValueName(int index);  // null: not in the profile form
  CString GetKeyValue(int index) const;
  BOOL SetKeyValue(const char* key, const char* text);

  AResUnit ResUnit;                  // default resolution unit
  ASizeUnit SizeUnit;                // default size unit
  double dDefRes;                    // default resolution, in ResUnit
  double dDefWidth;                  // default page width, millimetres
  double dDefHeight;                 // default page height, millimetres
  int ShowRuler;
  int ShowGridline;
  int nLRSpace;
  int nTBSpace;
  int bDirectDelete;
  CString strCacheDirectory;
  int bShowColorGroup;
  int bEnableToolTip;
  int nApplicationLook;
  CString PrintDeviceModule;
  int bThumbWithMono;
  int bScaleLimit;
  bool bDyeMixWay;
  int DefaultOpacity;
  int nReserved1;                    // not stored
  bool bDyeMixOpacityWay;
  int bLoadCMYKFileToRGB;
  int bUsedEmbedICC;
  int bNeedCloth;
  int bBackgroundPaintEnable;
  int nPaintSize;
  int nReserved2;                    // not stored
  int nReserved3;                    // not stored
  int bMapDataFileEnable;
  CString strMapDataCacheDirectory;
  int bShowSpashScreen;
  DWORD dwPrnFileSizeLimit;
  int bMouseWheelForZoomScale;
  int bProofDisplay;
  CString strRIPDataCacheDirectory;
  int page_bLayoutLimit;
  int page_bSpaceLimit_Enable;
  double page_dSpaceLimit_hor;
  double page_dSpaceLimit_ver;
  int page_bDefaultToCustomCut;
  CString strDefaultFontName;
  int bVirtualBitmapUsed;
  int bCompactFilePalette;
  int bEnableAccountPrivilege;

private:
  BOOL LoadSection(const char* file, const char* section, bool profileForm, bool mustExist);
  BOOL SaveSection(const char* file, const char* section, bool profileForm) const;
};

// Indices of CAppPath's directories, in the table's order.
enum AAppPathIndex {
  APP_PATH_ROOT = 0,       // the installation directory: the library's folder
  APP_PATH_FMT,            // FMT/
  APP_PATH_DRV,            // DRV/
  APP_PATH_LIB,            // LIB/
  APP_PATH_RPT,            // RPT/
  APP_PATH_PROFILE,        // Profile/
  APP_PATH_CONFIG,         // Config/
  APP_PATH_CHART,          // Chart/
  APP_PATH_TEMPLATE,       // Template/
  APP_PATH_PRINTER,        // Config/Printer/
  APP_PATH_DEBUG,          // Debug/
  APP_PATH_INPUT,          // Profile/Input/
  APP_PATH_INPUTCMYK,      // Profile/InputCMYK/
  APP_PATH_MONITOR,        // Profile/Monitor/
  APP_PATH_OUTPUT,         // Profile/Output/
  APP_PATH_CURVE,          // Profile/Curve/
  APP_PATH_NAMECOLOR,      // Profile/NameColor/
  APP_PATH_INKLEVEL,       // Profile/InkLevel/
  APP_PATH_CHARTLINE,      // Chart/ChartLine/
  APP_PATH_CHARTICC,       // Chart/ChartICC/
  APP_PATH_CHARTPROOF,     // Chart/ChartProof/
  APP_PATH_COUNT
};

// The installation's directories, each ending in the platform's path
// separator ('\' on Windows, '/' elsewhere).
class TQBASE_API CAppPath {
public:
  CAppPath() = default;

  // Builds every directory from the folder of module's file (this
  // library's own file when module is null). Returns 1; when the module's
  // file cannot be found the directories hang under the running program's
  // folder and g_Error says so.
  BOOL Init(HINSTANCE module);
  // Builds every directory under the folder dir (a separator is added when
  // missing); for hosts that keep their data elsewhere.
  BOOL InitFromFolder(const char* dir);
  // Creates every missing directory, parents first, and returns 1. A
  // directory that cannot be created leaves the first failure's text in
  // g_Error (clear g_Error before the call to tell); the others are still
  // attempted.
  BOOL CreatePath();

  // Directory by index (AAppPathIndex); an empty text out of range.
  const CString& GetPath(int index) const;
  // The directory's name as the table gives it ("Profile", "Printer", ...;
  // "" for the installation directory), null out of range.
  static const char* GetPathName(int index);

  CString strAppPath;           // installation directory
  CString strFmtPath;           // FMT
  CString strDrvPath;           // DRV
  CString strLibPath;           // LIB
  CString strRptPath;           // RPT
  CString strProfilePath;       // Profile
  CString strConfigPath;        // Config
  CString strChartPath;         // Chart
  CString strTemplatePath;      // Template
  CString strPrinterPath;       // Config/Printer
  CString strDebugPath;         // Debug
  CString strInputPath;         // Profile/Input
  CString strInputCMYKPath;     // Profile/InputCMYK
  CString strMonitorPath;       // Profile/Monitor
  CString strOutputPath;        // Profile/Output
  CString strCurvePath;         // Profile/Curve
  CString strNameColorPath;     // Profile/NameColor
  CString strInkLevelPath;      // Profile/InkLevel
  CString strChartLinePath;     // Chart/ChartLine
  CString strChartICCPath;      // Chart/ChartICC
  CString strChartProofPath;    // Chart/ChartProof

private:
  CString* Slot(int index);
};

// The display's and the system's facts, filled by Init. Without a display
// (as for a service or a build machine) the screen is taken to be 32 bits
// per pixel, 1920 x 1080 at 96 dots per inch; a host with a real display
// passes its facts to SetScreen.
class TQBASE_API AEnvObj {
public:
  AEnvObj();

  // Fills every field; with bLoadSettings non-zero also loads g_Flags from
  // the host's profile store (start-up passes TRUE). Returns 1.
  BOOL Init(int bLoadSettings);
  // Sets the screen's facts and recomputes the physical resolution.
  void SetScreen(int bitsPixel, int width, int height, int logPixelsX, int logPixelsY, int widthMM,
                 int heightMM);

  int nBitsPixel;          // bits per pixel
  int nScreenWidth;        // pixels
  int nScreenHeight;       // pixels
  int nLogPixelsX;         // logical pixels per inch
  int nLogPixelsY;
  int nHorzSize;           // physical width, millimetres
  int nVertSize;           // physical height, millimetres
  OSVERSIONINFOA osVersion;
  double dScreenResX;      // physical resolution, dots per inch
  double dScreenResY;
  SYSTEM_INFO sysInfo;

private:
  void ComputeScreenRes();
};

extern TQBASE_API AGFLAGS g_Flags;
extern TQBASE_API CAppPath g_AppPath;
extern TQBASE_API AEnvObj g_EnvObj;

#endif  // TQBASE_ABASEOBJ_H
