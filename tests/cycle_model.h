// cycle_model.h - the brute-force repeat-cycle model that the cycle suite
// and the cycle fuzz target check ACycle against: folding by stepping
// whole tiles one at a time, cutting runs and rectangles by folding every
// pixel and grouping the pixels of one tile copy, and the copies of a point
// in a box by trying lattice positions one by one. Cheap only for small
// tiles, displacements and coordinates; free of GoogleTest so that the fuzz
// targets can use it.
#ifndef TQBASE_TESTS_CYCLE_MODEL_H
#define TQBASE_TESTS_CYCLE_MODEL_H

#include <tqbase/tqbase.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <tuple>
#include <utility>
#include <vector>

namespace tqtest {

// Folds (x, y) by stepping whole tiles along the displacing axis one at a
// time; the other axis, which only wraps, by remainder. Needs a tile of at
// least one pixel when the repeat is on.
inline void ModelFold(long long& x, long long& y, const CYCLEINFO& ci) {
  if (!ci.onOff || ci.width == 0 || ci.height == 0) return;
  const long long w = ci.width, h = ci.height, p = ci.param;
  if (ci.way == 1) {
    while (x < 0) x += w, y += p;
    while (x >= w) x -= w, y -= p;
    y = ((y % h) + h) % h;
  } else if (ci.way == 2) {
    while (y < 0) y += h, x += p;
    while (y >= h) y -= h, x -= p;
    x = ((x % w) + w) % w;
  }
}

// The lattice translation that takes the plane pixel (x, y) to its folded
// place identifies the tile copy the pixel lies in.
struct ModelCopy {
  long long dx, dy;
  bool operator<(const ModelCopy& o) const { return std::tie(dx, dy) < std::tie(o.dx, o.dy); }
};

// A run piece in tile coordinates and the index in the run where it begins.
struct RunPiece {
  int x, y, length, offset;
  bool operator==(const RunPiece& o) const {
    return x == o.x && y == o.y && length == o.length && offset == o.offset;
  }
  bool operator<(const RunPiece& o) const {
    return std::tie(offset, x, y, length) < std::tie(o.offset, o.x, o.y, o.length);
  }
};

inline std::ostream& operator<<(std::ostream& os, const RunPiece& p) {
  return os << "{" << p.x << "," << p.y << "," << p.length << " @" << p.offset << "}";
}

// Pixel by pixel: fold every pixel of the run and group the pixels of one
// tile copy. Pieces in order of their offset within the run.
inline std::vector<RunPiece> ModelCutRun(const APTLENGTH& run, const CYCLEINFO& ci) {
  std::vector<RunPiece> out;
  ModelCopy last = {0, 0};
  for (int j = 0; j < run.length; ++j) {
    long long x = (long long)run.x + j, y = run.y;
    ModelFold(x, y, ci);
    ModelCopy c = {(long long)run.x + j - x, (long long)run.y - y};
    if (!out.empty() && !(c < last) && !(last < c) && x == out.back().x + out.back().length) {
      ++out.back().length;
    } else {
      out.push_back(RunPiece{(int)x, (int)y, 1, j});
      last = c;
    }
  }
  return out;
}

// A rectangle piece in tile coordinates and its offset from the top-left
// corner of the rectangle copy it belongs to.
struct RectPiece {
  RECT rc;
  POINT off;
  bool operator<(const RectPiece& o) const {
    return std::tie(rc.left, rc.top, rc.right, rc.bottom, off.x, off.y) <
           std::tie(o.rc.left, o.rc.top, o.rc.right, o.rc.bottom, o.off.x, o.off.y);
  }
  bool operator==(const RectPiece& o) const { return !(*this < o) && !(o < *this); }
};

inline std::ostream& operator<<(std::ostream& os, const RectPiece& p) {
  return os << "{" << p.rc.left << "," << p.rc.top << "," << p.rc.right << "," << p.rc.bottom << " @" << p.off.x
            << "," << p.off.y << "}";
}

// Folds every pixel of the rectangle and groups the pixels by tile copy;
// each group's box is its piece. Pieces sorted.
inline std::vector<RectPiece> ModelCutRect(const RECT& rc, const CYCLEINFO& ci) {
  std::map<ModelCopy, RectPiece> groups;
  for (int y = rc.top; y < rc.bottom; ++y)
    for (int x = rc.left; x < rc.right; ++x) {
      long long fx = x, fy = y;
      ModelFold(fx, fy, ci);
      ModelCopy c = {x - fx, y - fy};
      auto it = groups.find(c);
      if (it == groups.end()) {
        RectPiece p;
        p.rc = {(LONG)fx, (LONG)fy, (LONG)fx + 1, (LONG)fy + 1};
        p.off = POINT{x - rc.left, y - rc.top};
        groups[c] = p;
      } else {
        RectPiece& p = it->second;
        p.rc.left = std::min<LONG>(p.rc.left, (LONG)fx);
        p.rc.top = std::min<LONG>(p.rc.top, (LONG)fy);
        p.rc.right = std::max<LONG>(p.rc.right, (LONG)fx + 1);
        p.rc.bottom = std::max<LONG>(p.rc.bottom, (LONG)fy + 1);
        p.off.x = std::min<LONG>(p.off.x, x - rc.left);
        p.off.y = std::min<LONG>(p.off.y, y - rc.top);
      }
    }
  std::vector<RectPiece> out;
  for (auto& g : groups) out.push_back(g.second);
  std::sort(out.begin(), out.end());
  return out;
}

// Every copy (y, x) of the reference point (x0, y0) inside the box
// [xlo, xhi] x [ylo, yhi], sorted: the lattice positions (x0 + i*w,
// y0 + i*p + j*h) under way 1, (x0 + i*p + j*w, y0 + i*h) under any other
// way, each tried over index ranges that hold every position in the box
// and kept when it lies in the box. With the repeat off, the point itself.
// Needs a tile of at least one pixel when the repeat is on.
inline std::vector<std::pair<long long, long long>> ModelCopies(long long x0, long long y0, long long xlo,
                                                                long long xhi, long long ylo, long long yhi,
                                                                const CYCLEINFO& ci) {
  std::vector<std::pair<long long, long long>> out;
  if (!ci.onOff) {
    if (x0 >= xlo && x0 <= xhi && y0 >= ylo && y0 <= yhi) out.push_back({y0, x0});
    return out;
  }
  const bool way1 = ci.way == 1;
  const long long step = way1 ? ci.width : ci.height, wrap = way1 ? ci.height : ci.width, p = ci.param;
  const long long a0 = way1 ? x0 : y0, b0 = way1 ? y0 : x0;
  const long long alo = way1 ? xlo : ylo, ahi = way1 ? xhi : yhi;
  const long long blo = way1 ? ylo : xlo, bhi = way1 ? yhi : xhi;
  for (long long i = (alo - a0) / step - 1; i <= (ahi - a0) / step + 1; ++i) {
    const long long a = a0 + i * step, base = b0 + i * p;
    for (long long j = (blo - base) / wrap - 1; j <= (bhi - base) / wrap + 1; ++j) {
      const long long b = base + j * wrap;
      const long long x = way1 ? a : b, y = way1 ? b : a;
      if (x >= xlo && x <= xhi && y >= ylo && y <= yhi) out.push_back({y, x});
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace tqtest

#endif  // TQBASE_TESTS_CYCLE_MODEL_H
