// crstlines_divide.cpp - splitting regions into connected pieces
// (DivideUp), into layers by nesting depth (DividebyLayer), and deciding
// whether one piece lies inside another's outer outline
// (OutLineInsideRstline).
//
// Set pixels connect through shared columns of runs on adjacent rows (the
// connectivity of tracing); unset pixels connect diagonally as well, the
// connectivity that makes every hole a region of its own. Both are
// labelled with a union-find forest over runs and gaps whose root is the
// element met first in row order, so that a component's root is its
// top-left run (or gap).
//
// Nesting: the left neighbour of a component's top-left pixel lies in the
// background component around it (no hole of the component reaches its
// top row, and no island of that background does either), and the left
// neighbour of a hole's top-left pixel lies in the piece around the hole.
// So one left neighbour per component gives the whole nesting tree.
#include <algorithm>
#include <climits>

#include "crstlines_core.h"

using namespace tqrgn;

namespace {

// A non-empty row of collected runs: runs[begin..end) at y.
struct Row {
  long long y;
  size_t begin, end;
};

// The set pixels of an operand in row order, clipped to a rectangle.
struct RunRows {
  std::vector<RSRUN> runs;
  std::vector<Row> rows;
};

// Half-open rectangle in 64-bit coordinates.
struct Area {
  long long left, top, right, bottom;
};

const Area kPlane = {LLONG_MIN / 4, LLONG_MIN / 4, LLONG_MAX / 4, LLONG_MAX / 4};

void Collect(const Operand& op, const Area& area, RunRows& out) {
  ReserveFor(out.runs, op.Runs());
  for (size_t i = 0; i < op.Count(); ++i) {
    const Slab& s = op[i];
    const RSRUN* r = s.runs;
    for (long long y = s.top; y <= s.bottom; ++y) {
      const int n = s.cnt[y - s.top];
      const RSRUN* const e = r + n;
      if (y < area.top || y >= area.bottom) {
        r = e;
        continue;
      }
      const size_t begin = out.runs.size();
      for (; r != e; ++r) {
        const long long a = std::max<long long>(r->x1, area.left), b = std::min<long long>(r->x2, area.right - 1);
        if (a <= b) out.runs.push_back(RSRUN{(int)a, (int)b});
      }
      if (out.runs.size() > begin) out.rows.push_back(Row{y, begin, out.runs.size()});
    }
  }
}

// Union-find over elements 0..n-1; the root of a set is its least element.
class Forest {
public:
  explicit Forest(size_t n) {
    SizeTo(m_parent, (long long)n);
    for (size_t i = 0; i < n; ++i) m_parent[i] = (int)i;
  }
  int Find(int i) {
    while (m_parent[(size_t)i] != i) {
      m_parent[(size_t)i] = m_parent[(size_t)m_parent[(size_t)i]];
      i = m_parent[(size_t)i];
    }
    return i;
  }
  void Unite(int a, int b) {
    a = Find(a);
    b = Find(b);
    if (a < b)
      m_parent[(size_t)b] = a;
    else if (b < a)
      m_parent[(size_t)a] = b;
  }

private:
  std::vector<int> m_parent;
};

// Labels the runs by component, numbered in the order of their top-left
// runs; returns the number of components.
int LabelRuns(const RunRows& rr, std::vector<int>& label) {
  Forest f(rr.runs.size());
  for (size_t k = 1; k < rr.rows.size(); ++k) {
    const Row &up = rr.rows[k - 1], &dn = rr.rows[k];
    if (dn.y != up.y + 1) continue;
    size_t i = up.begin, j = dn.begin;
    while (i < up.end && j < dn.end) {
      const RSRUN &a = rr.runs[i], &b = rr.runs[j];
      if (a.x1 <= b.x2 && b.x1 <= a.x2) f.Unite((int)i, (int)j);
      if (a.x2 < b.x2)
        ++i;
      else
        ++j;
    }
  }
  SizeTo(label, (long long)rr.runs.size());
  int n = 0;
  for (size_t i = 0; i < rr.runs.size(); ++i) {
    const int root = f.Find((int)i);
    label[i] = (size_t)root == i ? n++ : label[(size_t)root];
  }
  return n;
}

// One piece per component, appended to out in the order given by rank
// (rank[c] = position of component c; null: component order).
void BuildPieces(const RunRows& rr, const std::vector<int>& label, int n, const std::vector<int>* rank,
                 PieceList& out) {
  std::vector<long long> runs, rows, lastY;
  SizeTo(runs, n);
  SizeTo(rows, n);
  SizeTo(lastY, n);
  std::fill(lastY.begin(), lastY.end(), LLONG_MIN);
  for (const Row& row : rr.rows)
    for (size_t i = row.begin; i < row.end; ++i) {
      const size_t c = (size_t)label[i];
      ++runs[c];
      if (lastY[c] != row.y) {
        lastY[c] = row.y;
        ++rows[c];
      }
    }
  std::vector<RSRLINE*> piece;
  SizeTo(piece, n);
  PieceList made;
  made.Reserve(n);
  for (int c = 0; c < n; ++c) {
    OwnedPiece p = NewPiece(runs[(size_t)c], rows[(size_t)c]);
    p->rcBox = RECT{INT_MAX, 0, INT_MIN, 0};
    piece[(size_t)c] = p.get();
    made.Add(std::move(p));
  }
  // Cursors: runs and rows written so far per component.
  std::fill(runs.begin(), runs.end(), 0);
  std::fill(rows.begin(), rows.end(), 0);
  std::fill(lastY.begin(), lastY.end(), LLONG_MIN);
  for (const Row& row : rr.rows)
    for (size_t i = row.begin; i < row.end; ++i) {
      const size_t c = (size_t)label[i];
      RSRLINE* p = piece[c];
      const RSRUN& r = rr.runs[i];
      if (lastY[c] != row.y) {
        if (lastY[c] == LLONG_MIN) p->rcBox.top = p->rcBox.bottom = (LONG)row.y;
        lastY[c] = row.y;
        p->rcBox.bottom = (LONG)row.y;
        p->arCount[(int)rows[c]++] = 0;
      }
      ++p->arCount[(int)rows[c] - 1];
      p->arRun[(int)runs[c]++] = r;
      p->rcBox.left = std::min<LONG>(p->rcBox.left, r.x1);
      p->rcBox.right = std::max<LONG>(p->rcBox.right, r.x2);
    }
  if (!rank) {
    made.AppendTo(out);
    return;
  }
  // Reorder: the list hands its pieces over only as a whole, so the order
  // is set in a plain array and the pieces are then re-added.
  std::vector<RSRLINE*> ordered;
  SizeTo(ordered, n);
  for (int c = 0; c < n; ++c) ordered[(size_t)(*rank)[(size_t)c]] = piece[(size_t)c];
  out.Reserve((long long)out.Size() + n);
  made.Disown();
  for (RSRLINE* p : ordered) out.Add(OwnedPiece(p));  // within the reserved room
}

// The unset pixels between and beside the runs of every collected row
// inside [left, right] (inclusive), labelled by 8-connected component.
// Gap 0 stands for everything outside: the rectangle's border rows and
// columns, and every row without runs.
struct Gaps {
  std::vector<long long> a, b;  // gap g covers columns a[g]..b[g]
  std::vector<int> leftRun;     // the run just left of gap g (-1: none)
  std::vector<int> runLeftGap;  // the gap just left of run i (0: the border)
  std::vector<size_t> rowFirst; // gaps of row k: rowFirst[k]..rowFirst[k + 1]
};

void LabelGaps(const RunRows& rr, long long left, long long right, Gaps& g, std::vector<int>& root) {
  const size_t nRows = rr.rows.size();
  const long long maxGaps = (long long)rr.runs.size() + (long long)nRows + 1;
  ReserveFor(g.a, maxGaps);
  ReserveFor(g.b, maxGaps);
  ReserveFor(g.leftRun, maxGaps);
  SizeTo(g.runLeftGap, (long long)rr.runs.size());
  SizeTo(g.rowFirst, (long long)nRows + 1);
  g.a.push_back(0);
  g.b.push_back(-1);
  g.leftRun.push_back(-1);
  for (size_t k = 0; k < nRows; ++k) {
    const Row& row = rr.rows[k];
    g.rowFirst[k] = g.a.size();
    long long x = left;
    for (size_t i = row.begin; i < row.end; ++i) {
      const RSRUN& r = rr.runs[i];
      if (r.x1 > x) {
        g.a.push_back(x);
        g.b.push_back((long long)r.x1 - 1);
        g.leftRun.push_back(i == row.begin ? -1 : (int)i - 1);
        g.runLeftGap[i] = (int)g.a.size() - 1;
      } else {
        g.runLeftGap[i] = 0;  // at the left edge
      }
      x = (long long)r.x2 + 1;
    }
    if (x <= right) {
      g.a.push_back(x);
      g.b.push_back(right);
      g.leftRun.push_back((int)row.end - 1);
    }
  }
  g.rowFirst[nRows] = g.a.size();
  Forest f(g.a.size());
  for (size_t k = 0; k < nRows; ++k) {
    // The first and last rows border unset rows (or the rectangle's edge);
    // so do rows next to a row without runs.
    const bool open = k == 0 || k + 1 == nRows || rr.rows[k - 1].y + 1 != rr.rows[k].y ||
                      rr.rows[k + 1].y != rr.rows[k].y + 1;
    for (size_t i = g.rowFirst[k]; i < g.rowFirst[k + 1]; ++i)
      if (open || g.a[i] == left || g.b[i] == right) f.Unite(0, (int)i);
    if (k == 0 || rr.rows[k - 1].y + 1 != rr.rows[k].y) continue;
    size_t i = g.rowFirst[k - 1], j = g.rowFirst[k];
    while (i < g.rowFirst[k] && j < g.rowFirst[k + 1]) {
      if (g.a[i] <= g.b[j] + 1 && g.a[j] <= g.b[i] + 1) f.Unite((int)i, (int)j);
      if (g.b[i] < g.b[j])
        ++i;
      else
        ++j;
    }
  }
  SizeTo(root, (long long)g.a.size());
  for (size_t i = 0; i < g.a.size(); ++i) root[i] = f.Find((int)i);
}

// Nesting depth of every component (see the file comment).
void Depths(const RunRows& rr, const std::vector<int>& label, int n, const Gaps& g, const std::vector<int>& gapRoot,
            std::vector<int>& depth) {
  std::vector<int> first;  // the top-left run of each component
  SizeTo(first, n);
  for (size_t i = rr.runs.size(); i-- > 0;) first[(size_t)label[i]] = (int)i;
  SizeTo(depth, n);
  for (int c = 0; c < n; ++c) {
    const int around = gapRoot[(size_t)g.runLeftGap[(size_t)first[(size_t)c]]];
    // An enclosed gap's top-left gap has a run on its left (it does not
    // touch the border), which belongs to an earlier component.
    depth[(size_t)c] = around == 0 ? 0 : depth[(size_t)label[(size_t)g.leftRun[(size_t)around]]] + 1;
  }
}

// The connected pieces of a prepared operand, in DivideUp's order.
void Components(const Operand& src, PieceList& pieces) {
  RunRows rr;
  Collect(src, kPlane, rr);
  std::vector<int> label;
  const int n = LabelRuns(rr, label);
  BuildPieces(rr, label, n, nullptr, pieces);
}

bool IsValidOrFail(const RSRLINE* p, const char* op) {
  return p && CRstLines::IsValid(p) ? true : Fail(op, kInvalidRegion);
}

}  // namespace

