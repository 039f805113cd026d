// test_memorymanage.cpp - the memory manager: argument checks of every
// form, register slot reuse, the leak report's texts and order, pointer
// re-allocation, and the lendable work buffer.
#include "test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <regex>
#include <thread>
#include <vector>

namespace {

// Opens the protected register life-cycle to the tests.
struct AGVProbe : AGV {
  using AGV::Exit;
  using AGV::Init;
};

class MemoryManager : public ::testing::Test {
protected:
  void SetUp() override { AGVProbe::Init(); }
  void TearDown() override { AGVProbe::Init(); }
  tqtest::HookCapture hooks;
};

TEST_F(MemoryManager, ZeroSizesAndNullArgumentsGiveTheStatedResults) {
  EXPECT_EQ(AGV::_RAGlobalAllocPtr(GHND, 0), nullptr);
  EXPECT_EQ(AGV::_RAGlobalAlloc(GHND, 0), nullptr);
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 0);
  EXPECT_EQ(AGV::_RAGlobalFreePtr(nullptr), 1);
  EXPECT_EQ(AGV::_RAGlobalFree(nullptr), nullptr);
  EXPECT_EQ(AGV::_RAGlobalLock(nullptr), nullptr);
  EXPECT_EQ(AGV::_RAGlobalUnlock(nullptr), 0);
  EXPECT_EQ(AGV::_RAVirtualAlloc(nullptr, 0, MEM_COMMIT, PAGE_READWRITE), nullptr);
  EXPECT_EQ(AGV::_RAVirtualFree(nullptr, 0, MEM_RELEASE), 1);
  EXPECT_EQ(AGV::_RAVirtualUnlock(nullptr, 16), 1);
  EXPECT_EQ(AGV::_RAVirtualLock(nullptr, 16), 0);
  EXPECT_EQ(AGV::_RAGlobalReAllocPtr(nullptr, 10, GHND), nullptr);
  // Size 0 fires the assertion; the null arguments above, which the
  // underlying block and page calls tolerate, do not.
  EXPECT_EQ(hooks.Assertions(), 3);
  int stray = 0;
  EXPECT_EQ(AGV::_RAGlobalFreePtr(&stray), 1);  // not a block: nothing to free
}

TEST_F(MemoryManager, FreedSlotIsReusedAndTheArrayKeepsItsLength) {
  HGLOBAL a = AGlobalAlloc(GHND, 10);
  HGLOBAL b = AGlobalAlloc(GHND, 20);
  HGLOBAL c = AGlobalAlloc(GHND, 30);
  ASSERT_TRUE(a && b && c);
  EXPECT_EQ(AGV::GetGlobalSlot(b), 1);
  EXPECT_EQ(AGlobalFree(b), nullptr);
  HGLOBAL d = AGlobalAlloc(GHND, 40);
  EXPECT_EQ(AGV::GetGlobalSlot(d), 1);
  EXPECT_EQ(AGV::GetGlobalSlotCount(), 3);
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 3);
  // With two free slots, the highest-numbered one is taken first.
  AGlobalFree(a);
  AGlobalFree(d);
  HGLOBAL e = AGlobalAlloc(GHND, 8);
  EXPECT_EQ(AGV::GetGlobalSlot(e), 1);
  AGlobalFree(c);
  AGlobalFree(e);
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 0);
  EXPECT_EQ(AGV::GetGlobalSlotCount(), 3);
  EXPECT_EQ(hooks.Assertions(), 0);
}

TEST_F(MemoryManager, ZeroInitAndLockCounts) {
  HGLOBAL h = AGlobalAlloc(GHND, 64);
  unsigned char* p = static_cast<unsigned char*>(AGlobalLock(h));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 64; ++i) ASSERT_EQ(p[i], 0);
  EXPECT_EQ(AGlobalLock(h), p);           // second lock, same data
  EXPECT_EQ(GlobalHandle(p + 0), h);      // pointer maps back to its handle
  EXPECT_EQ(GlobalHandle(p + 1), nullptr);
  EXPECT_NE(AGlobalUnlock(h), 0);         // still locked once
  EXPECT_EQ(AGlobalUnlock(h), 0);         // now unlocked, no error
  EXPECT_EQ(hooks.Assertions(), 0);
  EXPECT_EQ(AGlobalUnlock(h), 0);         // not locked: unexpected, asserts
  EXPECT_EQ(hooks.Assertions(), 1);
  EXPECT_EQ(AGlobalFree(h), nullptr);
}

TEST_F(MemoryManager, DoubleRecordAndUnknownDeleteAssertWithoutCorruption) {
  HGLOBAL h = AGlobalAlloc(GHND, 16);
  // Freeing a block the register never saw: GlobalFree frees it, the
  // register asserts and is unchanged.
  HGLOBAL raw = GlobalAlloc(GHND, 16);
  EXPECT_EQ(AGlobalFree(raw), nullptr);
  EXPECT_EQ(hooks.Assertions(), 1);
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 1);
  // A failed free keeps the record.
  int notABlock = 0;
  EXPECT_EQ(AGlobalFree(&notABlock), (HGLOBAL)&notABlock);
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 1);
  AGlobalFree(h);
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 0);
}

