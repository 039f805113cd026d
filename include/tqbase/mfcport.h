// mfcport.h - the MFC vocabulary of tqBase's interface: debug assertion and
// trace hooks, CString, CArray, CPoint, CSize and CRect.
//
// These are this library's own classes on every platform (also on Windows,
// where no MFC is linked), with the member functions and semantics that the
// library and its callers use. Included by winport.h; do not include alone.
#ifndef TQBASE_MFCPORT_H
#define TQBASE_MFCPORT_H

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <new>
#include <string>
#include <utility>
#include <vector>

// printf-style checking of format arguments. MinGW's own "printf" archetype
// is Microsoft's, which lacks %zu and %lld; its C++ runtime formats the GNU
// way, so the GNU archetype is the right check there.
#if defined(__MINGW32__)
#define TQ_PRINTF_FORMAT(fmt, args) __attribute__((format(gnu_printf, fmt, args)))
#elif defined(__GNUC__)
#define TQ_PRINTF_FORMAT(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define TQ_PRINTF_FORMAT(fmt, args)
#endif

// ---------------------------------------------------------------------------
// Debug assertion and trace hooks (process-wide, replaceable).
//
// ASSERT(e) evaluates e in every build; when it is false the assertion
// handler receives the source file, line and expression text. The default
// handler writes "<file>(<line>): assertion failed: <expr>" to the trace and
// returns, so the caller goes on exactly as a release build would. TRACE
// formats printf-style and hands the text to the trace sink (stderr by
// default). Both setters return the previous hook; null restores the default.
typedef void (*TQASSERTHANDLER)(const char* file, int line, const char* expr);
typedef void (*TQTRACESINK)(const char* text);
TQBASE_API TQASSERTHANDLER tqSetAssertHandler(TQASSERTHANDLER handler);
TQBASE_API TQTRACESINK tqSetTraceSink(TQTRACESINK sink);
TQBASE_API void tqAssertFailed(const char* file, int line, const char* expr);
TQBASE_API void tqTrace(const char* format, ...) TQ_PRINTF_FORMAT(1, 2)
    ;
TQBASE_API void tqTraceV(const char* format, va_list args);

#ifdef ASSERT
#  undef ASSERT
#endif
#ifdef VERIFY
#  undef VERIFY
#endif
#ifdef TRACE
#  undef TRACE
#endif
#define ASSERT(e) ((e) ? (void)0 : tqAssertFailed(__FILE__, __LINE__, #e))
#define VERIFY(e) ASSERT(e)
#define TRACE(...) tqTrace(__VA_ARGS__)

// ---------------------------------------------------------------------------
// CString: a byte string (UTF-8 text) with MFC's interface. Converts
// implicitly to const char*, as MFC's LPCTSTR operator does.
class TQBASE_API CString {
public:
  CString() = default;
  CString(const char* s) : m_s(s ? s : "") {}
  CString(const char* s, int n) : m_s(s ? s : "", s && n > 0 ? (size_t)n : 0) {}
  CString(char ch, int repeat = 1) : m_s(repeat > 0 ? (size_t)repeat : 0, ch) {}
  CString(const std::string& s) : m_s(s) {}
  CString(std::string&& s) : m_s(std::move(s)) {}

  int GetLength() const { return (int)m_s.size(); }
  bool IsEmpty() const { return m_s.empty(); }
  void Empty() { m_s.clear(); }
  const char* GetString() const { return m_s.c_str(); }
  operator const char*() const { return m_s.c_str(); }
  const std::string& str() const { return m_s; }

  char GetAt(int i) const { return m_s[(size_t)i]; }
  void SetAt(int i, char ch) { m_s[(size_t)i] = ch; }
  char operator[](int i) const { return m_s[(size_t)i]; }

  // printf-style formatting; the result replaces (Format) or extends
  // (AppendFormat) the text. A null format gives an empty text.
  void Format(const char* format, ...) TQ_PRINTF_FORMAT(2, 3)
      ;
  void FormatV(const char* format, va_list args);
  void AppendFormat(const char* format, ...) TQ_PRINTF_FORMAT(2, 3)
      ;

  // Raw buffer access: GetBuffer(n) gives room for n characters plus the
  // terminator; ReleaseBuffer(-1) takes the length up to the first NUL.
  char* GetBuffer(int minLength = 0);
  char* GetBufferSetLength(int length);
  void ReleaseBuffer(int newLength = -1);

