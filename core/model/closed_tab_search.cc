#include "core/model/closed_tab_search.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "core/support/text.h"

namespace velto {

namespace {

// Never part of valid UTF-8, so never part of a folded term.
constexpr char kFieldEnd = '\xFF';
constexpr uint32_t kNone = UINT32_MAX;

void appendFolded(std::string& out, std::string_view text) {
  appendFoldedForSearch(out, text);
  out.push_back(kFieldEnd);
}

bool isKept(const SavedTab& tab, const ExclusionList& exclusions) {
  return tab.state == ArchiveState::closed && !exclusions.excludes(tab.url);
}

// What a kept tab's text is expected to take: most text folds to its own size, and the
// browser's name with the three field ends takes about nine bytes.
size_t expectedTextSize(const SavedTab& tab) { return tab.title.size() + tab.url.size() + 9; }

}  // namespace

uint32_t ClosedTabSearch::append(const SavedTab& tab, uint32_t position) {
  appendFolded(text_, tab.title);
  appendFolded(text_, tab.url);
  appendFolded(text_, displayName(tab.browser));
  ends_.push_back(static_cast<uint32_t>(text_.size()));
  owner_.push_back(position);
  return static_cast<uint32_t>(ends_.size() - 1);
}

void ClosedTabSearch::rebuild(const std::vector<SavedTab>& tabs, const ExclusionList& exclusions) {
  std::vector<uint32_t> kept;
  size_t bytes = 0;
  for (uint32_t i = 0; i < tabs.size(); ++i) {
    if (!isKept(tabs[i], exclusions)) continue;
    kept.push_back(i);
    bytes += expectedTextSize(tabs[i]);
  }
  text_.clear();
  // Room for the library to grow a little before the text has to move.
  text_.reserve(bytes + bytes / 8);
  ends_.clear();
  owner_.clear();
  deadBytes_ = 0;
  entryOf_.assign(tabs.size(), kNone);
  for (uint32_t position : kept) entryOf_[position] = append(tabs[position], position);
  byDate_.clear();
  order(tabs, kept);
}

void ClosedTabSearch::update(const std::vector<SavedTab>& tabs, const ExclusionList& exclusions,
                             const std::vector<uint32_t>& origins) {
  // An unchanged tab keeps its entry (its bytes, so whether it is kept, are the same),
  // and its place in the date order relative to the other unchanged tabs.
  std::vector<uint32_t> entryOf(tabs.size(), kNone);
  std::vector<uint32_t> fresh;
  std::fill(owner_.begin(), owner_.end(), kNone);
  size_t freshBytes = 0;
  std::optional<uint32_t> lastOrigin;
  for (uint32_t k = 0; k < tabs.size(); ++k) {
    const uint32_t origin = origins[k];
    if (origin != kChanged) {
      if (origin >= entryOf_.size() || (lastOrigin && origin <= *lastOrigin)) {
        return rebuild(tabs, exclusions);
      }
      lastOrigin = origin;
      if (const uint32_t entry = entryOf_[origin]; entry != kNone) {
        owner_[entry] = k;
        entryOf[k] = entry;
      }
    } else if (isKept(tabs[k], exclusions)) {
      fresh.push_back(k);
      freshBytes += expectedTextSize(tabs[k]);
    }
  }
  // The unchanged tabs at their new positions, still in date order.
  size_t unchanged = 0;
  for (uint32_t position : byDate_) {
    if (const uint32_t now = owner_[entryOf_[position]]; now != kNone) byDate_[unchanged++] = now;
  }
  byDate_.resize(unchanged);
  entryOf_ = std::move(entryOf);
  deadBytes_ = 0;
  for (size_t e = 0; e < owner_.size(); ++e) {
    if (owner_[e] == kNone) deadBytes_ += ends_[e] - (e > 0 ? ends_[e - 1] : 0);
  }
  // Gone tabs' text is only skipped over by a search, until it is a quarter of all, or
  // dropping it makes room for the new.
  if (deadBytes_ > text_.size() / 4 || text_.size() + freshBytes > text_.capacity()) compact();
  for (uint32_t position : fresh) entryOf_[position] = append(tabs[position], position);
  order(tabs, fresh);
}

void ClosedTabSearch::compact() {
  size_t kept = 0;
  size_t written = 0;
  for (size_t e = 0; e < owner_.size(); ++e) {
    const size_t start = e > 0 ? ends_[e - 1] : 0;
    const size_t length = ends_[e] - start;
    if (owner_[e] == kNone) continue;
    std::memmove(text_.data() + written, text_.data() + start, length);
    written += length;
    ends_[kept] = static_cast<uint32_t>(written);
    owner_[kept] = owner_[e];
    entryOf_[owner_[kept]] = static_cast<uint32_t>(kept);
    ++kept;
  }
  text_.resize(written);
  ends_.resize(kept);
  owner_.resize(kept);
  deadBytes_ = 0;
}

void ClosedTabSearch::order(const std::vector<SavedTab>& tabs, const std::vector<uint32_t>& fresh) {
  // Newest first; equal dates in library order. Dates beside the positions: a sort that
  // reads them from the records misses the cache.
  std::vector<std::pair<Date, uint32_t>> sorting;
  sorting.reserve(fresh.size());
  for (uint32_t position : fresh) sorting.emplace_back(tabs[position].activityDate(), position);
  const auto before = [](const std::pair<Date, uint32_t>& a, const std::pair<Date, uint32_t>& b) {
    return a.first != b.first ? a.first > b.first : a.second < b.second;
  };
  std::sort(sorting.begin(), sorting.end(), before);
  // Merged into the unchanged from the back, in place.
  size_t unchanged = byDate_.size(), added = sorting.size();
  byDate_.resize(unchanged + added);
  for (size_t out = byDate_.size(); added > 0;) {
    const uint32_t last = unchanged > 0 ? byDate_[unchanged - 1] : 0;
    if (unchanged > 0 && before(sorting[added - 1], {tabs[last].activityDate(), last})) {
      byDate_[--out] = byDate_[--unchanged];
    } else {
      byDate_[--out] = sorting[--added].second;
    }
  }
  rank_.assign(owner_.size(), kNone);
  for (uint32_t r = 0; r < byDate_.size(); ++r) rank_[entryOf_[byDate_[r]]] = r;
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
  size_t entry = 0;
  for (size_t at = text.find(lead); at != std::string_view::npos; at = text.find(lead, at)) {
    while (ends_[entry] <= at) ++entry;
    const size_t start = entry > 0 ? ends_[entry - 1] : 0;
    const std::string_view own = text.substr(start, ends_[entry] - start);
    // A gone tab's rank is kNone, never a candidate.
    if (rank_[entry] < candidates &&
        std::all_of(terms.begin(), terms.end(), [&](const std::string& term) {
          return &term == &lead || own.find(term) != std::string_view::npos;
        })) {
      found.push_back(rank_[entry]);
    }
    at = ends_[entry];
  }
  page.total = found.size();
  const size_t shown = std::min(found.size(), limit);
  std::partial_sort(found.begin(), found.begin() + std::ptrdiff_t(shown), found.end());
  for (size_t i = 0; i < shown; ++i) page.tabs.push_back(&tabs[byDate_[found[i]]]);
  return page;
}

}  // namespace velto
