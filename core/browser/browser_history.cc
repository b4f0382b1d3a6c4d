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

std::string placeholders(size_t count) {
  std::string list;
  list.reserve(count * 2);
  for (size_t i = 0; i < count; ++i) list += i ? ",?" : "?";
  return list;
}

std::string statementText(Browser browser, size_t count) {
  const std::string list = placeholders(count);
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

// Runs the statement that `text(count)` gives over every batch of `urls` that SQLite can
// bind at once, calling `row` for each row. False when `database` cannot be opened, the
// statement cannot be prepared (the database does not have this schema) or stepping
// stops on an error: a damaged page can fail a lookup after earlier rows came back, and
// a database that cannot be read whole contributes nothing rather than whatever preceded
// the damage.
template <class Text, class Row>
bool eachRow(const std::filesystem::path& database, const std::vector<std::string>& urls, Text text,
             Row row) {
  sqlite3* rawDB = nullptr;
  const int opened = sqlite3_open_v2(immutableURI(database).c_str(), &rawDB,
                                     SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
  const Database db(rawDB);  // closed on every path, also when opening failed
  if (opened != SQLITE_OK) return false;

  const auto limit =
      static_cast<size_t>(std::max(1, sqlite3_limit(db.get(), SQLITE_LIMIT_VARIABLE_NUMBER, -1)));
  for (size_t first = 0; first < urls.size(); first += limit) {
    const size_t count = std::min(limit, urls.size() - first);
    sqlite3_stmt* raw = nullptr;
    const std::string sql = text(count);
    const int prepared = sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &raw, nullptr);
    const Statement statement(raw);
    if (prepared != SQLITE_OK) return false;
    for (size_t i = 0; i < count; ++i) {
      const std::string& url = urls[first + i];
      sqlite3_bind_text64(statement.get(), static_cast<int>(i + 1), url.data(), url.size(),
                          SQLITE_TRANSIENT, SQLITE_UTF8);
    }
    int stepped;
    while ((stepped = sqlite3_step(statement.get())) == SQLITE_ROW) row(statement.get());
    if (stepped != SQLITE_DONE) return false;
  }
  return true;
}

std::optional<std::string> textColumn(sqlite3_stmt* statement, int column) {
  const auto* text = sqlite3_column_text(statement, column);
  if (text == nullptr) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(text),
                     static_cast<size_t>(sqlite3_column_bytes(statement, column)));
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
  Visits visits;
  const bool read = eachRow(
      database, urls, [browser](size_t count) { return statementText(browser, count); },
      [&](sqlite3_stmt* statement) {
        auto url = textColumn(statement, 0);
        const auto date = visitDate(browser, sqlite3_column_double(statement, 1));
        if (url && date) visits[std::move(*url)] = *date;
      });
  return read ? visits : Visits{};
}

Titles titles(const std::filesystem::path& database, const std::vector<std::string>& urls) {
  if (urls.empty()) return {};
  Titles found;
  const bool read = eachRow(
      database, urls,
      [](size_t count) {
        // Ordered so that the row of the latest visit, written last, wins.
        return "SELECT url, title FROM urls WHERE title != '' AND url IN (" + placeholders(count) +
               ") ORDER BY last_visit_time";
      },
      [&](sqlite3_stmt* statement) {
        auto url = textColumn(statement, 0);
        auto title = textColumn(statement, 1);
        if (url && title) found[std::move(*url)] = std::move(*title);
      });
  return read ? found : Titles{};
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
