// memorymanage.cpp - AGV (global blocks, page regions, leak registers and
// the leak report) and CBufferManager (the lendable work buffer), g_AGV.
//
// The registers are function-local objects created on first use and never
// destroyed: blocks are recorded during other translation units' static
// initialisation and the leak report runs at unload, after ordinary statics
// of this file may already be gone. Each register has its own mutex, so the
// debug forms may be called from several threads at once. g_AGV itself is
// defined in tqbase.cpp, ahead of the module's start-up.
#include "tqbase/memorymanage.h"

#include <algorithm>
#include <atomic>
#include <csignal>

#include "allocfail.h"

#include <map>
#include <mutex>
#include <set>
#include <unordered_map>
#include <string>
#include <vector>

// ---------------------------------------------------------------------------
// Failure injection (allocfail.h)

namespace tqbase {
namespace allocfail {
namespace {
std::atomic<long long> g_left{0};  // allocations to go until the failing one; 0 off
std::atomic<bool> g_fired{false};
thread_local int t_paused = 0;
}  // namespace

void Arm(long long n) {
  g_fired = false;
  g_left = n > 0 ? n : 0;
}

bool Fails() {
  if (t_paused || g_left.load(std::memory_order_relaxed) == 0) return false;
  if (g_left.fetch_sub(1) != 1) return false;
  g_fired = true;
  return true;
}

bool Fired() { return g_fired; }

Pause::Pause() { ++t_paused; }
Pause::~Pause() { --t_paused; }

namespace {
std::atomic<long long> g_crashLeft{0};
}  // namespace

void ArmCrash(long long n) { g_crashLeft = n > 0 ? n : 0; }

void CrashPoint() {
  if (g_crashLeft.load(std::memory_order_relaxed) == 0 || g_crashLeft.fetch_sub(1) != 1) return;
#ifdef _WIN32
  TerminateProcess(GetCurrentProcess(), 137);
#else
  ::raise(SIGKILL);
#endif
}

}  // namespace allocfail
}  // namespace tqbase

using tqbase::allocfail::Pause;

