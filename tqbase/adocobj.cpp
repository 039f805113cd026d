// adocobj.cpp - ADocObj, the document file helpers, over POSIX calls (and
// the wide-character Win32 calls on Windows, where paths are converted from
// UTF-8). Every failure leaves "<what> \"<path>\": <system reason>" in
// g_Error.
#include "tqbase/adocobj.h"

#include "allocfail.h"
#include "widetext.h"

#include "tqbase/errorinfo.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#ifdef _WIN32
#include <io.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#endif

namespace {

bool IsSeparator(char c) {
#ifdef _WIN32
  return c == '\\' || c == '/';
#else
  return c == '/';
#endif
}

int FailPath(const char* what, const char* path, int err) {
  return g_Error.SetLastError("%s \"%s\": %s", what, path ? path : "",
                              CErrorInfo::TransSystemErrorCodeToString((unsigned long)err).GetString());
}

#ifdef _WIN32
std::wstring Widen(const char* s) {
  int n = MultiByteToWideChar(CP_UTF8, 0, s, -1, nullptr, 0);
  if (n <= 0) return std::wstring();
  std::wstring w((size_t)n, L'\0');
  MultiByteToWideChar(CP_UTF8, 0, s, -1, &w[0], n);
  w.resize((size_t)n - 1);
  return w;
}
std::string Narrow(const wchar_t* w) {
  int n = WideCharToMultiByte(CP_UTF8, 0, w, -1, nullptr, 0, nullptr, nullptr);
  if (n <= 0) return std::string();
  std::string s((size_t)n, '\0');
  WideCharToMultiByte(CP_UTF8, 0, w, -1, &s[0], n, nullptr, nullptr);
  s.resize((size_t)n - 1);
  return s;
}
#endif

bool IsDir(const char* path) {
#ifdef _WIN32
  DWORD a = GetFileAttributesW(tqbase::WideText(path).c_str());
  return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
#else
  struct stat st;
  return ::stat(path, &st) == 0 && S_ISDIR(st.st_mode);
#endif
}

#ifndef _WIN32
// write() until done; false with errno set on failure.
bool WriteAll(int fd, const char* p, size_t n) {
  while (n > 0) {
    ssize_t w = ::write(fd, p, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += w;
    n -= (size_t)w;
  }
  return true;
}
#endif

}  // namespace

BOOL ADocObj::GetTempDirectory(char* buffer, DWORD size) {
  if (!buffer || size == 0) {
    ASSERT(buffer != nullptr && size > 0);
    return FALSE;
  }
  buffer[0] = '\0';
  std::string dir;
  try {
#ifdef _WIN32
    wchar_t w[MAX_PATH + 2];
    DWORD n = GetTempPathW(MAX_PATH + 1, w);
    if (n == 0 || n > MAX_PATH + 1) return FALSE;
    dir = Narrow(w);
#else
    const char* env = std::getenv("TMPDIR");
    if (env && *env == '/' && IsDir(env))
      dir = env;
    else
      dir = "/tmp";
#endif
    if (dir.empty()) return FALSE;
    if (!IsSeparator(dir.back())) dir += TQ_PATH_SEPARATOR;
  } catch (const std::bad_alloc&) {
    return FALSE;
  }
  if (dir.size() + 1 > size) {
    g_Error.SetLastError("The temporary directory \"%s\" does not fit in %u bytes", dir.c_str(), (unsigned)size);
    return FALSE;
  }
  std::memcpy(buffer, dir.c_str(), dir.size() + 1);
  return TRUE;
}

BOOL ADocObj::MakeDirectory(const char* path) {
  if (!path || !*path) {
    ASSERT(path != nullptr && *path);
    return g_Error.SetLastError("Cannot create a directory without a name") && FALSE;
  }
#ifdef _WIN32
  if (CreateDirectoryW(tqbase::WideText(path).c_str(), nullptr)) return TRUE;
  DWORD err = ::GetLastError();
  if (err == ERROR_ALREADY_EXISTS && IsDir(path)) return TRUE;
  g_Error.SetLastError("Cannot create directory \"%s\": %s", path,
                       CErrorInfo::TransSystemErrorCodeToString(err).GetString());
  return FALSE;
#else
  if (::mkdir(path, 0777) == 0) return TRUE;
  int err = errno;
  if (err == EEXIST && IsDir(path)) return TRUE;
  FailPath("Cannot create directory", path, err);
  return FALSE;
#endif
}

BOOL ADocObj::MakeDirectories(const char* path) {
  if (!path || !*path) return MakeDirectory(path);
  try {
    std::string p(path);
    while (p.size() > 1 && IsSeparator(p.back())) p.pop_back();
    if (IsDir(p.c_str())) return TRUE;
    // Create each prefix that ends before a separator, then the whole path.
    for (size_t i = 1; i < p.size(); ++i) {
      if (!IsSeparator(p[i])) continue;
      std::string prefix = p.substr(0, i);
#ifdef _WIN32
      if (prefix.size() == 2 && prefix[1] == ':') continue;  // drive letter
#endif
      if (!IsDir(prefix.c_str()) && !MakeDirectory(prefix.c_str())) return FALSE;
    }
    return MakeDirectory(p.c_str());
  } catch (const std::bad_alloc&) {
    return g_Error.SetLastError("Out of memory") && FALSE;
  }
}

BOOL ADocObj::FileExists(const char* path) {
  if (!path || !*path) return FALSE;
#ifdef _WIN32
  DWORD a = GetFileAttributesW(tqbase::WideText(path).c_str());
  return a != INVALID_FILE_ATTRIBUTES && !(a & FILE_ATTRIBUTE_DIRECTORY);
#else
  struct stat st;
  return ::stat(path, &st) == 0 && !S_ISDIR(st.st_mode);
#endif
}

BOOL ADocObj::DirectoryExists(const char* path) { return path && *path && IsDir(path); }

BOOL ADocObj::RemoveFile(const char* path) {
  if (!path || !*path) return FALSE;
#ifdef _WIN32
  if (DeleteFileW(tqbase::WideText(path).c_str())) return TRUE;
  DWORD err = ::GetLastError();
  if (err == ERROR_FILE_NOT_FOUND) return TRUE;
  g_Error.SetLastError("Cannot remove \"%s\": %s", path, CErrorInfo::TransSystemErrorCodeToString(err).GetString());
  return FALSE;
#else
  if (::unlink(path) == 0 || errno == ENOENT) return TRUE;
  FailPath("Cannot remove", path, errno);
  return FALSE;
#endif
}

BOOL ADocObj::RenameFile(const char* from, const char* to) {
  if (!from || !*from || !to || !*to) return FALSE;
#ifdef _WIN32
  if (MoveFileExW(tqbase::WideText(from).c_str(), tqbase::WideText(to).c_str(),
                  MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
    return TRUE;
  g_Error.SetLastError("Cannot rename \"%s\" to \"%s\": %s", from, to,
                       CErrorInfo::TransSystemErrorCodeToString(::GetLastError()).GetString());
  return FALSE;
#else
  if (::rename(from, to) == 0) return TRUE;
  int err = errno;
  g_Error.SetLastError("Cannot rename \"%s\" to \"%s\": %s", from, to,
                       CErrorInfo::TransSystemErrorCodeToString((unsigned long)err).GetString());
  return FALSE;
#endif
}

BOOL ADocObj::IsValidFileName(const char* name) {
  if (!name || !*name) return FALSE;
  size_t n = std::strlen(name);
  for (size_t i = 0; i < n; ++i) {
    unsigned char c = (unsigned char)name[i];
    if (c < 0x20 || std::strchr("<>:\"/\\|?*", c)) return FALSE;
  }
  if (name[n - 1] == '.' || name[n - 1] == ' ') return FALSE;
  // Device names are reserved with any extension: "CON", "con.txt", "COM1.ini".
  static const char* const kReserved[] = {"CON",  "PRN",  "AUX",  "NUL",  "COM1", "COM2", "COM3", "COM4",
                                          "COM5", "COM6", "COM7", "COM8", "COM9", "LPT1", "LPT2", "LPT3",
                                          "LPT4", "LPT5", "LPT6", "LPT7", "LPT8", "LPT9"};
  size_t stem = 0;
  while (stem < n && name[stem] != '.') ++stem;
  for (const char* r : kReserved) {
    size_t rn = std::strlen(r);
    if (rn != stem) continue;
    bool same = true;
    for (size_t i = 0; i < rn && same; ++i) {
      char c = name[i];
      if (c >= 'a' && c <= 'z') c = (char)(c - 'a' + 'A');
      same = c == r[i];
    }
    if (same) return FALSE;
  }
  return TRUE;
}

CString ADocObj::GetFolder(const char* path) {
  if (!path) return CString();
  int cut = -1;
  for (int i = 0; path[i]; ++i)
    if (IsSeparator(path[i])) cut = i;
  return cut < 0 ? CString() : CString(path, cut + 1);
}

BOOL ADocObj::ReadFileData(const char* path, CString& data, DWORD maxBytes) {
  data.Empty();
  if (!path || !*path) return g_Error.SetLastError("No file name given") && FALSE;
#ifdef _WIN32
  FILE* f = _wfopen(tqbase::WideText(path).c_str(), L"rb");
#else
  FILE* f = std::fopen(path, "rb");
#endif
  if (!f) return FailPath("Cannot open", path, errno) && FALSE;
  std::string buf;
  bool ok = true;
  int err = 0;
  try {
    char chunk[16384];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) {
      if (buf.size() + n > maxBytes) {
        std::fclose(f);
        return g_Error.SetLastError("\"%s\" is larger than %u bytes", path, (unsigned)maxBytes) && FALSE;
      }
      buf.append(chunk, n);
    }
    if (std::ferror(f)) {
      ok = false;
      err = errno;
    }
  } catch (const std::bad_alloc&) {
    std::fclose(f);
    return g_Error.SetLastError("Out of memory reading \"%s\"", path) && FALSE;
  }
  std::fclose(f);
  if (!ok) return FailPath("Cannot read", path, err) && FALSE;
  data = CString(std::move(buf));
  return TRUE;
}

BOOL ADocObj::WriteFileAtomic(const char* path, const void* data, size_t size) {
  if (!path || !*path || (!data && size > 0)) {
    ASSERT(path != nullptr && *path && (data != nullptr || size == 0));
    return g_Error.SetLastError("Invalid arguments to write a file") && FALSE;
  }
  static std::atomic<unsigned> s_counter{0};
  try {
#ifdef _WIN32
    std::string tmp = std::string(path) + ".tmp" + std::to_string(GetCurrentProcessId()) + "." +
                      std::to_string(s_counter.fetch_add(1));
    std::wstring wtmp = Widen(tmp.c_str());
    HANDLE h = CreateFileW(wtmp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
      g_Error.SetLastError("Cannot create \"%s\": %s", tmp.c_str(),
                           CErrorInfo::TransSystemErrorCodeToString(::GetLastError()).GetString());
      return FALSE;
    }
    const char* p = static_cast<const char*>(data);
    size_t left = size;
    BOOL ok = TRUE;
    while (ok && left > 0) {
      DWORD chunk = left > 0x40000000 ? 0x40000000 : (DWORD)left, done = 0;
      ok = WriteFile(h, p, chunk, &done, nullptr) && done == chunk;
      p += done;
      left -= done;
    }
    if (ok) ok = FlushFileBuffers(h);
    DWORD err = ::GetLastError();
    CloseHandle(h);
    if (!ok) {
      DeleteFileW(wtmp.c_str());
      g_Error.SetLastError("Cannot write \"%s\": %s", tmp.c_str(),
                           CErrorInfo::TransSystemErrorCodeToString(err).GetString());
      return FALSE;
    }
    if (!MoveFileExW(wtmp.c_str(), tqbase::WideText(path).c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      err = ::GetLastError();
      DeleteFileW(wtmp.c_str());
      g_Error.SetLastError("Cannot replace \"%s\": %s", path,
                           CErrorInfo::TransSystemErrorCodeToString(err).GetString());
      return FALSE;
    }
    return TRUE;
#else
    // Write through a symbolic link to its target, as an in-place write
    // would, instead of replacing the link with a file.
    std::string target(path);
    struct stat lst;
    if (::lstat(path, &lst) == 0 && S_ISLNK(lst.st_mode)) {
      char* real = ::realpath(path, nullptr);
      if (real) {
        target = real;
        std::free(real);
      }
    }
    struct stat st;
    bool existed = ::stat(target.c_str(), &st) == 0;
    std::string tmp;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
      tmp = target + ".tmp" + std::to_string((long)::getpid()) + "." + std::to_string(s_counter.fetch_add(1));
      fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) return FailPath("Cannot create", tmp.c_str(), errno) && FALSE;
    int err = 0;
    // Keeping the old file's mode is best effort.
    if (existed) (void)::fchmod(fd, st.st_mode & 07777);
    // Written in two halves, so that a test can stop the process between
    // them (the crash points of allocfail.h, which do nothing unless a
    // test arms them).
    tqbase::allocfail::CrashPoint();
    const char* bytes = static_cast<const char*>(data);
    bool ok = WriteAll(fd, bytes, size / 2);
    if (ok) {
      tqbase::allocfail::CrashPoint();
      ok = WriteAll(fd, bytes + size / 2, size - size / 2);
    }
    if (ok) {
      tqbase::allocfail::CrashPoint();
      ok = ::fsync(fd) == 0;
    }
    if (!ok) err = errno;
    if (::close(fd) != 0 && ok) {
      ok = false;
      err = errno;
    }
    if (!ok) {
      ::unlink(tmp.c_str());
      return FailPath("Cannot write", tmp.c_str(), err) && FALSE;
    }
    tqbase::allocfail::CrashPoint();
    if (::rename(tmp.c_str(), target.c_str()) != 0) {
      err = errno;
      ::unlink(tmp.c_str());
      return FailPath("Cannot replace", target.c_str(), err) && FALSE;
    }
    tqbase::allocfail::CrashPoint();
    // Make the rename itself durable.
    CString folder = GetFolder(target.c_str());
    int dfd = ::open(folder.IsEmpty() ? "." : folder.GetString(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
      ::fsync(dfd);
      ::close(dfd);
    }
    return TRUE;
#endif
  } catch (const std::bad_alloc&) {
    return g_Error.SetLastError("Out of memory writing \"%s\"", path) && FALSE;
  }
}
