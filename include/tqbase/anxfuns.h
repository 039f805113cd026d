// anxfuns.h - the annex helpers: float-to-integer conversion with the
// library's nudge and rounding, fixed-decimal number text, integer text,
// string resources (this library's compiled-in table and tables that hosts
// register for their own modules), and thin stand-ins for the message box,
// the status bar, object validation and point mapping between windows.
//
// The unit conversions built on these live in unittrans.h.
#ifndef TQBASE_ANXFUNS_H
#define TQBASE_ANXFUNS_H

#include "tqbase/tqbasexp.h"

#ifndef IDOK
#define IDOK 1
#endif

// ---------------------------------------------------------------------------
// Numbers

// Rounds (bRound: adds 0.5 away from zero) then nudges 1e-10 away from zero
// and truncates toward zero, so 2.9999999999 gives 3 even unrounded.
// Values beyond the 32-bit range saturate at INT_MIN/INT_MAX; NaN gives 0.
TQBASE_API int AnxFloatToInt(double value, BOOL bRound);
// The same rounding; a negative value gives 0, values beyond 32 bits
// saturate at 0xFFFFFFFF, NaN gives 0.
TQBASE_API DWORD AnxFloatToDWORD(double value, BOOL bRound);

// value with at most `digits` decimals (digits above 10 count as 10; 0 or
// less gives a whole number). The fraction keeps its trailing zeros
// ("1.50" for 1.5 with two digits); a fraction that rounds away gives the
// whole number alone ("2" for 1.999 with two digits); -0.5 shows as "-0.5".
// AnxFloatToInt's rule in 64 bits: values beyond 2^63 (infinities too)
// show as the 64-bit limits, NaN shows as "0".
TQBASE_API CString AnxFloatPrecisionString(double value, int digits, BOOL bRound);
// AnxFloatPrecisionString read back as a double.
TQBASE_API double AnxFloatPrecision(double value, int digits, BOOL bRound);

// Integers as decimal text. nGroup > 0 puts chSeparator between groups of
// nGroup digits counted from the right ("1,234,567" for nGroup 3); 0 or
// less writes the digits plainly.
TQBASE_API CString AnxIntString(int value, int nGroup = 0, char chSeparator = ',');
TQBASE_API CString AnxDWORDString(DWORD value, int nGroup = 0, char chSeparator = ',');

// ---------------------------------------------------------------------------
// String resources
//
// Every module has a string table: id -> UTF-8 text. This library's own
// table is compiled in (unit names 5..14 and 22, the start-up message 101)
// and is found under the library's own instance handle. A host registers
// tables for its own module handles (or adds to or overrides this
// library's texts, e.g. to translate them).

struct ANXSTRINGRES {
  UINT id;
  const char* text;
};

// The library's own instance handle: the load address of its file (the
// DLL's HINSTANCE on Windows). Never null once the library is loaded.
TQBASE_API HINSTANCE tqGetModuleInstance();

// Registers count entries (texts are copied) as module's string table,
// merged over any table registered before for the same handle. entries
// null or count 0 removes module's registered table. Entries with a null
// text are skipped. Returns FALSE when count is negative or memory fails.
TQBASE_API BOOL AnxRegisterStringTable(HINSTANCE module, const ANXSTRINGRES* entries, int count);

// String resource id of module as text; empty when the module has none.
// Registered tables come first, then this library's compiled-in table for
// its own handle, then (on Windows) the module's resources.
TQBASE_API CString AnxLoadString(HINSTANCE module, UINT id);

// ---------------------------------------------------------------------------
// User-interface stand-ins. Off Windows there is no message box, status bar
// or window tree; the host supplies them through these handlers. Every
// setter returns the previous handler; null restores the default.

// Shows text with message-box flags (MB_OK, ...), returns the button.
// Default, on every platform: writes the text to the debug trace and
// returns IDOK. The library shows no window of its own (a modal box would
// stall a process without a desktop, and start-up's message comes while
// the DLL is being loaded); a Windows host registers its message box.
typedef int (*ANXDIALOGHANDLER)(const char* text, UINT type);
// Shows text in the host's status bar. Default: does nothing.
typedef void (*ANXSTATUSHANDLER)(const char* text);
// Maps pt from from's client coordinates to to's (null: the screen).
// Default: all windows share one coordinate space, pt is unchanged.
typedef BOOL (*ANXMAPPOINTHANDLER)(HWND from, HWND to, POINT* pt);

TQBASE_API ANXDIALOGHANDLER AnxSetDialogHandler(ANXDIALOGHANDLER handler);
TQBASE_API ANXSTATUSHANDLER AnxSetStatusHandler(ANXSTATUSHANDLER handler);
TQBASE_API ANXMAPPOINTHANDLER AnxSetMapPointHandler(ANXMAPPOINTHANDLER handler);

// A message box from literal text, or from string resource id of module.
TQBASE_API int AnxDialogMsg(LPCSTR text, UINT type = MB_OK);
TQBASE_API int AnxDialogMsg(HINSTANCE module, UINT id, UINT type);
// A status-bar text from literal text, or from string resource id of module.
TQBASE_API void AnxStatusMsg(LPCSTR text);
TQBASE_API void AnxStatusMsg(HINSTANCE module, UINT id);
// TRUE when p can be a live object: not null and aligned for a pointer.
TQBASE_API BOOL AnxValidObject(const void* p);
// Maps pt between windows through the map-point handler.
TQBASE_API BOOL AnxMapPoint(HWND from, HWND to, POINT& pt);

#endif  // TQBASE_ANXFUNS_H
