// aclrgroup.h - AClrGroup, a named group of colours with their ink values:
// what a RIP's spot-colour table holds. Each colour has a name (unique in
// the group, compared without case), its screen colour, and one ink value
// (0 no ink .. 255 full ink) per plane of the group's ink mode. A group is
// kept in an INI file: section "ClrGroup" with the keys "Name", "InkMode"
// and "Count", and one key "Color<i>" per colour holding
// "<name>|<RRGGBB>|<v0> <v1> ...". Saving replaces the file only when
// written completely.
#ifndef TQBASE_ACLRGROUP_H
#define TQBASE_ACLRGROUP_H

#include "tqbase/aclrobj.h"
#include "tqbase/tqbasexp.h"

struct CLRITEM {
  char szName[64];   // NUL-terminated
  COLORREF rgb;      // screen colour, red in the low byte
  BYTE inks[8];      // per plane of the group's mode; unused planes 0
};

class TQBASE_API AClrGroup {
public:
  explicit AClrGroup(const char* name = "", int inkMode = 1);

  CString GetName() const { return m_name; }
  void SetName(const char* name) { m_name = name ? name : ""; }
  // The ink mode (1..16; others are taken as 1); changing it clears the
  // ink values of planes the new mode does not have.
  int GetInkMode() const { return m_mode; }
  void SetInkMode(int mode);
  int GetInkCount() const;

  int GetCount() const { return m_items.GetSize(); }
  const CLRITEM* GetAt(int index) const;
  // The colour's index, -1 when the group has none of that name.
  int Find(const char* name) const;
  // Adds a colour; inks holds one value per plane (null: all 0). FALSE for
  // an empty name, a name of 64 characters or more or with '|', or a name
  // already in the group.
  BOOL Add(const char* name, COLORREF rgb, const BYTE* inks);
  // Ink values of the colour from the colour engine (the process planes
  // from g_RGBtoCMYK's separation; other planes 0). FALSE when the engine
  // cannot convert.
  BOOL AddSeparated(const char* name, COLORREF rgb);
  BOOL Remove(int index);
  void RemoveAll() { m_items.RemoveAll(); }

  BOOL Save(const char* path) const;
  // Replaces the group by the file's; FALSE (group unchanged, text in
  // g_Error) for a missing file or a malformed entry.
  BOOL Load(const char* path);

private:
  CString m_name;
  int m_mode;
  CArray<CLRITEM, const CLRITEM&> m_items;
};

#endif  // TQBASE_ACLRGROUP_H
