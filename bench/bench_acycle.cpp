// bench_acycle.cpp - folding points and cutting runs into repeat tiles, the
// work the region engine does for every raster run. Each library call is
// measured beside plain references in the same run:
//  - BM_FoldStepping: fold by stepping whole tiles in loops;
//  - BM_FoldDoubleFloor: the fold written with double division and floor;
//  - BM_FoldDivide64: the integer fold with 64-bit division only;
//  - BM_CutLineDoubleFloor: the run walk over the double-division fold.
#include <tqbase/tqbase.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace {

const int kCount = 1 << 20;  // about a million inputs per iteration

CYCLEINFO Cycle(int way) {
  CYCLEINFO ci;
  ci.width = 1000;
  ci.height = 700;
  ci.param = 350;
  ci.way = way;
  ci.onOff = 1;
  return ci;
}

// Points within +-20 tiles, a quarter of them already inside the tile.
const std::vector<POINT>& Points() {
  static std::vector<POINT> pts = [] {
    std::mt19937 rng(42);
    std::uniform_int_distribution<int> far(-20000, 20000), in(0, 699);
    std::vector<POINT> v(kCount);
    for (int i = 0; i < kCount; ++i) {
      if (i % 4 == 0) v[i] = POINT{in(rng), in(rng)};
      else v[i] = POINT{far(rng), far(rng)};
    }
    return v;
  }();
  return pts;
}

// Raster runs: lengths mostly below a tile, some spanning several.
const std::vector<APTLENGTH>& Runs() {
  static std::vector<APTLENGTH> runs = [] {
    std::mt19937 rng(43);
    std::uniform_int_distribution<int> pos(-20000, 20000), len(1, 800), longLen(1, 5000);
    std::vector<APTLENGTH> v(kCount);
    for (int i = 0; i < kCount; ++i) v[i] = APTLENGTH{pos(rng), pos(rng), i % 8 ? len(rng) : longLen(rng)};
    return v;
  }();
  return runs;
}

// ---- references ----

void FoldStepping(POINT& p, const CYCLEINFO& ci) {
  if (ci.way == 1) {
    while (p.x < 0) p.x += ci.width, p.y += ci.param;
    while (p.x >= ci.width) p.x -= ci.width, p.y -= ci.param;
    while (p.y < 0) p.y += ci.height;
    while (p.y >= ci.height) p.y -= ci.height;
  } else {
    while (p.y < 0) p.y += ci.height, p.x += ci.param;
    while (p.y >= ci.height) p.y -= ci.height, p.x -= ci.param;
    while (p.x < 0) p.x += ci.width;
    while (p.x >= ci.width) p.x -= ci.width;
  }
}

void FoldDoubleFloor(POINT& p, const CYCLEINFO& ci) {
  if (ci.way == 1) {
    if (p.x < 0 || p.x >= ci.width) {
      int k = (int)std::floor((double)p.x / ci.width);
      p.x -= k * ci.width;
      p.y -= k * ci.param;
    }
    if (p.y < 0 || p.y >= ci.height) p.y -= (int)std::floor((double)p.y / ci.height) * ci.height;
  } else {
    if (p.y < 0 || p.y >= ci.height) {
      int k = (int)std::floor((double)p.y / ci.height);
      p.y -= k * ci.height;
      p.x -= k * ci.param;
    }
    if (p.x < 0 || p.x >= ci.width) p.x -= (int)std::floor((double)p.x / ci.width) * ci.width;
  }
}