CRasterArray* CRstLines::DivideUp(const CRasterArray* arr) {
  static const char op[] = "CRstLines::DivideUp";
  if (!arr) {
    Fail(op, kInvalidRegion);
    return nullptr;
  }
  CRasterArray* result = nullptr;
  Guarded(op, [&] {
    Operand src;
    if (!src.Prepare(arr)) return Fail(op, kInvalidRegion);
    PieceList pieces;
    Components(src, pieces);
    OwnedArray out = NewArray();
    pieces.MoveTo(out.get());
    result = out.release();
    return true;
  });
  return result;
}

BOOL CRstLines::DivideUp(const RSRLINE* piece, CRasterArray& out) {
  static const char op[] = "CRstLines::DivideUp";
  if (!IsValidOrFail(piece, op)) return FALSE;
  return Guarded(op, [&] {
    Operand src;
    if (!src.Prepare(piece)) return Fail(op, kInvalidRegion);
    PieceList pieces;
    Components(src, pieces);
    ReserveFor(out.vec(), (long long)out.GetSize() + pieces.Size());
    for (RSRLINE* p : pieces.Get()) out.Add(p);  // within the reserved room
    pieces.Disown();
    return true;
  });
}

BOOL CRstLines::DividebyLayer(const CRasterArray* arr, const RECT& rc, CRasterArray* out, CArray<int, int>* depths) {
  static const char op[] = "CRstLines::DividebyLayer";
  if (!arr || !out) return Fail(op, kInvalidRegion);
  return Guarded(op, [&] {
    Operand src;
    if (!src.Prepare(arr)) return Fail(op, kInvalidRegion);
    RunRows rr;
    const Area area = {rc.left, rc.top, rc.right, rc.bottom};
    if (area.left < area.right && area.top < area.bottom) Collect(src, area, rr);
    std::vector<int> label, gapRoot, depth;
    const int n = LabelRuns(rr, label);
    Gaps g;
    LabelGaps(rr, area.left, area.right - 1, g, gapRoot);
    Depths(rr, label, n, g, gapRoot, depth);
    // Stable order by depth: components keep their order within a layer.
    std::vector<int> byDepth, rank;
    SizeTo(byDepth, n);
    SizeTo(rank, n);
    for (int c = 0; c < n; ++c) byDepth[(size_t)c] = c;
    std::stable_sort(byDepth.begin(), byDepth.end(),
                     [&](int a, int b) { return depth[(size_t)a] < depth[(size_t)b]; });
    for (int k = 0; k < n; ++k) rank[(size_t)byDepth[(size_t)k]] = k;
    PieceList pieces;
    BuildPieces(rr, label, n, &rank, pieces);
    CArray<int, int> d;
    SizeTo(d.vec(), n);
    for (int k = 0; k < n; ++k) d[k] = depth[(size_t)byDepth[(size_t)k]];
    pieces.MoveTo(out);
    if (depths) depths->vec().swap(d.vec());
    return true;
  });
}

