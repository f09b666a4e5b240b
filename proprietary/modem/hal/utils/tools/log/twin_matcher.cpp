#include "log/twin_matcher.h"

#include <functional>
#include <string_view>

namespace kovani_tool {
namespace {

uint64_t Signature(const LibraryLine& line) {
  const uint64_t body = std::hash<std::string_view>()(line.body);
  return body * 0x9e3779b97f4a7c15u ^ (static_cast<uint64_t>(line.format) << 32 | line.source_line);
}

}  // namespace

bool TwinMatcher::PairsWithEarlier(const LibraryLine& line) {
  const uint64_t signature = Signature(line);
  Copy& other = copies_[line.console ? 0 : 1];
  const auto found = other.waiting.find(signature);
  if (found != other.waiting.end()) {
    std::deque<uint64_t>& numbers = found->second;
    while (!numbers.empty() && numbers.front() < other.paired_up_to) numbers.pop_front();
    if (!numbers.empty()) {
      other.paired_up_to = numbers.front() + 1;
      numbers.pop_front();
      if (numbers.empty()) other.waiting.erase(found);
      return true;
    }
    other.waiting.erase(found);
  }
  Wait(&copies_[line.console ? 1 : 0], signature);
  return false;
}

void TwinMatcher::Wait(Copy* copy, uint64_t signature) {
  copy->waiting[signature].push_back(copy->next);
  copy->order.emplace_back(signature, copy->next++);
  if (copy->order.size() <= kWaitingMax) return;
  const auto [oldest, number] = copy->order.front();
  copy->order.pop_front();
  const auto found = copy->waiting.find(oldest);
  if (found == copy->waiting.end()) return;
  if (!found->second.empty() && found->second.front() <= number) found->second.pop_front();
  if (found->second.empty()) copy->waiting.erase(found);
}

}  // namespace kovani_tool
