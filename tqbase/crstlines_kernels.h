// crstlines_kernels.h - the two-operand boolean sweep of the region engine
// (crstlines_kernels.cpp), private to the engine.
#ifndef TQBASE_CRSTLINES_KERNELS_H
#define TQBASE_CRSTLINES_KERNELS_H

#include "crstlines_core.h"

namespace tqrgn {

// The pixels of (a mode b), mode RST_AND..RST_XOR, for clean operands
// (Operand::Prepare), appended to out as one piece per band of consecutive
// non-empty rows, top to bottom. May throw (bad_alloc, TooLarge).
void CombineClean(const Operand& a, const Operand& b, int mode, PieceList& out);

}  // namespace tqrgn

#endif  // TQBASE_CRSTLINES_KERNELS_H
