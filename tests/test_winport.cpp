// test_winport.cpp - the platform vocabulary: record sizes, half-open
// rectangle helpers against a brute-force point model, global blocks,
// CArray and CString against std::vector and std::string models on random
// operation sequences, their edges, and the checked size helpers.
#include "test_support.h"
#include "checked.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

namespace {

TEST(WinPort, RecordSizesMatchTheWindowsLayouts) {
  static_assert(sizeof(DWORD) == 4 && sizeof(LONG) == 4 && sizeof(BOOL) == 4, "32-bit integers");
  static_assert(sizeof(POINT) == 8 && sizeof(RECT) == 16 && sizeof(SIZE) == 8, "GDI records");
  static_assert(sizeof(XFORM) == 24 && sizeof(RGBQUAD) == 4 && sizeof(PALETTEENTRY) == 4, "GDI records");
  static_assert(sizeof(OSVERSIONINFOA) == 148, "version record");
  static_assert(sizeof(RSRUN) == 8, "a run is two 32-bit ints");
  SUCCEED();
}

bool Inside(const RECT& r, int x, int y) { return x >= r.left && x < r.right && y >= r.top && y < r.bottom; }

// Intersection and union agree with the pixel sets they stand for.
TEST(WinPort, RectHelpersAgreeWithAPixelModel) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> c(-6, 6);
  for (int iter = 0; iter < 3000; ++iter) {
    RECT a = {c(rng), c(rng), c(rng), c(rng)}, b = {c(rng), c(rng), c(rng), c(rng)};
    RECT i, u;
    BOOL hasI = IntersectRect(&i, &a, &b);
    BOOL hasU = UnionRect(&u, &a, &b);
    bool anyI = false;
    for (int y = -7; y <= 7; ++y)
      for (int x = -7; x <= 7; ++x) {
        POINT p = {x, y};
        ASSERT_EQ(PtInRect(&a, p) != 0, Inside(a, x, y));
        bool both = Inside(a, x, y) && Inside(b, x, y);
        anyI |= both;
        ASSERT_EQ(both, hasI && Inside(i, x, y)) << "a=" << a.left << "," << a.top << "," << a.right << "," << a.bottom
                                                 << " b=" << b.left << "," << b.top << "," << b.right << "," << b.bottom;
        if (Inside(a, x, y) || Inside(b, x, y)) {
          ASSERT_TRUE(hasU && Inside(u, x, y));
        }
      }
    ASSERT_EQ(anyI, hasI != 0);
    if (!hasI) {
      ASSERT_TRUE(i.left == 0 && i.top == 0 && i.right == 0 && i.bottom == 0);
    }
    ASSERT_EQ(IsRectEmpty(&a) != 0, a.right <= a.left || a.bottom <= a.top);
  }
}

TEST(WinPort, RectHelpersAllowAliasedDestinations) {
  RECT a = {0, 0, 10, 10}, b = {5, 5, 20, 20};
  EXPECT_TRUE(IntersectRect(&a, &a, &b));
  EXPECT_TRUE(EqualRect(&a, &b) == FALSE);
  RECT want = {5, 5, 10, 10};
  EXPECT_TRUE(EqualRect(&a, &want));
  CRect r(0, 0, 4, 4);
  r |= RECT{2, 2, 8, 9};
  EXPECT_EQ(r, CRect(0, 0, 8, 9));
  r.OffsetRect(-1, 1);
  EXPECT_EQ(r.Width(), 8);
  EXPECT_EQ(r.TopLeft(), CPoint(-1, 1));
  EXPECT_FALSE(IsRectEmpty(nullptr) == FALSE);
}

TEST(WinPort, GlobalBlocksKeepTheirHandleAcrossReAllocation) {
  HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, 16);
  ASSERT_NE(h, nullptr);
  char* p = static_cast<char*>(GlobalLock(h));
  std::memcpy(p, "fifteen chars..", 16);
  GlobalUnlock(h);
  HGLOBAL h2 = GlobalReAlloc(h, 1 << 20, GMEM_MOVEABLE | GMEM_ZEROINIT);
  EXPECT_EQ(h2, h);
  EXPECT_EQ(GlobalSize(h), (SIZE_T)(1 << 20));
  char* q = static_cast<char*>(GlobalLock(h));
  EXPECT_STREQ(q, "fifteen chars..");
  EXPECT_EQ(q[(1 << 20) - 1], 0);
  EXPECT_EQ(GlobalHandle(q), h);
  if (q != p) {
    EXPECT_EQ(GlobalHandle(p), nullptr);  // the old data pointer is no block
  }
  EXPECT_EQ(GlobalFlags(h) & GMEM_LOCKCOUNT, 1u);
  GlobalUnlock(h);
  EXPECT_EQ(GlobalFree(h), nullptr);
  EXPECT_EQ(GlobalFree(h), h);  // already freed: refused
  EXPECT_EQ(GlobalLock(h), nullptr);
}

