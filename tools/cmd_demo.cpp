// cmd_demo.cpp - `tqbase demo`: the typical request of a textile RIP, end
// to end, on a built-in motif at print scale (by default a 64 x 64 cm
// half-drop repeat tile at 300 dpi, 7,560 pixels square):
//
//   shapes -> regions (polygons, ellipses, turned shapes), united one at a
//   time, a cut-out subtracted -> folded into the tile -> grown for bleed
//   across the repeat's seams -> traced into outlines -> a byte mask ->
//   every line run-length coded (8-bit format), packed to 1 bit per pixel
//   and LZW-coded -> pictures: the tile, the repeat 3 x 3, the outlines ->
//   an RGB rendering separated into the planes of an ink mode through the
//   ICC colour engine, with the coverage of each plane.
//
// Everything goes into --out (tqbase-demo/ by default); the summary goes
// to stdout with the time of every step. Large blocks come from the
// memory manager, whose register must be empty again at the end.
//
// Line files: "TQRL" (as `tqbase rle` writes it: version 1, width, height,
// depth, then per line a 32-bit length and its stream) for the run-length
// lines, and the same layout under "TQLW" for the LZW lines, each the LZW
// stream of the line packed 1 bit per pixel; all numbers little-endian.
#include "args.h"
#include "command.h"
#include "image_io.h"
#include "progress.h"
#include "separate.h"

#include <tqbase/tqbase.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using tqtool::Number;

struct DemoOptions {
  std::string out = "tqbase-demo";
  std::string cycle;  // WxH+P; by default the tile of --size at --res, half-drop
  std::string res = "300dpi";
  std::string size = "64cm";
  std::string mode = "CMYKcm";
  int way = 1;
  int bleed = 12;
  int preview = 8;  // the repeat picture's reduction
};

// ---- steps and the summary ----------------------------------------------------------

struct StepTime {
  std::string name;
  double ms;
};

class Steps {
public:
  void Start(const char* name) {
    m_name = name;
    m_t0 = std::chrono::steady_clock::now();
  }
  void Stop() {
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - m_t0).count();
    m_times.push_back({m_name, ms});
  }
  const std::vector<StepTime>& Times() const { return m_times; }

private:
  std::string m_name;
  std::chrono::steady_clock::time_point m_t0;
  std::vector<StepTime> m_times;
};

// A block from the memory manager, freed with the object.
class Block {
public:
  explicit Block(size_t size) : m_p(static_cast<unsigned char*>(AGlobalAllocPtr(GMEM_ZEROINIT, (DWORD)size))) {}
  ~Block() {
    if (m_p) AGlobalFreePtr(m_p);
  }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  unsigned char* get() const { return m_p; }

private:
  unsigned char* m_p;
};

// An owned raster array.
struct Array {
  CRasterArray* a = nullptr;
  ~Array() { CRstLines::Delete(a); }
};

bool Failed(const char* what) {
  std::fprintf(stderr, "tqbase demo: %s: %s\n", what, tqtool::LastErrorText("failed").c_str());
  return false;
}

// ---- the motif ----------------------------------------------------------------------------

