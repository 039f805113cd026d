// bench_morphology.cpp - growing and shrinking a region by a disc (bleed
// and choke), splitting it into connected pieces, and resampling it to
// the printer's resolution, each beside OpenCV on the byte mask of the
// same pixels in the same run (one thread):
//  - Grow/Shrink: the union of the star and the 64-gon (bench_regions.h)
//    by 1, 5 and 50 pixels; OpenCV's dilate/erode with the same exact disc
//    as a custom kernel, BORDER_CONSTANT (outside unset), on a canvas that
//    holds the grown region.
//  - DivideUp: the 1,000 rectangles and the star xor gon; OpenCV's
//    connectedComponents with 4-connectivity.
//  - Resample: the star or gon from 4000 x 4000 to 3000 x 3000 and to
//    6000 x 6000; OpenCV's resize with INTER_NEAREST.
// Ours hands out a new raster array every round, as the interface does;
// OpenCV's output matrices are reused across rounds.
#include <benchmark/benchmark.h>

#include <vector>

#include "bench_regions.h"
#include "tqbase/tqbase.h"

#ifdef TQBENCH_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace tqbench;

// Margin of the canvas around the shapes, so that growth by 50 fits.
const int kPad = 64;

void Morph(benchmark::State& st, bool grow) {
  const CRstLines& r = Region(kStarOrGon);
  const int d = (int)st.range(0);
  long long runs = 0;
  for (auto _ : st) {
    CRasterArray* out = grow ? CRstLines::ExpandRaster(r.GetData(), d) : CRstLines::ContractRaster(r.GetData(), d);
    benchmark::DoNotOptimize(out);
    runs = 0;
    for (const RSRLINE* p : *out) runs += p->arRun.GetSize();
    CRstLines::Delete(out);
  }
  st.counters["runs"] = (double)runs;
}
void BM_Grow_Ours(benchmark::State& st) { Morph(st, true); }
void BM_Shrink_Ours(benchmark::State& st) { Morph(st, false); }
BENCHMARK(BM_Grow_Ours)->Arg(1)->Arg(5)->Arg(50)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Shrink_Ours)->Arg(1)->Arg(5)->Arg(50)->Unit(benchmark::kMillisecond);

void BM_DivideUp_Ours(benchmark::State& st) {
  const CRstLines& r = Region((int)st.range(0));
  int pieces = 0;
  for (auto _ : st) {
    CRasterArray* out = CRstLines::DivideUp(r.GetData());
    pieces = out->GetSize();
    CRstLines::Delete(out);
  }
  st.counters["pieces"] = pieces;
  st.SetLabel(kRegionNames[st.range(0)]);
}
BENCHMARK(BM_DivideUp_Ours)->Arg(kStarXorGon)->Arg(kRectangles)->Unit(benchmark::kMillisecond);

void BM_Resample_Ours(benchmark::State& st) {
  const CRstLines& r = Region(kStarOrGon);
  const SIZE from = {kCanvas, kCanvas}, to = {(LONG)st.range(0), (LONG)st.range(0)};
  for (auto _ : st) {
    CRstLines out;
    CRstLines::Resample(&out, &r, &to, nullptr, nullptr, &from);
    benchmark::DoNotOptimize(out.GetData());
  }
}
BENCHMARK(BM_Resample_Ours)->Arg(3000)->Arg(6000)->Unit(benchmark::kMillisecond);

#ifdef TQBENCH_HAVE_OPENCV
// The exact disc of radius d as a structuring element.
cv::Mat Disc(int d) {
  cv::Mat k = cv::Mat::zeros(2 * d + 1, 2 * d + 1, CV_8U);
  for (int y = -d; y <= d; ++y)
    for (int x = -d; x <= d; ++x)
      if (x * x + y * y <= d * d) k.at<unsigned char>(y + d, x + d) = 1;
  return k;
}

void MorphCv(benchmark::State& st, bool grow) {
  cv::setNumThreads(1);
  const CRstLines& r = Region(kStarOrGon);
  const int d = (int)st.range(0);
  // The region moved into a canvas with room for the growth on every side.
  CRstLines moved(r);
  moved.Offset(kPad, kPad);
  std::vector<unsigned char> bytes = Mask(moved, kCanvas + 2 * kPad, kCanvas + 2 * kPad);
  const cv::Mat mask(kCanvas + 2 * kPad, kCanvas + 2 * kPad, CV_8U, bytes.data()), kernel = Disc(d);
  cv::Mat out;
  for (auto _ : st) {
    if (grow)
      cv::dilate(mask, out, kernel, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar(0));
    else
      cv::erode(mask, out, kernel, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT, cv::Scalar(0));
    benchmark::DoNotOptimize(out.data);
  }
}
void BM_Grow_OpenCV(benchmark::State& st) { MorphCv(st, true); }
void BM_Shrink_OpenCV(benchmark::State& st) { MorphCv(st, false); }
BENCHMARK(BM_Grow_OpenCV)->Arg(1)->Arg(5)->Arg(50)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Shrink_OpenCV)->Arg(1)->Arg(5)->Arg(50)->Unit(benchmark::kMillisecond);

void BM_DivideUp_OpenCV(benchmark::State& st) {
  cv::setNumThreads(1);
  std::vector<unsigned char> bytes = Mask(Region((int)st.range(0)));
  const cv::Mat mask(kCanvas, kCanvas, CV_8U, bytes.data());
  cv::Mat labels;
  int n = 0;
  for (auto _ : st) {
    n = cv::connectedComponents(mask, labels, 4, CV_32S);
    benchmark::DoNotOptimize(labels.data);
  }
  st.counters["pieces"] = n - 1;
  st.SetLabel(kRegionNames[st.range(0)]);
}
BENCHMARK(BM_DivideUp_OpenCV)->Arg(kStarXorGon)->Arg(kRectangles)->Unit(benchmark::kMillisecond);

void BM_Resample_OpenCV(benchmark::State& st) {
  cv::setNumThreads(1);
  std::vector<unsigned char> bytes = Mask(Region(kStarOrGon));
  const cv::Mat mask(kCanvas, kCanvas, CV_8U, bytes.data());
  cv::Mat out;
  const int n = (int)st.range(0);
  for (auto _ : st) {
    cv::resize(mask, out, cv::Size(n, n), 0, 0, cv::INTER_NEAREST);
    benchmark::DoNotOptimize(out.data);
  }
}
BENCHMARK(BM_Resample_OpenCV)->Arg(3000)->Arg(6000)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
