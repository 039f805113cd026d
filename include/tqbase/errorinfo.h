// errorinfo.h - CErrorInfo, the last-error record, and its global g_Error.
//
// Every failure of the library leaves its text here. Setting and clearing
// take the record's critical section for their whole duration, so
// concurrent writers never tear the flag and the text apart; reading
// (GetLastError, IsError) takes no lock.
#ifndef TQBASE_ERRORINFO_H
#define TQBASE_ERRORINFO_H

#include "tqbase/tqbasexp.h"

class TQBASE_API CErrorInfo {
public:
  CErrorInfo();
  CErrorInfo(const CErrorInfo& other);
  CErrorInfo& operator=(const CErrorInfo& other);
  virtual ~CErrorInfo();

  // printf-style text; a null format empties it. bError = text non-empty.
  // Always returns 1, so that "record and return" is one statement.
  int SetLastError(const char* format, ...) TQ_PRINTF_FORMAT(2, 3)
      ;
  // Text of string resource stringId of module; a null module or id 0
  // clears. An id the module lacks gives "Error in :<handle> (ID:<id>)".
  // bError is 1 whatever the text. Always returns 1.
  int SetLastError(HINSTANCE module, unsigned int stringId);
  // The operating system's text for code; 0 empties. Always returns 1.
  int SetLastErrorFromSystem(unsigned long code);
  // The same with the calling thread's last system error.
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

private:
  void SetText(CString&& text, bool alwaysError);
  mutable CRITICAL_SECTION m_cs;
};

extern TQBASE_API CErrorInfo g_Error;

#endif  // TQBASE_ERRORINFO_H