// CArray against std::vector on random operation sequences; every result
// and the whole contents after every step. Elements go in by reference,
// often from the array itself; the array is appended and inserted into
// itself; misuses mixed in must assert once each and change nothing. A
// failure prints the steps.
TEST(WinPort, CArrayAgreesWithAVectorModel) {
  std::mt19937 rng(17);
  tqtest::HookCapture hooks;
  for (int seq = 0; seq < 300; ++seq) {
    CArray<int> a;  // ARG_TYPE const int&
    std::vector<int> m;
    std::string steps;
    for (int step = 0; step < 60; ++step) {
      const int n = (int)m.size(), i = (int)(rng() % (unsigned)(n + 4));
      const int at = n ? i % n : 0, c = 1 + (int)(rng() % 3), rc = (int)(rng() % (unsigned)(n - at + 1));
      const int fresh = (int)(rng() % 1000);
      const int& v = n && rng() % 2 ? a[at] : fresh;
      const int mv = v;
      CArray<int> other;
      const std::vector<int> om((size_t)(rng() % 4), mv), was = m;
      for (int x : om) other.Add(x);
      auto insert = [&](int k, const std::vector<int>& what) {  // past the end: zeros first
        if (k > (int)m.size()) m.resize((size_t)k);
        m.insert(m.begin() + k, what.begin(), what.end());
      };
      const std::function<void()> misuse[] = {
          [&] { a.SetAtGrow(-c, v); },         [&] { a.InsertAt(-c, v); },
          [&] { a.InsertAt(i, v, 1 - c); },    [&] { a.InsertAt(-c, &other); },
          [&] { a.InsertAt(i, nullptr); },     [&] { a.RemoveAt(at, n - at + c); },
          [&] { a.RemoveAt(-c, 1); },          [&] { a.RemoveAt(at, -c); },
          [&] { a.RemoveAt(1, 0x7FFFFFFF); },  [&] { a.SetAt(n + i, v); },
          [&] { a.SetAt(-c, v); },             [&] { a.SetSize(-c); },
      };
      const int before = hooks.Assertions(), op = (int)(rng() % 11);
      steps += " " + std::to_string(op) + "(" + std::to_string(i) + "," + std::to_string(c) + ")";
      switch (op) {
        case 0: ASSERT_EQ(a.Add(v), n); m.push_back(mv); break;
        case 1: a.InsertAt(i, v, c); insert(i, std::vector<int>((size_t)c, mv)); break;
        case 2: a.InsertAt(i, &other); if (!om.empty()) insert(i, om); break;
        case 3: a.RemoveAt(at, rc); m.erase(m.begin() + at, m.begin() + at + rc); break;
        case 4: a.SetSize(i); m.resize((size_t)i); break;
        case 5: a.SetAtGrow(i, v); if (i >= n) m.resize((size_t)i + 1); m[(size_t)i] = mv; break;
        case 6: ASSERT_EQ(a.Append(other), n); insert(n, om); break;
        case 7: a.Copy(other); m = om; break;
        case 8:
          if (rng() % 2) {
            ASSERT_EQ(a.Append(a), n);
            insert(n, was);
          } else {
            a.InsertAt(i, &a);
            if (n) insert(i, was);
          }
          break;
        case 9: steps += "m"; misuse[rng() % (sizeof misuse / sizeof *misuse)](); break;
        default:
          if (n) {
            a.SetAt(at, v);
            a.ElementAt((at + 1) % n) += 1;
            m[(size_t)at] = mv;
            m[(size_t)((at + 1) % n)] += 1;
          }
      }
      ASSERT_EQ(hooks.Assertions() - before, op == 9 ? 1 : 0) << "seq " << seq << " ops(i,c):" << steps;
      ASSERT_EQ(a.vec(), m) << "seq " << seq << " ops(i,c):" << steps;
      ASSERT_EQ(a.GetUpperBound(), a.GetSize() - 1);
      ASSERT_EQ(a.GetData() == nullptr, m.empty());
    }
  }
}

