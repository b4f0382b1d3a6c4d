#include "core/model/library_codec.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
// Compiled in rather than called: a digest of one saved tab (a few hundred bytes) is
// mostly call and set-up when it goes through the shared library. (A whole file's
// digest is ContentDigester's.)
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>

#include "core/model/library_json.h"
#include "core/support/large_memory.h"

namespace velto {

namespace {

using namespace LibraryJSON;  // od, error_code and the strict reads

// Where a value sits in the document. It lives on the stack while its value is decoded
// and is spelt out only when something is wrong, so a good document never pays for it.
// The document itself has no parent and no key; an array element has no key. `depth`
// counts the containers around the value.
struct Path {
  const Path* parent = nullptr;
  std::string_view key;
  size_t index = 0;
  size_t depth = 0;

  Path member(std::string_view name) const { return {this, name, 0, depth + 1}; }
  Path element(size_t at) const { return {this, {}, at, depth + 1}; }
  bool isDocument() const { return parent == nullptr; }

  void appendTo(std::string& out) const {
    if (isDocument()) return;
    parent->appendTo(out);
    if (!key.empty()) {
      if (!parent->isDocument()) out += '.';
      out += key;
    } else {
      out += '[';
      out += std::to_string(index);
      out += ']';
    }
  }
};

Error damaged(std::string_view subject, std::string_view complaint) {
  std::string message = "The library file is damaged: ";
  message += subject;
  message += ' ';
  message += complaint;
  message += '.';
  return decodingError(std::move(message));
}

Error parseFailure(error_code code) {
  switch (code) {
    case simdjson::EMPTY:
      return damaged("the document", "is empty");
    case simdjson::UTF8_ERROR:
      return damaged("the document", "is not valid UTF-8");
    case simdjson::CAPACITY:
    case simdjson::MEMALLOC:
      return damaged("the document", "is too large to read");
    case simdjson::DEPTH_ERROR:
      return damaged("the document", "is nested too deeply");
    default:
      return damaged("the document", "is not valid JSON");
  }
}

// Position of `key` in `keys`. In a constant expression a name that is not in the
// table does not compile, so a misspelt case label is caught by the compiler.
template <size_t N>
constexpr size_t keyIndex(const std::array<std::string_view, N>& keys, std::string_view key) {
  for (size_t i = 0; i < N; ++i) {
    if (keys[i] == key) return i;
  }
  if (std::is_constant_evaluated()) throw std::logic_error("unknown key");
  return N;
}

// keyIndex on a key as it lies in the document, for keys without escapes: the document
// is padded, so comparing past a shorter key's closing quote stays inside it.
template <size_t N>
size_t rawKeyIndex(const std::array<std::string_view, N>& keys, const char* raw) {
  for (size_t i = 0; i < N; ++i) {
    const std::string_view key = keys[i];
    if (raw[0] == key[0] && std::memcmp(raw, key.data(), key.size()) == 0 &&
        raw[key.size()] == '"') {
      return i;
    }
  }
  return N;
}

// Bit i set for every key of `keys` but those named in `optional`.
template <size_t N>
constexpr uint32_t requiredMask(const std::array<std::string_view, N>& keys,
                                std::initializer_list<std::string_view> optional) {
  static_assert(N < 32);
  uint32_t mask = (1u << N) - 1;
  for (std::string_view key : optional) mask &= ~(1u << keyIndex(keys, key));
  return mask;
}

// Each record's keys in declaration order.
constexpr std::array<std::string_view, 8> kSavedTabKeys{
    "id", "title", "url", "browser", "savedAt", "closedAt", "state", "isFavorite"};
constexpr std::array<std::string_view, 13> kLiveTabKeys{
    "id",         "browser",  "windowID", "tabID",        "index",      "title",
    "url",        "isActive", "pinState", "lastActiveAt", "observedAt", "neverSelectedSince",
    "lastVisitAt"};
constexpr std::array<std::string_view, 14> kPreferencesKeys{
    "idleHours",       "autoClose",    "tabLimit",      "automaticTabLimit", "connectedBrowsers",
    "exclusions",      "flaURL",       "websiteIcons",  "veltoActivity",     "compactActivity",
    "confirmTuckAway", "memoryAlerts", "protectedTabs", "browserHistory"};
constexpr std::array<std::string_view, 5> kClientGrantKeys{"id", "name", "tokenHash", "allowReopen",
                                                           "createdAt"};
constexpr std::array<std::string_view, 6> kLibraryKeys{"version",       "tabs",        "liveTabs",
                                                       "liveUpdatedAt", "preferences", "clients"};

using TabSource = SavedTabMemo::Source;

// The object from `start` to the next token at `end`, without the white space before it,
// which changes with the object's place (the last one has the array's indent after it).
TabSource sourceOf(const char* start, const char* end, uint32_t origin) {
  while (end > start && (end[-1] == ' ' || end[-1] == '\n' || end[-1] == '\r' || end[-1] == '\t')) {
    --end;
  }
  const size_t length = static_cast<size_t>(end - start);
  if (length > UINT32_MAX) return {};
  return {XXH3_64bits(start, length), static_cast<uint32_t>(length), origin};
}

// Whether the bytes at `start` (the document ends at `end`) are those `source` was
// taken from.
bool holds(const char* start, const char* end, const TabSource& source) {
  return source.length != 0 && static_cast<size_t>(end - start) >= source.length &&
         XXH3_64bits(start, source.length) == source.hash;
}

// The old saved tabs not yet matched, by digest, for finding where a tab that is not
// where it was went. Built only when first needed: most changes leave every tab in place.
class TabSourceIndex {
 public:
  // Over slots [from, end) of `sources`, which hold old tabs by their origins.
  void build(const std::vector<TabSource>& sources, size_t from) {
    size_t size = 16;
    while (size < 2 * (sources.size() - from)) size *= 2;
    slots_.assign(size, 0);
    for (size_t slot = from; slot < sources.size(); ++slot) {
      size_t at = sources[slot].hash & (size - 1);
      while (slots_[at] != 0) at = (at + 1) & (size - 1);
      slots_[at] = sources[slot].origin + 1;
    }
  }
  bool built() const { return !slots_.empty(); }

