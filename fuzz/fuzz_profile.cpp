// fuzz_profile.cpp - the INI reader and the preference parser on arbitrary
// bytes: parsing never reads outside the input (given as an exact-size
// copy), an untouched file writes back byte for byte, a written key reads
// back, and every key of AGFLAGS either takes the text or keeps its value.
#include "fuzz_codec_common.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tqfuzz::Quiet();
  std::unique_ptr<char[]> text(new char[size ? size : 1]);
  if (size) std::memcpy(text.get(), data, size);

  AProfile p;
  FUZZ_CHECK(p.Parse(text.get(), size));
  // Untouched, the text comes back as read, except that a last line gets
  // its line end and lone CRs before LF are the line end.
  CString back = p.GetText();
  AProfile again;
  FUZZ_CHECK(again.Parse(back.GetString(), (size_t)back.GetLength()));
  FUZZ_CHECK(again.GetText() == back);

  CString value;
  p.GetString("GlobalFlags", "ResUnit", value);
  p.GetString("GeneralParams\\GlobalFlags", "ShowRuler", value);
  if (p.SetString("GlobalFlags", "fuzzkey", "  a \"value\" ")) {
    FUZZ_CHECK(p.GetString("GlobalFlags", "fuzzkey", value));
    FUZZ_CHECK(value == "  a \"value\" ");
  }

  // The whole input as the text of every preference key.
  std::string s(text.get(), size);
  s = s.substr(0, s.find('\0'));
  AGFLAGS f;
  for (int k = 0; k < AGFLAGS::GetKeyCount(); ++k) {
    CString before = f.GetKeyValue(k);
    if (!f.SetKeyValue(AGFLAGS::GetKeyName(k), s.c_str())) FUZZ_CHECK(f.GetKeyValue(k) == before);
  }
  FUZZ_CHECK(f.ResUnit >= 1 && f.ResUnit <= 5 && f.SizeUnit >= 1 && f.SizeUnit <= 6);
  FUZZ_CHECK(std::isfinite(f.dDefRes) && std::isfinite(f.dDefWidth));
  return 0;
}
