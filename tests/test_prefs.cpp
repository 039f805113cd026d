// test_prefs.cpp - preferences and paths: AGFLAGS defaults and both stored
// forms (round trips of every field, the written file byte for byte, key
// order, garbage, missing and unwritable files), the INI reader and writer,
// the document file helpers, CAppPath and AEnvObj. The system facts are
// checked against the system's own calls on each platform.
#include <gtest/gtest.h>

#include <tqbase/tqbase.h>

#include "test_support.h"

#ifndef _WIN32
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

void SetEnv(const char* name, const char* value) {
#ifdef _WIN32
  _putenv((std::string(name) + "=" + value).c_str());
#else
  setenv(name, value, 1);
#endif
}

void UnsetEnv(const char* name) {
#ifdef _WIN32
  _putenv((std::string(name) + "=").c_str());  // an empty value removes the variable
#else
  unsetenv(name);
#endif
}

// path with '/' turned into the platform's separator.
std::string Native(std::string path) {
  for (char& c : path)
    if (c == '/') c = TQ_PATH_SEPARATOR;
  return path;
}

// A fresh directory under the temporary directory, removed afterwards.
struct TempDir {
  std::string path = [] {
    std::random_device seed;
    std::mt19937 rng(seed());
    for (int attempt = 0; attempt < 100; ++attempt) {
      const fs::path p = fs::temp_directory_path() / ("tqprefs." + std::to_string(rng()));
      std::error_code ec;
      if (fs::create_directory(p, ec)) return p.string();
    }
    return std::string();
  }();
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(path, ec);
  }
  std::string operator/(const std::string& name) const { return path + "/" + name; }
};

