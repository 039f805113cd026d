// errorinfo.cpp - CErrorInfo, the library's last-error record, and g_Error.
//
// Each operation that changes the record takes its critical section on
// entry and keeps it to the end, text formatting included; readers
// (GetLastError, IsError, and copies reading their source) take no lock.
// The lock is recursive, but no operation here re-enters it: the changing
// operations share the unlocked helper Store. g_Error itself is defined in
// tqbase.cpp, ahead of the module's start-up.
#include "tqbase/errorinfo.h"

#include "tqbase/anxfuns.h"

#include <cstdio>
#include <cstring>

namespace {
struct CsLock {
  explicit CsLock(CRITICAL_SECTION* cs) : m(cs) { EnterCriticalSection(m); }
  ~CsLock() { LeaveCriticalSection(m); }
  CsLock(const CsLock&) = delete;
  CsLock& operator=(const CsLock&) = delete;
  CRITICAL_SECTION* m;
};

// Sets text and flag; the caller holds the record's lock. The flag is the
// text's non-emptiness unless alwaysError.
void Store(CErrorInfo& e, CString&& text, bool alwaysError) {
  e.strError = std::move(text);
  e.bError = (alwaysError || !e.strError.IsEmpty()) ? TRUE : FALSE;
}
}  // namespace

CErrorInfo::CErrorInfo() : bError(FALSE) { InitializeCriticalSection(&m_cs); }

CErrorInfo::CErrorInfo(const CErrorInfo& other) : bError(other.bError), strError(other.strError) {
  InitializeCriticalSection(&m_cs);
}

CErrorInfo& CErrorInfo::operator=(const CErrorInfo& other) {
  if (this == &other) return *this;
  CsLock lock(&m_cs);
  strError = other.strError;
  bError = other.bError;
  return *this;
}

CErrorInfo::~CErrorInfo() { DeleteCriticalSection(&m_cs); }

int CErrorInfo::SetLastError(const char* format, ...) {
  CsLock lock(&m_cs);
  CString text;
  if (format) {
    va_list args;
    va_start(args, format);
    text.FormatV(format, args);
    va_end(args);
  }
  Store(*this, std::move(text), false);
  return 1;
}

// The module handle is pointer-sized here, so it is written in full as an
// unsigned decimal in the "Error in :%u (ID:%u)" text.
int CErrorInfo::SetLastError(HINSTANCE module, unsigned int stringId) {
  CsLock lock(&m_cs);
  if (!module || stringId == 0) {
    Store(*this, CString(), false);
    return 1;
  }
  CString text = AnxLoadString(module, stringId);
  if (text.IsEmpty())
    text.Format("Error in :%llu (ID:%u)", (unsigned long long)(uintptr_t)module, stringId);
  Store(*this, std::move(text), true);
  return 1;
}

int CErrorInfo::SetLastErrorFromSystem(unsigned long code) {
  CsLock lock(&m_cs);
  Store(*this, code == 0 ? CString() : TransSystemErrorCodeToString(code), false);
  return 1;
}

int CErrorInfo::SetLastErrorFromSystem() {
  const unsigned long code = (unsigned long)::GetLastError();
  return SetLastErrorFromSystem(code);
}

void CErrorInfo::ClearError() {
  CsLock lock(&m_cs);
  Store(*this, CString(), false);
}

BOOL CErrorInfo::GetLastError(CString& text) const {
  if (bError)
    text = strError;
  else
    text.Empty();
  return bError;
}

CString CErrorInfo::TransSystemErrorCodeToString(unsigned long code) {
  CString text;
  if (code == 0) return text;
#ifdef _WIN32
  char* msg = nullptr;
  DWORD n = FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                           nullptr, (DWORD)code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), (LPSTR)&msg, 0, nullptr);
  if (n && msg) text = msg;
  if (msg) LocalFree(msg);
#else
  // The C library names every errno value it knows; others come back as
  // "Unknown error N", which counts as no text.
  if (code <= 0x7fffffffUL) {
    char buf[256];
    buf[0] = '\0';
#if defined(__GLIBC__) && defined(_GNU_SOURCE)
    const char* msg = strerror_r((int)code, buf, sizeof buf);
#else
    const char* msg = strerror_r((int)code, buf, sizeof buf) == 0 ? buf : "";
#endif
    if (msg && *msg && std::strncmp(msg, "Unknown error", 13) != 0) text = msg;
  }
#endif
  if (text.IsEmpty()) text.Format("System Error (code:%u)", (unsigned)code);
  return text;
}
