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

}  // namespace

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
