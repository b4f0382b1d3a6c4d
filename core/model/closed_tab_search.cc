#include "core/model/closed_tab_search.h"

#include <algorithm>
#include <string_view>

#include "core/support/text.h"

namespace velto {

namespace {

// Never part of valid UTF-8, so never part of a folded term.
constexpr char kFieldEnd = '\xFF';

void appendFolded(std::string& out, std::string_view text) {
  if (isASCII(text)) {
    for (char c : text) out.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c);
  } else {
    out += foldedForSearch(text);
  }
  out.push_back(kFieldEnd);
}

}  // namespace

ClosedTabSearch::ClosedTabSearch(const std::vector<SavedTab>& tabs,
                                 const ExclusionList& exclusions) {
  for (size_t i = 0; i < tabs.size(); ++i) {
    if (tabs[i].state == ArchiveState::closed && !exclusions.excludes(tabs[i].url)) {
      order_.push_back(static_cast<uint32_t>(i));
    }
  }
  dates_.reserve(order_.size());
  for (uint32_t i : order_) dates_.push_back(tabs[i].activityDate());
  // Sorted as pairs of date and position: newest first, equal dates in library order.
  std::vector<std::pair<Date, uint32_t>> sorted(order_.size());
  for (size_t i = 0; i < order_.size(); ++i) sorted[i] = {dates_[i], order_[i]};
  std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first > b.first : a.second < b.second;
  });
  ends_.reserve(sorted.size());
  size_t bytes = 0;
  for (const auto& [date, at] : sorted) bytes += tabs[at].title.size() + tabs[at].url.size() + 9;
  text_.reserve(bytes);
  for (size_t i = 0; i < sorted.size(); ++i) {
    const SavedTab& tab = tabs[sorted[i].second];
    dates_[i] = sorted[i].first;
    order_[i] = sorted[i].second;
    appendFolded(text_, tab.title);
    appendFolded(text_, tab.url);
    appendFolded(text_, displayName(tab.browser));
    ends_.push_back(text_.size());
  }
}

ClosedTabSearch::Page ClosedTabSearch::search(const std::vector<SavedTab>& tabs,
                                              const SearchQuery& query, std::optional<Date> since,
                                              size_t limit) const {
  // Newest first, so the tabs at or after `since` are a leading run.
  const size_t candidates =
      since ? size_t(std::partition_point(dates_.begin(), dates_.end(),
                                          [&](Date date) { return date >= *since; }) -
                     dates_.begin())
            : dates_.size();
  Page page;
  const auto found = [&](size_t i) {
    if (page.tabs.size() < limit) page.tabs.push_back(&tabs[order_[i]]);
    ++page.total;
  };
  // The longest term finds the fewest candidates; the others are checked in the tab's
  // own text only. An empty term (one that was all marks) is in every text.
  const std::vector<std::string>& terms = query.terms();
  const auto longest = std::max_element(
      terms.begin(), terms.end(), [](const auto& a, const auto& b) { return a.size() < b.size(); });
  if (longest == terms.end() || longest->empty()) {
    for (size_t i = 0; i < candidates && i < limit; ++i) found(i);
    page.total = candidates;
    return page;
  }
  const std::string& lead = *longest;
  const std::string_view text(text_.data(), candidates > 0 ? ends_[candidates - 1] : 0);
  size_t tab = 0;
  for (size_t at = text.find(lead); at != std::string_view::npos; at = text.find(lead, at)) {
    while (ends_[tab] <= at) ++tab;
    const size_t start = tab > 0 ? ends_[tab - 1] : 0;
    const std::string_view own = text.substr(start, ends_[tab] - start);
    if (std::all_of(terms.begin(), terms.end(), [&](const std::string& term) {
          return &term == &lead || own.find(term) != std::string_view::npos;
        })) {
      found(tab);
    }
    at = ends_[tab];
  }
  return page;
}

}  // namespace velto