  // The slot, at or after `from`, that holds the old tab `source` was taken from, given
  // that old tab o is in slot o + shift; SIZE_MAX when there is none.
  size_t find(const TabSource& source, const std::vector<TabSource>& sources, size_t from,
              ptrdiff_t shift) const {
    const size_t mask = slots_.size() - 1;
    for (size_t at = source.hash & mask; slots_[at] != 0; at = (at + 1) & mask) {
      const uint32_t origin = slots_[at] - 1;
      const ptrdiff_t slot = static_cast<ptrdiff_t>(origin) + shift;
      if (slot < static_cast<ptrdiff_t>(from) || slot >= static_cast<ptrdiff_t>(sources.size())) {
        continue;
      }
      const TabSource& there = sources[static_cast<size_t>(slot)];
      if (there.origin == origin && there.hash == source.hash && there.length == source.length) {
        return static_cast<size_t>(slot);
      }
    }
    return SIZE_MAX;
  }

 private:
  std::vector<uint32_t> slots_;  // origin + 1; 0 is empty
};

// Turns the document into records as it walks it, stopping at the first value that
// does not fit. Every read returns false after recording why: `error` for a value of the
// wrong form, `malformed` for JSON that did not parse. The first may be the symptom of
// the second further on, so the caller checks the whole document before reporting it.
class Reader {
 public:
  std::optional<Error> error;
  error_code malformed = simdjson::SUCCESS;
  // Set to keep the saved tabs these sources describe when their bytes are unchanged;
  // the document's bytes end at `end`. Cleared when the document has no single
  // "tabs" to describe.
  std::vector<TabSource>* sources = nullptr;
  const char* end = nullptr;

  bool read(od::value& value, const Path& at, std::string& out) {
    std::string_view text;
    if (textOf(value, text) != simdjson::SUCCESS) return fail(at, "is not a string");
    out.assign(text);
    return true;
  }

  bool read(od::value& value, const Path& at, bool& out) {
    if (value.get_bool().get(out) != simdjson::SUCCESS) return fail(at, "is not true or false");
    return true;
  }

