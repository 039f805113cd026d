// cloopgrpopt_trace.cpp - CLoopGrpOpt::RasterToPts: tracing one region
// piece into closed loops (the rules are stated in cloopgrpopt.h).
//
// One pass over the rows links every run end to its successor on the
// boundary; the links form disjoint cycles, one per outline. One walk of
// the cycles in emission order writes their points into the scratch, from
// which they are copied into the exactly sized output blocks. Time is
// linear in the runs; the scratch is one block. Following the links is
// bound by memory latency on large pieces. Measured by bench_cloopgrpopt
// against OpenCV's findContours.
//
// Relies on the region engine's machinery (crstlines_core.h) for the
// piece check, sizes and scratch blocks, and on the memory manager.
#include <algorithm>
#include <climits>
#include <cstring>

#include "crstlines_core.h"
#include "tqbase/cloopgrpopt.h"
#include "tqbase/memorymanage.h"

using namespace tqrgn;

namespace {

const char kTraceOp[] = "CLoopGrpOpt::RasterToPts";

// Node flags.
enum : unsigned char {
  kStart = 1,      // the node starts a loop (a run's right end)
  kSeen = 2,       // passed
  kViaAbove = 8,   // the link from this node goes round through the row above
  kViaBelow = 16,  // ... through the row below
};

class Tracer {
public:
  Tracer(const RSRUN* runs, const int* counts, long long nRuns, long long nRows, long long top)
      : m_runs(runs), m_counts(counts), m_nRuns(nRuns), m_nRows(nRows), m_top(top) {}

  // Links every node; throws on failure.
  void Link() {
    const long long nodes = CheckedCount(2 * m_nRuns);
    // One scratch block, in 8-byte units: the points as they are walked (at
    // most three a node, one more a loop; loops have two nodes at least),
    // the links (an int a node), the loop sizes, the row of every run, and
    // the flags (a byte a node).
    m_cap = CheckedCount(3 * nodes + nodes / 2 + 1);
    const long long units =
        CheckedCount(m_cap + nodes / 2 + 1 + (nodes / 2 + 1) / 2 + 1 + m_nRuns / 2 + 1 + nodes / 8 + 1);
    m_points = m_scratch.Get<POINT>(units);
    m_next = reinterpret_cast<int*>(m_points + m_cap);
    m_sizes = m_next + nodes;
    m_row = m_sizes + nodes / 2 + 1;
    m_flags = reinterpret_cast<unsigned char*>(m_row + m_nRuns);
    std::memset(m_flags, 0, (size_t)nodes);
    long long first = 0;  // index of the first run of the row above
    int above = 0;        // runs of the row above
    for (long long k = 0; k < m_nRows; ++k) {
      const int n = m_counts[k];
      for (int i = 0; i < n; ++i) m_row[first + above + i] = (int)k;
      LinkRows(first, above, first + above, n);
      first += above;
      above = n;
    }
    LinkRows(first, above, first + above, 0);  // the last row closes underneath
  }

  // Walks the cycles in emission order into the scratch, then copies the
  // points and sizes into new exactly sized blocks.
  void Emit(POINT*& pts, int& nPts, int*& sizes, int& nLoops) {
    const long long nodes = 2 * m_nRuns;
    long long loops = 0, points = 0;
    auto walk = [&](long long v) {
      const long long n = Walk((int)v, m_points + points);
      m_sizes[loops++] = (int)n;
      points += n;
    };
    // The started loops in the order they were started (a loop starts at a
    // right end; runs are numbered row by row, left to right), then every
    // cycle not passed yet in the order of its first node.
    for (long long v = 1; v < nodes; v += 2)
      if ((m_flags[v] & (kStart | kSeen)) == kStart) walk(v);
    for (long long v = 0; v < nodes; ++v)
      if (!(m_flags[v] & kSeen)) walk(v);
    if (loops > INT_MAX || points > INT_MAX) throw TooLarge();
    OwnedBlock pb(points * (long long)sizeof(POINT)), sb(loops * (long long)sizeof(int));
    std::memcpy(pb.p, m_points, (size_t)points * sizeof(POINT));
    std::memcpy(sb.p, m_sizes, (size_t)loops * sizeof(int));
    pts = static_cast<POINT*>(pb.Release());
    sizes = static_cast<int*>(sb.Release());
    nPts = (int)points;
    nLoops = (int)loops;
  }

private:
  // A memory-manager block freed unless released.
  struct OwnedBlock {
    void* p;
    explicit OwnedBlock(long long bytes) {
      if (bytes > 0xFFFFFFF0LL) throw TooLarge();
      p = AGlobalAllocPtr(GMEM_FIXED, (DWORD)(bytes ? bytes : 1));
      if (!p) throw std::bad_alloc();
    }
    ~OwnedBlock() {
      if (p) AGlobalFreePtr(p);
    }
    void* Release() {
      void* r = p;
      p = nullptr;
      return r;
    }
  };

  static int Left(long long run) { return (int)(2 * run); }
  static int Right(long long run) { return (int)(2 * run + 1); }

