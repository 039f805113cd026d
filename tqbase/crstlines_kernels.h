// crstlines_kernels.h - the two-operand boolean sweep of the region engine
// (crstlines_kernels.cpp), private to the engine.
#ifndef TQBASE_CRSTLINES_KERNELS_H
#define TQBASE_CRSTLINES_KERNELS_H

#include "crstlines_core.h"

namespace tqrgn {

// The pixels of (a mode b), mode RST_AND..RST_XOR, for clean operands
// (Operand::Prepare), appended to out as one piece per band of consecutive
// non-empty rows, top to bottom. May throw (bad_alloc, TooLarge).
// Hidden explicitly: GCC gives the dispatcher of a target_clones function
// default visibility whatever -fvisibility says, which would export it.
#if defined(__GNUC__) && !defined(_WIN32)
__attribute__((visibility("hidden")))
#endif
void CombineClean(const Operand& a, const Operand& b, int mode, PieceList& out);

}  // namespace tqrgn

#endif  // TQBASE_CRSTLINES_KERNELS_H
