// bench_transform.cpp - mapping point arrays through an affine transform,
// as the rasterizers do for every outline. The library's array form is
// measured beside plain references in the same run:
//  - BM_CalcPointEach: the single-point library call in a loop;
//  - BM_CalcPointsAnx: a plain loop converting through AnxFloatToInt.
#include <tqbase/tqbase.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

const int kCount = 1 << 20;

ATransform Chain() {
  ATransform t;
  t.Translation(-512, -384);
  t.Rotate(0.3, 0, 0);
  t.Scaling(1.7, 1.3, 0, 0);
  t.Translation(4000, 3000);
  return t;
}

const std::vector<POINT>& Points() {
  static std::vector<POINT> pts = [] {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> d(-50000, 50000);
    std::vector<POINT> v(kCount);
    for (POINT& p : v) p = POINT{d(rng), d(rng)};
    return v;
  }();
  return pts;
}

void BM_CalcPoints(benchmark::State& state) {
  const ATransform t = Chain();
  const std::vector<POINT>& src = Points();
  std::vector<POINT> pts(src.size());
  for (auto _ : state) {
    std::copy(src.begin(), src.end(), pts.begin());
    t.CalcPoints(pts.data(), kCount, 0.5);
    benchmark::DoNotOptimize(pts.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

void BM_CalcPointEach(benchmark::State& state) {
  const ATransform t = Chain();
  const std::vector<POINT>& src = Points();
  std::vector<POINT> pts(src.size());
  for (auto _ : state) {
    std::copy(src.begin(), src.end(), pts.begin());
    for (POINT& p : pts) t.CalcPoint(p, 0.5);
    benchmark::DoNotOptimize(pts.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

void BM_CalcPointsAnx(benchmark::State& state) {
  const TransMatrix m = Chain().GetMatrix();
  const std::vector<POINT>& src = Points();
  std::vector<POINT> pts(src.size());
  for (auto _ : state) {
    std::copy(src.begin(), src.end(), pts.begin());
    for (POINT& p : pts) {
      double x = p.x, y = p.y;
      p.x = AnxFloatToInt(x * m.m11 + y * m.m21 + m.dx, TRUE);
      p.y = AnxFloatToInt(x * m.m12 + y * m.m22 + m.dy, TRUE);
    }
    benchmark::DoNotOptimize(pts.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

void BM_InverseCalcPoints(benchmark::State& state) {
  const ATransform t = Chain();
  const std::vector<POINT>& src = Points();
  std::vector<POINT> pts(src.size());
  for (auto _ : state) {
    std::copy(src.begin(), src.end(), pts.begin());
    t.InverseCalcPoints(pts.data(), kCount, 0.5);
    benchmark::DoNotOptimize(pts.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

BENCHMARK(BM_CalcPoints)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CalcPointEach)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CalcPointsAnx)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InverseCalcPoints)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
