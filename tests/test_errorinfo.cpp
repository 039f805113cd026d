// test_errorinfo.cpp - the last-error record: every setter's flag rule,
// system texts, copies, and consistency under concurrent writers.
#include "test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace {

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

  e.SetLastErrorFromSystem((unsigned long)ENOENT);
  EXPECT_TRUE(e.IsError());
  EXPECT_FALSE(e.strError.IsEmpty());
  EXPECT_EQ(e.strError.Find("System Error"), -1);

  e.SetLastErrorFromSystem(987654ul);
  EXPECT_STREQ(e.strError, "System Error (code:987654)");
  EXPECT_STREQ(CErrorInfo::TransSystemErrorCodeToString(0), "");

  errno = EACCES;
  e.SetLastErrorFromSystem();
  EXPECT_STREQ(e.strError, CErrorInfo::TransSystemErrorCodeToString(EACCES));
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

// Writers set texts whose flag is known from the text; a reader must never
// see a flag that disagrees with the text it copies, nor a torn text.
TEST(ErrorInfo, ConcurrentWritersNeverTearTheRecord) {
  CErrorInfo e;
  std::atomic<bool> stop{false};
  std::atomic<int> bad{0};
  std::vector<std::thread> writers;
  for (int w = 0; w < 4; ++w) {
    writers.emplace_back([&, w] {
      for (int i = 0; i < 20000; ++i) {
        switch ((i + w) % 4) {
          case 0: e.SetLastError("writer %d step %d %s", w, i, "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"); break;
          case 1: e.ClearError(); break;
          case 2: e.SetLastError("%s", ""); break;
          default: e.SetLastErrorFromSystem(987654ul); break;
        }
      }
    });
  }
  std::thread reader([&] {
    CString t;
    while (!stop) {
      BOOL f = e.GetLastError(t);
      if (f ? t.IsEmpty() : !t.IsEmpty()) ++bad;
      if (f && t.Find("writer") != 0 && t != "System Error (code:987654)") ++bad;
    }
  });
  for (auto& t : writers) t.join();
  stop = true;
  reader.join();
  EXPECT_EQ(bad.load(), 0);
}

}  // namespace