TEST_F(MemoryManager, ReAllocPtrKeepsContentsOrHandsBackAFreshBlock) {
  unsigned char* p = static_cast<unsigned char*>(AGlobalAllocPtr(GHND, 100));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 100; ++i) p[i] = (unsigned char)i;
  unsigned char* q = static_cast<unsigned char*>(AGlobalReAllocPtr(p, 100000, GHND));
  ASSERT_NE(q, nullptr);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(q[i], i);
  for (int i = 100; i < 100000; i += 997) ASSERT_EQ(q[i], 0);  // zero-filled growth
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 1);
  // A pointer GlobalHandle cannot map: a fresh block is returned.
  int notABlock = 0;
  void* fresh = AGlobalReAllocPtr(&notABlock, 32, GHND);
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 2);
  EXPECT_EQ(AGlobalFreePtr(fresh), 0);
  EXPECT_EQ(AGlobalFreePtr(q), 0);
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 0);
  EXPECT_EQ(hooks.Assertions(), 0);
}

TEST_F(MemoryManager, ReleaseFormPairsLeaveTheRegisterBalanced) {
  void* p = AGV::_RAGlobalAllocPtr(GPTR, 48);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 1);  // pointer blocks are always recorded
  EXPECT_EQ(AGV::_RAGlobalFreePtr(p), 0);
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 0);
  EXPECT_EQ(hooks.Assertions(), 0);
}

TEST_F(MemoryManager, LeakReportListsEachRegisterBetweenItsHeaderAndFooter) {
  void* page = AVirtualAlloc(nullptr, 4096, MEM_COMMIT, PAGE_READWRITE);
  void* kept = AGlobalAllocPtr(GHND, 24);
  void* freed = AGlobalAllocPtr(GHND, 24);
  AGlobalFreePtr(freed);
  ASSERT_TRUE(page && kept);
  hooks.Clear();
  AGVProbe::Exit();
  const std::string t = hooks.Trace();
  const std::string vHead = "程序中有用VirtualAlloc函数提交的页面没有释放--------\n";
  const std::string vFoot = "以上是用VirtualAlloc函数提交的没有释放的页面地址--------\n\n";
  const std::string gHead = "程序中有用GlobalAlloc函数申请的堆空间没有释放--------\n";
  const std::string gFoot = "以上是用GlobalAlloc函数申请的没有释放的堆空间地址--------\n\n";
  size_t a = t.find(vHead), b = t.find(vFoot), c = t.find(gHead), d = t.find(gFoot);
  ASSERT_NE(a, std::string::npos) << t;
  ASSERT_NE(d, std::string::npos) << t;
  EXPECT_TRUE(a < b && b < c && c < d) << t;  // pages first, then global blocks
  const std::string pages = t.substr(a + vHead.size(), b - a - vHead.size());
  const std::string blocks = t.substr(c + gHead.size(), d - c - gHead.size());
  // One line each, with the deliberately different call-site texts.
  EXPECT_TRUE(std::regex_match(pages, std::regex("0X[0-9A-F]{16} memory is leak,File:.*test_memorymanage\\.cpp, Line:\\d+\n")))
      << pages;
  EXPECT_TRUE(std::regex_match(blocks, std::regex("0X[0-9A-F]{16} memory is leak,File: .*test_memorymanage\\.cpp, Line: \\d+\n")))
      << blocks;
  // The report frees nothing and keeps the registers.
  EXPECT_EQ(AGV::GetGlobalAllocCount(), 1);
  AGlobalFreePtr(kept);
  AVirtualFree(page, 0, MEM_RELEASE);
  hooks.Clear();
  AGVProbe::Exit();
  EXPECT_EQ(hooks.Trace(), "");  // empty registers write nothing
}

TEST_F(MemoryManager, VirtualRegionsAreRecordedUntilReleased) {
  char* p = static_cast<char*>(AVirtualAlloc(nullptr, 10000, MEM_COMMIT, PAGE_READWRITE));
  ASSERT_NE(p, nullptr);
  p[0] = 1;
  p[9999] = 2;
  EXPECT_EQ(AGV::GetVirtualAllocCount(), 1);
  EXPECT_EQ(AVirtualLock(p, 4096), 1);
  EXPECT_EQ(AVirtualUnlock(p, 4096), 1);
  EXPECT_EQ(AVirtualFree(p + 4096, 0, MEM_RELEASE), 0);  // not a region base
  EXPECT_EQ(AGV::GetVirtualAllocCount(), 1);
  EXPECT_EQ(AVirtualFree(p, 0, MEM_RELEASE), 1);
  EXPECT_EQ(AGV::GetVirtualAllocCount(), 0);
}

