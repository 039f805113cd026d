// acompress.cpp - ACompress table set-up.
#include "tqbase/acompress.h"

BOOL ACompress::Init() { return TRUE; }
void ACompress::Exit() {}
