// bench_region.cpp - the scanline region engine on the workloads a layout
// module runs, against pixman's regions and AGG's scanline algebra on the
// same inputs in the same run (inputs from fixed seeds on a 4000 x 4000
// canvas):
//
//  - Union/rects, Union/polys: 1,000 random rectangles (sides 8-128) or
//    convex 3-12-gons (radius 8-64) united one at a time, ours with
//    CRstLines::Add(piece, 1, nullptr), pixman with pixman_region32_union
//    in place, AGG with sbool_or into a fresh storage; the accumulator is
//    built from empty and freed in every round.
//  - PolySet/rects, PolySet/polys: the same shapes at once, ours with the
//    polygon-set CRstLines::Create(pts, counts, 1000, winding, 0), pixman
//    with pixman_region32_init_rects on their boxes (for the polygons: on
//    one box per row of every polygon, computed outside the loop, so
//    pixman is not charged for scan conversion), AGG with one non-zero
//    rasterizer pass into scanline storage.
//  - Combine/<mode>: the two-array CRstLines::Combine of a 200-point star
//    and an overlapping 64-gon (about 3,800 rows each), the result array
//    allocated and deleted in every round as the interface hands it out;
//    pixman into a region reused across rounds (XOR: two subtractions and
//    a union, also into reused regions); AGG into a fresh storage.
//  - Mask: SetRasterMaskInBuf of the star-or-gon union into a cleared
//    4000 x 4000 byte mask, against walking pixman's rectangles of the
//    same union with one memset per row of each.
//  - Scan: one polygon scan-converted (star, 64-gon, 1,000 small stars one
//    by one) against AGG's rasterizer swept with scanline_bin.
//  - Mirror: a left-right and a top-bottom mirror of the star (no peer).
//
// Pieces and pixman operands are built once outside the timed loops from
// the very runs our scan conversion made, so every library combines the
// same pixel sets. AGG's rasterizer decides pixels by its own coverage
// rule, so its scan results differ slightly; it is timed as the peer that
// does the same kind of work.
#include <benchmark/benchmark.h>

#include <algorithm>
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

const int kCanvas = 4000;

std::vector<POINT> Star(int points, double cx, double cy, double r1, double r2) {
  std::vector<POINT> p;
  for (int i = 0; i < points; ++i) {
    double a = 2 * M_PI * i / points;
    double r = (i & 1) ? r2 : r1;
    p.push_back(POINT{(LONG)std::lround(cx + r * std::cos(a)), (LONG)std::lround(cy + r * std::sin(a))});
  }
  return p;
}

// A set of shapes as polygons (pts/counts) and as one piece each.
struct ShapeSet {
  std::vector<POINT> pts;
  std::vector<int> counts;
  std::vector<CRstLines> pieces;  // one piece per shape
  ~ShapeSet() = default;
  const RSRLINE* Piece(size_t k) const { return pieces[k].GetData()->GetAt(0); }
};

void AddPiece(ShapeSet& s, const POINT* p, int n) {
  s.pieces.emplace_back();
  s.pieces.back().Create(p, n, WINDING_FILL);
}

ShapeSet RandomRects() {
  ShapeSet s;
  std::mt19937 rng(8001);
  std::uniform_int_distribution<int> side(8, 128);
  s.pieces.reserve(1000);
  for (int k = 0; k < 1000; ++k) {
    int w = side(rng), h = side(rng);
    int x = (int)(rng() % (unsigned)(kCanvas - w)), y = (int)(rng() % (unsigned)(kCanvas - h));
    POINT q[4] = {{x, y}, {x + w - 1, y}, {x + w - 1, y + h - 1}, {x, y + h - 1}};
    s.pts.insert(s.pts.end(), q, q + 4);
    s.counts.push_back(4);
    AddPiece(s, q, 4);
  }
  return s;
}

