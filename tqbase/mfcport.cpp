// mfcport.cpp - the debug assertion and trace hooks, and CString's
// out-of-line members.
#include "tqbase/winport.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#ifdef _WIN32
#include <string.h>

#include "widetext.h"
#define strcasecmp _stricmp
#else
#include <strings.h>
#endif

namespace {

// The default sink: the debugger's output on Windows (the UTF-8 text
// passed on as UTF-16, so that the Chinese texts reach it intact), stderr
// elsewhere. Each trace text on stderr ends a line, so that a text written
// without a line break does not run into the next output. Sinks installed
// with tqSetTraceSink receive the texts exactly as formatted.
#ifdef _WIN32
void DefaultTraceSink(const char* text) {
  const tqbase::WideText w(text);
  if (w.ok())
    OutputDebugStringW(w.c_str());
  else
    OutputDebugStringA(text);
}
#else
void DefaultTraceSink(const char* text) {
  std::fputs(text, stderr);
  const size_t n = std::strlen(text);
  if (n > 0 && text[n - 1] != '\n') std::fputc('\n', stderr);
  std::fflush(stderr);
}
#endif

void DefaultAssertHandler(const char* file, int line, const char* expr) {
  tqTrace("%s(%d): assertion failed: %s\n", file ? file : "?", line, expr ? expr : "");
}

std::atomic<TQTRACESINK> g_traceSink{&DefaultTraceSink};
std::atomic<TQASSERTHANDLER> g_assertHandler{&DefaultAssertHandler};

// vsnprintf into a std::string; a null format gives an empty text.
std::string FormatToString(const char* format, va_list args) {
  if (!format) return std::string();
  char small[512];
  va_list copy;
  va_copy(copy, args);
  int n = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (n < 0) return std::string();
  if ((size_t)n < sizeof small) return std::string(small, (size_t)n);
  std::string out((size_t)n, '\0');
  std::vsnprintf(&out[0], (size_t)n + 1, format, args);
  return out;
}

}  // namespace

TQASSERTHANDLER tqSetAssertHandler(TQASSERTHANDLER handler) {
  return g_assertHandler.exchange(handler ? handler : &DefaultAssertHandler);
}

TQTRACESINK tqSetTraceSink(TQTRACESINK sink) {
  return g_traceSink.exchange(sink ? sink : &DefaultTraceSink);
}

void tqAssertFailed(const char* file, int line, const char* expr) {
  g_assertHandler.load()(file, line, expr);
}

void tqTraceV(const char* format, va_list args) {
  std::string text = FormatToString(format, args);
  g_traceSink.load()(text.c_str());
}

void tqTrace(const char* format, ...) {
  va_list args;
  va_start(args, format);
  tqTraceV(format, args);
  va_end(args);
}

// ---------------------------------------------------------------------------
// CString

void CString::Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  m_s = FormatToString(format, args);
  va_end(args);
}

void CString::FormatV(const char* format, va_list args) { m_s = FormatToString(format, args); }

void CString::AppendFormat(const char* format, ...) {
  va_list args;
  va_start(args, format);
  m_s += FormatToString(format, args);
  va_end(args);
}

char* CString::GetBuffer(int minLength) {
  if (minLength > GetLength()) m_s.resize((size_t)minLength);
  return &m_s[0];
}

char* CString::GetBufferSetLength(int length) {
  m_s.resize(length > 0 ? (size_t)length : 0);
  return &m_s[0];
}

void CString::ReleaseBuffer(int newLength) {
  if (newLength < 0) {
    m_s.resize(std::strlen(m_s.c_str()));
  } else if ((size_t)newLength <= m_s.size()) {
    m_s.resize((size_t)newLength);
  }
}

CString CString::Left(int count) const {
  if (count <= 0) return CString();
  return CString(m_s.substr(0, (size_t)count));
}

CString CString::Right(int count) const {
  if (count <= 0) return CString();
  if ((size_t)count >= m_s.size()) return *this;
  return CString(m_s.substr(m_s.size() - (size_t)count));
}

CString CString::Mid(int first) const {
  if (first < 0) first = 0;
  if ((size_t)first >= m_s.size()) return CString();
  return CString(m_s.substr((size_t)first));
}

CString CString::Mid(int first, int count) const {
  if (first < 0) first = 0;
  if (count <= 0 || (size_t)first >= m_s.size()) return CString();
  return CString(m_s.substr((size_t)first, (size_t)count));
}

