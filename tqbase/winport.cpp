// winport.cpp - the Windows calls of the interface over POSIX: movable
// global blocks, page regions, critical sections, last error, rectangle
// helpers. On Windows the system provides all of these and this file is
// empty.
//
// Global blocks: a handle is a small record that lives as long as the block
// and owns the data pointer; re-allocation moves the data, never the handle.
// Two tables, under one mutex, tell valid handles from stray pointers: the
// set of live handle records, and the map from data pointer to handle (for
// GlobalHandle). No record is dereferenced before it is found in a table.
#include "tqbase/winport.h"

#ifndef _WIN32

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

namespace {

struct GlobalBlock {
  void* data;
  size_t size;
  UINT flags;
  UINT locks;
};

struct GlobalTable {
  std::mutex mutex;
  std::unordered_set<GlobalBlock*> handles;
  std::unordered_map<const void*, GlobalBlock*> byData;
};

// Function-local so that allocations made during other translation units'
// static initialisation find the table constructed.
GlobalTable& Globals() {
  static GlobalTable* table = new GlobalTable;  // never destroyed: blocks may outlive statics
  return *table;
}

GlobalBlock* FindBlock(GlobalTable& t, HGLOBAL h) {
  auto it = t.handles.find(static_cast<GlobalBlock*>(h));
  return it == t.handles.end() ? nullptr : *it;
}

// malloc(0) may give null; every block has at least one byte of storage.
void* RawAlloc(size_t n, bool zero) {
  if (n == 0) n = 1;
  return zero ? std::calloc(1, n) : std::malloc(n);
}

struct PageTable {
  std::mutex mutex;
  std::map<uintptr_t, size_t> regions;  // base -> mapped length
};

PageTable& Pages() {
  static PageTable* table = new PageTable;
  return *table;
}

int ProtFromPage(DWORD protect) {
  switch (protect & 0xFF) {
    case PAGE_NOACCESS: return PROT_NONE;
    case PAGE_READONLY: return PROT_READ;
    case PAGE_EXECUTE: return PROT_EXEC;
    case PAGE_EXECUTE_READ: return PROT_READ | PROT_EXEC;
    case PAGE_EXECUTE_READWRITE: return PROT_READ | PROT_WRITE | PROT_EXEC;
    case PAGE_READWRITE:
    case PAGE_WRITECOPY:
    default: return PROT_READ | PROT_WRITE;
  }
}

size_t PageRound(size_t n, bool* ok) {
  const size_t page = (size_t)sysconf(_SC_PAGESIZE);
  if (n > SIZE_MAX - (page - 1)) { *ok = false; return 0; }
  *ok = true;
  return (n + page - 1) / page * page;
}

}  // namespace

HGLOBAL GlobalAlloc(UINT uFlags, SIZE_T dwBytes) {
  GlobalTable& t = Globals();
  GlobalBlock* b = new (std::nothrow) GlobalBlock{nullptr, dwBytes, uFlags & ~(UINT)GMEM_ZEROINIT, 0};
  if (!b) { errno = ERROR_NOT_ENOUGH_MEMORY; return nullptr; }
  b->data = RawAlloc(dwBytes, (uFlags & GMEM_ZEROINIT) != 0);
  if (!b->data) { delete b; errno = ERROR_NOT_ENOUGH_MEMORY; return nullptr; }
  try {
    std::lock_guard<std::mutex> lock(t.mutex);
    t.handles.insert(b);
    t.byData.emplace(b->data, b);
  } catch (...) {
    std::lock_guard<std::mutex> lock(t.mutex);
    t.handles.erase(b);
    t.byData.erase(b->data);
    std::free(b->data);
    delete b;
    errno = ERROR_NOT_ENOUGH_MEMORY;
    return nullptr;
  }
  return b;
}

HGLOBAL GlobalReAlloc(HGLOBAL hMem, SIZE_T dwBytes, UINT uFlags) {
  GlobalTable& t = Globals();
  std::lock_guard<std::mutex> lock(t.mutex);
  GlobalBlock* b = FindBlock(t, hMem);
  if (!b) { errno = ERROR_INVALID_HANDLE; return nullptr; }
  if (uFlags & GMEM_MODIFY) {  // attributes only
    b->flags = (b->flags & ~(UINT)(GMEM_MOVEABLE | GMEM_DISCARDABLE)) |
               (uFlags & (GMEM_MOVEABLE | GMEM_DISCARDABLE));
    return b;
  }
  void* p = std::realloc(b->data, dwBytes ? dwBytes : 1);
  if (!p) { errno = ERROR_NOT_ENOUGH_MEMORY; return nullptr; }
  if ((uFlags & GMEM_ZEROINIT) && dwBytes > b->size)
    std::memset(static_cast<char*>(p) + b->size, 0, dwBytes - b->size);
  if (p != b->data) {
    t.byData.erase(b->data);
    try {
      t.byData.emplace(p, b);
    } catch (...) {
      // The block moved but cannot be found by pointer any more; keep the
      // handle valid (GlobalLock still works) and report the failure.
      b->data = p;
      b->size = dwBytes;
      errno = ERROR_NOT_ENOUGH_MEMORY;
      return b;
    }
  }
  b->data = p;
  b->size = dwBytes;
  return b;
}

