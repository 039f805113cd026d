// anxfuns.h - the annex helpers: float-to-integer conversion with the
// library's nudge and rounding, number text, string resources.
#ifndef TQBASE_ANXFUNS_H
#define TQBASE_ANXFUNS_H

#include "tqbase/tqbasexp.h"

// Rounds (bRound: adds 0.5 away from zero) then nudges 1e-10 away from zero
// and truncates toward zero, so 2.9999999999 gives 3 even unrounded.
TQBASE_API int AnxFloatToInt(double value, BOOL bRound);
// The same rounding; a negative value gives 0.
TQBASE_API DWORD AnxFloatToDWORD(double value, BOOL bRound);
// String resource id of module as text; empty when the module has none.
TQBASE_API CString AnxLoadString(HINSTANCE module, UINT id);

#endif  // TQBASE_ANXFUNS_H
