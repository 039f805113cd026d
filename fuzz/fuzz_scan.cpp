// fuzz_scan.cpp - scan conversion of polygons: one outline in either fill
// rule (CreateRaster and CRstLines::Create), and polygon sets filled one by
// one or together (CreateRasterArray and CRstLines::Create), from outlines
// with repeated, collinear, level and upright, self-crossing and huge
// vertices.
//
// Input: a frame byte (0: a small window at the origin, 1: a small window
// anywhere up to the 32-bit limits, 2: any coordinates), the fill rule,
// then the polygons: a count byte each, then one selector byte per point
// (a new point, the previous one repeated, one further along the previous
// edge, or one on the previous point's row or column) and its coordinates.
//
// Every result is well-formed and banded, covers exactly the vertex rows,
// holds every vertex and every crossing point of the outline, and does not
// depend on where the outline starts, on repeated last points, on the
// order of a set's polygons or on which path (row by row or items) built
// it. In a small window it also agrees with the continuous fill model of
// the region suite (tests/region_model.h) away from the outline, winding
// fills everything alternate fills, and a set filled one by one is the
// union of its polygons. Outlines spanning more rows than the engine takes
// are refused with a text in g_Error; spans between 4096 rows and that
// limit are valid but costly and are not built.
#include "fuzz_codec_common.h"

#include "region_model.h"

#include <algorithm>
#include <string>
#include <vector>

using tqfuzz::Reader;
using namespace tqtest;

