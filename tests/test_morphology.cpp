// test_morphology.cpp - growing and shrinking regions against the disc
// model (on the plane and on repeats), splitting into connected pieces
// against a flood fill, layers and containment against a nesting model,
// and resampling against the scaled mask.
#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <queue>
#include <random>
#include <string>
#include <vector>

#include "region_test_util.h"
#include "tqbase/tqbase.h"

using namespace tqtest;

namespace {

std::string LastError() {
  CString text;
  g_Error.GetLastError(text);
  return text.GetString();
}

// Pixels within distance d of a pixel of s (grow) or whose whole disc lies
// in s (shrink).
PixelSet DiscModel(const PixelSet& s, int d, bool grow) {
  std::vector<std::pair<int, int>> disc;
  for (int dy = -d; dy <= d; ++dy)
    for (int dx = -d; dx <= d; ++dx)
      if (dx * dx + dy * dy <= d * d) disc.push_back({dy, dx});
  PixelSet out;
  for (const auto& q : s)
    for (const auto& o : disc) {
      const std::pair<long long, long long> p = {q.first + o.first, q.second + o.second};
      if (grow) {
        out.insert(p);
      } else if (o.first == 0 && o.second == 0) {
        bool all = true;
        for (const auto& e : disc)
          if (!s.count({q.first + e.first, q.second + e.second})) {
            all = false;
            break;
          }
        if (all) out.insert(q);
      }
    }
  return out;
}

// Owned result of an operation under test.
struct Result {
  CRasterArray* arr;
  explicit Result(CRasterArray* a) : arr(a) {}
  ~Result() { CRstLines::Delete(arr); }
  Result(const Result&) = delete;
  Result& operator=(const Result&) = delete;
};

// Connected components of s by the 4-neighbourhood (set pixels) or the
// 8-neighbourhood (eight), each as a pixel set, in the order of their
// top-left pixels.
std::vector<PixelSet> FloodComponents(const PixelSet& s, bool eight = false) {
  std::vector<PixelSet> out;
  PixelSet seen;
  for (const auto& start : s) {  // (y, x) order: top row first, then left
    if (seen.count(start)) continue;
    PixelSet comp;
    std::queue<std::pair<long long, long long>> q;
    q.push(start);
    seen.insert(start);
    while (!q.empty()) {
      const auto p = q.front();
      q.pop();
      comp.insert(p);
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
          if ((dx == 0 && dy == 0) || (!eight && dx != 0 && dy != 0)) continue;
          const std::pair<long long, long long> n = {p.first + dy, p.second + dx};
          if (s.count(n) && !seen.count(n)) {
            seen.insert(n);
            q.push(n);
          }
        }
    }
    out.push_back(comp);
  }
  return out;
}

// Nesting depth of every 4-connected component of s inside the half-open
// rectangle [l, r) x [t, b): distance from the outside in the tree of set
// and unset components, halved.
std::map<PixelSet, int> DepthModel(const PixelSet& s, long long l, long long t, long long r, long long b) {
  PixelSet unset;
  for (long long y = t - 1; y <= b; ++y)
    for (long long x = l - 1; x <= r; ++x)
      if (!s.count({y, x})) unset.insert({y, x});  // a frame of unset pixels around rc
  const std::vector<PixelSet> fg = FloodComponents(s), bg = FloodComponents(unset, true);
  std::map<std::pair<long long, long long>, int> owner;  // pixel -> node (fg i, bg fg.size() + j)
  for (size_t i = 0; i < fg.size(); ++i)
    for (const auto& p : fg[i]) owner[p] = (int)i;
  for (size_t j = 0; j < bg.size(); ++j)
    for (const auto& p : bg[j]) owner[p] = (int)(fg.size() + j);
  const int outside = owner[{t - 1, l - 1}];
  std::vector<int> dist(fg.size() + bg.size(), -1);
  std::queue<int> q;
  q.push(outside);
  dist[(size_t)outside] = 0;
  std::vector<std::set<int>> adj(dist.size());
  for (const auto& e : owner)
    for (const auto& d : {std::make_pair(0, 1), std::make_pair(1, 0)}) {
      auto it = owner.find({e.first.first + d.first, e.first.second + d.second});
      if (it != owner.end() && it->second != e.second) {
        adj[(size_t)e.second].insert(it->second);
        adj[(size_t)it->second].insert(e.second);
      }
    }
  while (!q.empty()) {
    const int n = q.front();
    q.pop();
    for (int m : adj[(size_t)n])
      if (dist[(size_t)m] < 0) {
        dist[(size_t)m] = dist[(size_t)n] + 1;
        q.push(m);
      }
  }
  std::map<PixelSet, int> depth;
  for (size_t i = 0; i < fg.size(); ++i) depth[fg[i]] = (dist[i] - 1) / 2;
  return depth;
}

