// crstlines.cpp - CRstLines, the owning region object: its life, creation,
// copies, offsets, union and difference in place, mirrors and data
// hand-over.
//
// Every operation that changes the object builds what it needs first and
// installs it with Adopt only when nothing can fail any more, so that a
// failure leaves the object as it was. Relies on the rest of the engine.
#include <algorithm>
#include <climits>

#include "crstlines_combine.h"
#include "crstlines_fold.h"
#include "tqbase/anxfuns.h"

using namespace tqrgn;

CRstLines::CRstLines() : m_pRstArray(nullptr), m_bOwnData(TRUE) { SetRectEmpty(&m_rcBox); }

CRstLines::CRstLines(const CRstLines& other) : m_pRstArray(nullptr), m_bOwnData(TRUE) {
  SetRectEmpty(&m_rcBox);
  Copy(&other);
}

CRstLines& CRstLines::operator=(const CRstLines& other) {
  if (this != &other) Copy(&other);
  return *this;
}

CRstLines::~CRstLines() {
  if (m_bOwnData) Delete(m_pRstArray);
}

void CRstLines::Adopt(CRasterArray* arr) {
  if (m_bOwnData && m_pRstArray != arr) Delete(m_pRstArray);
  m_pRstArray = arr;
  m_bOwnData = TRUE;
  Update();
}

void CRstLines::SetEmpty() {
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return;
  Adopt(nullptr);
  RGN_VALIDATE(Invariant(*this));
}

BOOL CRstLines::IsEmpty() const { return IsEmpty(m_pRstArray); }

void CRstLines::Update() { m_rcBox = GetBox(m_pRstArray); }

// ---- creation ------------------------------------------------------------------------

namespace {
// An array holding the one piece p (taken over; freed on failure).
CRasterArray* ArrayOf(RSRLINE* piece, const char* op) {
  OwnedPiece p(piece);
  OwnedArray arr;
  if (!Guarded(op, [&] {
        arr = NewArray();
        arr->Add(p.get());
        p.release();
        return true;
      }))
    return nullptr;
  return arr.release();
}
}  // namespace

BOOL CRstLines::Create(const POINT* pts, int n, AFillMode mode) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData || !pts || n == 0) return FALSE;
  RSRLINE* p = CreateRaster(pts, n, mode);
  if (!p) return FALSE;
  CRasterArray* arr = ArrayOf(p, "CRstLines::Create");
  if (!arr) return FALSE;
  Adopt(arr);
  RGN_VALIDATE(Invariant(*this));
  return TRUE;
}

BOOL CRstLines::Create(const POINT* pts, const int* counts, int nPolys, AFillMode mode, int nJoin) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  CRasterArray* arr = CreateRasterArray(pts, counts, nPolys, mode, nJoin);
  if (!arr) return FALSE;
  Adopt(arr);
  RGN_VALIDATE(Invariant(*this));
  return TRUE;
}

BOOL CRstLines::Create(const RECT& rcIn, int nInflate, double dScale) {
  static const char op[] = "CRstLines::Create";
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  long long l = rcIn.left, t = rcIn.top, r = rcIn.right, b = rcIn.bottom;
  if (dScale > 0 && dScale != 1.0) {
    l = AnxFloatToInt(l * dScale, TRUE);
    t = AnxFloatToInt(t * dScale, TRUE);
    r = AnxFloatToInt(r * dScale, TRUE);
    b = AnxFloatToInt(b * dScale, TRUE);
  }
  l -= nInflate;
  t -= nInflate;
  r += nInflate;
  b += nInflate;
  // The last pixel is right - 1 / bottom - 1, and must stay inside int.
  if (r <= l || b <= t || l < INT_MIN || t < INT_MIN || r - 1 > INT_MAX || b - 1 > INT_MAX) {
    SetEmpty();
    return FALSE;
  }
  RSRLINE* piece = nullptr;
  if (!Guarded(op, [&] {
        if (b - t > kMaxRows) throw TooLarge();
        OwnedPiece p = NewPiece(b - t, b - t);
        std::fill(p->arRun.begin(), p->arRun.end(), RSRUN{(int)l, (int)(r - 1)});
        std::fill(p->arCount.begin(), p->arCount.end(), 1);
        p->rcBox = RECT{(LONG)l, (LONG)t, (LONG)(r - 1), (LONG)(b - 1)};
        piece = p.release();
        return true;
      }))
    return FALSE;
  CRasterArray* arr = ArrayOf(piece, op);
  if (!arr) return FALSE;
  Adopt(arr);
  RGN_VALIDATE(Invariant(*this));
  return TRUE;
}

