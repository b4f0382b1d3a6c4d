#include "core/model/library_codec.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>
#include <simdjson.h>
#include <stdexcept>
#include <system_error>
#include <type_traits>

namespace velto {

namespace {

namespace dom = simdjson::dom;

// Where a value sits in the document. It lives on the stack while its value is decoded
// and is spelt out only when something is wrong, so a good document never pays for it.
// The document itself has no parent and no key; an array element has no key.
struct Path {
  const Path* parent = nullptr;
  std::string_view key;
  size_t index = 0;

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
    "id",       "browser",  "windowID", "tabID",        "index",      "title",
    "url",      "isActive", "pinState", "lastActiveAt", "observedAt", "neverSelectedSince",
    "lastVisitAt"};
constexpr std::array<std::string_view, 14> kPreferencesKeys{
    "idleHours",         "autoClose",       "tabLimit",        "automaticTabLimit",
    "connectedBrowsers", "exclusions",      "flaURL",          "websiteIcons",
    "veltoActivity",     "compactActivity", "confirmTuckAway", "memoryAlerts",
    "protectedTabs",     "browserHistory"};
constexpr std::array<std::string_view, 5> kClientGrantKeys{"id", "name", "tokenHash",
                                                           "allowReopen", "createdAt"};
constexpr std::array<std::string_view, 6> kLibraryKeys{
    "version", "tabs", "liveTabs", "liveUpdatedAt", "preferences", "clients"};

// Turns the parsed document into records, stopping at the first value that does not fit.
// Every read returns false after recording the error.
class Reader {
 public:
  std::optional<Error> error;

  bool read(dom::element value, const Path& at, std::string& out) {
    std::string_view text;
    if (value.get_string().get(text) != simdjson::SUCCESS) return fail(at, "is not a string");
    out.assign(text);
    return true;
  }

  bool read(dom::element value, const Path& at, bool& out) {
    if (value.get_bool().get(out) != simdjson::SUCCESS) return fail(at, "is not true or false");
    return true;
  }

  bool read(dom::element value, const Path& at, int64_t& out) {
    switch (value.type()) {
      case dom::element_type::INT64:
        out = value.get_int64().value_unsafe();
        return true;
      case dom::element_type::DOUBLE: {
        // Decoders that read every number as a double accept 1.0 and 1e3 for an integer
        // field but not 1.5; files written by them must keep loading.
        const double number = value.get_double().value_unsafe();
        if (number >= -0x1p63 && number < 0x1p63 && std::trunc(number) == number) {
          out = static_cast<int64_t>(number);
          return true;
        }
        break;
      }
      default:
        break;
    }
    return fail(at, "is not a whole number that fits in 64 bits");
  }

  bool read(dom::element value, const Path& at, Date& out) {
    std::string_view text;
    std::optional<Date> date;
    if (value.get_string().get(text) == simdjson::SUCCESS) date = parseISO8601(text);
    if (!date) return fail(at, "is not a date like 2026-01-31T08:15:00Z");
    out = *date;
    return true;
  }

  bool read(dom::element value, const Path& at, Uuid& out) {
    std::string_view text;
    std::optional<Uuid> uuid;
    if (value.get_string().get(text) == simdjson::SUCCESS) uuid = Uuid::parse(text);
    if (!uuid) return fail(at, "is not a UUID like 6F9619FF-8B86-D011-B42D-00C04FC964FF");
    out = *uuid;
    return true;
  }

  bool read(dom::element value, const Path& at, Browser& out) {
    return readEnumeration(value, at, out, browserFromRawValue,
                           "is not a browser (safari, chrome, brave or edge)");
  }

  bool read(dom::element value, const Path& at, PinState& out) {
    return readEnumeration(value, at, out, pinStateFromRawValue,
                           "is not a pin state (pinned, unpinned or unknown)");
  }

  bool read(dom::element value, const Path& at, ArchiveState& out) {
    return readEnumeration(value, at, out, archiveStateFromRawValue,
                           "is not a tab state (saved, pendingClose or closed)");
  }

  template <class T>
  bool read(dom::element value, const Path& at, std::optional<T>& out) {
    if (value.is_null()) {
      out.reset();
      return true;
    }
    return read(value, at, out.emplace());
  }