  bool read(od::value& value, const Path& at, int64_t& out) {
    if (value.get_int64().get(out) == simdjson::SUCCESS) return true;
    // Decoders that read every number as a double accept 1.0 and 1e3 for an integer
    // field but not 1.5; files written by them must keep loading. get_number accepts and
    // types numbers as the DOM parser does, but this simdjson loses the value of one
    // with more than 19 digits (and get_double refuses 1e0000000000000000000000), so
    // the value is read from the text. A number too small for a double reads as zero
    // (from_chars leaves `real` alone), as in the DOM parser.
    const std::string_view token = value.raw_json_token();
    od::number number;
    if (value.get_number().get(number) == simdjson::SUCCESS && number.is_double()) {
      double real = 0;
      std::from_chars(token.data(), token.data() + token.size(), real);
      if (real >= -0x1p63 && real < 0x1p63 && std::trunc(real) == real) {
        out = static_cast<int64_t>(real);
        return true;
      }
    }
    return fail(at, "is not a whole number that fits in 64 bits");
  }

  bool read(od::value& value, const Path& at, Date& out) {
    std::string_view text;
    std::optional<Date> date;
    if (textOf(value, text) == simdjson::SUCCESS) date = parseISO8601(text);
    if (!date) return fail(at, "is not a date like 2026-01-31T08:15:00Z");
    out = *date;
    return true;
  }

  bool read(od::value& value, const Path& at, Uuid& out) {
    std::string_view text;
    std::optional<Uuid> uuid;
    if (textOf(value, text) == simdjson::SUCCESS) uuid = Uuid::parse(text);
    if (!uuid) return fail(at, "is not a UUID like 6F9619FF-8B86-D011-B42D-00C04FC964FF");
    out = *uuid;
    return true;
  }

  bool read(od::value& value, const Path& at, Browser& out) {
    return readEnumeration(value, at, out, browserFromRawValue,
                           "is not a browser (safari, chrome, brave or edge)");
  }

  bool read(od::value& value, const Path& at, PinState& out) {
    return readEnumeration(value, at, out, pinStateFromRawValue,
                           "is not a pin state (pinned, unpinned or unknown)");
  }

  bool read(od::value& value, const Path& at, ArchiveState& out) {
    return readEnumeration(value, at, out, archiveStateFromRawValue,
                           "is not a tab state (saved, pendingClose or closed)");
  }

  template <class T>
  bool read(od::value& value, const Path& at, std::optional<T>& out) {
    bool isNull = false;
    if (value.is_null().get(isNull) == simdjson::SUCCESS && isNull) {
      out.reset();
      return true;
    }
    return read(value, at, out.emplace());
  }

  template <class T>
  bool read(od::value& value, const Path& at, std::vector<T>& out) {
    od::array array;
    if (value.get_array().get(array) != simdjson::SUCCESS) return fail(at, "is not an array");
    // Elements already there are read over rather than destroyed: their strings keep
    // their capacity, so decoding the same library again allocates almost nothing.
    size_t count = 0;
    for (auto item : array) {
      if (const error_code code = item.error()) return broken(code);
      T& record = count < out.size() ? out[count] : out.emplace_back();
      if (!read(item.value_unsafe(), at.element(count++), record)) return false;
    }
    out.erase(out.begin() + static_cast<std::ptrdiff_t>(count), out.end());
    return true;
  }

  bool read(od::value& value, const Path& at, BrowserSet& out) {
    od::array array;
    if (value.get_array().get(array) != simdjson::SUCCESS) return fail(at, "is not an array");
    out = BrowserSet{};
    size_t index = 0;
    for (auto item : array) {
      Browser browser{};
      if (const error_code code = item.error()) return broken(code);
      if (!read(item.value_unsafe(), at.element(index++), browser)) return false;
      out.insert(browser);
    }
    return true;
  }

  bool read(od::value& value, const Path& at, SavedTab& tab) {
    static constexpr auto& k = kSavedTabKeys;
    static constexpr uint32_t kRequired = requiredMask(k, {"closedAt"});
    tab.closedAt.reset();
    return readObject(value, at, k, kRequired, [&](size_t key, od::value& v, const Path& p) {
      switch (key) {
        case keyIndex(k, "id"):
          return read(v, p, tab.id);
        case keyIndex(k, "title"):
          return read(v, p, tab.title);
        case keyIndex(k, "url"):
          return read(v, p, tab.url);
        case keyIndex(k, "browser"):
          return read(v, p, tab.browser);
        case keyIndex(k, "savedAt"):
          return read(v, p, tab.savedAt);
        case keyIndex(k, "closedAt"):
          return read(v, p, tab.closedAt);
        case keyIndex(k, "state"):
          return read(v, p, tab.state);
        case keyIndex(k, "isFavorite"):
          return read(v, p, tab.isFavorite);
      }
      return true;
    });
  }

