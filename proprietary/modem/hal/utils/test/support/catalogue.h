// The catalogue, data/catalogue.txt: call sequences of the library, each
// with the checks of its results and state and the system-log lines it must
// produce, in order, as level, function and body. The file's head describes
// its language; this runs it.
#ifndef KOVANI_TEST_CATALOGUE_H
#define KOVANI_TEST_CATALOGUE_H

#include <map>
#include <string>
#include <vector>

namespace kovani_test {

struct Sequence {
  std::string name;                // "Suite/case"
  std::vector<std::string> flags;  // "fresh": needs a new process
  std::vector<std::string> steps;  // calls, actions, checks and expected lines
};

const std::vector<Sequence>& Catalogue();
std::vector<std::string> CatalogueSuites();

// Runs every sequence of the suite against an empty property store at
// instance 0, with the console captured.
void RunCatalogueSuite(const std::string& suite);

}  // namespace kovani_test

#endif  // KOVANI_TEST_CATALOGUE_H
