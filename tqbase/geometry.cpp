// geometry.cpp - the out-of-line members of RECTD: normalising, squaring,
// union and the bounding box of a point list. The conversions and
// comparisons are inline in geometry.h, where the hot paths see them.
#include "tqbase/geometry.h"

#include <utility>

void RECTD::NormalizeRect() {
  if (left > right) std::swap(left, right);
  if (top > bottom) std::swap(top, bottom);
}

void RECTD::NormalizeBorder() {
  NormalizeRect();
  if (Width() == 0.0) right = left + 1.0;
  if (Height() == 0.0) bottom = top + 1.0;
  // The larger side; on a tie the height, which is the same value.
  double side = Height() < Width() ? Width() : Height();
  right = left + side;
  bottom = top + side;
}

void RECTD::UnionRect(const RECTD& a, const RECTD& b) {
  // Computed into locals first so that a or b may be this rectangle.
  double l = a.left < b.left ? a.left : b.left;
  double t = a.top < b.top ? a.top : b.top;
  double r = a.right > b.right ? a.right : b.right;
  double btm = a.bottom > b.bottom ? a.bottom : b.bottom;
  SetRect(l, t, r, btm);
}

void RECTD::GetBorderRect(const POINTD* points, long count) {
  if (points == nullptr || count <= 0) {
    SetRectEmpty();
    return;
  }
  double l = points[0].x, r = points[0].x;
  double t = points[0].y, b = points[0].y;
  for (long i = 1; i < count; ++i) {
    const POINTD& p = points[i];
    if (p.x < l) l = p.x;
    else if (p.x > r) r = p.x;
    if (p.y < t) t = p.y;
    else if (p.y > b) b = p.y;
  }
  SetRect(l, t, r, b);
}