  template <class T>
  bool read(dom::element value, const Path& at, std::vector<T>& out) {
    dom::array array;
    if (value.get_array().get(array) != simdjson::SUCCESS) return fail(at, "is not an array");
    // Elements already there are read over rather than destroyed: their strings keep
    // their capacity, so decoding the same library again allocates almost nothing.
    const size_t count = array.size();
    if (out.size() > count) out.resize(count);
    out.reserve(count);
    size_t index = 0;
    for (dom::element item : array) {
      T& element = index < out.size() ? out[index] : out.emplace_back();
      if (!read(item, Path{&at, {}, index++}, element)) return false;
    }
    return true;
  }

  bool read(dom::element value, const Path& at, BrowserSet& out) {
    dom::array array;
    if (value.get_array().get(array) != simdjson::SUCCESS) return fail(at, "is not an array");
    out = BrowserSet{};
    size_t index = 0;
    for (dom::element item : array) {
      Browser browser{};
      if (!read(item, Path{&at, {}, index++}, browser)) return false;
      out.insert(browser);
    }
    return true;
  }

  bool read(dom::element value, const Path& at, SavedTab& tab) {
    static constexpr auto& k = kSavedTabKeys;
    static constexpr uint32_t kRequired = requiredMask(k, {"closedAt"});
    tab.closedAt.reset();
    return readObject(value, at, k, kRequired, [&](size_t key, dom::element v, const Path& p) {
      switch (key) {
        case keyIndex(k, "id"): return read(v, p, tab.id);
        case keyIndex(k, "title"): return read(v, p, tab.title);
        case keyIndex(k, "url"): return read(v, p, tab.url);
        case keyIndex(k, "browser"): return read(v, p, tab.browser);
        case keyIndex(k, "savedAt"): return read(v, p, tab.savedAt);
        case keyIndex(k, "closedAt"): return read(v, p, tab.closedAt);
        case keyIndex(k, "state"): return read(v, p, tab.state);
        case keyIndex(k, "isFavorite"): return read(v, p, tab.isFavorite);
      }
      return true;
    });
  }

  bool read(dom::element value, const Path& at, LiveTab& tab) {
    static constexpr auto& k = kLiveTabKeys;
    static constexpr uint32_t kRequired =
        requiredMask(k, {"tabID", "neverSelectedSince", "lastVisitAt"});
    tab.tabID.reset();
    tab.neverSelectedSince.reset();
    tab.lastVisitAt.reset();
    return readObject(value, at, k, kRequired, [&](size_t key, dom::element v, const Path& p) {
      switch (key) {
        case keyIndex(k, "id"): return read(v, p, tab.id);
        case keyIndex(k, "browser"): return read(v, p, tab.browser);
        case keyIndex(k, "windowID"): return read(v, p, tab.windowID);
        case keyIndex(k, "tabID"): return read(v, p, tab.tabID);
        case keyIndex(k, "index"): return read(v, p, tab.index);
        case keyIndex(k, "title"): return read(v, p, tab.title);
        case keyIndex(k, "url"): return read(v, p, tab.url);
        case keyIndex(k, "isActive"): return read(v, p, tab.isActive);
        case keyIndex(k, "pinState"): return read(v, p, tab.pinState);
        case keyIndex(k, "lastActiveAt"): return read(v, p, tab.lastActiveAt);
        case keyIndex(k, "observedAt"): return read(v, p, tab.observedAt);
        case keyIndex(k, "neverSelectedSince"): return read(v, p, tab.neverSelectedSince);
        case keyIndex(k, "lastVisitAt"): return read(v, p, tab.lastVisitAt);
      }
      return true;
    });
  }

