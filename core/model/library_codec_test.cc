#include "core/model/library_codec.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>

namespace velto {
namespace {

using Json = nlohmann::json;

// A library with every optional field set and the kinds of text that trip encoders up,
// all its dates `when` or two hours later.
LibraryState fullLibrary(Date when) {
  LibraryState state;
  SavedTab saved;
  saved.id = *Uuid::parse("6f9619ff-8b86-d011-b42d-00c04fc964ff");
  saved.title = "Café \"quoted\" \\ back\tslash 東京 🚀 \x01";
  saved.url = "https://example.com/a/b?q=1&r=é#frag";
  saved.browser = Browser::brave;
  saved.savedAt = when;
  saved.closedAt = when + std::chrono::hours(2);
  saved.state = ArchiveState::pendingClose;
  saved.isFavorite = true;
  state.tabs = {saved, saved};
  state.tabs[1].closedAt.reset();
  state.tabs[1].state = ArchiveState::closed;
  LiveTab live;
  live.id = "chrome:12:34";
  live.browser = Browser::chrome;
  live.windowID = -9'223'372'036'854'775'807 - 1;
  live.tabID = "34";
  live.index = 9'223'372'036'854'775'807;
  live.url = "about:blank";
  live.isActive = true;
  live.pinState = PinState::pinned;
  live.lastActiveAt = live.observedAt = when;
  live.neverSelectedSince = live.lastVisitAt = when;
  state.liveTabs = {live};
  state.liveUpdatedAt = when;
  Preferences& p = state.preferences;
  p.tabLimit = 30;
  p.protectedTabs = -2;
  p.automaticTabLimit = p.websiteIcons = p.veltoActivity = true;
  p.compactActivity = p.confirmTuckAway = p.memoryAlerts = p.browserHistory = false;
  p.connectedBrowsers = {Browser::safari, Browser::edge};
  p.exclusions = {"chase.com", "ünïcode.example"};
  p.flaURL = "x/y";
  state.clients = {{*Uuid::parse("00000000-0000-0000-0000-000000000001"), "Claude", "ab", true,
                    when}};
  return state;
}

const Date kWhen = dateFromUTC(2026, 1, 31, 8, 15, 0);

class LibraryCodecTest : public ::testing::Test {
 protected:
  // The full library as a JSON tree, changed at one JSON pointer; a discarded value
  // removes the key instead.
  Result<LibraryState> decodeChanged(const std::string& pointer, Json value) {
    Json doc = Json::parse(encodeLibrary(fullLibrary(kWhen)));
    const Json::json_pointer at(pointer);
    if (value.is_discarded()) {
      doc.at(at.parent_pointer()).erase(at.back());
    } else {
      doc[at] = std::move(value);
    }
    return decoder_.decode(doc.dump());
  }

  std::string failureOf(const std::string& pointer, Json value) {
    const Result<LibraryState> result = decodeChanged(pointer, std::move(value));
    if (result.ok()) return "decoded";
    EXPECT_EQ(result.error().domain, Error::Domain::decoding);
    return result.error().message;
  }

