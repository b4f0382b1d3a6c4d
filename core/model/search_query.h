#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/model/records.h"

namespace velto {

// A search query split into folded terms once, so that it can be tested against many
// tabs cheaply. A tab matches when every term occurs (case- and diacritic-insensitively)
// in its title, its URL or its browser's display name; terms never contain white space,
// so none can straddle two of those fields. No terms: everything matches.
class SearchQuery {
 public:
  explicit SearchQuery(std::string_view query);

  bool matches(std::string_view title, std::string_view url, Browser browser) const;
  bool matches(const SavedTab& tab) const { return matches(tab.title, tab.url, tab.browser); }

  // The terms, each folded as foldedForSearch does; none holds white space.
  const std::vector<std::string>& terms() const { return terms_; }

 private:
  std::vector<std::string> terms_;  // folded
};

}  // namespace velto
