// bench_color.cpp - the colour engine and the colour-space conversions,
// beside Little CMS 2 in the same run:
//  - Separate: lines of 4,000 RGB pixels through g_RGBtoCMYK (default
//    profiles) against cmsDoTransform on a transform built the same way
//    (the engine's overhead over the library it wraps);
//  - ToLab / FromLab: a million sRGB colours to Lab under D50 and back
//    with ColorSpace, against Little CMS's double-precision transforms
//    between its sRGB profile and its D50 Lab profile.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "tqbase/tqbase.h"

#ifdef TQBENCH_HAVE_LCMS2
#include <lcms2.h>
#endif

namespace {

const int kLine = 4000, kLines = 64, kColours = 1000000;

const std::vector<unsigned char>& RgbLines() {
  static std::vector<unsigned char> v = [] {
    std::vector<unsigned char> b((size_t)kLine * kLines * 3);
    std::mt19937 rng(1);
    for (auto& x : b) x = (unsigned char)rng();
    return b;
  }();
  return v;
}

const std::vector<double>& Colours() {
  static std::vector<double> v = [] {
    std::vector<double> b((size_t)kColours * 3);
    std::mt19937 rng(2);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (auto& x : b) x = u(rng);
    return b;
  }();
  return v;
}

void BM_Separate_Ours(benchmark::State& st) {
  if (!g_RGBtoCMYK.IsReady()) return st.SkipWithError("no default profiles");
  const auto& in = RgbLines();
  std::vector<unsigned char> out((size_t)kLine * 4);
  for (auto _ : st)
    for (int y = 0; y < kLines; ++y) {
      g_RGBtoCMYK.Convert(&in[(size_t)y * kLine * 3], out.data(), kLine);
      benchmark::DoNotOptimize(out.data());
    }
  st.SetItemsProcessed((int64_t)st.iterations() * kLine * kLines);
}
BENCHMARK(BM_Separate_Ours)->Unit(benchmark::kMillisecond);

void BM_ToLab_Ours(benchmark::State& st) {
  const ColorSpace cs(ColorSpace::SRGB, ColorSpace::ILLUM_D50);
  const auto& in = Colours();
  std::vector<double> out(in.size());
  for (auto _ : st) {
    for (size_t i = 0; i < in.size(); i += 3) cs.RGBToLab(&in[i], &out[i]);
    benchmark::DoNotOptimize(out.data());
  }
}
BENCHMARK(BM_ToLab_Ours)->Unit(benchmark::kMillisecond);

void BM_FromLab_Ours(benchmark::State& st) {
  const ColorSpace cs(ColorSpace::SRGB, ColorSpace::ILLUM_D50);
  const auto& rgb = Colours();
  std::vector<double> lab(rgb.size()), out(rgb.size());
  for (size_t i = 0; i < rgb.size(); i += 3) cs.RGBToLab(&rgb[i], &lab[i]);
  for (auto _ : st) {
    for (size_t i = 0; i < lab.size(); i += 3) cs.LabToRGB(&lab[i], &out[i]);
    benchmark::DoNotOptimize(out.data());
  }
}
BENCHMARK(BM_FromLab_Ours)->Unit(benchmark::kMillisecond);

#ifdef TQBENCH_HAVE_LCMS2
void BM_Separate_LittleCMS(benchmark::State& st) {
  const char* path = "/usr/share/color/icc/ghostscript/default_cmyk.icc";
  cmsHPROFILE rgb = cmsCreate_sRGBProfile(), cmyk = cmsOpenProfileFromFile(path, "r");
  if (!cmyk) return st.SkipWithError("no default_cmyk.icc");
  cmsHTRANSFORM t = cmsCreateTransform(rgb, TYPE_RGB_8, cmyk, TYPE_CMYK_8, INTENT_PERCEPTUAL,
                                       cmsFLAGS_NOCACHE | cmsFLAGS_BLACKPOINTCOMPENSATION);
  const auto& in = RgbLines();
  std::vector<unsigned char> out((size_t)kLine * 4);
  for (auto _ : st)
    for (int y = 0; y < kLines; ++y) {
      cmsDoTransform(t, &in[(size_t)y * kLine * 3], out.data(), kLine);
      benchmark::DoNotOptimize(out.data());
    }
  st.SetItemsProcessed((int64_t)st.iterations() * kLine * kLines);
  cmsDeleteTransform(t);
  cmsCloseProfile(rgb);
  cmsCloseProfile(cmyk);
}
BENCHMARK(BM_Separate_LittleCMS)->Unit(benchmark::kMillisecond);

void LabTransform(benchmark::State& st, bool toLab) {
  cmsHPROFILE rgb = cmsCreate_sRGBProfile(), lab = cmsCreateLab4Profile(cmsD50_xyY());
  cmsHTRANSFORM t = toLab ? cmsCreateTransform(rgb, TYPE_RGB_DBL, lab, TYPE_Lab_DBL, INTENT_RELATIVE_COLORIMETRIC, 0)
                          : cmsCreateTransform(lab, TYPE_Lab_DBL, rgb, TYPE_RGB_DBL, INTENT_RELATIVE_COLORIMETRIC, 0);
  std::vector<double> in = Colours(), out(in.size());
  if (!toLab) {
    const ColorSpace cs(ColorSpace::SRGB, ColorSpace::ILLUM_D50);
    for (size_t i = 0; i < in.size(); i += 3) cs.RGBToLab(&Colours()[i], &in[i]);
  }
  for (auto _ : st) {
    cmsDoTransform(t, in.data(), out.data(), (cmsUInt32Number)(in.size() / 3));
    benchmark::DoNotOptimize(out.data());
  }
  cmsDeleteTransform(t);
  cmsCloseProfile(rgb);
  cmsCloseProfile(lab);
}
void BM_ToLab_LittleCMS(benchmark::State& st) { LabTransform(st, true); }
void BM_FromLab_LittleCMS(benchmark::State& st) { LabTransform(st, false); }
BENCHMARK(BM_ToLab_LittleCMS)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FromLab_LittleCMS)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
