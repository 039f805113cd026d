// bench_region.cpp - the scanline region engine against pixman's regions
// and AGG's scanline boolean algebra on identical inputs: scan conversion
// of a 200-point star, a 64-gon (4000 x 4000 canvas) and 1,000 small
// shapes; the four booleans on them; byte masks; mirrors.
//
// Peers get the very runs our engine produced (pixman_region32 from one
// box per run, AGG's scanline_storage_bin from one span per run), so every
// library combines the same pixel sets. Only the operation is timed: the
// peers' operands are built once outside the loop, ours are used as they
// are; every side builds a complete, owned result of its own kind in each
// round (ours includes the operands' validity check it must make). Scan conversion is compared with
// AGG's rasterizer_scanline_aa swept with scanline_bin (pixman has no
// polygon-to-region conversion).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "tqbase/tqbase.h"

#ifdef TQBENCH_HAVE_PIXMAN
#include <pixman.h>
#endif
#ifdef TQBENCH_HAVE_AGG
// AGG's own headers trip GCC's flow warnings; they are not ours to fix.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wunused-parameter"
#endif
#include <agg_rasterizer_scanline_aa.h>
#include <agg_renderer_scanline.h>
#include <agg_scanline_bin.h>
#include <agg_scanline_boolean_algebra.h>
#include <agg_scanline_storage_bin.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
#endif

namespace {

std::vector<POINT> Star(int points, double cx, double cy, double r1, double r2) {
  std::vector<POINT> p;
  for (int i = 0; i < points; ++i) {
    double a = 2 * M_PI * i / points;
    double r = (i & 1) ? r2 : r1;
    p.push_back(POINT{(LONG)std::lround(cx + r * std::cos(a)), (LONG)std::lround(cy + r * std::sin(a))});
  }
  return p;
}

struct Shapes {
  std::vector<POINT> star, gon;          // 200-point star, 64-gon
  std::vector<POINT> small;              // 1,000 small shapes, 12 points each
  std::vector<int> smallCounts;
  std::vector<POINT> small2;
  CRasterArray* aStar = nullptr;
  CRasterArray* aGon = nullptr;
  CRasterArray* aSmall = nullptr;
  CRasterArray* aSmall2 = nullptr;
  Shapes() {
    star = Star(200, 2000, 2000, 1950, 900);
    gon = Star(64, 2300, 2150, 1800, 1800);
    std::mt19937 rng(2024);
    for (int k = 0; k < 1000; ++k) {
      double cx = 60 + rng() % 3880, cy = 60 + rng() % 3880, r = 10 + rng() % 50;
      auto s = Star(12, cx, cy, r, r * 0.6);
      small.insert(small.end(), s.begin(), s.end());
      smallCounts.push_back(12);
      auto s2 = Star(12, cx + 25, cy + 10, r, r * 0.6);
      small2.insert(small2.end(), s2.begin(), s2.end());
    }
    aStar = CRstLines::CreateRasterArray(star.data(), (int)star.size(), 1);
    aGon = CRstLines::CreateRasterArray(gon.data(), (int)gon.size(), 1);
    aSmall = CRstLines::CreateRasterArray(small.data(), smallCounts.data(), 1000, 1, 0);
    aSmall2 = CRstLines::CreateRasterArray(small2.data(), smallCounts.data(), 1000, 1, 0);
  }
};

const Shapes& S() {
  static Shapes s;
  return s;
}

const int kModes[4] = {RST_AND, RST_OR, RST_DIFF, RST_XOR};
const char* kModeNames[4] = {"and", "or", "diff", "xor"};

// ---- scan conversion ----------------------------------------------------------

void BM_Scan_Ours(benchmark::State& st, int which) {
  const Shapes& s = S();
  for (auto _ : st) {
    if (which == 2) {
      for (int k = 0; k < 1000; ++k) {
        RSRLINE* p = CRstLines::CreateRaster(s.small.data() + 12 * k, 12, 1);
        benchmark::DoNotOptimize(p);
        CRstLines::Delete(p);
      }
    } else {
      const std::vector<POINT>& pts = which == 0 ? s.star : s.gon;
      RSRLINE* p = CRstLines::CreateRaster(pts.data(), (int)pts.size(), 1);
      benchmark::DoNotOptimize(p);
      CRstLines::Delete(p);
    }
  }
}
BENCHMARK_CAPTURE(BM_Scan_Ours, star200, 0)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Scan_Ours, gon64, 1)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Scan_Ours, small1000, 2)->Unit(benchmark::kMicrosecond);

