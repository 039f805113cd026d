// widetext.h - UTF-8 text as UTF-16 for the wide Windows calls (Windows
// builds only).
#ifndef TQBASE_WIDETEXT_H
#define TQBASE_WIDETEXT_H

#ifdef _WIN32
#include <windows.h>

#include <new>

namespace tqbase {

// Converted into an inline buffer when it fits, which covers paths of
// usual length and short texts without allocating, so that opening or
// looking at a file cannot fail for want of memory where a caller could not
// tell that from a missing file; longer texts go on the heap. Never
// throws: when the text is not UTF-8 or memory fails, ok() is false and
// c_str() is an empty string.
class WideText {
public:
  explicit WideText(const char* s) noexcept {
    if (MultiByteToWideChar(CP_UTF8, 0, s, -1, m_buf, kInline) > 0) {
      m_p = m_buf;
      return;
    }
    const int n = MultiByteToWideChar(CP_UTF8, 0, s, -1, nullptr, 0);
    if (n <= 0) return;
    m_heap = new (std::nothrow) wchar_t[(size_t)n];
    if (m_heap == nullptr) return;
    MultiByteToWideChar(CP_UTF8, 0, s, -1, m_heap, n);
    m_p = m_heap;
  }
  ~WideText() { delete[] m_heap; }
  WideText(const WideText&) = delete;
  WideText& operator=(const WideText&) = delete;

  bool ok() const { return m_p != kEmpty; }
  const wchar_t* c_str() const { return m_p; }

private:
  static const int kInline = 520;
  static constexpr const wchar_t* kEmpty = L"";
  wchar_t m_buf[kInline];
  wchar_t* m_heap = nullptr;
  const wchar_t* m_p = kEmpty;
};

}  // namespace tqbase

#endif  // _WIN32
#endif  // TQBASE_WIDETEXT_H