PixelSet Clip(const PixelSet& s, long long l, long long t, long long r, long long b) {
  PixelSet out;
  for (const auto& p : s)
    if (p.first >= t && p.first < b && p.second >= l && p.second < r) out.insert(p);
  return out;
}

// A random bitmap region: noise, or rings and blobs with holes.
CRstLines RandomRegion(std::mt19937& rng, int w, int h, int ox, int oy) {
  if (rng() % 2) return FromBitmap(RandomBitmap(rng, w, h, 25 + (int)(rng() % 50)), ox, oy);
  std::vector<std::string> rows((size_t)h, std::string((size_t)w, '.'));
  for (int k = 0, n = 1 + (int)(rng() % 4); k < n; ++k) {
    const int cx = (int)(rng() % w), cy = (int)(rng() % h), r1 = 2 + (int)(rng() % 8), r0 = (int)(rng() % r1);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const int q = (x - cx) * (x - cx) + (y - cy) * (y - cy);
        if (q <= r1 * r1 && q >= r0 * r0) rows[(size_t)y][(size_t)x] = rows[(size_t)y][(size_t)x] == '#' ? '.' : '#';
      }
  }
  return FromBitmap(rows, ox, oy);
}

}  // namespace

// ---- growing and shrinking -------------------------------------------------------------

TEST(CRstLinesMorphology, GrowAndShrinkAgreeWithTheDisc) {
  std::mt19937 rng(2024);
  for (int iter = 0; iter < 160; ++iter) {
    const int ox = (int)(rng() % 200) - 100, oy = (int)(rng() % 200) - 100;
    CRstLines r = RandomRegion(rng, 6 + (int)(rng() % 22), 4 + (int)(rng() % 18), ox, oy);
    if (r.IsEmpty()) continue;  // no array to pass
    const PixelSet s = Pixels(r.GetData());
    const int d = iter < 140 ? (int)(rng() % 7) : 7 + (int)(rng() % 6);
    const std::string repro = "iteration " + std::to_string(iter) + " d " + std::to_string(d);
    Result grown(CRstLines::ExpandRaster(r.GetData(), d)), shrunk(CRstLines::ContractRaster(r.GetData(), d));
    ASSERT_TRUE(grown.arr && shrunk.arr) << repro;
    EXPECT_EQ(Pixels(grown.arr), DiscModel(s, d, true)) << repro;
    EXPECT_EQ(Pixels(shrunk.arr), DiscModel(s, d, false)) << repro;
    EXPECT_TRUE(CRstLines::IsWellFormed(grown.arr) && CRstLines::IsWellFormed(shrunk.arr)) << repro;
    if (d > 0) {
      EXPECT_TRUE(Banded(grown.arr) && Banded(shrunk.arr)) << repro;
    }
    // A negative distance is the other operation.
    Result g2(CRstLines::ContractRaster(r.GetData(), -d)), s2(CRstLines::ExpandRaster(r.GetData(), -d));
    EXPECT_TRUE(CRstLines::IsEqual(g2.arr, grown.arr) && CRstLines::IsEqual(s2.arr, shrunk.arr)) << repro;
  }
}