  CString Left(int count) const;
  CString Right(int count) const;
  CString Mid(int first) const;
  CString Mid(int first, int count) const;
  // Searches give the index of the first (last) match or -1. A negative
  // start, or one beyond GetLength(), finds nothing; an empty sub matches at
  // start, GetLength() included. '\0' is the terminator, not text: Find
  // and ReverseFind of it give -1, even after raw buffer writes.
  int Find(char ch, int start = 0) const;
  int Find(const char* sub, int start = 0) const;
  int ReverseFind(char ch) const;
  int Replace(const char* oldText, const char* newText);
  int Replace(char oldCh, char newCh);
  int Remove(char ch);
  int Insert(int index, const char* text);
  int Delete(int index, int count = 1);
  CString& MakeUpper();
  CString& MakeLower();
  CString& Trim();
  CString& TrimLeft();
  CString& TrimRight();
  CString& TrimLeft(char ch);
  CString& TrimRight(char ch);
  int Compare(const char* s) const { return std::strcmp(m_s.c_str(), s ? s : ""); }
  int CompareNoCase(const char* s) const;

  CString& operator=(const char* s) { m_s = s ? s : ""; return *this; }
  CString& operator=(char ch) { m_s.assign(1, ch); return *this; }
  CString& operator+=(const CString& s) { m_s += s.m_s; return *this; }
  CString& operator+=(const char* s) { if (s) m_s += s; return *this; }
  CString& operator+=(char ch) { m_s += ch; return *this; }

  friend CString operator+(const CString& a, const CString& b) { return CString(a.m_s + b.m_s); }
  friend CString operator+(const CString& a, const char* b) { CString r(a); r += b; return r; }
  friend CString operator+(const char* a, const CString& b) { CString r(a); r += b; return r; }
  friend CString operator+(const CString& a, char b) { CString r(a); r += b; return r; }
  friend bool operator==(const CString& a, const CString& b) { return a.m_s == b.m_s; }
  friend bool operator==(const CString& a, const char* b) { return a.Compare(b) == 0; }
  friend bool operator==(const char* a, const CString& b) { return b.Compare(a) == 0; }
  friend bool operator!=(const CString& a, const CString& b) { return a.m_s != b.m_s; }
  friend bool operator!=(const CString& a, const char* b) { return a.Compare(b) != 0; }
  friend bool operator!=(const char* a, const CString& b) { return b.Compare(a) != 0; }
  friend bool operator<(const CString& a, const CString& b) { return a.m_s < b.m_s; }

private:
  std::string m_s;
};

// ---------------------------------------------------------------------------
// CArray<TYPE, ARG_TYPE>: MFC's growable array. New elements are value
// initialised (zero for plain records), indices are int, and GetData points
// at contiguous storage. Copying is explicit (Copy/Append), as in MFC; an
// array may be copied, appended or inserted into itself.
//
// Misuse (a negative size, index or count; an index or range outside the
// array; a null source; nothing to insert) raises the debug assertion and
// then does nothing: the array stays as it was. Element access (GetAt,
// ElementAt, operator[]) is the one exception: it has to return an element,
// so it asserts and then indexes unchecked. Growth that the allocator
// refuses, or that would take the size past INT_MAX, throws std::bad_alloc;
// nothing else escapes, and the library's own operations catch it at their
// boundary.
#define TQ_ARRAY_REQUIRE(e) \
  do {                      \
    if (!(e)) {             \
      ASSERT(e);            \
      return;               \
    }                       \
  } while (0)

template <class TYPE, class ARG_TYPE = const TYPE&>
class CArray {
public:
  CArray() = default;
  CArray(const CArray&) = delete;
  CArray& operator=(const CArray&) = delete;
  CArray(CArray&&) noexcept = default;
  CArray& operator=(CArray&&) noexcept = default;
  virtual ~CArray() = default;

  int GetSize() const { return (int)m_v.size(); }
  int GetCount() const { return (int)m_v.size(); }
  int GetUpperBound() const { return (int)m_v.size() - 1; }
  bool IsEmpty() const { return m_v.empty(); }

  // nGrowBy is MFC's growth hint; storage grows geometrically regardless.
  void SetSize(int newSize, int nGrowBy = -1) {
    (void)nGrowBy;
    TQ_ARRAY_REQUIRE(newSize >= 0);
    m_v.resize((size_t)newSize);
  }
  void FreeExtra() { m_v.shrink_to_fit(); }
  void RemoveAll() { m_v.clear(); m_v.shrink_to_fit(); }
  // Keeps capacity: the library's hot paths refill arrays in place.
  void Reserve(int n) { if (n > 0) m_v.reserve((size_t)n); }

