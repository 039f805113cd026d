// tqbaseapp.h - the module frame: the application object CtqBaseApp with
// the library's start-up and shut-down, the exported global objects, the
// messages to the host's main window (AMsgSend) and the 8-bit channel
// arithmetic tables (ACV).
//
// Loading the library starts it (CtqBaseApp::InitInstance) and unloading
// shuts it down (ExitInstance, which writes the memory manager's leak
// report). A host may call both itself through tqGetBaseApp(): start-up
// while started does nothing and returns TRUE, shut-down while stopped
// does nothing, and a stopped library may be started again.
#ifndef TQBASE_TQBASEAPP_H
#define TQBASE_TQBASEAPP_H

#include "tqbase/abaseobj.h"
#include "tqbase/argbtocmyk.h"
#include "tqbase/aundo.h"
#include "tqbase/statusprogress.h"

// The part of the framework's application class that the module uses.
class TQBASE_API CWinApp {
public:
  explicit CWinApp(const char* appName = nullptr);
  virtual ~CWinApp();
  CWinApp(const CWinApp&) = delete;
  CWinApp& operator=(const CWinApp&) = delete;

  virtual BOOL InitInstance() { return TRUE; }
  // The framework's exit code.
  virtual int ExitInstance() { return 0; }

  HINSTANCE m_hInstance;     // the module's own instance handle
  const char* m_pszAppName;
};

class TQBASE_API CtqBaseApp : public CWinApp {
public:
  CtqBaseApp();
  ~CtqBaseApp() override;

  // Start-up, in this order: the version text; the framework; the sockets
  // (the one failure that stops start-up: message 101 is shown and FALSE
  // returned); g_Error cleared; g_Flags to defaults; g_AppPath from the
  // library's folder; g_EnvObj with the preferences loaded from the
  // profile store; the memory manager's registers; the ACV tables; the
  // undo store emptied; the arrow cursor; the maths and codec tables; the
  // ink-count maps; the two RGB-to-CMYK engines. The services' own results
  // are ignored: a failing service reports through g_Error and its state.
  BOOL InitInstance() override;
  // Shut-down, in this order: the CMYK-input and output engines, the codec,
  // maths and ACV tables, the memory manager (its leak report to the debug
  // trace), the sockets, the framework. Writes no settings back. Returns
  // the framework's exit code.
  int ExitInstance() override;
  // TRUE between a successful InitInstance and the next ExitInstance.
  static BOOL IsStarted();
};

// The library's single application object.
TQBASE_API CtqBaseApp* tqGetBaseApp();

// Messages to the host's main window. The host registers its main window
// as two procedures (send: synchronous, returns the window's result; post:
// queued, returns whether it was queued) and a context; unregistering
// (null procedures) stands for a window that is gone. A call in progress
// when the window is unregistered still completes.
typedef LONG (*AMSGSENDPROC)(void* context, UINT message, UINT wParam, LONG lParam);
typedef BOOL (*AMSGPOSTPROC)(void* context, UINT message, UINT wParam, LONG lParam);

class TQBASE_API AMsgSend {
public:
  // The main window's result; 0 with nothing sent when there is none.
  static LONG ToMain(UINT message, UINT wParam, LONG lParam);
  // The post's result; FALSE with nothing posted when there is none.
  static BOOL PostToMain(UINT message, UINT wParam, LONG lParam);
  // Registers (or, with both procedures null, unregisters) the main window.
  static void SetMainWindow(AMSGSENDPROC send, AMSGPOSTPROC post, void* context);
};

// 8-bit channel arithmetic without multiplications or divisions by 255:
// Dbff[M[a][b]] is a * b / 255 rounded down. Filled by Init at start-up.
class TQBASE_API ACV {
public:
  static WORD M[256][256];     // M[a][b] = a * b
  static BYTE Dbff[65026];     // Dbff[v] = v / 255, rounded down
  static BOOL Init();
  static void Exit();
};

// "Korvel V1.0.1205 build 20120508" once started.
extern TQBASE_API CString g_strAppVersion;
// The system's arrow cursor (off Windows a constant stand-in handle).
extern TQBASE_API HCURSOR g_hCursor;

#endif  // TQBASE_TQBASEAPP_H
