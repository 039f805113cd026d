// region_test_util.h - helpers shared by the region suites: the models of
// region_model.h (pixel sets, the fill model, the banded structure) as
// assertions, hand-made pieces, regions from bitmaps, and repeat cycles.
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
#include "region_model.h"

namespace tqtest {

// The pixels of the inclusive rectangle [l, r] x [t, b].
inline PixelSet RectPixels(long long l, long long t, long long r, long long b) {
  PixelSet s;
  for (long long y = t; y <= b; ++y)
    for (long long x = l; x <= r; ++x) s.insert({y, x});
  return s;
}

// Every result of the engine: well-formed pieces, each one band of
// non-empty rows with a tight box, pieces in row order.
inline ::testing::AssertionResult Banded(const CRasterArray* a) {
  const char* defect = BandedDefect(a);
  if (defect) return ::testing::AssertionFailure() << defect;
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
