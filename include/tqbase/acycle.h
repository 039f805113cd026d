// acycle.h - repeat cycles: the tiling of a design over the plane (a
// textile repeat) and the arithmetic that folds points into the one tile and
// cuts points, raster runs and rectangles into per-tile pieces.
//
// The tile T is (0, 0, width, height), half-open. Tiles repeat with one of
// two displacement ways:
//  - way 1: tiles follow each other along x; each step of one tile in x
//    moves y by param (the lattice of tile positions is spanned by
//    (width, param) and (0, height));
//  - way 2: tiles follow each other along y; each step of one tile in y
//    moves x by param (spanned by (param, height) and (width, 0)).
// Folding a point with any other way leaves it unchanged, while the tile
// walks treat every way other than 1 as way 2.
//
// Every operation exists as a static G-function taking an explicit
// CYCLEINFO and as a member of ACycle using the object's own record.
// The walks use a deliberately tight tile count: a length L over a period P
// touches at most n(L, P) = L / P + (L % P < 2 ? 1 : 2) tiles. Each walk
// step moves by one tile and wraps the displaced coordinate back by one
// tile height (or width) only; with |param| larger than that extent a step
// can leave the tile, and its piece is then not produced, exactly as the
// region engine's stored data expects.
//
// Counting calls (null outputs) return the number of entries the filling
// call needs. Rules of this library where 32-bit arithmetic would overflow
// or divide by zero: a count that does not fit in an int, and a rectangle
// wider or taller than INT_MAX pixels, give 0 in both calls; a negative
// count is reported as 0. A repeat that is on with a tile smaller than one
// pixel (width or height below 1, zero and negative sizes alike) has no
// cell: folding leaves points and rectangles as they are, and the cuts,
// walks and clip forms give 0 entries in both calls.
//
// Relies on geometry.h (POINTD) and mfcport.h (CArray).
#ifndef TQBASE_ACYCLE_H
#define TQBASE_ACYCLE_H

#include "tqbase/geometry.h"

// The three repeat parameters, in pixels.
struct TQBASE_API CYCLEPARAMS {
  int width;   // tile extent in x
  int height;  // tile extent in y
  int param;   // displacement between neighbouring tiles; axis set by way

  CYCLEPARAMS() { Init(); }
  void Init() { width = 0; height = 0; param = 0; }
};

struct TQBASE_API CYCLEINFO : public CYCLEPARAMS {
  int onOff;  // non-zero: the repeat is on
  int way;    // 1 or 2, see above

  CYCLEINFO() { Init(); }
  void Init() { CYCLEPARAMS::Init(); onOff = 0; way = 1; }
};

// The same parameters as doubles, in design units.
struct TQBASE_API CYCLEPARAMS_FLOAT {
  double width;
  double height;
  double param;

  CYCLEPARAMS_FLOAT() { Init(); }
  void Init() { width = 0.0; height = 0.0; param = 0.0; }
};

struct TQBASE_API CYCLEINFO_FLOAT : public CYCLEPARAMS_FLOAT {
  int onOff;
  int way;

  CYCLEINFO_FLOAT() { Init(); }
  void Init() { CYCLEPARAMS_FLOAT::Init(); onOff = 0; way = 1; }
};

// A horizontal raster run: pixels x .. x + length - 1 of row y.
struct APTLENGTH {
  int x;
  int y;
  int length;
};

class TQBASE_API ACycle : protected CYCLEINFO, protected CYCLEINFO_FLOAT {
public:
  ACycle() {}
  explicit ACycle(const CYCLEINFO& info) : CYCLEINFO(info) {}

  // ---- setters (virtual, in this slot order; derived classes react) ----
  virtual void SetCycleOnOff(int onOff);
  virtual void SetCycleWay(int way);
  virtual void SetCycleParam(int param);
  virtual void SetCycleWidth(int width);
  virtual void SetCycleHeight(int height);
  virtual BOOL SetCycleParams(const CYCLEPARAMS* params);
  virtual BOOL SetCycleParams(int width, int height, int param);
  virtual BOOL SetCycleInfo(const CYCLEINFO* info);
  // Scale by two packed ratios; when both are 1 and negate is 0 only saves
  // (saved may be null) and returns TRUE.
  virtual BOOL ScaleCycleParams(DWORD resX, DWORD resY, CYCLEPARAMS* saved, int negate);
  // Scale by one packed ratio; when it is 1 and negate is 0 only saves and
  // returns FALSE, where the two-ratio form returns TRUE (a deliberate rule
  // of this library; the two forms differ on purpose).
  virtual BOOL ScaleCycleParams(DWORD resolution, CYCLEPARAMS* saved, int negate);

  // ---- readers ----
  int CycleWidth() const { return CYCLEINFO::width; }
  int CycleHeight() const { return CYCLEINFO::height; }
  int CycleParam() const { return CYCLEINFO::param; }
  int CycleOnOff() const { return CYCLEINFO::onOff; }
  int CycleWay() const { return CYCLEINFO::way; }
  void GetCycleParams(CYCLEPARAMS* params) const;
  void GetCycleInfo(CYCLEINFO* info) const;
  // The object's own integer record, for the static G-functions.
  const CYCLEINFO* CycleInfoPtr() const { return static_cast<const CYCLEINFO*>(this); }

