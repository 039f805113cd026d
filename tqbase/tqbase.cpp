// tqbase.cpp - the module: the exported global objects, the application
// object theApp with the start-up and shut-down order, AMsgSend and ACV.
//
// Order matters in this file. The globals below are constructed in the
// order they are defined and destroyed in reverse; the module loader, the
// last object of the file, starts the library once they all exist and
// shuts it down before any of them is destroyed. Every global that
// start-up touches and that has a constructor is defined here, because the
// order in which different files' objects are constructed is the linker's
// (MinGW runs them in the reverse of ELF's order); the rest (the memory
// manager's registers, the trace and assertion hooks, the string tables)
// are constant-initialised or created on first use.
//
// In tqbase.dll on Windows, DllMain drives start-up and shut-down instead
// of the loader: the C runtime constructs the DLL's objects before it calls
// DllMain for the process attach and destroys them after the detach.
#include "tqbase/tqbaseapp.h"

#include "tqbase/acompress.h"
#include "tqbase/amathopt.h"
#include "tqbase/errorinfo.h"
#include "tqbase/inkcountinfo.h"
#include "tqbase/memorymanage.h"

#include <mutex>

namespace {

const char kAppVersion[] = "Korvel V1.0.1205 build 20120508";
const UINT kIdSocketsFailed = 101;

// Start-up state: constant-initialised, so valid before any constructor
// of this file runs and after every destructor.
std::mutex s_lifeMutex;
bool s_started = false;
bool s_socketsStarted = false;

// The host's main window, as registered through AMsgSend::SetMainWindow.
struct MainWindow {
  std::mutex mutex;
  AMSGSENDPROC send = nullptr;
  AMSGPOSTPROC post = nullptr;
  void* context = nullptr;
};
MainWindow s_mainWindow;

#ifdef _WIN32
// Windows Sockets 2.2 through the system's own library, loaded here so that
// the module needs neither the sockets header nor an import library.
// WSADATA is at most a few hundred bytes; the buffer is generously sized.
typedef int(WINAPI* WSASTARTUPPROC)(WORD, void*);
typedef int(WINAPI* WSACLEANUPPROC)(void);
HMODULE s_ws2 = nullptr;

bool StartSockets() {
  s_ws2 = LoadLibraryA("ws2_32.dll");
  if (!s_ws2) return false;
  auto startup = reinterpret_cast<WSASTARTUPPROC>(reinterpret_cast<void*>(GetProcAddress(s_ws2, "WSAStartup")));
  alignas(8) unsigned char data[1024];
  if (!startup || startup(MAKEWORD(2, 2), data) != 0) {
    FreeLibrary(s_ws2);
    s_ws2 = nullptr;
    return false;
  }
  return true;
}

// Set by the detach of a terminating process (DllMain, below): the other
// threads are gone and other DLLs may be detached already, so shut-down
// leaves the sockets library to the system.
bool s_processEnding = false;

void StopSockets() {
  if (!s_ws2) return;
  if (s_processEnding) {
    s_ws2 = nullptr;
    return;
  }
  auto cleanup = reinterpret_cast<WSACLEANUPPROC>(reinterpret_cast<void*>(GetProcAddress(s_ws2, "WSACleanup")));
  if (cleanup) cleanup();
  FreeLibrary(s_ws2);
  s_ws2 = nullptr;
}

HCURSOR ArrowCursor() { return LoadCursor(nullptr, IDC_ARROW); }
#else
// Sockets need no start-up here.
bool StartSockets() { return true; }
void StopSockets() {}

// There are no cursors to load; the handle carries the arrow's resource
// number (IDC_ARROW), so that it is distinct and never null.
HCURSOR ArrowCursor() { return reinterpret_cast<HCURSOR>((uintptr_t)32512); }
#endif

// Runs one start-up step; a step that runs out of memory is skipped like
// any other failing service.
template <class F>
void Step(F&& f) {
  try {
    f();
  } catch (const std::bad_alloc&) {
    g_Error.SetLastError("Out of memory during start-up");
  }
}

}  // namespace

// ---------------------------------------------------------------------------
// Exported globals. g_Error and g_AGV first: every other object may report
// into the first and allocate from the second.

TQBASE_API CErrorInfo g_Error;
TQBASE_API AGV g_AGV;
TQBASE_API CString g_strAppVersion;
TQBASE_API AGFLAGS g_Flags;
TQBASE_API CAppPath g_AppPath;
TQBASE_API AEnvObj g_EnvObj;
TQBASE_API AUndo g_Undo;
TQBASE_API HCURSOR g_hCursor = nullptr;
TQBASE_API ARGBToCMYK g_RGBtoCMYK;
TQBASE_API ARGBToCMYK g_InputCMYK;
TQBASE_API AStatusProgress g_progress;

WORD ACV::M[256][256];
BYTE ACV::Dbff[65026];

// ---------------------------------------------------------------------------
// ACV

BOOL ACV::Init() {
  for (int a = 0; a < 256; ++a)
    for (int b = 0; b < 256; ++b) M[a][b] = (WORD)(a * b);
  for (int v = 0; v < 65026; ++v) Dbff[v] = (BYTE)(v / 255);
  return TRUE;
}

