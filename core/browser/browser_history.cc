#include "core/browser/browser_history.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <unordered_set>

namespace velto::BrowserHistory {

namespace {

struct CloseDatabase {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

std::string statementText(Browser browser, size_t placeholders) {
  std::string list;
  list.reserve(placeholders * 2);
  for (size_t i = 0; i < placeholders; ++i) list += i ? ",?" : "?";
  if (isSafariFamily(browser)) {
    return "SELECT i.url, MAX(v.visit_time) FROM history_items i JOIN history_visits v ON "
           "v.history_item = i.id WHERE i.url IN (" +
           list + ") GROUP BY i.url";
  }
  return "SELECT url, MAX(last_visit_time) FROM urls WHERE url IN (" + list + ") GROUP BY url";
}

// Chromium counts microseconds since 1601-01-01, Safari seconds since 2001-01-01 (both
// UTC). Times a Date cannot hold are garbage and are dropped like non-positive ones.
std::optional<Date> visitDate(Browser browser, double value) {
  if (!(value > 0)) return std::nullopt;
  const double since1970 =
      isSafariFamily(browser) ? value + 978307200.0 : value / 1000000.0 - 11644473600.0;
  if (!(std::fabs(since1970) < 9.0e12)) return std::nullopt;
  return dateFromSecondsSince1970(since1970);
}

// Runs one statement over urls[first, first + count). False when it cannot be prepared
// (the database does not have this browser's schema) or stepping stops on an error: a
// damaged page can fail a lookup after earlier rows came back, and a database that
// cannot be read whole contributes nothing rather than whatever preceded the damage.
bool queryBatch(sqlite3* db, Browser browser, const std::vector<std::string>& urls, size_t first,
                size_t count, Visits& visits) {
  sqlite3_stmt* raw = nullptr;
  const std::string text = statementText(browser, count);
  const int prepared = sqlite3_prepare_v2(db, text.c_str(), -1, &raw, nullptr);
  const Statement statement(raw);
  if (prepared != SQLITE_OK) return false;
  for (size_t i = 0; i < count; ++i) {
    const std::string& url = urls[first + i];
    sqlite3_bind_text64(statement.get(), static_cast<int>(i + 1), url.data(), url.size(),
                        SQLITE_TRANSIENT, SQLITE_UTF8);
  }
  int stepped;
  while ((stepped = sqlite3_step(statement.get())) == SQLITE_ROW) {
    const auto* url = sqlite3_column_text(statement.get(), 0);
    if (url == nullptr) continue;
    const auto date = visitDate(browser, sqlite3_column_double(statement.get(), 1));
    if (!date) continue;
    visits[std::string(reinterpret_cast<const char*>(url),
                       static_cast<size_t>(sqlite3_column_bytes(statement.get(), 0)))] = *date;
  }
  return stepped == SQLITE_DONE;
}

}  // namespace

std::string immutableURI(const std::filesystem::path& database) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string path;
  for (const char c : database.string()) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
        (byte >= '0' && byte <= '9') ||
        std::string_view("/-._~!$&'()*+,;=:@").find(c) != std::string_view::npos) {
      path += c;
    } else {
      path += '%';
      path += kHex[byte >> 4];
      path += kHex[byte & 0xF];
    }
  }
  // "file://x/..." would name a host: an empty authority keeps a leading "//" in the path.
  return (path.starts_with("//") ? "file://" : "file:") + path + "?immutable=1";
}

std::vector<std::filesystem::path> databases(Browser browser, const EnvironmentLookup& env) {
  const auto where = location(browser, env);
  if (!where) return {};
  if (!where->isProfileFolder) return {where->path};
  std::vector<std::filesystem::path> found;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(where->path, error), end; !error && entry != end;
       entry.increment(error)) {
    auto candidate = entry->path() / "History";
    if (std::filesystem::exists(candidate, error)) found.push_back(std::move(candidate));
    error.clear();
  }
  std::sort(found.begin(), found.end());
  return found;
}

Visits query(const std::filesystem::path& database, Browser browser,
             const std::vector<std::string>& urls) {
  if (urls.empty()) return {};
  sqlite3* raw = nullptr;
  const int opened = sqlite3_open_v2(immutableURI(database).c_str(), &raw,
                                     SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
  const Database db(raw);  // closed on every path, also when opening failed
  if (opened != SQLITE_OK) return {};

  const auto limit =
      static_cast<size_t>(std::max(1, sqlite3_limit(db.get(), SQLITE_LIMIT_VARIABLE_NUMBER, -1)));
  Visits visits;
  for (size_t first = 0; first < urls.size(); first += limit) {
    if (!queryBatch(db.get(), browser, urls, first, std::min(limit, urls.size() - first), visits)) {
      return {};
    }
  }
  return visits;
}

Visits lastVisits(const std::vector<std::string>& urls, BrowserSet browsers,
                  const EnvironmentLookup& env) {
  std::vector<std::string> unique;
  std::unordered_set<std::string_view> seen;
  for (const std::string& url : urls) {
    if (seen.insert(url).second) unique.push_back(url);
  }

  Visits latest;
  for (Browser browser : kAllBrowsers) {
    if (!browsers.contains(browser)) continue;
    for (const auto& database : databases(browser, env)) {
      for (auto& [url, date] : query(database, browser, unique)) {
        auto [held, inserted] = latest.try_emplace(url, date);
        if (!inserted && date > held->second) held->second = date;
      }
    }
  }
  return latest;
}

}  // namespace velto::BrowserHistory
