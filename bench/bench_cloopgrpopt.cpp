// bench_cloopgrpopt.cpp - tracing regions into closed loops, as a layout
// module does for every region it builds, against OpenCV's
// cv::findContours(RETR_CCOMP, CHAIN_APPROX_SIMPLE) on the byte mask of the
// same pixels, in the same run, on a 4000 x 4000 canvas:
//  - Trace/0: the union of a 200-point star (radii 1800/1200 around
//    (1900, 1950)) and a 64-gon (radius 1500 around (2300, 2200));
//  - Trace/1: the exclusive or of the same two;
//  - Trace/2: the union of 1,000 random rectangles (sides 8-128) added one
//    at a time.
// Ours traces every piece with CLoopGrpOpt::CreateAnloopGrp, its blocks
// allocated and freed in every round as the interface hands them out;
// OpenCV's outputs are likewise made anew in every round. Both record the
// boundary as integer points; ours rebuilds the region exactly, holes
// included (RETR_CCOMP's two levels play that part for OpenCV).
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "tqbase/tqbase.h"

#ifdef TQBENCH_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

const int kCanvas = 4000;

std::vector<POINT> Star(int points, double cx, double cy, double r1, double r2) {
  std::vector<POINT> p;
  for (int i = 0; i < points; ++i) {
    const double a = 2 * M_PI * i / points, r = (i & 1) ? r2 : r1;
    p.push_back(POINT{(LONG)std::lround(cx + r * std::cos(a)), (LONG)std::lround(cy + r * std::sin(a))});
  }
  return p;
}

struct Regions {
  CRstLines shapes[3];
  Regions() {
    const std::vector<POINT> star = Star(200, 1900, 1950, 1800, 1200);
    const std::vector<POINT> gon = Star(64, 2300, 2200, 1500, 1500);
    CRstLines a, b;
    a.Create(star.data(), (int)star.size(), ALTERNATE_FILL);
    b.Create(gon.data(), (int)gon.size(), ALTERNATE_FILL);
    shapes[0].Combine(&a, &b, RST_OR);
    shapes[1].Combine(&a, &b, RST_XOR);
    std::mt19937 rng(8001);
    std::uniform_int_distribution<int> side(8, 128);
    for (int k = 0; k < 1000; ++k) {
      const int w = side(rng), h = side(rng);
      const int x = (int)(rng() % (unsigned)(kCanvas - w)), y = (int)(rng() % (unsigned)(kCanvas - h));
      CRstLines r;
      r.Create(RECT{x, y, x + w, y + h});
      shapes[2].Add(r.GetData(), 1, nullptr);
    }
  }
};

const Regions& In() {
  static Regions r;
  return r;
}

const char* kNames[3] = {"star or gon", "star xor gon", "1000 rectangles"};

void BM_Trace_Ours(benchmark::State& st) {
  const CRstLines& r = In().shapes[st.range(0)];
  long long points = 0;
  for (auto _ : st) {
    ANLOOPGRP* g = CLoopGrpOpt::CreateAnloopGrp(r.GetData());
    benchmark::DoNotOptimize(g);
    CLoopGrpOpt::DeleteAnloopGrp(g);
  }
  CArray<POINT, POINT> pts;
  CArray<int, int> sizes;
  ANLOOPGRP* g = CLoopGrpOpt::CreateAnloopGrp(r.GetData());
  CLoopGrpOpt::GetPolyPolygon(g, pts, sizes);
  CLoopGrpOpt::DeleteAnloopGrp(g);
  points = pts.GetSize();
  st.counters["loops"] = sizes.GetSize();
  st.counters["points"] = (double)points;
  st.SetLabel(kNames[st.range(0)]);
}
BENCHMARK(BM_Trace_Ours)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

#ifdef TQBENCH_HAVE_OPENCV
void BM_Trace_OpenCV(benchmark::State& st) {
  const CRstLines& r = In().shapes[st.range(0)];
  cv::Mat mask = cv::Mat::zeros(kCanvas, kCanvas, CV_8U);
  for (RSRLINE* p : *r.GetData()) CRstLines::SetRasterMaskInBuf(mask.data, RECT{0, 0, kCanvas, kCanvas}, p, 255);
  size_t loops = 0;
  for (auto _ : st) {
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(mask, contours, hierarchy, cv::RETR_CCOMP, cv::CHAIN_APPROX_SIMPLE);
    loops = contours.size();
    benchmark::DoNotOptimize(contours.data());
  }
  st.counters["loops"] = (double)loops;
  st.SetLabel(kNames[st.range(0)]);
}
BENCHMARK(BM_Trace_OpenCV)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace

BENCHMARK_MAIN();