ShapeSet RandomConvexPolys() {
  ShapeSet s;
  std::mt19937 rng(8002);
  std::uniform_int_distribution<int> verts(3, 12), radius(8, 64);
  std::uniform_real_distribution<double> angle(0, 2 * M_PI);
  s.pieces.reserve(1000);
  for (int k = 0; k < 1000; ++k) {
    int n = verts(rng), r = radius(rng);
    double cx = r + rng() % (unsigned)(kCanvas - 2 * r), cy = r + rng() % (unsigned)(kCanvas - 2 * r);
    std::vector<double> a((size_t)n);
    for (double& v : a) v = angle(rng);
    std::sort(a.begin(), a.end());
    std::vector<POINT> q;
    for (double v : a) q.push_back(POINT{(LONG)std::lround(cx + r * std::cos(v)), (LONG)std::lround(cy + r * std::sin(v))});
    s.pts.insert(s.pts.end(), q.begin(), q.end());
    s.counts.push_back(n);
    AddPiece(s, q.data(), n);
  }
  return s;
}

struct Inputs {
  ShapeSet rects = RandomRects();
  ShapeSet polys = RandomConvexPolys();
  std::vector<POINT> star = Star(200, 2000, 2000, 1950, 900);
  std::vector<POINT> gon = Star(64, 2050, 2000, 1900, 1900);
  std::vector<POINT> small;  // 1,000 small stars, 12 points each
  CRasterArray* aStar = nullptr;
  CRasterArray* aGon = nullptr;
  CRasterArray* aUnion = nullptr;  // star or gon
  Inputs() {
    std::mt19937 rng(2024);
    for (int k = 0; k < 1000; ++k) {
      double cx = 60 + rng() % 3880, cy = 60 + rng() % 3880, r = 10 + rng() % 50;
      auto s = Star(12, cx, cy, r, r * 0.6);
      small.insert(small.end(), s.begin(), s.end());
    }
    aStar = CRstLines::CreateRasterArray(star.data(), (int)star.size(), ALTERNATE_FILL);
    aGon = CRstLines::CreateRasterArray(gon.data(), (int)gon.size(), ALTERNATE_FILL);
    CRstLines::Combine(aStar, aGon, RST_OR, &aUnion, nullptr);
  }
};

const Inputs& In() {
  static Inputs in;
  return in;
}

const ShapeSet& Set(int which) { return which == 0 ? In().rects : In().polys; }
const char* SetName(int which) { return which == 0 ? "rects" : "polys"; }

const int kModes[4] = {RST_AND, RST_OR, RST_DIFF, RST_XOR};
const char* kModeNames[4] = {"and", "or", "diff", "xor"};

// ---- union one shape at a time --------------------------------------------------

void BM_Union_Ours(benchmark::State& st) {
  const ShapeSet& s = Set((int)st.range(0));
  for (auto _ : st) {
    CRstLines acc;
    for (size_t k = 0; k < s.pieces.size(); ++k) acc.Add(s.Piece(k), 1, nullptr);
    benchmark::DoNotOptimize(acc.GetData());
  }
  st.SetLabel(SetName((int)st.range(0)));
}
BENCHMARK(BM_Union_Ours)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

#ifdef TQBENCH_HAVE_PIXMAN
// Boxes of a raster array's runs: one per run, one row high.
std::vector<pixman_box32_t> Boxes(const CRasterArray* a) {
  std::vector<pixman_box32_t> boxes;
  for (const RSRLINE* p : *a) {
    const RSRUN* run = p->arRun.GetData();
    int y = p->rcBox.top;
    for (int c : p->arCount) {
      for (int i = 0; i < c; ++i, ++run) boxes.push_back(pixman_box32_t{run->x1, y, run->x2 + 1, y + 1});
      ++y;
    }
  }
  return boxes;
}

void ToPixman(const CRasterArray* a, pixman_region32_t* r) {
  std::vector<pixman_box32_t> boxes = Boxes(a);
  pixman_region32_init_rects(r, boxes.data(), (int)boxes.size());
}

