// ellipse_geometry.cpp - CEllipse's ellipse geometry: the eight octant
// symmetries (EllSep0..7, m_EllSepProc), turned rectangle corners, the
// centre and semi-axes of a transformed ellipse, bounding boxes, points on
// an ellipse and its cross-sections. Directions come from the shared
// Direction, whose quarter turns are exact, so mirrored and turned shapes
// give mirrored and turned points.
#include "ellipse_core.h"

#include <algorithm>
#include <cmath>

using namespace tqell;

void CEllipse::EllSep0(double u, double v, double& x, double& y) { x = u; y = v; }
void CEllipse::EllSep1(double u, double v, double& x, double& y) { x = v; y = u; }
void CEllipse::EllSep2(double u, double v, double& x, double& y) { x = -v; y = u; }
void CEllipse::EllSep3(double u, double v, double& x, double& y) { x = -u; y = v; }
void CEllipse::EllSep4(double u, double v, double& x, double& y) { x = -u; y = -v; }
void CEllipse::EllSep5(double u, double v, double& x, double& y) { x = -v; y = -u; }
void CEllipse::EllSep6(double u, double v, double& x, double& y) { x = v; y = -u; }
void CEllipse::EllSep7(double u, double v, double& x, double& y) { x = u; y = -v; }

const ELLSEPPROC CEllipse::m_EllSepProc[8] = {&CEllipse::EllSep0, &CEllipse::EllSep1,
                                              &CEllipse::EllSep2, &CEllipse::EllSep3,
                                              &CEllipse::EllSep4, &CEllipse::EllSep5,
                                              &CEllipse::EllSep6, &CEllipse::EllSep7};

void CEllipse::RotateRect(const RECT& rect, double angle, POINTD* corners) {
  ASSERT(corners != nullptr);
  if (!corners) return;
  const POINTD c = CentreOf(rect);
  const double hw = ((double)rect.right - rect.left) * 0.5, hh = ((double)rect.bottom - rect.top) * 0.5;
  double cs = 1.0, sn = 0.0;
  if (std::isfinite(angle)) Direction(angle, &cs, &sn);
  const double us[4] = {-hw, hw, hw, -hw}, vs[4] = {-hh, -hh, hh, hh};
  for (int i = 0; i < 4; ++i)
    corners[i] = POINTD(c.x + us[i] * cs - vs[i] * sn, c.y + us[i] * sn + vs[i] * cs);
}

BOOL CEllipse::GetEllipseParam(const RECTD& rect, const ATransform& trans, POINTD& centre,
                               double& a, double& b, double& angle) {
  const TransMatrix& m = trans.GetMatrix();
  const double v[10] = {rect.left, rect.top, rect.right, rect.bottom, m.m11, m.m12, m.m21, m.m22, m.dx, m.dy};
  for (double x : v)
    if (!std::isfinite(x)) {
      g_Error.SetLastError("CEllipse: the rectangle or the transform is not a finite number");
      return FALSE;
    }
  const double A = std::fabs(rect.right - rect.left) * 0.5, B = std::fabs(rect.bottom - rect.top) * 0.5;
  double cx = (rect.left + rect.right) * 0.5, cy = (rect.top + rect.bottom) * 0.5;
  trans.CalcPoint(cx, cy);
  // The images of the semi-axes, U of the horizontal one and V of the
  // vertical one; their Gram matrix [E F; F G] has the eigenvalues a^2 and
  // b^2, and a b = |det [U; V]|.
  const double ux = A * m.m11, uy = A * m.m12, vx = B * m.m21, vy = B * m.m22;
  const double E = ux * ux + vx * vx, G = uy * uy + vy * vy, F = ux * uy + vx * vy;
  const double det = m.m11 * m.m22 - m.m12 * m.m21;  // exactly 0 for a singular transform
  const double D = std::fabs(A * B * det);
  const double ra = std::sqrt((E + G) * 0.5 + std::hypot((E - G) * 0.5, F));
  const double rb = ra > 0.0 ? std::min(D / ra, ra) : 0.0;
  double t = 0.5 * std::atan2(2.0 * F, E - G);
  if (t < 0.0) t += kPi;
  if (t >= kPi) t -= kPi;
  if (!(std::isfinite(cx) && std::isfinite(cy) && std::isfinite(ra) && std::isfinite(rb))) {
    g_Error.SetLastError("CEllipse: the transformed ellipse exceeds the range of numbers");
    return FALSE;
  }
  centre = POINTD(cx, cy);
  a = ra;
  b = rb;
  angle = t;
  return TRUE;
}

