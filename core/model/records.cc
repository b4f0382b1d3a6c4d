#include "core/model/records.h"

#include "core/model/search_query.h"
#include "core/support/url.h"

namespace velto {

namespace {

constexpr std::string_view kNoHost = "Website";

std::optional<std::string> hostOf(const std::string& url) {
  const auto parsed = Url::parse(url);
  if (!parsed || !parsed->hasHost) return std::nullopt;
  return parsed->host;
}

}  // namespace

std::string LiveTab::domain() const { return hostOf(url).value_or(std::string(kNoHost)); }

std::string SavedTab::domain() const {
  std::string host = hostOf(url).value_or(std::string(kNoHost));
  if (host.starts_with("www.")) host.erase(0, 4);
  return host;
}

Date SavedTab::activityDate() const {
  if (state == ArchiveState::closed && closedAt) return *closedAt;
  return savedAt;
}

bool SavedTab::matches(std::string_view query) const { return SearchQuery(query).matches(*this); }

}  // namespace velto