#ifdef TQBENCH_HAVE_AGG
void AggAddPoly(agg::rasterizer_scanline_aa<>& ras, const POINT* p, int n) {
  ras.move_to_d(p[0].x + 0.5, p[0].y + 0.5);
  for (int i = 1; i < n; ++i) ras.line_to_d(p[i].x + 0.5, p[i].y + 0.5);
  ras.close_polygon();
}

void BM_Scan_AGG(benchmark::State& st, int which) {
  const Shapes& s = S();
  agg::rasterizer_scanline_aa<> ras;
  ras.filling_rule(agg::fill_even_odd);
  agg::scanline_bin sl;
  agg::scanline_storage_bin storage;
  for (auto _ : st) {
    if (which == 2) {
      for (int k = 0; k < 1000; ++k) {
        ras.reset();
        AggAddPoly(ras, s.small.data() + 12 * k, 12);
        agg::render_scanlines(ras, sl, storage);
        benchmark::DoNotOptimize(storage.min_y());
      }
    } else {
      const std::vector<POINT>& pts = which == 0 ? s.star : s.gon;
      ras.reset();
      AggAddPoly(ras, pts.data(), (int)pts.size());
      agg::render_scanlines(ras, sl, storage);
      benchmark::DoNotOptimize(storage.min_y());
    }
  }
}
BENCHMARK_CAPTURE(BM_Scan_AGG, star200, 0)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Scan_AGG, gon64, 1)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Scan_AGG, small1000, 2)->Unit(benchmark::kMicrosecond);
#endif

// ---- booleans -------------------------------------------------------------------

// Operand pairs: 0 star with 64-gon; 1 two sets of 1,000 small shapes.
void Operands(int pair, const CRasterArray*& a, const CRasterArray*& b) {
  const Shapes& s = S();
  a = pair == 0 ? s.aStar : s.aSmall;
  b = pair == 0 ? s.aGon : s.aSmall2;
}

void BM_Bool_Ours(benchmark::State& st) {
  int mode = (int)st.range(0), pair = (int)st.range(1);
  const CRasterArray *a, *b;
  Operands(pair, a, b);
  for (auto _ : st) {
    CRasterArray out;
    CRstLines::Create(&out, a, b, kModes[mode], nullptr);
    benchmark::DoNotOptimize(out.GetData());
    CRstLines::Release(&out);
  }
  st.SetLabel(std::string(kModeNames[mode]) + (pair ? " small1000" : " star/gon"));
}
BENCHMARK(BM_Bool_Ours)->ArgsProduct({{0, 1, 2, 3}, {0, 1}})->Unit(benchmark::kMicrosecond);

#ifdef TQBENCH_HAVE_PIXMAN
void ToPixman(const CRasterArray* a, pixman_region32_t* r) {
  std::vector<pixman_box32_t> boxes;
  for (const RSRLINE* p : *a) {
    const RSRUN* run = p->arRun.GetData();
    int y = p->rcBox.top;
    for (int c : p->arCount) {
      for (int i = 0; i < c; ++i, ++run) boxes.push_back(pixman_box32_t{run->x1, y, run->x2 + 1, y + 1});
      ++y;
    }
  }
  pixman_region32_init_rects(r, boxes.data(), (int)boxes.size());
}

void BM_Bool_Pixman(benchmark::State& st) {
  int mode = (int)st.range(0), pair = (int)st.range(1);
  const CRasterArray *a, *b;
  Operands(pair, a, b);
  pixman_region32_t ra, rb;
  ToPixman(a, &ra);
  ToPixman(b, &rb);
  for (auto _ : st) {
    pixman_region32_t out;
    pixman_region32_init(&out);
    switch (kModes[mode]) {
      case RST_AND: pixman_region32_intersect(&out, &ra, &rb); break;
      case RST_OR: pixman_region32_union(&out, &ra, &rb); break;
      case RST_DIFF: pixman_region32_subtract(&out, &ra, &rb); break;
      default: {
        pixman_region32_t t1, t2;
        pixman_region32_init(&t1);
        pixman_region32_init(&t2);
        pixman_region32_subtract(&t1, &ra, &rb);
        pixman_region32_subtract(&t2, &rb, &ra);
        pixman_region32_union(&out, &t1, &t2);
        pixman_region32_fini(&t1);
        pixman_region32_fini(&t2);
      }
    }
    benchmark::DoNotOptimize(pixman_region32_n_rects(&out));
    pixman_region32_fini(&out);
  }
  pixman_region32_fini(&ra);
  pixman_region32_fini(&rb);
  st.SetLabel(std::string(kModeNames[mode]) + (pair ? " small1000" : " star/gon"));
}
BENCHMARK(BM_Bool_Pixman)->ArgsProduct({{0, 1, 2, 3}, {0, 1}})->Unit(benchmark::kMicrosecond);
#endif

