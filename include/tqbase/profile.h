// profile.h - AProfile, a small INI reader and writer with the rules of the
// Windows private-profile calls, and the path of the host's profile store.
//
// Reading: section and key names compare without regard to ASCII case;
// blanks around names and values are dropped; a value wrapped in a pair of
// matching quotes (" or ') loses them; lines starting with ';' are
// comments; the first of duplicate sections or keys counts. A UTF-8 byte
// order mark is skipped. Lines end in CR LF or LF.
//
// Writing keeps every other line of the file as it was (comments, other
// sections and keys, their order and line ends); a changed key is rewritten
// in place, a new key goes after the last key of its section, a new section
// at the end. New files use CR LF. Values that would not read back as
// written (blanks at either end, or wrapped in quotes) are written quoted,
// so every value round-trips; line breaks cannot be stored.
#ifndef TQBASE_PROFILE_H
#define TQBASE_PROFILE_H

#include "tqbase/tqbasexp.h"

class TQBASE_API AProfile {
public:
  AProfile();
  AProfile(const AProfile& other);
  AProfile& operator=(const AProfile& other);
  ~AProfile();

  // Replaces the content with the file's. FALSE (content emptied, text in
  // g_Error) when the file cannot be read.
  BOOL Load(const char* path);
  // Replaces the content with text of length bytes. FALSE only when memory
  // fails.
  BOOL Parse(const char* text, size_t length);
  // The whole file as it would be written.
  CString GetText() const;
  // Writes the file atomically (see ADocObj::WriteFileAtomic).
  BOOL Save(const char* path) const;
  // Empties the content.
  void Clear();

  BOOL HasSection(const char* section) const;
  BOOL HasKey(const char* section, const char* key) const;
  // FALSE (value emptied) when the section or key is missing, or when
  // memory fails (then with a text in g_Error; HasKey tells the two apart).
  BOOL GetString(const char* section, const char* key, CString& value) const;
  // FALSE, content unchanged, for a name or value that cannot be stored:
  // an empty or blank-edged name, a section with ']', a key with '=' or
  // starting with ';' or '[', line breaks anywhere.
  BOOL SetString(const char* section, const char* key, const char* value);
  // TRUE when something was removed.
  BOOL DeleteKey(const char* section, const char* key);
  BOOL DeleteSection(const char* section);
  // Names of the keys of section in file order.
  BOOL GetKeyNames(const char* section, CArray<CString, const CString&>& keys) const;

  // The host's profile store: the INI file that holds the host's settings
  // (g_Flags' profile form among them). Set by the host; null or empty
  // restores the default, which is the environment variable TQBASE_PROFILE
  // when set, else a per-user file: %APPDATA%\Korvel\tqbase.ini on
  // Windows, $XDG_CONFIG_HOME/Korvel/tqbase.ini or
  // ~/.config/Korvel/tqbase.ini elsewhere.
  static BOOL SetAppProfilePath(const char* path);
  static CString GetAppProfilePath();

private:
  struct Impl;
  static Impl* NewImpl(const Impl* from) noexcept;  // a copy; null when memory fails
  Impl* m_p;  // null: no content yet (reads as empty)
};

#endif  // TQBASE_PROFILE_H
