// test_region_failures.cpp - every region creator, combiner, cycle
// operation and mirror, the loop groups, morphology, shapes, codecs, the
// colour engine and the preferences, driven with their 1st, 2nd, ...
// allocation failing until they succeed: each failing run must report
// failure with a text in g_Error, leave its operands, destination and
// files exactly as they were, and leak nothing (heap and memory-manager
// blocks counted here; the sanitizer run checks the rest).
//
// This suite links the library's objects, so that the C++ heap below and
// the memory manager's blocks both go through the failure injection.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "allocfail.h"
#include "test_support.h"
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
    CRstLines distant;
    distant.Create(RECT{200, 200, 230, 240});
    dst.Add(distant.GetData(), 1, nullptr);
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

// What a static creator handed out, freed after every run.
CRasterArray* g_out = nullptr;
RSRLINE* g_piece = nullptr;
POINT* g_pts = nullptr;
int* g_sizes = nullptr;
ANLOOP* g_loop = nullptr;
ANLOOPGRP* g_grp = nullptr;
void FreeOut() {
  CRstLines::Delete(g_out);
  CRstLines::Delete(g_piece);
  AGlobalFreePtr(g_pts);
  AGlobalFreePtr(g_sizes);
  g_pts = nullptr;
  g_sizes = nullptr;
  CLoopGrpOpt::DeleteAnloop(g_loop);
  CLoopGrpOpt::DeleteAnloopGrp(g_grp);
}

// Runs op with its 1st, 2nd, ... allocation failing. op returns true on
// success; watched lists the objects that must not change on failure.
void DriveToSuccess(const std::string& name, const std::function<bool(World&)>& op,
                    const std::function<std::vector<Snapshot>(World&)>& watched) {
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
    FreeOut();
  }
  for (long long n = 1; n < 5000; ++n) {
    World w;
    const std::vector<Snapshot> before = watched(w);
    const std::string at = name + " with allocation " + std::to_string(n) + " failing";
    g_Error.ClearError();
    const long long live = g_live;
    const int blocks = AGV::GetGlobalAllocCount(), pages = AGV::GetVirtualAllocCount();
    tqbase::allocfail::Arm(n);
    const bool ok = op(w);
    const bool fired = tqbase::allocfail::Fired();
    tqbase::allocfail::Arm(0);
    if (!fired) {
      EXPECT_TRUE(ok) << name << ": no allocation failed, yet the operation did";
      FreeOut();
      return;
    }
    EXPECT_FALSE(ok) << at << ": reports success";
    EXPECT_TRUE(g_Error.IsError()) << at << ": no text";
    {
      const std::vector<Snapshot> after = watched(w);
      for (size_t i = 0; i < before.size(); ++i) EXPECT_TRUE(before[i] == after[i]) << at << ": object " << i << " changed";
    }
    FreeOut();
    g_Error.ClearError();
    EXPECT_EQ(g_live, live) << at << ": heap blocks leaked";
    EXPECT_EQ(AGV::GetGlobalAllocCount(), blocks) << at << ": memory blocks leaked";
    EXPECT_EQ(AGV::GetVirtualAllocCount(), pages) << at << ": pages leaked";
    if (::testing::Test::HasFailure()) return;
  }
  ADD_FAILURE() << name << " never succeeded";
}

std::vector<Snapshot> Operands(World& w) { return {Snapshot(w.a), Snapshot(w.b), Snapshot(w.dst)}; }
std::vector<Snapshot> Arrays(World& w) {
  return {Snapshot(w.a.GetData()), Snapshot(w.b.GetData()), Snapshot(w.dst.GetData())};
}

const POINT kStar[] = {{50, 0}, {60, 40}, {100, 50}, {60, 60}, {50, 100}, {40, 60}, {0, 50}, {40, 40}};
const POINT kSet[] = {{0, 0}, {30, 0}, {30, 20}, {0, 20},  // a rectangle
                      {10, 5}, {50, 15}, {20, 40},         // a triangle (monotone)
                      {50, 0}, {60, 40}, {100, 50}, {60, 60}, {50, 100}, {40, 60}, {0, 50}, {40, 40}};
