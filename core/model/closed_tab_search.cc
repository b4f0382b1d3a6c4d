#include "core/model/closed_tab_search.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "core/support/text.h"

namespace velto {

namespace {

// Never part of valid UTF-8, so never part of a folded term.
constexpr char kFieldEnd = '\xFF';

void appendFolded(std::string& out, std::string_view text) {
  appendFoldedForSearch(out, text);
  out.push_back(kFieldEnd);
}

}  // namespace

void ClosedTabSearch::rebuild(const std::vector<SavedTab>& tabs, const ExclusionList& exclusions) {
  // Positions in the list of the kept tabs, in library order, for now in byDate_.
  std::vector<uint32_t>& positions = byDate_;
  positions.clear();
  size_t bytes = 0;
  for (size_t i = 0; i < tabs.size(); ++i) {
    const SavedTab& tab = tabs[i];
    if (tab.state != ArchiveState::closed || exclusions.excludes(tab.url)) continue;
    positions.push_back(static_cast<uint32_t>(i));
    bytes += tab.title.size() + tab.url.size() + 9;
  }
  text_.clear();
  text_.reserve(bytes);
  ends_.clear();
  // (activity date, place k among the kept tabs), only while building.
  std::vector<std::pair<Date, uint32_t>> sorting;
  sorting.reserve(positions.size());
  for (uint32_t k = 0; k < positions.size(); ++k) {
    const SavedTab& tab = tabs[positions[k]];
    appendFolded(text_, tab.title);
    appendFolded(text_, tab.url);
    appendFolded(text_, displayName(tab.browser));
    ends_.push_back(static_cast<uint32_t>(text_.size()));
    sorting.emplace_back(tab.activityDate(), k);
  }

  // Newest first; equal dates in library order, which is the order of the places k.
  std::sort(sorting.begin(), sorting.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first > b.first : a.second < b.second;
  });
  rank_.resize(sorting.size());
  for (uint32_t r = 0; r < sorting.size(); ++r) rank_[sorting[r].second] = r;
  for (uint32_t k = 0; k < rank_.size(); ++k) sorting[rank_[k]].second = positions[k];
  for (uint32_t r = 0; r < sorting.size(); ++r) byDate_[r] = sorting[r].second;
}

ClosedTabSearch::Page ClosedTabSearch::search(const std::vector<SavedTab>& tabs,
                                              const SearchQuery& query, std::optional<Date> since,
                                              size_t limit) const {
  // Newest first, so the tabs at or after `since` are the leading ranks.
  const size_t candidates =
      since ? size_t(std::partition_point(
                         byDate_.begin(), byDate_.end(),
                         [&](uint32_t at) { return tabs[at].activityDate() >= *since; }) -
                     byDate_.begin())
            : byDate_.size();
  Page page;
  // The longest term finds the fewest candidates; the others are checked in the tab's
  // own text only. An empty term (one that was all marks) is in every text.
  const std::vector<std::string>& terms = query.terms();
  const auto longest = std::max_element(
      terms.begin(), terms.end(), [](const auto& a, const auto& b) { return a.size() < b.size(); });
  if (longest == terms.end() || longest->empty()) {
    for (size_t r = 0; r < candidates && r < limit; ++r) page.tabs.push_back(&tabs[byDate_[r]]);
    page.total = candidates;
    return page;
  }
  const std::string& lead = *longest;
  const std::string_view text(text_);
  std::vector<uint32_t> found;  // ranks
  size_t tab = 0;
  for (size_t at = text.find(lead); at != std::string_view::npos; at = text.find(lead, at)) {
    while (ends_[tab] <= at) ++tab;
    const size_t start = tab > 0 ? ends_[tab - 1] : 0;
    const std::string_view own = text.substr(start, ends_[tab] - start);
    if (rank_[tab] < candidates &&
        std::all_of(terms.begin(), terms.end(), [&](const std::string& term) {
          return &term == &lead || own.find(term) != std::string_view::npos;
        })) {
      found.push_back(rank_[tab]);
    }
    at = ends_[tab];
  }
  page.total = found.size();
  const size_t shown = std::min(found.size(), limit);
  std::partial_sort(found.begin(), found.begin() + std::ptrdiff_t(shown), found.end());
  for (size_t i = 0; i < shown; ++i) page.tabs.push_back(&tabs[byDate_[found[i]]]);
  return page;
}

}  // namespace velto
