// test_region_failures.cpp - every region creator, combiner, cycle
// operation and mirror driven with its 1st, 2nd, ... allocation failing
// until it succeeds: each failing run must report failure with a text in
// g_Error, leave its operands and destination exactly as they were, and
// leak nothing (heap and memory-manager blocks counted here; the sanitizer
// run checks the rest).
//
// This suite links the library's objects, so that the C++ heap below and
// the memory manager's blocks both go through the failure injection.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "allocfail.h"
#include "tqbase/tqbase.h"

namespace {
std::atomic<long long> g_live{0};  // heap blocks allocated and not freed

// fallible: a throwing form (std::nothrow forms are left to succeed: the
// standard library's temporary buffers fall back to slower algorithms
// when they fail, so their failure is no failure of the operation).
void* Allocate(size_t n, bool fallible = true) {
  if (fallible && tqbase::allocfail::Fails()) return nullptr;
  void* p = std::malloc(n ? n : 1);
  if (p) ++g_live;
  return p;
}
void Free(void* p) {
  if (!p) return;
  --g_live;
  std::free(p);
}
}  // namespace

void* operator new(size_t n) {
  if (void* p = Allocate(n)) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t n) {
  if (void* p = Allocate(n)) return p;
  throw std::bad_alloc();
}
void* operator new(size_t n, const std::nothrow_t&) noexcept { return Allocate(n, false); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return Allocate(n, false); }
void operator delete(void* p) noexcept { Free(p); }
void operator delete[](void* p) noexcept { Free(p); }
void operator delete(void* p, size_t) noexcept { Free(p); }
void operator delete[](void* p, size_t) noexcept { Free(p); }