namespace {

typedef long long i64;

const i64 kWindow = 48;           // small frames: coordinates in [0, 48) from the origin
const i64 kMaxBuilt = 4096;       // largest row span built
const i64 kEngineRows = 1LL << 26;  // the engine's row limit

struct Polys {
  std::vector<POINT> pts;
  std::vector<int> counts;
  const POINT* Poly(size_t k) const {
    size_t off = 0;
    for (size_t i = 0; i < k; ++i) off += (size_t)counts[i];
    return pts.data() + off;
  }
};

LONG Clamp(i64 v) { return (LONG)std::min<i64>(INT32_MAX, std::max<i64>(INT32_MIN, v)); }

// The next outline point after prev (and the one before it, prev2).
POINT NextPoint(Reader& r, int frame, i64 ox, i64 oy, i64 yBase, const POINT* prev, const POINT* prev2) {
  const uint8_t sel = r.Byte();
  auto fresh = [&]() -> POINT {
    if (frame < 2) return POINT{Clamp(ox + r.Byte() % kWindow), Clamp(oy + r.Byte() % kWindow)};
    const LONG x = r.AnyInt();
    // Rows near a common base keep the span buildable; a raw y makes it
    // anything, mostly beyond the engine's limit.
    const LONG y = r.Byte() % 4 ? Clamp(yBase + (int8_t)r.Byte() * 16) : r.AnyInt();
    return POINT{x, y};
  };
  if (!prev) return fresh();
  switch (sel % 8) {
    case 4:
      return *prev;  // repeated
    case 5:
      if (prev2) {  // further along the previous edge
        const i64 x = 2LL * prev->x - prev2->x, y = 2LL * prev->y - prev2->y;
        if (frame == 2 || (x >= ox && x < ox + kWindow && y >= oy && y < oy + kWindow)) return POINT{Clamp(x), Clamp(y)};
      }
      return fresh();
    case 6: {
      POINT p = fresh();
      p.y = prev->y;  // level edge
      return p;
    }
    case 7: {
      POINT p = fresh();
      p.x = prev->x;  // upright edge
      return p;
    }
    default:
      return fresh();
  }
}

Polys ReadPolys(Reader& r, int frame) {
  i64 ox = 0, oy = 0, yBase = 0;
  if (frame == 0) {
    ox = oy = -8;
  } else if (frame == 1) {
    ox = std::min<i64>(r.AnyInt(), INT32_MAX - kWindow);
    oy = std::min<i64>(r.AnyInt(), INT32_MAX - kWindow);
  }
  Polys s;
  const int polys = 1 + r.Byte() % 4;
  for (int k = 0; k < polys; ++k) {
    // Each polygon near a row of its own: polygons far apart, or not.
    if (frame == 2 && (k == 0 || r.Byte() % 2)) yBase = r.AnyInt();
    const int n = 1 + r.Byte() % 16;
    const size_t first = s.pts.size();
    for (int i = 0; i < n; ++i) {
      const POINT* prev = i > 0 ? &s.pts[first + i - 1] : nullptr;
      const POINT* prev2 = i > 1 ? &s.pts[first + i - 2] : nullptr;
      const POINT p = NextPoint(r, frame, ox, oy, yBase, prev, prev2);
      s.pts.push_back(p);
    }
    s.counts.push_back(n);
  }
  return s;
}

// The pixels every outline puts into its region: its vertices and, on
// every row strictly between an edge's ends, the crossing point
// x0 + (y - y0) * (x0 - x1) / (y0 - y1), truncated toward zero.
template <class Fn>
void OutlinePixels(const POINT* p, int n, Fn fn) {
  for (int i = 0; i < n; ++i) {
    const POINT& a = p[i];
    const POINT& b = p[(i + 1) % n];
    fn((i64)a.x, (i64)a.y);
    if (a.y == b.y) continue;
    const double slope = (double)((i64)a.x - b.x) / (double)((i64)a.y - b.y);
    const i64 dir = b.y > a.y ? 1 : -1;
    for (i64 y = (i64)a.y + dir; y != b.y; y += dir) {
      const double x = (double)a.x + (double)(y - a.y) * slope;
      fn(x >= 2147483647.0 ? (i64)INT32_MAX : x <= -2147483648.0 ? (i64)INT32_MIN : (i64)x, y);
    }
  }
}

// Point lookups in the pieces of a result: each row's first run found
// from prefix sums made once.
class Lookup {
public:
  explicit Lookup(const CRasterArray* a) {
    for (const RSRLINE* p : *a) Add(p);
  }
  explicit Lookup(const RSRLINE* p) { Add(p); }
  bool Contains(i64 x, i64 y) const {
    for (const Piece& pc : m_pieces) {
      const RSRLINE* p = pc.p;
      if (y < p->rcBox.top || y > p->rcBox.bottom) continue;
      const size_t row = (size_t)(y - p->rcBox.top);
      const RSRUN* r = p->arRun.GetData() + pc.first[row];
      const RSRUN* end = p->arRun.GetData() + pc.first[row + 1];
      const RSRUN* it = std::lower_bound(r, end, x, [](const RSRUN& run, i64 v) { return run.x2 < v; });
      if (it != end && it->x1 <= x) return true;
    }
    return false;
  }

private:
  struct Piece {
    const RSRLINE* p;
    std::vector<int> first;
  };
  void Add(const RSRLINE* p) {
    Piece pc{p, {0}};
    for (int c : p->arCount) pc.first.push_back(pc.first.back() + c);
    m_pieces.push_back(std::move(pc));
  }
  std::vector<Piece> m_pieces;
};

// Rows of the outlines; false when there are none.
void RowSpan(const POINT* p, int n, i64& lo, i64& hi) {
  for (int i = 0; i < n; ++i) {
    lo = std::min<i64>(lo, p[i].y);
    hi = std::max<i64>(hi, p[i].y);
  }
}

bool RefusedAsTooLarge() {
  CString text;
  return g_Error.GetLastError(text) && text.Find("too large") != -1;
}

// The region equals the continuous model wherever the model decides.
template <class Model>
void CheckModel(const PixelSet& s, i64 top, i64 bottom, i64 left, i64 right, Model model) {
  for (i64 y = top; y <= bottom; ++y)
    for (i64 x = left - 2; x <= right + 2; ++x) {
      bool in;
      if (!model(x, y, &in)) continue;
      FUZZ_CHECK(in == (s.count({y, x}) != 0));
    }
}

// One outline.
void CheckOne(const POINT* p, int n, int mode, bool window, uint8_t rotateBy) {
  i64 lo = INT64_MAX, hi = INT64_MIN, minX = INT64_MAX, maxX = INT64_MIN;
  RowSpan(p, n, lo, hi);
  for (int i = 0; i < n; ++i) {
    minX = std::min<i64>(minX, p[i].x);
    maxX = std::max<i64>(maxX, p[i].x);
  }
  const i64 span = hi - lo + 1;
  if (span > kMaxBuilt && span <= kEngineRows) return;
  g_Error.ClearError();
  RSRLINE* piece = CRstLines::CreateRaster(p, n, mode);
  if (span > kEngineRows) {
    FUZZ_CHECK(piece == nullptr && RefusedAsTooLarge());
    CRstLines obj;
    FUZZ_CHECK(!obj.Create(p, n, (AFillMode)mode));
    return;
  }
  FUZZ_CHECK(piece != nullptr && CRstLines::IsWellFormed(piece));
  // Every vertex row, each holding a run; the box within the vertices'
  // columns (one more either way where rounding near 2^31 can reach it).
  FUZZ_CHECK(piece->rcBox.top == lo && piece->rcBox.bottom == hi && piece->arCount.GetSize() == span);
  for (int c : piece->arCount) FUZZ_CHECK(c >= 1);
  const i64 slack = window ? 0 : 1;
  FUZZ_CHECK(piece->rcBox.left >= minX - slack && piece->rcBox.right <= maxX + slack);
  const Lookup look(piece);
  OutlinePixels(p, n, [&](i64 x, i64 y) { FUZZ_CHECK(look.Contains(x, y)); });

  // Where the outline starts, repeated last points, the path taken and the
  // owning object change nothing.
  std::vector<POINT> rotated(p, p + n);
  std::rotate(rotated.begin(), rotated.begin() + rotateBy % n, rotated.end());
  RSRLINE* other = CRstLines::CreateRaster(rotated.data(), n, mode);
  FUZZ_CHECK(CRstLines::IsEqual(piece, other));
  CRstLines::Delete(other);
  std::vector<POINT> repeated(p, p + n);
  repeated.insert(repeated.end(), 1 + rotateBy % 3, p[n - 1]);
  other = CRstLines::CreateRaster(repeated.data(), (int)repeated.size(), mode);
  FUZZ_CHECK(CRstLines::IsEqual(piece, other));
  CRstLines::Delete(other);
  CRasterArray* items = CRstLines::CreateRasterArray(p, &n, 1, mode, rotateBy % 2);
  FUZZ_CHECK(items && items->GetSize() == 1 && CRstLines::IsEqual(piece, items->GetAt(0)));
  CRstLines::Delete(items);
  CRstLines obj;
  FUZZ_CHECK(obj.Create(p, n, (AFillMode)mode) && obj.GetData()->GetSize() == 1 &&
             CRstLines::IsEqual(piece, obj.GetData()->GetAt(0)));

  if (window) {
    const PixelSet s = Pixels(piece);
    const std::vector<POINT> outline(p, p + n);
    CheckModel(s, lo, hi, piece->rcBox.left, piece->rcBox.right,
               [&](i64 x, i64 y, bool* in) { return ModelSafe(outline, x, y, mode, in); });
    // Winding fills everything alternate fills, and self-overlaps besides.
    RSRLINE* flip = CRstLines::CreateRaster(p, n, 3 - mode);
    const PixelSet f = Pixels(flip);
    const PixelSet& alt = mode == ALTERNATE_FILL ? s : f;
    const PixelSet& wind = mode == ALTERNATE_FILL ? f : s;
    FUZZ_CHECK(std::includes(wind.begin(), wind.end(), alt.begin(), alt.end()));
    CRstLines::Delete(flip);
  }
  CRstLines::Delete(piece);
}

// A polygon set, filled one by one (join 0) or together (join 1).
void CheckSet(const Polys& s, int mode, int join, bool window) {
  const int polys = (int)s.counts.size();
  i64 lo = INT64_MAX, hi = INT64_MIN;
  RowSpan(s.pts.data(), (int)s.pts.size(), lo, hi);
  i64 widest = 0;
  for (int k = 0; k < polys; ++k) {
    i64 a = INT64_MAX, b = INT64_MIN;
    RowSpan(s.Poly((size_t)k), s.counts[(size_t)k], a, b);
    widest = std::max(widest, b - a + 1);
  }
  // Rows between polygons that are far apart cost nothing.
  if (widest > kMaxBuilt && widest <= kEngineRows) return;
  g_Error.ClearError();
  CRasterArray* a = CRstLines::CreateRasterArray(s.pts.data(), s.counts.data(), polys, mode, join);
  if (widest > kEngineRows) {
    FUZZ_CHECK(a == nullptr && RefusedAsTooLarge());
    return;
  }
  FUZZ_CHECK(a != nullptr && a->GetSize() >= 1);
  const char* defect = BandedDefect(a);
  if (defect) std::fprintf(stderr, "%s\n", defect);
  FUZZ_CHECK(defect == nullptr);
  FUZZ_CHECK(a->GetAt(0)->rcBox.top == lo && a->GetAt(a->GetSize() - 1)->rcBox.bottom == hi);
  const Lookup look(a);
  for (int k = 0; k < polys; ++k)
    OutlinePixels(s.Poly((size_t)k), s.counts[(size_t)k], [&](i64 x, i64 y) { FUZZ_CHECK(look.Contains(x, y)); });

  // The order of the polygons changes nothing; nor does the owning object.
  Polys rev;
  for (int k = polys; k-- > 0;) {
    rev.pts.insert(rev.pts.end(), s.Poly((size_t)k), s.Poly((size_t)k) + s.counts[(size_t)k]);
    rev.counts.push_back(s.counts[(size_t)k]);
  }
  CRasterArray* b = CRstLines::CreateRasterArray(rev.pts.data(), rev.counts.data(), polys, mode, join);
  FUZZ_CHECK(b && CRstLines::IsEqual(a, b));
  CRstLines::Delete(b);
  CRstLines obj;
  FUZZ_CHECK(obj.Create(s.pts.data(), s.counts.data(), polys, (AFillMode)mode, join) &&
             CRstLines::IsEqual(a, obj.GetData()));

  if (window) {
    const PixelSet got = Pixels(a);
    if (join) {
      i64 left = INT64_MAX, right = INT64_MIN;
      for (const RSRLINE* p : *a) {
        left = std::min<i64>(left, p->rcBox.left);
        right = std::max<i64>(right, p->rcBox.right);
      }
      CheckModel(got, lo, hi, left, right,
                 [&](i64 x, i64 y, bool* in) { return ModelSafe(s.pts, s.counts, x, y, mode, in); });
    } else {
      PixelSet want;
      for (int k = 0; k < polys; ++k) {
        RSRLINE* one = CRstLines::CreateRaster(s.Poly((size_t)k), s.counts[(size_t)k], mode);
        const PixelSet p = Pixels(one);
        want.insert(p.begin(), p.end());
        CRstLines::Delete(one);
      }
      FUZZ_CHECK(got == want);
    }
  }
  CRstLines::Delete(a);
}

// The polygons as code that reproduces the case.
std::string Code(const Polys& s, int mode) {
  std::string o = "POINT pts[] = {";
  for (size_t i = 0; i < s.pts.size(); ++i)
    o += (i ? ", {" : "{") + std::to_string(s.pts[i].x) + ", " + std::to_string(s.pts[i].y) + "}";
  o += "}; int counts[] = {";
  for (size_t i = 0; i < s.counts.size(); ++i) o += (i ? ", " : "") + std::to_string(s.counts[i]);
  return o + "}; // mode " + std::to_string(mode);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tqfuzz::Quiet();
  Reader r{data, size};
  const int frame = r.Byte() % 3;
  const uint8_t modeSel = r.Byte();
  const int mode = 1 + modeSel % 2;
  const Polys s = ReadPolys(r, frame);
  tqfuzz::Context() = Code(s, mode);
  const bool window = frame < 2;
  const uint8_t rotateBy = r.Byte();

  // A fill rule other than 1 and 2 is refused.
  if (modeSel % 16 == 15) {
    const int bad = modeSel % 32 == 15 ? 0 : 3;
    FUZZ_CHECK(CRstLines::CreateRaster(s.pts.data(), s.counts[0], bad) == nullptr);
    FUZZ_CHECK(CRstLines::CreateRasterArray(s.pts.data(), s.counts.data(), (int)s.counts.size(), bad, 0) == nullptr);
    CRstLines obj;
    FUZZ_CHECK(!obj.Create(s.pts.data(), s.counts[0], (AFillMode)bad));
  }
  CheckOne(s.pts.data(), s.counts[0], mode, window, rotateBy);
  CheckSet(s, mode, 0, window);
  CheckSet(s, mode, 1, window);
  return 0;
}
