// transform.h - two-dimensional affine transforms: TransMatrix, the bare
// six doubles in XFORM order, and ATransform, which builds, composes,
// inverts and applies them and converts them between coordinate frames.
//
// Conventions held by everything here:
//  - row vectors, as XFORM: x' = x*m11 + y*m21 + dx, y' = x*m12 + y*m22 + dy;
//    as a 3x3 row-major matrix [m11 m12 0; m21 m22 0; dx dy 1];
//  - A x B means "apply A first, then B"; every building operation replaces
//    T by T x E, so the newest operation acts last;
//  - angles are in radians; the tolerance is 1e-10 with strict bounds, except
//    CanInverseCalc, which tests the determinant against exactly 0.0;
//  - points mapped to integers go through CPrecise (0.5: nearest pixel).
// Non-finite numbers, a rule of this library: the double forms compute in
// IEEE arithmetic, so NaN and infinities pass through products and maps
// (a matrix holding one maps points to NaN or infinities); the integer
// forms give INT_MIN (0x80000000) for a coordinate that is NaN or beyond
// the 32-bit range, as CPrecise does; the float forms and operator XFORM
// round to the nearest float, beyond the float range to an infinity of the
// value's sign. The inverses and the factorisation refuse what has no
// finite result (see each).
//
// Frames: design ("flower") space and view space, each with an F and a V
// variant that differ in which half of a packed resolution is the
// numerator. A packed resolution holds H in its high word and L in its low
// word; a zero word counts as 1.
//
// Relies on geometry.h for POINTD and CPrecise.
#ifndef TQBASE_TRANSFORM_H
#define TQBASE_TRANSFORM_H

#include "tqbase/geometry.h"

struct TQBASE_API TransMatrix {
  double m11;
  double m12;
  double m21;
  double m22;
  double dx;
  double dy;

  TransMatrix() { LoadIdentity(); }
  TransMatrix(const XFORM& xf)
      : m11(xf.eM11), m12(xf.eM12), m21(xf.eM21), m22(xf.eM22), dx(xf.eDx), dy(xf.eDy) {}
  TransMatrix(const TransMatrix&) = default;
  TransMatrix& operator=(const TransMatrix&) = default;

  void LoadIdentity() {
    m11 = 1.0; m12 = 0.0; m21 = 0.0; m22 = 1.0; dx = 0.0; dy = 0.0;
  }
  void LoadMatrix(const TransMatrix& other) { *this = other; }
  // Reads/writes a 3x3 row-major array (elements 0,1,3,4,6,7).
  void SetTransMatrix(const double* matrix);
  void GetTransMatrix(double* matrix) const;
  operator XFORM() const;

  BOOL IdentityMatrix() const;
  BOOL OnlyScaleOffset() const;
  // 0: the linear parts differ (tolerance); otherwise offset (when not
  // null) = this offset minus other's, and the result is 1 when that offset
  // is non-zero, -1 when the two are the same transform.
  int OnlyOffset(const TransMatrix& other, POINTD* offset) const;

  // In-place 2-D inverse; FALSE (matrix unchanged) when |det| < 1e-10, when
  // det is NaN or infinite, or when an entry of the inverse would not be
  // finite (a NaN or infinite offset, or an overflow).
  BOOL InverseMatrix();
  BOOL InverseMatrix(const TransMatrix& source);
  static BOOL InverseMatrix(TransMatrix& out, const TransMatrix& source);
  // n x n row-major inverse in place, Gauss-Jordan with full pivoting (the
  // first maximum in row-major order wins a tie). FALSE when a pivot is
  // within 1e-10 of 0 (the matrix is then partly reduced), for a null
  // matrix, n < 1, or a scratch allocation that fails; also for an entry
  // that is not finite (the matrix unchanged) and for an inverse that
  // overflows (the matrix then holds it).
  static BOOL InverseMatrix(double* matrix, int n);
  // Copies n*n doubles from source into out, then inverts out.
  static BOOL InverseMatrix(double* out, const double* source, int n);
};

class TQBASE_API ATransform {
public:
  ATransform() {}
  ATransform(const TransMatrix& m) : m_matrix(m) {}
  ATransform(const XFORM& xf) : m_matrix(xf) {}
  ATransform(const ATransform& other) : m_matrix(other.m_matrix) {}
  ATransform& operator=(const ATransform& other) { m_matrix = other.m_matrix; return *this; }
  virtual ~ATransform();

  // The held matrix.
  const TransMatrix& GetMatrix() const { return m_matrix; }
  TransMatrix& GetMatrix() { return m_matrix; }
  void SetMatrix(const TransMatrix& m) { m_matrix = m; }
  void LoadIdentity() { m_matrix.LoadIdentity(); }
  operator const TransMatrix&() const { return m_matrix; }

  // this = this x b. b must not be this object (assertion); the product is
  // computed from a copy of this all the same.
  void MultMatrix(const ATransform& b);
  // out = a x b; out must be neither a nor b (assertion).
  static void MultMatrix(ATransform& out, const ATransform& a, const ATransform& b);
  ATransform operator*(const ATransform& b) const;
  ATransform operator*(const TransMatrix& b) const;
  BOOL operator==(const ATransform& other) const;
  BOOL operator!=(const ATransform& other) const { return !(*this == other); }