BOOL CRstLines::OutLineInsideRstline(RSRLINE* const outline, RSRLINE* const filled) {
  static const char op[] = "CRstLines::OutLineInsideRstline";
  if (!IsValidOrFail(outline, op) || !IsValidOrFail(filled, op)) return FALSE;
  BOOL inside = FALSE;
  Guarded(op, [&] {
    Operand f, o;
    if (!f.Prepare(filled) || !o.Prepare(outline)) return Fail(op, kInvalidRegion);
    RunRows fr, orr;
    Collect(f, kPlane, fr);
    Collect(o, kPlane, orr);
    if (orr.runs.empty() || fr.runs.empty()) return true;
    // One column of border on each side: every gap that reaches it is
    // outside, every other gap is a hole of filled.
    const long long left = (long long)filled->rcBox.left - 1, right = (long long)filled->rcBox.right + 1;
    Gaps g;
    std::vector<int> gapRoot;
    LabelGaps(fr, left, right, g, gapRoot);
    size_t k = 0;  // the filled row at or below the outline row
    for (const Row& row : orr.rows) {
      while (k < fr.rows.size() && fr.rows[k].y < row.y) ++k;
      if (k == fr.rows.size() || fr.rows[k].y != row.y) return true;  // outside
      // The row's solid spans: runs joined across the holes between them.
      const Row& fw = fr.rows[k];
      size_t gi = g.rowFirst[k] + (fr.runs[fw.begin].x1 > left ? 1 : 0);
      size_t i = row.begin;
      long long start = fr.runs[fw.begin].x1;
      for (size_t j = fw.begin; j < fw.end && i < row.end; ++j) {
        const bool joined = j + 1 < fw.end && gapRoot[gi] != 0;
        if (j + 1 < fw.end) ++gi;
        if (joined) continue;
        const long long end = fr.runs[j].x2;
        for (; i < row.end && orr.runs[i].x2 <= end; ++i)
          if (orr.runs[i].x1 < start) return true;
        if (j + 1 < fw.end) start = fr.runs[j + 1].x1;
      }
      if (i < row.end) return true;
    }
    inside = TRUE;
    return true;
  });
  return inside;
}
