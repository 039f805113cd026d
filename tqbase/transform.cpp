// transform.cpp - TransMatrix and ATransform: products, the 2-D and n x n
// inverses, forward and backward point maps, distances, the frame
// transforms and the factorisation of a shear-free transform.
//
// Relies on geometry.h for the tolerance and the pixel conversions, and on
// errorinfo.h for the one failure that has a text (scratch allocation).
#include "tqbase/transform.h"

#include "checked.h"
#include "tqbase/errorinfo.h"

#include <cmath>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

namespace {

const double kEps = TQ_GEOM_EPS;
// The library's pi, as the double the mirror test compares against.
const double kPi = 3.141592653589793;

inline bool NearZero(double v) { return v > -kEps && v < kEps; }

inline bool Finite(const TransMatrix& m) {
  return std::isfinite(m.m11) && std::isfinite(m.m12) && std::isfinite(m.m21) && std::isfinite(m.m22) &&
         std::isfinite(m.dx) && std::isfinite(m.dy);
}

inline bool Finite(const double* a, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (!std::isfinite(a[i])) return false;
  return true;
}

// a x b: apply a first, then b (row-vector convention).
inline TransMatrix Product(const TransMatrix& a, const TransMatrix& b) {
  TransMatrix r;
  r.m11 = a.m11 * b.m11 + a.m12 * b.m21;
  r.m12 = a.m11 * b.m12 + a.m12 * b.m22;
  r.m21 = a.m21 * b.m11 + a.m22 * b.m21;
  r.m22 = a.m21 * b.m12 + a.m22 * b.m22;
  r.dx = a.dx * b.m11 + a.dy * b.m21 + b.dx;
  r.dy = a.dx * b.m12 + a.dy * b.m22 + b.dy;
  return r;
}

inline TransMatrix Make(double m11, double m12, double m21, double m22, double dx, double dy) {
  TransMatrix m;
  m.m11 = m11; m.m12 = m12; m.m21 = m21; m.m22 = m22; m.dx = dx; m.dy = dy;
  return m;
}

inline TransMatrix RotateMatrix(double c, double s, double cx, double cy) {
  return Make(c, s, -s, c, (1 - c) * cx + cy * s, (1 - c) * cy - cx * s);
}

inline TransMatrix ScaleMatrix(double sx, double sy, double cx, double cy) {
  return Make(sx, 0.0, 0.0, sy, (1 - sx) * cx, (1 - sy) * cy);
}

// Zero words count as 1.
inline void SplitResolution(DWORD resolution, double* high, double* low) {
  WORD h = HIWORD(resolution), l = LOWORD(resolution);
  *high = h ? (double)h : 1.0;
  *low = l ? (double)l : 1.0;
}

}  // namespace

// ---------------------------------------------------------------------------
// TransMatrix

void TransMatrix::SetTransMatrix(const double* matrix) {
  ASSERT(matrix != nullptr);
  if (matrix == nullptr) return;
  m11 = matrix[0]; m12 = matrix[1];
  m21 = matrix[3]; m22 = matrix[4];
  dx = matrix[6]; dy = matrix[7];
}

void TransMatrix::GetTransMatrix(double* matrix) const {
  ASSERT(matrix != nullptr);
  if (matrix == nullptr) return;
  matrix[0] = m11; matrix[1] = m12; matrix[2] = 0.0;
  matrix[3] = m21; matrix[4] = m22; matrix[5] = 0.0;
  matrix[6] = dx; matrix[7] = dy; matrix[8] = 1.0;
}

TransMatrix::operator XFORM() const {
  XFORM xf;
  xf.eM11 = (FLOAT)m11; xf.eM12 = (FLOAT)m12;
  xf.eM21 = (FLOAT)m21; xf.eM22 = (FLOAT)m22;
  xf.eDx = (FLOAT)dx; xf.eDy = (FLOAT)dy;
  return xf;
}

BOOL TransMatrix::IdentityMatrix() const {
  return NearZero(dx) && NearZero(dy) && NearZero(m12) && NearZero(m21) && tqNearlyEqual(m11, 1.0) &&
         tqNearlyEqual(m22, 1.0);
}

BOOL TransMatrix::OnlyScaleOffset() const { return NearZero(m12) && NearZero(m21); }

