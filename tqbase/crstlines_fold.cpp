// crstlines_fold.cpp - the base-cell copy of a region's repeat: every run
// cut into its per-tile pieces (crstlines_fold.h), the pieces bucketed by
// cell row and united per row.
//
// Relies on crstlines_core.h and on ACycle's folding of points.
#include "crstlines_fold.h"

#include <cstdint>

namespace tqrgn {

bool CycleUsable(const ACycle* cycle) {
  return cycle && cycle->CycleOnOff() && cycle->CycleWidth() >= 1 && cycle->CycleHeight() >= 1;
}

void WrapArray(const CRasterArray* src, const CYCLEINFO* ci, PieceList& out) {
  struct Cut {
    int y, x1, x2;
  };
  const int H = ci->height;
  std::vector<Cut> cuts;
  for (const RSRLINE* p : *src) {
    if (!p) continue;
    const RSRUN* r = p->arRun.GetData();
    long long y = p->rcBox.top;
    for (int c : p->arCount) {
      for (int i = 0; i < c; ++i, ++r) {
        WalkRun(r->x1, (int)y, (long long)r->x2 - r->x1 + 1, ci, true,
                [&](long long py, long long a, long long b, long long) {
                  if (cuts.size() == cuts.capacity())
                    ReserveFor(cuts, std::min(2 * (long long)cuts.size() + 16, kMaxItems + 1));
                  cuts.push_back(Cut{(int)py, (int)a, (int)b});
                });
      }
      ++y;
    }
  }
  if (cuts.empty()) return;
  // Counting sort by cell row, then each row sorted and merged.
  std::vector<uint32_t> start;
  SizeTo(start, (long long)H + 1);
  for (const Cut& t : cuts) ++start[(size_t)t.y + 1];
  for (int k = 0; k < H; ++k) start[(size_t)k + 1] += start[(size_t)k];
  std::vector<RSRUN> rows;
  SizeTo(rows, (long long)cuts.size());
  std::vector<uint32_t> pos(start.begin(), start.end() - 1);
  for (const Cut& t : cuts) rows[pos[(size_t)t.y]++] = RSRUN{t.x1, t.x2};
  std::vector<Cut>().swap(cuts);
  RowWriter w;
  w.Init((long long)rows.size(), H);
  for (int k = 0; k < H; ++k) {
    RSRUN* r = rows.data() + start[(size_t)k];
    const int n = SortMergeRow(r, (int)(start[(size_t)k + 1] - start[(size_t)k]));
    RSRUN* o = w.Out();
    std::memcpy(o, r, (size_t)n * sizeof(RSRUN));
    w.EndRow(k, o + n);
  }
  w.Flush(out);
}

}  // namespace tqrgn
