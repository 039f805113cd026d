// bench_ellipse.cpp - CEllipse's rasterizers: circles and ellipses of 10 to
// 4000 pixels, upright and turned, into a run list and into a region
// piece; beside them, when AGG is found, the same ellipse through
// agg::ellipse + rasterizer_scanline_aa + scanline_bin with its spans
// collected into a run list, the work a caller of AGG does for a mask.
#include <tqbase/tqbase.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#ifdef TQBENCH_HAVE_AGG
#include <agg_ellipse.h>
#include <agg_rasterizer_scanline_aa.h>
#include <agg_scanline_bin.h>
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
