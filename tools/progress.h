// progress.h - a progress bar for the tool's long jobs, on stderr, shown
// only on a terminal and only once a job has run for more than half a
// second; it erases itself when done.
#ifndef TQBASE_TOOLS_PROGRESS_H
#define TQBASE_TOOLS_PROGRESS_H

#include <chrono>
#include <cstdio>

#ifndef _WIN32
#include <unistd.h>
#endif

namespace tqtool {

class Progress {
public:
  Progress(const char* what, size_t total)
      : m_what(what), m_total(total ? total : 1), m_start(std::chrono::steady_clock::now()) {
#ifndef _WIN32
    m_tty = isatty(2) != 0;
#endif
  }
  ~Progress() {
    if (m_shown) std::fprintf(stderr, "\r%-60s\r", "");
  }
  void Update(size_t done) {
    if (!m_tty) return;
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    if (secs < 0.5 && !m_shown) return;
    const int pct = (int)(100.0 * done / m_total);
    if (pct == m_last) return;
    m_last = pct;
    m_shown = true;
    const int bar = pct * 30 / 100;
    std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%", m_what, bar, "==============================",
                 30 - bar, "", pct);
    std::fflush(stderr);
  }

private:
  const char* m_what;
  size_t m_total;
  std::chrono::steady_clock::time_point m_start;
  bool m_tty = false, m_shown = false;
  int m_last = -1;
};

}  // namespace tqtool

#endif  // TQBASE_TOOLS_PROGRESS_H
