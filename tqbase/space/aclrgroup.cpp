// aclrgroup.cpp - AClrGroup: colours with ink values, kept in an INI file.
#include "tqbase/aclrgroup.h"

#include "tqbase/argbtocmyk.h"
#include "tqbase/errorinfo.h"
#include "tqbase/profile.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#ifdef _WIN32
#define strcasecmp _stricmp
#else
#include <strings.h>
#endif

namespace {
const char kSection[] = "ClrGroup";

int ValidMode(int mode) { return mode >= AClrObj::INKMODE_FIRST && mode <= AClrObj::INKMODE_LAST ? mode : 1; }

bool GoodName(const char* name) {
  return name && *name && std::strlen(name) < sizeof(CLRITEM().szName) && !std::strchr(name, '|');
}
}  // namespace

AClrGroup::AClrGroup(const char* name, int inkMode) : m_name(name ? name : ""), m_mode(ValidMode(inkMode)) {}

void AClrGroup::SetInkMode(int mode) {
  m_mode = ValidMode(mode);
  const int n = GetInkCount();
  for (int i = 0; i < m_items.GetSize(); ++i)
    for (int k = n; k < 8; ++k) m_items[i].inks[k] = 0;
}

int AClrGroup::GetInkCount() const {
  KY_INKINFO info;
  return AClrObj::GetInkInfoFromInkMode(info, m_mode);
}

const CLRITEM* AClrGroup::GetAt(int index) const {
  return index >= 0 && index < m_items.GetSize() ? &m_items[index] : nullptr;
}

int AClrGroup::Find(const char* name) const {
  if (!name) return -1;
  for (int i = 0; i < m_items.GetSize(); ++i)
    if (strcasecmp(m_items[i].szName, name) == 0) return i;
  return -1;
}

BOOL AClrGroup::Add(const char* name, COLORREF rgb, const BYTE* inks) {
  if (!GoodName(name) || Find(name) >= 0) return FALSE;
  CLRITEM item;
  std::memset(&item, 0, sizeof item);
  std::strcpy(item.szName, name);
  item.rgb = rgb;
  const int n = GetInkCount();
  for (int k = 0; inks && k < n; ++k) item.inks[k] = inks[k];
  m_items.Add(item);
  return TRUE;
}

BOOL AClrGroup::AddSeparated(const char* name, COLORREF rgb) {
  BYTE cmyk[4];
  if (!g_RGBtoCMYK.ConvertColor(rgb, cmyk)) return FALSE;
  KY_INKINFO info;
  const int n = AClrObj::GetInkInfoFromInkMode(info, m_mode);
  BYTE inks[8] = {0};
  for (int k = 0; k < n; ++k)
    if (info.inks[k] <= 3) inks[k] = cmyk[info.inks[k]];
  return Add(name, rgb, inks);
}

BOOL AClrGroup::Remove(int index) {
  if (index < 0 || index >= m_items.GetSize()) return FALSE;
  m_items.RemoveAt(index);
  return TRUE;
}

BOOL AClrGroup::Save(const char* path) const {
  AProfile ini;
  char value[256];
  ini.SetString(kSection, "Name", m_name);
  std::snprintf(value, sizeof value, "%d", m_mode);
  ini.SetString(kSection, "InkMode", value);
  std::snprintf(value, sizeof value, "%d", m_items.GetSize());
  ini.SetString(kSection, "Count", value);
  const int n = GetInkCount();
  for (int i = 0; i < m_items.GetSize(); ++i) {
    const CLRITEM& c = m_items[i];
    std::string v = std::string(c.szName) + "|";
    std::snprintf(value, sizeof value, "%02X%02X%02X|", GetRValue(c.rgb), GetGValue(c.rgb), GetBValue(c.rgb));
    v += value;
    for (int k = 0; k < n; ++k) v += (k ? " " : "") + std::to_string(c.inks[k]);
    std::snprintf(value, sizeof value, "Color%d", i);
    ini.SetString(kSection, value, v.c_str());
  }
  return ini.Save(path);
}

BOOL AClrGroup::Load(const char* path) {
  AProfile ini;
  if (!path || !ini.Load(path)) return FALSE;
  CString name, mode, count;
  if (!ini.GetString(kSection, "InkMode", mode) || !ini.GetString(kSection, "Count", count)) {
    g_Error.SetLastError("AClrGroup::Load: %s is not a colour group", path);
    return FALSE;
  }
  ini.GetString(kSection, "Name", name);
  AClrGroup g(name, std::atoi(mode));
  const int n = std::atoi(count), inks = g.GetInkCount();
  for (int i = 0; i < n; ++i) {
    char key[32];
    std::snprintf(key, sizeof key, "Color%d", i);
    CString v;
    std::string text = ini.GetString(kSection, key, v) ? v.GetString() : "";
    const size_t a = text.find('|'), b = a == std::string::npos ? a : text.find('|', a + 1);
    unsigned r = 0, gr = 0, bl = 0;
    BYTE values[8] = {0};
    bool ok = b != std::string::npos && b == a + 7 &&
              std::sscanf(text.c_str() + a + 1, "%2x%2x%2x", &r, &gr, &bl) == 3;
    if (ok) {
      std::istringstream in(text.substr(b + 1));
      for (int k = 0; k < inks && ok; ++k) {
        int x = -1;
        ok = (bool)(in >> x) && x >= 0 && x <= 255;
        values[k] = (BYTE)x;
      }
    }
    if (!ok || !g.Add(text.substr(0, a).c_str(), RGB(r, gr, bl), values)) {
      g_Error.SetLastError("AClrGroup::Load: %s: entry %s is malformed", path, key);
      return FALSE;
    }
  }
  m_name = g.m_name;
  m_mode = g.m_mode;
  m_items.Copy(g.m_items);
  return TRUE;
}