  bool read(dom::element value, const Path& at, Preferences& prefs) {
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
    return readObject(value, at, k, kRequired, [&](size_t key, dom::element v, const Path& p) {
      switch (key) {
        case keyIndex(k, "idleHours"): return read(v, p, prefs.idleHours);
        case keyIndex(k, "autoClose"): return read(v, p, prefs.autoClose);
        case keyIndex(k, "tabLimit"): return read(v, p, prefs.tabLimit);
        case keyIndex(k, "automaticTabLimit"): return read(v, p, prefs.automaticTabLimit);
        case keyIndex(k, "connectedBrowsers"): return read(v, p, prefs.connectedBrowsers);
        case keyIndex(k, "exclusions"): return read(v, p, prefs.exclusions);
        case keyIndex(k, "flaURL"): return read(v, p, prefs.flaURL);
        case keyIndex(k, "websiteIcons"): return read(v, p, prefs.websiteIcons);
        case keyIndex(k, "veltoActivity"): return read(v, p, prefs.veltoActivity);
        case keyIndex(k, "compactActivity"): return read(v, p, prefs.compactActivity);
        case keyIndex(k, "confirmTuckAway"): return read(v, p, prefs.confirmTuckAway);
        case keyIndex(k, "memoryAlerts"): return read(v, p, prefs.memoryAlerts);
        case keyIndex(k, "protectedTabs"): return read(v, p, prefs.protectedTabs);
        case keyIndex(k, "browserHistory"): return read(v, p, prefs.browserHistory);
      }
      return true;
    });
  }

  bool read(dom::element value, const Path& at, ClientGrant& grant) {
    static constexpr auto& k = kClientGrantKeys;
    return readObject(value, at, k, requiredMask(k, {}),
                      [&](size_t key, dom::element v, const Path& p) {
                        switch (key) {
                          case keyIndex(k, "id"): return read(v, p, grant.id);
                          case keyIndex(k, "name"): return read(v, p, grant.name);
                          case keyIndex(k, "tokenHash"): return read(v, p, grant.tokenHash);
                          case keyIndex(k, "allowReopen"): return read(v, p, grant.allowReopen);
                          case keyIndex(k, "createdAt"): return read(v, p, grant.createdAt);
                        }
                        return true;
                      });
  }

  bool read(dom::element value, const Path& at, LibraryState& state) {
    static constexpr auto& k = kLibraryKeys;
    static constexpr uint32_t kRequired = requiredMask(k, {"liveUpdatedAt"});
    state.liveUpdatedAt.reset();
    return readObject(value, at, k, kRequired, [&](size_t key, dom::element v, const Path& p) {
      switch (key) {
        case keyIndex(k, "version"): return read(v, p, state.version);
        case keyIndex(k, "tabs"): return read(v, p, state.tabs);
        case keyIndex(k, "liveTabs"): return read(v, p, state.liveTabs);
        case keyIndex(k, "liveUpdatedAt"): return read(v, p, state.liveUpdatedAt);
        case keyIndex(k, "preferences"): return read(v, p, state.preferences);
        case keyIndex(k, "clients"): return read(v, p, state.clients);
      }
      return true;
    });
  }

 private:
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

  template <class T, class FromRaw>
  bool readEnumeration(dom::element value, const Path& at, T& out, FromRaw fromRaw,
                       std::string_view complaint) {
    std::string_view text;
    std::optional<T> parsed;
    if (value.get_string().get(text) == simdjson::SUCCESS) parsed = fromRaw(text);
    if (!parsed) return fail(at, complaint);
    out = *parsed;
    return true;
  }