int TransMatrix::OnlyOffset(const TransMatrix& other, POINTD* offset) const {
  if (!tqNearlyEqual(m11, other.m11) || !tqNearlyEqual(m12, other.m12) || !tqNearlyEqual(m21, other.m21) ||
      !tqNearlyEqual(m22, other.m22))
    return 0;
  POINTD d(dx - other.dx, dy - other.dy);
  if (offset != nullptr) *offset = d;
  return (NearZero(d.x) && NearZero(d.y)) ? -1 : 1;
}

BOOL TransMatrix::InverseMatrix() {
  const double det = m11 * m22 - m12 * m21;
  // A NaN or infinite determinant, or an inverse that overflows, has no
  // inverse in doubles: refused like a singular matrix.
  if (NearZero(det) || !std::isfinite(det)) return FALSE;
  const TransMatrix& o = *this;
  TransMatrix inv;
  inv.m11 = o.m22 / det;
  inv.m12 = -o.m12 / det;
  inv.m21 = -o.m21 / det;
  inv.m22 = o.m11 / det;
  inv.dx = (o.m21 * o.dy - o.m22 * o.dx) / det;
  inv.dy = (o.m12 * o.dx - o.m11 * o.dy) / det;
  if (!Finite(inv)) return FALSE;
  *this = inv;
  return TRUE;
}

BOOL TransMatrix::InverseMatrix(const TransMatrix& source) {
  *this = source;
  return InverseMatrix();
}

BOOL TransMatrix::InverseMatrix(TransMatrix& out, const TransMatrix& source) {
  out = source;
  return out.InverseMatrix();
}

BOOL TransMatrix::InverseMatrix(double* a, int n) {
  ASSERT(a != nullptr && n >= 1);
  if (a == nullptr || n < 1) return FALSE;
  size_t cells = 0;
  if (!tqbase::CheckedMul((size_t)n, (size_t)n, &cells)) return FALSE;
  if (!Finite(a, cells)) return FALSE;  // left unchanged
  // Pivot rows and columns of every step; small matrices stay on the stack.
  int smallRows[16], smallCols[16];
  std::vector<int> bigRows, bigCols;
  int* pivRow = smallRows;
  int* pivCol = smallCols;
  if (n > 16) {
    try {
      bigRows.resize((size_t)n);
      bigCols.resize((size_t)n);
    } catch (const std::bad_alloc&) {
      g_Error.SetLastError("InverseMatrix: out of memory for a %d x %d matrix", n, n);
      return FALSE;
    }
    pivRow = bigRows.data();
    pivCol = bigCols.data();
  }
  const size_t N = (size_t)n;
  auto at = [a, N](size_t i, size_t j) -> double& { return a[i * N + j]; };
  for (size_t k = 0; k < N; ++k) {
    // Greatest magnitude in the lower-right block; the first one in
    // row-major order wins a tie.
    double best = 0.0;
    size_t pr = k, pc = k;
    for (size_t i = k; i < N; ++i) {
      for (size_t j = k; j < N; ++j) {
        double f = std::fabs(at(i, j));
        if (f > best) {
          best = f;
          pr = i;
          pc = j;
        }
      }
    }
    if (!(best >= kEps)) return FALSE;  // also rejects NaN
    pivRow[k] = (int)pr;
    pivCol[k] = (int)pc;
    if (pr != k)
      for (size_t j = 0; j < N; ++j) std::swap(at(k, j), at(pr, j));
    if (pc != k)
      for (size_t i = 0; i < N; ++i) std::swap(at(i, k), at(i, pc));
    double inv = 1.0 / at(k, k);
    at(k, k) = inv;
    for (size_t j = 0; j < N; ++j)
      if (j != k) at(k, j) *= inv;
    for (size_t i = 0; i < N; ++i) {
      if (i == k) continue;
      double f = at(i, k);
      if (f == 0.0) continue;
      for (size_t j = 0; j < N; ++j)
        if (j != k) at(i, j) -= f * at(k, j);
    }
    for (size_t i = 0; i < N; ++i)
      if (i != k) at(i, k) *= -inv;
  }
  // Undo the exchanges in reverse: a column exchange of the forward pass is
  // undone by a row exchange, and a row exchange by a column exchange.
  for (size_t k = N; k-- > 0;) {
    size_t c = (size_t)pivCol[k], r = (size_t)pivRow[k];
    if (c != k)
      for (size_t j = 0; j < N; ++j) std::swap(at(k, j), at(c, j));
    if (r != k)
      for (size_t i = 0; i < N; ++i) std::swap(at(i, k), at(i, r));
  }
  return Finite(a, cells) ? TRUE : FALSE;  // an inverse that overflows is refused
}

