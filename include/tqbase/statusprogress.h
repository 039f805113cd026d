// statusprogress.h - AStatusProgress, the progress display shared by every
// module (g_progress). Worker code sets a range, a position and a text;
// the host attaches a callback that draws them (a status-bar gauge, a
// console line). Safe to call from any thread; the callback runs on the
// caller's thread, outside the object's lock, and may read the object.
#ifndef TQBASE_STATUSPROGRESS_H
#define TQBASE_STATUSPROGRESS_H

#include "tqbase/tqbasexp.h"

#include <mutex>

// pos lies in [lower, upper]; active is FALSE after End.
typedef void (*ASTATUSPROGRESSPROC)(void* context, int pos, int lower, int upper, const char* text,
                                    BOOL active);

class TQBASE_API AStatusProgress {
public:
  AStatusProgress();
  AStatusProgress(const AStatusProgress&) = delete;
  AStatusProgress& operator=(const AStatusProgress&) = delete;

  // The host's drawing callback (null: none). Returns the previous one.
  ASTATUSPROGRESSPROC SetCallback(ASTATUSPROGRESSPROC proc, void* context);

  // Starts a task: text, range (swapped when upper < lower), position at
  // lower, step 1.
  void Begin(const char* text, int lower, int upper);
  // Ends the task: inactive, position back to lower, text empty.
  void End();
  void SetRange(int lower, int upper);
  // Positions are clamped into the range.
  void SetPos(int pos);
  void OffsetPos(int delta);
  void SetStep(int step);
  void StepIt();
  void SetText(const char* text);

  int GetPos() const;
  void GetRange(int& lower, int& upper) const;
  // 0..100; 0 for an empty range.
  int GetPercent() const;
  CString GetText() const;
  BOOL IsActive() const;

private:
  void Notify();
  int Clamp(int pos) const;

  mutable std::mutex m_mutex;
  int m_lower, m_upper, m_pos, m_step;
  BOOL m_active;
  CString m_text;
  ASTATUSPROGRESSPROC m_proc;
  void* m_context;
};

extern TQBASE_API AStatusProgress g_progress;

#endif  // TQBASE_STATUSPROGRESS_H
