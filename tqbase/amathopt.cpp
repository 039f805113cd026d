// amathopt.cpp - AMathOpt raster maths helpers.
#include "tqbase/amathopt.h"

BOOL AMathOpt::Init() { return TRUE; }
void AMathOpt::Exit() {}