namespace {

// One register: identity -> slot index, and the slots' call sites. A call
// site is kept as its file name (interned once per name) and line, and
// formatted only by the report, so that recording a block costs a few
// lookups rather than a formatted text (bench_cloopgrpopt traces a region
// into hundreds of blocks per call).
// Invariant: every map value indexes a used slot; the other slots are free
// and listed in freeSlots, so that the highest-numbered one is found at
// once however many blocks are live.
struct Site {
  const std::string* file;  // null: a free slot
  int line;
};

struct AllocRegister {
  std::mutex mutex;
  std::unordered_map<uintptr_t, int> map;
  std::vector<Site> slots;
  std::vector<int> freeSlots;  // a max-heap of free slot indices
  std::set<std::string> names;                             // interned file names
  std::unordered_map<const char*, const std::string*> byPointer;  // last name seen at each address
};

AllocRegister& GlobalRegister() {
  static AllocRegister* r = new AllocRegister;
  return *r;
}

AllocRegister& VirtualRegister() {
  static AllocRegister* r = new AllocRegister;
  return *r;
}

// The interned copy of file (compared by content, so that a caller's
// buffer reused for another name is not mistaken for the first).
const std::string* Intern(AllocRegister& reg, const char* file) {
  if (!file) file = "";
  auto it = reg.byPointer.find(file);
  if (it != reg.byPointer.end() && *it->second == file) return it->second;
  const std::string* name = &*reg.names.insert(std::string(file)).first;
  reg.byPointer[file] = name;
  return name;
}

void AddInfo(AllocRegister& reg, uintptr_t id, const char* file, int line) {
  if (id == 0) return;
  Pause pause;
  std::lock_guard<std::mutex> lock(reg.mutex);
  try {
    const Site site{Intern(reg, file), line};
    auto it = reg.map.find(id);
    if (it != reg.map.end()) {
      ASSERT(!"block recorded twice");
      if (it->second >= 0 && (size_t)it->second < reg.slots.size()) {
        reg.slots[(size_t)it->second] = site;
        return;
      }
    }
    // Reuse the highest-numbered free slot, else append.
    if (reg.freeSlots.empty()) {
      reg.slots.push_back(site);
      reg.map[id] = (int)reg.slots.size() - 1;
    } else {
      const int slot = reg.freeSlots.front();
      reg.map[id] = slot;
      std::pop_heap(reg.freeSlots.begin(), reg.freeSlots.end());
      reg.freeSlots.pop_back();
      reg.slots[(size_t)slot] = site;
    }
  } catch (const std::bad_alloc&) {
    // The block stays usable; it is only missing from the leak report.
  }
}

// Removes a record. quiet: a missing record is not a fault (release forms).
void DeleteInfo(AllocRegister& reg, uintptr_t id, bool quiet) {
  if (id == 0) return;
  Pause pause;
  std::lock_guard<std::mutex> lock(reg.mutex);
  auto it = reg.map.find(id);
  if (it == reg.map.end() || it->second < 0 || (size_t)it->second >= reg.slots.size()) {
    if (!quiet) ASSERT(!"freeing a block that was never recorded");
    return;
  }
  const int slot = it->second;
  try {
    reg.freeSlots.push_back(slot);
  } catch (const std::bad_alloc&) {
    return;  // the record stays: the block shows in the report, nothing breaks
  }
  std::push_heap(reg.freeSlots.begin(), reg.freeSlots.end());
  reg.slots[(size_t)slot].file = nullptr;
  reg.map.erase(it);
}

void ClearRegister(AllocRegister& reg) {
  std::lock_guard<std::mutex> lock(reg.mutex);
  reg.map.clear();
  reg.slots.clear();
  reg.freeSlots.clear();
}

// Live records (slots false) or the slot array's length (slots true).
int SizeOf(AllocRegister& reg, bool slots) {
  std::lock_guard<std::mutex> lock(reg.mutex);
  return (int)(slots ? reg.slots.size() : reg.map.size());
}

int SlotOf(AllocRegister& reg, uintptr_t id) {
  std::lock_guard<std::mutex> lock(reg.mutex);
  auto it = reg.map.find(id);
  return it == reg.map.end() ? -1 : it->second;
}

// The identity as Windows' "%p" writes it: upper-case hex digits padded to
// the pointer's width, with no prefix of its own (the report adds "0X").
// siteFormat: the register's call-site text, "File: %s, Line: %d" for
// global blocks and "File:%s, Line:%d" for page regions.
void ReportRegister(AllocRegister& reg, const char* header, const char* footer, const char* siteFormat) {
  std::lock_guard<std::mutex> lock(reg.mutex);
  if (reg.map.empty()) return;
  tqTrace("%s", header);
  // In the order of the blocks' identities.
  std::vector<std::pair<uintptr_t, int>> entries(reg.map.begin(), reg.map.end());
  std::sort(entries.begin(), entries.end());
  for (const auto& entry : entries) {
    if (entry.second < 0 || (size_t)entry.second >= reg.slots.size()) continue;
    const Site& site = reg.slots[(size_t)entry.second];
    if (!site.file) continue;
    CString text;
    text.Format(siteFormat, site.file->c_str(), site.line);
    tqTrace("0X%0*llX memory is leak,%s\n", (int)(sizeof(void*) * 2), (unsigned long long)entry.first,
            text.GetString());
  }
  tqTrace("%s", footer);
}

struct CsLock {
  explicit CsLock(CRITICAL_SECTION* cs) : m(cs) { EnterCriticalSection(m); }
  ~CsLock() { LeaveCriticalSection(m); }
  CRITICAL_SECTION* m;
};

const DWORD kWorkBufferSize = 0x300000;

}  // namespace

// ---------------------------------------------------------------------------
// Registers

