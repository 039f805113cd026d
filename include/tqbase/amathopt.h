// amathopt.h - AMathOpt: raster maths helpers shared by the codecs and the
// region engine (resampling maps, point-set bounds). All members static.
#ifndef TQBASE_AMATHOPT_H
#define TQBASE_AMATHOPT_H

#include "tqbase/tqbasexp.h"

class TQBASE_API AMathOpt {
public:
  // Prepares the maths tables; returns 1 and never stops the load.
  static BOOL Init();
  static void Exit();
};

#endif  // TQBASE_AMATHOPT_H