BOOL TransMatrix::InverseMatrix(double* out, const double* source, int n) {
  ASSERT(out != nullptr && source != nullptr && n >= 1);
  if (out == nullptr || source == nullptr || n < 1) return FALSE;
  size_t cells = 0;
  if (!tqbase::CheckedMul((size_t)n, (size_t)n, &cells)) return FALSE;
  if (out != source) std::memmove(out, source, cells * sizeof(double));
  return InverseMatrix(out, n);
}

// ---------------------------------------------------------------------------
// ATransform: composition

ATransform::~ATransform() {}

void ATransform::MultMatrix(const ATransform& b) {
  ASSERT(&b != this);
  TransMatrix bm = b.m_matrix;  // b may be this object all the same
  m_matrix = Product(m_matrix, bm);
}

void ATransform::MultMatrix(ATransform& out, const ATransform& a, const ATransform& b) {
  ASSERT(&out != &a && &out != &b);
  out = a;
  out.MultMatrix(b);
}

ATransform ATransform::operator*(const ATransform& b) const { return ATransform(Product(m_matrix, b.m_matrix)); }

ATransform ATransform::operator*(const TransMatrix& b) const { return ATransform(Product(m_matrix, b)); }

ATransform operator*(const TransMatrix& m, const ATransform& t) { return ATransform(m) * t; }

BOOL ATransform::operator==(const ATransform& other) const {
  const TransMatrix& a = m_matrix;
  const TransMatrix& b = other.m_matrix;
  return tqNearlyEqual(a.m11, b.m11) && tqNearlyEqual(a.m12, b.m12) && tqNearlyEqual(a.m21, b.m21) &&
         tqNearlyEqual(a.m22, b.m22) && tqNearlyEqual(a.dx, b.dx) && tqNearlyEqual(a.dy, b.dy);
}

// ---------------------------------------------------------------------------
// ATransform: building operations

void ATransform::Translation(double dx, double dy) {
  m_matrix = Product(m_matrix, Make(1.0, 0.0, 0.0, 1.0, dx, dy));
}

void ATransform::Scaling(double sx, double sy, double cx, double cy) {
  m_matrix = Product(m_matrix, ScaleMatrix(sx, sy, cx, cy));
}

void ATransform::Rotate(double angle, double cx, double cy) {
  m_matrix = Product(m_matrix, RotateMatrix(std::cos(angle), std::sin(angle), cx, cy));
}

void ATransform::Shear(double shx, double shy, double cx, double cy) {
  m_matrix = Product(m_matrix, Make(1.0, shx, shy, 1.0, -shy * cy, -shx * cx));
}

void ATransform::Reflection(double angle, double cx, double cy) {
  Translation(-cx, -cy);
  if (angle >= 0 && angle < kPi) {
    Rotate(-angle, 0, 0);
    m_matrix = Product(m_matrix, Make(1.0, 0.0, 0.0, -1.0, 0.0, 0.0));
    Rotate(angle, 0, 0);
  } else {
    // A deliberate rule of this library: angles outside [0, pi) are not
    // reduced, and the mirror becomes a half turn about the centre.
    m_matrix = Product(m_matrix, Make(-1.0, 0.0, 0.0, -1.0, 0.0, 0.0));
  }
  Translation(cx, cy);
}

#define TQ_LOAD_SOURCE(from)         \
  ASSERT((from) != nullptr);         \
  if ((from) != nullptr) m_matrix = (from)->m_matrix

void ATransform::Translation(const ATransform* from, double dx, double dy) {
  TQ_LOAD_SOURCE(from);
  Translation(dx, dy);
}
void ATransform::Scaling(const ATransform* from, double sx, double sy, double cx, double cy) {
  TQ_LOAD_SOURCE(from);
  Scaling(sx, sy, cx, cy);
}
void ATransform::Rotate(const ATransform* from, double angle, double cx, double cy) {
  TQ_LOAD_SOURCE(from);
  Rotate(angle, cx, cy);
}
void ATransform::Shear(const ATransform* from, double shx, double shy, double cx, double cy) {
  TQ_LOAD_SOURCE(from);
  Shear(shx, shy, cx, cy);
}
void ATransform::Reflection(const ATransform* from, double angle, double cx, double cy) {
  TQ_LOAD_SOURCE(from);
  Reflection(angle, cx, cy);
}
#undef TQ_LOAD_SOURCE