TEST(WinPort, CArrayEdges) {
  tqtest::HookCapture hooks;
  // Elements that own memory, passed from the array itself while it grows.
  CArray<std::string> s;
  s.Add(std::string(40, 'a'));
  s.InsertAt(0, s[0], 9);
  s.SetAtGrow(20, s[3]);
  s.Add(s[20]);
  ASSERT_EQ(s.GetSize(), 22);
  EXPECT_TRUE(s[0] == s[21] && s[10].empty() && s[19].empty());
  s.InsertAt(25, &s);  // past the end of itself: grows, then copies the old 22
  ASSERT_EQ(s.GetSize(), 47);
  EXPECT_TRUE(s[25] == s[0] && s[24].empty() && s[46] == s[21]);
  EXPECT_EQ(hooks.Assertions(), 0);
  // Element access cannot refuse: it asserts and indexes anyway.
  (void)s.GetAt(47);
  EXPECT_EQ(hooks.Assertions(), 1);
  // A size that GetSize cannot hold is refused before any allocation.
  CArray<char> b;
  b.Add('x');
  EXPECT_THROW(b.InsertAt(0, 'y', 0x7FFFFFFF), std::bad_alloc);
  EXPECT_THROW(b.SetAtGrow(0x7FFFFFFF, 'y'), std::bad_alloc);
  EXPECT_EQ(b.vec(), std::vector<char>{'x'});
  b.Copy(b);  // copying onto itself keeps it
  EXPECT_EQ(b.vec(), std::vector<char>{'x'});
  b.RemoveAll();
  EXPECT_EQ(b.GetData(), nullptr);
}

// Independent statements of the string operations' rules, on std::string.
namespace model {
std::string Left(const std::string& s, int n) { return n <= 0 ? "" : s.substr(0, (size_t)n); }
std::string Right(const std::string& s, int n) {
  return n <= 0 ? "" : (size_t)n >= s.size() ? s : s.substr(s.size() - (size_t)n);
}
std::string Mid(const std::string& s, int first, int count) {  // count < 0: to the end
  first = std::max(first, 0);
  if ((size_t)first >= s.size() || count == 0 || count < -1) return "";
  return count == -1 ? s.substr((size_t)first) : s.substr((size_t)first, (size_t)count);
}
int Find(const std::string& s, const std::string& sub, int start) {
  if (start < 0 || start > (int)s.size()) return -1;
  size_t p = s.find(sub, (size_t)start);
  return p == std::string::npos ? -1 : (int)p;
}
bool Space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }
std::string TrimLeft(std::string s, char ch, bool space) {
  size_t k = 0;
  while (k < s.size() && (space ? Space(s[k]) : s[k] == ch)) ++k;
  return s.substr(k);
}
std::string TrimRight(std::string s, char ch, bool space) {
  while (!s.empty() && (space ? Space(s.back()) : s.back() == ch)) s.pop_back();
  return s;
}
}  // namespace model

// CString against std::string on random short texts over a small alphabet,
// with indices and counts out of range and negative.
TEST(WinPort, CStringAgreesWithAStringModel) {
  std::mt19937 rng(23);
  const char alphabet[] = "abAB \t-x";
  auto text = [&](size_t most) {
    std::string t(rng() % (most + 1), ' ');
    for (char& c : t) c = alphabet[rng() % (sizeof alphabet - 1)];
    return t;
  };
  for (int iter = 0; iter < 5000; ++iter) {
    const std::string m = text(12), sub = text(2), with = text(3);
    const CString s(m.c_str());
    const int n = (int)m.size(), i = (int)(rng() % (unsigned)(n + 5)) - 2, c = (int)(rng() % (unsigned)(n + 5)) - 2;
    const char ch = alphabet[rng() % (sizeof alphabet - 1)];
    const std::string where = "\"" + m + "\" i " + std::to_string(i) + " c " + std::to_string(c) + " ch '" + ch +
                              "' sub \"" + sub + "\" with \"" + with + "\"";
    ASSERT_EQ(s.Left(c).str(), model::Left(m, c)) << where;
    ASSERT_EQ(s.Right(c).str(), model::Right(m, c)) << where;
    ASSERT_EQ(s.Mid(i).str(), model::Mid(m, i, -1)) << where;
    ASSERT_EQ(s.Mid(i, c).str(), model::Mid(m, i, c < 0 ? 0 : c)) << where;
    ASSERT_EQ(s.Find(ch, i), model::Find(m, std::string(1, ch), i)) << where;
    ASSERT_EQ(s.Find(sub.c_str(), i), model::Find(m, sub, i)) << where;
    const size_t r = m.rfind(ch);
    ASSERT_EQ(s.ReverseFind(ch), r == std::string::npos ? -1 : (int)r) << where;

    CString t = s;
    std::string want, rest = m;  // Replace: every non-overlapping match, left to right
    int hits = 0;
    for (size_t p; !sub.empty() && (p = rest.find(sub)) != std::string::npos; ++hits)
      want += rest.substr(0, p) + with, rest = rest.substr(p + sub.size());
    want += rest;
    ASSERT_EQ(t.Replace(sub.c_str(), with.c_str()), hits) << where;
    ASSERT_EQ(t.str(), want) << where;
    t = s;
    std::string removed;
    for (char x : m)
      if (x != ch) removed += x;
    ASSERT_EQ(t.Remove(ch), n - (int)removed.size()) << where;
    ASSERT_EQ(t.str(), removed) << where;
    t = s;  // Insert clamps the index into the text
    std::string ins = m;
    ins.insert((size_t)std::min(std::max(i, 0), n), with);
    ASSERT_EQ(t.Insert(i, with.c_str()), (int)ins.size()) << where;
    ASSERT_EQ(t.str(), ins) << where;
    t = s;  // Delete ignores a start past the end and a count of 0 or less
    std::string del = m;
    if (c > 0 && std::max(i, 0) < n) del.erase((size_t)std::max(i, 0), (size_t)c);
    ASSERT_EQ(t.Delete(i, c), (int)del.size()) << where;
    ASSERT_EQ(t.str(), del) << where;

    ASSERT_EQ(CString(s).Trim().str(), model::TrimLeft(model::TrimRight(m, 0, true), 0, true)) << where;
    ASSERT_EQ(CString(s).TrimLeft(ch).str(), model::TrimLeft(m, ch, false)) << where;
    ASSERT_EQ(CString(s).TrimRight(ch).str(), model::TrimRight(m, ch, false)) << where;
    std::string up = m, low = m, lowWith = with;
    for (char& x : up) x = (char)std::toupper((unsigned char)x);
    for (char& x : low) x = (char)std::tolower((unsigned char)x);
    for (char& x : lowWith) x = (char)std::tolower((unsigned char)x);
    ASSERT_EQ(CString(s).MakeUpper().str(), up);
    ASSERT_EQ(CString(s).MakeLower().str(), low);
    const int cmp = s.CompareNoCase(CString(with.c_str()).MakeUpper()), mcmp = low.compare(lowWith);
    ASSERT_EQ((cmp > 0) - (cmp < 0), (mcmp > 0) - (mcmp < 0)) << where;
    CString f;
    f.Format("%s|%d|%s", m.c_str(), i, with.c_str());
    ASSERT_EQ(f.str(), m + "|" + std::to_string(i) + "|" + with);
  }
}

