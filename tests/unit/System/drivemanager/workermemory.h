// SPDX-License-Identifier: MIT
//
// The program's own operator new, which can fail on any thread but the test's, and its own operator
// delete, which overwrites what it frees.
#ifndef KESTROVA_TESTS_SYSTEM_DRIVEMANAGER_WORKERMEMORY_H
#define KESTROVA_TESTS_SYSTEM_DRIVEMANAGER_WORKERMEMORY_H

namespace tests {

/// The nth allocation from now on a thread that is not exempt fails; 0 for none.
void failWorkerAllocation(int nth);
/// Allocations on such threads since the last call of failWorkerAllocation().
int workerAllocations();
/// No allocation of the calling thread counts or fails.
void exemptThisThread();

}  // namespace tests

#endif