// ---------------------------------------------------------------------------
// Point forms shared by the forward and backward maps: each goes through the
// map on doubles and rounds at the end.

namespace {

struct ForwardMap {
  const ATransform* t;
  void operator()(double& x, double& y) const { t->CalcPoint(x, y); }
};
struct InverseMap {
  const ATransform* t;
  void operator()(double& x, double& y) const { t->InverseCalcPoint(x, y); }
};

template <class Map>
void MapFloat(float& x, float& y, Map map) {
  double dx = x, dy = y;
  map(dx, dy);
  x = (float)dx;
  y = (float)dy;
}

template <class Int, class Map>
void MapInt(Int& x, Int& y, double precision, Map map) {
  double dx = (double)x, dy = (double)y;
  map(dx, dy);
  CPrecise::PrecisePoint(dx, dy, x, y, precision);
}

template <class Map>
void MapPoint(POINT& p, double precision, Map map) {
  double dx = p.x, dy = p.y;
  map(dx, dy);
  CPrecise::PrecisePoint(POINTD(dx, dy), p, precision);
}

// The length of the image of the segment from (0, 0) to (d, 0).
template <class Map>
double MappedLength(double d, Map map) {
  double x1 = d, y1 = 0.0, x0 = 0.0, y0 = 0.0;
  map(x1, y1);
  map(x0, y0);
  double ex = x1 - x0, ey = y1 - y0;
  return std::sqrt(std::fabs(ex * ex + ey * ey));
}

// Walks an array of points; a null array or a count below 1 asserts, and a
// null array is left alone.
template <class P, class F>
void ForEachPoint(P* points, int count, F&& f) {
  ASSERT(points != nullptr && count >= 1);
  if (points == nullptr) return;
  for (int i = 0; i < count; ++i) f(points[i]);
}

// Walks points in groups; a group count below 1 asserts and stops the walk.
template <class P, class F>
void ForEachGrouped(P* points, const int* counts, int groups, F&& f) {
  ASSERT(points != nullptr && counts != nullptr && groups >= 1);
  if (points == nullptr || counts == nullptr) return;
  for (int g = 0; g < groups; ++g) {
    ASSERT(counts[g] >= 1);
    if (counts[g] < 1) return;
    f(points, counts[g]);
    points += counts[g];
  }
}
}  // namespace

// ---------------------------------------------------------------------------
// ATransform: forward maps

void ATransform::CalcPoint(float& x, float& y) const { MapFloat(x, y, ForwardMap{this}); }
void ATransform::CalcPoint(int& x, int& y, double precision) const { MapInt(x, y, precision, ForwardMap{this}); }
void ATransform::CalcPoint(long& x, long& y, double precision) const { MapInt(x, y, precision, ForwardMap{this}); }
void ATransform::CalcPoint(POINT& p, double precision) const { MapPoint(p, precision, ForwardMap{this}); }

void ATransform::CalcPoints(POINT* points, int count, double precision) const {
  // The matrix applied directly, each coordinate rounded on its own.
  const TransMatrix& m = m_matrix;
  ForEachPoint(points, count, [&](POINT& p) {
    double x = p.x, y = p.y;
    p.x = CPrecise::PreciseInt(x * m.m11 + y * m.m21 + m.dx, precision);
    p.y = CPrecise::PreciseInt(x * m.m12 + y * m.m22 + m.dy, precision);
  });
}
void ATransform::CalcPoints(POINTF* points, int count) const {
  ForEachPoint(points, count, [this](POINTF& p) { CalcPoint(p); });
}
void ATransform::CalcPoints(POINTD* points, int count) const {
  ForEachPoint(points, count, [this](POINTD& p) { CalcPoint(p); });
}

void ATransform::CalcPointPoints(POINT* points, const int* counts, int groups, double precision) const {
  ForEachGrouped(points, counts, groups, [&](POINT* p, int n) { CalcPoints(p, n, precision); });
}
void ATransform::CalcPointPoints(POINTF* points, const int* counts, int groups) const {
  ForEachGrouped(points, counts, groups, [&](POINTF* p, int n) { CalcPoints(p, n); });
}
void ATransform::CalcPointPoints(POINTD* points, const int* counts, int groups) const {
  ForEachGrouped(points, counts, groups, [&](POINTD* p, int n) { CalcPoints(p, n); });
}

