// args.h - the value grammar shared by the tqbase tool's commands: sizes
// and resolutions with units ("64cm", "300dpi"), repeat cells
// ("WxH+P"), and numbers shown without trailing zeros.
#ifndef TQBASE_TOOLS_ARGS_H
#define TQBASE_TOOLS_ARGS_H

#include <string>

namespace tqtool {

struct UnitName {
  const char* name;
  bool resolution;  // a resolution unit, else a size unit
  int unit;
};

extern const char* const kSizeShort[];  // by SIZEUNIT_ value
extern const char* const kResShort[];   // by RESUNIT_ value
extern const char kUnitHelp[];

std::string Lower(std::string s);
// A unit by its short name (any case) or by the library's display name.
bool FindUnit(const std::string& text, UnitName* out);
// "25.4", "25.4mm", "300 dpi": the number and the unit text after it.
bool SplitQuantity(const std::string& text, double* value, std::string* unit);
// A size ("64cm") or a resolution ("300dpi") with its unit, which must be
// of the kind asked for; err says what was expected.
bool ParseQuantity(const std::string& text, bool resolution, double* value, int* unit, std::string* err);
// At most digits decimals, without trailing zeros ("11.8", not "11.8000").
std::string Number(double v, int digits);

// A repeat cell: "WxH", "WxH+P" or "WxH-P" (P the displacement, 0 when
// left out); both sides from 1 to maxSide.
bool ParseCycle(const std::string& text, int* w, int* h, int* p, std::string* err, long long maxSide = 1000000);

}  // namespace tqtool

#endif  // TQBASE_TOOLS_ARGS_H