const int kSetCounts[] = {4, 3, 8};

const RSRLINE* PieceOf(const CRstLines& r) { return r.GetData()->GetAt(0); }

}  // namespace

TEST(RegionFailures, Creators) {
  DriveToSuccess("CreateRaster", [](World&) { return (g_piece = CRstLines::CreateRaster(kStar, 8, 1)) != nullptr; }, Operands);
  DriveToSuccess("CreateRasterArray", [](World&) { return (g_out = CRstLines::CreateRasterArray(kStar, 8, 2)) != nullptr; },
                 Operands);
  for (int join = 0; join <= 1; ++join)
    DriveToSuccess("CreateRasterArray(set) " + std::to_string(join), [join](World&) {
      return (g_out = CRstLines::CreateRasterArray(kSet, kSetCounts, 3, 1, join)) != nullptr;
    }, Operands);
  DriveToSuccess("Create(polygon)", [](World& w) { return w.dst.Create(kStar, 8, WINDING_FILL) != FALSE; }, Operands);
  DriveToSuccess("Create(set)", [](World& w) { return w.dst.Create(kSet, kSetCounts, 3, ALTERNATE_FILL, 0) != FALSE; }, Operands);
  DriveToSuccess("Create(rect)", [](World& w) { return w.dst.Create(RECT{5, 5, 50, 70}, 2, 1.5) != FALSE; }, Operands);
  DriveToSuccess("Copy", [](World& w) { return w.dst.Copy(&w.a) != FALSE; }, Operands);
  DriveToSuccess("CopyRasterArray", [](World& w) { return CRstLines::CopyRasterArray(w.dst.GetData(), w.a.GetData()) != FALSE; },
                 Arrays);
  DriveToSuccess("CopyRaster", [](World& w) {
    return CRstLines::CopyRaster(w.dst.GetData()->GetAt(0), PieceOf(w.a)) != FALSE;
  }, Operands);
  DriveToSuccess("SetData copy", [](World& w) {
    w.dst.SetData(w.a.GetData());
    return CRstLines::IsEqual(w.dst.GetData(), w.a.GetData()) != FALSE;
  }, Operands);
}

TEST(RegionFailures, Combiners) {
  typedef BOOL (*PieceOp)(const RSRLINE*, const RSRLINE*, CRasterArray*);
  const PieceOp pieceOps[] = {CRstLines::ANDPolylines, CRstLines::ORPolylines, CRstLines::DIFFPolylines,
                              CRstLines::XORPolylines};
  for (int mode = RST_AND; mode <= RST_XOR; ++mode) {
    const std::string m = " mode " + std::to_string(mode);
    const PieceOp op = pieceOps[mode - RST_AND];
    DriveToSuccess("two pieces" + m, [op](World& w) { return op(PieceOf(w.a), PieceOf(w.b), w.dst.GetData()) != FALSE; }, Arrays);
    DriveToSuccess("CreateRasterArray(a, b)" + m, [mode](World& w) {
      return (g_out = CRstLines::CreateRasterArray(PieceOf(w.a), PieceOf(w.b), mode)) != nullptr;
    }, Operands);
    for (int cyc = 0; cyc <= 1; ++cyc) {
      const std::string c = m + (cyc ? " on a repeat" : "");
      DriveToSuccess("Combine(arrays)" + c, [mode, cyc](World& w) {
        return CRstLines::Combine(w.a.GetData(), w.b.GetData(), mode, &g_out, Cycle(cyc)) != RST_FAILED;
      }, Operands);
      DriveToSuccess("Combine(a, b)" + c, [mode, cyc](World& w) { return w.dst.Combine(&w.a, &w.b, mode, Cycle(cyc)) != RST_FAILED; },
                     Operands);
      DriveToSuccess("Combine(this, b)" + c, [mode, cyc](World& w) {
        return w.dst.Combine(&w.dst, &w.b, mode, Cycle(cyc)) != RST_FAILED;
      }, Operands);
    }
  }
  for (int add = 0; add <= 1; ++add)
    for (int cyc = 0; cyc <= 1; ++cyc)
      DriveToSuccess("Add " + std::to_string(add) + (cyc ? " on a repeat" : ""), [add, cyc](World& w) {
        return w.dst.Add(PieceOf(w.a), add, Cycle(cyc)) != RST_FAILED;
      }, Operands);
}