std::string ReadAll(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

void WriteAll(const std::string& path, const std::string& text) {
  std::ofstream f(path, std::ios::binary);
  f << text;
}

std::string LastError() {
  CString text;
  g_Error.GetLastError(text);
  return text.GetString();
}

// The INI file written from the defaults, with the cache folders set to
// "/var/cache/rip/" and the size limit to 4,000,000,000: section, CR LF line
// ends, key order (the map-data pair swapped), "%d", "%u" and "%.16f" forms.
const char kDefaultIni[] =
    "[GlobalFlags]\r\nResUnit=1\r\nSizeUnit=3\r\ndDefRes=600.0000000000000000\r\n"
    "dDefWidth=1800.0000000000000000\r\ndDefHeight=10000.0000000000000000\r\nShowRuler=1\r\n"
    "ShowGridline=0\r\nnLRSpace=30\r\nnTBSpace=30\r\nbDirectDelete=0\r\n"
    "strCacheDirectory=/var/cache/rip/\r\nbShowColorGroup=0\r\nbEnableToolTip=1\r\nnApplicationLook=0\r\n"
    "PrintDeviceModule=\r\nbThumbWithMono=1\r\nbScaleLimit=1\r\nbDyeMixWay=1\r\nDefaultOpacity=100\r\n"
    "bDyeMixOpacityWay=0\r\nbLoadCMYKFileToRGB=1\r\nbUsedEmbedICC=1\r\nbNeedCloth=0\r\n"
    "bBackgroundPaintEnable=1\r\nnPaintSize=128\r\nstrMapDataCacheDirectory=/var/cache/rip/\r\n"
    "bMapDataFileEnable=1\r\nbShowSpashScreen=1\r\ndwPrnFileSizeLimit=4000000000\r\n"
    "bMouseWheelForZoomScale=1\r\nbProofDisplay=0\r\nstrRIPDataCacheDirectory=/var/cache/rip/\r\n"
    "page_bLayoutLimit=0\r\npage_bSpaceLimit_Enable=0\r\npage_dSpaceLimit_hor=-1.0000000000000000\r\n"
    "page_dSpaceLimit_ver=-1.0000000000000000\r\npage_bDefaultToCustomCut=1\r\n"
    "strDefaultFontName=宋体\r\nbVirtualBitmapUsed=0\r\nbCompactFilePalette=1\r\n"
    "bEnableAccountPrivilege=0\r\n";

// The profile store's value names, in the same order (dDefRes has none).
const char* const kProfileNames[] = {
    "ResUnit", "SizeUnit", nullptr, "DefaultWidth", "DefaultHeight", "ShowRuler", "ShowGridline",
    "LRSpaceWidth", "TBSpaceWidth", "DirectDelete", "CacheDirectory", "ShowColorGroup", "EnableToolTip",
    "ApplicationLook", "PrintDeviceModule", "ThumbWithMon", "ScaleLimit", "DyeMixWay", "DefaultOpacity",
    "DyeMixOpacityWay", "LoadCMYKFileToRGB", "UsedEmbedICC", "NeedCloth", "BackgroundPaintEnable", "PaintSize",
    "MapDataCacheDirectory", "MapDataFileEnable", "ShowSpashScreen", "PrnFileSizeLimit",
    "MouseWheelForZoomScale", "ProofDisplay", "RipDataCacheDirectory", "page_LayoutLimit", "page_SpaceLimit",
    "page_SpaceLimit_hor", "page_SpaceLimit_ver", "page_DefaultToCustomCut", "DefaultFontName",
    "VirtualBitmapUsed", "CompactFilePalette", "EnableAccountPrivilege"};

const int kKeyCount = (int)(sizeof kProfileNames / sizeof kProfileNames[0]);

// Every stored field set to a random value that its text form keeps
// exactly (doubles of magnitude 1 and more, or multiples of 1/1024).
AGFLAGS RandomFlags(std::mt19937& rng) {
  AGFLAGS f;
  f.Init();
  auto i = [&] { return (int)(rng() % 2000001) - 1000000; };
  auto d = [&] {
    return rng() % 2 ? ((double)(rng() % 2000000) - 1000000.0) / 1024.0
                     : std::ldexp(1.0 + (rng() % 1000000) / 1e6, (int)(rng() % 40));
  };
  auto s = [&] {
    static const char* const pool[] = {"/tmp/cache/", "C:\\RIP\\Cache\\", "  padded  ", "\"quoted\"",
                                       "宋体", "a=b;c", "", "'", "x"};
    return CString(pool[rng() % 9]);
  };
  f.ResUnit = (AResUnit)(1 + rng() % 5);
  f.SizeUnit = (ASizeUnit)(1 + rng() % 6);
  for (double AGFLAGS::*m : {&AGFLAGS::dDefRes, &AGFLAGS::dDefWidth, &AGFLAGS::dDefHeight,
                             &AGFLAGS::page_dSpaceLimit_hor, &AGFLAGS::page_dSpaceLimit_ver})
    f.*m = d();
  for (int AGFLAGS::*m :
       {&AGFLAGS::ShowRuler, &AGFLAGS::ShowGridline, &AGFLAGS::nLRSpace, &AGFLAGS::nTBSpace,
        &AGFLAGS::bDirectDelete, &AGFLAGS::bShowColorGroup, &AGFLAGS::bEnableToolTip, &AGFLAGS::nApplicationLook,
        &AGFLAGS::bThumbWithMono, &AGFLAGS::bScaleLimit, &AGFLAGS::DefaultOpacity, &AGFLAGS::bLoadCMYKFileToRGB,
        &AGFLAGS::bUsedEmbedICC, &AGFLAGS::bNeedCloth, &AGFLAGS::bBackgroundPaintEnable, &AGFLAGS::nPaintSize,
        &AGFLAGS::bMapDataFileEnable, &AGFLAGS::bShowSpashScreen, &AGFLAGS::bMouseWheelForZoomScale,
        &AGFLAGS::bProofDisplay, &AGFLAGS::page_bLayoutLimit, &AGFLAGS::page_bSpaceLimit_Enable,
        &AGFLAGS::page_bDefaultToCustomCut, &AGFLAGS::bVirtualBitmapUsed, &AGFLAGS::bCompactFilePalette,
        &AGFLAGS::bEnableAccountPrivilege, &AGFLAGS::nReserved1})
    f.*m = i();
  for (CString AGFLAGS::*m : {&AGFLAGS::strCacheDirectory, &AGFLAGS::PrintDeviceModule,
                              &AGFLAGS::strMapDataCacheDirectory, &AGFLAGS::strRIPDataCacheDirectory,
                              &AGFLAGS::strDefaultFontName})
    f.*m = s();
  f.bDyeMixWay = rng() % 2;
  f.bDyeMixOpacityWay = rng() % 2;
  f.dwPrnFileSizeLimit = (DWORD)rng();
  return f;
}

// Field-by-field comparison through the key table, which the test checks
// against its own list of keys below.
std::string Differences(const AGFLAGS& a, const AGFLAGS& b, bool profileForm) {
  std::string diff;
  for (int k = 0; k < AGFLAGS::GetKeyCount(); ++k) {
    if (profileForm && !AGFLAGS::GetProfileValueName(k)) continue;
    if (a.GetKeyValue(k) != b.GetKeyValue(k))
      diff += std::string(AGFLAGS::GetKeyName(k)) + ": " + a.GetKeyValue(k).GetString() + " vs " +
              b.GetKeyValue(k).GetString() + "\n";
  }
  return diff;
}

class PrefsTest : public ::testing::Test {
protected:
  void SetUp() override {
    m_saved = g_Flags;
    m_savedStore = AProfile::GetAppProfilePath();
    g_Error.ClearError();
  }
  void TearDown() override {
    g_Flags = m_saved;
    AProfile::SetAppProfilePath(m_savedStore);
    g_Error.ClearError();
  }
  AGFLAGS m_saved;
  CString m_savedStore;
  TempDir m_dir;
};

// The profile store's value names are a stored form too (the INI key
// names are checked by the exact file below).
TEST_F(PrefsTest, ProfileValueNames) {
  ASSERT_EQ(AGFLAGS::GetKeyCount(), kKeyCount);
  for (int k = 0; k < kKeyCount; ++k)
    EXPECT_STREQ(AGFLAGS::GetProfileValueName(k) ? AGFLAGS::GetProfileValueName(k) : "(none)",
                 kProfileNames[k] ? kProfileNames[k] : "(none)") << k;
  EXPECT_EQ(AGFLAGS::GetKeyName(-1), nullptr);
  EXPECT_EQ(AGFLAGS::GetKeyName(kKeyCount), nullptr);
}

// The stored fields' defaults show in the exact file below; the rest here.
TEST_F(PrefsTest, Defaults) {
  AGFLAGS f;
  EXPECT_TRUE(f.strCacheDirectory.IsEmpty());  // nothing asked of the system before Init
  EXPECT_TRUE(f.Init());
  EXPECT_TRUE(f.nReserved1 == 0 && f.nReserved2 == 1 && f.nReserved3 == 1);
  char temp[MAX_PATH + 1];
  ASSERT_TRUE(ADocObj::GetTempDirectory(temp, sizeof temp));
  EXPECT_STREQ(f.strCacheDirectory, temp);
  EXPECT_STREQ(f.strRIPDataCacheDirectory, temp);
  AGFLAGS c(f);  // the copy is complete
  EXPECT_EQ(Differences(c, f, false), "");
}

TEST_F(PrefsTest, IniFileIsWrittenExactly) {
  AGFLAGS f;
  f.Init();
  f.strCacheDirectory = f.strMapDataCacheDirectory = f.strRIPDataCacheDirectory = "/var/cache/rip/";
  f.dwPrnFileSizeLimit = 4000000000u;
  std::string file = m_dir / "flags.ini";
  ASSERT_TRUE(f.SaveToProfile(file.c_str())) << LastError();
  EXPECT_EQ(ReadAll(file), kDefaultIni);
  // Nothing else is left in the folder (no temporary files).
  int entries = 0;
  for (auto& e : fs::directory_iterator(m_dir.path)) entries += e.is_regular_file();
  EXPECT_EQ(entries, 1);
}

TEST_F(PrefsTest, IniRoundTripOfEveryField) {
  std::mt19937 rng(20120508);
  std::string file = m_dir / "round.ini";
  for (int iter = 0; iter < 200; ++iter) {
    AGFLAGS written = RandomFlags(rng);
    ASSERT_TRUE(written.SaveToProfile(file.c_str())) << LastError();
    AGFLAGS read;
    read.Init();
    read.nReserved1 = 77;
    ASSERT_TRUE(read.LoadFromProfile(file.c_str())) << LastError();
    ASSERT_EQ(Differences(written, read, false), "") << "seed 20120508, iteration " << iter;
    ASSERT_EQ(read.nReserved1, 77);  // not stored
  }
  // Sixteen decimals keep ordinary doubles exactly.
  AGFLAGS a, b;
  a.Init();
  b.Init();
  a.dDefWidth = 1234.5678901234567;
  a.dDefHeight = 1.0 / 3.0;
  ASSERT_TRUE(a.SaveToProfile(file.c_str()));
  ASSERT_TRUE(b.LoadFromProfile(file.c_str()));
  EXPECT_TRUE(b.dDefWidth == a.dDefWidth && b.dDefHeight == a.dDefHeight);
}

TEST_F(PrefsTest, SavingKeepsTheRestOfTheFile) {
  std::string file = m_dir / "shared.ini";
  WriteAll(file,
           "; settings of several modules\n[Other]\nfoo = bar\n\n[GlobalFlags]\nCustom=1\nnTBSpace=5\n"
           "resunit=2\n\n; trailing comment\n[Last]\nx=y\n");
  AGFLAGS f;
  f.Init();
  ASSERT_TRUE(f.LoadFromProfile(file.c_str()));
  EXPECT_EQ(f.ResUnit, RESUNIT_DPSM);  // keys compare without regard to case
  EXPECT_EQ(f.nTBSpace, 5);
  f.nTBSpace = 7;
  ASSERT_TRUE(f.SaveToProfile(file.c_str()));
  std::string text = ReadAll(file);
  // Line ends, other sections, comments and unknown keys stay; changed keys
  // are rewritten in place; new keys follow the section's last key.
  EXPECT_EQ(text.find('\r'), std::string::npos);
  EXPECT_EQ(text.rfind("; settings of several modules\n[Other]\nfoo = bar\n\n[GlobalFlags]\nCustom=1\n"
                       "nTBSpace=7\nresunit=2\nSizeUnit=3\n",
                       0),
            0u)
      << text;
  EXPECT_NE(text.find("bEnableAccountPrivilege=0\n\n; trailing comment\n[Last]\nx=y\n"), std::string::npos)
      << text;
}

TEST_F(PrefsTest, GarbageValuesKeepThePriorValue) {
  std::string file = m_dir / "garbage.ini";
  WriteAll(file,
           "[GlobalFlags]\r\nResUnit=abc\r\nSizeUnit=9\r\ndDefRes=nan\r\ndDefWidth=1e999\r\n"
           "dDefHeight=12.5mm\r\nShowRuler=12abc\r\nShowGridline=\r\nnLRSpace=99999999999\r\n"
           "nTBSpace=  42  \r\ndwPrnFileSizeLimit=-1\r\nbDyeMixWay=2\r\nbDyeMixOpacityWay=x\r\n"
           "nPaintSize=+64\r\nDefaultOpacity=--3\r\npage_dSpaceLimit_hor=0x10\r\n"
           "page_dSpaceLimit_ver=+2.5e1\r\nstrDefaultFontName=\"  Arial  \"\r\nnApplicationLook=-7\r\n"
           "\x01\x02garbage line without equals\r\n=novalue\r\n[unterminated\r\n");
  AGFLAGS f;
  f.Init();
  ASSERT_TRUE(f.LoadFromProfile(file.c_str()));
  // Only the well-formed values were taken; the rest kept their defaults.
  AGFLAGS want;
  want.Init();
  want.nTBSpace = 42;
  want.dwPrnFileSizeLimit = 0;
  want.bDyeMixWay = TRUE;
  want.nPaintSize = 64;
  want.page_dSpaceLimit_ver = 25.0;
  want.strDefaultFontName = "  Arial  ";
  want.nApplicationLook = -7;
  EXPECT_EQ(Differences(want, f, false), "");
}

TEST_F(PrefsTest, MissingAndUnwritableFiles) {
  AGFLAGS f;
  f.Init();
  f.nLRSpace = 11;
  std::string missing = m_dir / "none.ini";
  EXPECT_FALSE(f.LoadFromProfile(missing.c_str()));
  EXPECT_NE(LastError().find(missing), std::string::npos) << LastError();
  EXPECT_EQ(f.nLRSpace, 11);

  // A regular file where a folder should be: every user, root included,
  // fails to write beneath it.
  std::string blocker = m_dir / "blocker";
  WriteAll(blocker, "x");
  std::string below = blocker + "/flags.ini";
  g_Error.ClearError();
  EXPECT_FALSE(f.SaveToProfile(below.c_str()));
  EXPECT_TRUE(g_Error.IsError());
  EXPECT_NE(LastError().find(blocker), std::string::npos) << LastError();
  EXPECT_EQ(ReadAll(blocker), "x");

  // A value that cannot be stored fails the save and leaves the file.
  std::string file = m_dir / "keep.ini";
  ASSERT_TRUE(f.SaveToProfile(file.c_str()));
  std::string before = ReadAll(file);
  f.PrintDeviceModule = "two\nlines";
  EXPECT_FALSE(f.SaveToProfile(file.c_str()));
  EXPECT_EQ(ReadAll(file), before);

  tqtest::HookCapture hooks;
  EXPECT_FALSE(f.LoadFromProfile(nullptr));
  EXPECT_FALSE(f.SaveToProfile(""));
  EXPECT_EQ(hooks.Assertions(), 2);
}

TEST_F(PrefsTest, ProfileStoreRoundTrip) {
  std::string store = m_dir / "store/sub/tqbase.ini";  // folders made on save
  ASSERT_TRUE(AProfile::SetAppProfilePath(store.c_str()));
  EXPECT_STREQ(AProfile::GetAppProfilePath(), store.c_str());

  // No store yet: the load succeeds and changes nothing.
  AGFLAGS f;
  f.Init();
  f.nPaintSize = 3;
  EXPECT_TRUE(f.LoadFromProfile());
  EXPECT_EQ(f.nPaintSize, 3);

  std::mt19937 rng(5);
  for (int iter = 0; iter < 100; ++iter) {
    AGFLAGS written = RandomFlags(rng);
    ASSERT_TRUE(written.SaveToProfile()) << LastError();
    AGFLAGS read = RandomFlags(rng);
    read.ResUnit = written.ResUnit;  // the resolution is not stored; keep its unit comparable
    double res = read.dDefRes;
    ASSERT_TRUE(read.LoadFromProfile());
    ASSERT_EQ(Differences(written, read, true), "") << "seed 5, iteration " << iter;
    ASSERT_EQ(read.dDefRes, res);
  }
  std::string text = ReadAll(store);
  EXPECT_EQ(text.rfind("[GeneralParams\\GlobalFlags]\r\nResUnit=", 0), 0u);
  EXPECT_NE(text.find("\r\nThumbWithMon="), std::string::npos);
  EXPECT_EQ(text.find("dDefRes"), std::string::npos);
  EXPECT_EQ(text.find("[GlobalFlags]"), std::string::npos);
}

// Only the store's own section counts; a new resolution unit carries the
// resolution over into it.
TEST_F(PrefsTest, ProfileStoreSectionAndResolutionUnit) {
  std::string store = m_dir / "other.ini";
  WriteAll(store, "[GeneralParams\\Other]\r\nShowRuler=0\r\n[GlobalFlags]\r\nShowRuler=0\r\n");
  AProfile::SetAppProfilePath(store.c_str());
  AGFLAGS f;
  f.Init();  // 600 dots per inch
  AGFLAGS before(f);
  EXPECT_TRUE(f.LoadFromProfile());
  EXPECT_EQ(Differences(before, f, false), "");
  WriteAll(store, "[GeneralParams\\GlobalFlags]\r\nResUnit=3\r\n");
  ASSERT_TRUE(f.LoadFromProfile());
  EXPECT_EQ(f.ResUnit, RESUNIT_DPMM);
  EXPECT_DOUBLE_EQ(f.dDefRes, 600 / 25.4);
}

TEST_F(PrefsTest, ProfilePathDefaults) {
  AProfile::SetAppProfilePath(nullptr);
  const char* env = std::getenv("TQBASE_PROFILE");
  if (env && *env) {
    EXPECT_STREQ(AProfile::GetAppProfilePath(), env);
  }
  std::string saved = env ? env : "";
  UnsetEnv("TQBASE_PROFILE");
#ifdef _WIN32
  // The user's roaming application data.
  std::string appdata = std::getenv("APPDATA") ? std::getenv("APPDATA") : "";
  SetEnv("APPDATA", "C:\\Users\\someone\\AppData\\Roaming");
  EXPECT_STREQ(AProfile::GetAppProfilePath(), "C:\\Users\\someone\\AppData\\Roaming\\Korvel\\tqbase.ini");
  if (appdata.empty())
    UnsetEnv("APPDATA");
  else
    SetEnv("APPDATA", appdata.c_str());
#else
  std::string xdg = std::getenv("XDG_CONFIG_HOME") ? std::getenv("XDG_CONFIG_HOME") : "";
  SetEnv("XDG_CONFIG_HOME", "/cfg");
  EXPECT_STREQ(AProfile::GetAppProfilePath(), "/cfg/Korvel/tqbase.ini");
  SetEnv("XDG_CONFIG_HOME", "relative");  // not absolute: ignored
  std::string p = AProfile::GetAppProfilePath().GetString();
  EXPECT_NE(p.find("/.config/Korvel/tqbase.ini"), std::string::npos) << p;
  if (xdg.empty())
    UnsetEnv("XDG_CONFIG_HOME");
  else
    SetEnv("XDG_CONFIG_HOME", xdg.c_str());
#endif
  if (!saved.empty()) SetEnv("TQBASE_PROFILE", saved.c_str());
}

TEST_F(PrefsTest, KeyValueAccess) {
  AGFLAGS f;
  f.Init();
  EXPECT_TRUE(f.SetKeyValue("nLRSpace", "12"));
  EXPECT_EQ(f.nLRSpace, 12);
  EXPECT_FALSE(f.SetKeyValue("LRSpaceWidth", "12"));  // profile names are not keys
  EXPECT_FALSE(f.SetKeyValue(nullptr, "1"));
  EXPECT_FALSE(f.SetKeyValue("ResUnit", "0"));
  EXPECT_FALSE(f.SetKeyValue("dwPrnFileSizeLimit", "4294967296"));
  EXPECT_TRUE(f.SetKeyValue("dwPrnFileSizeLimit", "4294967295"));
  EXPECT_STREQ(f.GetKeyValue(28), "4294967295");
  EXPECT_TRUE(f.SetKeyValue("dDefWidth", "1e3"));
  EXPECT_STREQ(f.GetKeyValue(3), "1000.0000000000000000");
  EXPECT_TRUE(f.GetKeyValue(99).IsEmpty());
}

// ---------------------------------------------------------------------------
// AProfile

TEST(Profile, ReadingRules) {
  AProfile p;
  const std::string text =
      "\xEF\xBB\xBFtop=ignored\n[ Sec ]\n  Key  =  value with spaces  \nq=\"  kept  \"\ns='x'\nbad='x\"\n"
      ";c=comment\nempty=\n[sec]\nkey=second section loses\n[Other]\nKEY=other\n";
  ASSERT_TRUE(p.Parse(text.data(), text.size()));
  CString v;
  const char* const found[][3] = {{"sec", "key", "value with spaces"}, {"SEC", "Q", "  kept  "}, {"Sec", "s", "x"},
                                  {"Sec", "bad", "'x\""}, {"Sec", "empty", ""}, {"other", "key", "other"}};
  for (const auto& f : found) {
    EXPECT_TRUE(p.GetString(f[0], f[1], v)) << f[0] << "/" << f[1];
    EXPECT_STREQ(v, f[2]) << f[0] << "/" << f[1];
  }
  for (const char* missing : {";c", "top"}) EXPECT_FALSE(p.GetString("Sec", missing, v)) << missing;
  EXPECT_FALSE(p.GetString("Nope", "key", v));
  CArray<CString, const CString&> keys;
  EXPECT_TRUE(p.GetKeyNames("sec", keys));
  ASSERT_EQ(keys.GetSize(), 5);
  EXPECT_STREQ(keys[0], "Key");
  EXPECT_STREQ(keys[4], "empty");
  // Untouched, the text comes back as it was read, BOM and line ends too.
  EXPECT_EQ(std::string(p.GetText().GetString(), (size_t)p.GetText().GetLength()), text);
}

TEST(Profile, WritingRules) {
  AProfile p;
  EXPECT_TRUE(p.SetString("A", "k", "v"));
  EXPECT_TRUE(p.SetString("B", "k", "w"));
  EXPECT_TRUE(p.SetString("a", "K2", "v2"));
  EXPECT_TRUE(p.SetString("A", "K", "v3"));
  EXPECT_STREQ(p.GetText(), "[A]\r\nk=v3\r\nK2=v2\r\n\r\n[B]\r\nk=w\r\n");
  const char* const refused[][3] = {{"A", "bad=key", "v"}, {"A", " k", "v"}, {"A", ";k", "v"}, {"A]", "k", "v"},
                                    {"", "k", "v"},        {"A", "k", "line\r\nbreak"}, {nullptr, "k", "v"}};
  for (const auto& r : refused) EXPECT_FALSE(p.SetString(r[0], r[1], r[2])) << (r[0] ? r[0] : "null") << "/" << r[1];
  EXPECT_TRUE(p.SetString("A", "k", nullptr));
  CString v;
  EXPECT_TRUE(p.GetString("A", "k", v));
  EXPECT_STREQ(v, "");
  EXPECT_TRUE(p.DeleteKey("a", "K2"));
  EXPECT_FALSE(p.DeleteKey("a", "K2"));
  EXPECT_TRUE(p.DeleteSection("b"));
  EXPECT_FALSE(p.HasSection("B"));
  EXPECT_STREQ(p.GetText(), "[A]\r\nk=\r\n\r\n");
}

TEST(Profile, EveryValueRoundTrips) {
  std::mt19937 rng(3);
  const char alphabet[] = " \t\"'=;[]#abcXYZ012\\/.";
  for (int iter = 0; iter < 2000; ++iter) {
    std::string value;
    int n = (int)(rng() % 12);
    for (int i = 0; i < n; ++i) value += alphabet[rng() % (sizeof alphabet - 1)];
    AProfile w;
    ASSERT_TRUE(w.SetString("S", "k", value.c_str()));
    CString text = w.GetText();
    AProfile r;
    ASSERT_TRUE(r.Parse(text.GetString(), (size_t)text.GetLength()));
    CString back;
    ASSERT_TRUE(r.GetString("S", "k", back));
    ASSERT_EQ(std::string(back.GetString()), value) << "value \"" << value << "\" written as " << text.GetString();
  }
}

TEST(Profile, LoadSaveAndCopies) {
  TempDir dir;
  AProfile p, q;
  EXPECT_FALSE(p.Load((dir / "missing.ini").c_str()));
  EXPECT_NE(LastError().find("missing.ini"), std::string::npos);
  p.SetString("S", "k", "v");
  ASSERT_TRUE(p.Save((dir / "p.ini").c_str()));
  ASSERT_TRUE(q.Load((dir / "p.ini").c_str()));
  EXPECT_STREQ(q.GetText(), p.GetText());
  AProfile copy(q);
  q.Clear();
  EXPECT_FALSE(q.HasSection("S"));
  q = copy;
  EXPECT_TRUE(q.HasSection("S"));
}

// ---------------------------------------------------------------------------
// ADocObj

TEST(DocObj, AtomicWrite) {
  TempDir dir;
  std::string file = dir / "data.bin";
  ASSERT_TRUE(ADocObj::WriteFileAtomic(file.c_str(), "first", 5));
  EXPECT_EQ(ReadAll(file), "first");
#ifndef _WIN32
  // The file's permissions stay; through a symbolic link the target is
  // replaced and the link stays (POSIX files: Windows has neither mode
  // bits nor links that an ordinary user makes).
  chmod(file.c_str(), 0640);
  ASSERT_TRUE(ADocObj::WriteFileAtomic(file.c_str(), "second!", 7));
  EXPECT_EQ(ReadAll(file), "second!");
  struct stat st;
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  std::string link = dir / "link.bin";
  ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
  ASSERT_TRUE(ADocObj::WriteFileAtomic(link.c_str(), "third", 5));
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(ReadAll(file), "third");
  const int kFiles = 2;
#else
  // Replacing an existing file.
  ASSERT_TRUE(ADocObj::WriteFileAtomic(file.c_str(), "second!", 7));
  EXPECT_EQ(ReadAll(file), "second!");
  const int kFiles = 1;
#endif
  ASSERT_TRUE(ADocObj::WriteFileAtomic(file.c_str(), nullptr, 0));
  EXPECT_EQ(ReadAll(file), "");
  // No temporary file left behind.
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path), fs::directory_iterator()), kFiles);
  std::string nodir = dir / "no/such/dir/file";
  EXPECT_FALSE(ADocObj::WriteFileAtomic(nodir.c_str(), "x", 1));
  EXPECT_NE(LastError().find("no/such/dir"), std::string::npos);
}