void ATransform::CalcDist(double& d) const { d = MappedLength(d, ForwardMap{this}); }

// ---------------------------------------------------------------------------
// ATransform: backward maps

BOOL ATransform::CanInverseCalc() const {
  // An exact test, unlike the tolerance of TransMatrix::InverseMatrix; a
  // NaN or infinite determinant leaves nothing to divide by.
  const double det = m_matrix.m11 * m_matrix.m22 - m_matrix.m12 * m_matrix.m21;
  return det != 0.0 && std::isfinite(det);
}

void ATransform::InverseCalcPoint(double& x, double& y) const {
  const TransMatrix& m = m_matrix;
  double det = m.m11 * m.m22 - m.m21 * m.m12;
  ASSERT(det != 0.0);
  double ox = x, oy = y;
  x = (m.m22 * ox - m.m21 * oy - (m.dx * m.m22 - m.m21 * m.dy)) / det;
  y = (m.m12 * ox - m.m11 * oy - (m.dx * m.m12 - m.m11 * m.dy)) / (-det);
}

void ATransform::InverseCalcPoint(float& x, float& y) const { MapFloat(x, y, InverseMap{this}); }
void ATransform::InverseCalcPoint(int& x, int& y, double precision) const {
  MapInt(x, y, precision, InverseMap{this});
}
void ATransform::InverseCalcPoint(long& x, long& y, double precision) const {
  MapInt(x, y, precision, InverseMap{this});
}
void ATransform::InverseCalcPoint(POINT& p, double precision) const { MapPoint(p, precision, InverseMap{this}); }

void ATransform::InverseCalcPoints(POINT* points, int count, double precision) const {
  ForEachPoint(points, count, [&](POINT& p) { InverseCalcPoint(p, precision); });
}
void ATransform::InverseCalcPoints(POINTF* points, int count) const {
  ForEachPoint(points, count, [this](POINTF& p) { InverseCalcPoint(p); });
}
void ATransform::InverseCalcPoints(POINTD* points, int count) const {
  ForEachPoint(points, count, [this](POINTD& p) { InverseCalcPoint(p); });
}

void ATransform::InverseCalcPointPoints(POINT* points, const int* counts, int groups, double precision) const {
  ForEachGrouped(points, counts, groups, [&](POINT* p, int n) { InverseCalcPoints(p, n, precision); });
}
void ATransform::InverseCalcPointPoints(POINTF* points, const int* counts, int groups) const {
  ForEachGrouped(points, counts, groups, [&](POINTF* p, int n) { InverseCalcPoints(p, n); });
}
void ATransform::InverseCalcPointPoints(POINTD* points, const int* counts, int groups) const {
  ForEachGrouped(points, counts, groups, [&](POINTD* p, int n) { InverseCalcPoints(p, n); });
}

void ATransform::InverseCalcDist(double& d) const { d = MappedLength(d, InverseMap{this}); }

// ---------------------------------------------------------------------------
// ATransform: frames

void ATransform::IdentityFView(DWORD resolution, const POINT* origin) {
  double h, l;
  SplitResolution(resolution, &h, &l);
  double s = h / l;
  m_matrix.LoadIdentity();
  Scaling(s, -s, 0, 0);
  if (origin != nullptr) Translation(origin->x, origin->y);
}

void ATransform::IdentityVFlower(DWORD resolution, const POINT* origin) {
  double h, l;
  SplitResolution(resolution, &h, &l);
  double s = l / h;
  m_matrix.LoadIdentity();
  Scaling(s, -s, 0, 0);
  if (origin != nullptr) Translation(origin->x, origin->y);
}

namespace {
enum FrameOrder { kInvAM, kAM, kAInv, kInvA };

// Sets out from a and the frame transform m by one of the four orders.
// a is read before out is written, so the two may be one object.
void Convert(TransMatrix& out, const TransMatrix& a, const TransMatrix& m, FrameOrder order) {
  TransMatrix inv = m;
  inv.InverseMatrix();  // s > 0 always: a singular m is left as it is
  switch (order) {
    case kInvAM: out = Product(Product(inv, a), m); break;
    case kAM: out = Product(a, m); break;
    case kAInv: out = Product(a, inv); break;
    case kInvA: out = Product(inv, a); break;
  }
}
}  // namespace

