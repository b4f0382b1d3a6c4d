#pragma once

#include <bit>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include "core/model/records.h"

namespace velto {

// Grouping helpers shared by the suggestion builders. They work on positions in a list
// of tab pointers, so no key is copied and no per-tab node is allocated.
namespace TabGroups {

// For each of `count` items, the position of the first item whose key is equal to its
// own (an item that is first of its kind gets its own position). `keyAt(i)` gives the
// key of item i; `hashAt(i)` its hash. Linear time: open addressing over one table.
template <class KeyAt, class HashAt>
std::vector<uint32_t> firstOfEqualKeys(size_t count, KeyAt keyAt, HashAt hashAt) {
  std::vector<uint32_t> first(count);
  if (count == 0) return first;
  const size_t mask = std::bit_ceil(count * 2) - 1;
  std::vector<uint32_t> slots(mask + 1, UINT32_MAX);  // UINT32_MAX: empty
  std::vector<size_t> hashes(count);
  for (size_t i = 0; i < count; ++i) {
    const size_t hash = hashes[i] = hashAt(i);
    for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
      const uint32_t other = slots[slot];
      if (other == UINT32_MAX) {
        slots[slot] = first[i] = static_cast<uint32_t>(i);
        break;
      }
      if (hashes[other] == hash && keyAt(other) == keyAt(i)) {
        first[i] = other;
        break;
      }
    }
  }
  return first;
}

// For each tab, whether it is a Safari tab that shares its window and URL with another
// Safari tab of `tabs`. A Safari tab has no stable id: the close script finds it by
// position and refuses unless exactly one tab of the window shows the recorded URL, so
// such tabs can never be closed and must not be proposed.
std::vector<bool> ambiguousSafariTabs(const std::vector<const LiveTab*>& tabs);

// firstOfEqualKeys by exact URL text.
std::vector<uint32_t> firstWithSameURL(const std::vector<const LiveTab*>& tabs);

}  // namespace TabGroups

}  // namespace velto
