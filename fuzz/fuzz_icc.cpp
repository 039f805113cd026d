// fuzz_icc.cpp - ICC profiles from fuzz bytes into the colour engine: a
// profile that is refused leaves a text in g_Error and the engine as it
// was (converting exactly as before); one that is taken converts.
// Input: a selector byte (which side the bytes are), then the profile.
#include "fuzz_codec_common.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using tqfuzz::Reader;

namespace {

std::vector<char> DefaultCmyk() {
  std::ifstream f("/usr/share/color/icc/ghostscript/default_cmyk.icc", std::ios::binary);
  return std::vector<char>((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tqfuzz::Quiet();
  static ARGBToCMYK engine;
  static const std::vector<char> cmyk = DefaultCmyk();
  static const bool ready = engine.Init();
  if (!ready) return 0;  // no default profiles on this machine
  Reader r{data, size};
  const unsigned sel = r.Byte();
  const std::vector<uint8_t> profile = r.Rest();
  const BYTE probe[6] = {10, 200, 30, 250, 250, 250};
  BYTE before[8], after[8];
  FUZZ_CHECK(engine.Convert(probe, before, 2));
  g_Error.ClearError();
  BOOL ok;
  if (sel % 2)
    ok = engine.SetProfilesFromMemory(profile.data(), (DWORD)profile.size(), cmyk.data(), (DWORD)cmyk.size(), sel % 4,
                                      (sel / 4) % 2);
  else
    ok = engine.SetProfilesFromMemory(nullptr, 0, profile.data(), (DWORD)profile.size(), sel % 4, (sel / 4) % 2);
  FUZZ_CHECK(engine.IsReady());
  if (!ok) {
    FUZZ_CHECK(g_Error.IsError());
    FUZZ_CHECK(engine.Convert(probe, after, 2));
    FUZZ_CHECK(std::memcmp(before, after, sizeof before) == 0);
    return 0;
  }
  FUZZ_CHECK(engine.Convert(probe, after, 2));
  BYTE rgb[6];
  FUZZ_CHECK(engine.ConvertToRGB(after, rgb, 2));
  engine.Init();  // back to the defaults for the next input
  return 0;
}
