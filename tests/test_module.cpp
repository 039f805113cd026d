// test_module.cpp - the module frame: start-up and shut-down order and
// their effects, idempotence and restart, unload in a child process (a
// fork, or on Windows this program run again for that one test),
// AMsgSend with and without a main window, and the small
// services that start-up brings up (undo store, ink counts, RGB-to-CMYK,
// progress).
#include <gtest/gtest.h>

#include <tqbase/tqbase.h>

#include "test_support.h"

#ifndef _WIN32
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

const char kVersion[] = "Korvel V1.0.1205 build 20120508";

unsigned long ProcessId() {
#ifdef _WIN32
  return GetCurrentProcessId();
#else
  return (unsigned long)getpid();
#endif
}

std::string ReadAll(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

int CountOf(const std::string& text, const std::string& what) {
  int n = 0;
  for (size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) ++n;
  return n;
}

// Restores the started state and the profile store path whatever a test did.
class ModuleTest : public ::testing::Test {
protected:
  void SetUp() override { m_store = AProfile::GetAppProfilePath(); }
  void TearDown() override {
    AProfile::SetAppProfilePath(m_store);
    tqGetBaseApp()->InitInstance();
  }
  CString m_store;
};

TEST_F(ModuleTest, LoadingStartedTheLibrary) {
  ASSERT_NE(tqGetBaseApp(), nullptr);
  EXPECT_TRUE(CtqBaseApp::IsStarted());
  EXPECT_STREQ(g_strAppVersion, kVersion);
  EXPECT_EQ(tqGetBaseApp()->m_hInstance, tqGetModuleInstance());
  EXPECT_NE(g_hCursor, nullptr);
#ifdef TQTEST_HAVE_LCMS2
  EXPECT_TRUE(g_RGBtoCMYK.IsReady() && g_InputCMYK.IsReady());
#else
  // Built without Little CMS: the engines exist and say they cannot convert.
  EXPECT_FALSE(g_RGBtoCMYK.IsReady() || g_InputCMYK.IsReady());
#endif
  EXPECT_FALSE(g_AppPath.strAppPath.IsEmpty());
  EXPECT_NE(g_Flags.ResUnit, 0);
}

TEST_F(ModuleTest, StartingTwiceChangesNothing) {
  g_Flags.nLRSpace = 99;
  g_Error.SetLastError("kept");
  EXPECT_TRUE(tqGetBaseApp()->InitInstance());
  EXPECT_EQ(g_Flags.nLRSpace, 99);
  EXPECT_TRUE(g_Error.IsError());
  g_Error.ClearError();
}

TEST_F(ModuleTest, ShutDownThenRestart) {
  tqtest::HookCapture hooks;
  void* leaked = AGlobalAllocPtr(GHND, 64);  // recorded, then left for the report
  ASSERT_NE(leaked, nullptr);
  EXPECT_EQ(tqGetBaseApp()->ExitInstance(), 0);
  EXPECT_FALSE(CtqBaseApp::IsStarted());
  std::string report = hooks.Trace();
  EXPECT_EQ(CountOf(report, "程序中有用GlobalAlloc函数申请的堆空间没有释放--------\n"), 1) << report;
  EXPECT_NE(report.find("memory is leak,File: "), std::string::npos) << report;
  EXPECT_NE(report.find("test_module.cpp"), std::string::npos) << report;
  // Shut-down stopped the engines; it wrote no settings and ran once only.
  EXPECT_FALSE(g_RGBtoCMYK.IsReady());
  EXPECT_FALSE(g_InputCMYK.IsReady());
  hooks.Clear();
  EXPECT_EQ(tqGetBaseApp()->ExitInstance(), 0);
  EXPECT_EQ(hooks.Trace(), "");

  // Start again: the registers are empty, the error record clear, the
  // version set again, the engines back.
  g_Error.SetLastError("stale");
  g_strAppVersion.Empty();
  EXPECT_TRUE(tqGetBaseApp()->InitInstance());
  EXPECT_TRUE(CtqBaseApp::IsStarted());
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 0);
  EXPECT_STREQ(g_strAppVersion, kVersion);
#ifdef TQTEST_HAVE_LCMS2
  EXPECT_FALSE(g_Error.IsError());
  EXPECT_TRUE(g_RGBtoCMYK.IsReady());
#else
  // The stale text is gone; the last step, the colour engines, left theirs.
  CString why;
  EXPECT_TRUE(g_Error.GetLastError(why));
  EXPECT_NE(std::string(why.GetString()).find("Little CMS"), std::string::npos) << why.GetString();
#endif
  AGV::_RAGlobalFreePtr(leaked);  // no longer recorded: the release form
  EXPECT_EQ(hooks.Assertions(), 0);
}