int CString::Find(char ch, int start) const {
  if (ch == '\0' || start < 0) return -1;
  size_t p = m_s.find(ch, (size_t)start);
  return p == std::string::npos ? -1 : (int)p;
}

int CString::Find(const char* sub, int start) const {
  if (!sub || start < 0 || (size_t)start > m_s.size()) return -1;
  size_t p = m_s.find(sub, (size_t)start);
  return p == std::string::npos ? -1 : (int)p;
}

int CString::ReverseFind(char ch) const {
  if (ch == '\0') return -1;
  size_t p = m_s.rfind(ch);
  return p == std::string::npos ? -1 : (int)p;
}

int CString::Replace(const char* oldText, const char* newText) {
  if (!oldText || !*oldText) return 0;
  const std::string from(oldText), to(newText ? newText : "");
  int n = 0;
  std::string out;
  size_t pos = 0;
  for (size_t hit; (hit = m_s.find(from, pos)) != std::string::npos; pos = hit + from.size(), ++n)
    out.append(m_s, pos, hit - pos).append(to);
  if (n) {
    out.append(m_s, pos, std::string::npos);
    m_s.swap(out);
  }
  return n;
}

int CString::Replace(char oldCh, char newCh) {
  int n = 0;
  for (char& c : m_s)
    if (c == oldCh) { c = newCh; ++n; }
  return n;
}

int CString::Remove(char ch) {
  size_t before = m_s.size();
  m_s.erase(std::remove(m_s.begin(), m_s.end(), ch), m_s.end());
  return (int)(before - m_s.size());
}

int CString::Insert(int index, const char* text) {
  if (index < 0) index = 0;
  if ((size_t)index > m_s.size()) index = GetLength();
  if (text) m_s.insert((size_t)index, text);
  return GetLength();
}

int CString::Delete(int index, int count) {
  if (index < 0) index = 0;
  if (count > 0 && (size_t)index < m_s.size()) m_s.erase((size_t)index, (size_t)count);
  return GetLength();
}

CString& CString::MakeUpper() {
  for (char& c : m_s) c = (char)std::toupper((unsigned char)c);
  return *this;
}

CString& CString::MakeLower() {
  for (char& c : m_s) c = (char)std::tolower((unsigned char)c);
  return *this;
}

CString& CString::TrimLeft() {
  size_t i = 0;
  while (i < m_s.size() && std::isspace((unsigned char)m_s[i])) ++i;
  m_s.erase(0, i);
  return *this;
}

CString& CString::TrimRight() {
  size_t n = m_s.size();
  while (n > 0 && std::isspace((unsigned char)m_s[n - 1])) --n;
  m_s.resize(n);
  return *this;
}

CString& CString::Trim() { return TrimRight().TrimLeft(); }

CString& CString::TrimLeft(char ch) {
  size_t i = 0;
  while (i < m_s.size() && m_s[i] == ch) ++i;
  m_s.erase(0, i);
  return *this;
}

CString& CString::TrimRight(char ch) {
  size_t n = m_s.size();
  while (n > 0 && m_s[n - 1] == ch) --n;
  m_s.resize(n);
  return *this;
}

int CString::CompareNoCase(const char* s) const { return strcasecmp(m_s.c_str(), s ? s : ""); }

// ---------------------------------------------------------------------------
// CDC

CDC::~CDC() = default;

BOOL CDC::Polygon(const POINT* pts, int count) {
  if (!pts || count < 2) return FALSE;
  MoveTo(pts[0].x, pts[0].y);
  BOOL ok = TRUE;
  for (int i = 1; i < count; ++i) ok &= LineTo(pts[i].x, pts[i].y);
  if (pts[count - 1].x != pts[0].x || pts[count - 1].y != pts[0].y) ok &= LineTo(pts[0].x, pts[0].y);
  return ok;
}

BOOL CDC::PolyPolygon(const POINT* pts, const INT* counts, int polys) {
  if (!pts || !counts || polys < 1) return FALSE;
  BOOL ok = TRUE;
  for (int i = 0; i < polys; ++i) {
    if (counts[i] < 0) return FALSE;
    if (counts[i] >= 2) ok &= Polygon(pts, counts[i]);
    pts += counts[i];
  }
  return ok;
}