  const TYPE& GetAt(int i) const { ASSERT(i >= 0 && i < GetSize()); return m_v[(size_t)i]; }
  TYPE& ElementAt(int i) { ASSERT(i >= 0 && i < GetSize()); return m_v[(size_t)i]; }
  void SetAt(int i, ARG_TYPE e) {
    TQ_ARRAY_REQUIRE(i >= 0 && i < GetSize());
    m_v[(size_t)i] = e;
  }
  const TYPE& operator[](int i) const { return GetAt(i); }
  TYPE& operator[](int i) { return ElementAt(i); }
  const TYPE* GetData() const { return m_v.empty() ? nullptr : m_v.data(); }
  TYPE* GetData() { return m_v.empty() ? nullptr : m_v.data(); }

  void SetAtGrow(int i, ARG_TYPE e) {
    TQ_ARRAY_REQUIRE(i >= 0);
    if (i >= GetSize()) {
      TYPE keep(e);  // e may refer into the storage that resize moves
      m_v.resize(Room((size_t)i, 1));
      m_v[(size_t)i] = std::move(keep);
    } else {
      m_v[(size_t)i] = e;
    }
  }
  int Add(ARG_TYPE e) {
    Room(m_v.size(), 1);
    m_v.push_back(e);
    return (int)m_v.size() - 1;
  }
  // Returns the index of the first appended element (the old size).
  int Append(const CArray& src) {
    const int old = GetSize();
    Room(m_v.size(), src.m_v.size());
    if (&src == this) {
      const std::vector<TYPE> copy(m_v);
      m_v.insert(m_v.end(), copy.begin(), copy.end());
    } else {
      m_v.insert(m_v.end(), src.m_v.begin(), src.m_v.end());
    }
    return old;
  }
  void Copy(const CArray& src) { if (this != &src) m_v = src.m_v; }
  // Inserting at an index past the end first grows the array with value
  // initialised elements up to that index.
  void InsertAt(int i, ARG_TYPE e, int count = 1) {
    TQ_ARRAY_REQUIRE(i >= 0 && count > 0);
    const TYPE keep(e);  // e may refer into the array itself
    const size_t at = (size_t)i;
    if (at > m_v.size()) {
      m_v.resize(Room(at, (size_t)count));
      std::fill(m_v.begin() + (std::ptrdiff_t)at, m_v.end(), keep);
    } else {
      Room(m_v.size(), (size_t)count);
      m_v.insert(m_v.begin() + (std::ptrdiff_t)at, (size_t)count, keep);
    }
  }
  // Inserting an empty array changes nothing, also past the end.
  void InsertAt(int start, const CArray* src) {
    TQ_ARRAY_REQUIRE(src != nullptr && start >= 0);
    if (src->m_v.empty()) return;
    const size_t at = (size_t)start;
    if (src == this) {
      const std::vector<TYPE> copy(m_v);
      InsertRange(at, copy);
    } else {
      InsertRange(at, src->m_v);
    }
  }
  void RemoveAt(int i, int count = 1) {
    TQ_ARRAY_REQUIRE(i >= 0 && count >= 0 && count <= GetSize() - i);
    m_v.erase(m_v.begin() + i, m_v.begin() + i + count);
  }

  // Direct access for the library's internals (range-for, algorithms).
  std::vector<TYPE>& vec() { return m_v; }
  const std::vector<TYPE>& vec() const { return m_v; }
  TYPE* begin() { return m_v.data(); }
  TYPE* end() { return m_v.data() + m_v.size(); }
  const TYPE* begin() const { return m_v.data(); }
  const TYPE* end() const { return m_v.data() + m_v.size(); }

private:
  // The size after adding n elements to a size of base; refuses, as the
  // allocator would, a size that GetSize's int cannot hold.
  static size_t Room(size_t base, size_t n) {
    if (n > (size_t)0x7FFFFFFF || base > (size_t)0x7FFFFFFF - n) throw std::bad_alloc();
    return base + n;
  }
  void InsertRange(size_t at, const std::vector<TYPE>& src) {
    if (at > m_v.size()) {
      Room(at, src.size());
      m_v.resize(at);
    } else {
      Room(m_v.size(), src.size());
    }
    m_v.insert(m_v.begin() + (std::ptrdiff_t)at, src.begin(), src.end());
  }

  std::vector<TYPE> m_v;
};

#undef TQ_ARRAY_REQUIRE

// ---------------------------------------------------------------------------
// CPoint, CSize, CRect: RECT/POINT/SIZE with member helpers. CRect keeps the
// half-open convention of the rectangle helpers.
class CPoint : public POINT {
public:
  CPoint() { x = 0; y = 0; }
  CPoint(LONG ix, LONG iy) { x = ix; y = iy; }
  CPoint(POINT p) { x = p.x; y = p.y; }
  void Offset(LONG dx, LONG dy) { x += dx; y += dy; }
  bool operator==(POINT p) const { return x == p.x && y == p.y; }
  bool operator!=(POINT p) const { return !(*this == p); }
};

