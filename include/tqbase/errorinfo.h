// errorinfo.h - CErrorInfo, the last-error record, and its global g_Error.
//
// Every failure of the library leaves its text here.
//
// Layout: the record is exactly bError, strError and m_cs, in that order,
// and has no virtual functions (no vtable); all three are public so that
// their order is fixed by the language.
//
// Locking: every operation that changes the record - both SetLastError
// forms, both SetLastErrorFromSystem forms, ClearError and assignment -
// holds the record's critical section for its whole duration, so that
// concurrent writers never tear the flag and the text apart. GetLastError
// and IsError read without the lock, and so do copy construction and
// assignment when they read their source. Reading is therefore safe only
// while no other thread changes the record; a caller that reads beside
// writers serialises with them itself.
#ifndef TQBASE_ERRORINFO_H
#define TQBASE_ERRORINFO_H

#include "tqbase/tqbasexp.h"

class TQBASE_API CErrorInfo {
public:
  CErrorInfo();
  // Copies flag and text into a record with a critical section of its own.
  CErrorInfo(const CErrorInfo& other);
  // Copies flag and text under this record's lock.
  CErrorInfo& operator=(const CErrorInfo& other);
  ~CErrorInfo();

  // printf-style text; a null format empties it. bError = text non-empty.
  // Always returns 1, so that "record and return" is one statement.
  int SetLastError(const char* format, ...) TQ_PRINTF_FORMAT(2, 3)
      ;
  // Text of string resource stringId of module; a null module or id 0
  // clears. An id the module lacks gives "Error in :<handle> (ID:<id>)".
  // bError is 1 whatever the text. Always returns 1.
  int SetLastError(HINSTANCE module, unsigned int stringId);
  // The operating system's text for code; 0 empties. bError = text
  // non-empty. Always returns 1.
  int SetLastErrorFromSystem(unsigned long code);
  // The same with the calling thread's last system error, which is read
  // before the lock is taken (taking it could change that code).
  int SetLastErrorFromSystem();
  void ClearError();

  // Copies the text when an error is recorded, else empties text.
  BOOL GetLastError(CString& text) const;
  BOOL IsError() const { return bError; }

  // Empty for 0; the system's message for code; else
  // "System Error (code:<code>)".
  static CString TransSystemErrorCodeToString(unsigned long code);

  BOOL bError;
  CString strError;
  // The record's lock; taken only by the operations that change it.
  CRITICAL_SECTION m_cs;
};

extern TQBASE_API CErrorInfo g_Error;

#endif  // TQBASE_ERRORINFO_H
