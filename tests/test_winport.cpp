// test_winport.cpp - the platform vocabulary: record sizes, half-open
// rectangle helpers against a brute-force point model, global blocks,
// CArray and CString semantics that the library's callers depend on.
#include "test_support.h"
#include "checked.h"

#include <gtest/gtest.h>

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

TEST(WinPort, CArrayFollowsMfcSemantics) {
  CArray<int, int> a;
  a.SetSize(3);
  EXPECT_EQ(a[0] + a[1] + a[2], 0);  // value-initialised
  EXPECT_EQ(a.Add(7), 3);
  a.InsertAt(1, 5, 2);
  EXPECT_EQ(a.GetSize(), 6);
  EXPECT_EQ(a[1], 5);
  EXPECT_EQ(a[2], 5);
  a.RemoveAt(0, 3);
  EXPECT_EQ(a.GetSize(), 3);
  EXPECT_EQ(a[2], 7);
  a.SetAtGrow(5, 9);
  EXPECT_EQ(a.GetSize(), 6);
  EXPECT_EQ(a.GetUpperBound(), 5);
  CArray<int, int> b;
  b.Copy(a);
  b.Append(a);
  EXPECT_EQ(b.GetSize(), 12);
  b.InsertAt(0, &a);
  EXPECT_EQ(b.GetSize(), 18);
  b.RemoveAll();
  EXPECT_EQ(b.GetData(), nullptr);

  tqtest::HookCapture hooks;
  (void)a.GetAt(6);  // out of range: assertion reported, not a crash in the check
  EXPECT_EQ(hooks.Assertions(), 1);
}

TEST(WinPort, CStringFollowsMfcSemantics) {
  CString s;
  s.Format("%d-%s", 12, "ab");
  EXPECT_STREQ(s, "12-ab");
  s.AppendFormat("%05.1f", 2.25);
  EXPECT_EQ(s, "12-ab002.2");
  EXPECT_EQ(s.Left(2), "12");
  EXPECT_EQ(s.Right(3), "2.2");
  EXPECT_EQ(s.Mid(3, 2), "ab");
  EXPECT_EQ(s.Mid(40), "");
  EXPECT_EQ(s.Find('a'), 3);
  EXPECT_EQ(s.Find("002"), 5);
  EXPECT_EQ(s.ReverseFind('2'), 9);
  EXPECT_EQ(s.Replace("2", "two"), 3);
  EXPECT_EQ(s, "1two-ab00two.two");
  CString t("  padded\t ");
  EXPECT_EQ(t.Trim(), "padded");
  EXPECT_EQ(CString("MiXeD").MakeLower(), "mixed");
  EXPECT_EQ(CString("abc").CompareNoCase("ABC"), 0);
  char* buf = t.GetBuffer(32);
  std::strcpy(buf, "raw");
  t.ReleaseBuffer();
  EXPECT_EQ(t.GetLength(), 3);
  CString longText;
  longText.Format("%s%s", std::string(600, 'x').c_str(), "end");
  EXPECT_EQ(longText.GetLength(), 603);
  EXPECT_EQ(CString("宋体").GetLength(), 6);  // UTF-8 bytes
  CString nullText((const char*)nullptr);
  EXPECT_TRUE(nullText.IsEmpty());
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