#ifdef TQBENCH_HAVE_AGG
void ToAgg(const CRasterArray* a, agg::scanline_storage_bin& st) {
  // AGG wants one scanline per row: rows of all pieces merged by y.
  CRasterArray none;
  CRasterArray merged;
  CRstLines::Create(&merged, a, &none, RST_OR, nullptr);
  agg::scanline_bin sl;
  RECT box = CRstLines::GetBox(&merged);
  sl.reset(box.left, box.right + 1);
  st.prepare();
  for (const RSRLINE* p : merged) {
    const RSRUN* run = p->arRun.GetData();
    int y = p->rcBox.top;
    for (int c : p->arCount) {
      sl.reset_spans();
      for (int i = 0; i < c; ++i, ++run) sl.add_span(run->x1, (unsigned)(run->x2 - run->x1 + 1), 255);
      sl.finalize(y);
      st.render(sl);
      ++y;
    }
  }
  CRstLines::Release(&merged);
}

void BM_Bool_AGG(benchmark::State& st) {
  int mode = (int)st.range(0), pair = (int)st.range(1);
  const CRasterArray *a, *b;
  Operands(pair, a, b);
  agg::scanline_storage_bin sa, sb;
  ToAgg(a, sa);
  ToAgg(b, sb);
  agg::scanline_bin sl1, sl2, sl;
  const agg::sbool_op_e ops[4] = {agg::sbool_and, agg::sbool_or, agg::sbool_a_minus_b, agg::sbool_xor};
  for (auto _ : st) {
    // A fresh storage per round: the result is built and owned from
    // scratch, as ours is (a reused storage would keep its blocks).
    agg::scanline_storage_bin out;
    agg::sbool_combine_shapes_bin(ops[mode], sa, sb, sl1, sl2, sl, out);
    benchmark::DoNotOptimize(out.min_y());
  }
  st.SetLabel(std::string(kModeNames[mode]) + (pair ? " small1000" : " star/gon"));
}
BENCHMARK(BM_Bool_AGG)->ArgsProduct({{0, 1, 2, 3}, {0, 1}})->Unit(benchmark::kMicrosecond);
#endif

// ---- masks and mirrors --------------------------------------------------------------

void BM_Mask_Ours(benchmark::State& st) {
  const Shapes& s = S();
  RECT rc = {0, 0, 4000, 4000};
  std::vector<unsigned char> buf(4000u * 4000u, 0);
  for (auto _ : st) {
    CRstLines::SetRasterMaskInBuf(buf.data(), rc, s.aStar->GetAt(0), 255);
    benchmark::DoNotOptimize(buf.data());
  }
}
BENCHMARK(BM_Mask_Ours)->Unit(benchmark::kMicrosecond);

#ifdef TQBENCH_HAVE_PIXMAN
void BM_Mask_Pixman(benchmark::State& st) {
  const Shapes& s = S();
  std::vector<unsigned char> buf(4000u * 4000u, 0);
  pixman_image_t* img = pixman_image_create_bits(PIXMAN_a8, 4000, 4000, (uint32_t*)buf.data(), 4000);
  pixman_region32_t r;
  ToPixman(s.aStar, &r);
  int n = 0;
  pixman_box32_t* boxes = pixman_region32_rectangles(&r, &n);
  pixman_color_t white = {0xffff, 0xffff, 0xffff, 0xffff};
  for (auto _ : st) {
    pixman_image_fill_boxes(PIXMAN_OP_SRC, img, &white, n, boxes);
    benchmark::DoNotOptimize(buf.data());
  }
  pixman_region32_fini(&r);
  pixman_image_unref(img);
}
BENCHMARK(BM_Mask_Pixman)->Unit(benchmark::kMicrosecond);
#endif

// A mirror pair (left-right, then top-bottom) restores the star each round.
// No peer offers region mirroring; the figure stands alone.
void BM_Mirror_Ours(benchmark::State& st) {
  const Shapes& s = S();
  CRstLines r;
  r.Copy(s.aStar);
  for (auto _ : st) {
    r.HorMirror();
    r.VerMirror();
    benchmark::DoNotOptimize(r.GetData());
  }
}
BENCHMARK(BM_Mirror_Ours)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