inline int64_t FloorDiv64(int64_t a, int64_t b) {
  int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

void FoldDivide64(POINT& p, const CYCLEINFO& ci) {
  int64_t x = p.x, y = p.y, w = ci.width, h = ci.height, d = ci.param;
  if (ci.way == 1) {
    if (x < 0 || x >= w) {
      int64_t k = FloorDiv64(x, w);
      x -= k * w;
      y -= k * d;
    }
    if (y < 0 || y >= h) y -= FloorDiv64(y, h) * h;
  } else {
    if (y < 0 || y >= h) {
      int64_t k = FloorDiv64(y, h);
      y -= k * h;
      x -= k * d;
    }
    if (x < 0 || x >= w) x -= FloorDiv64(x, w) * w;
  }
  p.x = (LONG)x;
  p.y = (LONG)y;
}

int CutLineDoubleFloor(const APTLENGTH& run, APTLENGTH* pieces, int* offsets, const CYCLEINFO& ci) {
  POINT p = {run.x, run.y};
  FoldDoubleFloor(p, ci);
  int n = run.length / ci.width + (run.length % ci.width < 2 ? 1 : 2);
  RECT tile = {0, 0, ci.width, ci.height};
  int count = 0;
  for (int i = 0; i < n; ++i) {
    APTLENGTH cur = {p.x, p.y, run.length};
    if (ACycle::InterLineRect(&pieces[count], &cur, &tile)) {
      offsets[count] = pieces[count].x - p.x;
      ++count;
    }
    p.x -= ci.width;
    if (ci.way == 1) {
      p.y -= ci.param;
      if (p.y < 0) p.y += ci.height;
      else if (p.y >= ci.height) p.y -= ci.height;
    }
  }
  return count;
}

// ---- folding ----

template <void (*Fold)(POINT&, const CYCLEINFO&)>
void RunFold(benchmark::State& state) {
  const CYCLEINFO ci = Cycle((int)state.range(0));
  const std::vector<POINT>& src = Points();
  std::vector<POINT> dst(src.size());
  for (auto _ : state) {
    for (size_t i = 0; i < src.size(); ++i) {
      POINT p = src[i];
      Fold(p, ci);
      dst[i] = p;
    }
    benchmark::DoNotOptimize(dst.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

void LibraryFold(POINT& p, const CYCLEINFO& ci) { ACycle::GCalLocalPoint(p, &ci); }

void BM_FoldInteger(benchmark::State& state) { RunFold<LibraryFold>(state); }
void BM_FoldStepping(benchmark::State& state) { RunFold<FoldStepping>(state); }
void BM_FoldDoubleFloor(benchmark::State& state) { RunFold<FoldDoubleFloor>(state); }
void BM_FoldDivide64(benchmark::State& state) { RunFold<FoldDivide64>(state); }

void BM_FoldPointsArray(benchmark::State& state) {
  const CYCLEINFO ci = Cycle((int)state.range(0));
  const std::vector<POINT>& src = Points();
  std::vector<POINT> pts(src.size());
  for (auto _ : state) {
    // The array form folds in place: copy in, then fold, both timed.
    std::copy(src.begin(), src.end(), pts.begin());
    ACycle::GCalLocalPoints(pts.data(), kCount, &ci);
    benchmark::DoNotOptimize(pts.data());
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

// ---- cutting runs ----

void BM_CalCycleLine(benchmark::State& state) {
  const CYCLEINFO ci = Cycle((int)state.range(0));
  const std::vector<APTLENGTH>& runs = Runs();
  APTLENGTH pieces[16];
  int offsets[16];
  for (auto _ : state) {
    long long total = 0;
    for (const APTLENGTH& r : runs) total += ACycle::GCalCycleLine(r, pieces, offsets, &ci);
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

void BM_CutLineDoubleFloor(benchmark::State& state) {
  const CYCLEINFO ci = Cycle((int)state.range(0));
  const std::vector<APTLENGTH>& runs = Runs();
  APTLENGTH pieces[16];
  int offsets[16];
  for (auto _ : state) {
    long long total = 0;
    for (const APTLENGTH& r : runs) total += CutLineDoubleFloor(r, pieces, offsets, ci);
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}

BENCHMARK(BM_FoldInteger)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FoldDivide64)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FoldDoubleFloor)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FoldStepping)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FoldPointsArray)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CalCycleLine)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CutLineDoubleFloor)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
