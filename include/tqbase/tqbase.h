// tqbase.h - the whole public interface of tqBase.
#ifndef TQBASE_TQBASE_H
#define TQBASE_TQBASE_H

#include "tqbase/tqbasexp.h"
#include "tqbase/anxfuns.h"
#include "tqbase/errorinfo.h"
#include "tqbase/memorymanage.h"
#include "tqbase/amathopt.h"
#include "tqbase/acompress.h"
#include "tqbase/geometry.h"
#include "tqbase/transform.h"
#include "tqbase/acycle.h"
#include "tqbase/cloopgrpopt.h"
#include "tqbase/crstlines.h"
#include "tqbase/ellipse.h"
#include "tqbase/unittrans.h"
#include "tqbase/abaseobj.h"
#include "tqbase/adocobj.h"
#include "tqbase/profile.h"
#include "tqbase/aundo.h"
#include "tqbase/aclrobj.h"
#include "tqbase/colorspace.h"
#include "tqbase/aclrgroup.h"
#include "tqbase/argbtocmyk.h"
#include "tqbase/inkcountinfo.h"
#include "tqbase/statusprogress.h"
#include "tqbase/tqbaseapp.h"

#endif  // TQBASE_TQBASE_H
