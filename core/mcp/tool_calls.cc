#include "core/mcp/tool_calls.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "core/model/search_query.h"
#include "core/model/velto_error.h"
#include "core/support/text.h"

namespace velto::ToolCalls {

namespace {

using nlohmann::json;

constexpr std::string_view kInvalidListArguments = "Invalid arguments";
constexpr std::string_view kUnknownBrowser = "Unknown browser";
constexpr std::string_view kInvalidSearchArguments =
    "Provide query (up to 500 characters) and an optional limit from 1 to 100.";
constexpr std::string_view kInvalidSince = "since must be an ISO 8601 timestamp.";
constexpr std::string_view kInvalidReopenArguments = "Provide the saved tab's UUID.";

constexpr std::string_view kStaleSnapshot =
    "The open-tab snapshot is stale. Open Velto and refresh your browsers.";
constexpr std::string_view kReadOnly =
    "This connection is read-only. Enable reopening for this client in Velto.";
constexpr std::string_view kTabNotFound = "Tab not found or excluded.";

constexpr int64_t kMinLimit = 1;
constexpr int64_t kMaxLimit = 100;

Error invalid(std::string_view message) { return decodingError(std::string(message)); }
Error toolError(std::string_view message) { return VeltoError::message(std::string(message)); }

bool onlyKeys(const json& arguments, std::initializer_list<std::string_view> allowed) {
  for (const auto& item : arguments.items()) {
    if (std::find(allowed.begin(), allowed.end(), item.key()) == allowed.end()) return false;
  }
  return true;
}

// The page size: kDefaultLimit when absent, absent when unacceptable. The parser keeps
// non-negative integers as unsigned; a negative one is out of range anyway.
std::optional<int64_t> limitOf(const json& arguments) {
  const auto found = arguments.find("limit");
  if (found == arguments.end()) return kDefaultLimit;
  if (found->is_number_unsigned()) {
    const uint64_t value = found->get<uint64_t>();
    if (value >= uint64_t(kMinLimit) && value <= uint64_t(kMaxLimit)) return int64_t(value);
  } else if (found->is_number_float()) {
    const double value = found->get<double>();
    if (value >= double(kMinLimit) && value <= double(kMaxLimit) && std::trunc(value) == value) {
      return int64_t(value);
    }
  }
  return std::nullopt;
}

const std::string* stringMember(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return nullptr;
  return found->get_ptr<const std::string*>();
}

json openTabObject(const LiveTab& tab) {
  return {{"id", tab.id},
          {"title", tab.title},
          {"url", tab.url},
          {"browser", rawValue(tab.browser)},
          {"isActive", tab.isActive}};
}

json savedTabObject(const SavedTab& tab) {
  return {{"id", tab.id.text()},
          {"title", tab.title},
          {"url", tab.url},
          {"browser", rawValue(tab.browser)},
          {"closedAt", formatISO8601(tab.activityDate())}};
}

}  // namespace

Result<ListTabsArguments> decodeListTabs(const json& arguments) {
  if (!onlyKeys(arguments, {"browser", "limit"})) return invalid(kInvalidListArguments);
  const auto limit = limitOf(arguments);
  if (!limit) return invalid(kInvalidListArguments);
  ListTabsArguments decoded;
  decoded.limit = *limit;
  if (arguments.contains("browser")) {
    const std::string* name = stringMember(arguments, "browser");
    decoded.browser = name ? browserFromRawValue(*name) : std::nullopt;
    if (!decoded.browser) return invalid(kUnknownBrowser);
  }
  return decoded;
}

Result<SearchClosedTabsArguments> decodeSearchClosedTabs(const json& arguments) {
  const std::string* query = stringMember(arguments, "query");
  const auto limit = limitOf(arguments);
  if (!onlyKeys(arguments, {"query", "limit", "since"}) || !query || !limit ||
      characterCount(*query) > kMaxQueryCharacters) {
    return invalid(kInvalidSearchArguments);
  }
  SearchClosedTabsArguments decoded;
  decoded.query = *query;
  decoded.limit = *limit;
  if (arguments.contains("since")) {
    const std::string* since = stringMember(arguments, "since");
    decoded.since = since ? parseISO8601(*since) : std::nullopt;
    if (!decoded.since) return invalid(kInvalidSince);
  }
  return decoded;
}

Result<ReopenTabArguments> decodeReopenTab(const json& arguments) {
  const std::string* id = stringMember(arguments, "id");
  const auto uuid = id ? Uuid::parse(*id) : std::nullopt;
  if (arguments.size() != 1 || !uuid) return invalid(kInvalidReopenArguments);
  return ReopenTabArguments{*uuid};
}

ToolResult listTabs(const ListTabsArguments& arguments, const PreparedLibrary& library, Date now) {
  const LibraryState& state = library.state;
  if (!state.liveUpdatedAt) return toolError(kStaleSnapshot);
  const double age = secondsBetween(*state.liveUpdatedAt, now);
  if (age < 0 || age >= kSnapshotFreshSeconds) return toolError(kStaleSnapshot);

  json tabs = json::array();
  int64_t total = 0;
  for (uint32_t at : library.listedLiveTabs) {
    const LiveTab& tab = state.liveTabs[at];
    if (arguments.browser && tab.browser != *arguments.browser) continue;
    if (total++ < arguments.limit) tabs.push_back(openTabObject(tab));
  }
  return json{{"tabs", std::move(tabs)},
              {"total", total},
              {"observedAt", formatISO8601(*state.liveUpdatedAt)}};
}

ToolResult searchClosedTabs(const SearchClosedTabsArguments& arguments,
                            const PreparedLibrary& library) {
  const ClosedTabSearch::Page page = library.closedTabs.search(
      library.state.tabs, SearchQuery(arguments.query), arguments.since, size_t(arguments.limit));
  json tabs = json::array();
  for (const SavedTab* tab : page.tabs) tabs.push_back(savedTabObject(*tab));
  return json{{"tabs", std::move(tabs)}, {"total", page.total}};
}

ToolResult reopenTab(const ReopenTabArguments& arguments, const PreparedLibrary& library,
                     const ClientGrant& grant, const Opener& open) {
  if (!grant.allowReopen) return toolError(kReadOnly);
  const std::vector<SavedTab>& saved = library.state.tabs;
  const auto tab = std::find_if(saved.begin(), saved.end(), [&](const SavedTab& t) {
    return t.id == arguments.id && t.state != ArchiveState::pendingClose;
  });
  if (tab == saved.end() || library.exclusions.excludes(tab->url)) return toolError(kTabNotFound);
  if (Result<void> opened = open(*tab); !opened.ok()) return opened.error();
  return json{{"opened", true}};
}

}  // namespace velto::ToolCalls