// Start-up sets the flags to their defaults and then loads the profile
// store over them; the paths come from the library's folder.
TEST_F(ModuleTest, StartUpLoadsThePreferencesAfterTheDefaults) {
  std::string store = (std::filesystem::temp_directory_path() / ("tqmodule." + std::to_string(ProcessId()) + ".ini"))
                          .string();
  {
    std::ofstream f(store, std::ios::binary);
    f << "[GeneralParams\\GlobalFlags]\r\nShowRuler=0\r\nResUnit=3\r\nDefaultFontName=Arial\r\n";
  }
  AProfile::SetAppProfilePath(store.c_str());
  tqGetBaseApp()->ExitInstance();
  g_Flags.nTBSpace = 1;      // not in the store: back to its default
  g_Flags.dDefRes = 1234;    // replaced by 600 dpi, then carried into unit 3
  g_AppPath.strAppPath = "/elsewhere/";
  ASSERT_TRUE(tqGetBaseApp()->InitInstance());
  EXPECT_EQ(g_Flags.ShowRuler, 0);
  EXPECT_EQ(g_Flags.ResUnit, RESUNIT_DPMM);
  EXPECT_STREQ(g_Flags.strDefaultFontName, "Arial");
  EXPECT_EQ(g_Flags.nTBSpace, 30);
  EXPECT_DOUBLE_EQ(g_Flags.dDefRes, 600 / 25.4);
  CAppPath own;
  own.Init(nullptr);
  EXPECT_STREQ(g_AppPath.strAppPath, own.strAppPath);
  std::remove(store.c_str());

  // Shut-down wrote nothing back.
  g_Flags.ShowRuler = 1;
  tqGetBaseApp()->ExitInstance();
  EXPECT_FALSE(std::filesystem::exists(store));
  AProfile::SetAppProfilePath(m_store);
  tqGetBaseApp()->InitInstance();
}

// Unloading in a child process: the leak report of shut-down comes first,
// exactly once, and the application object's destructor line last.
//
// The child's trace goes to a file through the system's own calls: at the
// process's end the C runtime's streams are closed before tqbase.dll is
// detached, and its shut-down still writes.
#ifdef _WIN32
HANDLE g_traceFile = INVALID_HANDLE_VALUE;
void FileSink(const char* text) {
  DWORD written = 0;
  if (g_traceFile != INVALID_HANDLE_VALUE) WriteFile(g_traceFile, text, (DWORD)std::strlen(text), &written, nullptr);
}
void OpenTrace(const std::string& path) {
  g_traceFile = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}
#else
int g_traceFd = -1;
void FileSink(const char* text) {
  if (g_traceFd >= 0) {
    ssize_t ignored = write(g_traceFd, text, std::strlen(text));
    (void)ignored;
  }
}
void OpenTrace(const std::string& path) { g_traceFd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600); }
#endif

// The child: leaks a block, shuts down and starts again, leaks another and
// leaves through exit(). The end of the process runs shut-down (static
// destruction of the loader, or the process detach of tqbase.dll), then
// theApp's destructor.
const char kUnloadChildVar[] = "TQTEST_UNLOAD_TRACE";
[[noreturn]] void UnloadChild(const std::string& trace) {
  OpenTrace(trace);
  tqSetTraceSink(&FileSink);
  AGlobalAllocPtr(GHND, 16);  // left for the report
  tqGetBaseApp()->ExitInstance();
  tqGetBaseApp()->InitInstance();
  AGlobalAllocPtr(GHND, 32);
  std::exit(0);
}