TEST_F(MemoryManager, WorkBufferIsLentOnceAndBusyBorrowersGetFreshRegions) {
  ASSERT_EQ(g_AGV.GetBufferLength(), 0x300000u);
  unsigned char* a = g_AGV.LockBuffer(1000, FALSE);
  ASSERT_NE(a, nullptr);
  a[0] = 0x5A;
  EXPECT_EQ(g_AGV.LockBuffer(1000, FALSE), nullptr);
  unsigned char* b = g_AGV.LockBuffer(1000, TRUE);
  ASSERT_NE(b, nullptr);
  EXPECT_NE(a, b);
  EXPECT_EQ(AGV::GetVirtualAllocCount(), 1);  // recorded like any page region
  EXPECT_TRUE(g_AGV.UnlockBuffer(b));
  EXPECT_EQ(AGV::GetVirtualAllocCount(), 0);
  // Re-initialising while lent out is refused and reports length 0.
  unsigned long len = 77;
  EXPECT_FALSE(g_AGV.InitBuffer(&len, 0x1000));
  EXPECT_EQ(len, 0u);
  EXPECT_TRUE(g_AGV.UnlockBuffer(a));
  // Same size: buffer and contents untouched.
  EXPECT_TRUE(g_AGV.InitBuffer(&len, 0x300000));
  EXPECT_EQ(len, 0x300000u);
  unsigned char* again = g_AGV.LockBuffer(0x300000, FALSE);
  EXPECT_EQ(again, a);
  EXPECT_EQ(again[0], 0x5A);
  EXPECT_TRUE(g_AGV.UnlockBuffer(again));
  // Larger than the buffer: only a fresh region will do.
  EXPECT_EQ(g_AGV.LockBuffer(0x300001, FALSE), nullptr);
  EXPECT_EQ(hooks.Assertions(), 1);  // the refused InitBuffer
  EXPECT_FALSE(g_AGV.UnlockBuffer(nullptr));
  EXPECT_EQ(hooks.Assertions(), 2);
}

// Threads borrowing at once: one of them at a time holds the lent buffer,
// the others get fresh regions, nobody's bytes are overwritten by another,
// and the codecs that borrow it give the same streams from every thread.
// (The ThreadSanitizer job runs this.)
TEST_F(MemoryManager, WorkBufferUnderConcurrentBorrowers) {
  std::vector<unsigned char> line(20000);
  for (size_t i = 0; i < line.size(); ++i) line[i] = (unsigned char)(i / 300 % 2 ? 255 : i % 7);
  std::vector<unsigned char> want(line.size() * 2 + 16);
  unsigned long wantLen = 0;
  ASSERT_TRUE(ACompress::Comp_LZW(line.data(), line.size(), want.data(), want.size(), wantLen));
  want.resize(wantLen);
  const int blocksBefore = AGV::GetVirtualAllocCount();
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      std::vector<unsigned char> z(line.size() * 2 + 16), back(line.size() + 6);
      for (int iter = 0; iter < 100; ++iter) {
        unsigned char* b = g_AGV.LockBuffer(4096, TRUE);
        if (!b) {
          ++bad;
          continue;
        }
        std::memset(b, 0x10 + t, 4096);
        std::this_thread::yield();
        for (int k = 0; k < 4096; ++k)
          if (b[k] != 0x10 + t) {
            ++bad;
            break;
          }
        g_AGV.UnlockBuffer(b);
        unsigned long zl = 0, bl = 0;
        if (!ACompress::Comp_LZW(line.data(), line.size(), z.data(), z.size(), zl) || zl != want.size() ||
            std::memcmp(z.data(), want.data(), zl) != 0 ||
            !ACompress::UnComp_LZW(z.data(), zl, back.data(), back.size(), bl) || bl != line.size() ||
            std::memcmp(back.data(), line.data(), bl) != 0)
          ++bad;
      }
    });
  for (std::thread& th : threads) th.join();
  EXPECT_EQ(bad.load(), 0);
  EXPECT_EQ(AGV::GetVirtualAllocCount(), blocksBefore);  // every fresh region given back
}

TEST_F(MemoryManager, SeparateBufferManagerResizesAndReleases) {
  CBufferManager m;
  unsigned long len = 1;
  EXPECT_TRUE(m.InitBuffer(&len, 8192));
  EXPECT_EQ(len, 8192u);
  EXPECT_EQ(m.GetBufferLength(), 8192u);
  EXPECT_TRUE(m.InitBuffer(&len, 0));
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(m.LockBuffer(1, FALSE), nullptr);  // no buffer to lend
  EXPECT_TRUE(m.InitBuffer(nullptr, 4096));
  unsigned char* p = m.LockBuffer(4096, FALSE);
  EXPECT_NE(p, nullptr);
  m.UnlockBuffer(p);
}

}  // namespace