// The motif in tile coordinates (T = tile side): a rosette of eight turned
// ellipse petals around a twelve-point star, sheared and turned ellipse
// leaves (a transform each) and parallelograms, a ring of dots, diamonds
// (turned squares) on the tile's corners and edge middles, so that they
// cross the seams, and a round cut-out in the rosette's heart.
bool BuildMotif(int T, CRstLines& design, int* shapes) {
  const double c = T / 2.0;
  auto add = [&](RSRLINE& piece) {
    ++*shapes;
    if (design.Add(&piece, 1, nullptr) == RST_FAILED) return Failed("uniting a shape");
    return true;
  };
  for (int k = 0; k < 8; ++k) {
    const double a = k * M_PI / 4, r = 0.21 * T;
    const double px = c + r * std::cos(a), py = c + r * std::sin(a);
    const LONG hw = (LONG)(0.12 * T), hh = (LONG)(0.04 * T);
    RSRLINE petal;
    const RECT rc = {(LONG)px - hw, (LONG)py - hh, (LONG)px + hw, (LONG)py + hh};
    if (!CEllipse::EllipseRasterLine(rc, a, petal)) return Failed("an ellipse petal");
    if (!add(petal)) return false;
  }
  // Leaves: sheared ellipses turned towards the centre, between the petals;
  // and parallelograms from three corners further out.
  for (int k = 0; k < 8; ++k) {
    const double a = (k + 0.5) * M_PI / 4, r = (k % 2 ? 0.33 : 0.30) * T;
    const double lx = 0.055 * T, ly = 0.02 * T;
    ATransform t;
    t.Shear(0.0, 0.5);
    t.Rotate(a);
    t.Translation(c + r * std::cos(a), c + r * std::sin(a));
    RSRLINE leaf;
    const RECTD rc = {-lx, -ly, lx, ly};
    if (!CEllipse::EllipseRasterLine(rc, t, leaf)) return Failed("a transformed leaf");
    if (!add(leaf)) return false;
  }
  for (int k = 0; k < 4; ++k) {
    const double a = k * M_PI / 2 + M_PI / 4, r = 0.47 * T, s = 0.025 * T;
    const double px = c + r * std::cos(a), py = c + r * std::sin(a);
    const POINT corners[3] = {{(LONG)(px - s), (LONG)(py - s)}, {(LONG)(px + s), (LONG)(py - s / 2)},
                              {(LONG)(px - s / 2), (LONG)(py + s)}};
    RSRLINE plg;
    if (!CEllipse::PlgRasterLine(corners, plg) || !add(plg)) return Failed("a parallelogram");
  }
  std::vector<POINT> star;
  for (int k = 0; k < 24; ++k) {
    const double a = k * M_PI / 12, r = (k % 2 ? 0.06 : 0.13) * T;
    star.push_back(POINT{(LONG)std::lround(c + r * std::cos(a)), (LONG)std::lround(c + r * std::sin(a))});
  }
  RSRLINE* s = CRstLines::CreateRaster(star.data(), (int)star.size(), WINDING_FILL);
  if (!s) return Failed("the star");
  const bool okStar = add(*s);
  CRstLines::Delete(s);
  if (!okStar) return false;
  for (int k = 0; k < 36; ++k) {
    const double a = k * M_PI / 18, r = 0.42 * T, d = 0.018 * T;
    const double px = c + r * std::cos(a), py = c + r * std::sin(a);
    RSRLINE dot;
    const RECT rc = {(LONG)(px - d), (LONG)(py - d), (LONG)(px + d), (LONG)(py + d)};
    if (!CEllipse::EllipseRasterLine(rc, 0.0, dot) || !add(dot)) return Failed("a dot");
  }
  const LONG h = (LONG)(0.08 * T);
  for (const POINT p : {POINT{0, 0}, POINT{(LONG)c, 0}, POINT{0, (LONG)c}}) {
    RSRLINE diamond;
    const RECT rc = {p.x - h, p.y - h, p.x + h, p.y + h};
    if (!CEllipse::RectRasterLine(rc, M_PI / 4, diamond) || !add(diamond)) return Failed("a diamond");
  }
  // The cut-out.
  const LONG hole = (LONG)(0.035 * T);
  RSRLINE cut;
  const RECT rc = {(LONG)c - hole, (LONG)c - hole, (LONG)c + hole, (LONG)c + hole};
  if (!CEllipse::EllipseRasterLine(rc, 0.0, cut)) return Failed("the cut-out");
  ++*shapes;
  if (design.Add(&cut, 0, nullptr) == RST_FAILED) return Failed("the cut-out");
  return true;
}

// ---- line files ----------------------------------------------------------------------------

void Put32(std::string& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back((char)(v >> (8 * i)));
}

std::string LinesHeader(const char* magic, uint32_t w, uint32_t h, uint32_t depth) {
  std::string b(magic, 4);
  Put32(b, 1);
  Put32(b, w);
  Put32(b, h);
  Put32(b, depth);
  return b;
}

// ---- the pipeline --------------------------------------------------------------------------

