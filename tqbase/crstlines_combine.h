// crstlines_combine.h - the boolean algebra of raster arrays as the rest of
// the region engine uses it (crstlines_combine.cpp), private to the engine.
#ifndef TQBASE_CRSTLINES_COMBINE_H
#define TQBASE_CRSTLINES_COMBINE_H

#include "crstlines_core.h"

namespace tqrgn {

// region becomes region OR operand (unite) or region minus operand, in
// place. Union: the pieces of region that meet the operand (share a pixel
// with it or touch it side by side) are united with it into new pieces,
// one per band of consecutive non-empty rows, placed by top; difference:
// each piece that shares a pixel with the operand is replaced where it
// stood by its difference. Every other piece is kept as it is, not copied.
// *box receives the box of the result. On failure (recorded under op)
// region is unchanged.
bool ChangeInPlace(CRasterArray& region, const CRasterArray* operand, bool unite, RECT* box, const char* op);

// The two-array combination (a mode b) into new pieces appended to out;
// a usable cycle brings both operands into the repeat first (not for OR).
bool CombineArrays(const CRasterArray* a, const CRasterArray* b, int mode, const ACycle* cycle, PieceList& out,
                   const char* op);

}  // namespace tqrgn

#endif  // TQBASE_CRSTLINES_COMBINE_H