  // Hands each known member to `field` (with its key's position) and ignores the rest;
  // afterwards reports the first required key, in declaration order, that never came.
  template <size_t N, class Field>
  bool readObject(dom::element value, const Path& at, const std::array<std::string_view, N>& keys,
                  uint32_t required, Field&& field) {
    dom::object object;
    if (value.get_object().get(object) != simdjson::SUCCESS) {
      return fail(at, at.isDocument() ? "is not a JSON object" : "is not an object");
    }
    uint32_t seen = 0;
    for (dom::key_value_pair member : object) {
      const size_t key = keyIndex(keys, member.key);
      if (key == N) continue;
      if (!field(key, member.value, Path{&at, keys[key]})) return false;
      seen |= 1u << key;
    }
    if (const uint32_t missing = required & ~seen) {
      return fail(Path{&at, keys[std::countr_zero(missing)]}, "is missing");
    }
    return true;
  }
};

Error parseFailure(simdjson::error_code code) {
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
  dom::parser parser;
  dom::document document;
  // The bytes of the last document, followed by the padding the parser reads past the
  // end. Kept between documents: a fresh buffer the size of a large library costs more
  // to fault in than to parse.
  std::unique_ptr<char[]> buffer;
  size_t capacity = 0;  // usable bytes, padding excluded

  // Makes room for `size` bytes, keeping the first `keep` bytes already there.
  void reserve(size_t size, size_t keep) {
    if (buffer && size <= capacity) return;
    // Libraries grow a little with every save, so leave room for that growth.
    const size_t grown = std::max<size_t>(size + size / 8, 64 * 1024);
    std::unique_ptr<char[]> larger(new char[grown + simdjson::SIMDJSON_PADDING]);
    if (keep > 0) std::memcpy(larger.get(), buffer.get(), keep);
    buffer = std::move(larger);
    capacity = grown;
  }

  Result<void> decodeBufferInto(size_t size, LibraryState& state) {
    std::memset(buffer.get() + size, 0, simdjson::SIMDJSON_PADDING);
    if (size > parser.capacity() || size > document.capacity()) {
      // Same growth margin as the buffer, so a slowly growing file does not make the
      // parser reallocate (and fault in) its tape on every request.
      const size_t grown = std::min(size + size / 8, parser.max_capacity());
      if (parser.allocate(grown) != simdjson::SUCCESS ||
          document.allocate(grown) != simdjson::SUCCESS) {
        return parseFailure(simdjson::MEMALLOC);
      }
    }
    dom::element root;
    const simdjson::error_code code =
        parser.parse_into_document(document, buffer.get(), size, false).get(root);
    if (code != simdjson::SUCCESS) return parseFailure(code);
    Reader reader;
    if (!reader.read(root, Path{}, state)) return *std::move(reader.error);
    return {};
  }

  Result<LibraryState> decodeBuffer(size_t size) {
    LibraryState state;
    if (auto decoded = decodeBufferInto(size, state); !decoded) return decoded.error();
    return state;
  }

  Result<void> readFile(const std::filesystem::path& file, size_t& size);
};

LibraryDecoder::LibraryDecoder() : impl_(std::make_unique<Impl>()) {}
LibraryDecoder::~LibraryDecoder() = default;

Result<LibraryState> LibraryDecoder::decode(std::string_view bytes) {
  impl_->reserve(bytes.size(), 0);
  if (!bytes.empty()) std::memcpy(impl_->buffer.get(), bytes.data(), bytes.size());
  return impl_->decodeBuffer(bytes.size());
}

Result<void> LibraryDecoder::Impl::readFile(const std::filesystem::path& file, size_t& size) {
  const FileDescriptor descriptor{::open(file.c_str(), O_RDONLY | O_CLOEXEC)};
  if (descriptor.fd < 0) return readFailure(file, errno);
  struct stat status {};
  if (::fstat(descriptor.fd, &status) != 0) return readFailure(file, errno);
  if (S_ISDIR(status.st_mode)) return readFailure(file, EISDIR);
  // One byte beyond the expected size lets the read that finds the end fit without
  // growing; a file that grew since fstat is still read whole.
  size = 0;
  reserve(static_cast<size_t>(std::max<off_t>(status.st_size, 0)) + 1, 0);
  for (;;) {
    if (size == capacity) reserve(capacity + 1, size);
    const ssize_t count = ::read(descriptor.fd, buffer.get() + size, capacity - size);
    if (count < 0) {
      if (errno == EINTR) continue;
      return readFailure(file, errno);
    }
    if (count == 0) return {};
    size += static_cast<size_t>(count);
  }
}

Result<LibraryState> LibraryDecoder::decodeFile(const std::filesystem::path& file) {
  size_t size = 0;
  if (auto read = impl_->readFile(file, size); !read) return read.error();
  return impl_->decodeBuffer(size);
}

Result<void> LibraryDecoder::decodeFileInto(const std::filesystem::path& file,
                                            LibraryState& state) {
  size_t size = 0;
  if (auto read = impl_->readFile(file, size); !read) return read.error();
  return impl_->decodeBufferInto(size, state);
}

Result<LibraryState> decodeLibrary(std::string_view bytes) {
  LibraryDecoder decoder;
  return decoder.decode(bytes);
}

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