HGLOBAL GlobalFree(HGLOBAL hMem) {
  if (!hMem) return nullptr;
  GlobalTable& t = Globals();
  GlobalBlock* b;
  {
    std::lock_guard<std::mutex> lock(t.mutex);
    b = FindBlock(t, hMem);
    if (!b) { errno = ERROR_INVALID_HANDLE; return hMem; }
    t.handles.erase(b);
    t.byData.erase(b->data);
  }
  std::free(b->data);
  delete b;
  return nullptr;
}

LPVOID GlobalLock(HGLOBAL hMem) {
  GlobalTable& t = Globals();
  std::lock_guard<std::mutex> lock(t.mutex);
  GlobalBlock* b = FindBlock(t, hMem);
  if (!b) { errno = ERROR_INVALID_HANDLE; return nullptr; }
  if (b->locks < GMEM_LOCKCOUNT) ++b->locks;
  return b->data;
}

BOOL GlobalUnlock(HGLOBAL hMem) {
  GlobalTable& t = Globals();
  std::lock_guard<std::mutex> lock(t.mutex);
  GlobalBlock* b = FindBlock(t, hMem);
  if (!b) { errno = ERROR_INVALID_HANDLE; return FALSE; }
  if (b->locks == 0) { errno = ERROR_NOT_LOCKED; return FALSE; }
  if (--b->locks > 0) return TRUE;
  errno = NO_ERROR;
  return FALSE;
}

HGLOBAL GlobalHandle(LPCVOID pMem) {
  GlobalTable& t = Globals();
  std::lock_guard<std::mutex> lock(t.mutex);
  auto it = t.byData.find(pMem);
  if (it == t.byData.end()) { errno = ERROR_INVALID_HANDLE; return nullptr; }
  return it->second;
}

SIZE_T GlobalSize(HGLOBAL hMem) {
  GlobalTable& t = Globals();
  std::lock_guard<std::mutex> lock(t.mutex);
  GlobalBlock* b = FindBlock(t, hMem);
  return b ? b->size : 0;
}

UINT GlobalFlags(HGLOBAL hMem) {
  GlobalTable& t = Globals();
  std::lock_guard<std::mutex> lock(t.mutex);
  GlobalBlock* b = FindBlock(t, hMem);
  if (!b) return GMEM_INVALID_HANDLE;
  return (b->flags & ~(UINT)GMEM_LOCKCOUNT & ~(UINT)GMEM_MOVEABLE & ~(UINT)GMEM_ZEROINIT) | b->locks;
}

LPVOID VirtualAlloc(LPVOID lpAddress, SIZE_T dwSize, DWORD flAllocationType, DWORD flProtect) {
  if (dwSize == 0 || !(flAllocationType & (MEM_COMMIT | MEM_RESERVE))) {
    errno = ERROR_INVALID_PARAMETER;
    return nullptr;
  }
  bool ok;
  size_t len = PageRound(dwSize, &ok);
  if (!ok) { errno = ERROR_NOT_ENOUGH_MEMORY; return nullptr; }
  PageTable& t = Pages();
  std::lock_guard<std::mutex> lock(t.mutex);
  if (lpAddress) {
    // Commit inside a region reserved earlier: change its protection.
    uintptr_t a = reinterpret_cast<uintptr_t>(lpAddress);
    auto it = t.regions.upper_bound(a);
    if (it != t.regions.begin()) {
      --it;
      if (a >= it->first && a - it->first < it->second && len <= it->second - (a - it->first)) {
        uintptr_t page = a & ~(uintptr_t)(sysconf(_SC_PAGESIZE) - 1);
        if (mprotect(reinterpret_cast<void*>(page), len, ProtFromPage(flProtect)) != 0) return nullptr;
        return reinterpret_cast<void*>(page);
      }
    }
  }
  int prot = (flAllocationType & MEM_COMMIT) ? ProtFromPage(flProtect) : PROT_NONE;
  void* p = mmap(lpAddress, len, prot, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) { errno = ERROR_NOT_ENOUGH_MEMORY; return nullptr; }
  if (lpAddress && p != lpAddress) {  // Windows gives the address asked for, or nothing
    munmap(p, len);
    errno = ERROR_INVALID_PARAMETER;
    return nullptr;
  }
  try {
    t.regions[reinterpret_cast<uintptr_t>(p)] = len;
  } catch (...) {
    munmap(p, len);
    errno = ERROR_NOT_ENOUGH_MEMORY;
    return nullptr;
  }
  return p;
}