TEST(WinPort, CStringBuffersAndEdges) {
  CString s;
  s.Format("%d-%s", 12, "ab");
  s.AppendFormat("%05.1f", 2.25);
  EXPECT_EQ(s, "12-ab002.2");
  CString longText;  // beyond the formatter's first buffer
  longText.Format("%s%s", std::string(600, 'x').c_str(), "end");
  EXPECT_TRUE(longText.GetLength() == 603 && longText.Right(3) == "end");
  CString t;
  std::strcpy(t.GetBuffer(32), "raw");
  t.ReleaseBuffer();
  EXPECT_EQ(t.GetLength(), 3);
  t.GetBufferSetLength(2);
  EXPECT_EQ(t, "ra");
  t.GetBufferSetLength(4);  // "ra\0\0": the NULs are no text to search
  EXPECT_EQ(t.Find('\0'), -1);
  EXPECT_EQ(t.ReverseFind('\0'), -1);
  EXPECT_EQ(t.Find('a', -1), -1);  // a negative start finds nothing, as Find(sub)
  EXPECT_EQ(t.Find("a", -1), -1);
  EXPECT_EQ(CString("宋体").GetLength(), 6);  // UTF-8 bytes
  EXPECT_TRUE(CString((const char*)nullptr).IsEmpty() && CString("abc", -1).IsEmpty());
  EXPECT_EQ(s.Replace("", "x"), 0);  // an empty pattern replaces nothing
  EXPECT_EQ(s.Find((const char*)nullptr), -1);
  CString empty;
  EXPECT_EQ(empty.Find(""), 0);
  empty.Format(nullptr);
  EXPECT_TRUE(empty.IsEmpty());
}

TEST(CheckedHelpers, OverflowGivesFalse) {
  int r;
  EXPECT_FALSE(tqbase::CheckedAdd(0x7fffffff, 1, &r));
  EXPECT_TRUE(tqbase::CheckedMul(46340, 46340, &r));
  EXPECT_FALSE(tqbase::CheckedMul(46341, 46341, &r));
  size_t n;
  EXPECT_FALSE(tqbase::CheckedBytes(-1, 4, &n));
  EXPECT_FALSE(tqbase::CheckedBytes(1LL << 62, 8, &n));
  EXPECT_TRUE(tqbase::CheckedBytes(10, 8, &n, 80));
  EXPECT_FALSE(tqbase::CheckedBytes(11, 8, &n, 80));
  EXPECT_TRUE(tqbase::RangeInside(2, 3, 5));
  EXPECT_FALSE(tqbase::RangeInside(3, 3, 5));
  EXPECT_FALSE(tqbase::RangeInside(6, 0, 5));
}

}  // namespace