  bool read(od::value& value, const Path& at, LiveTab& tab) {
    static constexpr auto& k = kLiveTabKeys;
    static constexpr uint32_t kRequired =
        requiredMask(k, {"tabID", "neverSelectedSince", "lastVisitAt"});
    tab.tabID.reset();
    tab.neverSelectedSince.reset();
    tab.lastVisitAt.reset();
    return readObject(value, at, k, kRequired, [&](size_t key, od::value& v, const Path& p) {
      switch (key) {
        case keyIndex(k, "id"):
          return read(v, p, tab.id);
        case keyIndex(k, "browser"):
          return read(v, p, tab.browser);
        case keyIndex(k, "windowID"):
          return read(v, p, tab.windowID);
        case keyIndex(k, "tabID"):
          return read(v, p, tab.tabID);
        case keyIndex(k, "index"):
          return read(v, p, tab.index);
        case keyIndex(k, "title"):
          return read(v, p, tab.title);
        case keyIndex(k, "url"):
          return read(v, p, tab.url);
        case keyIndex(k, "isActive"):
          return read(v, p, tab.isActive);
        case keyIndex(k, "pinState"):
          return read(v, p, tab.pinState);
        case keyIndex(k, "lastActiveAt"):
          return read(v, p, tab.lastActiveAt);
        case keyIndex(k, "observedAt"):
          return read(v, p, tab.observedAt);
        case keyIndex(k, "neverSelectedSince"):
          return read(v, p, tab.neverSelectedSince);
        case keyIndex(k, "lastVisitAt"):
          return read(v, p, tab.lastVisitAt);
      }
      return true;
    });
  }

  bool read(od::value& value, const Path& at, Preferences& prefs) {
    static constexpr auto& k = kPreferencesKeys;
    static constexpr uint32_t kRequired = requiredMask(
        k, {"tabLimit", "automaticTabLimit", "websiteIcons", "veltoActivity", "compactActivity",
            "confirmTuckAway", "memoryAlerts", "protectedTabs", "browserHistory"});
    for (auto* flag : {&prefs.automaticTabLimit, &prefs.websiteIcons, &prefs.veltoActivity,
                       &prefs.compactActivity, &prefs.confirmTuckAway, &prefs.memoryAlerts,
                       &prefs.browserHistory}) {
      flag->reset();
    }
    prefs.tabLimit.reset();
    prefs.protectedTabs.reset();
    return readObject(value, at, k, kRequired, [&](size_t key, od::value& v, const Path& p) {
      switch (key) {
        case keyIndex(k, "idleHours"):
          return read(v, p, prefs.idleHours);
        case keyIndex(k, "autoClose"):
          return read(v, p, prefs.autoClose);
        case keyIndex(k, "tabLimit"):
          return read(v, p, prefs.tabLimit);
        case keyIndex(k, "automaticTabLimit"):
          return read(v, p, prefs.automaticTabLimit);
        case keyIndex(k, "connectedBrowsers"):
          return read(v, p, prefs.connectedBrowsers);
        case keyIndex(k, "exclusions"):
          return read(v, p, prefs.exclusions);
        case keyIndex(k, "flaURL"):
          return read(v, p, prefs.flaURL);
        case keyIndex(k, "websiteIcons"):
          return read(v, p, prefs.websiteIcons);
        case keyIndex(k, "veltoActivity"):
          return read(v, p, prefs.veltoActivity);
        case keyIndex(k, "compactActivity"):
          return read(v, p, prefs.compactActivity);
        case keyIndex(k, "confirmTuckAway"):
          return read(v, p, prefs.confirmTuckAway);
        case keyIndex(k, "memoryAlerts"):
          return read(v, p, prefs.memoryAlerts);
        case keyIndex(k, "protectedTabs"):
          return read(v, p, prefs.protectedTabs);
        case keyIndex(k, "browserHistory"):
          return read(v, p, prefs.browserHistory);
      }
      return true;
    });
  }

