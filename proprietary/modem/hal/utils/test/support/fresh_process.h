// Once-per-process state (switch caches, the identity record, read-once
// caches, the timer sequence) is tested in a new process of the test binary.
#ifndef KOVANI_TEST_FRESH_PROCESS_H
#define KOVANI_TEST_FRESH_PROCESS_H

#include <functional>
#include <string>

namespace kovani_test {

// Runs body in a newly started copy of this test binary and reports its
// failures here; key tells the bodies of one test apart. The child re-runs
// the current test up to the body with that key and skips the others, so
// outside its bodies the test must not touch the library.
void InFreshProcess(const std::string& key, const std::function<void()>& body);

// True in such a child.
bool InFreshChild();

}  // namespace kovani_test

#endif  // KOVANI_TEST_FRESH_PROCESS_H
