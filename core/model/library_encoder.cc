#include <nlohmann/json.hpp>

#include "core/model/library_codec.h"

namespace velto {

namespace {

using Json = nlohmann::json;

Json encoded(const SavedTab& tab) {
  Json out = Json::object();
  out["id"] = tab.id.text();
  out["title"] = tab.title;
  out["url"] = tab.url;
  out["browser"] = rawValue(tab.browser);
  out["savedAt"] = formatISO8601(tab.savedAt);
  if (tab.closedAt) out["closedAt"] = formatISO8601(*tab.closedAt);
  out["state"] = rawValue(tab.state);
  out["isFavorite"] = tab.isFavorite;
  return out;
}

Json encoded(const LiveTab& tab) {
  Json out = Json::object();
  out["id"] = tab.id;
  out["browser"] = rawValue(tab.browser);
  out["windowID"] = tab.windowID;
  if (tab.tabID) out["tabID"] = *tab.tabID;
  out["index"] = tab.index;
  out["title"] = tab.title;
  out["url"] = tab.url;
  out["isActive"] = tab.isActive;
  out["pinState"] = rawValue(tab.pinState);
  out["lastActiveAt"] = formatISO8601(tab.lastActiveAt);
  out["observedAt"] = formatISO8601(tab.observedAt);
  if (tab.neverSelectedSince) out["neverSelectedSince"] = formatISO8601(*tab.neverSelectedSince);
  if (tab.lastVisitAt) out["lastVisitAt"] = formatISO8601(*tab.lastVisitAt);
  return out;
}

template <class T>
void encodeOptional(Json& out, const char* key, const std::optional<T>& value) {
  if (value) out[key] = *value;
}

Json encoded(const Preferences& prefs) {
  Json out = Json::object();
  out["idleHours"] = prefs.idleHours;
  out["autoClose"] = prefs.autoClose;
  encodeOptional(out, "tabLimit", prefs.tabLimit);
  encodeOptional(out, "automaticTabLimit", prefs.automaticTabLimit);
  Json browsers = Json::array();
  for (Browser browser : kAllBrowsers) {
    if (prefs.connectedBrowsers.contains(browser)) browsers.push_back(rawValue(browser));
  }
  out["connectedBrowsers"] = std::move(browsers);
  out["exclusions"] = prefs.exclusions;
  out["flaURL"] = prefs.flaURL;
  encodeOptional(out, "websiteIcons", prefs.websiteIcons);
  encodeOptional(out, "veltoActivity", prefs.veltoActivity);
  encodeOptional(out, "compactActivity", prefs.compactActivity);
  encodeOptional(out, "confirmTuckAway", prefs.confirmTuckAway);
  encodeOptional(out, "memoryAlerts", prefs.memoryAlerts);
  encodeOptional(out, "protectedTabs", prefs.protectedTabs);
  encodeOptional(out, "browserHistory", prefs.browserHistory);
  return out;
}

Json encoded(const ClientGrant& grant) {
  Json out = Json::object();
  out["id"] = grant.id.text();
  out["name"] = grant.name;
  out["tokenHash"] = grant.tokenHash;
  out["allowReopen"] = grant.allowReopen;
  out["createdAt"] = formatISO8601(grant.createdAt);
  return out;
}

template <class T>
Json encodedList(const std::vector<T>& items) {
  Json out = Json::array();
  out.get_ref<Json::array_t&>().reserve(items.size());
  for (const T& item : items) out.push_back(encoded(item));
  return out;
}

bool writable(const std::optional<Date>& date) { return !date || isWritableDate(*date); }

std::string keyPath(const char* list, size_t index, const char* key) {
  return std::string(list) + "[" + std::to_string(index) + "]." + key;
}

// The key path of the first date the file form cannot hold, or absent.
std::optional<std::string> firstUnwritableDate(const LibraryState& state) {
  for (size_t i = 0; i < state.tabs.size(); ++i) {
    const SavedTab& tab = state.tabs[i];
    if (!writable(tab.savedAt)) return keyPath("tabs", i, "savedAt");
    if (!writable(tab.closedAt)) return keyPath("tabs", i, "closedAt");
  }
  for (size_t i = 0; i < state.liveTabs.size(); ++i) {
    const LiveTab& tab = state.liveTabs[i];
    if (!writable(tab.lastActiveAt)) return keyPath("liveTabs", i, "lastActiveAt");
    if (!writable(tab.observedAt)) return keyPath("liveTabs", i, "observedAt");
    if (!writable(tab.neverSelectedSince)) return keyPath("liveTabs", i, "neverSelectedSince");
    if (!writable(tab.lastVisitAt)) return keyPath("liveTabs", i, "lastVisitAt");
  }
  if (!writable(state.liveUpdatedAt)) return "liveUpdatedAt";
  for (size_t i = 0; i < state.clients.size(); ++i) {
    if (!writable(state.clients[i].createdAt)) return keyPath("clients", i, "createdAt");
  }
  return std::nullopt;
}

}  // namespace

Result<std::string> encodeLibraryFile(const LibraryState& state) {
  if (const auto path = firstUnwritableDate(state)) {
    return platformError("The library could not be saved: \"" + *path +
                         "\" is a date outside the years 1 to 9999, which the file cannot hold.");
  }
  return encodeLibrary(state);
}

std::string encodeLibrary(const LibraryState& state) {
  Json root = Json::object();
  root["version"] = state.version;
  root["tabs"] = encodedList(state.tabs);
  root["liveTabs"] = encodedList(state.liveTabs);
  if (state.liveUpdatedAt) root["liveUpdatedAt"] = formatISO8601(*state.liveUpdatedAt);
  root["preferences"] = encoded(state.preferences);
  root["clients"] = encodedList(state.clients);
  // nlohmann keeps object keys in a std::map, so they come out sorted, and it never
  // escapes "/".
  return root.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace velto