void AGV::AddGlobalAllocInfo(HGLOBAL h, const char* file, int line) {
  AddInfo(GlobalRegister(), (uintptr_t)h, file, line);
}

void AGV::DeleteGlobalAllocInfo(HGLOBAL h, const char*, int) { DeleteInfo(GlobalRegister(), (uintptr_t)h, false); }

void AGV::AddVirtualAllocInfo(void* base, const char* file, int line) {
  AddInfo(VirtualRegister(), (uintptr_t)base, file, line);
}

void AGV::DeleteVirtualAllocInfo(void* base, const char*, int) {
  DeleteInfo(VirtualRegister(), (uintptr_t)base, false);
}

int AGV::Init() {
  ClearRegister(GlobalRegister());
  ClearRegister(VirtualRegister());
  return 1;
}

void AGV::Exit() {
  ReportRegister(VirtualRegister(), "程序中有用VirtualAlloc函数提交的页面没有释放--------\n",
                 "以上是用VirtualAlloc函数提交的没有释放的页面地址--------\n\n", "File:%s, Line:%d");
  ReportRegister(GlobalRegister(), "程序中有用GlobalAlloc函数申请的堆空间没有释放--------\n",
                 "以上是用GlobalAlloc函数申请的没有释放的堆空间地址--------\n\n", "File: %s, Line: %d");
}

int AGV::GetGlobalAllocCount() { return SizeOf(GlobalRegister(), false); }
int AGV::GetGlobalSlotCount() { return SizeOf(GlobalRegister(), true); }
int AGV::GetVirtualAllocCount() { return SizeOf(VirtualRegister(), false); }
int AGV::GetVirtualSlotCount() { return SizeOf(VirtualRegister(), true); }
int AGV::GetGlobalSlot(HGLOBAL h) { return SlotOf(GlobalRegister(), (uintptr_t)h); }
int AGV::GetVirtualSlot(const void* base) { return SlotOf(VirtualRegister(), (uintptr_t)base); }

// ---------------------------------------------------------------------------
// Release forms

HGLOBAL AGV::_RAGlobalAlloc(UINT flags, DWORD size) {
  if (size == 0) {
    ASSERT(size != 0);
    return nullptr;
  }
  if (tqbase::allocfail::Fails()) return nullptr;
  Pause pause;  // the block's own bookkeeping is part of this allocation
  return ::GlobalAlloc(flags, size);
}

HGLOBAL AGV::_RAGlobalReAlloc(HGLOBAL h, DWORD size, UINT flags) {
  if (!h) return _RAGlobalAlloc(flags, size);
  if (size == 0) {
    ASSERT(size != 0);
    return nullptr;
  }
  if (tqbase::allocfail::Fails()) return nullptr;
  Pause pause;
  return ::GlobalReAlloc(h, size, flags);
}

HGLOBAL AGV::_RAGlobalFree(HGLOBAL h) {
  if (!h) return nullptr;
  return ::GlobalFree(h);
}

void* AGV::_RAGlobalLock(HGLOBAL h) {
  if (!h) return nullptr;
  void* p = ::GlobalLock(h);
  ASSERT(p != nullptr);
  return p;
}

int AGV::_RAGlobalUnlock(HGLOBAL h) {
  if (!h) return 0;
  BOOL r = ::GlobalUnlock(h);
  if (!r) ASSERT(::GetLastError() == NO_ERROR);
  return r;
}

// The pointer forms always record the block (under this file's line), so
// that every block lent out as a pointer shows in the leak report.
void* AGV::_RAGlobalAllocPtr(UINT flags, DWORD size) {
  if (size == 0) {
    ASSERT(size != 0);
    return nullptr;
  }
  return _DAGlobalAllocPtr(flags, size, __FILE__, __LINE__);
}

void* AGV::_RAGlobalReAllocPtr(void* p, DWORD size, UINT flags) {
  return _DAGlobalReAllocPtr(p, size, flags, __FILE__, __LINE__);
}