TEST(RegionFailures, CyclesAndMirrors) {
  DriveToSuccess("CombineCycleRst", [](World& w) { return CRstLines::CombineCycleRst(&w.dst, &w.b, Cycle(true)) != RST_FAILED; },
                 Operands);
  DriveToSuccess("Cycle", [](World& w) {
    const RECT rc = {-30, -20, 170, 130};
    return w.dst.Cycle(Cycle(true), &rc) != FALSE;
  }, Operands);
  DriveToSuccess("Cycle clip", [](World& w) {
    const RECT rc = {10, 10, 70, 80};
    return w.dst.Cycle(nullptr, &rc) != FALSE;
  }, Operands);
  DriveToSuccess("CalLocal", [](World& w) { return w.dst.CalLocal(Cycle(true)) != FALSE; }, Operands);
  DriveToSuccess("mirrors", [](World& w) {
    w.dst.HorMirror();
    w.dst.VerMirror();
    CRstLines::HorMirror(w.a.GetData(), CRect(0, 0, 60, 60));
    CRstLines::VerMirror(w.a.GetData(), CRect(0, 0, 60, 60));
    return true;
  }, [](World&) { return std::vector<Snapshot>(); });
}

TEST(RegionFailures, LoopGroups) {
  DriveToSuccess("RasterToPts", [](World& w) {
    int nPts = -1, nLoops = -1;
    const BOOL ok = CLoopGrpOpt::RasterToPts(PieceOf(w.a), g_pts, nPts, g_sizes, nLoops);
    if (!ok) {
      EXPECT_TRUE(g_pts == nullptr && g_sizes == nullptr && nPts == 0 && nLoops == 0);
    }
    return ok != FALSE;
  }, Operands);
  DriveToSuccess("CreateAnloop(piece)", [](World& w) { return (g_loop = CLoopGrpOpt::CreateAnloop(PieceOf(w.dst))) != nullptr; },
                 Operands);
  DriveToSuccess("CreateAnloop(rect)", [](World&) { return (g_loop = CLoopGrpOpt::CreateAnloop(RECT{0, 0, 9, 5}, 1, 1.0)) != nullptr; },
                 Operands);
  DriveToSuccess("CreateAnloopGrp(array)", [](World& w) { return (g_grp = CLoopGrpOpt::CreateAnloopGrp(w.dst.GetData())) != nullptr; },
                 Operands);
  DriveToSuccess("CreateAnloopGrp(a, b, xor)", [](World& w) {
    ANLOOPGRP* a = CLoopGrpOpt::CreateAnloopGrp(w.a.GetData());
    ANLOOPGRP* b = CLoopGrpOpt::CreateAnloopGrp(w.b.GetData());
    if (a && b) g_grp = CLoopGrpOpt::CreateAnloopGrp(a, b, RST_XOR);
    CLoopGrpOpt::DeleteAnloopGrp(a);
    CLoopGrpOpt::DeleteAnloopGrp(b);
    return g_grp != nullptr;
  }, Operands);
  DriveToSuccess("Create(group) and copies", [](World& w) {
    ANLOOPGRP* g = CLoopGrpOpt::CreateAnloopGrp(w.a.GetData());
    ANLOOPGRP* c = g ? CLoopGrpOpt::CreateAnloopGrp(g) : nullptr;
    int loops = 0;
    const bool ok = c && CLoopGrpOpt::GetPolyPolygon(c, g_pts, g_sizes, loops) && w.dst.Create(c);
    CLoopGrpOpt::DeleteAnloopGrp(g);
    CLoopGrpOpt::DeleteAnloopGrp(c);
    return ok;
  }, Operands);
}