void ACV::Exit() {}

// ---------------------------------------------------------------------------
// AMsgSend

LONG AMsgSend::ToMain(UINT message, UINT wParam, LONG lParam) {
  AMSGSENDPROC send;
  void* context;
  {
    std::lock_guard<std::mutex> lock(s_mainWindow.mutex);
    send = s_mainWindow.send;
    context = s_mainWindow.context;
  }
  return send ? send(context, message, wParam, lParam) : 0;
}

BOOL AMsgSend::PostToMain(UINT message, UINT wParam, LONG lParam) {
  AMSGPOSTPROC post;
  void* context;
  {
    std::lock_guard<std::mutex> lock(s_mainWindow.mutex);
    post = s_mainWindow.post;
    context = s_mainWindow.context;
  }
  return post ? (post(context, message, wParam, lParam) ? TRUE : FALSE) : FALSE;
}

void AMsgSend::SetMainWindow(AMSGSENDPROC send, AMSGPOSTPROC post, void* context) {
  std::lock_guard<std::mutex> lock(s_mainWindow.mutex);
  s_mainWindow.send = send;
  s_mainWindow.post = post;
  s_mainWindow.context = (send || post) ? context : nullptr;
}

// ---------------------------------------------------------------------------
// The application object

CWinApp::CWinApp(const char* appName) : m_hInstance(tqGetModuleInstance()), m_pszAppName(appName) {}

CWinApp::~CWinApp() {}

CtqBaseApp::CtqBaseApp() : CWinApp("tqBase") {}

CtqBaseApp::~CtqBaseApp() { TRACE("%s", "CtqBaseApp::~CtqBaseApp()"); }

BOOL CtqBaseApp::IsStarted() {
  std::lock_guard<std::mutex> lock(s_lifeMutex);
  return s_started;
}

BOOL CtqBaseApp::InitInstance() {
  std::lock_guard<std::mutex> lock(s_lifeMutex);
  if (s_started) return TRUE;

  Step([] { g_strAppVersion = kAppVersion; });
  if (!CWinApp::InitInstance()) return FALSE;
  if (!StartSockets()) {
    AnxDialogMsg(m_hInstance, kIdSocketsFailed, MB_OK | MB_ICONERROR);
    return FALSE;
  }
  s_socketsStarted = true;

  g_Error.ClearError();
  Step([] { g_Flags.Init(); });
  Step([this] { g_AppPath.Init(m_hInstance); });
  Step([] { g_EnvObj.Init(TRUE); });
  AGV::Init();
  ACV::Init();
  g_Undo.Empty();
  g_hCursor = ArrowCursor();
  Step([] { AMathOpt::Init(); });
  Step([] { ACompress::Init(); });
  CInkCountInfo::InitMap();
  g_RGBtoCMYK.Init();
  g_InputCMYK.Init();

  s_started = true;
  return TRUE;
}

int CtqBaseApp::ExitInstance() {
  std::lock_guard<std::mutex> lock(s_lifeMutex);
  if (!s_started) return 0;
  s_started = false;

  g_InputCMYK.Exit();
  g_RGBtoCMYK.Exit();
  ACompress::Exit();
  AMathOpt::Exit();
  ACV::Exit();
  AGV::Exit();
  if (s_socketsStarted) {
    StopSockets();
    s_socketsStarted = false;
  }
  return CWinApp::ExitInstance();
}

namespace {
CtqBaseApp theApp;
}  // namespace

CtqBaseApp* tqGetBaseApp() { return &theApp; }

// ---------------------------------------------------------------------------
// The module loader: starts the library when it is loaded and shuts it down
// when it is unloaded. It must stay the last object defined in this file.

namespace {

#if defined(_WIN32) && !defined(TQBASE_STATIC)
// Objects built for tqbase.dll: DllMain starts the library. The same
// objects linked straight into a program (the internal test build) get no
// DllMain call, so there the loader starts it.
bool StartedByDllMain() { return tqGetModuleInstance() != reinterpret_cast<HINSTANCE>(GetModuleHandleA(nullptr)); }
#else
bool StartedByDllMain() { return false; }
#endif

struct ModuleLoader {
  ModuleLoader() {
    if (!StartedByDllMain()) theApp.InitInstance();
  }
  ~ModuleLoader() { theApp.ExitInstance(); }  // nothing when DllMain has shut down already
};
ModuleLoader s_moduleLoader;

}  // namespace

#if defined(_WIN32) && !defined(TQBASE_STATIC)
// Process attach: start-up (a failed start-up, that is the sockets, fails
// the load). Process detach, whether by FreeLibrary or at the process's
// end: shut-down and its leak report, before the C runtime destroys the
// globals. Threads are not followed.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      DisableThreadLibraryCalls(instance);
      return theApp.InitInstance();
    case DLL_PROCESS_DETACH:
      s_processEnding = reserved != nullptr;
      theApp.ExitInstance();
      return TRUE;
    default:
      return TRUE;
  }
}
#endif
