#include "core/model/search_query.h"

#include "core/support/text.h"

namespace velto {

SearchQuery::SearchQuery(std::string_view query) {
  for (std::string_view term : splitAtWhitespace(query)) {
    terms_.push_back(foldedForSearch(term));
  }
}

bool SearchQuery::matches(std::string_view title, std::string_view url, Browser browser) const {
  if (terms_.empty()) return true;
  // Kept per thread so that a search over a whole library folds each title at most once
  // and allocates only while the buffers grow.
  thread_local FoldedHaystack fields[3];
  fields[0].reset(title);
  fields[1].reset(url);
  fields[2].reset(displayName(browser));
  for (const std::string& term : terms_) {
    if (!fields[0].contains(term) && !fields[1].contains(term) && !fields[2].contains(term)) {
      return false;
    }
  }
  return true;
}

}  // namespace velto