TEST(DocObj, FilesAndFolders) {
  TempDir dir;
  char small[4], temp[MAX_PATH + 1];
  EXPECT_FALSE(ADocObj::GetTempDirectory(small, sizeof small));
  EXPECT_STREQ(small, "");
  ASSERT_TRUE(ADocObj::GetTempDirectory(temp, sizeof temp));
  EXPECT_TRUE(temp[std::strlen(temp) - 1] == TQ_PATH_SEPARATOR && ADocObj::DirectoryExists(temp)) << temp;

  std::string deep = dir / "a/b/c/", f = dir / "a/file.txt", g = dir / "a/moved.txt";
  EXPECT_TRUE(ADocObj::MakeDirectories(deep.c_str()) && ADocObj::DirectoryExists(deep.c_str()));
  EXPECT_TRUE(ADocObj::MakeDirectory(deep.c_str()));  // exists already
  WriteAll(f, std::string("a\0b", 3));
  EXPECT_FALSE(ADocObj::FileExists(deep.c_str()) || ADocObj::MakeDirectories((f + "/sub/more").c_str()));
  CString data;
  EXPECT_TRUE(ADocObj::ReadFileData(f.c_str(), data) && data.GetLength() == 3);
  EXPECT_FALSE(ADocObj::ReadFileData(f.c_str(), data, 2));  // larger than the limit
  EXPECT_TRUE(ADocObj::RenameFile(f.c_str(), g.c_str()) && !ADocObj::FileExists(f.c_str()));
  EXPECT_TRUE(ADocObj::RemoveFile(g.c_str()) && ADocObj::RemoveFile(g.c_str()));  // the second: already gone
  EXPECT_FALSE(ADocObj::RenameFile(g.c_str(), f.c_str()) || ADocObj::ReadFileData(g.c_str(), data));

  EXPECT_STREQ(ADocObj::GetFolder("/a/b/c.ini"), "/a/b/");
  EXPECT_STREQ(ADocObj::GetFolder("c.ini"), "");
  for (const char* good : {"job 1.prn", "图案.tif", "console.txt"}) EXPECT_TRUE(ADocObj::IsValidFileName(good)) << good;
  for (const char* bad : {"", "a/b", "a\\b", "a:b", "what?", "x*", "tab\t", "dot.", "blank ", "CON", "nul.txt",
                          "Com1.ini", "LPT9"})
    EXPECT_FALSE(ADocObj::IsValidFileName(bad)) << bad;
}

