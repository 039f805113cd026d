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

#include "bench_regions.h"
#include "tqbase/tqbase.h"

#ifdef TQBENCH_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace tqbench;

void BM_Trace_Ours(benchmark::State& st) {
  const CRstLines& r = Region((int)st.range(0));
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
  st.SetLabel(kRegionNames[st.range(0)]);
}
BENCHMARK(BM_Trace_Ours)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

#ifdef TQBENCH_HAVE_OPENCV
void BM_Trace_OpenCV(benchmark::State& st) {
  const CRstLines& r = Region((int)st.range(0));
  std::vector<unsigned char> bytes = Mask(r);
  cv::Mat mask(kCanvas, kCanvas, CV_8U, bytes.data());
  size_t loops = 0;
  for (auto _ : st) {
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(mask, contours, hierarchy, cv::RETR_CCOMP, cv::CHAIN_APPROX_SIMPLE);
    loops = contours.size();
    benchmark::DoNotOptimize(contours.data());
  }
  st.counters["loops"] = (double)loops;
  st.SetLabel(kRegionNames[st.range(0)]);
}
BENCHMARK(BM_Trace_OpenCV)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace

BENCHMARK_MAIN();
