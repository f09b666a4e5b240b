// What threads of a log are in the middle of, by pid and tid. A state lives
// only while its thread is in the middle of something, and at most kMax
// live at once: past that the oldest is dropped and counted, so a log of
// many threads costs bounded memory.

#ifndef KOVANI_TOOLS_LOG_THREAD_STATES_H
#define KOVANI_TOOLS_LOG_THREAD_STATES_H

#include <stddef.h>
#include <stdint.h>

#include <deque>
#include <unordered_map>

namespace kovani_tool {

constexpr size_t kThreadStatesMax = 65536;

template <typename State>
class ThreadStates {
 public:
  static constexpr size_t kMax = kThreadStatesMax;

  // Null when the thread has no state.
  State* Find(uint64_t thread) {
    const auto found = states_.find(thread);
    return found == states_.end() ? nullptr : &found->second.state;
  }
  // The thread's state, made if it has none.
  State* Get(uint64_t thread) {
    const auto [at, made] = states_.try_emplace(thread);
    if (made) {
      at->second.made = made_++;
      order_.push_back({thread, at->second.made});
      DropOldest();
    }
    return &at->second.state;
  }
  void Drop(uint64_t thread) { states_.erase(thread); }
  uint64_t dropped() const { return dropped_; }

 private:
  struct Entry {
    State state;
    uint64_t made = 0;
  };
  struct Made {
    uint64_t thread;
    uint64_t made;
  };

  bool Live(const Made& m) const {
    const auto found = states_.find(m.thread);
    return found != states_.end() && found->second.made == m.made;
  }

  // order_ holds stale entries of dropped states; it is swept when it
  // grows past twice the live ones.
  void DropOldest() {
    while (states_.size() > kMax) {
      const Made oldest = order_.front();
      order_.pop_front();
      if (Live(oldest)) {
        states_.erase(oldest.thread);
        ++dropped_;
      }
    }
    if (order_.size() <= 2 * states_.size() + 64) return;
    std::deque<Made> live;
    for (const Made& m : order_) {
      if (Live(m)) live.push_back(m);
    }
    order_.swap(live);
  }

  std::unordered_map<uint64_t, Entry> states_;
  std::deque<Made> order_;  // oldest first
  uint64_t made_ = 0;
  uint64_t dropped_ = 0;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_THREAD_STATES_H