// ---------------------------------------------------------------------------
// CAppPath

TEST(AppPath, DirectoriesHangUnderTheFolder) {
  CAppPath p;
  ASSERT_TRUE(p.InitFromFolder(Native("/A/B").c_str()));
  EXPECT_EQ(p.strAppPath.GetString(), Native("/A/B/"));
  EXPECT_EQ(p.strInputPath.GetString(), Native("/A/B/Profile/Input/"));
  EXPECT_EQ(p.strChartProofPath.GetString(), Native("/A/B/Chart/ChartProof/"));
  const char* names[] = {"",        "FMT",    "DRV",       "LIB",     "RPT",    "Profile",   "Config",
                         "Chart",   "Template", "Printer", "Debug",   "Input",  "InputCMYK", "Monitor",
                         "Output",  "Curve",  "NameColor", "InkLevel", "ChartLine", "ChartICC", "ChartProof"};
  ASSERT_EQ((int)(sizeof names / sizeof names[0]), (int)APP_PATH_COUNT);
  for (int i = 1; i < APP_PATH_COUNT; ++i) {
    EXPECT_STREQ(CAppPath::GetPathName(i), names[i]);
    std::string path = p.GetPath(i).GetString();
    std::string tail = Native(std::string("/") + names[i] + "/");
    ASSERT_GE(path.size(), tail.size());
    EXPECT_EQ(path.substr(path.size() - tail.size()), tail) << i;
  }
  EXPECT_EQ(CAppPath::GetPathName(APP_PATH_COUNT), nullptr);
  EXPECT_TRUE(p.GetPath(-1).IsEmpty());
}