TEST(ModuleUnload, ShutDownRunsOnceBeforeTheObjectsGo) {
  if (const char* child = std::getenv(kUnloadChildVar)) UnloadChild(child);
  std::string trace = (std::filesystem::temp_directory_path() / ("tqunload." + std::to_string(ProcessId()) + ".txt"))
                          .string();
  fflush(nullptr);
#ifdef _WIN32
  // This program again, running this test only, told by the environment
  // to be the child.
  char self[MAX_PATH + 1];
  const DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
  ASSERT_TRUE(n > 0 && n < sizeof self);
  std::string cmd = std::string("\"") + self + "\" --gtest_filter=ModuleUnload.ShutDownRunsOnceBeforeTheObjectsGo";
  ASSERT_TRUE(SetEnvironmentVariableA(kUnloadChildVar, trace.c_str()));
  STARTUPINFOA si;
  std::memset(&si, 0, sizeof si);
  si.cb = sizeof si;
  PROCESS_INFORMATION pi;
  const BOOL started = CreateProcessA(nullptr, &cmd[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi);
  SetEnvironmentVariableA(kUnloadChildVar, nullptr);
  ASSERT_TRUE(started) << "CreateProcessA: " << GetLastError();
  ASSERT_EQ(WaitForSingleObject(pi.hProcess, 60000), WAIT_OBJECT_0);
  DWORD code = 1;
  GetExitCodeProcess(pi.hProcess, &code);
  CloseHandle(pi.hThread);
  CloseHandle(pi.hProcess);
  ASSERT_EQ(code, 0u);
#else
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) UnloadChild(trace);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
#endif
  std::string text = ReadAll(trace);
  std::remove(trace.c_str());
  EXPECT_EQ(CountOf(text, "程序中有用GlobalAlloc函数申请的堆空间没有释放--------\n"), 2) << text;
  EXPECT_EQ(CountOf(text, "以上是用GlobalAlloc函数申请的没有释放的堆空间地址--------\n\n"), 2) << text;
  const std::string last = "CtqBaseApp::~CtqBaseApp()";
  ASSERT_GE(text.size(), last.size()) << text;
  EXPECT_EQ(text.substr(text.size() - last.size()), last) << text;
  EXPECT_EQ(CountOf(text, last), 1);
}

// ---------------------------------------------------------------------------
// AMsgSend

// A main window that counts what reaches it; a send answers
// 100 * message + wParam - lParam, a post succeeds for lParam >= 0.
struct MainWindowLog {
  int sends = 0, posts = 0;
};
LONG SendProc(void* context, UINT message, UINT wParam, LONG lParam) {
  ++static_cast<MainWindowLog*>(context)->sends;
  return (LONG)(100 * message + wParam) - lParam;
}
BOOL PostProc(void* context, UINT, UINT, LONG lParam) {
  ++static_cast<MainWindowLog*>(context)->posts;
  return lParam >= 0;
}

TEST(MsgSend, WithAndWithoutAMainWindow) {
  EXPECT_EQ(AMsgSend::ToMain(0x400, 1, 2), 0);
  EXPECT_FALSE(AMsgSend::PostToMain(0x400, 1, 2));

  MainWindowLog log;
  AMsgSend::SetMainWindow(&SendProc, &PostProc, &log);
  EXPECT_EQ(AMsgSend::ToMain(0x401, 5, -7), 100 * 0x401 + 5 + 7);  // all three arguments arrive
  EXPECT_EQ(log.sends, 1);
  EXPECT_TRUE(AMsgSend::PostToMain(0x402, 0, 1));
  EXPECT_FALSE(AMsgSend::PostToMain(0x402, 0, -1));  // the post's own result
  EXPECT_EQ(log.posts, 2);

  // A window that can be sent to but not posted to.
  AMsgSend::SetMainWindow(&SendProc, nullptr, &log);
  EXPECT_FALSE(AMsgSend::PostToMain(0x402, 0, 1));
  EXPECT_EQ(log.posts, 2);

  // Gone: nothing reaches it.
  AMsgSend::SetMainWindow(nullptr, nullptr, &log);
  EXPECT_EQ(AMsgSend::ToMain(0x401, 5, -7), 0);
  EXPECT_FALSE(AMsgSend::PostToMain(0x402, 0, 1));
  EXPECT_TRUE(log.sends == 1 && log.posts == 2);
}

// ---------------------------------------------------------------------------
// Services