  bool read(od::value& value, const Path& at, ClientGrant& grant) {
    static constexpr auto& k = kClientGrantKeys;
    return readObject(value, at, k, requiredMask(k, {}),
                      [&](size_t key, od::value& v, const Path& p) {
                        switch (key) {
                          case keyIndex(k, "id"):
                            return read(v, p, grant.id);
                          case keyIndex(k, "name"):
                            return read(v, p, grant.name);
                          case keyIndex(k, "tokenHash"):
                            return read(v, p, grant.tokenHash);
                          case keyIndex(k, "allowReopen"):
                            return read(v, p, grant.allowReopen);
                          case keyIndex(k, "createdAt"):
                            return read(v, p, grant.createdAt);
                        }
                        return true;
                      });
  }

  // The whole document, which must be one object and nothing after it.
  bool read(od::document& document, LibraryState& state) {
    static constexpr auto& k = kLibraryKeys;
    static constexpr uint32_t kRequired = requiredMask(k, {"liveUpdatedAt"});
    const Path at;
    od::object object;
    if (document.get_object().get(object) != simdjson::SUCCESS) {
      return fail(at, "is not a JSON object");
    }
    state.liveUpdatedAt.reset();
    const bool read =
        readMembers(object, at, k, kRequired, [&](size_t key, od::value& v, const Path& p) {
          switch (key) {
            case keyIndex(k, "version"):
              return this->read(v, p, state.version);
            case keyIndex(k, "tabs"):
              if (sources && !tabsRead) {
                tabsRead = true;
                return readSavedTabs(v, p, state.tabs, *sources);
              }
              // A repeated "tabs" is read over the first, which the sources describe no
              // longer.
              if (sources) sources->clear();
              return this->read(v, p, state.tabs);
            case keyIndex(k, "liveTabs"):
              return this->read(v, p, state.liveTabs);
            case keyIndex(k, "liveUpdatedAt"):
              return this->read(v, p, state.liveUpdatedAt);
            case keyIndex(k, "preferences"):
              return this->read(v, p, state.preferences);
            case keyIndex(k, "clients"):
              return this->read(v, p, state.clients);
          }
          return true;
        });
    if (!read) return false;
    return atEnd(document) || broken(simdjson::TRAILING_CONTENT);
  }

 private:
  static constexpr size_t kLookAheadMisses = 8;
  // Past this many, tabs out of place are decoded again where they are: cheaper than
  // moving all that follow them once more.
  static constexpr size_t kMostMoves = 32;
  bool tabsRead = false;
  SavedTab scratch;

