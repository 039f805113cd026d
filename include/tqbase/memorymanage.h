// memorymanage.h - the memory manager: AGV's global-block and page
// allocation in release (_RA) and debug (_DA) forms, its two leak
// registers and leak report, and CBufferManager's lendable work buffer.
//
// Every large block of the library goes through the A... macros below,
// which record the caller's file and line (bookkeeping on) or call the
// release forms (TQBASE_NO_MEMTRACK defined when the caller compiles).
//
// Register invariant: each live recorded block maps to one slot index;
// slots are emptied, never removed, so indices stay stable and the slot
// array's length is the high-water mark of blocks recorded at once.
#ifndef TQBASE_MEMORYMANAGE_H
#define TQBASE_MEMORYMANAGE_H

#include "tqbase/tqbasexp.h"

class CtqBaseApp;

class TQBASE_API CBufferManager {
public:
  CBufferManager();
  virtual ~CBufferManager();

  // (Re)commits the work buffer with size bytes (0 releases it); refused
  // while the buffer is lent out. *pLength receives the committed length.
  BOOL InitBuffer(unsigned long* pLength, unsigned long size);
  // Lends the work buffer when it is free and large enough; otherwise a
  // fresh region of size bytes when bAllocIfBusy, else null.
  unsigned char* LockBuffer(unsigned long size, int bAllocIfBusy);
  // Returns the work buffer, or releases a fresh region from LockBuffer.
  BOOL UnlockBuffer(unsigned char* p);
  unsigned long GetBufferLength() const { return dwLength; }

protected:
  DWORD dwLength;
  unsigned char* pBuffer;
  CRITICAL_SECTION m_cs;
  BOOL bLocked;
};

class TQBASE_API AGV : public CBufferManager {
public:
  AGV();
  ~AGV() override;

  // Release forms: the Global* block calls with the library's argument checks.
  static HGLOBAL _RAGlobalAlloc(UINT flags, DWORD size);
  static HGLOBAL _RAGlobalReAlloc(HGLOBAL h, DWORD size, UINT flags);
  static HGLOBAL _RAGlobalFree(HGLOBAL h);
  static void* _RAGlobalLock(HGLOBAL h);
  static int _RAGlobalUnlock(HGLOBAL h);
  static void* _RAGlobalAllocPtr(UINT flags, DWORD size);
  static void* _RAGlobalReAllocPtr(void* p, DWORD size, UINT flags);
  static int _RAGlobalFreePtr(void* p);
  static void* _RAVirtualAlloc(void* address, SIZE_T size, DWORD type, DWORD protect);
  static int _RAVirtualFree(void* address, SIZE_T size, DWORD freeType);
  static int _RAVirtualLock(void* address, SIZE_T size);
  static int _RAVirtualUnlock(void* address, SIZE_T size);

  // Debug forms: the release form, then the register is kept.
  static HGLOBAL _DAGlobalAlloc(UINT flags, DWORD size, const char* file, int line);
  static HGLOBAL _DAGlobalReAlloc(HGLOBAL h, DWORD size, UINT flags, const char* file, int line);
  static HGLOBAL _DAGlobalFree(HGLOBAL h, const char* file, int line);
  static void* _DAGlobalLock(HGLOBAL h, const char* file, int line);
  static int _DAGlobalUnlock(HGLOBAL h, const char* file, int line);
  static void* _DAGlobalAllocPtr(UINT flags, DWORD size, const char* file, int line);
  static void* _DAGlobalReAllocPtr(void* p, DWORD size, UINT flags, const char* file, int line);
  static int _DAGlobalFreePtr(void* p, const char* file, int line);
  static void* _DAVirtualAlloc(void* address, SIZE_T size, DWORD type, DWORD protect, const char* file, int line);
  static int _DAVirtualFree(void* address, SIZE_T size, DWORD freeType, const char* file, int line);
  static int _DAVirtualLock(void* address, SIZE_T size, const char* file, int line);
  static int _DAVirtualUnlock(void* address, SIZE_T size, const char* file, int line);