// The file of the module that holds function, and the program's file, as
// the system names them.
std::string ModuleFileOf(void (*function)()) {
#ifdef _WIN32
  HMODULE module = nullptr;
  if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<LPCSTR>(function), &module))
    return std::string();
  char name[MAX_PATH + 1];
  const DWORD n = GetModuleFileNameA(module, name, sizeof name);
  return n > 0 && n < sizeof name ? std::string(name, n) : std::string();
#else
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(function), &info) == 0 || !info.dli_fname) return std::string();
  return info.dli_fname;
#endif
}

std::string ProgramFile() {
#ifdef _WIN32
  char name[MAX_PATH + 1];
  const DWORD n = GetModuleFileNameA(nullptr, name, sizeof name);
  return n > 0 && n < sizeof name ? std::string(name, n) : std::string();
#else
  return fs::read_symlink("/proc/self/exe").string();
#endif
}

TEST(AppPath, InitFindsTheLibraryFile) {
  std::string lib = ModuleFileOf(reinterpret_cast<void (*)()>(&AnxFloatToInt));
  ASSERT_FALSE(lib.empty());
  std::string folder = lib.substr(0, lib.rfind(TQ_PATH_SEPARATOR) + 1);
  CAppPath p;
  EXPECT_TRUE(p.Init(nullptr));
  EXPECT_EQ(std::string(p.strAppPath.GetString()), folder);
  CAppPath q;
  EXPECT_TRUE(q.Init(tqGetModuleInstance()));
  EXPECT_STREQ(q.strFmtPath, p.strFmtPath);
  EXPECT_STREQ(g_AppPath.strAppPath, p.strAppPath);  // as start-up set them

  // A handle that names no module: still 1, a message, the program's folder.
  static int notAModule;
  g_Error.ClearError();
  CAppPath r;
  EXPECT_TRUE(r.Init(reinterpret_cast<HINSTANCE>(&notAModule)));
  EXPECT_TRUE(g_Error.IsError());
  std::string exe = ProgramFile();
  EXPECT_EQ(std::string(r.strAppPath.GetString()), exe.substr(0, exe.rfind(TQ_PATH_SEPARATOR) + 1));
  g_Error.ClearError();
}

