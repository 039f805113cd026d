// winport.h - the Windows vocabulary of tqBase's interface on every platform.
//
// On Windows this is <windows.h>. Elsewhere it defines the value types,
// rectangle helpers, memory flags, movable global blocks, page allocation,
// critical sections and last-error calls with the Windows sizes, values and
// semantics, so that code written against the Windows interface compiles
// unchanged. The MFC-style containers (CString, CArray, CRect) follow in
// mfcport.h; they are ours on every platform, so one code path is tested.
#ifndef TQBASE_WINPORT_H
#define TQBASE_WINPORT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(_WIN32) && !defined(TQBASE_STATIC)
#  ifdef TQBASE_EXPORTS
#    define TQBASE_API __declspec(dllexport)
#  else
#    define TQBASE_API __declspec(dllimport)
#  endif
#elif defined(__GNUC__)
#  define TQBASE_API __attribute__((visibility("default")))
#else
#  define TQBASE_API
#endif

#ifdef _WIN32
#  ifndef NOMINMAX
#    define NOMINMAX
#  endif
#  include <windows.h>
typedef struct tagPOINTF { float x; float y; } POINTF;
#else

// ---- value types (Windows sizes: LONG and DWORD are 32 bits also on LP64) ----
typedef int BOOL;
#define TRUE 1
#define FALSE 0
typedef unsigned char BYTE;
typedef unsigned short WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int INT;
typedef unsigned int UINT;
typedef short SHORT;
typedef unsigned short USHORT;
typedef char CHAR;
typedef unsigned char UCHAR;
typedef float FLOAT;
typedef char TCHAR;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef char* LPTSTR;
typedef const char* LPCTSTR;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BYTE* LPBYTE;
typedef DWORD* LPDWORD;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef size_t SIZE_T;
typedef uintptr_t UINT_PTR;
typedef intptr_t INT_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t ULONG_PTR;
typedef uintptr_t DWORD_PTR;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;
typedef void* HANDLE;

// Handles are distinct opaque pointer types, as with STRICT on Windows.
#define TQ_DECLARE_HANDLE(name) struct name##__ { int unused; }; typedef struct name##__* name
TQ_DECLARE_HANDLE(HINSTANCE);
TQ_DECLARE_HANDLE(HWND);
TQ_DECLARE_HANDLE(HCURSOR);
TQ_DECLARE_HANDLE(HDC);
TQ_DECLARE_HANDLE(HPALETTE);
TQ_DECLARE_HANDLE(HBITMAP);
TQ_DECLARE_HANDLE(HFONT);
#undef TQ_DECLARE_HANDLE
typedef HINSTANCE HMODULE;
typedef HANDLE HGLOBAL;
typedef HANDLE HLOCAL;

typedef struct tagPOINT { LONG x; LONG y; } POINT, *LPPOINT;
typedef struct tagRECT { LONG left; LONG top; LONG right; LONG bottom; } RECT, *LPRECT;
typedef const RECT* LPCRECT;
typedef struct tagSIZE { LONG cx; LONG cy; } SIZE, *LPSIZE;
typedef struct tagPOINTF { float x; float y; } POINTF;
typedef struct tagXFORM { FLOAT eM11; FLOAT eM12; FLOAT eM21; FLOAT eM22; FLOAT eDx; FLOAT eDy; } XFORM;
typedef struct tagRGBQUAD { BYTE rgbBlue; BYTE rgbGreen; BYTE rgbRed; BYTE rgbReserved; } RGBQUAD;
typedef struct tagPALETTEENTRY { BYTE peRed; BYTE peGreen; BYTE peBlue; BYTE peFlags; } PALETTEENTRY;

// The operating system's version record: 148 bytes, its size field first.
typedef struct _OSVERSIONINFOA {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  CHAR szCSDVersion[128];
} OSVERSIONINFOA, OSVERSIONINFO;

typedef struct _SYSTEM_INFO {
  WORD wProcessorArchitecture;
  WORD wReserved;
  DWORD dwPageSize;
  LPVOID lpMinimumApplicationAddress;
  LPVOID lpMaximumApplicationAddress;
  DWORD_PTR dwActiveProcessorMask;
  DWORD dwNumberOfProcessors;
  DWORD dwProcessorType;
  DWORD dwAllocationGranularity;
  WORD wProcessorLevel;
  WORD wProcessorRevision;
} SYSTEM_INFO;

#define MAX_PATH 260
#define MAKELONG(lo, hi) ((LONG)(((WORD)((DWORD_PTR)(lo) & 0xffff)) | ((DWORD)((WORD)((DWORD_PTR)(hi) & 0xffff))) << 16))
#define LOWORD(l) ((WORD)((DWORD_PTR)(l) & 0xffff))
#define HIWORD(l) ((WORD)(((DWORD_PTR)(l) >> 16) & 0xffff))
#define RGB(r, g, b) ((DWORD)(((BYTE)(r) | ((WORD)((BYTE)(g)) << 8)) | (((DWORD)(BYTE)(b)) << 16)))
#define GetRValue(rgb) ((BYTE)(rgb))
#define GetGValue(rgb) ((BYTE)(((WORD)(rgb)) >> 8))
#define GetBValue(rgb) ((BYTE)((rgb) >> 16))
typedef DWORD COLORREF;

#define ZeroMemory(p, n) std::memset((p), 0, (n))
#define FillMemory(p, n, v) std::memset((p), (v), (n))
#define CopyMemory(d, s, n) std::memcpy((d), (s), (n))
#define MoveMemory(d, s, n) std::memmove((d), (s), (n))