  // The saved tabs, keeping those whose bytes are unchanged. Tabs are matched in order:
  // each element is first compared with the next old tab not yet matched (a digest of
  // that tab's length of bytes, without reading them as JSON); one that is not that tab
  // is decoded, and what follows it tells whether it changed in place, was inserted, or
  // comes after old tabs that were removed. Unchanged bytes were fully checked when they
  // were decoded, and identical bytes decode identically, so the result is what reading
  // every element would give.
  bool readSavedTabs(od::value& value, const Path& at, std::vector<SavedTab>& tabs,
                     std::vector<TabSource>& memo) {
    od::array array;
    if (value.get_array().get(array) != simdjson::SUCCESS) return fail(at, "is not an array");
    if (memo.size() != tabs.size()) memo.assign(tabs.size(), TabSource{});
    if (tabs.empty()) {
      // A first decoding: growing the lists as they fill would leave every smaller copy
      // behind, touched and unused. Counting first costs a fraction of the decoding.
      size_t count = 0;
      if (array.count_elements().get(count) == simdjson::SUCCESS) {
        tabs.reserve(count);
        memo.reserve(count);
      }
    }

    for (uint32_t i = 0; i < memo.size(); ++i) memo[i].origin = i;
    // Slots [k, size) hold the old tabs not yet matched, in their order: old tab o is in
    // slot o + shift.
    ptrdiff_t shift = 0;
    TabSourceIndex index;
    size_t misses = 0;  // in a row
    size_t moves = 0;   // insertions and removals, each moving every tab after it
    size_t k = 0;
    for (auto item : array) {
      if (const error_code code = item.error()) return broken(code);
      od::value& element = item.value_unsafe();
      const char* start = nullptr;
      if (const error_code code = element.current_location().get(start)) return broken(code);
      // Left unread, the element is skipped by the array.
      if (k < tabs.size() && holds(start, end, memo[k])) {
        ++k;
        misses = 0;
        continue;
      }
      if (!read(element, at.element(k), scratch)) return false;
      const char* after = nullptr;
      if (const error_code code = element.current_location().get(after)) return broken(code);
      const TabSource source = sourceOf(start, after, SavedTabMemo::kFresh);
      const char* next = nullptr;
      if (*after == ',') {
        next = after + 1;
        while (*next == ' ' || *next == '\n' || *next == '\r' || *next == '\t') ++next;
      }
      // Looking ahead costs two digests, wasted when the whole library changed.
      const bool lookAhead = next && misses++ < kLookAheadMisses;
      const bool changedInPlace = lookAhead && k + 1 < tabs.size() && holds(next, end, memo[k + 1]);
      const bool inserted =
          lookAhead && !changedInPlace && k < tabs.size() && holds(next, end, memo[k]);
      size_t found = SIZE_MAX;
      if (k < tabs.size() && !changedInPlace && !inserted && moves < kMostMoves) {
        if (!index.built()) index.build(memo, k);
        found = index.find(source, memo, k, shift);
      }
      if (found != SIZE_MAX) {
        // The old tabs before it were removed; the slot it is now in holds it already.
        tabs.erase(tabs.begin() + ptrdiff_t(k), tabs.begin() + ptrdiff_t(found));
        memo.erase(memo.begin() + ptrdiff_t(k), memo.begin() + ptrdiff_t(found));
        shift -= ptrdiff_t(found - k);
        ++moves;
      } else if (inserted && moves < kMostMoves) {
        tabs.insert(tabs.begin() + ptrdiff_t(k), std::move(scratch));
        memo.insert(memo.begin() + ptrdiff_t(k), source);
        ++shift;
        ++moves;
      } else if (k < tabs.size()) {
        // Changed in place (or nothing after it is known).
        std::swap(tabs[k], scratch);
        memo[k] = source;
      } else {
        tabs.push_back(std::move(scratch));
        memo.push_back(source);
      }
      ++k;
    }
    tabs.erase(tabs.begin() + ptrdiff_t(k), tabs.end());
    memo.erase(memo.begin() + ptrdiff_t(k), memo.end());
    return true;
  }

  bool fail(const Path& at, std::string_view complaint) {
    if (at.isDocument()) {
      error = damaged("the document", complaint);
    } else {
      std::string subject = "\"";
      at.appendTo(subject);
      subject += '"';
      error = damaged(subject, complaint);
    }
    return false;
  }

  bool broken(error_code code) {
    malformed = code;
    return false;
  }

  template <class T, class FromRaw>
  bool readEnumeration(od::value& value, const Path& at, T& out, FromRaw fromRaw,
                       std::string_view complaint) {
    std::string_view text;
    std::optional<T> parsed;
    if (textOf(value, text) == simdjson::SUCCESS) parsed = fromRaw(text);
    if (!parsed) return fail(at, complaint);
    out = *parsed;
    return true;
  }

  template <size_t N, class Field>
  bool readObject(od::value& value, const Path& at, const std::array<std::string_view, N>& keys,
                  uint32_t required, Field&& field) {
    od::object object;
    if (value.get_object().get(object) != simdjson::SUCCESS) return fail(at, "is not an object");
    return readMembers(object, at, keys, required, field);
  }