BOOL CEllipse::GetEllipseBorder(const POINTD& centre, double a, double b, double angle, RECT& border) {
  if (!(std::isfinite(centre.x) && std::isfinite(centre.y) && std::isfinite(a) && std::isfinite(b) &&
        std::isfinite(angle))) {
    g_Error.SetLastError("CEllipse: the shape's coordinates are not finite numbers");
    return FALSE;
  }
  const Bounds bd = EllGeom(centre, std::fabs(a), std::fabs(b), angle).GetBounds();
  const char* why = nullptr;
  if (!PixelBox(bd, &border, &why)) {
    g_Error.SetLastError("%s", why);
    return FALSE;
  }
  return TRUE;
}

BOOL CEllipse::GetRectBorder(const POINTD* corners, int count, RECT& border) {
  ASSERT(corners != nullptr && count >= 1);
  if (!corners || count < 1) {
    g_Error.SetLastError("CEllipse: no corners given");
    return FALSE;
  }
  Bounds bd{corners[0].x, corners[0].y, corners[0].x, corners[0].y};
  for (int i = 1; i < count; ++i) {
    // NaN is kept: it fails PixelBox.
    if (!(corners[i].x >= bd.xmin)) bd.xmin = corners[i].x;
    if (!(corners[i].x <= bd.xmax)) bd.xmax = corners[i].x;
    if (!(corners[i].y >= bd.ymin)) bd.ymin = corners[i].y;
    if (!(corners[i].y <= bd.ymax)) bd.ymax = corners[i].y;
  }
  const char* why = nullptr;
  if (!PixelBox(bd, &border, &why)) {
    g_Error.SetLastError("%s", why);
    return FALSE;
  }
  return TRUE;
}

POINTD CEllipse::EllipsePoint(const POINTD& centre, double a, double b, double angle, double theta) {
  a = std::fabs(a);
  b = std::fabs(b);
  double c = 1.0, s = 0.0, ct = 1.0, st = 0.0;
  if (std::isfinite(theta)) Direction(theta, &c, &s);
  if (std::isfinite(angle)) Direction(angle, &ct, &st);
  // The direction in the ellipse's own axes, and the radius along it:
  // r = a b / |(b cos, a sin)|.
  const double cu = c * ct + s * st, su = s * ct - c * st;
  const double den = std::hypot(b * cu, a * su);
  const double r = den > 0.0 ? a * b / den : std::max(a, b);
  return POINTD(centre.x + r * c, centre.y + r * s);
}

BOOL CEllipse::GetEllBoundary(const POINTD& centre, double a, double b, double angle, double y,
                              double& x1, double& x2) {
  if (!(std::isfinite(centre.x) && std::isfinite(centre.y) && std::isfinite(a) && std::isfinite(b) &&
        std::isfinite(angle) && std::isfinite(y)))
    return FALSE;
  const EllGeom geom(centre, std::fabs(a), std::fabs(b), angle);
  const double eta = y - geom.cy;
  if (!(geom.G > 0.0)) {
    // Flat: the horizontal segment through the centre.
    if (eta != 0.0) return FALSE;
    const double hx = std::sqrt(geom.E);
    x1 = geom.cx - hx;
    x2 = geom.cx + hx;
    return TRUE;
  }
  if (eta * eta > geom.G) return FALSE;
  const EllSection section(geom);
  section(y, &x1, &x2);
  return TRUE;
}
