// profile.cpp - AProfile, the INI reader and writer, and the path of the
// host's profile store.
//
// The file is held as its lines, each kept verbatim unless the caller
// changes it, so that writing a key disturbs nothing else in the file.
// Invariant: a line of kind Section or Key has its trimmed name (and a key
// its read value) beside the raw text, and the raw text reads back to them.
#include "tqbase/profile.h"

#include "tqbase/adocobj.h"
#include "tqbase/errorinfo.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#ifndef _WIN32
#include <pwd.h>
#include <unistd.h>
#endif

namespace {

struct Line {
  enum Kind { Blank, Comment, Section, Key, Other };
  Kind kind = Other;
  std::string raw;    // the line without its line end
  std::string name;   // section name or key, trimmed
  std::string value;  // a key's value as read
};

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

std::string Trim(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && IsBlank(s[b])) ++b;
  while (e > b && IsBlank(s[e - 1])) --e;
  return s.substr(b, e - b);
}

bool SameName(const std::string& a, const char* b) {
  size_t n = std::strlen(b);
  if (a.size() != n) return false;
  for (size_t i = 0; i < n; ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = (char)(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = (char)(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

bool IsQuote(char c) { return c == '"' || c == '\''; }

std::string Unquote(std::string v) {
  if (v.size() >= 2 && IsQuote(v.front()) && v.front() == v.back()) return v.substr(1, v.size() - 2);
  return v;
}

// Quotes a value exactly when reading would otherwise change it.
std::string QuoteForWrite(const char* value) {
  std::string v(value);
  bool quote = !v.empty() && (IsBlank(v.front()) || IsBlank(v.back()) ||
                              (v.size() >= 2 && IsQuote(v.front()) && v.front() == v.back()));
  return quote ? "\"" + v + "\"" : v;
}

bool HasLineBreak(const char* s) { return std::strpbrk(s, "\r\n") != nullptr; }

bool ValidName(const char* s) {
  if (!s || !*s || HasLineBreak(s)) return false;
  size_t n = std::strlen(s);
  return !IsBlank(s[0]) && !IsBlank(s[n - 1]);
}

Line ParseLine(std::string raw) {
  Line l;
  std::string t = Trim(raw);
  if (t.empty()) {
    l.kind = Line::Blank;
  } else if (t[0] == ';') {
    l.kind = Line::Comment;
  } else if (t[0] == '[') {
    size_t close = t.find(']');
    if (close != std::string::npos) {
      l.kind = Line::Section;
      l.name = Trim(t.substr(1, close - 1));
    }
  } else {
    size_t eq = t.find('=');
    if (eq != std::string::npos && eq > 0) {
      l.kind = Line::Key;
      l.name = Trim(t.substr(0, eq));
      l.value = Unquote(Trim(t.substr(eq + 1)));
      if (l.name.empty()) l.kind = Line::Other;
    }
  }
  l.raw = std::move(raw);
  return l;
}

struct ProfilePathState {
  std::mutex mutex;
  std::string path;  // empty: the default
};

ProfilePathState& PathState() {
  static ProfilePathState* s = new ProfilePathState;  // never destroyed: read at unload
  return *s;
}

std::string DefaultProfilePath() {
  const char* env = std::getenv("TQBASE_PROFILE");
  if (env && *env) return env;
#ifdef _WIN32
  const char* appdata = std::getenv("APPDATA");
  if (appdata && *appdata) return std::string(appdata) + "\\Korvel\\tqbase.ini";
#else
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  if (xdg && *xdg == '/') return std::string(xdg) + "/Korvel/tqbase.ini";
  const char* home = std::getenv("HOME");
  if (!home || !*home) {
    const struct passwd* pw = ::getpwuid(::getuid());
    if (pw && pw->pw_dir && *pw->pw_dir) home = pw->pw_dir;
  }
  if (home && *home) return std::string(home) + "/.config/Korvel/tqbase.ini";
#endif
  char tmp[MAX_PATH + 1];
  if (ADocObj::GetTempDirectory(tmp, sizeof tmp)) return std::string(tmp) + "tqbase.ini";
  return "tqbase.ini";
}

}  // namespace

struct AProfile::Impl {
  std::vector<Line> lines;
  std::string eol = "\r\n";
  bool bom = false;

  // Index of the first header of section, or -1.
  long FindSection(const char* section) const {
    for (size_t i = 0; i < lines.size(); ++i)
      if (lines[i].kind == Line::Section && SameName(lines[i].name, section)) return (long)i;
    return -1;
  }
  // One past the last line of the section whose header is at head.
  size_t SectionEnd(size_t head) const {
    size_t i = head + 1;
    while (i < lines.size() && lines[i].kind != Line::Section) ++i;
    return i;
  }
  long FindKey(long head, const char* key) const {
    if (head < 0) return -1;
    size_t end = SectionEnd((size_t)head);
    for (size_t i = (size_t)head + 1; i < end; ++i)
      if (lines[i].kind == Line::Key && SameName(lines[i].name, key)) return (long)i;
    return -1;
  }
};

// The content lives in m_p, null while there is none (a new profile, or
// memory failed to give one): a null content reads as empty, and the
// operations that store make one first. So no constructor, copy or
// assignment throws, and a new profile allocates nothing.
AProfile::Impl* AProfile::NewImpl(const Impl* from) noexcept {
  try {
    return new Impl(*from);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

AProfile::AProfile() : m_p(nullptr) {}
AProfile::AProfile(const AProfile& other) : m_p(other.m_p ? NewImpl(other.m_p) : nullptr) {
  if (!m_p && other.m_p) g_Error.SetLastError("Out of memory copying a profile");
}
// On a memory failure the content stays as it was, with a text in g_Error.
AProfile& AProfile::operator=(const AProfile& other) {
  if (this == &other) return *this;
  if (!other.m_p) {
    Clear();
    return *this;
  }
  Impl* copy = NewImpl(other.m_p);
  if (!copy) {
    g_Error.SetLastError("Out of memory copying a profile");
    return *this;
  }
  delete m_p;
  m_p = copy;
  return *this;
}
AProfile::~AProfile() { delete m_p; }

void AProfile::Clear() {
  if (!m_p) return;
  m_p->lines.clear();
  m_p->eol = "\r\n";
  m_p->bom = false;
}

BOOL AProfile::Parse(const char* text, size_t length) {
  Clear();
  if (!text) length = 0;
  try {
    Impl fresh;
    size_t pos = 0;
    if (length >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) {
      fresh.bom = true;
      pos = 3;
    }
    bool eolKnown = false;
    while (pos < length) {
      const void* nl = std::memchr(text + pos, '\n', length - pos);
      size_t end = nl ? (size_t)(static_cast<const char*>(nl) - text) : length;
      size_t stop = end;
      // Every CR before the LF (or the end of the text) belongs to the line
      // end, so that a line written back with the file's line end reads
      // back the same.
      while (stop > pos && text[stop - 1] == '\r') --stop;
      if (nl && !eolKnown) {
        fresh.eol = stop < end ? "\r\n" : "\n";
        eolKnown = true;
      }
      fresh.lines.push_back(ParseLine(std::string(text + pos, stop - pos)));
      pos = nl ? end + 1 : length;
    }
    if (m_p)
      *m_p = std::move(fresh);
    else
      m_p = new Impl(std::move(fresh));
    return TRUE;
  } catch (const std::bad_alloc&) {
    Clear();
    g_Error.SetLastError("Out of memory reading a profile");
    return FALSE;
  }
}

BOOL AProfile::Load(const char* path) {
  Clear();
  CString data;
  if (!ADocObj::ReadFileData(path, data)) return FALSE;
  return Parse(data.GetString(), (size_t)data.GetLength());
}

CString AProfile::GetText() const {
  if (!m_p) return CString();
  try {
    std::string out;
    if (m_p->bom) out = "\xEF\xBB\xBF";
    for (const Line& l : m_p->lines) {
      out += l.raw;
      out += m_p->eol;
    }
    return CString(std::move(out));
  } catch (const std::bad_alloc&) {
    return CString();
  }
}

BOOL AProfile::Save(const char* path) const {
  try {
    CString text = GetText();
    if (text.IsEmpty() && m_p && !m_p->lines.empty()) return g_Error.SetLastError("Out of memory writing a profile") && FALSE;
    return ADocObj::WriteFileAtomic(path, text.GetString(), (size_t)text.GetLength());
  } catch (const std::bad_alloc&) {
    return g_Error.SetLastError("Out of memory writing a profile") && FALSE;
  }
}

BOOL AProfile::HasSection(const char* section) const { return section && m_p && m_p->FindSection(section) >= 0; }

BOOL AProfile::HasKey(const char* section, const char* key) const {
  return section && key && m_p && m_p->FindKey(m_p->FindSection(section), key) >= 0;
}

BOOL AProfile::GetString(const char* section, const char* key, CString& value) const {
  value.Empty();
  if (!section || !key || !m_p) return FALSE;
  long k = m_p->FindKey(m_p->FindSection(section), key);
  if (k < 0) return FALSE;
  try {
    value = CString(m_p->lines[(size_t)k].value);
  } catch (const std::bad_alloc&) {
    return g_Error.SetLastError("Out of memory reading profile key \"%s\"", key) && FALSE;
  }
  return TRUE;
}

BOOL AProfile::SetString(const char* section, const char* key, const char* value) {
  if (!ValidName(section) || std::strchr(section, ']')) {
    return g_Error.SetLastError("\"%s\" cannot be stored as a profile section name", section ? section : "") && FALSE;
  }
  if (!ValidName(key) || std::strchr(key, '=') || key[0] == ';' || key[0] == '[') {
    return g_Error.SetLastError("\"%s\" cannot be stored as a profile key", key ? key : "") && FALSE;
  }
  if (!value) value = "";
  if (HasLineBreak(value)) {
    return g_Error.SetLastError("The value of profile key \"%s\" holds a line break", key) && FALSE;
  }
  try {
    if (!m_p) m_p = new Impl;
    Line line;
    line.kind = Line::Key;
    line.name = key;
    line.value = value;
    long head = m_p->FindSection(section);
    long k = m_p->FindKey(head, key);
    if (k >= 0) {
      Line& old = m_p->lines[(size_t)k];
      // Keep the key's spelling from the file; only the value changes.
      line.raw = old.name + "=" + QuoteForWrite(value);
      line.name = old.name;
      old = std::move(line);
      return TRUE;
    }
    line.raw = std::string(key) + "=" + QuoteForWrite(value);
    if (head < 0) {
      std::vector<Line>& ls = m_p->lines;
      ls.reserve(ls.size() + 3);  // the three lines go in together or not at all
      if (!ls.empty() && ls.back().kind != Line::Blank) ls.push_back(Line{Line::Blank, "", "", ""});
      Line h;
      h.kind = Line::Section;
      h.name = section;
      h.raw = "[" + std::string(section) + "]";
      ls.push_back(std::move(h));
      ls.push_back(std::move(line));
      return TRUE;
    }
    // After the section's last key, so trailing blank lines and comments
    // stay in front of the next section.
    size_t at = (size_t)head + 1;
    size_t end = m_p->SectionEnd((size_t)head);
    for (size_t i = (size_t)head + 1; i < end; ++i)
      if (m_p->lines[i].kind == Line::Key) at = i + 1;
    m_p->lines.insert(m_p->lines.begin() + (long)at, std::move(line));
    return TRUE;
  } catch (const std::bad_alloc&) {
    return g_Error.SetLastError("Out of memory writing a profile") && FALSE;
  }
}

BOOL AProfile::DeleteKey(const char* section, const char* key) {
  if (!section || !key || !m_p) return FALSE;
  long k = m_p->FindKey(m_p->FindSection(section), key);
  if (k < 0) return FALSE;
  m_p->lines.erase(m_p->lines.begin() + k);
  return TRUE;
}

BOOL AProfile::DeleteSection(const char* section) {
  if (!section || !m_p) return FALSE;
  long head = m_p->FindSection(section);
  if (head < 0) return FALSE;
  size_t end = m_p->SectionEnd((size_t)head);
  m_p->lines.erase(m_p->lines.begin() + head, m_p->lines.begin() + (long)end);
  return TRUE;
}

BOOL AProfile::GetKeyNames(const char* section, CArray<CString, const CString&>& keys) const {
  keys.RemoveAll();
  if (!section || !m_p) return FALSE;
  long head = m_p->FindSection(section);
  if (head < 0) return FALSE;
  try {
    size_t end = m_p->SectionEnd((size_t)head);
    for (size_t i = (size_t)head + 1; i < end; ++i)
      if (m_p->lines[i].kind == Line::Key) keys.Add(CString(m_p->lines[i].name));
    return TRUE;
  } catch (const std::bad_alloc&) {
    keys.RemoveAll();
    return FALSE;
  }
}

BOOL AProfile::SetAppProfilePath(const char* path) {
  ProfilePathState& s = PathState();
  try {
    std::lock_guard<std::mutex> lock(s.mutex);
    s.path = path ? path : "";
    return TRUE;
  } catch (const std::bad_alloc&) {
    return FALSE;
  }
}

CString AProfile::GetAppProfilePath() {
  ProfilePathState& s = PathState();
  try {
    {
      std::lock_guard<std::mutex> lock(s.mutex);
      if (!s.path.empty()) return CString(s.path);
    }
    return CString(DefaultProfilePath());
  } catch (const std::bad_alloc&) {
    return CString();
  }
}