  LibraryDecoder decoder_;
};

TEST_F(LibraryCodecTest, RoundTripKeepsEveryFieldToTheSecond) {
  const Date fraction = kWhen + std::chrono::microseconds(999'999);
  const Result<LibraryState> decoded = decoder_.decode(encodeLibrary(fullLibrary(fraction)));
  ASSERT_TRUE(decoded.ok()) << decoded.error().message;
  EXPECT_EQ(*decoded, fullLibrary(kWhen));
  EXPECT_EQ(decodeLibrary(encodeLibrary(LibraryState{})), LibraryState{});
}

TEST_F(LibraryCodecTest, DecodingOverOldRecordsLeavesNothingOfThem) {
  const auto file = std::filesystem::temp_directory_path() /
                    ("velto-codec-" + std::to_string(::getpid()) + ".json");
  const auto decodeInto = [&](const LibraryState& stored, LibraryState& into) {
    std::ofstream(file, std::ios::binary) << encodeLibrary(stored);
    const Result<void> decoded = decoder_.decodeFileInto(file, into);
    ASSERT_TRUE(decoded.ok()) << decoded.error().message;
  };
  // Every optional set and more tabs first, then a sparser library read over it.
  LibraryState reused, sparse;
  sparse.tabs = {fullLibrary(kWhen).tabs[1]};
  sparse.liveTabs = fullLibrary(kWhen).liveTabs;
  sparse.liveTabs[0].tabID.reset();
  sparse.liveTabs[0].neverSelectedSince.reset();
  sparse.liveTabs[0].lastVisitAt.reset();
  decodeInto(fullLibrary(kWhen), reused);
  EXPECT_EQ(reused, fullLibrary(kWhen));
  decodeInto(sparse, reused);
  EXPECT_EQ(reused, sparse);
  decodeInto(fullLibrary(kWhen), reused);
  EXPECT_EQ(reused, fullLibrary(kWhen));
  std::filesystem::remove(file);
}

TEST_F(LibraryCodecTest, FileFormIsSortedReadableAndOmitsAbsentOptionals) {
  const std::string full = encodeLibrary(fullLibrary(kWhen));
  EXPECT_NE(full.find("\"url\": \"https://example.com/a/b?q=1&r=é#frag\""), std::string::npos);
  EXPECT_NE(full.find("東京 🚀"), std::string::npos);
  EXPECT_NE(full.find("6F9619FF-8B86-D011-B42D-00C04FC964FF"), std::string::npos);
  EXPECT_NE(full.find("\"2026-01-31T10:15:00Z\""), std::string::npos);
  EXPECT_LT(full.find("\"autoClose\""), full.find("\"browserHistory\""));
  EXPECT_LT(full.find("\"clients\""), full.find("\"liveTabs\""));
  EXPECT_NE(full.find("\n  \"version\": 1"), std::string::npos);

  const std::string plain = encodeLibrary(LibraryState{});
  for (const char* key : {"liveUpdatedAt", "tabLimit", "automaticTabLimit", "websiteIcons",
                          "veltoActivity", "compactActivity", "confirmTuckAway", "memoryAlerts",
                          "protectedTabs", "browserHistory"}) {
    EXPECT_EQ(plain.find(key), std::string::npos) << key;
  }

  LibraryState broken;
  broken.preferences.flaURL = "bad \xff\xfe byte";
  const Result<LibraryState> repaired = decodeLibrary(encodeLibrary(broken));
  ASSERT_TRUE(repaired.ok());
  EXPECT_EQ(repaired->preferences.flaURL, "bad \uFFFD\uFFFD byte");
}

TEST_F(LibraryCodecTest, EveryMalformedValueFailsTheDocumentNamingItsPath) {
  EXPECT_EQ(failureOf("/tabs/1/savedAt", "2026-01-31T08:15:00.5Z"),
            "The library file is damaged: \"tabs[1].savedAt\" is not a date like "
            "2026-01-31T08:15:00Z.");
  const Json removed = Json(Json::value_t::discarded);
  struct Case {
    const char* pointer;
    Json value;
    const char* expected;
  };
  const Case cases[] = {
      {"/clients", removed, "\"clients\" is missing"},
      {"/preferences/exclusions", removed, "\"preferences.exclusions\" is missing"},
      {"/tabs/0/savedAt", removed, "\"tabs[0].savedAt\" is missing"},
      {"/liveTabs/0/pinState", removed, "\"liveTabs[0].pinState\" is missing"},
      {"/tabs/0/savedAt", "2026-02-30T08:15:00Z", "\"tabs[0].savedAt\" is not a date"},
      {"/tabs/0/savedAt", "2026-01-31T08:15:00+00:00", "is not a date"},
      {"/tabs/0/savedAt", "2026-01-31T08:15:0:Z", "is not a date"},
      {"/tabs/0/savedAt", "2026-01-31T08/15:00Z", "is not a date"},
      {"/tabs/0/closedAt", 1769847300, "\"tabs[0].closedAt\" is not a date"},
      {"/clients/0/createdAt", nullptr, "\"clients[0].createdAt\" is not a date"},
      {"/liveUpdatedAt", "yesterday", "\"liveUpdatedAt\" is not a date"},
      {"/tabs/0/id", "6F9619FF8B86D011B42D00C04FC964FF", "\"tabs[0].id\" is not a UUID"},
      {"/clients/0/id", "{00000000-0000-0000-0000-000000000001}", "is not a UUID"},
      {"/tabs/0/browser", "firefox", "\"tabs[0].browser\" is not a browser"},
      {"/tabs/0/browser", "Safari", "is not a browser"},
      {"/tabs/0/state", "open", "\"tabs[0].state\" is not a tab state"},
      {"/liveTabs/0/pinState", "Pinned", "\"liveTabs[0].pinState\" is not a pin state"},
      {"/preferences/connectedBrowsers/1", "opera",
       "\"preferences.connectedBrowsers[1]\" is not a browser"},
      {"/liveTabs/0/windowID", 1.5, "\"liveTabs[0].windowID\" is not a whole number"},
      {"/liveTabs/0/index", "3", "is not a whole number"},
      {"/liveTabs/0/index", 9223372036854775808ull, "is not a whole number that fits"},
      {"/preferences/tabLimit", 1e19, "\"preferences.tabLimit\" is not a whole number"},
      {"/version", "1", "\"version\" is not a whole number"},
      {"/preferences/autoClose", 1, "\"preferences.autoClose\" is not true or false"},
      {"/tabs/0/isFavorite", "true", "is not true or false"},
      {"/preferences/exclusions/1", 3, "\"preferences.exclusions[1]\" is not a string"},
      {"/liveTabs/0/title", nullptr, "\"liveTabs[0].title\" is not a string"},
      {"/liveTabs/0/tabID", 34, "\"liveTabs[0].tabID\" is not a string"},
      {"/tabs", Json::object(), "\"tabs\" is not an array"},
      {"/preferences/connectedBrowsers", "safari", "is not an array"},
      {"/preferences", Json::array(), "\"preferences\" is not an object"},
      {"/tabs/1", "tab", "\"tabs[1]\" is not an object"},
  };
  for (const Case& c : cases) {
    const std::string message = failureOf(c.pointer, c.value);
    EXPECT_NE(message.find(c.expected), std::string::npos) << c.pointer << ": " << message;
  }
}

TEST_F(LibraryCodecTest, BrokenDocumentsFailWhateverTheReuseHistory) {
  const std::string good = encodeLibrary(fullLibrary(kWhen));
  struct Case {
    std::string bytes;
    const char* expected;
  };
  const Case cases[] = {
      {"", "the document is empty"},
      {"[]", "the document is not a JSON object"},
      {"null", "the document is not a JSON object"},
      {"{\"version\": 1,", "the document is not valid JSON"},
      {"{\"version\": 1} {}", "the document is not valid JSON"},
      {"{\"a\": \"\xff\"}", "the document is not valid UTF-8"},
      {good.substr(0, good.size() - 1), "the document is not valid JSON"},
      {good.substr(0, good.size() / 2), "the document is not valid JSON"},
  };
  for (const Case& c : cases) {
    // A good document first, so a leftover of its bytes in the reused buffer would show.
    ASSERT_TRUE(decoder_.decode(good).ok());
    const Result<LibraryState> result = decoder_.decode(c.bytes);
    ASSERT_FALSE(result.ok()) << c.bytes.size();
    EXPECT_EQ(result.error().domain, Error::Domain::decoding);
    EXPECT_NE(result.error().message.find(c.expected), std::string::npos)
        << result.error().message;
  }
  EXPECT_EQ(*decoder_.decode(good), fullLibrary(kWhen));
  EXPECT_EQ(decodeLibrary("").error().message, "The library file is damaged: the document is empty.");
}

TEST_F(LibraryCodecTest, ToleratesWhatOtherWritersProduce) {
  // Whole numbers written as doubles, unknown keys, explicit nulls, lower-case ids,
  // repeated browsers, and versions the store (not the decoder) judges.
  struct Case {
    const char* pointer;
    Json value;
  };
  const Case cases[] = {{"/version", 1.0},
                        {"/version", 2},
                        {"/version", -1},
                        {"/preferences/idleHours", 1e3},
                        {"/preferences/idleHours", -0.0},
                        {"/liveTabs/0/windowID", -9223372036854775807LL - 1},
                        {"/futureKey", {{"nested", {1, 2}}}},
                        {"/tabs/0/futureKey", nullptr},
                        {"/tabs/0/closedAt", nullptr},
                        {"/liveUpdatedAt", nullptr},
                        {"/preferences/tabLimit", nullptr},
                        {"/clients/0/id", "00000000-0000-0000-0000-00000000000a"},
                        {"/preferences/connectedBrowsers", {"edge", "safari", "edge", "edge"}}};
  for (const Case& c : cases) {
    const Result<LibraryState> result = decodeChanged(c.pointer, c.value);
    EXPECT_TRUE(result.ok()) << c.pointer << ": " << result.error().message;
  }
  EXPECT_EQ(decodeChanged("/preferences/idleHours", 1e3)->preferences.idleHours, 1000);
  EXPECT_EQ(decodeChanged("/version", 2)->version, 2);
  EXPECT_FALSE(decodeChanged("/tabs/0/closedAt", nullptr)->tabs[0].closedAt);
  const Result<LibraryState> repeated =
      decodeChanged("/preferences/connectedBrowsers", {"edge", "safari", "edge"});
  EXPECT_EQ(repeated->preferences.connectedBrowsers, (BrowserSet{Browser::safari, Browser::edge}));
  EXPECT_EQ(encodeLibrary(*repeated), encodeLibrary(*decodeLibrary(encodeLibrary(*repeated))));
}

TEST_F(LibraryCodecTest, EscapedSurrogatesDecodeOnlyWhenPaired) {
  const auto withTitle = [](const std::string& escaped) {
    Json doc = Json::parse(encodeLibrary(fullLibrary(kWhen)));
    std::string text = doc.dump();
    const std::string old = "\"flaURL\":\"x/y\"";
    text.replace(text.find(old), old.size(), "\"flaURL\":\"" + escaped + "\"");
    return decodeLibrary(text);
  };
  EXPECT_EQ(withTitle("\\ud83d\\ude80")->preferences.flaURL, "🚀");
  EXPECT_FALSE(withTitle("\\ud83d").ok());
  EXPECT_FALSE(withTitle("\\ude80").ok());
}

TEST_F(LibraryCodecTest, FileReadFailuresNameTheFile) {
  const auto missing = decoder_.decodeFile("/nonexistent/library.json");
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error().domain, Error::Domain::file);
  EXPECT_EQ(missing.error().message,
            "Could not read the library file \"/nonexistent/library.json\": No such file or "
            "directory.");
  const auto directory = decoder_.decodeFile("/");
  ASSERT_FALSE(directory.ok());
  EXPECT_NE(directory.error().message.find("Is a directory"), std::string::npos);
}

}  // namespace
}  // namespace velto