// ---- system error codes used by the library ----
#define NO_ERROR 0L
#define ERROR_SUCCESS 0L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_NOT_LOCKED 158L

// ---- global (movable) memory ----
#define GMEM_FIXED 0x0000
#define GMEM_MOVEABLE 0x0002
#define GMEM_NOCOMPACT 0x0010
#define GMEM_NODISCARD 0x0020
#define GMEM_ZEROINIT 0x0040
#define GMEM_MODIFY 0x0080
#define GMEM_DISCARDABLE 0x0100
#define GMEM_NOT_BANKED 0x1000
#define GMEM_SHARE 0x2000
#define GMEM_DDESHARE 0x2000
#define GMEM_INVALID_HANDLE 0x8000
#define GMEM_LOCKCOUNT 0x00FF
#define GHND (GMEM_MOVEABLE | GMEM_ZEROINIT)
#define GPTR (GMEM_FIXED | GMEM_ZEROINIT)

// ---- pages ----
#define PAGE_NOACCESS 0x01
#define PAGE_READONLY 0x02
#define PAGE_READWRITE 0x04
#define PAGE_WRITECOPY 0x08
#define PAGE_EXECUTE 0x10
#define PAGE_EXECUTE_READ 0x20
#define PAGE_EXECUTE_READWRITE 0x40
#define MEM_COMMIT 0x00001000
#define MEM_RESERVE 0x00002000
#define MEM_DECOMMIT 0x00004000
#define MEM_RELEASE 0x00008000
#define MEM_RESET 0x00080000
#define MEM_TOP_DOWN 0x00100000

// ---- message box flags (used by start-up's one failure message) ----
#define MB_OK 0x00000000L
#define MB_ICONERROR 0x00000010L

// Movable global blocks. A handle names a block for its whole life; the
// block's data moves only on re-allocation. Lock counts are kept per block
// (0..255, as GMEM_LOCKCOUNT); GlobalHandle maps any pointer returned by
// GlobalLock back to its handle and rejects pointers it did not hand out.
// Sizes are SIZE_T (pointer-sized), as in the Windows declarations.
TQBASE_API HGLOBAL GlobalAlloc(UINT uFlags, SIZE_T dwBytes);
TQBASE_API HGLOBAL GlobalReAlloc(HGLOBAL hMem, SIZE_T dwBytes, UINT uFlags);
TQBASE_API HGLOBAL GlobalFree(HGLOBAL hMem);
TQBASE_API LPVOID GlobalLock(HGLOBAL hMem);
TQBASE_API BOOL GlobalUnlock(HGLOBAL hMem);
TQBASE_API HGLOBAL GlobalHandle(LPCVOID pMem);
TQBASE_API SIZE_T GlobalSize(HGLOBAL hMem);
TQBASE_API UINT GlobalFlags(HGLOBAL hMem);

// Page allocation over mmap: reserve and commit happen together; a region
// is released whole (MEM_RELEASE with size 0), as on Windows.
TQBASE_API LPVOID VirtualAlloc(LPVOID lpAddress, SIZE_T dwSize, DWORD flAllocationType, DWORD flProtect);
TQBASE_API BOOL VirtualFree(LPVOID lpAddress, SIZE_T dwSize, DWORD dwFreeType);
TQBASE_API BOOL VirtualLock(LPVOID lpAddress, SIZE_T dwSize);
TQBASE_API BOOL VirtualUnlock(LPVOID lpAddress, SIZE_T dwSize);

// The calling thread's last system error: errno on this platform.
TQBASE_API DWORD GetLastError(void);
TQBASE_API void SetLastError(DWORD dwErrCode);

// Critical sections are recursive, as on Windows.
typedef struct _CRITICAL_SECTION { void* impl; } CRITICAL_SECTION, *LPCRITICAL_SECTION;
TQBASE_API void InitializeCriticalSection(LPCRITICAL_SECTION cs);
TQBASE_API void DeleteCriticalSection(LPCRITICAL_SECTION cs);
TQBASE_API void EnterCriticalSection(LPCRITICAL_SECTION cs);
TQBASE_API void LeaveCriticalSection(LPCRITICAL_SECTION cs);

// Rectangle helpers with the documented half-open semantics: a rectangle is
// empty when right <= left or bottom <= top; a point is inside when
// left <= x < right and top <= y < bottom.
TQBASE_API BOOL SetRect(LPRECT lprc, int xLeft, int yTop, int xRight, int yBottom);
TQBASE_API BOOL SetRectEmpty(LPRECT lprc);
TQBASE_API BOOL CopyRect(LPRECT lprcDst, const RECT* lprcSrc);
TQBASE_API BOOL IsRectEmpty(const RECT* lprc);
TQBASE_API BOOL PtInRect(const RECT* lprc, POINT pt);
TQBASE_API BOOL OffsetRect(LPRECT lprc, int dx, int dy);
TQBASE_API BOOL InflateRect(LPRECT lprc, int dx, int dy);
TQBASE_API BOOL IntersectRect(LPRECT lprcDst, const RECT* lprcSrc1, const RECT* lprcSrc2);
TQBASE_API BOOL UnionRect(LPRECT lprcDst, const RECT* lprcSrc1, const RECT* lprcSrc2);
TQBASE_API BOOL EqualRect(const RECT* lprc1, const RECT* lprc2);

#endif  // !_WIN32

#include "tqbase/mfcport.h"

#endif  // TQBASE_WINPORT_H