TEST(Undo, StackWithLimits) {
  AUndo u;
  UINT type = 0;
  CArray<BYTE, BYTE> data;
  EXPECT_FALSE(u.Pop(&type, data));
  EXPECT_TRUE(u.Push(1, "abc", 3) && u.Push(2, nullptr, 0) && u.Push(3, "hello", 5));
  EXPECT_EQ(u.GetBytes(), 8u);
  ASSERT_TRUE(u.Pop(&type, data));
  EXPECT_EQ(std::string((const char*)data.GetData(), (size_t)data.GetSize()), "hello");
  EXPECT_TRUE(type == 3u && u.GetBytes() == 3u);
  // Limits drop the oldest steps, by count and by bytes.
  u.SetLimits(2, 0);
  EXPECT_TRUE(u.Push(4, "x", 1) && u.GetCount() == 2);
  for (UINT want : {4u, 2u}) EXPECT_TRUE(u.Pop(&type, data) && type == want) << want;
  EXPECT_TRUE(u.IsEmpty());
  u.SetLimits(0, 10);
  EXPECT_FALSE(u.Push(5, "0123456789A", 11));  // larger than the store
  EXPECT_TRUE(u.Push(5, "01234", 5) && u.Push(6, "01234", 5) && u.Push(7, "0", 1));
  EXPECT_TRUE(u.GetCount() == 2 && u.GetBytes() == 6u);
  tqtest::HookCapture hooks;
  EXPECT_FALSE(u.Push(8, nullptr, 4));
  EXPECT_EQ(hooks.Assertions(), 1);
  EXPECT_TRUE(u.Empty() && u.GetBytes() == 0u);
}

TEST(InkCount, AgreesWithPixelByPixelCount) {
  ASSERT_TRUE(CInkCountInfo::InitMap());
  std::mt19937 rng(11);
  for (int iter = 0; iter < 2000; ++iter) {
    const int bpp = 1 << (rng() % 4);
    std::vector<BYTE> line(rng() % 40);
    for (BYTE& b : line) b = (BYTE)rng();
    unsigned long long dots = 0, levels = 0;
    for (BYTE b : line)
      for (int shift = 8 - bpp; shift >= 0; shift -= bpp) {
        const int px = (b >> shift) & ((1 << bpp) - 1);
        dots += px != 0;
        levels += (unsigned)px;
      }
    ASSERT_EQ(CInkCountInfo::CountDots(line.data(), (DWORD)line.size(), bpp), dots) << "bpp " << bpp;
    ASSERT_EQ(CInkCountInfo::CountLevels(line.data(), (DWORD)line.size(), bpp), levels) << "bpp " << bpp;
  }
  // Lines add up per ink; a bad ink, depth or line adds nothing.
  CInkCountInfo info;
  const BYTE line[] = {0xF0, 0x01};
  EXPECT_TRUE(info.AddLine(3, line, 2, 1) && info.AddLine(3, line, 2, 4));
  EXPECT_TRUE(info.ullDots[3] == 5u + 2u && info.ullLevels[3] == 5u + 15u + 1u);
  EXPECT_FALSE(info.AddLine(16, line, 2, 1) || info.AddLine(0, line, 2, 3) || info.AddLine(0, nullptr, 2, 1));
  EXPECT_EQ(CInkCountInfo::CountDots(line, 2, 5), 0u);
  info.Reset();
  EXPECT_EQ(info.ullDots[3], 0u);
}

struct ProgressLog {
  std::vector<int> positions;
  std::string text;
  BOOL active = FALSE;
};
void ProgressProc(void* context, int pos, int, int, const char* text, BOOL active) {
  auto* log = static_cast<ProgressLog*>(context);
  log->positions.push_back(pos);
  log->text = text;
  log->active = active;
}

TEST(Progress, RangeClampAndCallback) {
  AStatusProgress p;
  ProgressLog log;
  EXPECT_EQ(p.SetCallback(&ProgressProc, &log), nullptr);
  p.Begin("Ripping", 10, 0);  // swapped into 0..10
  int lo = -1, hi = -1;
  p.GetRange(lo, hi);
  EXPECT_TRUE(lo == 0 && hi == 10 && p.IsActive());
  p.SetStep(4);
  for (int k = 0; k < 3; ++k) p.StepIt();  // clamped at 10
  EXPECT_EQ(p.GetPercent(), 100);
  p.SetPos(-5);
  p.OffsetPos(0x7FFFFFFF);  // no overflow: clamped
  p.SetText("Done");
  EXPECT_EQ(log.text, "Done");
  EXPECT_EQ((std::vector<int>{0, 4, 8, 10, 0, 10, 10}), log.positions);
  p.End();
  EXPECT_FALSE(log.active || p.IsActive());
  p.SetRange(5, 5);
  EXPECT_EQ(p.GetPercent(), 0);
  EXPECT_EQ(p.SetCallback(nullptr, nullptr), &ProgressProc);
}

}  // namespace
