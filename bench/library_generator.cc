#include "bench/library_generator.h"

#include <array>

#include "core/mcp/client_authorization.h"
#include "core/model/library_codec.h"

namespace velto::bench {

namespace {

// splitmix64: tiny, fast and the same everywhere, unlike std::uniform_int_distribution.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  size_t below(size_t bound) { return static_cast<size_t>(next() % bound); }
  bool percent(unsigned chance) { return below(100) < chance; }
  template <class T, size_t N>
  const T& pick(const std::array<T, N>& items) {
    return items[below(N)];
  }

 private:
  uint64_t state_;
};

struct Site {
  std::string_view host, name;
};

constexpr std::array<Site, 24> kSites{{
    {"github.com", "GitHub"},
    {"stackoverflow.com", "Stack Overflow"},
    {"en.wikipedia.org", "Wikipedia"},
    {"www.youtube.com", "YouTube"},
    {"www.nytimes.com", "The New York Times"},
    {"news.ycombinator.com", "Hacker News"},
    {"docs.python.org", "Python 3 documentation"},
    {"developer.apple.com", "Apple Developer"},
    {"www.reddit.com", "Reddit"},
    {"medium.com", "Medium"},
    {"www.bbc.co.uk", "BBC News"},
    {"www.amazon.com", "Amazon.com"},
    {"www.lemonde.fr", "Le Monde"},
    {"www.spiegel.de", "DER SPIEGEL"},
    {"ja.wikipedia.org", "ウィキペディア"},
    {"www.zhihu.com", "知乎"},
    {"arxiv.org", "arXiv"},
    {"www.figma.com", "Figma"},
    {"app.slack.com", "Slack"},
    {"www.notion.so", "Notion"},
    {"maps.google.com", "Google Maps"},
    {"www.booking.com", "Booking.com"},
    {"en.cppreference.com", "cppreference.com"},
    {"www.theguardian.com", "The Guardian"},
}};

// Hosts the default exclusions cover; their tabs must never be listed.
constexpr std::array<Site, 5> kExcludedSites{{
    {"mail.google.com", "Gmail"},
    {"www.chase.com", "Chase"},
    {"secure.bankofamerica.com", "Bank of America"},
    {"outlook.live.com", "Outlook"},
    {"www.nhs.uk", "NHS"},
}};

constexpr std::array<std::string_view, 40> kWords{
    "release", "notes",   "build",    "cache",    "swift",   "concurrency", "review",
    "design",  "system",  "memory",   "layout",   "budget",  "travel",      "recipe",
    "weekend", "guide",   "pricing",  "benchmark", "parser", "history",     "garden",
    "climate", "report",  "election", "football", "quantum", "compiler",    "update",
    "privacy", "server",  "protocol", "pattern",  "browser", "archive",     "summer",
    "market",  "science", "planning", "invoice",  "tutorial"};

constexpr std::array<std::string_view, 12> kAccented{
    "Résumé", "café", "crème brûlée", "Müller", "Straße", "über", "niño", "façade",
    "déjà vu", "smörgåsbord", "Ærø", "São Paulo"};

constexpr std::array<std::string_view, 10> kCJK{
    "東京の天気", "新しいニュース", "机器学习入门", "今日のレシピ", "개발자 문서",
    "旅行ガイド", "编程语言", "経済ニュース", "한국어 뉴스", "音楽ランキング"};

constexpr std::array<std::string_view, 8> kEmoji{"🚀", "🎉", "📦", "🔥", "✅", "🧪", "🌍",
                                                "👩‍💻"};

std::string capitalized(std::string_view word) {
  std::string out(word);
  if (!out.empty() && out[0] >= 'a' && out[0] <= 'z') out[0] = static_cast<char>(out[0] - 32);
  return out;
}

std::string title(Random& random, std::string_view siteName) {
  std::string out;
  const size_t script = random.below(100);
  if (script < 8) {
    out = std::string(random.pick(kCJK)) + " " + std::string(random.pick(kCJK));
  } else {
    out = capitalized(random.pick(kWords));
    const size_t words = 2 + random.below(4);
    for (size_t i = 0; i < words; ++i) {
      out += ' ';
      out += (script < 20 && i == 1) ? random.pick(kAccented) : random.pick(kWords);
    }
  }
  if (script >= 20 && script < 25) out = std::string(random.pick(kEmoji)) + " " + out;
  out += " - ";
  out += siteName;
  return out;
}

std::string url(Random& random, std::string_view host) {
  std::string out = "https://";
  out += host;
  const size_t segments = 2 + random.below(3);
  for (size_t i = 0; i < segments; ++i) {
    out += '/';
    out += random.pick(kWords);
    if (random.percent(50)) {
      out += '-';
      out += random.pick(kWords);
    }
  }
  if (random.percent(40)) {
    out += '/';
    out += std::to_string(random.next() % 100000000);
  }
  if (random.percent(45)) {
    out += "?q=";
    out += random.pick(kWords);
    out += "&ref=";
    out += random.pick(kWords);
  }
  return out;
}

Site site(Random& random, std::string& generatedHost) {
  if (random.percent(4)) return random.pick(kExcludedSites);
  if (random.percent(70)) return random.pick(kSites);
  // A long tail of a few thousand smaller sites.
  generatedHost = std::string(random.pick(kWords)) + std::string(random.pick(kWords)) +
                  (random.percent(50) ? ".com" : ".dev");
  return {generatedHost, "Blog"};
}

Uuid uuid(Random& random) {
  Uuid id;
  for (size_t i = 0; i < 16; i += 8) {
    const uint64_t bits = random.next();
    for (size_t j = 0; j < 8; ++j) id.bytes[i + j] = static_cast<uint8_t>(bits >> (8 * j));
  }
  id.bytes[6] = static_cast<uint8_t>((id.bytes[6] & 0x0f) | 0x40);
  id.bytes[8] = static_cast<uint8_t>((id.bytes[8] & 0x3f) | 0x80);
  return id;
}

Browser browser(Random& random) {
  const size_t roll = random.below(100);
  if (roll < 35) return Browser::safari;
  if (roll < 75) return Browser::chrome;
  if (roll < 85) return Browser::brave;
  return Browser::edge;
}

Date secondsBefore(Date date, size_t seconds) {
  return date - std::chrono::seconds(static_cast<int64_t>(seconds));
}

constexpr size_t kYear = 365 * 24 * 3600;

}  // namespace

