// test_errorinfo.cpp - the last-error record: its layout, every setter's
// flag rule, system texts, copies, which operations take the lock, and
// consistency under concurrent writers.
#include "test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>
#include <type_traits>

namespace {

// No vtable and nothing beyond flag, text and lock, in that order.
static_assert(!std::is_polymorphic<CErrorInfo>::value, "CErrorInfo has no virtual functions");
struct ErrorInfoLayout {
  BOOL bError;
  CString strError;
  CRITICAL_SECTION m_cs;
};
static_assert(sizeof(CErrorInfo) == sizeof(ErrorInfoLayout), "CErrorInfo holds exactly its three members");
static_assert(std::is_same<decltype(CErrorInfo::bError), BOOL>::value &&
                  std::is_same<decltype(CErrorInfo::strError), CString>::value &&
                  std::is_same<decltype(CErrorInfo::m_cs), CRITICAL_SECTION>::value,
              "member types");

TEST(ErrorInfo, FormatSetterFlagsOnlyNonEmptyTexts) {
  CErrorInfo e;
  CString text("stale");
  EXPECT_EQ(e.GetLastError(text), FALSE);
  EXPECT_TRUE(text.IsEmpty());  // a clear record empties the caller's text

  EXPECT_EQ(e.SetLastError("bad value %d in %s", 42, "row"), 1);
  EXPECT_TRUE(e.IsError());
  EXPECT_EQ(e.GetLastError(text), TRUE);
  EXPECT_STREQ(text, "bad value 42 in row");

  EXPECT_EQ(e.SetLastError("%s", ""), 1);
  EXPECT_FALSE(e.IsError());
  e.SetLastError("x");
  EXPECT_EQ(e.SetLastError((const char*)nullptr), 1);
  EXPECT_FALSE(e.IsError());
  EXPECT_TRUE(e.strError.IsEmpty());
}

TEST(ErrorInfo, ResourceSetterClearsOnNullArgumentsAndNamesUnknownIds) {
  CErrorInfo e;
  HINSTANCE module = reinterpret_cast<HINSTANCE>(static_cast<uintptr_t>(0x1234));
  e.SetLastError("x");
  EXPECT_EQ(e.SetLastError(module, 0u), 1);
  EXPECT_FALSE(e.IsError());
  e.SetLastError("x");
  EXPECT_EQ(e.SetLastError((HINSTANCE) nullptr, 7u), 1);
  EXPECT_FALSE(e.IsError());

  EXPECT_EQ(e.SetLastError(module, 60001u), 1);
  EXPECT_TRUE(e.IsError());
  EXPECT_STREQ(e.strError, "Error in :4660 (ID:60001)");
}

TEST(ErrorInfo, SystemTexts) {
  CErrorInfo e;
  e.SetLastError("x");
  EXPECT_EQ(e.SetLastErrorFromSystem(0ul), 1);
  EXPECT_FALSE(e.IsError());

  // The system's codes: Win32 error codes on Windows, errno values elsewhere.
#ifdef _WIN32
  const unsigned long kNoFile = ERROR_FILE_NOT_FOUND, kDenied = ERROR_ACCESS_DENIED;
#else
  const unsigned long kNoFile = ENOENT, kDenied = EACCES;
#endif
  e.SetLastErrorFromSystem(kNoFile);
  EXPECT_TRUE(e.IsError());
  EXPECT_FALSE(e.strError.IsEmpty());
  EXPECT_EQ(e.strError.Find("System Error"), -1);
  EXPECT_STRNE(e.strError, CErrorInfo::TransSystemErrorCodeToString(kDenied));

  e.SetLastErrorFromSystem(987654ul);
  EXPECT_STREQ(e.strError, "System Error (code:987654)");
  EXPECT_STREQ(CErrorInfo::TransSystemErrorCodeToString(0), "");

  // The calling thread's last error.
#ifdef _WIN32
  ::SetLastError(kDenied);
#else
  errno = (int)kDenied;
#endif
  e.SetLastErrorFromSystem();
  EXPECT_STREQ(e.strError, CErrorInfo::TransSystemErrorCodeToString(kDenied));
}

TEST(ErrorInfo, CopiesCarryFlagAndText) {
  CErrorInfo a;
  a.SetLastError("first");
  CErrorInfo b(a);
  EXPECT_TRUE(b.IsError());
  EXPECT_STREQ(b.strError, "first");
  CErrorInfo c;
  c = a;
  a.ClearError();
  EXPECT_STREQ(c.strError, "first");
  EXPECT_FALSE(a.IsError());
}

// Runs op on another thread while this thread holds the record's lock and
// tells whether op finished before the lock was let go.
bool FinishesWhileLocked(CErrorInfo& e, const std::function<void()>& op) {
  std::atomic<bool> done{false};
  EnterCriticalSection(&e.m_cs);
  std::thread t([&] {
    op();
    done = true;
  });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
  while (!done && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  const bool finished = done;
  LeaveCriticalSection(&e.m_cs);
  t.join();
  return finished;
}

TEST(ErrorInfo, EveryChangeTakesTheLockAndReadsDoNot) {
  CErrorInfo e, source;
  source.SetLastError("copied");
  e.SetLastError("before");
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"SetLastError(format)", [&] { e.SetLastError("x %d", 1); }},
      {"SetLastError(module, id)", [&] { e.SetLastError(reinterpret_cast<HINSTANCE>(&source), 60002u); }},
      {"SetLastErrorFromSystem(code)", [&] { e.SetLastErrorFromSystem(987654ul); }},
      {"SetLastErrorFromSystem()", [&] { e.SetLastErrorFromSystem(); }},
      {"ClearError", [&] { e.ClearError(); }},
      {"operator=", [&] { e = source; }},
  };
  for (const auto& c : changes) EXPECT_FALSE(FinishesWhileLocked(e, c.second)) << c.first;
  EXPECT_STREQ(e.strError, "copied");  // each change did complete once the lock was free

  CString text;
  BOOL flag = FALSE;
  EXPECT_TRUE(FinishesWhileLocked(e, [&] { flag = e.GetLastError(text); }));
  EXPECT_TRUE(flag);
  EXPECT_STREQ(text, "copied");
  EXPECT_TRUE(FinishesWhileLocked(e, [&] { flag = e.IsError(); }));
  EXPECT_TRUE(FinishesWhileLocked(e, [&] { CErrorInfo copy(e); flag = copy.IsError(); }));
  EXPECT_TRUE(flag);
}

// Writers of every kind at once leave a record whose flag agrees with its
// text (the sanitizer sees any torn string).
TEST(ErrorInfo, ConcurrentWritersLeaveAConsistentRecord) {
  CErrorInfo e, source;
  source.SetLastError("assigned");
  std::vector<std::thread> writers;
  for (int w = 0; w < 4; ++w) {
    writers.emplace_back([&, w] {
      for (int i = 0; i < 20000; ++i) {
        switch ((i + w) % 5) {
          case 0: e.SetLastError("writer %d step %d %s", w, i, "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"); break;
          case 1: e.ClearError(); break;
          case 2: e.SetLastError("%s", ""); break;
          case 3: e = source; break;
          default: e.SetLastErrorFromSystem(987654ul); break;
        }
      }
    });
  }
  for (auto& t : writers) t.join();
  CString t;
  const BOOL f = e.GetLastError(t);
  EXPECT_EQ(f != 0, !t.IsEmpty());
  EXPECT_TRUE(!f || t.Find("writer") == 0 || t == "assigned" || t == "System Error (code:987654)") << t.GetString();
}

}  // namespace