TEST(CRstLinesMorphology, OverlappingAndUnsortedPiecesAreOneRegion) {
  // Two overlapping pieces, one with an unsorted, overlapping row.
  CRasterArray arr;
  arr.Add(MakePiece(0, {{{0, 4}}, {{6, 9}, {0, 7}}, {{3, 3}}}));
  arr.Add(MakePiece(1, {{{8, 12}}, {{2, 2}}}));
  for (int d : {0, 1, 2}) {
    Result g(CRstLines::ExpandRaster(&arr, d)), s(CRstLines::ContractRaster(&arr, d));
    EXPECT_EQ(Pixels(g.arr), DiscModel(Pixels(&arr), d, true)) << d;
    EXPECT_EQ(Pixels(s.arr), DiscModel(Pixels(&arr), d, false)) << d;
    EXPECT_TRUE(CRstLines::IsWellFormed(g.arr) && CRstLines::IsWellFormed(s.arr));
  }
  CRstLines::Release(&arr);
}

TEST(CRstLinesMorphology, Edges) {
  // A pixel grown by r holds the lattice points of the disc (Gauss's
  // circle counts), also at the largest distances.
  CRstLines dot;
  dot.Create(RECT{5, -3, 6, -2});
  const long long gauss[][2] = {{1, 5}, {10, 317}, {100, 31417}, {1000, 3141549}, {10000, 314159053}};
  for (const auto& g : gauss) {
    Result r(CRstLines::ExpandRaster(dot.GetData(), (int)g[0]));
    ASSERT_TRUE(r.arr);
    long long area = 0;
    for (const RSRLINE* p : *r.arr)
      for (const RSRUN& run : p->arRun) area += (long long)run.x2 - run.x1 + 1;
    EXPECT_EQ(area, g[1]) << g[0];
    EXPECT_EQ(CRstLines::GetBox(r.arr).top, -3 - g[0]);
  }
  // Shrinking a region away gives a new empty array; distance 0 a copy.
  Result gone(CRstLines::ContractRaster(dot.GetData(), 1));
  ASSERT_TRUE(gone.arr);
  EXPECT_EQ(gone.arr->GetSize(), 0);
  Result copy(CRstLines::ExpandRaster(dot.GetData(), 0));
  EXPECT_TRUE(copy.arr && copy.arr != dot.GetData() && CRstLines::IsEqual(copy.arr, dot.GetData()));
  CRasterArray empty;
  Result fromEmpty(CRstLines::ExpandRaster(&empty, 4));
  ASSERT_TRUE(fromEmpty.arr);
  EXPECT_EQ(fromEmpty.arr->GetSize(), 0);
  // Null, and results that would leave the int range.
  EXPECT_EQ(CRstLines::ExpandRaster(nullptr, 1), nullptr);
  EXPECT_NE(LastError().find("ExpandRaster"), std::string::npos);
  CRstLines edge;
  edge.Create(RECT{INT_MAX - 3, 0, INT_MAX, 2});
  EXPECT_EQ(CRstLines::ExpandRaster(edge.GetData(), 5), nullptr);
  EXPECT_NE(LastError().find("coordinate range"), std::string::npos);
  Result edgeGrown(CRstLines::ExpandRaster(edge.GetData(), 1));
  EXPECT_TRUE(edgeGrown.arr && CRstLines::GetBox(edgeGrown.arr).right == INT_MAX);
  Result huge(CRstLines::ContractRaster(edge.GetData(), 1000000000));
  EXPECT_TRUE(huge.arr && huge.arr->GetSize() == 0);
  EXPECT_EQ(CRstLines::ExpandRaster(dot.GetData(), 1000000000), nullptr);
  EXPECT_NE(LastError().find("too large"), std::string::npos);
  Result inward(CRstLines::ContractRaster(edge.GetData(), 1));
  EXPECT_TRUE(inward.arr && inward.arr->GetSize() == 0);
  // A hole closed by growing, opened again by shrinking the result less.
  CRstLines ring = FromBitmap({"#####", "#...#", "#...#", "#...#", "#####"});
  Result closed(CRstLines::ExpandRaster(ring.GetData(), 2));
  EXPECT_TRUE(CRstLines::PtInRasterArray(closed.arr, POINT{2, 2}));
}

