// The library writes each line to the system log and to the console; a log
// may hold both copies. A line is a twin when the other copy holds an
// earlier unpaired line of the same function, source line and body, after
// the last pair: the twins come in the same order in both copies.

#ifndef KOVANI_TOOLS_LOG_TWIN_MATCHER_H
#define KOVANI_TOOLS_LOG_TWIN_MATCHER_H

#include <stddef.h>
#include <stdint.h>

#include <deque>
#include <unordered_map>

#include "log/library_line.h"

namespace kovani_tool {

class TwinMatcher {
 public:
  // Unpaired lines of each copy kept for a twin to come, the oldest given up
  // first.
  static constexpr size_t kWaitingMax = 65536;

  // True when line pairs with an earlier line of the other copy; else line
  // waits for its own twin.
  bool PairsWithEarlier(const LibraryLine& line);

 private:
  static constexpr uint64_t kNone = UINT64_MAX;

  // The lines of one copy by number, each linked to the next of its
  // signature: a queue per signature without a container each.
  struct Copy {
    struct Line {
      uint64_t signature;
      uint64_t next_alike;
    };
    struct Queue {
      uint64_t head;
      uint64_t tail;
    };
    std::unordered_map<uint64_t, Queue> waiting;  // by signature
    std::deque<Line> lines;                        // numbers first to next - 1
    uint64_t first = 0;
    uint64_t next = 0;
    uint64_t paired_up_to = 0;  // lines before this number can no longer pair
  };

  static bool TakeTwin(Copy* copy, uint64_t signature);
  static void Wait(Copy* copy, uint64_t signature);

  Copy copies_[2];  // system log, console
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_TWIN_MATCHER_H