  // ---- the double-precision record ----
  void GetCycleInfoFloat(CYCLEINFO_FLOAT* info) const;
  void SetCycleInfoFloat(const CYCLEINFO_FLOAT* info);
  // Integer record from the double one: width and the x-axis displacement
  // are multiplied by scaleX, height and the y-axis displacement by scaleY
  // (pixels per design unit), then rounded half away from zero with the
  // library's nudge (as POINTD::GPOINT), so 99.99999999995 gives 100.
  // FALSE (out untouched) for null pointers, a scale that is not a positive
  // finite number, or a value that is not finite or leaves the int range.
  static BOOL GCycleInfoFromFloat(CYCLEINFO* out, const CYCLEINFO_FLOAT* in, double scaleX = 1.0,
                                  double scaleY = 1.0);
  // Sets the integer record (through SetCycleInfo) from the object's own
  // double record.
  BOOL CycleInfoFromFloat(double scaleX = 1.0, double scaleY = 1.0);

  // ---- folding ----
  // Folded points lie in the tile; the repeat off, a tile smaller than one
  // pixel or a way other than 1 and 2 leave them as they are. The double
  // form folds any finite point into the tile (beyond 2^53 no longer onto
  // its exact cell, which doubles cannot tell apart); a point with a
  // coordinate that is not finite stays as it is.
  static void GCalLocalPoint(POINT& p, const CYCLEINFO* ci);
  static void GCalLocalPoint(int* x, int* y, const CYCLEINFO* ci);
  static POINT GCalLocalPoint(int x, int y, const CYCLEINFO* ci);
  static void GCalLocalPointD(POINTD& p, const CYCLEINFO* ci);
  static void GCalLocalPoints(POINT* points, int count, const CYCLEINFO* ci);
  void CalLocalPoint(POINT& p) const { GCalLocalPoint(p, CycleInfoPtr()); }
  void CalLocalPoint(int* x, int* y) const { GCalLocalPoint(x, y, CycleInfoPtr()); }
  POINT CalLocalPoint(int x, int y) const { return GCalLocalPoint(x, y, CycleInfoPtr()); }
  void CalLocalPointD(POINTD& p) const { GCalLocalPointD(p, CycleInfoPtr()); }
  void CalLocalPoints(POINT* points, int count) const { GCalLocalPoints(points, count, CycleInfoPtr()); }

  // ---- runs and rectangles cut into tiles ----
  // Clips a run to a rectangle; FALSE when nothing is left.
  static BOOL InterLineRect(APTLENGTH* out, const APTLENGTH* run, const RECT* rc);
  // Per-tile pieces of a run in tile coordinates, and where each piece
  // begins within the run. Null pieces: the count to provide.
  static int GCalCycleLine(const APTLENGTH& run, APTLENGTH* pieces, int* offsets, const CYCLEINFO* ci);
  int CalCycleLine(const APTLENGTH& run, APTLENGTH* pieces, int* offsets) const {
    return GCalCycleLine(run, pieces, offsets, CycleInfoPtr());
  }
  // Per-tile pieces of a rectangle, and each piece's offset from the
  // rectangle copy it belongs to. Null pieces: the count to provide.
  static int GCalCycleRect(const RECT& rc, RECT* pieces, POINT* offsets, const CYCLEINFO* ci);
  int CalCycleRect(const RECT& rc, RECT* pieces, POINT* offsets) const {
    return GCalCycleRect(rc, pieces, offsets, CycleInfoPtr());
  }

  // ---- situations ----
  // On: folds p, TRUE. Off: whether p lies in T.
  static BOOL GCycleSituation(POINT* p, const CYCLEINFO* ci);
  // The start of the run in each tile it touches (walked as GCalCycleLine).
  static int GCycleSituation(const APTLENGTH* run, POINT* starts, const CYCLEINFO* ci);
  // The top-left corner of each rectangle copy that meets T (walked as
  // GCalCycleRect); 0 for a null or empty rectangle or a tile smaller than
  // one pixel, even with the repeat off.
  static int GCycleSituation(const RECT* rc, POINT* corners, const CYCLEINFO* ci);

