// bench_ellipse.cpp - CEllipse's rasterizers: circles and ellipses of 10 to
// 4000 pixels, upright and turned, into a run list and into a region
// piece; ellipses and rectangles under a layout transform, turned
// rectangles and one-pixel lines of 160 to 4000 pixels. Beside them, when
// AGG is found, the same outlines through agg::ellipse or a path,
// conv_transform, rasterizer_scanline_aa and scanline_bin with the spans
// collected into a run list - the work a caller of AGG does for a mask -
// and for lines also AGG's own Bresenham interpolator stepped pixel by
// pixel into runs. The layout workloads are named BM_<workload>_Ours and
// BM_<workload>_<peer>, as scripts/bench-ratios.py pairs them.
#include <tqbase/tqbase.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#ifdef TQBENCH_HAVE_AGG
// AGG's headers warn under -O2 about locals its rasterizer fills before use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include <agg_conv_stroke.h>
#include <agg_conv_transform.h>
#include <agg_dda_line.h>
#include <agg_ellipse.h>
#include <agg_path_storage.h>
#include <agg_rasterizer_scanline_aa.h>
#include <agg_scanline_bin.h>
#include <agg_trans_affine.h>
#pragma GCC diagnostic pop
#endif

namespace {

void Sizes(benchmark::internal::Benchmark* b) {
  for (int d : {10, 40, 160, 640, 1000, 4000}) b->Arg(d);
}

// Rows per second: every shape here has one run per row.
void Count(benchmark::State& st, int rows) {
  st.SetItemsProcessed((int64_t)st.iterations() * rows);
}

void BM_CEllipse_Circle(benchmark::State& st) {
  const int d = (int)st.range(0);
  CArray<POINT, POINT> runs;
  RECT box;
  for (auto _ : st) {
    CEllipse::EllipseRasterLine(CRect(0, 0, d, d), 0.0, runs, &box);
    benchmark::DoNotOptimize(runs.GetData());
  }
  Count(st, d);
}
BENCHMARK(BM_CEllipse_Circle)->Apply(Sizes);

void BM_CEllipse_Ellipse(benchmark::State& st) {
  const int d = (int)st.range(0);
  CArray<POINT, POINT> runs;
  RECT box;
  for (auto _ : st) {
    CEllipse::EllipseRasterLine(CRect(0, 0, d, d / 2 + 1), 0.0, runs, &box);
    benchmark::DoNotOptimize(runs.GetData());
  }
  Count(st, d / 2 + 1);
}
BENCHMARK(BM_CEllipse_Ellipse)->Apply(Sizes);

void BM_CEllipse_EllipsePiece(benchmark::State& st) {
  const int d = (int)st.range(0);
  RSRLINE piece;
  for (auto _ : st) {
    CEllipse::EllipseRasterLine(RECT{0, 0, d, d / 2 + 1}, 0.0, piece);
    benchmark::DoNotOptimize(piece.arRun.GetData());
  }
  Count(st, d / 2 + 1);
}
BENCHMARK(BM_CEllipse_EllipsePiece)->Apply(Sizes);

// Sizes of the layout workloads: the shapes are about d pixels across.
void LayoutSizes(benchmark::internal::Benchmark* b) {
  for (int d : {160, 1000, 4000}) b->Arg(d);
}

// A layout transform for a d-pixel shape: turned, sheared a little, scaled
// by a fraction and moved by a fraction of a pixel.
ATransform Layout(int d) {
  ATransform t;
  t.Rotate(0.5, d / 2.0, d / 4.0);
  t.Shear(0.15, 0.1, d / 2.0, d / 4.0);
  t.Scaling(0.95, 1.05, 0, 0);
  t.Translation(10.25, 20.75);
  return t;
}

void BM_EllipseTransformed_Ours(benchmark::State& st) {
  const int d = (int)st.range(0);
  const ATransform t = Layout(d);
  CArray<POINT, POINT> runs;
  RECT box;
  int rows = 0;
  for (auto _ : st) {
    CEllipse::EllipseRasterLine(RECTD(0, 0, d, d / 2 + 1), t, runs, &box);
    rows = runs.GetSize();
    benchmark::DoNotOptimize(runs.GetData());
  }
  Count(st, rows);
}
BENCHMARK(BM_EllipseTransformed_Ours)->Apply(LayoutSizes);

void BM_EllipseTransformedPiece_Ours(benchmark::State& st) {
  const int d = (int)st.range(0);
  const ATransform t = Layout(d);
  RSRLINE piece;
  for (auto _ : st) {
    CEllipse::EllipseRasterLine(RECTD(0, 0, d, d / 2 + 1), t, piece);
    benchmark::DoNotOptimize(piece.arRun.GetData());
  }
  Count(st, piece.arRun.GetSize());
}
BENCHMARK(BM_EllipseTransformedPiece_Ours)->Apply(LayoutSizes);

void BM_RectTurned_Ours(benchmark::State& st) {
  const int d = (int)st.range(0);
  CArray<POINT, POINT> runs;
  RECT box;
  for (auto _ : st) {
    CEllipse::RectRasterLine(RECT{0, 0, d, d / 2}, 0.5, runs, &box);
    benchmark::DoNotOptimize(runs.GetData());
  }
  Count(st, runs.GetSize());
}
BENCHMARK(BM_RectTurned_Ours)->Apply(LayoutSizes);

void BM_RectTransformed_Ours(benchmark::State& st) {
  const int d = (int)st.range(0);
  const ATransform t = Layout(d);
  CArray<POINT, POINT> runs;
  RECT box;
  for (auto _ : st) {
    CEllipse::RectRasterLine(RECT{0, 0, d, d / 2}, t, runs, &box);
    benchmark::DoNotOptimize(runs.GetData());
  }
  Count(st, runs.GetSize());
}
BENCHMARK(BM_RectTransformed_Ours)->Apply(LayoutSizes);

// A line d pixels long, flat (x-major) or steep.
POINT LineEnd(int d, bool steep) { return steep ? POINT{d * 3 / 10, d - 1} : POINT{d - 1, d * 3 / 10}; }

void BM_Line_Ours(benchmark::State& st) {
  const int d = (int)st.range(0);
  const POINT a{0, 0}, b = LineEnd(d, st.range(1) != 0);
  CArray<POINT, POINT> runs;
  RECT box;
  for (auto _ : st) {
    CEllipse::MidPointLine(a, b, runs, &box);
    benchmark::DoNotOptimize(runs.GetData());
  }
  Count(st, runs.GetSize());
}
BENCHMARK(BM_Line_Ours)->ArgsProduct({{160, 1000, 4000}, {0, 1}});

void BM_CEllipse_EllipseTurned(benchmark::State& st) {
  const int d = (int)st.range(0);
  CArray<POINT, POINT> runs;
  RECT box;
  int rows = 0;
  for (auto _ : st) {
    CEllipse::EllipseRasterLine(CRect(0, 0, d, d / 2 + 1), 0.5, runs, &box);
    rows = runs.GetSize();
    benchmark::DoNotOptimize(runs.GetData());
  }
  Count(st, rows);
}
BENCHMARK(BM_CEllipse_EllipseTurned)->Apply(Sizes);

#ifdef TQBENCH_HAVE_AGG
// The ellipse inscribed in the same rectangle, turned by angle.
void AggEllipse(benchmark::State& st, int d, int h, double angle) {
  agg::rasterizer_scanline_aa<> ras;
  agg::scanline_bin sl;
  std::vector<POINT> runs;
  int rows = 0;
  for (auto _ : st) {
    ras.reset();
    agg::ellipse e(d / 2.0, h / 2.0, d / 2.0, h / 2.0);
    if (angle == 0.0) {
      ras.add_path(e);
    } else {
      // turn the outline's vertices about the centre, as a transform would
      double x, y;
      unsigned cmd;
      const double c = std::cos(angle), s = std::sin(angle), cx = d / 2.0, cy = h / 2.0;
      e.rewind(0);
      bool first = true;
      while (!agg::is_stop(cmd = e.vertex(&x, &y))) {
        if (!agg::is_vertex(cmd)) continue;
        double u = x - cx, v = y - cy;
        double tx = cx + u * c - v * s, ty = cy + u * s + v * c;
        if (first) ras.move_to_d(tx, ty); else ras.line_to_d(tx, ty);
        first = false;
      }
    }
    runs.clear();
    if (ras.rewind_scanlines()) {
      sl.reset(ras.min_x(), ras.max_x());
      while (ras.sweep_scanline(sl)) {
        for (auto span = sl.begin(); span != sl.begin() + sl.num_spans(); ++span)
          runs.push_back(POINT{span->x, span->x + span->len - 1});
      }
    }
    rows = (int)runs.size();
    benchmark::DoNotOptimize(runs.data());
  }
  Count(st, rows);
}

// The spans of the rasterizer's outline, one run each.
void AggSweep(agg::rasterizer_scanline_aa<>& ras, agg::scanline_bin& sl, std::vector<POINT>& runs) {
  runs.clear();
  if (!ras.rewind_scanlines()) return;
  sl.reset(ras.min_x(), ras.max_x());
  while (ras.sweep_scanline(sl))
    for (auto span = sl.begin(); span != sl.begin() + sl.num_spans(); ++span)
      runs.push_back(POINT{span->x, span->x + span->len - 1});
}

agg::trans_affine AggAffine(const ATransform& t) {
  const TransMatrix& m = t.GetMatrix();
  return agg::trans_affine(m.m11, m.m12, m.m21, m.m22, m.dx, m.dy);
}

void BM_EllipseTransformed_AGG(benchmark::State& st) {
  const int d = (int)st.range(0), h = d / 2 + 1;
  agg::trans_affine mtx = AggAffine(Layout(d));
  agg::rasterizer_scanline_aa<> ras;
  agg::scanline_bin sl;
  std::vector<POINT> runs;
  for (auto _ : st) {
    ras.reset();
    agg::ellipse e(d / 2.0, h / 2.0, d / 2.0, h / 2.0);
    e.approximation_scale(1.05);  // the transform's scale, as AGG's examples set it
    agg::conv_transform<agg::ellipse> tr(e, mtx);
    ras.add_path(tr);
    AggSweep(ras, sl, runs);
    benchmark::DoNotOptimize(runs.data());
  }
  Count(st, (int)runs.size());
}
BENCHMARK(BM_EllipseTransformed_AGG)->Apply(LayoutSizes);

// The rectangle (0, 0, d, d / 2) as a path through mtx.
void AggRect(benchmark::State& st, int d, agg::trans_affine mtx) {
  agg::rasterizer_scanline_aa<> ras;
  agg::scanline_bin sl;
  std::vector<POINT> runs;
  for (auto _ : st) {
    ras.reset();
    agg::path_storage path;
    path.move_to(0, 0);
    path.line_to(d, 0);
    path.line_to(d, d / 2);
    path.line_to(0, d / 2);
    path.close_polygon();
    agg::conv_transform<agg::path_storage> tr(path, mtx);
    ras.add_path(tr);
    AggSweep(ras, sl, runs);
    benchmark::DoNotOptimize(runs.data());
  }
  Count(st, (int)runs.size());
}

void BM_RectTurned_AGG(benchmark::State& st) {
  const int d = (int)st.range(0);
  AggRect(st, d, agg::trans_affine_translation(-d / 2.0, -d / 4.0) * agg::trans_affine_rotation(0.5) *
                     agg::trans_affine_translation(d / 2.0, d / 4.0));
}
BENCHMARK(BM_RectTurned_AGG)->Apply(LayoutSizes);

void BM_RectTransformed_AGG(benchmark::State& st) {
  const int d = (int)st.range(0);
  AggRect(st, d, AggAffine(Layout(d)));
}
BENCHMARK(BM_RectTransformed_AGG)->Apply(LayoutSizes);

// A one-pixel-wide stroke through the two pixel centres.
void BM_Line_AGG(benchmark::State& st) {
  const int d = (int)st.range(0);
  const POINT b = LineEnd(d, st.range(1) != 0);
  agg::rasterizer_scanline_aa<> ras;
  agg::scanline_bin sl;
  std::vector<POINT> runs;
  for (auto _ : st) {
    ras.reset();
    agg::path_storage path;
    path.move_to(0.5, 0.5);
    path.line_to(b.x + 0.5, b.y + 0.5);
    agg::conv_stroke<agg::path_storage> stroke(path);
    stroke.width(1.0);
    ras.add_path(stroke);
    AggSweep(ras, sl, runs);
    benchmark::DoNotOptimize(runs.data());
  }
  Count(st, (int)runs.size());
}
BENCHMARK(BM_Line_AGG)->ArgsProduct({{160, 1000, 4000}, {0, 1}});

// AGG's Bresenham interpolator, one step per pixel, its pixels gathered
// into one run per row.
void BM_Line_AGGBresenham(benchmark::State& st) {
  const int d = (int)st.range(0);
  const POINT b = LineEnd(d, st.range(1) != 0);
  typedef agg::line_bresenham_interpolator li;
  std::vector<POINT> runs;
  for (auto _ : st) {
    runs.clear();
    li line(0, 0, b.x << li::subpixel_shift, b.y << li::subpixel_shift);
    unsigned n = line.len();
    if (line.is_ver()) {
      do {
        runs.push_back(POINT{line.x2(), line.x2()});
        line.vstep();
      } while (n--);
    } else {
      int y = line.y2(), x0 = line.x1();
      do {
        if (line.y2() != y) {
          runs.push_back(POINT{x0, line.x1() - 1});
          x0 = line.x1();
          y = line.y2();
        }
        line.hstep();
      } while (n--);
      runs.push_back(POINT{x0, line.x1() - 1});
    }
    benchmark::DoNotOptimize(runs.data());
  }
  Count(st, (int)runs.size());
}
BENCHMARK(BM_Line_AGGBresenham)->ArgsProduct({{160, 1000, 4000}, {0, 1}});

void BM_AGG_Circle(benchmark::State& st) {
  const int d = (int)st.range(0);
  AggEllipse(st, d, d, 0.0);
}
BENCHMARK(BM_AGG_Circle)->Apply(Sizes);

void BM_AGG_Ellipse(benchmark::State& st) {
  const int d = (int)st.range(0);
  AggEllipse(st, d, d / 2 + 1, 0.0);
}
BENCHMARK(BM_AGG_Ellipse)->Apply(Sizes);

void BM_AGG_EllipseTurned(benchmark::State& st) {
  const int d = (int)st.range(0);
  AggEllipse(st, d, d / 2 + 1, 0.5);
}
BENCHMARK(BM_AGG_EllipseTurned)->Apply(Sizes);
#endif

}  // namespace

BENCHMARK_MAIN();
