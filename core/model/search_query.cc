#include "core/model/search_query.h"

#include "core/support/text.h"

namespace velto {

SearchQuery::SearchQuery(std::string_view query) {
  for (std::string_view term : splitAtWhitespace(query)) {
    terms_.push_back(foldedForSearch(term));
  }
}

bool SearchQuery::matches(std::string_view title, std::string_view url, Browser browser) const {
  for (const std::string& term : terms_) {
    if (!containsFolded(title, term) && !containsFolded(url, term) &&
        !containsFolded(displayName(browser), term)) {
      return false;
    }
  }
  return true;
}

}  // namespace velto