class CSize : public SIZE {
public:
  CSize() { cx = 0; cy = 0; }
  CSize(LONG w, LONG h) { cx = w; cy = h; }
  CSize(SIZE s) { cx = s.cx; cy = s.cy; }
  bool operator==(SIZE s) const { return cx == s.cx && cy == s.cy; }
  bool operator!=(SIZE s) const { return !(*this == s); }
};

class CRect : public RECT {
public:
  CRect() { left = top = right = bottom = 0; }
  CRect(LONG l, LONG t, LONG r, LONG b) { left = l; top = t; right = r; bottom = b; }
  CRect(const RECT& rc) { left = rc.left; top = rc.top; right = rc.right; bottom = rc.bottom; }
  CRect(const RECT* rc) : CRect(*rc) {}
  CRect(POINT tl, POINT br) { left = tl.x; top = tl.y; right = br.x; bottom = br.y; }
  CRect(POINT tl, SIZE sz) { left = tl.x; top = tl.y; right = tl.x + sz.cx; bottom = tl.y + sz.cy; }

  int Width() const { return right - left; }
  int Height() const { return bottom - top; }
  CSize Size() const { return CSize(Width(), Height()); }
  CPoint TopLeft() const { return CPoint(left, top); }
  CPoint BottomRight() const { return CPoint(right, bottom); }
  CPoint CenterPoint() const { return CPoint((left + right) / 2, (top + bottom) / 2); }
  operator LPRECT() { return this; }
  operator LPCRECT() const { return this; }

  BOOL IsRectEmpty() const { return ::IsRectEmpty(this); }
  BOOL IsRectNull() const { return left == 0 && right == 0 && top == 0 && bottom == 0; }
  BOOL PtInRect(POINT p) const { return ::PtInRect(this, p); }
  void SetRect(int l, int t, int r, int b) { ::SetRect(this, l, t, r, b); }
  void SetRectEmpty() { ::SetRectEmpty(this); }
  void CopyRect(const RECT* src) { ::CopyRect(this, src); }
  BOOL EqualRect(const RECT* rc) const { return ::EqualRect(this, rc); }
  void OffsetRect(int dx, int dy) { ::OffsetRect(this, dx, dy); }
  void OffsetRect(POINT p) { ::OffsetRect(this, p.x, p.y); }
  void InflateRect(int dx, int dy) { ::InflateRect(this, dx, dy); }
  void DeflateRect(int dx, int dy) { ::InflateRect(this, -dx, -dy); }
  BOOL IntersectRect(const RECT* a, const RECT* b) { return ::IntersectRect(this, a, b); }
  BOOL UnionRect(const RECT* a, const RECT* b) { return ::UnionRect(this, a, b); }
  void NormalizeRect() {
    if (left > right) std::swap(left, right);
    if (top > bottom) std::swap(top, bottom);
  }
  CRect& operator=(const RECT& rc) { ::CopyRect(this, &rc); return *this; }
  bool operator==(const RECT& rc) const { return ::EqualRect(this, &rc) != 0; }
  bool operator!=(const RECT& rc) const { return !(*this == rc); }
  void operator&=(const RECT& rc) { ::IntersectRect(this, this, &rc); }
  void operator|=(const RECT& rc) { ::UnionRect(this, this, &rc); }
  void operator+=(POINT p) { OffsetRect(p.x, p.y); }
  void operator-=(POINT p) { OffsetRect(-p.x, -p.y); }
};

// ---------------------------------------------------------------------------
// CDC: a drawing target, as much of MFC's device context as the library's
// outline drawing needs (CLoopGrpOpt::DrawAnloopGrp). A host implements
// MoveTo and LineTo over its toolkit; Polygon and PolyPolygon draw each
// outline with them, closed, unless the host has faster forms. The library
// ships CSvgDC (cloopgrpopt.h), which writes SVG path data.
class TQBASE_API CDC {
public:
  virtual ~CDC();
  // Moves the current position; returns the previous one.
  virtual CPoint MoveTo(int x, int y) = 0;
  // A line from the current position to (x, y), which becomes current.
  virtual BOOL LineTo(int x, int y) = 0;
  // One closed outline of count points (count >= 2).
  virtual BOOL Polygon(const POINT* pts, int count);
  // polys closed outlines, counts[i] points each, one after another.
  virtual BOOL PolyPolygon(const POINT* pts, const INT* counts, int polys);
};

#endif  // TQBASE_MFCPORT_H
