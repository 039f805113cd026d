// test_support.h - helpers shared by the test suites: capturing the debug
// trace and counting assertions through the library's replaceable hooks,
// and reading a whole file.
#ifndef TQBASE_TESTS_TEST_SUPPORT_H
#define TQBASE_TESTS_TEST_SUPPORT_H

#include <tqbase/tqbase.h>

#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

namespace tqtest {

// The bytes of a file; empty when it cannot be read.
inline std::string ReadAll(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

// Installs a trace sink and an assertion handler for its lifetime and
// records what reaches them; the previous hooks come back on destruction.
class HookCapture {
public:
  HookCapture() {
    Current() = this;
    m_prevSink = tqSetTraceSink(&Sink);
    m_prevHandler = tqSetAssertHandler(&Handler);
  }
  ~HookCapture() {
    tqSetTraceSink(m_prevSink);
    tqSetAssertHandler(m_prevHandler);
    Current() = nullptr;
  }
  HookCapture(const HookCapture&) = delete;
  HookCapture& operator=(const HookCapture&) = delete;

  std::string Trace() const { std::lock_guard<std::mutex> l(m_mutex); return m_trace; }
  int Assertions() const { std::lock_guard<std::mutex> l(m_mutex); return (int)m_asserts.size(); }
  std::vector<std::string> AssertionTexts() const { std::lock_guard<std::mutex> l(m_mutex); return m_asserts; }
  void Clear() { std::lock_guard<std::mutex> l(m_mutex); m_trace.clear(); m_asserts.clear(); }

private:
  static HookCapture*& Current() { static HookCapture* c = nullptr; return c; }
  static void Sink(const char* text) {
    if (HookCapture* c = Current()) { std::lock_guard<std::mutex> l(c->m_mutex); c->m_trace += text; }
  }
  static void Handler(const char* file, int line, const char* expr) {
    if (HookCapture* c = Current()) {
      std::lock_guard<std::mutex> l(c->m_mutex);
      c->m_asserts.push_back(std::string(file) + ":" + std::to_string(line) + ": " + expr);
    }
  }

  mutable std::mutex m_mutex;
  std::string m_trace;
  std::vector<std::string> m_asserts;
  TQTRACESINK m_prevSink;
  TQASSERTHANDLER m_prevHandler;
};

}  // namespace tqtest

#endif  // TQBASE_TESTS_TEST_SUPPORT_H