// Frees a pointer block; its record, if the pointer form made one, goes
// with it, so release-form pairs leave the registers balanced.
int AGV::_RAGlobalFreePtr(void* p) {
  if (!p) return 1;
  HGLOBAL h = ::GlobalHandle(p);
  if (!h) return 1;
  _RAGlobalUnlock(h);
  HGLOBAL r = _RAGlobalFree(h);
  if (!r) DeleteInfo(GlobalRegister(), (uintptr_t)h, true);
  return r != nullptr;
}

void* AGV::_RAVirtualAlloc(void* address, SIZE_T size, DWORD type, DWORD protect) {
  if (size == 0) return nullptr;
  if (tqbase::allocfail::Fails()) return nullptr;
  Pause pause;
  return ::VirtualAlloc(address, size, type, protect);
}

int AGV::_RAVirtualFree(void* address, SIZE_T size, DWORD freeType) {
  if (!address) return 1;
  return ::VirtualFree(address, size, freeType);
}

int AGV::_RAVirtualLock(void* address, SIZE_T size) {
  if (!address) return 0;
  return ::VirtualLock(address, size);
}

int AGV::_RAVirtualUnlock(void* address, SIZE_T size) {
  if (!address) return 1;
  return ::VirtualUnlock(address, size);
}

// ---------------------------------------------------------------------------
// Debug forms

HGLOBAL AGV::_DAGlobalAlloc(UINT flags, DWORD size, const char* file, int line) {
  HGLOBAL h = _RAGlobalAlloc(flags, size);
  if (h) AddGlobalAllocInfo(h, file, line);
  return h;
}

HGLOBAL AGV::_DAGlobalReAlloc(HGLOBAL h, DWORD size, UINT flags, const char* file, int line) {
  HGLOBAL n = _RAGlobalReAlloc(h, size, flags);
  if (n) {
    if (h) DeleteGlobalAllocInfo(h, file, line);
    AddGlobalAllocInfo(n, file, line);
  }
  return n;
}

HGLOBAL AGV::_DAGlobalFree(HGLOBAL h, const char* file, int line) {
  HGLOBAL r = _RAGlobalFree(h);
  if (h && !r) DeleteGlobalAllocInfo(h, file, line);
  return r;
}

void* AGV::_DAGlobalLock(HGLOBAL h, const char*, int) { return _RAGlobalLock(h); }
int AGV::_DAGlobalUnlock(HGLOBAL h, const char*, int) { return _RAGlobalUnlock(h); }

void* AGV::_DAGlobalAllocPtr(UINT flags, DWORD size, const char* file, int line) {
  if (size == 0) {
    ASSERT(size != 0);
    return nullptr;
  }
  HGLOBAL h = _DAGlobalAlloc(flags, size, file, line);
  if (!h) return nullptr;
  void* p = _DAGlobalLock(h, file, line);
  if (!p) _DAGlobalFree(h, file, line);
  return p;
}

// A failed re-allocation never hands back the old pointer: the old block is
// freed and a fresh, uninitialised block (or null) is returned. Callers rely
// on this and never touch the old pointer after the call.
void* AGV::_DAGlobalReAllocPtr(void* p, DWORD size, UINT flags, const char* file, int line) {
  if (!p || size == 0) {
    ASSERT(p != nullptr && size != 0);
    return nullptr;
  }
  void* result = nullptr;
  HGLOBAL h = ::GlobalHandle(p);
  if (h) {
    _DAGlobalUnlock(h, file, line);
    HGLOBAL n = _DAGlobalReAlloc(h, size, flags, file, line);
    if (!n) {
      _DAGlobalFree(h, file, line);
    } else {
      result = _DAGlobalLock(n, file, line);
      if (!result) _DAGlobalFree(n, file, line);
    }
  }
  if (!result) result = _DAGlobalAllocPtr(flags, size, file, line);
  return result;
}

