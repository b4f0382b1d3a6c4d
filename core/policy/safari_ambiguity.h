#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <unordered_map>

#include "core/model/records.h"

namespace velto {

// Finds the Safari tabs that cannot be told apart. A Safari tab has no stable id, so the
// close script finds it by window and position and refuses unless exactly one tab of the
// window shows the recorded URL; two tabs sharing a window and a URL can therefore never
// be closed, and the suggestions must not propose them.
//
// The tracker keeps views into the tabs it is given: they must outlive it.
class SafariAmbiguity {
 public:
  // Counts `tab` when it is a Safari tab; other browsers are ignored.
  void add(const LiveTab& tab);
  // True for a Safari tab whose window and URL were added two or more times; always
  // false for other browsers.
  bool isAmbiguous(const LiveTab& tab) const;

 private:
  struct Key {
    int64_t windowID;
    std::string_view url;
    bool operator==(const Key&) const = default;
  };
  struct KeyHash {
    size_t operator()(const Key& key) const {
      return std::hash<std::string_view>{}(key.url) ^ std::hash<int64_t>{}(key.windowID) * 31;
    }
  };
  std::unordered_map<Key, int, KeyHash> counts_;
};

}  // namespace velto