TEST(AppPath, CreatePathMakesEveryDirectory) {
  TempDir dir;
  CAppPath p;
  std::string root = dir / "install/here";
  p.InitFromFolder(root.c_str());
  EXPECT_TRUE(p.CreatePath()) << LastError();
  for (int i = 0; i < APP_PATH_COUNT; ++i) EXPECT_TRUE(fs::is_directory(p.GetPath(i).GetString())) << i;
  EXPECT_TRUE(p.CreatePath());

  std::string blocker = dir / "file";
  WriteAll(blocker, "x");
  CAppPath bad;
  bad.InitFromFolder((blocker + "/inside").c_str());
  g_Error.ClearError();
  EXPECT_TRUE(bad.CreatePath());  // returns 1 always; the failure is in g_Error
  EXPECT_TRUE(g_Error.IsError());
  EXPECT_NE(LastError().find(blocker), std::string::npos) << LastError();
  g_Error.ClearError();
}

// ---------------------------------------------------------------------------
// AEnvObj

TEST(EnvObj, FactsWithoutADisplay) {
  AEnvObj e;
  EXPECT_TRUE(e.Init(FALSE));
#ifdef _WIN32
  // The screen's device capabilities, as the system gives them.
  HDC dc = GetDC(nullptr);
  ASSERT_NE(dc, nullptr);
  EXPECT_EQ(e.nScreenWidth, GetDeviceCaps(dc, HORZRES));
  EXPECT_EQ(e.nScreenHeight, GetDeviceCaps(dc, VERTRES));
  EXPECT_EQ(e.nHorzSize, GetDeviceCaps(dc, HORZSIZE));
  EXPECT_EQ(e.nLogPixelsY, GetDeviceCaps(dc, LOGPIXELSY));
  ReleaseDC(nullptr, dc);
  EXPECT_GT(e.dScreenResX, 0.0);
#else
  // 1920 pixels on 508 mm is 96.0 dpi; 1080 on 286 mm is 95.9, within
  // tolerance of it and so taken as the same.
  EXPECT_TRUE(e.nScreenWidth == 1920 && e.nHorzSize == 508 && e.nScreenHeight == 1080 && e.nVertSize == 286);
  EXPECT_DOUBLE_EQ(e.dScreenResX, 96.0);
  EXPECT_EQ(e.dScreenResY, e.dScreenResX);
#endif
  EXPECT_EQ(e.osVersion.dwOSVersionInfoSize, 148u);
  EXPECT_EQ(e.osVersion.dwPlatformId, 2u);
  EXPECT_GT(e.osVersion.dwMajorVersion, 0u);
#ifdef _WIN32
  SYSTEM_INFO si;
  GetSystemInfo(&si);
  EXPECT_EQ(e.sysInfo.dwPageSize, si.dwPageSize);
  EXPECT_EQ(e.sysInfo.dwNumberOfProcessors, si.dwNumberOfProcessors);
  EXPECT_EQ(e.sysInfo.dwAllocationGranularity, si.dwAllocationGranularity);
#else
  EXPECT_NE(std::string(e.osVersion.szCSDVersion).find("Linux"), std::string::npos);
  EXPECT_EQ(e.sysInfo.dwPageSize, (DWORD)sysconf(_SC_PAGESIZE));
  EXPECT_EQ(e.sysInfo.dwNumberOfProcessors, (DWORD)sysconf(_SC_NPROCESSORS_ONLN));
#endif
  EXPECT_NE(e.sysInfo.dwActiveProcessorMask, 0u);

  // A screen whose directions differ keeps them apart.
  e.SetScreen(24, 2000, 1000, 120, 120, 400, 400);
  EXPECT_DOUBLE_EQ(e.dScreenResX, 2000 / 400.0 * 25.4);
  EXPECT_DOUBLE_EQ(e.dScreenResY, 1000 / 400.0 * 25.4);
  e.SetScreen(24, 2000, 1000, 120, 90, 0, 0);  // size unknown: the logical resolution
  EXPECT_DOUBLE_EQ(e.dScreenResX, 120.0);
  EXPECT_DOUBLE_EQ(e.dScreenResY, 90.0);
}

}  // namespace