#define TQ_FRAME_CONVERSION(name, family, order)                                  \
  void ATransform::name(const ATransform& a, DWORD resolution, const POINT* origin) { \
    ATransform frame;                                                              \
    frame.family(resolution, origin);                                              \
    TransMatrix src = a.m_matrix;                                                  \
    Convert(m_matrix, src, frame.m_matrix, order);                                 \
  }

TQ_FRAME_CONVERSION(FFlowerToVView, IdentityFView, kInvAM)
TQ_FRAME_CONVERSION(FFlowerToFView, IdentityFView, kAM)
TQ_FRAME_CONVERSION(FViewToFFlower, IdentityFView, kAInv)
TQ_FRAME_CONVERSION(FViewToVView, IdentityFView, kInvA)
TQ_FRAME_CONVERSION(VViewToFFlower, IdentityVFlower, kInvAM)
TQ_FRAME_CONVERSION(VViewToVFlower, IdentityVFlower, kAM)
TQ_FRAME_CONVERSION(VFlowerToVView, IdentityVFlower, kAInv)
TQ_FRAME_CONVERSION(VFlowerToFFlower, IdentityVFlower, kInvA)
#undef TQ_FRAME_CONVERSION

// ---------------------------------------------------------------------------
// ATransform: factorisation

BOOL ATransform::Resolution(const POINTD& p1, const POINTD& p2, ATransform* scale, ATransform* move,
                            ATransform* rotate) const {
  if (scale == nullptr || move == nullptr || rotate == nullptr) return FALSE;
  const TransMatrix& t = m_matrix;
  if (!Finite(t) || !std::isfinite(p1.x) || !std::isfinite(p1.y) || !std::isfinite(p2.x) || !std::isfinite(p2.y))
    return FALSE;
  const double a11 = std::fabs(t.m11), a12 = std::fabs(t.m12), a21 = std::fabs(t.m21), a22 = std::fabs(t.m22);
  double det = t.m11 * t.m22 - t.m12 * t.m21;
  if (!(std::fabs(det) >= kEps)) return FALSE;
  // A deliberate rule of this library, asymmetric on purpose: a vanishing
  // m22 always fails, while a vanishing m11 with a usable m22 passes on.
  if ((a11 < kEps && a22 < kEps) || (a22 < kEps && a11 > kEps)) return FALSE;
  if ((a12 < kEps && a21 > kEps) || (a21 < kEps && a12 > kEps)) return FALSE;

  double sx, sy, c, s;
  if (t.m11 == 0.0) {
    // Quarter-turn form. The checks above keep m22 away from zero, so this
    // branch is only reached by matrices it cannot reproduce exactly.
    ASSERT(t.m22 == 0.0 && t.m12 != 0.0 && t.m21 != 0.0);
    sx = t.m12;
    sy = -t.m21;
    c = 0.0;
    s = 1.0;
  } else if (a21 < kEps) {
    ASSERT(t.m12 == 0.0);
    sx = t.m11;
    sy = t.m22;
    c = 1.0;
    s = 0.0;
  } else {
    if (std::fabs(t.m11 * t.m21 + t.m12 * t.m22) > 1e-12) return FALSE;
    sx = std::sqrt(det * t.m11 / t.m22);
    if (!(sx > 0) || !std::isfinite(sx)) return FALSE;
    sy = det / sx;
    c = t.m11 / sx;
    s = t.m12 / sx;
    if (!(std::fabs(1 - c * c - s * s) <= 1e-12)) return FALSE;
  }

  TransMatrix S = ScaleMatrix(sx, sy, p1.x, p1.y);
  TransMatrix R = RotateMatrix(c, s, p2.x, p2.y);
  // S x M x R = T with M a translation m: (S.off + m) * R.lin + R.off =
  // T.off, so m = (T.off - R.off) * R.lin^-1 - S.off.
  double ux = t.dx - R.dx, uy = t.dy - R.dy;
  double n = c * c + s * s;
  double mx = (ux * c + uy * s) / n - S.dx;
  double my = (-ux * s + uy * c) / n - S.dy;
  const TransMatrix M = Make(1.0, 0.0, 0.0, 1.0, mx, my);
  if (!Finite(S) || !Finite(M) || !Finite(R)) return FALSE;  // factors that overflow
  scale->m_matrix = S;
  move->m_matrix = M;
  rotate->m_matrix = R;
  return TRUE;
}
