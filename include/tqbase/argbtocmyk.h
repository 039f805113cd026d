// argbtocmyk.h - ARGBToCMYK, the colour engine between RGB and CMYK over
// ICC profiles (Little CMS 2). g_RGBtoCMYK separates RGB designs for
// output; g_InputCMYK serves CMYK input (its reverse direction gives the
// RGB of CMYK data, as for proofs). Both directions of every engine work
// once a profile pair is loaded.
//
// Profiles: an RGB profile (colour space RGB) and a CMYK output profile
// (colour space CMYK, class output). By default Init takes Little CMS's
// built-in sRGB and the CMYK profile named by the environment variable
// TQBASE_CMYK_PROFILE, else the first "default_cmyk.icc" found in the
// library's profile folder or Ghostscript's colour folders. A profile that
// is missing, unreadable or of the wrong colour space or class leaves the
// engine as it was (unready at start-up: conversions fail) with a text in
// g_Error; Init never stops the load. A later load that fails keeps the
// previous profiles working.
//
// Transforms are built once per pixel layout and kept; conversions are
// safe from several threads. CMYK bytes run 0 (no ink) to 255 (full ink);
// 16-bit values 0..65535.
#ifndef TQBASE_ARGBTOCMYK_H
#define TQBASE_ARGBTOCMYK_H

#include "tqbase/tqbasexp.h"

#include <memory>
#include <mutex>

class TQBASE_API ARGBToCMYK {
public:
  // Pixel layouts of RGB lines.
  enum RgbLayout {
    LAYOUT_RGB8,      // R, G, B bytes
    LAYOUT_BGR8,      // B, G, R bytes
    LAYOUT_RGBQUAD,   // RGBQUAD: B, G, R, reserved
    LAYOUT_RGB16,     // R, G, B 16-bit values (native byte order)
    LAYOUT_COUNT
  };
  // Rendering intents (the ICC's numbers).
  enum Intent { INTENT_PERCEPTUAL = 0, INTENT_RELATIVE = 1, INTENT_SATURATION = 2, INTENT_ABSOLUTE = 3 };

  ARGBToCMYK();
  ~ARGBToCMYK();
  ARGBToCMYK(const ARGBToCMYK&) = delete;
  ARGBToCMYK& operator=(const ARGBToCMYK&) = delete;

  // Loads the default profiles; TRUE when the engine can convert.
  BOOL Init();
  // Releases the profiles and transforms; conversions fail until a load.
  void Exit();
  BOOL IsReady() const;

  // Loads a profile pair from files (a null or empty RGB path: the built-in
  // sRGB; a null or empty CMYK path: the default CMYK profile) or from
  // memory blocks, with an intent and black-point compensation.
  BOOL SetProfiles(const char* rgbPath, const char* cmykPath, int intent = INTENT_PERCEPTUAL,
                   BOOL blackPointCompensation = TRUE);
  BOOL SetProfilesFromMemory(const void* rgb, DWORD rgbSize, const void* cmyk, DWORD cmykSize,
                             int intent = INTENT_PERCEPTUAL, BOOL blackPointCompensation = TRUE);
  // The loaded profiles' descriptions (empty when none).
  CString GetRgbProfileName() const;
  CString GetCmykProfileName() const;
  int GetIntent() const;
  BOOL GetBlackPointCompensation() const;

  // count pixels of R, G, B bytes to C, M, Y, K bytes. FALSE when not ready
  // or given null buffers (count 0 succeeds).
  BOOL Convert(const BYTE* rgb, BYTE* cmyk, int count) const;
  // One colour (COLORREF: red in the low byte).
  BOOL ConvertColor(COLORREF rgb, BYTE cmyk[4]) const;
  // A line in any layout to 8-bit (cmyk16 FALSE) or 16-bit CMYK.
  BOOL ConvertLine(const void* src, int layout, void* cmyk, BOOL cmyk16, int count) const;
  // The reverse: C, M, Y, K bytes to R, G, B bytes, and one colour.
  BOOL ConvertToRGB(const BYTE* cmyk, BYTE* rgb, int count) const;
  BOOL ConvertColorToRGB(const BYTE cmyk[4], COLORREF* rgb) const;

  struct Impl;

private:
  std::shared_ptr<Impl> Current() const;
  void Install(std::shared_ptr<Impl> impl);
  mutable std::mutex m_lock;   // guards m_cur
  std::shared_ptr<Impl> m_cur;  // the loaded pair; null when not ready
};

extern TQBASE_API ARGBToCMYK g_RGBtoCMYK;
extern TQBASE_API ARGBToCMYK g_InputCMYK;

#endif  // TQBASE_ARGBTOCMYK_H