TEST(RegionFailures, Morphology) {
  DriveToSuccess("ExpandRaster", [](World& w) { return (g_out = CRstLines::ExpandRaster(w.arrA, 7)) != nullptr; },
                 Operands);
  DriveToSuccess("ContractRaster on a repeat", [](World& w) {
    return (g_out = CRstLines::ContractRaster(w.dst.GetData(), 3, Cycle(true))) != nullptr;
  }, Operands);
  DriveToSuccess("DivideUp", [](World& w) { return (g_out = CRstLines::DivideUp(w.dst.GetData())) != nullptr; },
                 Operands);
  DriveToSuccess("DivideUp(piece)", [](World& w) {
    CRasterArray out;  // appended to: must stay empty on failure
    const BOOL ok = CRstLines::DivideUp(PieceOf(w.a), out);
    if (!ok) {
      EXPECT_EQ(out.GetSize(), 0);
    }
    CRstLines::Release(&out);
    return ok != FALSE;
  }, Operands);
  DriveToSuccess("DividebyLayer", [](World& w) {
    CRasterArray out;
    CArray<int, int> depths;
    const BOOL ok = CRstLines::DividebyLayer(w.arrA, RECT{-5, -5, 70, 70}, &out, &depths);
    if (!ok) {
      EXPECT_TRUE(out.GetSize() == 0 && depths.GetSize() == 0);
    }
    CRstLines::Release(&out);
    return ok != FALSE;
  }, Operands);
  DriveToSuccess("OutLineInsideRstline", [](World& w) {
    g_Error.ClearError();
    const BOOL in = CRstLines::OutLineInsideRstline(w.b.GetData()->GetAt(0), w.a.GetData()->GetAt(0));
    return in || !g_Error.IsError();
  }, Operands);
  DriveToSuccess("Resample", [](World& w) {
    const SIZE size = {37, 91};
    return CRstLines::Resample(&w.dst, &w.a, &size) != FALSE;
  }, Operands);
}

// Shapes, the codecs' work buffers and the colour engine's loading fail
// the same way: false, a text, nothing leaked.
TEST(RegionFailures, ShapesCodecsAndColour) {
  DriveToSuccess("shapes", [](World&) {
    ATransform t;
    t.Shear(0.3, 0.1);
    t.Rotate(0.7);
    RSRLINE ellipse, plg, arc;
    const POINT corners[3] = {{0, 0}, {90, 10}, {20, 70}};
    const bool ok = CEllipse::EllipseRasterLine(RECTD(0, 0, 120, 50), t, ellipse) &&
                    CEllipse::PlgRasterLine(corners, plg) && CEllipse::MidPointArc(RECT{0, 0, 80, 60}, 0.3, 2.5, arc);
    return ok;
  }, [](World&) { return std::vector<Snapshot>(); });
  static std::vector<unsigned char> line(3000), z(7000), back(3100);  // made before any failure
  for (size_t i = 0; i < line.size(); ++i) line[i] = (unsigned char)(i * 7 / 13);
  DriveToSuccess("LZW lines", [](World&) {
    unsigned long zl = 0, bl = 0;
    return ACompress::Comp_LZW(line.data(), line.size(), z.data(), z.size(), zl) &&
           ACompress::UnComp_LZW(z.data(), zl, back.data(), back.size(), bl) && bl == line.size();
  }, [](World&) { return std::vector<Snapshot>(); });
  DriveToSuccess("LZW codes", [](World&) {
    static unsigned short codes[4000];
    unsigned long n = 0, bl = 0;
    return ACompress::Pack_LZW(line.data(), line.size(), codes, 4000, n) &&
           ACompress::UnPack_LZW(codes, n, back.data(), back.size(), bl) && bl == line.size();
  }, [](World&) { return std::vector<Snapshot>(); });
  DriveToSuccess("Base64", [](World&) {
    char* e = ACompress::Base64_Encode("a text of some length for the coder");
    char* d = e ? ACompress::Base64_Decode(e) : nullptr;
    const bool ok = d && std::strcmp(d, "a text of some length for the coder") == 0;
    ACompress::Base64_Free(&e);
    ACompress::Base64_Free(&d);
    return ok;
  }, [](World&) { return std::vector<Snapshot>(); });
#ifdef TQTEST_HAVE_LCMS2
  DriveToSuccess("colour engine", [](World&) {
    ARGBToCMYK e;
    BYTE cmyk[4];
    return e.Init() && e.ConvertColor(RGB(10, 200, 30), cmyk);
  }, [](World&) { return std::vector<Snapshot>(); });
#else
  // Built without Little CMS the engine never starts; with its text's
  // allocations failing it still throws nothing.
  for (long long n = 1; n <= 4; ++n) {
    ARGBToCMYK e;
    tqbase::allocfail::Arm(n);
    EXPECT_FALSE(e.Init()) << "allocation " << n << " failing";
    tqbase::allocfail::Arm(0);
  }
#endif
}

