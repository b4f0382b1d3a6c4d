#include "core/policy/safari_ambiguity.h"

namespace velto {

void SafariAmbiguity::add(const LiveTab& tab) {
  if (tab.browser == Browser::safari) ++counts_[Key{tab.windowID, tab.url}];
}

bool SafariAmbiguity::isAmbiguous(const LiveTab& tab) const {
  if (tab.browser != Browser::safari) return false;
  const auto found = counts_.find(Key{tab.windowID, tab.url});
  return found != counts_.end() && found->second >= 2;
}

}  // namespace velto