namespace {

// A deep copy of a raster array's content, for comparing before and after.
struct Snapshot {
  std::vector<std::vector<RSRUN>> runs;
  std::vector<std::vector<int>> counts;
  std::vector<RECT> boxes;
  const void* identity = nullptr;
  explicit Snapshot(const CRasterArray* a) {
    identity = a;
    if (!a) return;
    for (const RSRLINE* p : *a) {
      runs.emplace_back(p->arRun.begin(), p->arRun.end());
      counts.emplace_back(p->arCount.begin(), p->arCount.end());
      boxes.push_back(p->rcBox);
    }
  }
  explicit Snapshot(const CRstLines& r) : Snapshot(r.GetData()) {
    boxes.push_back(r.GetBox());
  }
  bool operator==(const Snapshot& o) const {
    if (identity != o.identity || boxes.size() != o.boxes.size() || runs.size() != o.runs.size()) return false;
    for (size_t i = 0; i < boxes.size(); ++i)
      if (!EqualRect(&boxes[i], &o.boxes[i])) return false;
    for (size_t i = 0; i < runs.size(); ++i) {
      if (counts[i] != o.counts[i] || runs[i].size() != o.runs[i].size()) return false;
      for (size_t k = 0; k < runs[i].size(); ++k)
        if (runs[i][k].x1 != o.runs[i][k].x1 || runs[i][k].x2 != o.runs[i][k].x2) return false;
    }
    return true;
  }
};

// The operands every scenario starts from, made anew for each run.
struct World {
  CRstLines a, b, dst;
  CRasterArray* arrA = nullptr;  // a's array as a raw array (not owned)
  World() {
    // a: a ring with a hole (two pieces after a difference), b: a
    // triangle crossing it, dst: a region to be changed in place.
    POINT square[] = {{0, 0}, {60, 0}, {60, 60}, {0, 60}};
    POINT inner[] = {{20, 20}, {40, 20}, {40, 40}, {20, 40}};
    POINT tri[] = {{30, -10}, {90, 50}, {10, 70}};
    POINT star[] = {{50, 0}, {60, 40}, {100, 50}, {60, 60}, {50, 100}, {40, 60}, {0, 50}, {40, 40}};
    a.Create(square, 4, ALTERNATE_FILL);
    CRstLines hole;
    hole.Create(inner, 4, ALTERNATE_FILL);
    a.Add(hole.GetData(), 0, nullptr);
    b.Create(tri, 3, WINDING_FILL);
    dst.Create(star, 8, ALTERNATE_FILL);
    CRstLines far;
    far.Create(RECT{200, 200, 230, 240});
    dst.Add(far.GetData(), 1, nullptr);
    arrA = a.GetData();
  }
};

// A half-drop style repeat: 50 x 40 tiles, each column shifted by 13 rows.
const ACycle* Cycle(bool on) {
  static const ACycle cycle = [] {
    CYCLEINFO ci;
    ci.onOff = 1;
    ci.width = 50;
    ci.height = 40;
    ci.param = 13;
    ci.way = 1;
    return ACycle(ci);
  }();
  return on ? &cycle : nullptr;
}

// Runs op with its 1st, 2nd, ... allocation failing. op returns true on
// success; watched lists the objects that must not change on failure;
// cleanup frees what a successful or failed run handed out.
void DriveToSuccess(const char* name, const std::function<bool(World&)>& op,
                    const std::function<std::vector<Snapshot>(World&)>& watched,
                    const std::function<void(World&)>& cleanup = nullptr) {
  // Assertions on the way are expected; hooks that keep nothing, so that
  // they allocate nothing.
  const TQASSERTHANDLER oldHandler = tqSetAssertHandler([](const char*, int, const char*) {});
  const TQTRACESINK oldSink = tqSetTraceSink([](const char*) {});
  struct Restore {
    TQASSERTHANDLER h;
    TQTRACESINK s;
    ~Restore() {
      tqSetAssertHandler(h);
      tqSetTraceSink(s);
    }
  } restore{oldHandler, oldSink};
  g_Error.SetLastError("%s", "a long text that keeps the record's buffer on the heap");
  {
    // One run without failures first: the library's lookup tables reach the
    // size this operation needs and stay there, so that they are not taken
    // for leaks below.
    World w;
    op(w);
    if (cleanup) cleanup(w);
  }
  for (long long n = 1; n < 5000; ++n) {
    World w;
    const std::vector<Snapshot> before = watched(w);
    g_Error.ClearError();
    const long long live = g_live;
    const int blocks = AGV::GetGlobalAllocCount(), pages = AGV::GetVirtualAllocCount();
    tqbase::allocfail::Arm(n);
    const bool ok = op(w);
    const bool fired = tqbase::allocfail::Fired();
    tqbase::allocfail::Arm(0);
    if (!fired) {
      EXPECT_TRUE(ok) << name << ": no allocation failed, yet the operation did";
      if (cleanup) cleanup(w);
      return;
    }
    EXPECT_FALSE(ok) << name << " reports success with allocation " << n << " failing";
    EXPECT_TRUE(g_Error.IsError()) << name << ": no text for the failure of allocation " << n;
    {
      const std::vector<Snapshot> after = watched(w);
      for (size_t i = 0; i < before.size(); ++i)
        EXPECT_TRUE(before[i] == after[i]) << name << ": object " << i << " changed when allocation " << n << " failed";
    }
    if (cleanup) cleanup(w);
    g_Error.ClearError();
    EXPECT_EQ(g_live, live) << name << ": heap blocks leaked when allocation " << n << " failed (" << g_live - live << ")";
    EXPECT_EQ(AGV::GetGlobalAllocCount(), blocks) << name << ": memory blocks leaked (allocation " << n << ")";
    EXPECT_EQ(AGV::GetVirtualAllocCount(), pages) << name << ": pages leaked (allocation " << n << ")";
    if (::testing::Test::HasFailure()) return;
  }
  ADD_FAILURE() << name << " never succeeded";
}

std::vector<Snapshot> Operands(World& w) { return {Snapshot(w.a), Snapshot(w.b), Snapshot(w.dst)}; }

CRasterArray* g_out = nullptr;  // a result handed out by a static creator
RSRLINE* g_piece = nullptr;
void FreeOut(World&) {
  CRstLines::Delete(g_out);
  CRstLines::Delete(g_piece);
}

const POINT kStar[] = {{50, 0}, {60, 40}, {100, 50}, {60, 60}, {50, 100}, {40, 60}, {0, 50}, {40, 40}};
const POINT kSet[] = {{0, 0}, {30, 0}, {30, 20}, {0, 20},  // a rectangle
                      {10, 5}, {50, 15}, {20, 40},         // a triangle (monotone)
                      {50, 0}, {60, 40}, {100, 50}, {60, 60}, {50, 100}, {40, 60}, {0, 50}, {40, 40}};
const int kSetCounts[] = {4, 3, 8};

}  // namespace

TEST(RegionFailures, Creators) {
  DriveToSuccess("CreateRaster", [](World&) { return (g_piece = CRstLines::CreateRaster(kStar, 8, 1)) != nullptr; },
                 Operands, FreeOut);
  DriveToSuccess("CreateRasterArray(polygon)",
                 [](World&) { return (g_out = CRstLines::CreateRasterArray(kStar, 8, 2)) != nullptr; }, Operands,
                 FreeOut);
  for (int join = 0; join <= 1; ++join)
    DriveToSuccess(join ? "CreateRasterArray(set, joined)" : "CreateRasterArray(set)",
                   [join](World&) { return (g_out = CRstLines::CreateRasterArray(kSet, kSetCounts, 3, 1, join)) != nullptr; },
                   Operands, FreeOut);
  DriveToSuccess("Create(polygon)", [](World& w) { return w.dst.Create(kStar, 8, WINDING_FILL) != FALSE; }, Operands);
  DriveToSuccess("Create(set)", [](World& w) { return w.dst.Create(kSet, kSetCounts, 3, ALTERNATE_FILL, 0) != FALSE; },
                 Operands);
  DriveToSuccess("Create(rect)", [](World& w) { return w.dst.Create(RECT{5, 5, 50, 70}, 2, 1.5) != FALSE; }, Operands);
  DriveToSuccess("Copy", [](World& w) { return w.dst.Copy(&w.a) != FALSE; }, Operands);
  DriveToSuccess("CopyRasterArray",
                 [](World& w) { return CRstLines::CopyRasterArray(w.dst.GetData(), w.a.GetData()) != FALSE; },
                 [](World& w) { return std::vector<Snapshot>{Snapshot(w.a.GetData()), Snapshot(w.dst.GetData())}; });
  DriveToSuccess("CopyRaster",
                 [](World& w) { return CRstLines::CopyRaster(w.dst.GetData()->GetAt(0), w.a.GetData()->GetAt(0)) != FALSE; },
                 Operands);
}