  // Inspection for hosts and tests: live recorded blocks and slot counts.
  static int GetGlobalAllocCount();
  static int GetGlobalSlotCount();
  static int GetVirtualAllocCount();
  static int GetVirtualSlotCount();
  // Slot index of a recorded identity, or -1.
  static int GetGlobalSlot(HGLOBAL h);
  static int GetVirtualSlot(const void* base);

protected:
  friend class CtqBaseApp;
  static int Init();
  static void Exit();

private:
  static void AddGlobalAllocInfo(HGLOBAL h, const char* file, int line);
  static void DeleteGlobalAllocInfo(HGLOBAL h, const char* file, int line);
  static void AddVirtualAllocInfo(void* base, const char* file, int line);
  static void DeleteVirtualAllocInfo(void* base, const char* file, int line);
};

extern TQBASE_API AGV g_AGV;

#ifndef TQBASE_NO_MEMTRACK
#define AGlobalAlloc(flags, size) AGV::_DAGlobalAlloc((flags), (size), __FILE__, __LINE__)
#define AGlobalReAlloc(h, size, flags) AGV::_DAGlobalReAlloc((h), (size), (flags), __FILE__, __LINE__)
#define AGlobalFree(h) AGV::_DAGlobalFree((h), __FILE__, __LINE__)
#define AGlobalLock(h) AGV::_DAGlobalLock((h), __FILE__, __LINE__)
#define AGlobalUnlock(h) AGV::_DAGlobalUnlock((h), __FILE__, __LINE__)
#define AGlobalAllocPtr(flags, size) AGV::_DAGlobalAllocPtr((flags), (size), __FILE__, __LINE__)
#define AGlobalReAllocPtr(p, size, flags) AGV::_DAGlobalReAllocPtr((p), (size), (flags), __FILE__, __LINE__)
#define AGlobalFreePtr(p) AGV::_DAGlobalFreePtr((p), __FILE__, __LINE__)
#define AVirtualAlloc(a, size, type, prot) AGV::_DAVirtualAlloc((a), (size), (type), (prot), __FILE__, __LINE__)
#define AVirtualFree(a, size, type) AGV::_DAVirtualFree((a), (size), (type), __FILE__, __LINE__)
#define AVirtualLock(a, size) AGV::_DAVirtualLock((a), (size), __FILE__, __LINE__)
#define AVirtualUnlock(a, size) AGV::_DAVirtualUnlock((a), (size), __FILE__, __LINE__)
#else
#define AGlobalAlloc(flags, size) AGV::_RAGlobalAlloc((flags), (size))
#define AGlobalReAlloc(h, size, flags) AGV::_RAGlobalReAlloc((h), (size), (flags))
#define AGlobalFree(h) AGV::_RAGlobalFree((h))
#define AGlobalLock(h) AGV::_RAGlobalLock((h))
#define AGlobalUnlock(h) AGV::_RAGlobalUnlock((h))
#define AGlobalAllocPtr(flags, size) AGV::_RAGlobalAllocPtr((flags), (size))
#define AGlobalReAllocPtr(p, size, flags) AGV::_RAGlobalReAllocPtr((p), (size), (flags))
#define AGlobalFreePtr(p) AGV::_RAGlobalFreePtr((p))
#define AVirtualAlloc(a, size, type, prot) AGV::_RAVirtualAlloc((a), (size), (type), (prot))
#define AVirtualFree(a, size, type) AGV::_RAVirtualFree((a), (size), (type))
#define AVirtualLock(a, size) AGV::_RAVirtualLock((a), (size))
#define AVirtualUnlock(a, size) AGV::_RAVirtualUnlock((a), (size))
#endif

#endif  // TQBASE_MEMORYMANAGE_H