  // Building operations: each post-multiplies an elementary transform.
  void Translation(double dx, double dy);
  void Scaling(double sx, double sy, double cx = 0.0, double cy = 0.0);
  void Rotate(double angle, double cx = 0.0, double cy = 0.0);
  // x' = x + shy*(y - cy), y' = y + shx*(x - cx).
  void Shear(double shx, double shy, double cx = 0.0, double cy = 0.0);
  // Mirror across the line through (cx, cy) at angle (0: top to bottom) for
  // 0 <= angle < pi; any other angle gives a half turn about (cx, cy).
  void Reflection(double angle, double cx = 0.0, double cy = 0.0);
  // The same, starting from a source's matrix (a null source asserts and
  // starts from this transform's own matrix).
  void Translation(const ATransform* from, double dx, double dy);
  void Scaling(const ATransform* from, double sx, double sy, double cx, double cy);
  void Rotate(const ATransform* from, double angle, double cx, double cy);
  void Shear(const ATransform* from, double shx, double shy, double cx, double cy);
  void Reflection(const ATransform* from, double angle, double cx, double cy);
  void Translation(const ATransform& from, double dx, double dy) { Translation(&from, dx, dy); }
  void Scaling(const ATransform& from, double sx, double sy, double cx, double cy) { Scaling(&from, sx, sy, cx, cy); }
  void Rotate(const ATransform& from, double angle, double cx, double cy) { Rotate(&from, angle, cx, cy); }
  void Shear(const ATransform& from, double shx, double shy, double cx, double cy) { Shear(&from, shx, shy, cx, cy); }
  void Reflection(const ATransform& from, double angle, double cx, double cy) { Reflection(&from, angle, cx, cy); }

  // Forward maps.
  void CalcPoint(double& x, double& y) const {
    double ox = x;
    x = ox * m_matrix.m11 + y * m_matrix.m21 + m_matrix.dx;
    y = ox * m_matrix.m12 + y * m_matrix.m22 + m_matrix.dy;
  }
  void CalcPoint(float& x, float& y) const;
  void CalcPoint(POINTF& p) const { CalcPoint(p.x, p.y); }
  void CalcPoint(POINTD& p) const { CalcPoint(p.x, p.y); }
  void CalcPoint(int& x, int& y, double precision = 0.5) const;
  void CalcPoint(long& x, long& y, double precision = 0.5) const;
  void CalcPoint(POINT& p, double precision = 0.5) const;
  void CalcPoints(POINT* points, int count, double precision = 0.5) const;
  void CalcPoints(POINTF* points, int count) const;
  void CalcPoints(POINTD* points, int count) const;
  // Points in groups (polygons) of counts[0], counts[1], ... points.
  void CalcPointPoints(POINT* points, const int* counts, int groups, double precision = 0.5) const;
  void CalcPointPoints(POINTF* points, const int* counts, int groups) const;
  void CalcPointPoints(POINTD* points, const int* counts, int groups) const;
  // d = length of T(d, 0) - T(0, 0).
  void CalcDist(double& d) const;

  // Backward maps, solved directly from the matrix (no inverse is formed).
  // A zero determinant asserts and yields infinities or NaN; test
  // CanInverseCalc first: TRUE when the determinant is a finite number other
  // than exactly 0.0.
  BOOL CanInverseCalc() const;
  void InverseCalcPoint(double& x, double& y) const;
  void InverseCalcPoint(float& x, float& y) const;
  void InverseCalcPoint(POINTF& p) const { InverseCalcPoint(p.x, p.y); }
  void InverseCalcPoint(POINTD& p) const { InverseCalcPoint(p.x, p.y); }
  void InverseCalcPoint(int& x, int& y, double precision = 0.5) const;
  void InverseCalcPoint(long& x, long& y, double precision = 0.5) const;
  void InverseCalcPoint(POINT& p, double precision = 0.5) const;
  void InverseCalcPoints(POINT* points, int count, double precision = 0.5) const;
  void InverseCalcPoints(POINTF* points, int count) const;
  void InverseCalcPoints(POINTD* points, int count) const;
  void InverseCalcPointPoints(POINT* points, const int* counts, int groups, double precision = 0.5) const;
  void InverseCalcPointPoints(POINTF* points, const int* counts, int groups) const;
  void InverseCalcPointPoints(POINTD* points, const int* counts, int groups) const;
  void InverseCalcDist(double& d) const;

  // Frame transforms: identity, then Scaling(s, -s, 0, 0), then (origin not
  // null) Translation(origin). F view: s = H/L; V flower: s = L/H.
  void IdentityFView(DWORD resolution, const POINT* origin);
  void IdentityVFlower(DWORD resolution, const POINT* origin);
  // Frame conversions of a; M is the frame transform of the named family.
  void FFlowerToVView(const ATransform& a, DWORD resolution, const POINT* origin);    // M^-1 a M
  void FFlowerToFView(const ATransform& a, DWORD resolution, const POINT* origin);    // a M
  void FViewToFFlower(const ATransform& a, DWORD resolution, const POINT* origin);    // a M^-1
  void FViewToVView(const ATransform& a, DWORD resolution, const POINT* origin);      // M^-1 a
  void VViewToFFlower(const ATransform& a, DWORD resolution, const POINT* origin);    // M^-1 a M
  void VViewToVFlower(const ATransform& a, DWORD resolution, const POINT* origin);    // a M
  void VFlowerToVView(const ATransform& a, DWORD resolution, const POINT* origin);    // a M^-1
  void VFlowerToFFlower(const ATransform& a, DWORD resolution, const POINT* origin);  // M^-1 a

  // Factors this shear-free transform into scale x move x rotate: a scaling
  // about p1, a translation and a rotation about p2. FALSE, writing nothing,
  // for null outputs, a singular or sheared matrix, a vanishing m22, a
  // transform or point that is not finite, or factors that overflow.
  BOOL Resolution(const POINTD& p1, const POINTD& p2, ATransform* scale, ATransform* move,
                  ATransform* rotate) const;

protected:
  TransMatrix m_matrix;
};

// ATransform(m) x t.
TQBASE_API ATransform operator*(const TransMatrix& m, const ATransform& t);

#endif  // TQBASE_TRANSFORM_H
