// bench_regions.h - the regions the region benchmarks share, on a
// 4000 x 4000 canvas: the union and the exclusive or of a 200-point star
// (radii 1800/1200 around (1900, 1950)) and a 64-gon (radius 1500 around
// (2300, 2200)), and the union of 1,000 random rectangles (sides 8-128)
// added one at a time.
#ifndef TQBASE_BENCH_REGIONS_H
#define TQBASE_BENCH_REGIONS_H

#include <cmath>
#include <random>
#include <vector>

#include "tqbase/tqbase.h"

namespace tqbench {

const int kCanvas = 4000;

// A star of `points` vertices alternating between radii r1 and r2 (equal
// radii give a regular polygon).
inline std::vector<POINT> Star(int points, double cx, double cy, double r1, double r2) {
  std::vector<POINT> p;
  for (int i = 0; i < points; ++i) {
    const double a = 2 * M_PI * i / points, r = (i & 1) ? r2 : r1;
    p.push_back(POINT{(LONG)std::lround(cx + r * std::cos(a)), (LONG)std::lround(cy + r * std::sin(a))});
  }
  return p;
}

enum { kStarOrGon, kStarXorGon, kRectangles };
const char* const kRegionNames[3] = {"star or gon", "star xor gon", "1000 rectangles"};

// The three regions, built once.
inline const CRstLines& Region(int which) {
  struct Regions {
    CRstLines shapes[3];
    Regions() {
      const std::vector<POINT> star = Star(200, 1900, 1950, 1800, 1200);
      const std::vector<POINT> gon = Star(64, 2300, 2200, 1500, 1500);
      CRstLines a, b;
      a.Create(star.data(), (int)star.size(), ALTERNATE_FILL);
      b.Create(gon.data(), (int)gon.size(), ALTERNATE_FILL);
      shapes[kStarOrGon].Combine(&a, &b, RST_OR);
      shapes[kStarXorGon].Combine(&a, &b, RST_XOR);
      std::mt19937 rng(8001);
      std::uniform_int_distribution<int> side(8, 128);
      for (int k = 0; k < 1000; ++k) {
        const int w = side(rng), h = side(rng);
        const int x = (int)(rng() % (unsigned)(kCanvas - w)), y = (int)(rng() % (unsigned)(kCanvas - h));
        CRstLines r;
        r.Create(RECT{x, y, x + w, y + h});
        shapes[kRectangles].Add(r.GetData(), 1, nullptr);
      }
    }
  };
  static Regions r;
  return r.shapes[which];
}

// The region's byte mask (255 inside) over a w x h canvas from the origin.
inline std::vector<unsigned char> Mask(const CRstLines& r, int w = kCanvas, int h = kCanvas) {
  std::vector<unsigned char> m((size_t)w * h, 0);
  for (RSRLINE* p : *r.GetData()) CRstLines::SetRasterMaskInBuf(m.data(), RECT{0, 0, w, h}, p, 255);
  return m;
}

}  // namespace tqbench

#endif  // TQBASE_BENCH_REGIONS_H