// The shapes of a set as pixman regions, built once.
struct PixmanSet {
  std::vector<pixman_region32_t> regions;
  explicit PixmanSet(const ShapeSet& s) : regions(s.pieces.size()) {
    for (size_t k = 0; k < s.pieces.size(); ++k) ToPixman(s.pieces[k].GetData(), &regions[k]);
  }
  ~PixmanSet() {
    for (pixman_region32_t& r : regions) pixman_region32_fini(&r);
  }
};

void BM_Union_Pixman(benchmark::State& st) {
  const ShapeSet& s = Set((int)st.range(0));
  PixmanSet ps(s);
  for (auto _ : st) {
    pixman_region32_t acc;
    pixman_region32_init(&acc);
    for (pixman_region32_t& r : ps.regions) pixman_region32_union(&acc, &acc, &r);
    benchmark::DoNotOptimize(pixman_region32_n_rects(&acc));
    pixman_region32_fini(&acc);
  }
  st.SetLabel(SetName((int)st.range(0)));
}
BENCHMARK(BM_Union_Pixman)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
#endif

#ifdef TQBENCH_HAVE_AGG
void ToAgg(const CRasterArray* a, agg::scanline_storage_bin& st) {
  // AGG wants one scanline per row: the rows of all pieces merged by y.
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

void BM_Union_AGG(benchmark::State& st) {
  const ShapeSet& s = Set((int)st.range(0));
  std::vector<agg::scanline_storage_bin> shapes(s.pieces.size());
  for (size_t k = 0; k < s.pieces.size(); ++k) ToAgg(s.pieces[k].GetData(), shapes[k]);
  agg::scanline_bin sl1, sl2, sl;
  for (auto _ : st) {
    agg::scanline_storage_bin acc[2];
    int cur = 0;
    for (size_t k = 0; k < shapes.size(); ++k) {
      acc[cur ^ 1].prepare();
      agg::sbool_combine_shapes_bin(agg::sbool_or, acc[cur], shapes[k], sl1, sl2, sl, acc[cur ^ 1]);
      cur ^= 1;
    }
    benchmark::DoNotOptimize(acc[cur].min_y());
  }
  st.SetLabel(SetName((int)st.range(0)));
}
BENCHMARK(BM_Union_AGG)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
#endif

// ---- the polygon-set creator ----------------------------------------------------

void BM_PolySet_Ours(benchmark::State& st) {
  const ShapeSet& s = Set((int)st.range(0));
  for (auto _ : st) {
    CRstLines r;
    r.Create(s.pts.data(), s.counts.data(), (int)s.counts.size(), WINDING_FILL, 0);
    benchmark::DoNotOptimize(r.GetData());
  }
  st.SetLabel(SetName((int)st.range(0)));
}
BENCHMARK(BM_PolySet_Ours)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

#ifdef TQBENCH_HAVE_PIXMAN
void BM_PolySet_Pixman(benchmark::State& st) {
  const ShapeSet& s = Set((int)st.range(0));
  std::vector<pixman_box32_t> boxes;
  for (const CRstLines& r : s.pieces) {
    std::vector<pixman_box32_t> b = Boxes(r.GetData());
    if (st.range(0) == 0) {
      RECT box = r.GetBox();
      boxes.push_back(pixman_box32_t{box.left, box.top, box.right + 1, box.bottom + 1});
    } else {
      boxes.insert(boxes.end(), b.begin(), b.end());
    }
  }
  for (auto _ : st) {
    pixman_region32_t r;
    pixman_region32_init_rects(&r, boxes.data(), (int)boxes.size());
    benchmark::DoNotOptimize(pixman_region32_n_rects(&r));
    pixman_region32_fini(&r);
  }
  st.SetLabel(SetName((int)st.range(0)));
}
BENCHMARK(BM_PolySet_Pixman)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
#endif

#ifdef TQBENCH_HAVE_AGG
void AggAddPoly(agg::rasterizer_scanline_aa<>& ras, const POINT* p, int n) {
  ras.move_to_d(p[0].x + 0.5, p[0].y + 0.5);
  for (int i = 1; i < n; ++i) ras.line_to_d(p[i].x + 0.5, p[i].y + 0.5);
  ras.close_polygon();
}

void BM_PolySet_AGG(benchmark::State& st) {
  const ShapeSet& s = Set((int)st.range(0));
  agg::rasterizer_scanline_aa<> ras;
  ras.filling_rule(agg::fill_non_zero);
  agg::scanline_bin sl;
  for (auto _ : st) {
    agg::scanline_storage_bin storage;
    ras.reset();
    const POINT* p = s.pts.data();
    for (int n : s.counts) {
      AggAddPoly(ras, p, n);
      p += n;
    }
    agg::render_scanlines(ras, sl, storage);
    benchmark::DoNotOptimize(storage.min_y());
  }
  st.SetLabel(SetName((int)st.range(0)));
}
BENCHMARK(BM_PolySet_AGG)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
#endif

// ---- two-array Combine ------------------------------------------------------------

void BM_Combine_Ours(benchmark::State& st) {
  const int mode = (int)st.range(0);
  const Inputs& in = In();
  for (auto _ : st) {
    CRasterArray* res = nullptr;
    benchmark::DoNotOptimize(CRstLines::Combine(in.aStar, in.aGon, kModes[mode], &res, nullptr));
    CRstLines::Delete(res);
  }
  st.SetLabel(kModeNames[mode]);
}
BENCHMARK(BM_Combine_Ours)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

#ifdef TQBENCH_HAVE_PIXMAN
void BM_Combine_Pixman(benchmark::State& st) {
  const int mode = (int)st.range(0);
  const Inputs& in = In();
  pixman_region32_t ra, rb, out, t1, t2;
  ToPixman(in.aStar, &ra);
  ToPixman(in.aGon, &rb);
  pixman_region32_init(&out);
  pixman_region32_init(&t1);
  pixman_region32_init(&t2);
  for (auto _ : st) {
    switch (kModes[mode]) {
      case RST_AND: pixman_region32_intersect(&out, &ra, &rb); break;
      case RST_OR: pixman_region32_union(&out, &ra, &rb); break;
      case RST_DIFF: pixman_region32_subtract(&out, &ra, &rb); break;
      default:
        pixman_region32_subtract(&t1, &ra, &rb);
        pixman_region32_subtract(&t2, &rb, &ra);
        pixman_region32_union(&out, &t1, &t2);
        break;
    }
    benchmark::DoNotOptimize(pixman_region32_n_rects(&out));
  }
  for (pixman_region32_t* r : {&ra, &rb, &out, &t1, &t2}) pixman_region32_fini(r);
  st.SetLabel(kModeNames[mode]);
}
BENCHMARK(BM_Combine_Pixman)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);
#endif

