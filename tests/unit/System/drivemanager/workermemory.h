// SPDX-License-Identifier: MIT
//
// The program's own operator new, which can fail on any thread except the test's, and its own
// operator delete, which overwrites freed memory.
#ifndef KESTROVA_TESTS_SYSTEM_DRIVEMANAGER_WORKERMEMORY_H
#define KESTROVA_TESTS_SYSTEM_DRIVEMANAGER_WORKERMEMORY_H

namespace tests {

/// Makes the nth allocation from now fail, on threads that are not exempt; 0 for none.
void failWorkerAllocation(int nth);
/// Returns the number of allocations on such threads since the last failWorkerAllocation().
int workerAllocations();
/// Excludes the calling thread: its allocations neither count nor fail.
void exemptThisThread();

}  // namespace tests

#endif