int AGV::_DAGlobalFreePtr(void* p, const char* file, int line) {
  if (!p) return 1;
  HGLOBAL h = ::GlobalHandle(p);
  if (!h) return 1;
  _DAGlobalUnlock(h, file, line);
  return _DAGlobalFree(h, file, line) != nullptr;
}

void* AGV::_DAVirtualAlloc(void* address, SIZE_T size, DWORD type, DWORD protect, const char* file, int line) {
  void* p = _RAVirtualAlloc(address, size, type, protect);
  if (p) AddVirtualAllocInfo(p, file, line);
  return p;
}

// Only a release ends a region's life; a decommit keeps its record.
int AGV::_DAVirtualFree(void* address, SIZE_T size, DWORD freeType, const char* file, int line) {
  int r = _RAVirtualFree(address, size, freeType);
  if (r && address && (freeType & MEM_RELEASE)) DeleteVirtualAllocInfo(address, file, line);
  return r;
}

int AGV::_DAVirtualLock(void* address, SIZE_T size, const char*, int) { return _RAVirtualLock(address, size); }
int AGV::_DAVirtualUnlock(void* address, SIZE_T size, const char*, int) { return _RAVirtualUnlock(address, size); }

// ---------------------------------------------------------------------------
// CBufferManager and AGV objects

CBufferManager::CBufferManager() : dwLength(0), pBuffer(nullptr), bLocked(FALSE) {
  InitializeCriticalSection(&m_cs);
}

CBufferManager::~CBufferManager() {
  if (bLocked) {
    TRACE("Failed to free CBufferManager");
    ASSERT(!bLocked);
  }
  DeleteCriticalSection(&m_cs);
  if (pBuffer) AGV::_RAVirtualFree(pBuffer, 0, MEM_RELEASE);
  pBuffer = nullptr;
  dwLength = 0;
}

BOOL CBufferManager::InitBuffer(unsigned long* pLength, unsigned long size) {
  if (pLength) *pLength = 0;
  CsLock lock(&m_cs);
  if (bLocked) {
    ASSERT(!bLocked);
    return FALSE;
  }
  BOOL ok = TRUE;
  if (size != 0) {
    if (!(pBuffer && dwLength == size)) {
      if (pBuffer) AGV::_RAVirtualFree(pBuffer, 0, MEM_RELEASE);
      pBuffer = static_cast<unsigned char*>(AGV::_RAVirtualAlloc(nullptr, size, MEM_COMMIT, PAGE_READWRITE));
      ok = pBuffer != nullptr;
      dwLength = ok ? (DWORD)size : 0;
    }
  } else {
    if (pBuffer) AGV::_RAVirtualFree(pBuffer, 0, MEM_RELEASE);
    pBuffer = nullptr;
    dwLength = 0;
  }
  if (pLength) *pLength = dwLength;
  return ok;
}

unsigned char* CBufferManager::LockBuffer(unsigned long size, int bAllocIfBusy) {
  {
    CsLock lock(&m_cs);
    if (pBuffer && size <= dwLength && !bLocked) {
      bLocked = TRUE;
      return pBuffer;
    }
  }
  if (!bAllocIfBusy) return nullptr;
  return static_cast<unsigned char*>(
      AGV::_DAVirtualAlloc(nullptr, size, MEM_COMMIT, PAGE_READWRITE, __FILE__, __LINE__));
}

BOOL CBufferManager::UnlockBuffer(unsigned char* p) {
  if (!p) {
    ASSERT(p != nullptr);
    return FALSE;
  }
  {
    CsLock lock(&m_cs);
    if (p == pBuffer) {
      ASSERT(bLocked);
      bLocked = FALSE;
      return TRUE;
    }
  }
  int released = AGV::_DAVirtualFree(p, 0, MEM_RELEASE, __FILE__, __LINE__);
  ASSERT(released);
  return TRUE;
}

AGV::AGV() {
  unsigned long length = 0;
  InitBuffer(&length, kWorkBufferSize);
  ASSERT(length == GetBufferLength());
}

AGV::~AGV() {}
