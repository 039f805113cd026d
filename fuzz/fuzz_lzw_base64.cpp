// fuzz_lzw_base64.cpp - the LZW decoders on arbitrary bit streams and code
// arrays, LZW and bit-stream round trips, and Base64 both ways.
// Input: selector byte, then the data.
#include "fuzz_codec_common.h"

#include <cstdio>
#include <memory>
#include <string>

using tqfuzz::Reader;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tqfuzz::Quiet();
  Reader r{data, size};
  const unsigned sel = r.Byte();
  const unsigned long cap = r.U16();
  std::vector<uint8_t> in = r.Rest();
  const unsigned long n = in.size();
  std::unique_ptr<uint8_t[]> src(new uint8_t[n ? n : 1]);
  if (n) std::memcpy(src.get(), in.data(), n);
  unsigned long len = 0;
  switch (sel % 6) {
    case 0: {  // bit stream -> bytes
      std::unique_ptr<uint8_t[]> out(new uint8_t[cap ? cap : 1]);
      ACompress::UnComp_LZW(src.get(), n, out.get(), cap, len);
      if (len) FUZZ_CHECK(len + 6 <= cap);
      break;
    }
    case 1: {  // codes -> bytes
      const unsigned long count = n / 2;
      std::unique_ptr<unsigned short[]> codes(new unsigned short[count ? count : 1]);
      for (unsigned long i = 0; i < count; ++i)
        codes[i] = (unsigned short)(in[2 * i] | in[2 * i + 1] << 8);
      std::unique_ptr<uint8_t[]> out(new uint8_t[cap ? cap : 1]);
      ACompress::UnPack_LZW(codes.get(), count, out.get(), cap, len);
      break;
    }
    case 2: {  // bytes -> LZW -> bytes
      if (!n) break;
      const unsigned long zcap = 2 * n + 16;
      std::unique_ptr<uint8_t[]> z(new uint8_t[zcap]);
      if (!ACompress::Comp_LZW(src.get(), n, z.get(), zcap, len)) {
        FUZZ_CHECK(n <= 5);  // the code array holds only 1.5 codes per byte
        break;
      }
      std::unique_ptr<uint8_t[]> back(new uint8_t[n + 6]);
      unsigned long blen = 0;
      FUZZ_CHECK(ACompress::UnComp_LZW(z.get(), len, back.get(), n + 6, blen));
      FUZZ_CHECK(blen == n && std::memcmp(back.get(), src.get(), n) == 0);
      break;
    }
    case 3: {  // bit stream -> codes -> bit stream
      if (n < 2) break;
      std::unique_ptr<unsigned short[]> codes(new unsigned short[n]);
      unsigned long count = 0;
      FUZZ_CHECK(ACompress::ResumeDataBit(src.get(), n, codes.get(), count));
      FUZZ_CHECK(count <= n);
      if (!count) break;
      std::unique_ptr<uint8_t[]> bits(new uint8_t[n + 2]);
      FUZZ_CHECK(ACompress::TransformDataBits(codes.get(), count, bits.get(), n + 2, len));
      std::unique_ptr<unsigned short[]> again(new unsigned short[len]);
      unsigned long count2 = 0;
      FUZZ_CHECK(ACompress::ResumeDataBit(bits.get(), len, again.get(), count2));
      FUZZ_CHECK(count2 >= count && std::memcmp(again.get(), codes.get(), count * 2) == 0);
      break;
    }
    case 4: {  // Base64 decode of any text
      std::string text(in.begin(), in.end());
      char* d = ACompress::Base64_Decode(text.c_str());
      FUZZ_CHECK(d != nullptr);
      ACompress::Base64_Free(&d);
      break;
    }
    default: {  // Base64 round trip
      std::string text(in.begin(), in.end());
      text = text.c_str();  // up to the first NUL
      char* e = ACompress::Base64_Encode(text.c_str());
      FUZZ_CHECK(e != nullptr && std::strlen(e) == (text.size() + 2) / 3 * 4);
      char* d = ACompress::Base64_Decode(e);
      FUZZ_CHECK(d != nullptr && text == d);
      ACompress::Base64_Free(&e);
      ACompress::Base64_Free(&d);
      break;
    }
  }
  return 0;
}
