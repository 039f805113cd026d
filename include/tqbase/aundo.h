// aundo.h - AUndo, the undo store (g_Undo): a stack of undo steps, each a
// host-defined kind and a copy of the bytes needed to take the step back.
// The store keeps at most a given number of steps and bytes; pushing past
// either limit drops the oldest steps. One thread at a time.
#ifndef TQBASE_AUNDO_H
#define TQBASE_AUNDO_H

#include "tqbase/tqbasexp.h"

// One undo step.
class TQBASE_API CUndoCell {
public:
  CUndoCell() : nType(0) {}
  UINT nType;                    // what the step undoes; the host's codes
  CArray<BYTE, BYTE> arData;     // the bytes that restore the state before it
};

class TQBASE_API AUndo {
public:
  // Defaults: 100 steps, 256 MiB.
  AUndo();
  ~AUndo();
  AUndo(const AUndo&) = delete;
  AUndo& operator=(const AUndo&) = delete;

  // Drops every step. Returns TRUE.
  BOOL Empty();
  // A new newest step with a copy of size bytes at data. FALSE (store
  // unchanged) when data is null with size > 0, when the step alone is
  // larger than the byte limit, or when memory fails.
  BOOL Push(UINT type, const void* data, DWORD size);
  // Takes the newest step off the store into type and data. FALSE when
  // the store is empty.
  BOOL Pop(UINT* type, CArray<BYTE, BYTE>& data);
  // The newest step, left in the store; null when empty.
  const CUndoCell* Peek() const;

  int GetCount() const { return m_cells.GetSize(); }
  BOOL IsEmpty() const { return m_cells.GetSize() == 0; }
  size_t GetBytes() const { return m_bytes; }
  // New limits (a value of 0 or less keeps that limit); the oldest steps
  // beyond them are dropped at once.
  void SetLimits(int maxSteps, size_t maxBytes);

private:
  void Trim();

  CArray<CUndoCell*, CUndoCell*> m_cells;  // oldest first
  size_t m_bytes;
  int m_maxSteps;
  size_t m_maxBytes;
};

extern TQBASE_API AUndo g_Undo;

#endif  // TQBASE_AUNDO_H
