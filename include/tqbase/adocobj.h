// adocobj.h - ADocObj, the document file helpers: the temporary directory,
// creating directories, testing, reading, renaming and removing files, file
// name validation, and the atomic "write aside, then replace" file write.
//
// Paths are UTF-8 text. Every failure returns FALSE and leaves a text that
// names the path and the system's reason in g_Error.
#ifndef TQBASE_ADOCOBJ_H
#define TQBASE_ADOCOBJ_H

#include "tqbase/tqbasexp.h"

// The platform's path separator: '\' on Windows, '/' elsewhere.
#ifdef _WIN32
#define TQ_PATH_SEPARATOR '\\'
#else
#define TQ_PATH_SEPARATOR '/'
#endif

class TQBASE_API ADocObj {
public:
  // The system's temporary directory, with a trailing separator, into
  // buffer (size bytes with the terminator). FALSE when it does not fit or
  // none can be had; buffer then holds an empty text (when size > 0).
  static BOOL GetTempDirectory(char* buffer, DWORD size);
  // Creates the directory path (one level). TRUE when it exists already.
  static BOOL MakeDirectory(const char* path);
  // Creates path and every missing parent.
  static BOOL MakeDirectories(const char* path);

  static BOOL FileExists(const char* path);       // a file (not a directory)
  static BOOL DirectoryExists(const char* path);
  // Removes a file; TRUE when it did not exist.
  static BOOL RemoveFile(const char* path);
  // Renames from to to, replacing to when it exists.
  static BOOL RenameFile(const char* from, const char* to);
  // A name (no folder) that every supported system accepts for a file: not
  // empty, no control characters, none of < > : " / \ | ? *, not ending
  // in a dot or blank, not a reserved device name (CON, NUL, COM1, ...).
  static BOOL IsValidFileName(const char* name);
  // The folder part of path including its trailing separator ("" when
  // path has none).
  static CString GetFolder(const char* path);

  // Reads the whole file into data. FALSE when it cannot be read or is
  // larger than maxBytes.
  static BOOL ReadFileData(const char* path, CString& data, DWORD maxBytes = 0x4000000);
  // Writes size bytes as the whole new content of path so that readers see
  // either the old file or the new one, never a part: the bytes go to a
  // temporary file beside path, are flushed to the disk, and the temporary
  // file is renamed over path. An existing file keeps its permissions; a
  // symbolic link is followed and its target replaced.
  static BOOL WriteFileAtomic(const char* path, const void* data, size_t size);
};

#endif  // TQBASE_ADOCOBJ_H