  // Hands each known member to `field` (with its key's position) and checks the rest;
  // afterwards reports the first required key, in declaration order, that never came.
  // A repeated key is read again, so the last one counts.
  template <size_t N, class Field>
  bool readMembers(od::object& object, const Path& at, const std::array<std::string_view, N>& keys,
                   uint32_t required, Field&& field) {
    uint32_t seen = 0;
    for (auto member : object) {
      if (const error_code code = member.error()) return broken(code);
      // Taken by reference: copying On-Demand's small iterator structs costs more here
      // than everything else a member needs.
      od::field& entry = member.value_unsafe();
      size_t key = rawKeyIndex(keys, entry.key().raw());
      if (key == N) {
        std::string_view name;
        if (const error_code code = keyOf(entry, name)) return broken(code);
        key = keyIndex(keys, name);
      }
      if (key == N) {
        if (const error_code code = checkValue(entry.value(), at.depth + 1)) return broken(code);
        continue;
      }
      if (!field(key, entry.value(), at.member(keys[key]))) return false;
      seen |= 1u << key;
    }
    if (const uint32_t missing = required & ~seen) {
      return fail(at.member(keys[std::countr_zero(missing)]), "is missing");
    }
    return true;
  }
};

// Closes a file descriptor on every path out of a read.
struct FileDescriptor {
  int fd;
  ~FileDescriptor() {
    if (fd >= 0) ::close(fd);
  }
};

Error readFailure(const std::filesystem::path& file, int error) {
  return fileError("Could not read the library file \"" + file.string() +
                   "\": " + std::generic_category().message(error) + ".");
}

}  // namespace

struct LibraryDecoder::Impl {
  od::parser parser;
  // The bytes of the last document, followed by the padding the parser reads past the
  // end. Kept between documents: a fresh buffer the size of a large library costs more
  // to fault in than to parse.
  LargeBuffer buffer;
  size_t capacity = 0;   // usable bytes, padding excluded
  size_t size = 0;       // bytes of the last document
  ContentDigest digest;  // of the last document read from a file
  // While the buffer holds the bytes of the last file read: the digest of those bytes
  // up to the end of each piece read, in order. A read of a file that begins with the
  // same bytes finds them already in place.
  std::vector<ContentDigest> heldPieces;
  // Where a piece that may already be in place is read and digested.
  std::unique_ptr<char[]> scratch;

  // Makes room for `size` bytes, keeping the first `keep` bytes already there.
  void reserve(size_t wanted, size_t keep) {
    if (buffer.data() && wanted <= capacity) return;
    // Libraries grow a little with every save, so leave room for that growth.
    const size_t grown = std::max<size_t>(wanted + wanted / 8, 64 * 1024);
    LargeBuffer larger(grown + simdjson::SIMDJSON_PADDING);
    if (keep > 0) std::memcpy(larger.data(), buffer.data(), keep);
    buffer = std::move(larger);
    capacity = grown;
  }

  Result<void> decodeInto(LibraryState& state, SavedTabMemo* memo = nullptr) {
    Result<void> decoded = decodeWith(state, memo);
    if (!decoded && memo) memo->sources.clear();
    return decoded;
  }

  Result<void> sizeParser() {
    if (size <= parser.capacity() && parser.max_depth() == kParserDepth) return {};
    // Same growth margin as the buffer, so a slowly growing file does not make the
    // parser reallocate (and fault in) its index on every request.
    const size_t grown = std::min(size + size / 8, parser.max_capacity());
    if (parser.allocate(std::max(grown, parser.capacity()), kParserDepth) != simdjson::SUCCESS) {
      return parseFailure(simdjson::MEMALLOC);
    }
    return {};
  }

  Result<void> decodeWith(LibraryState& state, SavedTabMemo* memo) {
    std::memset(buffer.data() + size, 0, simdjson::SIMDJSON_PADDING);
    if (auto sized = sizeParser(); !sized) return sized;
    od::document document;
    if (const error_code code = iterate().get(document)) return parseFailure(code);
    Reader reader;
    if (memo) {
      reader.sources = &memo->sources;
      reader.end = buffer.data() + size;
    }
    if (reader.read(document, state)) return {};
    // Malformed JSON anywhere outranks a value of the wrong form, as with a full parse.
    // The document is walked again from the start (after an error On-Demand may have
    // given up on it, so it cannot be rewound).
    if (const error_code code = iterate().get(document)) return parseFailure(code);
    if (const error_code code = checkDocument(document, buffer.data() + size)) {
      return parseFailure(code);
    }
    if (reader.error) return *std::move(reader.error);
    return parseFailure(reader.malformed);
  }

  // Makes `bytes` the document, in the kept buffer.
  void take(std::string_view bytes) {
    reserve(bytes.size(), 0);
    if (!bytes.empty()) std::memcpy(buffer.data(), bytes.data(), bytes.size());
    size = bytes.size();
    digest = {};
    heldPieces.clear();
  }

  simdjson::simdjson_result<od::document> iterate() {
    return parser.iterate(buffer.data(), size, capacity + simdjson::SIMDJSON_PADDING);
  }

  Result<LibraryState> decode() {
    LibraryState state;
    if (auto decoded = decodeInto(state); !decoded) return decoded.error();
    return state;
  }