TEST(RegionFailures, Combiners) {
  typedef BOOL (*PieceOp)(const RSRLINE*, const RSRLINE*, CRasterArray*);
  const PieceOp pieceOps[] = {CRstLines::ANDPolylines, CRstLines::ORPolylines, CRstLines::DIFFPolylines,
                              CRstLines::XORPolylines};
  for (int m = 0; m < 4; ++m) {
    DriveToSuccess(("piece op " + std::to_string(m)).c_str(),
                   [&](World& w) { return pieceOps[m](w.a.GetData()->GetAt(0), w.b.GetData()->GetAt(0), w.dst.GetData()) != FALSE; },
                   [](World& w) { return std::vector<Snapshot>{Snapshot(w.a.GetData()), Snapshot(w.b.GetData()), Snapshot(w.dst.GetData())}; });
    const int mode = RST_AND + m;
    DriveToSuccess(("CreateRasterArray(a, b) " + std::to_string(mode)).c_str(),
                   [mode](World& w) { return (g_out = CRstLines::CreateRasterArray(w.a.GetData()->GetAt(0), w.b.GetData()->GetAt(0), mode)) != nullptr; },
                   Operands, FreeOut);
    for (int cyc = 0; cyc <= 1; ++cyc) {
      DriveToSuccess(("Combine static " + std::to_string(mode) + (cyc ? " cycle" : "")).c_str(),
                     [mode, cyc](World& w) {
                                              const int rc = CRstLines::Combine(w.a.GetData(), w.b.GetData(), mode, &g_out, Cycle(cyc));
                       return rc != RST_FAILED;
                     },
                     Operands, FreeOut);
      DriveToSuccess(("Combine member " + std::to_string(mode) + (cyc ? " cycle" : "")).c_str(),
                     [mode, cyc](World& w) {
                                              const int rc = w.dst.Combine(&w.a, &w.b, mode, Cycle(cyc));
                       return rc != RST_FAILED;
                     },
                     Operands);
      DriveToSuccess(("Combine in place " + std::to_string(mode) + (cyc ? " cycle" : "")).c_str(),
                     [mode, cyc](World& w) {
                                              const int rc = w.dst.Combine(&w.dst, &w.b, mode, Cycle(cyc));
                       return rc != RST_FAILED;
                     },
                     Operands);
    }
  }
  for (int add = 0; add <= 1; ++add)
    for (int cyc = 0; cyc <= 1; ++cyc)
      DriveToSuccess(("Add " + std::to_string(add) + (cyc ? " cycle" : "")).c_str(),
                     [add, cyc](World& w) {
                                              const int rc = w.dst.Add(w.a.GetData()->GetAt(0), add, Cycle(cyc));
                       return rc != RST_FAILED;
                     },
                     Operands);
}

TEST(RegionFailures, CyclesAndMirrors) {
  DriveToSuccess("CombineCycleRst",
                 [](World& w) {
                                      const int rc = CRstLines::CombineCycleRst(&w.dst, &w.b, Cycle(true));
                   return rc != RST_FAILED;
                 },
                 Operands);
  DriveToSuccess("Cycle",
                 [](World& w) {
                                      const RECT rc = {-30, -20, 170, 130};
                   const BOOL ok = w.dst.Cycle(Cycle(true), &rc);
                   return ok != FALSE;
                 },
                 Operands);
  DriveToSuccess("Cycle clip", [](World& w) { const RECT rc = {10, 10, 70, 80}; return w.dst.Cycle(nullptr, &rc) != FALSE; },
                 Operands);
  DriveToSuccess("CalLocal",
                 [](World& w) {
                                      const BOOL ok = w.dst.CalLocal(Cycle(true));
                   return ok != FALSE;
                 },
                 Operands);
  DriveToSuccess("mirrors", [](World& w) {
    w.dst.HorMirror();
    w.dst.VerMirror();
    CRstLines::HorMirror(w.a.GetData(), CRect(0, 0, 60, 60));
    CRstLines::VerMirror(w.a.GetData(), CRect(0, 0, 60, 60));
    return true;
  }, [](World&) { return std::vector<Snapshot>(); });
  DriveToSuccess("SetData copy",
                 [](World& w) {
                   w.dst.SetData(w.a.GetData());
                   return CRstLines::IsEqual(w.dst.GetData(), w.a.GetData()) != FALSE;
                 },
                 Operands);
}
