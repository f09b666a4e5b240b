// Once-per-process state (switch caches, the identity record, read-once
// caches) is tested in a new process of the test binary.
#ifndef KOVANI_TEST_FRESH_PROCESS_H
#define KOVANI_TEST_FRESH_PROCESS_H

#include <functional>

namespace kovani_test {

// Runs body in a freshly executed copy of this test binary (a threadsafe
// death test) and reports its failures here. The test must touch the library
// only inside body: the child re-runs the test up to this call.
void InFreshProcess(const std::function<void()>& body);

}  // namespace kovani_test

#endif  // KOVANI_TEST_FRESH_PROCESS_H
