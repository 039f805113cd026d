// cloopgrpopt_build.cpp - the loop-group creators that build a region
// first: from a rectangle, and from the combination of two groups or two
// polygons.
//
// Relies on the region engine (CRstLines) and the tracing.
#include "tqbase/cloopgrpopt.h"

#include "tqbase/amathopt.h"
#include "tqbase/crstlines.h"

ANLOOP* CLoopGrpOpt::CreateAnloop(const RECT& rc, int nInflate, double dScale) {
  CRstLines r;
  if (!r.Create(rc, nInflate, dScale)) return nullptr;
  ANLOOP* l = CreateAnloop(r.GetData()->GetAt(0));
  if (l) AMathOpt::GetBorderRect(l->pPoints, l->nPoints, l->rcBox);
  return l;
}

namespace {
// The traced loops of a region given as an owned array (freed here).
ANLOOPGRP* TraceResult(CRasterArray* arr) {
  ANLOOPGRP* g = CLoopGrpOpt::CreateAnloopGrp(arr);
  CRstLines::Delete(arr);
  return g;
}
}  // namespace

ANLOOPGRP* CLoopGrpOpt::CreateAnloopGrp(const ANLOOPGRP* a, const ANLOOPGRP* b, int mode) {
  if (IsEmpty(a) || IsEmpty(b) || mode < RST_AND || mode > RST_XOR) return nullptr;
  CRstLines ra, rb;
  if (!ra.Create(a) || !rb.Create(b)) return nullptr;
  CRasterArray* out = nullptr;
  if (CRstLines::Combine(ra.GetData(), rb.GetData(), mode, &out, nullptr) != RST_NOTEMPTY) return nullptr;
  return TraceResult(out);
}

ANLOOPGRP* CLoopGrpOpt::CreateAnloopGrp(const POINT* a, int na, const POINT* b, int nb, int mode) {
  if (!a || !b || na < 1 || nb < 1 || mode < RST_AND || mode > RST_XOR) return nullptr;
  CRstLines ra, rb;
  if (!ra.Create(a, na, ALTERNATE_FILL) || !rb.Create(b, nb, ALTERNATE_FILL)) return nullptr;
  CRasterArray* out = nullptr;
  if (CRstLines::Combine(ra.GetData(), rb.GetData(), mode, &out, nullptr) != RST_NOTEMPTY) return nullptr;
  return TraceResult(out);
}