int RunDemo(const DemoOptions& o) {
  std::string err;
  double resValue = 0, sizeValue = 0;
  int resUnit = 0, sizeUnit = 0;
  if (!tqtool::ParseQuantity(o.res, true, &resValue, &resUnit, &err) ||
      !tqtool::ParseQuantity(o.size, false, &sizeValue, &sizeUnit, &err)) {
    std::fprintf(stderr, "tqbase demo: %s\n", err.c_str());
    return 2;
  }
  int W = ToNPIXEL(sizeValue, resValue, resUnit, sizeUnit), H = W, P = W / 2;
  if (!o.cycle.empty() && !tqtool::ParseCycle(o.cycle, &W, &H, &P, &err, 40000)) {
    std::fprintf(stderr, "tqbase demo: --cycle: %s\n", err.c_str());
    return 2;
  }
  if (W < 64 || H < 64 || W > 40000 || H > 40000) {
    std::fprintf(stderr, "tqbase demo: the tile must be 64 to 40,000 pixels each way, not %d x %d\n", W, H);
    return 2;
  }
  std::error_code ec;
  std::filesystem::create_directories(o.out, ec);
  if (ec) {
    std::fprintf(stderr, "tqbase demo: cannot create %s: %s\n", o.out.c_str(), ec.message().c_str());
    return 1;
  }
  const std::string dir = o.out + "/";
  ACycle cycle;
  cycle.SetCycleParams(W, H, P);
  cycle.SetCycleWay(o.way);
  cycle.SetCycleOnOff(1);
  std::printf("tqbase demo: a %d x %d px repeat tile (%s at %s), displacement %d, way %d\n", W, H, o.size.c_str(),
              o.res.c_str(), P, o.way);
  Steps steps;

  // Shapes into one region, then into the tile.
  steps.Start("shapes united one at a time");
  CRstLines design;
  int shapes = 0;
  if (!BuildMotif(std::min(W, H), design, &shapes)) return 1;
  steps.Stop();
  steps.Start("folded into the tile (CalLocal)");
  if (!design.CalLocal(&cycle)) return Failed("folding into the tile"), 1;
  steps.Stop();
  steps.Start("grown for bleed across the seams");
  Array grown;
  grown.a = CRstLines::ExpandRaster(design.GetData(), o.bleed, &cycle);
  if (!grown.a) return Failed("growing for bleed"), 1;
  CRstLines tile;
  tile.SetData(&grown.a);
  steps.Stop();

  long long runs = 0, area = 0;
  for (const RSRLINE* p : *tile.GetData()) {
    runs += p->arRun.GetSize();
    for (const RSRUN& r : p->arRun) area += (long long)r.x2 - r.x1 + 1;
  }
  steps.Start("connected pieces");
  Array parts;
  parts.a = CRstLines::DivideUp(tile.GetData());
  if (!parts.a) return Failed("splitting into pieces"), 1;
  steps.Stop();

  steps.Start("traced into outlines");
  ANLOOPGRP* loops = CLoopGrpOpt::CreateAnloopGrp(tile.GetData());
  if (!loops) return Failed("tracing"), 1;
  CArray<POINT, POINT> pts;
  CArray<int, int> sizes;
  const bool flat = CLoopGrpOpt::GetPolyPolygon(loops, pts, sizes) != FALSE;
  CSvgDC svg;
  CLoopGrpOpt::DrawAnloopGrp(&svg, loops);
  CLoopGrpOpt::DeleteAnloopGrp(loops);
  if (!flat) return Failed("flattening the outlines"), 1;
  steps.Stop();

  // The byte mask and its lines.
  steps.Start("byte mask");
  const size_t stride = (size_t)W, packedStride = ((size_t)W + 7) / 8;
  Block mask((size_t)W * H), packed(packedStride * H);
  if (!mask.get() || !packed.get()) return Failed("the mask"), 1;
  const RECT whole = {0, 0, W, H};
  for (RSRLINE* p : *tile.GetData())
    if (!CRstLines::SetRasterMaskInBuf(mask.get(), whole, p, 255)) return Failed("writing the mask"), 1;
  steps.Stop();

  steps.Start("lines coded (RLE8, 1-bit, LZW)");
  std::string rle = LinesHeader("TQRL", W, H, 8), lzw = LinesHeader("TQLW", W, H, 1);
  Block work(stride * 2 + 64);
  if (!work.get()) return Failed("the line buffer"), 1;
  long long rleBytes = 0, lzwBytes = 0;
  {
    tqtool::Progress bar("coding lines", (size_t)H);
    for (int y = 0; y < H; ++y) {
      const unsigned char* line = mask.get() + (size_t)y * stride;
      unsigned long n = 0;
      if (!ACompress::Comp_RLE8(line, stride, work.get(), stride * 2 + 64, n)) return Failed("RLE8 coding"), 1;
      Put32(rle, (uint32_t)n);
      rle.append(reinterpret_cast<const char*>(work.get()), n);
      rleBytes += n;
      unsigned char* bits = packed.get() + (size_t)y * packedStride;
      if (!ACompress::ShrinkBit1(line, 0, (unsigned long)W, bits)) return Failed("packing to 1 bit"), 1;
      if (!ACompress::Comp_LZW(bits, packedStride, work.get(), stride * 2 + 64, n)) return Failed("LZW coding"), 1;
      Put32(lzw, (uint32_t)n);
      lzw.append(reinterpret_cast<const char*>(work.get()), n);
      lzwBytes += n;
      bar.Update((size_t)y + 1);
    }
  }
  steps.Stop();

  steps.Start("files written");
  std::string bitsFile(reinterpret_cast<const char*>(packed.get()), packedStride * H);
  if (!tqtool::WriteFile(dir + "mask-rle8.tqrl", rle, err) || !tqtool::WriteFile(dir + "mask-lzw.tqlw", lzw, err) ||
      !tqtool::WriteFile(dir + "mask-1bit.raw", bitsFile, err) ||
      !tqtool::WritePngBits(dir + "tile.png", W, H, packed.get(), packedStride, err)) {
    std::fprintf(stderr, "tqbase demo: %s\n", err.c_str());
    return 1;
  }
  std::string doc = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(W) + "\" height=\"" +
                    std::to_string(H) + "\" viewBox=\"0 0 " + std::to_string(W) + " " + std::to_string(H) + "\">\n" +
                    "  <image href=\"" + tqtool::PictureName("tile.png", 1) + "\" x=\"0\" y=\"0\" width=\"" + std::to_string(W) + "\" height=\"" +
                    std::to_string(H) + "\"/>\n  <path fill=\"none\" stroke=\"#e4002b\" stroke-width=\"" +
                    Number(std::max(1.0, W / 1500.0), 1) + "\" d=\"" + svg.GetPathData().GetString() + "\"/>\n</svg>\n";
  if (!tqtool::WriteFile(dir + "outlines.svg", doc, err)) {
    std::fprintf(stderr, "tqbase demo: %s\n", err.c_str());
    return 1;
  }
  steps.Stop();

  // The repeat 3 x 3 at preview size, with the tile's seams drawn faintly.
  steps.Start("repeat picture (3 x 3 tiles)");
  const int pw = std::max(8, W / o.preview), ph = std::max(8, H / o.preview);
  const SIZE small = {pw, ph}, full = {W, H};
  CRstLines preview;
  if (!CRstLines::Resample(&preview, &tile, &small, nullptr, nullptr, &full)) return Failed("resampling"), 1;
  ACycle smallCycle;
  smallCycle.SetCycleParams(pw, ph, (int)std::lround((double)P * ph / H));
  smallCycle.SetCycleWay(o.way);
  smallCycle.SetCycleOnOff(1);
  const RECT page = {0, 0, 3 * pw, 3 * ph};
  if (!preview.Cycle(&smallCycle, &page)) return Failed("laying out the repeat"), 1;
  tqtool::Image im;
  im.width = (uint32_t)(3 * pw);
  im.height = (uint32_t)(3 * ph);
  im.pixels.assign((size_t)im.width * im.height, 255);
  std::vector<unsigned char> on((size_t)im.width * im.height, 0);
  if (!preview.IsEmpty())
    for (RSRLINE* p : *preview.GetData())
      if (!CRstLines::SetRasterMaskInBuf(on.data(), page, p, 1)) return Failed("drawing the repeat"), 1;
  for (size_t i = 0; i < on.size(); ++i)
    if (on[i]) im.pixels[i] = 40;
  // Seams: the tiles' left edges and, in each column of tiles, their tops.
  for (int tx = 0; tx < 3; ++tx)
    for (int y = 0; y < 3 * ph; ++y) {
      unsigned char& px = im.pixels[(size_t)y * im.width + (size_t)tx * pw];
      px = on[(size_t)y * im.width + (size_t)tx * pw] ? 120 : 200;
    }
  for (int tx = 0; tx < 3; ++tx) {
    const int drop = (o.way == 1 ? ((tx * smallCycle.CycleInfoPtr()->param) % ph + ph) % ph : 0);
    for (int k = -1; k <= 3; ++k) {
      const long long y = (long long)k * ph + drop;
      if (y < 0 || y >= 3 * ph) continue;
      for (int x = tx * pw; x < (tx + 1) * pw; ++x) {
        unsigned char& px = im.pixels[(size_t)y * im.width + x];
        px = on[(size_t)y * im.width + x] ? 120 : 200;
      }
    }
  }
  if (!tqtool::WritePng(dir + "repeat-3x3.png", im, err)) {
    std::fprintf(stderr, "tqbase demo: %s\n", err.c_str());
    return 1;
  }
  steps.Stop();

  // An RGB rendering of the tile (at the repeat picture's size): each
  // connected piece in a colour of a textile palette on a cream ground;
  // separated into the planes of the ink mode through the colour engine.
  steps.Start("rendered and separated into inks");
  const int mode = tqtool::FindInkMode(o.mode);
  if (mode < 0) {
    std::fprintf(stderr, "tqbase demo: unknown ink mode '%s'\n", o.mode.c_str());
    return 2;
  }
  CRstLines smallTile;
  if (!CRstLines::Resample(&smallTile, &tile, &small, nullptr, nullptr, &full)) return Failed("resampling"), 1;
  Array pieces;
  if (!smallTile.IsEmpty() && !(pieces.a = CRstLines::DivideUp(smallTile.GetData()))) return Failed("splitting"), 1;
  tqtool::Image rgb;
  rgb.width = (uint32_t)pw;
  rgb.height = (uint32_t)ph;
  rgb.depth = 24;
  rgb.pixels.resize((size_t)pw * ph * 3);
  for (size_t i = 0; i < (size_t)pw * ph; ++i) {
    rgb.pixels[3 * i] = 247;
    rgb.pixels[3 * i + 1] = 241;
    rgb.pixels[3 * i + 2] = 227;
  }
  static const unsigned char kPalette[4][3] = {{178, 34, 52}, {39, 64, 139}, {214, 160, 40}, {20, 120, 110}};
  const RECT smallRect = {0, 0, pw, ph};
  std::vector<unsigned char> piece((size_t)pw * ph);
  for (int k = 0; pieces.a && k < pieces.a->GetSize(); ++k) {
    std::fill(piece.begin(), piece.end(), 0);
    if (!CRstLines::SetRasterMaskInBuf(piece.data(), smallRect, (*pieces.a)[k], 1)) return Failed("drawing"), 1;
    const unsigned char* c = kPalette[k % 4];
    for (size_t i = 0; i < piece.size(); ++i)
      if (piece[i]) std::memcpy(&rgb.pixels[3 * i], c, 3);
  }
  std::vector<tqtool::Plane> planes;
  if (!tqtool::WritePng(dir + "design-rgb.png", rgb, err)) {
    std::fprintf(stderr, "tqbase demo: %s\n", err.c_str());
    return 1;
  }
  // Without ICC profiles on this machine the separation is left out, and
  // said so; everything else of the request still runs.
  std::string noInks;
  if (!g_RGBtoCMYK.IsReady())
    noInks = tqtool::LastErrorText("the colour engine has no profiles");
  else if (!tqtool::Separate(rgb, mode, planes, &err)) {
    std::fprintf(stderr, "tqbase demo: %s\n", err.c_str());
    return 1;
  }
  CInkCountInfo coverage;
  for (size_t i = 0; i < planes.size(); ++i) {
    for (int y = 0; y < ph; ++y) coverage.AddExpandedLine((int)i, &planes[i].ink.pixels[(size_t)y * pw], (DWORD)pw, 8);
    if (!tqtool::WritePng(dir + "ink-" + planes[i].name + ".png", tqtool::InkPicture(planes[i].ink), err)) {
      std::fprintf(stderr, "tqbase demo: %s\n", err.c_str());
      return 1;
    }
  }
  steps.Stop();

  // The summary.
  const double raw = (double)W * H;
  std::printf("\n  %-34s %s\n", "shapes", std::to_string(shapes).c_str());
  const int inArray = (int)tile.GetData()->GetSize();
  std::printf("  %-34s %d piece%s in the array, %d connected\n", "tile region", inArray, inArray == 1 ? "" : "s",
              (int)parts.a->GetSize());
  std::printf("  %-34s %lld runs, %lld px (%s%% of the tile)\n", "", runs, area, Number(100.0 * area / raw, 1).c_str());
  std::printf("  %-34s %d loops, %d points\n", "outlines", (int)sizes.GetSize(), (int)pts.GetSize());
  std::printf("\n  %-34s %14s %10s\n", "format", "bytes", "ratio");
  std::printf("  %-34s %14s %10s\n", "byte mask (8 bits a pixel)", std::to_string((long long)raw).c_str(), "1.000");
  std::printf("  %-34s %14lld %10s\n", "run-length, 8-bit format", rleBytes, Number(rleBytes / raw, 4).c_str());
  std::printf("  %-34s %14lld %10s\n", "packed 1 bit a pixel", (long long)(packedStride * H),
              Number(packedStride * H / raw, 4).c_str());
  std::printf("  %-34s %14lld %10s\n", "LZW of the packed lines", lzwBytes, Number(lzwBytes / raw, 4).c_str());
  CString modeName;
  AClrObj::GetInkModeName(modeName, mode);
  std::printf("\n  %-34s %10s %10s\n", ("inks (" + std::string(modeName.GetString()) + ")").c_str(), "coverage", "ink");
  for (size_t i = 0; i < planes.size(); ++i)
    std::printf("  %-34s %9s%% %9s%%\n", (planes[i].name + " " + AClrObj::ColorName(planes[i].code, 1).GetString()).c_str(),
                Number(coverage.Coverage((int)i), 2).c_str(), Number(coverage.InkAmount((int)i), 2).c_str());
  if (noInks.empty())
    std::printf("  %-34s %s -> %s\n", "colour engine", g_RGBtoCMYK.GetRgbProfileName().GetString(),
                g_RGBtoCMYK.GetCmykProfileName().GetString());
  else
    std::printf("  %-34s not separated: %s\n", "colour engine", noInks.c_str());
  std::printf("\n  %-34s %10s\n", "step", "ms");
  double total = 0;
  for (const StepTime& t : steps.Times()) {
    std::printf("  %-34s %10s\n", t.name.c_str(), Number(t.ms, 1).c_str());
    total += t.ms;
  }
  std::printf("  %-34s %10s\n", "total", Number(total, 1).c_str());
  if (tqtool::HavePng())
    std::printf("\n  wrote %s: tile.png, repeat-3x3.png, outlines.svg, mask-rle8.tqrl, mask-1bit.raw, mask-lzw.tqlw,\n"
                "  design-rgb.png and ink-<plane>.png for each plane\n",
                o.out.c_str());
  else
    std::printf("\n  wrote %s: tile.pbm, repeat-3x3.pgm, outlines.svg, mask-rle8.tqrl, mask-1bit.raw, mask-lzw.tqlw,\n"
                "  design-rgb.ppm and ink-<plane>.pgm for each plane (built without libpng: pictures as PNM)\n",
                o.out.c_str());
  return 0;
}