TEST(CRstLinesMorphology, RepeatsGrowLikeTheTiledDesign) {
  std::mt19937 rng(77);
  for (int iter = 0; iter < 60; ++iter) {
    const int W = 5 + (int)(rng() % 9), H = 4 + (int)(rng() % 9), way = 1 + (int)(rng() % 2);
    const int param = (int)(rng() % (way == 1 ? H : W)) - (way == 1 ? H : W) / 2;
    const ACycle c = OnCycle(W, H, param, way);
    CRstLines r = RandomRegion(rng, 3 + (int)(rng() % 10), 3 + (int)(rng() % 10), (int)(rng() % 30) - 15,
                               (int)(rng() % 30) - 15);
    if (r.IsEmpty()) continue;  // no array to pass
    const PixelSet s = Pixels(r.GetData());
    PixelSet folded;
    for (const auto& q : s) {
      POINT p = {(LONG)q.second, (LONG)q.first};
      c.CalLocalPoint(p);
      folded.insert({p.y, p.x});
    }
    const int d = 1 + (int)(rng() % 6);
    // The tiled design over the cell widened by 2d, grown and shrunk by the
    // model, restricted to the cell.
    PixelSet tiled;
    for (long long y = -2 * d; y < H + 2 * d; ++y)
      for (long long x = -2 * d; x < W + 2 * d; ++x) {
        POINT p = {(LONG)x, (LONG)y};
        c.CalLocalPoint(p);
        if (folded.count({p.y, p.x})) tiled.insert({y, x});
      }
    const std::string repro = "iteration " + std::to_string(iter) + " " + std::to_string(W) + "x" +
                              std::to_string(H) + "+" + std::to_string(param) + " way " + std::to_string(way);
    Result g(CRstLines::ExpandRaster(r.GetData(), d, &c)), sh(CRstLines::ContractRaster(r.GetData(), d, &c));
    ASSERT_TRUE(g.arr && sh.arr) << repro << " " << LastError();
    EXPECT_EQ(Pixels(g.arr), Clip(DiscModel(tiled, d, true), 0, 0, W, H)) << repro;
    // Shrinking the widened window is exact d pixels inside it: the cell.
    EXPECT_EQ(Pixels(sh.arr), Clip(DiscModel(tiled, d, false), 0, 0, W, H)) << repro;
    EXPECT_TRUE(CRstLines::IsWellFormed(g.arr) && CRstLines::IsWellFormed(sh.arr)) << repro;
  }
}

// ---- pieces and layers -------------------------------------------------------------------

TEST(CRstLinesDivide, PiecesAreTheFloodFillComponentsInOrder) {
  std::mt19937 rng(99);
  for (int iter = 0; iter < 150; ++iter) {
    CRstLines r = RandomRegion(rng, 4 + (int)(rng() % 26), 3 + (int)(rng() % 20), (int)(rng() % 50) - 25,
                               (int)(rng() % 50) - 25);
    if (r.IsEmpty()) continue;
    const std::vector<PixelSet> want = FloodComponents(Pixels(r.GetData()));
    Result parts(CRstLines::DivideUp(r.GetData()));
    ASSERT_TRUE(parts.arr);
    ASSERT_EQ(parts.arr->GetSize(), (int)want.size()) << "iteration " << iter;
    for (int i = 0; i < parts.arr->GetSize(); ++i) {
      EXPECT_EQ(Pixels((*parts.arr)[i]), want[(size_t)i]) << "iteration " << iter << " piece " << i;
      EXPECT_TRUE(CRstLines::IsWellFormed((*parts.arr)[i]));
    }
    // The piece form appends the components of each piece.
    CRasterArray out;
    out.Add(MakePiece(0, {{{0, 0}}}));
    PixelSet fromPieces = Pixels(&out);
    for (const RSRLINE* p : *r.GetData()) {
      ASSERT_TRUE(CRstLines::DivideUp(p, out));
      const PixelSet ps = Pixels(p);
      fromPieces.insert(ps.begin(), ps.end());
    }
    EXPECT_EQ(Pixels(&out), fromPieces);
    EXPECT_EQ(Pixels(out[0]), PixelSet({{0, 0}}));
    CRstLines::Release(&out);
  }
  // Diagonal contacts do not connect.
  CRstLines diag = FromBitmap({"#.", ".#"});
  Result two(CRstLines::DivideUp(diag.GetData()));
  EXPECT_EQ(two.arr->GetSize(), 2);
  EXPECT_EQ(CRstLines::DivideUp(nullptr), nullptr);
}

