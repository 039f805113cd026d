// allocfail.h - failure injection for the library's tests: the Nth
// allocation from the moment of arming fails, or the Nth crash point kills
// the process. Internal: neither
// installed nor exported; tests that use it link the library's objects
// directly.
//
// The memory manager's block and page allocations consult it, and a test
// may route the C++ heap through it too (by replacing operator new), so
// that every allocation an operation makes can be made to fail in turn.
#ifndef TQBASE_ALLOCFAIL_H
#define TQBASE_ALLOCFAIL_H

namespace tqbase {
namespace allocfail {

// The n-th counted allocation from now fails (n >= 1); 0 disarms.
void Arm(long long n);
// Counts one allocation; true when it is the one that must fail.
bool Fails();
// True when the armed allocation came (and failed) since Arm.
bool Fired();

// Allocations made while a Pause lives on this thread are neither counted
// nor failed (the memory manager's own bookkeeping).
class Pause {
public:
  Pause();
  ~Pause();
  Pause(const Pause&) = delete;
  Pause& operator=(const Pause&) = delete;
};

// Crash points: the places where a file being replaced is in between
// states (created aside, half written, written, synced, renamed). With
// ArmCrash(n), the n-th point reached from then on kills the process at
// once (SIGKILL; TerminateProcess on Windows), as a power cut or a kill
// would, so that a test can see what the disk holds afterwards.
void ArmCrash(long long n);
void CrashPoint();

}  // namespace allocfail
}  // namespace tqbase

#endif  // TQBASE_ALLOCFAIL_H
