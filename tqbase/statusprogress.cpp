// statusprogress.cpp - AStatusProgress: the shared progress state and the
// host's drawing callback.
//
// Invariant: m_lower <= m_upper and m_lower <= m_pos <= m_upper.
#include "tqbase/statusprogress.h"

AStatusProgress::AStatusProgress()
    : m_lower(0), m_upper(100), m_pos(0), m_step(1), m_active(FALSE), m_proc(nullptr), m_context(nullptr) {}

ASTATUSPROGRESSPROC AStatusProgress::SetCallback(ASTATUSPROGRESSPROC proc, void* context) {
  std::lock_guard<std::mutex> lock(m_mutex);
  ASTATUSPROGRESSPROC old = m_proc;
  m_proc = proc;
  m_context = context;
  return old;
}

int AStatusProgress::Clamp(int pos) const { return pos < m_lower ? m_lower : (pos > m_upper ? m_upper : pos); }

// Calls the callback with a snapshot taken under the lock, so that a
// callback that reads the object (or a thread that moves it on) never
// blocks on, or sees, a half-made change.
void AStatusProgress::Notify() {
  ASTATUSPROGRESSPROC proc;
  void* context;
  int pos, lower, upper;
  BOOL active;
  CString text;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    proc = m_proc;
    if (!proc) return;
    context = m_context;
    pos = m_pos;
    lower = m_lower;
    upper = m_upper;
    active = m_active;
    try {
      text = m_text;
    } catch (const std::bad_alloc&) {
    }
  }
  proc(context, pos, lower, upper, text.GetString(), active);
}

void AStatusProgress::Begin(const char* text, int lower, int upper) {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (upper < lower) std::swap(lower, upper);
    m_lower = lower;
    m_upper = upper;
    m_pos = lower;
    m_step = 1;
    m_active = TRUE;
    try {
      m_text = text ? text : "";
    } catch (const std::bad_alloc&) {
      m_text.Empty();
    }
  }
  Notify();
}

void AStatusProgress::End() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_active = FALSE;
    m_pos = m_lower;
    m_text.Empty();
  }
  Notify();
}

void AStatusProgress::SetRange(int lower, int upper) {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (upper < lower) std::swap(lower, upper);
    m_lower = lower;
    m_upper = upper;
    m_pos = Clamp(m_pos);
  }
  Notify();
}

void AStatusProgress::SetPos(int pos) {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pos = Clamp(pos);
  }
  Notify();
}

void AStatusProgress::OffsetPos(int delta) {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    long long p = (long long)m_pos + delta;
    m_pos = p < m_lower ? m_lower : (p > m_upper ? m_upper : (int)p);
  }
  Notify();
}

void AStatusProgress::SetStep(int step) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_step = step;
}

void AStatusProgress::StepIt() {
  int step;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    step = m_step;
  }
  OffsetPos(step);
}

void AStatusProgress::SetText(const char* text) {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    try {
      m_text = text ? text : "";
    } catch (const std::bad_alloc&) {
      m_text.Empty();
    }
  }
  Notify();
}

int AStatusProgress::GetPos() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_pos;
}

void AStatusProgress::GetRange(int& lower, int& upper) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  lower = m_lower;
  upper = m_upper;
}

int AStatusProgress::GetPercent() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  long long span = (long long)m_upper - m_lower;
  return span <= 0 ? 0 : (int)(((long long)m_pos - m_lower) * 100 / span);
}

CString AStatusProgress::GetText() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  try {
    return m_text;
  } catch (const std::bad_alloc&) {
    return CString();
  }
}

BOOL AStatusProgress::IsActive() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_active;
}
