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
  if (TakeTwin(&copies_[line.console ? 0 : 1], signature)) return true;
  Wait(&copies_[line.console ? 1 : 0], signature);
  return false;
}

// The first line of signature that may still pair, used up.
bool TwinMatcher::TakeTwin(Copy* copy, uint64_t signature) {
  const auto found = copy->waiting.find(signature);
  if (found == copy->waiting.end()) return false;
  uint64_t number = found->second.head;
  while (number != kNone && number < copy->paired_up_to) {
    number = copy->lines[number - copy->first].next_alike;
  }
  if (number == kNone) {
    copy->waiting.erase(found);
    return false;
  }
  copy->paired_up_to = number + 1;
  found->second.head = copy->lines[number - copy->first].next_alike;
  if (found->second.head == kNone) copy->waiting.erase(found);
  return true;
}

void TwinMatcher::Wait(Copy* copy, uint64_t signature) {
  const uint64_t number = copy->next++;
  copy->lines.push_back({signature, kNone});
  const auto [queue, made] = copy->waiting.try_emplace(signature, Copy::Queue{number, number});
  if (!made) {
    copy->lines[queue->second.tail - copy->first].next_alike = number;
    queue->second.tail = number;
  }
  if (copy->lines.size() <= kWaitingMax) return;
  const Copy::Line oldest = copy->lines.front();
  const auto found = copy->waiting.find(oldest.signature);
  if (found != copy->waiting.end() && found->second.head == copy->first) {
    found->second.head = oldest.next_alike;
    if (oldest.next_alike == kNone) copy->waiting.erase(found);
  }
  copy->lines.pop_front();
  ++copy->first;
}

}  // namespace kovani_tool