LibraryState generateLibrary(size_t savedTabs, size_t liveTabs, uint32_t seed, Date now) {
  Random random(seed);
  now = truncatedToSeconds(now);
  LibraryState state;
  std::string generatedHost;

  state.tabs.reserve(savedTabs);
  for (size_t i = 0; i < savedTabs; ++i) {
    SavedTab tab;
    tab.id = uuid(random);
    if (i > 0 && random.percent(5)) {
      const SavedTab& earlier = state.tabs[random.below(i)];
      tab.title = earlier.title;
      tab.url = earlier.url;
    } else {
      const Site where = site(random, generatedHost);
      tab.title = title(random, where.name);
      tab.url = url(random, where.host);
    }
    tab.browser = browser(random);
    tab.savedAt = secondsBefore(now, random.below(kYear));
    const size_t roll = random.below(100);
    tab.state = roll < 85 ? ArchiveState::closed
                          : (roll < 95 ? ArchiveState::saved : ArchiveState::pendingClose);
    if (tab.state == ArchiveState::closed && random.percent(95)) {
      tab.closedAt = tab.savedAt + std::chrono::seconds(random.below(3 * 24 * 3600));
    }
    tab.isFavorite = random.percent(3);
    state.tabs.push_back(std::move(tab));
  }

  const Date observed = secondsBefore(now, 5);
  state.liveTabs.reserve(liveTabs);
  for (size_t i = 0; i < liveTabs; ++i) {
    LiveTab tab;
    tab.browser = browser(random);
    tab.windowID = static_cast<int64_t>(1 + random.below(4));
    tab.index = static_cast<int64_t>(1 + random.below(40));
    if (tab.browser == Browser::safari) {
      tab.id = std::string("safari:") + std::to_string(tab.windowID) + ":" +
               std::to_string(tab.index);
    } else {
      tab.tabID = std::to_string(1000 + i);
      tab.id = std::string(rawValue(tab.browser)) + ":" + std::to_string(tab.windowID) + ":" +
               *tab.tabID;
    }
    const Site where = site(random, generatedHost);
    tab.title = title(random, where.name);
    tab.url = url(random, where.host);
    tab.isActive = random.percent(5);
    tab.pinState = random.percent(5) ? PinState::pinned : PinState::unknown;
    tab.lastActiveAt = secondsBefore(observed, random.below(14 * 24 * 3600));
    tab.observedAt = observed;
    if (random.percent(20)) tab.neverSelectedSince = secondsBefore(observed, random.below(86400));
    if (random.percent(50)) tab.lastVisitAt = secondsBefore(observed, random.below(86400));
    state.liveTabs.push_back(std::move(tab));
  }
  state.liveUpdatedAt = observed;

  state.preferences.connectedBrowsers = {Browser::safari, Browser::chrome, Browser::brave,
                                         Browser::edge};
  state.preferences.tabLimit = 40;
  state.clients.push_back({*Uuid::parse(kBenchClientID), "Claude Desktop",
                           ClientAuthorization::hash(kBenchClientToken), true,
                           secondsBefore(now, 30 * 86400)});
  state.clients.push_back({uuid(random), "Read-only helper",
                           ClientAuthorization::hash("not the benchmark token"), false,
                           secondsBefore(now, 3 * 86400)});
  return state;
}

std::string generateLibraryJSON(size_t savedTabs, size_t liveTabs, uint32_t seed, Date now) {
  return encodeLibrary(generateLibrary(savedTabs, liveTabs, seed, now));
}

}  // namespace velto::bench