#ifdef TQBENCH_HAVE_AGG
void BM_Combine_AGG(benchmark::State& st) {
  const int mode = (int)st.range(0);
  const Inputs& in = In();
  agg::scanline_storage_bin sa, sb;
  ToAgg(in.aStar, sa);
  ToAgg(in.aGon, sb);
  agg::scanline_bin sl1, sl2, sl;
  const agg::sbool_op_e ops[4] = {agg::sbool_and, agg::sbool_or, agg::sbool_a_minus_b, agg::sbool_xor};
  for (auto _ : st) {
    agg::scanline_storage_bin out;
    agg::sbool_combine_shapes_bin(ops[mode], sa, sb, sl1, sl2, sl, out);
    benchmark::DoNotOptimize(out.min_y());
  }
  st.SetLabel(kModeNames[mode]);
}
BENCHMARK(BM_Combine_AGG)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);
#endif

// ---- byte masks -----------------------------------------------------------------------

void BM_Mask_Ours(benchmark::State& st) {
  const Inputs& in = In();
  const RECT rc = {0, 0, kCanvas, kCanvas};
  std::vector<unsigned char> buf((size_t)kCanvas * kCanvas, 0);
  for (auto _ : st) {
    for (RSRLINE* p : *in.aUnion) CRstLines::SetRasterMaskInBuf(buf.data(), rc, p, 255);
    benchmark::DoNotOptimize(buf.data());
  }
}
BENCHMARK(BM_Mask_Ours)->Unit(benchmark::kMicrosecond);