  // Links the runs of the row above (a: n of them from index ua) with the
  // runs of the row below (b: m from index lb).
  void LinkRows(long long ua, int n, long long lb, int m) {
    const RSRUN* U = m_runs + ua;
    const RSRUN* L = m_runs + lb;
    int i = 0, j = 0;
    while (i < n || j < m) {
      if (j >= m || (i < n && U[i].x2 < L[j].x1)) {
        m_next[Left(ua + i)] = Right(ua + i);  // nothing below: closes underneath
        ++i;
        continue;
      }
      if (i >= n || L[j].x2 < U[i].x1) {
        m_next[Right(lb + j)] = Left(lb + j);  // nothing above: starts a loop
        m_flags[Right(lb + j)] |= kStart;
        ++j;
        continue;
      }
      // A cluster: extend while the next upper meets the last lower or the
      // next lower meets the last upper.
      int i1 = i, j1 = j;
      for (;;) {
        if (i1 + 1 < n && U[i1 + 1].x1 <= L[j1].x2)
          ++i1;
        else if (j1 + 1 < m && L[j1 + 1].x1 <= U[i1].x2)
          ++j1;
        else
          break;
      }
      m_next[Left(ua + i)] = Left(lb + j);      // the left side goes down
      m_next[Right(lb + j1)] = Right(ua + i1);  // the right side goes up
      for (int k = j; k < j1; ++k) {
        m_next[Right(lb + k)] = Left(lb + k + 1);
        m_flags[Right(lb + k)] |= kViaAbove;
      }
      for (int k = i; k < i1; ++k) {
        m_next[Left(ua + k + 1)] = Right(ua + k);
        m_flags[Left(ua + k + 1)] |= kViaBelow;
      }
      i = i1 + 1;
      j = j1 + 1;
    }
  }

  POINT At(int node) const {
    const RSRUN& r = m_runs[node >> 1];
    return POINT{(node & 1) ? r.x2 : r.x1, (LONG)(m_top + m_row[node >> 1])};
  }

  // Writes the points of the cycle from start at out, marking its nodes;
  // returns their number.
  long long Walk(int start, POINT* out) {
    long long n = 0;
    const POINT first = At(start);
    out[n++] = first;
    POINT a = first;
    int v = start;
    do {
      m_flags[v] |= kSeen;
      const unsigned char f = m_flags[v];
      const int w = m_next[v];
      const POINT b = At(w);
      if (f & kViaAbove) {
        out[n++] = POINT{a.x, a.y - 1};
        out[n++] = POINT{b.x, b.y - 1};
      } else if (f & kViaBelow) {
        out[n++] = POINT{a.x, a.y + 1};
        out[n++] = POINT{b.x, b.y + 1};
      } else if (a.y != b.y && (b.x - (long long)a.x > 1 || a.x - (long long)b.x > 1)) {
        out[n++] = (b.x > a.x) == (b.y > a.y) ? POINT{b.x, a.y} : POINT{a.x, b.y};
      }
      if (w != start) out[n++] = b;
      a = b;
      v = w;
    } while (v != start);
    const POINT& last = out[n - 1];
    if (last.x != first.x || last.y != first.y) out[n++] = first;
    return n;
  }

  const RSRUN* m_runs;
  const int* m_counts;
  long long m_nRuns, m_nRows, m_top;
  Scratch m_scratch;
  long long m_cap = 0;  // points the scratch holds
  POINT* m_points = nullptr;
  int* m_next = nullptr;
  int* m_sizes = nullptr;
  int* m_row = nullptr;
  unsigned char* m_flags = nullptr;
};

}  // namespace

BOOL CLoopGrpOpt::RasterToPts(const RSRLINE* piece, POINT*& pts, int& nPts, int*& sizes, int& nLoops) {
  pts = nullptr;
  nPts = 0;
  sizes = nullptr;
  nLoops = 0;
  if (!piece || piece->arRun.GetSize() == 0) return FALSE;
  const int f = CheckPiece(piece);
  if (!(f & kPieceValid)) {
    ASSERT(!"CLoopGrpOpt::RasterToPts: invalid piece");
    return Fail(kTraceOp, kInvalidRegion);
  }
  return Guarded(kTraceOp, [&] {
    // Rows that are not sorted and merged are made so first.
    std::vector<RSRUN> sortedRuns;
    std::vector<int> sortedCounts;
    const RSRUN* runs = piece->arRun.GetData();
    const int* counts = piece->arCount.GetData();
    long long nRuns = piece->arRun.GetSize();
    const long long nRows = piece->arCount.GetSize();
    if (!(f & kPieceSorted)) {
      sortedRuns.assign(runs, runs + nRuns);
      SizeTo(sortedCounts, nRows);
      long long in = 0, out = 0;
      for (long long k = 0; k < nRows; ++k) {
        const int m = SortMergeRow(sortedRuns.data() + in, counts[k]);
        std::memmove(sortedRuns.data() + out, sortedRuns.data() + in, (size_t)m * sizeof(RSRUN));
        in += counts[k];
        out += m;
        sortedCounts[(size_t)k] = m;
      }
      runs = sortedRuns.data();
      counts = sortedCounts.data();
      nRuns = out;
    }
    Tracer t(runs, counts, nRuns, nRows, piece->rcBox.top);
    t.Link();
    t.Emit(pts, nPts, sizes, nLoops);
    return true;
  });
}