TEST(CRstLinesDivide, LayersFollowNesting) {
  // A ring holding a ring holding a dot, and a piece beside them.
  CRstLines r = FromBitmap({
      "#########..#",
      "#.......#..#",
      "#.#####.#...",
      "#.#...#.#...",
      "#.#.#.#.#...",
      "#.#...#.#...",
      "#.#####.#...",
      "#.......#...",
      "#########...",
  });
  CRasterArray out;
  CArray<int, int> depth;
  ASSERT_TRUE(CRstLines::DividebyLayer(r.GetData(), RECT{0, 0, 12, 9}, &out, &depth));
  ASSERT_EQ(out.GetSize(), 4);
  EXPECT_EQ(std::vector<int>(depth.begin(), depth.end()), std::vector<int>({0, 0, 1, 2}));
  EXPECT_EQ(Pixels(out[1]), RectPixels(11, 0, 11, 1));
  EXPECT_EQ(Pixels(out[3]), PixelSet({{4, 4}}));
  // The inner ring lies inside the outer one's outline, the dot inside
  // both; the piece beside them lies inside neither.
  EXPECT_TRUE(CRstLines::OutLineInsideRstline(out[2], out[0]));
  EXPECT_TRUE(CRstLines::OutLineInsideRstline(out[3], out[0]));
  EXPECT_FALSE(CRstLines::OutLineInsideRstline(out[1], out[0]));
  EXPECT_FALSE(CRstLines::OutLineInsideRstline(out[0], out[2]));
  CRstLines::Release(&out);

  std::mt19937 rng(5);
  for (int iter = 0; iter < 120; ++iter) {
    CRstLines q = RandomRegion(rng, 4 + (int)(rng() % 20), 3 + (int)(rng() % 16), 0, 0);
    if (q.IsEmpty()) continue;
    const RECT rc = {(LONG)(rng() % 4), (LONG)(rng() % 4), (LONG)(8 + rng() % 16), (LONG)(6 + rng() % 14)};
    const PixelSet inRc = Clip(Pixels(q.GetData()), rc.left, rc.top, rc.right, rc.bottom);
    const std::map<PixelSet, int> model = DepthModel(inRc, rc.left, rc.top, rc.right, rc.bottom);
    CRasterArray layers;
    ASSERT_TRUE(CRstLines::DividebyLayer(q.GetData(), rc, &layers, &depth));
    ASSERT_EQ(layers.GetSize(), (int)model.size()) << "iteration " << iter;
    for (int i = 0; i < layers.GetSize(); ++i) {
      const auto it = model.find(Pixels(layers[i]));
      ASSERT_NE(it, model.end()) << "iteration " << iter << " piece " << i;
      EXPECT_EQ(depth[i], it->second) << "iteration " << iter << " piece " << i;
      if (i > 0) {
        EXPECT_LE(depth[i - 1], depth[i]);
      }
    }
    // Containment agrees with the filled outline of each piece.
    for (int i = 0; i < layers.GetSize(); ++i)
      for (int j = 0; j < layers.GetSize(); ++j) {
        const PixelSet a = Pixels(layers[i]), b = Pixels(layers[j]);
        // b with its holes: everything the unset pixels outside b's box
        // cannot reach.
        const RECT bb = layers[j]->rcBox;
        PixelSet rest;
        for (long long y = bb.top - 1; y <= bb.bottom + 1; ++y)
          for (long long x = bb.left - 1; x <= bb.right + 1; ++x)
            if (!b.count({y, x})) rest.insert({y, x});
        PixelSet outside;
        for (const PixelSet& comp : FloodComponents(rest, true))
          if (comp.count({bb.top - 1, bb.left - 1})) outside = comp;
        bool inside = true;
        for (const auto& p : a)
          if (p.first < bb.top || p.first > bb.bottom || p.second < bb.left || p.second > bb.right ||
              outside.count(p))
            inside = false;
        EXPECT_EQ(CRstLines::OutLineInsideRstline(layers[i], layers[j]), inside ? TRUE : FALSE)
            << "iteration " << iter << " pieces " << i << ", " << j;
      }
    CRstLines::Release(&layers);
  }
}