void SetupDemo(CLI::App& app) {
  auto o = std::make_shared<DemoOptions>();
  CLI::App* cmd = app.add_subcommand("demo", "Run the typical request of a textile RIP on the built-in motif, at "
                                             "print scale, and write its pictures and coded lines");
  tqtool::Examples(cmd, {"tqbase demo                      (64 x 64 cm at 300 dpi, half-drop, into tqbase-demo/)",
                         "tqbase demo --size 20cm --res 150dpi --out small",
                         "tqbase demo --cycle 4000x3000+1000 --way 2"});
  cmd->add_option("--out", o->out, "output folder")->capture_default_str();
  cmd->add_option("--size", o->size, "side of the square tile, such as 64cm")->capture_default_str();
  cmd->add_option("--res", o->res, "resolution, such as 300dpi")->capture_default_str();
  cmd->add_option("--cycle", o->cycle, "the repeat cell in pixels WxH+P (overrides --size; P the displacement)");
  cmd->add_option("--way", o->way, "1: tiles along x, each step drops by P; 2: along y")
      ->capture_default_str()
      ->check(CLI::Range(1, 2));
  cmd->add_option("--bleed", o->bleed, "bleed in pixels")->capture_default_str()->check(CLI::Range(0, 1000));
  cmd->add_option("--mode", o->mode, "ink mode of the separation")->capture_default_str();
  cmd->add_option("--preview", o->preview, "reduction of the repeat picture (8: an eighth of the print size)")
      ->capture_default_str()
      ->check(CLI::Range(1, 64));
  cmd->callback([o] {
    const int before = AGV::GetGlobalAllocCount();
    int rc = RunDemo(*o);
    const int after = AGV::GetGlobalAllocCount();
    if (rc == 0) {
      if (after != before) {
        std::fprintf(stderr, "tqbase demo: %d memory blocks were not freed\n", after - before);
        rc = 1;
      } else {
        std::printf("  memory manager: every block freed\n");
      }
    }
    tqtool::ToolExit(rc);
  });
}

}  // namespace

TQ_REGISTER_COMMAND("01-demo", SetupDemo);