#ifdef TQBENCH_HAVE_PIXMAN
void BM_Mask_Pixman(benchmark::State& st) {
  const Inputs& in = In();
  std::vector<unsigned char> buf((size_t)kCanvas * kCanvas, 0);
  pixman_region32_t r;
  ToPixman(in.aUnion, &r);
  for (auto _ : st) {
    int n = 0;
    const pixman_box32_t* b = pixman_region32_rectangles(&r, &n);
    for (int i = 0; i < n; ++i)
      for (int y = b[i].y1; y < b[i].y2; ++y)
        std::memset(buf.data() + (size_t)y * kCanvas + b[i].x1, 255, (size_t)(b[i].x2 - b[i].x1));
    benchmark::DoNotOptimize(buf.data());
  }
  pixman_region32_fini(&r);
}
BENCHMARK(BM_Mask_Pixman)->Unit(benchmark::kMicrosecond);
#endif

// ---- scan conversion --------------------------------------------------------------------

void BM_Scan_Ours(benchmark::State& st, int which) {
  const Inputs& in = In();
  for (auto _ : st) {
    if (which == 2) {
      for (int k = 0; k < 1000; ++k) {
        RSRLINE* p = CRstLines::CreateRaster(in.small.data() + 12 * k, 12, ALTERNATE_FILL);
        benchmark::DoNotOptimize(p);
        CRstLines::Delete(p);
      }
    } else {
      const std::vector<POINT>& pts = which == 0 ? in.star : in.gon;
      RSRLINE* p = CRstLines::CreateRaster(pts.data(), (int)pts.size(), ALTERNATE_FILL);
      benchmark::DoNotOptimize(p);
      CRstLines::Delete(p);
    }
  }
}
BENCHMARK_CAPTURE(BM_Scan_Ours, star200, 0)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Scan_Ours, gon64, 1)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Scan_Ours, small1000, 2)->Unit(benchmark::kMicrosecond);

#ifdef TQBENCH_HAVE_AGG
void BM_Scan_AGG(benchmark::State& st, int which) {
  const Inputs& in = In();
  agg::rasterizer_scanline_aa<> ras;
  ras.filling_rule(agg::fill_even_odd);
  agg::scanline_bin sl;
  for (auto _ : st) {
    if (which == 2) {
      for (int k = 0; k < 1000; ++k) {
        agg::scanline_storage_bin storage;
        ras.reset();
        AggAddPoly(ras, in.small.data() + 12 * k, 12);
        agg::render_scanlines(ras, sl, storage);
        benchmark::DoNotOptimize(storage.min_y());
      }
    } else {
      agg::scanline_storage_bin storage;
      const std::vector<POINT>& pts = which == 0 ? in.star : in.gon;
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

// ---- mirrors ------------------------------------------------------------------------------

// A mirror pair (left-right, then top-bottom) restores the star each round.
// No peer offers region mirroring; the figure stands alone.
void BM_Mirror_Ours(benchmark::State& st) {
  CRstLines r;
  r.Copy(In().aStar);
  for (auto _ : st) {
    r.HorMirror();
    r.VerMirror();
    benchmark::DoNotOptimize(r.GetData());
  }
}
BENCHMARK(BM_Mirror_Ours)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