  Result<void> readFile(const std::filesystem::path& file);
};

namespace {

// Read a piece at a time and digested right after each piece, the bytes are digested
// while still in the cache, at a fraction of the cost of a second pass over them.
constexpr size_t kPieceSize = 256 * 1024;

}  // namespace

LibraryDecoder::LibraryDecoder() : impl_(std::make_unique<Impl>()) {}
LibraryDecoder::~LibraryDecoder() = default;

Result<LibraryState> LibraryDecoder::decode(std::string_view bytes) {
  impl_->take(bytes);
  return impl_->decode();
}

Result<void> LibraryDecoder::decodeInto(std::string_view bytes, LibraryState& state,
                                        SavedTabMemo& memo) {
  impl_->take(bytes);
  return impl_->decodeInto(state, &memo);
}

Result<void> LibraryDecoder::Impl::readFile(const std::filesystem::path& file) {
  size = 0;
  digest = {};
  // What the buffer holds is known again once this read has succeeded.
  std::vector<ContentDigest> held = std::exchange(heldPieces, {});
  const FileDescriptor descriptor{::open(file.c_str(), O_RDONLY | O_CLOEXEC)};
  if (descriptor.fd < 0) return readFailure(file, errno);
  struct stat status {};
  if (::fstat(descriptor.fd, &status) != 0) return readFailure(file, errno);
  if (S_ISDIR(status.st_mode)) return readFailure(file, EISDIR);
  const auto reserveKeeping = [&](size_t wanted, size_t keep) {
    const char* before = buffer.data();
    reserve(wanted, keep);
    if (buffer.data() != before) held.clear();
  };
  // One byte beyond the expected size lets the read that finds the end fit without
  // growing; a file that grew since fstat is still read whole.
  reserveKeeping(static_cast<size_t>(std::max<off_t>(status.st_size, 0)) + 1, 0);
  // Mostly the file is the one read last time. Its pieces are then read into a small
  // scratch area that stays in the cache and compared by the digest so far; only from
  // the first piece that differs do bytes go to the buffer. Writing a large file to
  // memory that is not in the cache costs about as much again as reading it.
  if (!held.empty() && !scratch) scratch = std::make_unique<char[]>(kPieceSize);
  bool inPlace = true;  // every piece so far was found in the buffer
  std::vector<ContentDigest> pieces;
  pieces.reserve(held.size());
  ContentDigester digester;
  size_t read = 0;
  for (;;) {
    if (read == capacity) reserveKeeping(capacity + 1, read);
    inPlace = inPlace && pieces.size() < held.size();
    char* into = inPlace ? scratch.get() : buffer.data() + read;
    const ssize_t count = ::read(descriptor.fd, into, std::min(capacity - read, kPieceSize));
    if (count < 0) {
      if (errno == EINTR) continue;
      return readFailure(file, errno);
    }
    if (count == 0) break;
    digester.add(into, static_cast<size_t>(count));
    read += static_cast<size_t>(count);
    pieces.push_back(digester.digest());
    if (inPlace && pieces.back() != held[pieces.size() - 1]) {
      inPlace = false;
      std::memcpy(buffer.data() + read - count, into, static_cast<size_t>(count));
    }
  }
  size = read;
  digest = digester.digest();
  heldPieces = std::move(pieces);
  return {};
}

Result<LibraryState> LibraryDecoder::decodeFile(const std::filesystem::path& file) {
  if (auto read = impl_->readFile(file); !read) return read.error();
  return impl_->decode();
}

Result<void> LibraryDecoder::decodeFileInto(const std::filesystem::path& file,
                                            LibraryState& state) {
  if (auto read = impl_->readFile(file); !read) return read.error();
  return impl_->decodeInto(state);
}

Result<std::string_view> LibraryDecoder::readFile(const std::filesystem::path& file) {
  if (auto read = impl_->readFile(file); !read) return read.error();
  return std::string_view(impl_->buffer.data(), impl_->size);
}

Result<void> LibraryDecoder::decodeReadInto(LibraryState& state) {
  return impl_->decodeInto(state);
}

ContentDigest LibraryDecoder::lastDigest() const { return impl_->digest; }

Result<void> LibraryDecoder::sizeParserForRead() { return impl_->sizeParser(); }

Result<void> LibraryDecoder::decodeReadInto(LibraryState& state, SavedTabMemo& memo) {
  return impl_->decodeInto(state, &memo);
}

Result<LibraryState> decodeLibrary(std::string_view bytes) {
  LibraryDecoder decoder;
  return decoder.decode(bytes);
}

}  // namespace velto