  // Clipping forms. The plane holds the copies of a point, run or rectangle
  // at every tile position of the lattice (with the repeat off, the one
  // copy as given). These collect the copies that meet the clipping
  // rectangle C, expressed relative to C's top-left corner, in raster order
  // (by y, then x). A null C stands for T. They return the number of
  // entries produced; 0 also for null arguments, an empty C, a repeat that
  // is on with a tile smaller than one pixel, or more entries than an int
  // counts or memory holds (g_Error then says so).
  //
  // Run pieces: without C, or with C equal to T, exactly GCalCycleLine;
  // otherwise the copies clipped to C moved to the origin, with offsets
  // (may be null) = piece.x - copy start.
  static int GCycleSituation(const APTLENGTH* run, CArray<APTLENGTH>* pieces, CArray<int>* offsets,
                             const RECT* clip, const CYCLEINFO* ci);
  // Copies of a point inside C.
  static int GCycleSituation(const POINT* p, CArray<POINT>& out, const RECT* clip, const CYCLEINFO* ci);
  // The number of copies of *p inside C; *p becomes the first of them
  // (unchanged when there is none).
  static int GCycleSituation(POINT* p, const RECT* clip, const CYCLEINFO* ci);
  // Start points of the run copies that meet C.
  static int GCycleSituation(const APTLENGTH* run, CArray<POINT>& starts, const RECT* clip,
                             const CYCLEINFO* ci);
  // Top-left corners of the rectangle copies that meet C.
  static int GCycleSituation(const RECT* rc, CArray<POINT>& corners, const RECT* clip, const CYCLEINFO* ci);
  // Rectangle pieces: without C, or with C equal to T, exactly
  // GCalCycleRect; otherwise the copies clipped to C moved to the origin,
  // with offsets (may be null) = piece top-left - copy top-left.
  static int GCycleSituation(const RECT* rc, CArray<RECT>* pieces, CArray<POINT>* offsets, const RECT* clip,
                             const CYCLEINFO* ci);
  // TRUE when some copy of rc meets clip (with the repeat off: rc itself).
  static BOOL GIsIntersectant(const RECT* rc, const RECT* clip, const CYCLEINFO* ci);

  BOOL CycleSituation(POINT* p) const { return GCycleSituation(p, CycleInfoPtr()); }
  int CycleSituation(const APTLENGTH* run, POINT* starts) const {
    return GCycleSituation(run, starts, CycleInfoPtr());
  }
  int CycleSituation(const RECT* rc, POINT* corners) const { return GCycleSituation(rc, corners, CycleInfoPtr()); }
  int CycleSituation(const APTLENGTH* run, CArray<APTLENGTH>* pieces, CArray<int>* offsets,
                     const RECT* clip) const {
    return GCycleSituation(run, pieces, offsets, clip, CycleInfoPtr());
  }
  int CycleSituation(const POINT* p, CArray<POINT>& out, const RECT* clip) const {
    return GCycleSituation(p, out, clip, CycleInfoPtr());
  }
  int CycleSituation(POINT* p, const RECT* clip) const { return GCycleSituation(p, clip, CycleInfoPtr()); }
  int CycleSituation(const APTLENGTH* run, CArray<POINT>& starts, const RECT* clip) const {
    return GCycleSituation(run, starts, clip, CycleInfoPtr());
  }
  int CycleSituation(const RECT* rc, CArray<POINT>& corners, const RECT* clip) const {
    return GCycleSituation(rc, corners, clip, CycleInfoPtr());
  }
  int CycleSituation(const RECT* rc, CArray<RECT>* pieces, CArray<POINT>* offsets, const RECT* clip) const {
    return GCycleSituation(rc, pieces, offsets, clip, CycleInfoPtr());
  }
  BOOL IsIntersectant(const RECT* rc, const RECT* clip) const { return GIsIntersectant(rc, clip, CycleInfoPtr()); }

  // ---- moving rectangles into the tile (repeat on only) ----
  // Folds the top-left corner and moves rc there, keeping its size.
  void BoundLeftLower(RECT& rc) const;
  // Folds the bottom-left corner (left, bottom) and moves rc so that this
  // corner lands on the folded point.
  // Both leave rc as it is when the moved rectangle would not fit the
  // 32-bit range (a rectangle wider or taller than INT_MAX pixels).
  void BoundLeftUpper(RECT& rc) const;

  // ---- resolution scaling ----
  // A packed ratio holds the numerator H in the high word and the
  // denominator L in the low word; each value v becomes v*H/L in 64 bits,
  // truncated toward zero (copied when H == L). A zero L counts as 1.
  // Then param is negated when negate is set. Results beyond the int range
  // saturate at INT_MIN / INT_MAX, and negating INT_MIN gives INT_MAX.
  // TRUE when a ratio differs from 1 or negate is set.
  static BOOL GScaleCycleParams(CYCLEPARAMS* out, const CYCLEPARAMS* in, DWORD resolution, int negate);
  // Width by the x ratio, height by the y ratio, param by the ratio of its
  // axis (x under way 2, else y).
  static BOOL GScaleCycleParams(CYCLEPARAMS* out, const CYCLEINFO* in, DWORD resX, DWORD resY, int negate);
  // Saves the three parameters (into a scratch record when saved is null)
  // and scales them in place from the saved copy.
  BOOL TScaleParams(DWORD resolution, CYCLEPARAMS* saved, int negate);
  BOOL TScaleParams(DWORD resX, DWORD resY, CYCLEPARAMS* saved, int negate);
  void TRestoreParams(const CYCLEPARAMS* saved);
};

#endif  // TQBASE_ACYCLE_H
