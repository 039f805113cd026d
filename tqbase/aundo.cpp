// aundo.cpp - AUndo, the undo store.
//
// Invariant: m_bytes is the sum of the steps' data sizes, and after every
// operation GetCount() <= m_maxSteps and m_bytes <= m_maxBytes.
#include "tqbase/aundo.h"

#include <cstring>
#include <new>

AUndo::AUndo() : m_bytes(0), m_maxSteps(100), m_maxBytes((size_t)256 << 20) {}

AUndo::~AUndo() { Empty(); }

BOOL AUndo::Empty() {
  for (CUndoCell* cell : m_cells) delete cell;
  m_cells.RemoveAll();
  m_bytes = 0;
  return TRUE;
}

BOOL AUndo::Push(UINT type, const void* data, DWORD size) {
  if (!data && size > 0) {
    ASSERT(data != nullptr || size == 0);
    return FALSE;
  }
  if (size > m_maxBytes || size > 0x7FFFFFFFu) return FALSE;  // CArray counts in int
  CUndoCell* cell = nullptr;
  try {
    cell = new CUndoCell;
    cell->nType = type;
    cell->arData.SetSize((int)size);
    if (size) std::memcpy(cell->arData.GetData(), data, size);
    m_cells.Add(cell);
  } catch (const std::bad_alloc&) {
    delete cell;
    return FALSE;
  }
  m_bytes += size;
  Trim();
  return TRUE;
}

BOOL AUndo::Pop(UINT* type, CArray<BYTE, BYTE>& data) {
  if (m_cells.GetSize() == 0) return FALSE;
  CUndoCell* cell = m_cells[m_cells.GetUpperBound()];
  m_cells.RemoveAt(m_cells.GetUpperBound());
  m_bytes -= (size_t)cell->arData.GetSize();
  if (type) *type = cell->nType;
  data.vec().swap(cell->arData.vec());
  delete cell;
  return TRUE;
}

const CUndoCell* AUndo::Peek() const {
  return m_cells.GetSize() ? m_cells[m_cells.GetUpperBound()] : nullptr;
}

void AUndo::SetLimits(int maxSteps, size_t maxBytes) {
  if (maxSteps > 0) m_maxSteps = maxSteps;
  if (maxBytes > 0) m_maxBytes = maxBytes;
  Trim();
}

void AUndo::Trim() {
  int drop = 0;
  while (drop < m_cells.GetSize() && (m_cells.GetSize() - drop > m_maxSteps || m_bytes > m_maxBytes)) {
    m_bytes -= (size_t)m_cells[drop]->arData.GetSize();
    delete m_cells[drop];
    ++drop;
  }
  if (drop) m_cells.RemoveAt(0, drop);
}