BOOL CRstLines::Create(const ANLOOPGRP* group) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  CRasterArray* arr = CreateRasterArray(group, ALTERNATE_FILL);
  if (!arr) return FALSE;
  Adopt(arr);
  RGN_VALIDATE(Invariant(*this));
  return TRUE;
}

BOOL CRstLines::Copy(const CRstLines* src) {
  if (!src) return FALSE;
  if (src == this) return TRUE;
  return Copy(src->m_pRstArray);
}

BOOL CRstLines::Copy(const CRasterArray* src) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  if (src == m_pRstArray) return TRUE;
  if (!src) {
    SetEmpty();
    return TRUE;
  }
  OwnedArray arr;
  if (!Guarded("CRstLines::Copy", [&] {
        arr = NewArray();
        return true;
      }))
    return FALSE;
  if (!CopyRasterArray(arr.get(), src)) return FALSE;
  Adopt(arr.release());
  RGN_VALIDATE(Invariant(*this));
  return TRUE;
}

BOOL CRstLines::Offset(int dx, int dy) {
  if (dx == 0 && dy == 0) return m_pRstArray == nullptr;
  if (!m_pRstArray) return TRUE;
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  RGN_VALIDATE(Invariant(*this));
  if (Offset(m_pRstArray, dx, dy)) Update();
  RGN_VALIDATE(Invariant(*this));
  return FALSE;
}

// ---- union and difference ------------------------------------------------------------

int CRstLines::Add(const RSRLINE* piece, int bAdd, const ACycle* cycle) {
  if (!piece || piece->arRun.GetSize() == 0) return RST_FAILED;
  // A non-owning one-element view of the piece.
  CRasterArray view;
  if (!Guarded("CRstLines::Add", [&] {
        view.Add(const_cast<RSRLINE*>(piece));
        return true;
      }))
    return RST_FAILED;
  const int rc = Add(&view, bAdd, cycle);
  view.vec().clear();
  return rc;
}

// Union, and difference without a usable cycle, change the array in place:
// only the pieces that can meet the operand are touched. The difference
// on a repeat combines the two repeats and takes the base-cell copy.
int CRstLines::Add(const CRasterArray* arr, int bAdd, const ACycle* cycle) {
  static const char op[] = "CRstLines::Add";
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return RST_FAILED;
  if (!arr) {
    Fail(op, kInvalidRegion);
    return RST_FAILED;
  }
  RGN_VALIDATE(Invariant(*this));
  if (!bAdd && CycleUsable(cycle)) {
    CRasterArray none;
    CRasterArray* result = nullptr;
    const int rc = Combine(m_pRstArray ? m_pRstArray : &none, arr, RST_DIFF, &result, cycle);
    if (rc == RST_FAILED) return rc;
    Adopt(result);
    RGN_VALIDATE(Invariant(*this));
    return rc;
  }
  RECT box;
  if (!m_pRstArray) {
    if (!bAdd) return RST_EMPTY;
    OwnedArray fresh;
    if (!Guarded(op, [&] {
          fresh = NewArray();
          return true;
        }))
      return RST_FAILED;
    if (!ChangeInPlace(*fresh, arr, true, &box, op)) return RST_FAILED;
    if (fresh->GetSize() == 0) return RST_EMPTY;
    Adopt(fresh.release());
    RGN_VALIDATE(Invariant(*this));
    return RST_NOTEMPTY;
  }
  const bool ok = ChangeInPlace(*m_pRstArray, arr, bAdd != 0, &box, op);
  if (!ok) return RST_FAILED;
  if (m_pRstArray->GetSize() == 0) {
    Adopt(nullptr);
    return RST_EMPTY;
  }
  m_rcBox = box;
  RGN_VALIDATE(Invariant(*this));
  return RST_NOTEMPTY;
}

