// fuzz_region.cpp - the region engine against a pixel model on a small
// canvas: two regions from fuzz bytes (rectangles, polygons in either fill
// rule, the polygon-set creator), every combination mode, growing and
// shrinking by a disc, the connected pieces, and tracing then rebuilding.
// Every result must be valid and well-formed and hold exactly the model's
// pixels. Input: a sequence of shape records (kind byte, then coordinates).
#include "fuzz_codec_common.h"

#include "region_model.h"

#include <set>
#include <utility>
#include <vector>

using tqfuzz::Reader;
using tqtest::PixelSet;

namespace {

const int kCanvas = 40;

PixelSet Of(const CRasterArray* a) { return tqtest::Pixels(a); }

// A region from the next shape records: rectangles and polygons united, or
// a polygon set in one call.
void Build(Reader& r, CRstLines& out) {
  const int shapes = 1 + r.Byte() % 4;
  if (r.Byte() % 4 == 0) {  // the polygon-set creator
    std::vector<POINT> pts;
    std::vector<int> counts;
    for (int s = 0; s < shapes; ++s) {
      const int n = 3 + r.Byte() % 5;
      for (int i = 0; i < n; ++i) pts.push_back(POINT{(LONG)(r.Byte() % kCanvas), (LONG)(r.Byte() % kCanvas)});
      counts.push_back(n);
    }
    out.Create(pts.data(), counts.data(), (int)counts.size(), (AFillMode)(1 + r.Byte() % 2), r.Byte() % 2);
    return;
  }
  for (int s = 0; s < shapes; ++s) {
    CRstLines shape;
    if (r.Byte() % 2) {
      const LONG x = r.Byte() % kCanvas, y = r.Byte() % kCanvas;
      shape.Create(RECT{x, y, x + 1 + (LONG)(r.Byte() % 16), y + 1 + (LONG)(r.Byte() % 16)});
    } else {
      const int n = 3 + r.Byte() % 6;
      std::vector<POINT> pts;
      for (int i = 0; i < n; ++i) pts.push_back(POINT{(LONG)(r.Byte() % kCanvas), (LONG)(r.Byte() % kCanvas)});
      shape.Create(pts.data(), n, (AFillMode)(1 + r.Byte() % 2));
    }
    if (!shape.IsEmpty()) out.Add(shape.GetData(), s == 0 || r.Byte() % 4 ? 1 : 0, nullptr);
  }
}

void CheckValid(const CRasterArray* a) {
  if (a) FUZZ_CHECK(CRstLines::IsWellFormed(a));
}

PixelSet Disc(const PixelSet& s, int d, bool grow) {
  PixelSet out;
  for (int y = -d - 2; y < kCanvas + 20 + d + 2; ++y)
    for (int x = -d - 2; x < kCanvas + 20 + d + 2; ++x) {
      bool any = false, all = true;
      for (int dy = -d; dy <= d; ++dy)
        for (int dx = -d; dx <= d; ++dx)
          if (dx * dx + dy * dy <= d * d) {
            const bool in = s.count({y + dy, x + dx}) != 0;
            any = any || in;
            all = all && in;
          }
      if (grow ? any : all) out.insert({y, x});
    }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tqfuzz::Quiet();
  Reader r{data, size};
  CRstLines a, b;
  Build(r, a);
  Build(r, b);
  CheckValid(a.GetData());
  CheckValid(b.GetData());
  const PixelSet pa = Of(a.GetData()), pb = Of(b.GetData());
  // The four combinations against the model.
  for (int mode = RST_AND; mode <= RST_XOR; ++mode) {
    CRstLines c;
    if (c.Combine(&a, &b, mode) == RST_FAILED) continue;  // refused: nothing to compare
    CheckValid(c.GetData());
    PixelSet want;
    PixelSet all = pa;
    all.insert(pb.begin(), pb.end());
    for (const auto& p : all) {
      const bool inA = pa.count(p) != 0, inB = pb.count(p) != 0;
      const bool in = mode == RST_AND ? inA && inB : mode == RST_OR ? inA || inB : mode == RST_DIFF ? inA && !inB : inA != inB;
      if (in) want.insert(p);
    }
    FUZZ_CHECK(Of(c.GetData()) == want);
  }
  if (a.IsEmpty()) return 0;
  // Growing and shrinking by a small disc.
  const int d = r.Byte() % 4;
  CRasterArray* g = CRstLines::ExpandRaster(a.GetData(), d);
  CRasterArray* s = CRstLines::ContractRaster(a.GetData(), d);
  FUZZ_CHECK(g && s);
  CheckValid(g);
  CheckValid(s);
  FUZZ_CHECK(Of(g) == Disc(pa, d, true));
  FUZZ_CHECK(Of(s) == Disc(pa, d, false));
  CRstLines::Delete(g);
  CRstLines::Delete(s);
  // Pieces cover the region once each; tracing rebuilds it.
  CRasterArray* parts = CRstLines::DivideUp(a.GetData());
  FUZZ_CHECK(parts);
  size_t total = 0;
  PixelSet joined;
  for (const RSRLINE* p : *parts) {
    CRasterArray one;
    one.Add(const_cast<RSRLINE*>(p));
    const PixelSet pp = Of(&one);
    one.RemoveAll();
    total += pp.size();
    joined.insert(pp.begin(), pp.end());
  }
  FUZZ_CHECK(joined == pa && total == pa.size());
  CRstLines::Delete(parts);
  ANLOOPGRP* loops = CLoopGrpOpt::CreateAnloopGrp(a.GetData());
  FUZZ_CHECK(loops && CLoopGrpOpt::IsValid(loops));
  CRstLines back;
  FUZZ_CHECK(back.Create(loops));
  FUZZ_CHECK(Of(back.GetData()) == pa);
  CLoopGrpOpt::DeleteAnloopGrp(loops);
  return 0;
}
