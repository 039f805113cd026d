// errorinfo.cpp - CErrorInfo, the library's last-error record, and g_Error.
//
// Every change of the record holds its critical section for the whole
// change. GetLastError copies the text under the lock as well: the text is
// a heap string here, and copying it while another thread replaces it would
// read freed memory; the flag alone (IsError) is read without the lock.
#include "tqbase/errorinfo.h"

#include "tqbase/anxfuns.h"

#include <cstdio>
#include <cstring>

TQBASE_API CErrorInfo g_Error;

namespace {
struct CsLock {
  explicit CsLock(CRITICAL_SECTION* cs) : m(cs) { EnterCriticalSection(m); }
  ~CsLock() { LeaveCriticalSection(m); }
  CRITICAL_SECTION* m;
};
}  // namespace

CErrorInfo::CErrorInfo() : bError(FALSE) { InitializeCriticalSection(&m_cs); }

CErrorInfo::CErrorInfo(const CErrorInfo& other) : bError(FALSE) {
  InitializeCriticalSection(&m_cs);
  *this = other;
}

CErrorInfo& CErrorInfo::operator=(const CErrorInfo& other) {
  if (this == &other) return *this;
  CString text;
  BOOL flag;
  {
    CsLock lock(&other.m_cs);
    text = other.strError;
    flag = other.bError;
  }
  CsLock lock(&m_cs);
  strError = text;
  bError = flag;
  return *this;
}

CErrorInfo::~CErrorInfo() { DeleteCriticalSection(&m_cs); }

void CErrorInfo::SetText(CString&& text, bool alwaysError) {
  CsLock lock(&m_cs);
  strError = std::move(text);
  bError = (alwaysError || !strError.IsEmpty()) ? TRUE : FALSE;
}

int CErrorInfo::SetLastError(const char* format, ...) {
  CString text;
  if (format) {
    va_list args;
    va_start(args, format);
    text.FormatV(format, args);
    va_end(args);
  }
  SetText(std::move(text), false);
  return 1;
}

// The module handle is pointer-sized here, so it is written in full as an
// unsigned decimal in the "Error in :%u (ID:%u)" text.
int CErrorInfo::SetLastError(HINSTANCE module, unsigned int stringId) {
  if (!module || stringId == 0) {
    ClearError();
    return 1;
  }
  CString text = AnxLoadString(module, stringId);
  if (text.IsEmpty())
    text.Format("Error in :%llu (ID:%u)", (unsigned long long)(uintptr_t)module, stringId);
  SetText(std::move(text), true);
  return 1;
}

int CErrorInfo::SetLastErrorFromSystem(unsigned long code) {
  SetText(code == 0 ? CString() : TransSystemErrorCodeToString(code), false);
  return 1;
}

int CErrorInfo::SetLastErrorFromSystem() { return SetLastErrorFromSystem((unsigned long)::GetLastError()); }

void CErrorInfo::ClearError() {
  CsLock lock(&m_cs);
  strError.Empty();
  bError = FALSE;
}

BOOL CErrorInfo::GetLastError(CString& text) const {
  CsLock lock(&m_cs);
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