int CRstLines::Combine(const CRstLines* a, const CRstLines* b, int mode, const ACycle* cycle) {
  if (!a || !b) return RST_FAILED;
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return RST_FAILED;
  CRasterArray none;
  const CRasterArray* pa = a->m_pRstArray ? a->m_pRstArray : &none;
  const CRasterArray* pb = b->m_pRstArray ? b->m_pRstArray : &none;
  // This region as one operand of a union or the minuend of a difference:
  // changed in place.
  if (a == this && (mode == RST_OR || mode == RST_DIFF)) return Add(pb, mode == RST_OR, cycle);
  if (b == this && mode == RST_OR) return Add(pa, 1, nullptr);
  RGN_VALIDATE(Invariant(*this));
  CRasterArray* result = nullptr;
  const int rc = Combine(pa, pb, mode, &result, cycle);
  if (rc == RST_FAILED) return rc;
  Adopt(result);
  RGN_VALIDATE(Invariant(*this));
  return rc;
}

BOOL CRstLines::PtInRstLines(const POINT& pt, const ACycle* cycle) const {
  if (!m_pRstArray) return FALSE;
  return PtInRasterArray(m_pRstArray, pt, cycle);
}

void CRstLines::HorMirror() {
  if (!m_pRstArray) return;
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return;
  RGN_VALIDATE(Invariant(*this));
  const CRect rc(m_rcBox);
  HorMirror(m_pRstArray, rc);
  Update();
  RGN_VALIDATE(Invariant(*this));
}

void CRstLines::VerMirror() {
  if (!m_pRstArray) return;
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return;
  RGN_VALIDATE(Invariant(*this));
  const CRect rc(m_rcBox);
  VerMirror(m_pRstArray, rc);
  Update();
  RGN_VALIDATE(Invariant(*this));
}

BOOL CRstLines::GetBaryCenter(POINTD& pt) {
  if (!m_pRstArray) return FALSE;
  return GetBaryCenter(m_pRstArray, pt);
}

// ---- hand-over -------------------------------------------------------------------------

void CRstLines::SetData(CRasterArray** pp) {
  if (!pp) return;
  RGN_VALIDATE(Invariant(*this));
  CRasterArray* arr = *pp;
  *pp = nullptr;
  if (IsEmpty(arr)) {
    Delete(arr);
    if (!m_bOwnData) m_pRstArray = nullptr;
    Adopt(nullptr);
    return;
  }
  ASSERT(IsValid(arr));
  Adopt(arr);
  RGN_VALIDATE(Invariant(*this));
}

void CRstLines::SetData(CRasterArray* arr) {
  RGN_VALIDATE(Invariant(*this));
  if (IsEmpty(arr)) {
    if (!m_bOwnData) m_pRstArray = nullptr;
    Adopt(nullptr);
    return;
  }
  ASSERT(IsValid(arr));
  if (arr == m_pRstArray) return;
  OwnedArray copy;
  if (!Guarded("CRstLines::SetData", [&] {
        copy = NewArray();
        return true;
      }))
    return;
  if (!CopyRasterArray(copy.get(), arr)) return;
  Adopt(copy.release());
  RGN_VALIDATE(Invariant(*this));
}

void CRstLines::MoveData(CRstLines* other) {
  if (!other || other == this) return;
  RGN_VALIDATE(Invariant(*this) && Invariant(*other));
  if (m_bOwnData) Delete(m_pRstArray);
  m_pRstArray = other->m_pRstArray;
  m_rcBox = other->m_rcBox;
  m_bOwnData = other->m_bOwnData;
  other->m_pRstArray = nullptr;
  other->m_bOwnData = TRUE;
  SetRectEmpty(&other->m_rcBox);
  RGN_VALIDATE(Invariant(*this) && Invariant(*other));
}