BOOL VirtualFree(LPVOID lpAddress, SIZE_T dwSize, DWORD dwFreeType) {
  PageTable& t = Pages();
  std::lock_guard<std::mutex> lock(t.mutex);
  uintptr_t a = reinterpret_cast<uintptr_t>(lpAddress);
  if (dwFreeType & MEM_RELEASE) {
    auto it = t.regions.find(a);
    if (dwSize != 0 || it == t.regions.end()) { errno = ERROR_INVALID_PARAMETER; return FALSE; }
    munmap(lpAddress, it->second);
    t.regions.erase(it);
    return TRUE;
  }
  if (dwFreeType & MEM_DECOMMIT) {
    auto it = t.regions.upper_bound(a);
    if (it == t.regions.begin()) { errno = ERROR_INVALID_PARAMETER; return FALSE; }
    --it;
    size_t off = a - it->first;
    if (a < it->first || off >= it->second) { errno = ERROR_INVALID_PARAMETER; return FALSE; }
    size_t len = dwSize ? dwSize : it->second - off;
    if (len > it->second - off) { errno = ERROR_INVALID_PARAMETER; return FALSE; }
    madvise(lpAddress, len, MADV_DONTNEED);
    mprotect(lpAddress, len, PROT_NONE);
    return TRUE;
  }
  errno = ERROR_INVALID_PARAMETER;
  return FALSE;
}

BOOL VirtualLock(LPVOID lpAddress, SIZE_T dwSize) {
  if (mlock(lpAddress, dwSize) != 0) return FALSE;
  return TRUE;
}

BOOL VirtualUnlock(LPVOID lpAddress, SIZE_T dwSize) {
  if (munlock(lpAddress, dwSize) != 0) return FALSE;
  return TRUE;
}

DWORD GetLastError(void) { return (DWORD)errno; }
void SetLastError(DWORD dwErrCode) { errno = (int)dwErrCode; }

void InitializeCriticalSection(LPCRITICAL_SECTION cs) { cs->impl = new std::recursive_mutex; }
void DeleteCriticalSection(LPCRITICAL_SECTION cs) {
  delete static_cast<std::recursive_mutex*>(cs->impl);
  cs->impl = nullptr;
}
void EnterCriticalSection(LPCRITICAL_SECTION cs) { static_cast<std::recursive_mutex*>(cs->impl)->lock(); }
void LeaveCriticalSection(LPCRITICAL_SECTION cs) { static_cast<std::recursive_mutex*>(cs->impl)->unlock(); }

BOOL SetRect(LPRECT r, int xLeft, int yTop, int xRight, int yBottom) {
  if (!r) return FALSE;
  r->left = xLeft;
  r->top = yTop;
  r->right = xRight;
  r->bottom = yBottom;
  return TRUE;
}

BOOL SetRectEmpty(LPRECT r) { return SetRect(r, 0, 0, 0, 0); }

BOOL CopyRect(LPRECT dst, const RECT* src) {
  if (!dst || !src) return FALSE;
  *dst = *src;
  return TRUE;
}

BOOL IsRectEmpty(const RECT* r) {
  return !r || r->right <= r->left || r->bottom <= r->top;
}

BOOL PtInRect(const RECT* r, POINT pt) {
  return r && pt.x >= r->left && pt.x < r->right && pt.y >= r->top && pt.y < r->bottom;
}

BOOL OffsetRect(LPRECT r, int dx, int dy) {
  if (!r) return FALSE;
  r->left += dx;
  r->right += dx;
  r->top += dy;
  r->bottom += dy;
  return TRUE;
}

BOOL InflateRect(LPRECT r, int dx, int dy) {
  if (!r) return FALSE;
  r->left -= dx;
  r->right += dx;
  r->top -= dy;
  r->bottom += dy;
  return TRUE;
}

// The intersection; an empty intersection sets dst to (0,0,0,0) and gives
// FALSE. dst may be one of the sources.
BOOL IntersectRect(LPRECT dst, const RECT* a, const RECT* b) {
  if (!dst || !a || !b) return FALSE;
  RECT r;
  r.left = a->left > b->left ? a->left : b->left;
  r.top = a->top > b->top ? a->top : b->top;
  r.right = a->right < b->right ? a->right : b->right;
  r.bottom = a->bottom < b->bottom ? a->bottom : b->bottom;
  if (IsRectEmpty(a) || IsRectEmpty(b) || r.left >= r.right || r.top >= r.bottom) {
    SetRectEmpty(dst);
    return FALSE;
  }
  *dst = r;
  return TRUE;
}

// The smallest rectangle holding both; empty sources are ignored. Both
// empty: dst is set empty and FALSE returned.
BOOL UnionRect(LPRECT dst, const RECT* a, const RECT* b) {
  if (!dst || !a || !b) return FALSE;
  bool ea = IsRectEmpty(a), eb = IsRectEmpty(b);
  if (ea && eb) { SetRectEmpty(dst); return FALSE; }
  if (ea) { *dst = *b; return TRUE; }
  if (eb) { *dst = *a; return TRUE; }
  RECT r;
  r.left = a->left < b->left ? a->left : b->left;
  r.top = a->top < b->top ? a->top : b->top;
  r.right = a->right > b->right ? a->right : b->right;
  r.bottom = a->bottom > b->bottom ? a->bottom : b->bottom;
  *dst = r;
  return TRUE;
}

BOOL EqualRect(const RECT* a, const RECT* b) {
  return a && b && a->left == b->left && a->top == b->top && a->right == b->right && a->bottom == b->bottom;
}

#endif  // !_WIN32