namespace {

// The test's own bookkeeping, with no allocation counted or failed.
template <class F>
auto Unfailing(F f) -> decltype(f()) {
  tqbase::allocfail::Pause pause;
  return f();
}

std::vector<std::string> Fields(const AGFLAGS& f) {
  std::vector<std::string> v;
  for (int i = 0; i < AGFLAGS::GetKeyCount(); ++i) v.push_back((const char*)f.GetKeyValue(i));
  return v;
}

}  // namespace

// Preferences fail the same way, and a failed save leaves the file on disk
// as it was: loading keeps every field, saving keeps the old file, the
// profile reader and writer keep their content.
TEST(RegionFailures, Preferences) {
  const std::string ini = ::testing::TempDir() + "tq_failures_prefs.ini";
  const std::string old = "; kept\r\n[Other]\r\nA=1\r\n[GlobalFlags]\r\ndDefRes=150.0000000000000000\r\n";
  ASSERT_TRUE(ADocObj::WriteFileAtomic(ini.c_str(), old.data(), old.size()));
  static AGFLAGS saved;
  saved.Init();
  saved.dDefRes = 720;
  saved.SetKeyValue(AGFLAGS::GetKeyName(AGFLAGS::GetKeyCount() - 1), "1");
  const std::string path = ini;
  DriveToSuccess("saving preferences", [path](World&) {
    const std::string before = Unfailing([&] { return tqtest::ReadAll(path); });
    const BOOL ok = saved.SaveToProfile(path.c_str());
    if (!ok) {
      EXPECT_EQ(Unfailing([&] { return tqtest::ReadAll(path); }), before) << "a failed save changed the file";
    }
    return ok != FALSE;
  }, [](World&) { return std::vector<Snapshot>(); });
  EXPECT_NE(tqtest::ReadAll(ini).find("[Other]\r\nA=1"), std::string::npos);

  static AGFLAGS loaded;
  DriveToSuccess("loading preferences", [path](World&) {
    const std::vector<std::string> before = Unfailing([&] {
      loaded.Init();
      return Fields(loaded);
    });
    const BOOL ok = loaded.LoadFromProfile(path.c_str());
    if (!ok) {
      EXPECT_EQ(Unfailing([&] { return Fields(loaded); }), before) << "a failed load changed the fields";
    }
    return ok != FALSE;
  }, [](World&) { return std::vector<Snapshot>(); });
  EXPECT_EQ(Fields(loaded), Fields(saved));

  DriveToSuccess("profile files", [path](World&) {
    AProfile p;
    CString v;
    if (!p.Load(path.c_str()) || !p.SetString("Other", "B", " two ")) return false;
    const std::string before = Unfailing([&] { return tqtest::ReadAll(path); });
    const BOOL ok = p.Save(path.c_str());
    if (!ok) {
      EXPECT_EQ(Unfailing([&] { return tqtest::ReadAll(path); }), before) << "a failed save changed the file";
    }
    return ok && p.GetString("Other", "B", v) && v == " two ";
  }, [](World&) { return std::vector<Snapshot>(); });
  std::remove(ini.c_str());
}