// ---- resampling ------------------------------------------------------------------------------

TEST(CRstLinesResample, EqualsTheScaledMask) {
  std::mt19937 rng(31);
  for (int iter = 0; iter < 120; ++iter) {
    const int sw = 3 + (int)(rng() % 30), sh = 3 + (int)(rng() % 30);
    const int dw = 1 + (int)(rng() % 70), dh = 1 + (int)(rng() % 70);
    // Some pixels lie outside the source frame and must be ignored.
    CRstLines src = RandomRegion(rng, sw + 4, sh + 4, -2, -2);
    std::vector<unsigned char> mask((size_t)sw * sh, 0), want((size_t)dw * dh, 0);
    for (const auto& p : Pixels(src.GetData()))
      if (p.first >= 0 && p.first < sh && p.second >= 0 && p.second < sw) mask[(size_t)(p.first * sw + p.second)] = 1;
    ACompress::ZoomBits(sw, sh, 8, mask.data(), dw, dh, want.data());
    const SIZE dst = {dw, dh}, from = {sw, sh};
    CRstLines out;
    ASSERT_TRUE(CRstLines::Resample(&out, &src, &dst, nullptr, nullptr, &from));
    PixelSet wantSet;
    for (int y = 0; y < dh; ++y)
      for (int x = 0; x < dw; ++x)
        if (want[(size_t)(y * dw + x)]) wantSet.insert({y, x});
    EXPECT_EQ(Pixels(out.GetData()), wantSet) << "iteration " << iter;
    EXPECT_TRUE(out.IsEmpty() || Banded(out.GetData()));
    // A scrambled column map is sampled column by column.
    std::vector<unsigned long> mx((size_t)dw), my((size_t)dh);
    for (auto& v : mx) v = rng() % (unsigned)(sw + 3);  // some beyond the frame
    for (auto& v : my) v = rng() % (unsigned)sh;
    ASSERT_TRUE(CRstLines::Resample(&out, &src, &dst, mx.data(), my.data(), &from));
    wantSet.clear();
    for (int y = 0; y < dh; ++y)
      for (int x = 0; x < dw; ++x)
        if (mx[(size_t)x] < (unsigned)sw && mask[my[(size_t)y] * sw + mx[(size_t)x]]) wantSet.insert({y, x});
    EXPECT_EQ(Pixels(out.GetData()), wantSet) << "iteration " << iter;
  }
  // In place, with the default frame, and refusals.
  CRstLines r;
  r.Create(RECT{2, 2, 6, 4});
  const SIZE twice = {12, 8};
  ASSERT_TRUE(CRstLines::Resample(&r, &r, &twice));
  EXPECT_EQ(Pixels(r.GetData()), RectPixels(3, 3, 11, 7));
  const SIZE bad = {0, 3};
  EXPECT_FALSE(CRstLines::Resample(&r, &r, &bad));
  EXPECT_FALSE(CRstLines::Resample(&r, nullptr, &twice));
  EXPECT_EQ(Pixels(r.GetData()), RectPixels(3, 3, 11, 7));
}
