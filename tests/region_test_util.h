// region_test_util.h - helpers shared by the region suites: pixel sets of
// pieces and arrays (the brute-force model every result is checked
// against), hand-made pieces, regions from bitmaps, the banded structure
// of engine results, and repeat cycles.
#ifndef TQBASE_TESTS_REGION_TEST_UTIL_H
#define TQBASE_TESTS_REGION_TEST_UTIL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tqbase/tqbase.h"

namespace tqtest {

typedef std::set<std::pair<long long, long long>> PixelSet;  // (y, x)

inline PixelSet Pixels(const RSRLINE* p) {
  PixelSet s;
  if (!p) return s;
  const RSRUN* r = p->arRun.GetData();
  long long y = p->rcBox.top;
  for (int c : p->arCount) {
    for (int i = 0; i < c; ++i, ++r)
      for (long long x = r->x1; x <= r->x2; ++x) s.insert({y, x});
    ++y;
  }
  return s;
}

// The pixels of the inclusive rectangle [l, r] x [t, b].
inline PixelSet RectPixels(long long l, long long t, long long r, long long b) {
  PixelSet s;
  for (long long y = t; y <= b; ++y)
    for (long long x = l; x <= r; ++x) s.insert({y, x});
  return s;
}

inline PixelSet Pixels(const CRasterArray* a) {
  PixelSet s;
  if (!a) return s;
  for (const RSRLINE* p : *a) {
    PixelSet t = Pixels(p);
    s.insert(t.begin(), t.end());
  }
  return s;
}

// Every result of the engine: well-formed pieces, each one band of
// non-empty rows with a tight box, pieces in row order.
inline ::testing::AssertionResult Banded(const CRasterArray* a) {
  if (!a) return ::testing::AssertionSuccess();
  long long lastBottom = INT64_MIN;
  for (const RSRLINE* p : *a) {
    if (!p) return ::testing::AssertionFailure() << "null piece";
    if (!CRstLines::IsWellFormed(p)) return ::testing::AssertionFailure() << "piece not well formed";
    for (int c : p->arCount)
      if (c == 0) return ::testing::AssertionFailure() << "empty row inside a piece";
    long long maxX2 = INT64_MIN;
    for (const RSRUN& r : p->arRun) maxX2 = std::max<long long>(maxX2, r.x2);
    if (maxX2 != p->rcBox.right) return ::testing::AssertionFailure() << "box not tight";
    if (p->rcBox.top <= lastBottom) return ::testing::AssertionFailure() << "pieces out of row order";
    if (p->rcBox.top == lastBottom + 1) return ::testing::AssertionFailure() << "adjacent bands not joined";
    lastBottom = p->rcBox.bottom;
  }
  return ::testing::AssertionSuccess();
}

inline RSRLINE* MakePiece(int top, std::vector<std::vector<std::pair<int, int>>> rows) {
  RSRLINE* p = new RSRLINE;
  bool any = false;
  int l = 0, r = 0;
  for (auto& row : rows) {
    p->arCount.Add((int)row.size());
    for (auto& run : row) {
      p->arRun.Add(RSRUN{run.first, run.second});
      if (!any || run.first < l) l = run.first;
      if (!any || run.second > r) r = run.second;
      any = true;
    }
  }
  p->rcBox.left = l;
  p->rcBox.right = r;
  p->rcBox.top = top;
  p->rcBox.bottom = top + (int)rows.size() - 1;
  return p;
}

// A region from a bitmap (rows of '#' and '.'), shifted by (ox, oy).
inline CRstLines FromBitmap(const std::vector<std::string>& rows, int ox = 0, int oy = 0) {
  CRstLines r;
  for (size_t y = 0; y < rows.size(); ++y)
    for (size_t x = 0; x < rows[y].size(); ++x)
      if (rows[y][x] == '#') {
        size_t e = x;
        while (e + 1 < rows[y].size() && rows[y][e + 1] == '#') ++e;
        CRstLines run;
        run.Create(RECT{(LONG)x + ox, (LONG)y + oy, (LONG)e + 1 + ox, (LONG)y + 1 + oy});
        r.Add(run.GetData(), 1, nullptr);
        x = e;
      }
  return r;
}

inline std::vector<std::string> RandomBitmap(std::mt19937& rng, int w, int h, int percent) {
  std::vector<std::string> rows((size_t)h, std::string((size_t)w, '.'));
  for (auto& row : rows)
    for (char& c : row) c = (int)(rng() % 100) < percent ? '#' : '.';
  return rows;
}

inline std::string BitmapCode(const std::vector<std::string>& rows) {
  std::ostringstream o;
  o << "FromBitmap({";
  for (size_t i = 0; i < rows.size(); ++i) o << (i ? ", " : "") << '"' << rows[i] << '"';
  o << "})";
  return o.str();
}

inline ACycle OnCycle(int w, int h, int param, int way) {
  ACycle c;
  c.SetCycleParams(w, h, param);
  c.SetCycleWay(way);
  c.SetCycleOnOff(1);
  return c;
}
}  // namespace tqtest

#endif  // TQBASE_TESTS_REGION_TEST_UTIL_H
