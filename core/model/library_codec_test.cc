#include "core/model/library_codec.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

#include "core/support/testing/files.h"

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
  state.clients = {
      {*Uuid::parse("00000000-0000-0000-0000-000000000001"), "Claude", "ab", true, when}};
  return state;
}

const Date kWhen = dateFromUTC(2026, 1, 31, 8, 15, 0);
const std::string kGood = Json::parse(encodeLibrary(fullLibrary(kWhen))).dump();

// The full library, compact, with the value at a JSON pointer replaced (a discarded value
// removes the key).
std::string changed(const std::string& pointer, Json value) {
  Json doc = Json::parse(kGood);
  const Json::json_pointer at(pointer);
  if (value.is_discarded()) {
    doc.at(at.parent_pointer()).erase(at.back());
  } else {
    doc[at] = std::move(value);
  }
  return doc.dump();
}

// The full library, compact, with the first `old` in its text replaced: for JSON that a
// JSON tree cannot hold. kFla is the last member of "preferences", kVersion the last
// member of the document.
std::string replaced(const std::string& old, const std::string& with) {
  std::string text = kGood;
  return text.replace(text.find(old), old.size(), with);
}
const std::string kFla = "\"flaURL\":\"x/y\"";
const std::string kVersion = "\"version\":1}";

// `depth` arrays, each in the one before, the innermost empty.
std::string nested(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

const Json kRemoved = Json(Json::value_t::discarded);

TEST(LibraryCodecTest, RoundTripKeepsEveryFieldToTheSecond) {
  const Date fraction = kWhen + std::chrono::microseconds(999'999);
  const Result<LibraryState> decoded = decodeLibrary(encodeLibrary(fullLibrary(fraction)));
  ASSERT_TRUE(decoded.ok()) << decoded.error().message;
  EXPECT_EQ(*decoded, fullLibrary(kWhen));
  EXPECT_EQ(decodeLibrary(encodeLibrary(LibraryState{})), LibraryState{});
}

TEST(LibraryCodecTest, DecodingOverOldRecordsLeavesNothingOfThem) {
  const auto file = std::filesystem::temp_directory_path() /
                    ("velto-codec-" + std::to_string(::getpid()) + ".json");
  LibraryDecoder decoder;
  LibraryState reused, sparse;
  sparse.tabs = {fullLibrary(kWhen).tabs[1]};
  sparse.liveTabs.emplace_back();  // no optional set
  // Every optional set and more tabs first, then a sparser library read over it, then back.
  for (const LibraryState& stored : {fullLibrary(kWhen), sparse, fullLibrary(kWhen)}) {
    std::ofstream(file, std::ios::binary) << encodeLibrary(stored);
    const Result<void> decoded = decoder.decodeFileInto(file, reused);
    ASSERT_TRUE(decoded.ok()) << decoded.error().message;
    EXPECT_EQ(reused, stored);
  }
  std::filesystem::remove(file);
}

TEST(LibraryCodecTest, FileFormIsSortedReadableAndOmitsAbsentOptionals) {
  const std::string full = encodeLibrary(fullLibrary(kWhen));
  for (const char* text :
       {"\"url\": \"https://example.com/a/b?q=1&r=é#frag\"", "東京 🚀",
        "6F9619FF-8B86-D011-B42D-00C04FC964FF", "\"2026-01-31T10:15:00Z\"", "\n  \"version\": 1"}) {
    EXPECT_NE(full.find(text), std::string::npos) << text;
  }
  EXPECT_LT(full.find("\"autoClose\""), full.find("\"browserHistory\""));
  EXPECT_LT(full.find("\"clients\""), full.find("\"liveTabs\""));

  // Absent optionals leave only the required keys.
  const Json plain = Json::parse(encodeLibrary(LibraryState{}));
  EXPECT_EQ(plain.size(), 5u);
  EXPECT_EQ(plain["preferences"].size(), 5u);

  LibraryState broken;
  broken.preferences.flaURL = "bad \xff\xfe byte";
  EXPECT_EQ(decodeLibrary(encodeLibrary(broken))->preferences.flaURL, "bad \uFFFD\uFFFD byte");
}

TEST(LibraryCodecTest, EachFaultFailsTheWholeDocumentWithItsExactMessage) {
  const std::string kDate = "is not a date like 2026-01-31T08:15:00Z";
  const std::string kWhole = "is not a whole number that fits in 64 bits";
  const std::string kJSON = "the document is not valid JSON";
  // A value of the wrong form, then malformed JSON further on.
  std::string wrongThenMalformed = changed("/tabs/0/browser", "firefox");
  wrongThenMalformed.insert(wrongThenMalformed.size() - 1, ",");
  struct Case {
    std::string bytes;
    std::string message;  // after "The library file is damaged: ", before the full stop
  };
  const Case cases[] = {
      {changed("/clients", kRemoved), "\"clients\" is missing"},
      {changed("/tabs/0/savedAt", kRemoved), "\"tabs[0].savedAt\" is missing"},
      {changed("/tabs/1/savedAt", "2026-01-31T08:15:00.5Z"), "\"tabs[1].savedAt\" " + kDate},
      {changed("/tabs/0/closedAt", 1769847300), "\"tabs[0].closedAt\" " + kDate},
      {changed("/clients/0/createdAt", nullptr), "\"clients[0].createdAt\" " + kDate},
      {changed("/tabs/0/id", "6F9619FF8B86D011B42D00C04FC964FF"),
       "\"tabs[0].id\" is not a UUID like 6F9619FF-8B86-D011-B42D-00C04FC964FF"},
      {changed("/tabs/0/browser", "Safari"),
       "\"tabs[0].browser\" is not a browser (safari, chrome, brave or edge)"},
      {changed("/tabs/0/state", "open"),
       "\"tabs[0].state\" is not a tab state (saved, pendingClose or closed)"},
      {changed("/liveTabs/0/pinState", "Pinned"),
       "\"liveTabs[0].pinState\" is not a pin state (pinned, unpinned or unknown)"},
      {changed("/preferences/connectedBrowsers/1", "opera"),
       "\"preferences.connectedBrowsers[1]\" is not a browser (safari, chrome, brave or edge)"},
      {changed("/liveTabs/0/windowID", 1.5), "\"liveTabs[0].windowID\" " + kWhole},
      {changed("/liveTabs/0/index", 9223372036854775808ull), "\"liveTabs[0].index\" " + kWhole},
      {replaced(kVersion, "\"version\":-9223673230854775828.000}"), "\"version\" " + kWhole},
      {changed("/version", "1"), "\"version\" " + kWhole},
      {changed("/preferences/autoClose", 1), "\"preferences.autoClose\" is not true or false"},
      {changed("/preferences/exclusions/1", 3), "\"preferences.exclusions[1]\" is not a string"},
      {changed("/liveTabs/0/tabID", 34), "\"liveTabs[0].tabID\" is not a string"},
      {changed("/tabs", Json::object()), "\"tabs\" is not an array"},
      {changed("/tabs/1", "tab"), "\"tabs[1]\" is not an object"},
      // The document as a whole.
      {"", "the document is empty"},
      {"[]", "the document is not a JSON object"},
      {"null ", "the document is not a JSON object"},
      {"falsek", kJSON},
      {kGood + " {}", kJSON},
      {"{\"a\": \"\xff\"}", "the document is not valid UTF-8"},
      {kGood.substr(0, kGood.size() - 1), kJSON},
      {kGood.substr(0, kGood.size() / 2), kJSON},
      // Malformed JSON where no record looks, or after a value of the wrong form.
      {replaced(kFla, kFla + ",\"future\":[1,]"), kJSON},
      {replaced(kFla, kFla + ",\"future\":{\"a\" 1}"), kJSON},
      {replaced(kFla, kFla + ",\"future\":tru"), kJSON},
      {replaced(kFla, kFla + ",\"future\":01"), kJSON},
      {replaced(kFla, kFla + ",\"future\":\"\\x\""), kJSON},
      {replaced(kFla, kFla + ",\"future\":\"\\ud83d\""), kJSON},
      {replaced(kFla, "\"fla\\qURL\":\"\""), kJSON},
      {replaced(kFla, "\"flaURL\":\"\\ude80\""), kJSON},
      {replaced(kFla, kFla + ",\"future\":" + nested(1023)), "the document is nested too deeply"},
      {wrongThenMalformed, kJSON},
      {replaced(kVersion, "\"version\":\"4\"," + kVersion), "\"version\" " + kWhole},
  };
  LibraryDecoder decoder;
  for (const Case& c : cases) {
    // A good document first, so a leftover of its bytes in the reused buffer would show.
    ASSERT_TRUE(decoder.decode(kGood).ok());
    const Result<LibraryState> result = decoder.decode(c.bytes);
    ASSERT_FALSE(result.ok()) << c.message;
    EXPECT_EQ(result.error().domain, Error::Domain::decoding);
    EXPECT_EQ(result.error().message, "The library file is damaged: " + c.message + ".");
  }
}

TEST(LibraryCodecTest, ToleratesWhatOtherWritersProduce) {
  // Each document decodes to the full library as changed by `expect` (none: unchanged).
  struct Case {
    std::string bytes;
    void (*expect)(LibraryState&);
  };
  const Case cases[] = {
      // Whole numbers written as doubles; versions are the store's to judge.
      {changed("/version", 1.0), nullptr},
      {replaced(kVersion, "\"version\":1e0000000000000000000000}"), nullptr},
      {replaced(kVersion, "\"version\":1.00000000000000000000001}"), nullptr},
      {changed("/version", -1), [](auto& s) { s.version = -1; }},
      {changed("/preferences/idleHours", 1e3), [](auto& s) { s.preferences.idleHours = 1000; }},
      {changed("/preferences/idleHours", -0.0), [](auto& s) { s.preferences.idleHours = 0; }},
      // Unknown keys, however deep (within the depth limit), and explicit nulls.
      {changed("/tabs/0/futureKey", {{"nested", {1, 2.5, nullptr, "s", true}}}), nullptr},
      {replaced(kFla, kFla + ",\"future\":" + nested(1022)), nullptr},
      {changed("/tabs/0/closedAt", nullptr), [](auto& s) { s.tabs[0].closedAt.reset(); }},
      {changed("/liveUpdatedAt", nullptr), [](auto& s) { s.liveUpdatedAt.reset(); }},
      {changed("/preferences/tabLimit", nullptr), [](auto& s) { s.preferences.tabLimit.reset(); }},
      // Escapes where none are needed, lower-case ids; the last of repeated keys counts,
      // repeated browsers collapse.
      {replaced(kVersion, "\"ver\\u0073ion\":3}"), [](auto& s) { s.version = 3; }},
      {replaced("\"brave\"", "\"s\\u0061fari\""),
       [](auto& s) { s.tabs[0].browser = Browser::safari; }},
      {replaced(kFla, "\"flaURL\":\"\\ud83d\\ude80\""),
       [](auto& s) { s.preferences.flaURL = "🚀"; }},
      {changed("/clients/0/id", "00000000-0000-0000-0000-00000000000a"),
       [](auto& s) { s.clients[0].id.bytes[15] = 10; }},
      {replaced(kVersion, "\"version\":4," + kVersion), nullptr},
      {changed("/preferences/connectedBrowsers", {"edge", "safari", "edge"}), nullptr},
  };
  for (const Case& c : cases) {
    LibraryState expected = fullLibrary(kWhen);
    if (c.expect) c.expect(expected);
    const Result<LibraryState> decoded = decodeLibrary(c.bytes);
    ASSERT_TRUE(decoded.ok()) << c.bytes << ": " << decoded.error().message;
    EXPECT_EQ(*decoded, expected) << c.bytes;
  }
}

TEST(LibraryCodecTest, FileReadFailuresNameTheFile) {
  LibraryDecoder decoder;
  const auto missing = decoder.decodeFile("/nonexistent/library.json");
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error().domain, Error::Domain::file);
  EXPECT_EQ(missing.error().message,
            "Could not read the library file \"/nonexistent/library.json\": No such file or "
            "directory.");
  const auto directory = decoder.decodeFile("/");
  ASSERT_FALSE(directory.ok());
  EXPECT_NE(directory.error().message.find("Is a directory"), std::string::npos);
}

}  // namespace
}  // namespace velto

namespace velto {
namespace {

// The saved tabs of one library, each named by its title; equal names, equal bytes.
std::string libraryOf(const std::vector<std::string>& names, std::string_view compact = "") {
  LibraryState state;
  for (const std::string& name : names) {
    SavedTab& tab = state.tabs.emplace_back();
    tab.title = name;
    tab.url = "https://example.org/" + name;
    tab.state = ArchiveState::closed;
    tab.savedAt = kWhen;
  }
  const std::string pretty = encodeLibrary(state);
  return compact.empty() ? pretty : Json::parse(pretty).dump();
}

std::vector<std::string> names(std::string_view letters) {
  std::vector<std::string> out;
  for (char letter : letters) out.emplace_back(1, letter);
  return out;
}

// Decoding over the previous library with a memo is a plain decoding that keeps, in order,
// every tab whose bytes it saw before.
TEST(LibraryDecoderMemoTest, DecodesAsAPlainDecodingAndKeepsWhatDidNotChange) {
  struct Step {
    std::string what;
    std::string bytes;
    size_t kept;  // tabs taken over unchanged
  };
  const std::vector<Step> steps = {
      {"first", libraryOf(names("abcdefghij")), 0},
      {"unchanged", libraryOf(names("abcdefghij")), 10},
      {"changed in place", libraryOf(names("abCdefghij")), 9},
      {"two changed in a row", libraryOf(names("abCDEfghij")), 8},
      {"inserted first", libraryOf(names("xabCDEfghij")), 10},
      {"inserted inside", libraryOf(names("xabCDyEfghij")), 11},
      {"appended", libraryOf(names("xabCDyEfghijz")), 12},
      {"removed one", libraryOf(names("xabCDEfghijz")), 12},
      {"removed many", libraryOf(names("xaEfghijz")), 9},
      {"removed the last", libraryOf(names("xaEfghij")), 8},
      {"moved", libraryOf(names("xEfghaij")), 7},
      {"repeated", libraryOf(names("xEfEghaij")), 8},
      {"written compactly", libraryOf(names("xEfEghaij"), "compact"), 0},
      {"all new", libraryOf(names("klmnopqrstuvw"), "compact"), 0},
      {"none", libraryOf({}), 0},
      {"back", libraryOf(names("abcdefghij")), 0},
  };
  LibraryDecoder decoder;
  LibraryState state;
  SavedTabMemo memo;
  for (const Step& step : steps) {
    SCOPED_TRACE(step.what);
    const LibraryState before = state;
    ASSERT_TRUE(decoder.decodeInto(step.bytes, state, memo).ok());
    EXPECT_EQ(state, decodeLibrary(step.bytes).value());
    ASSERT_EQ(memo.sources.size(), state.tabs.size());
    size_t kept = 0;
    std::optional<uint32_t> last;
    for (size_t k = 0; k < state.tabs.size(); ++k) {
      const uint32_t origin = memo.sources[k].origin;
      if (origin == SavedTabMemo::kFresh) continue;
      ++kept;
      ASSERT_LT(origin, before.tabs.size());
      EXPECT_EQ(state.tabs[k], before.tabs[origin]);
      EXPECT_TRUE(!last || origin > *last) << "origins out of order at " << k;
      last = origin;
    }
    EXPECT_EQ(kept, step.kept);
  }
}

TEST(LibraryDecoderMemoTest, FailsAsAPlainDecodingAndForgets) {
  LibraryDecoder decoder;
  LibraryState state;
  SavedTabMemo memo;
  const std::string good = libraryOf(names("abcdef"));
  ASSERT_TRUE(decoder.decodeInto(good, state, memo).ok());

  // A wrong value in a changed tab, after tabs taken over unchanged.
  std::string wrong = good;
  wrong.replace(wrong.rfind("\"state\": \"closed\""), 17, "\"state\": \"open\"");
  const auto failed = decoder.decodeInto(wrong, state, memo);
  ASSERT_FALSE(failed.ok());
  EXPECT_EQ(failed.error(), decodeLibrary(wrong).error());
  EXPECT_NE(failed.error().message.find("tabs[5].state"), std::string::npos);
  EXPECT_TRUE(memo.sources.empty());

  // Broken JSON inside a tab whose beginning is as before.
  state = {};
  ASSERT_TRUE(decoder.decodeInto(good, state, memo).ok());
  std::string broken = good;
  broken.insert(broken.find("\"url\""), "\"x\": tru, ");
  const auto malformed = decoder.decodeInto(broken, state, memo);
  ASSERT_FALSE(malformed.ok());
  EXPECT_EQ(malformed.error(), decodeLibrary(broken).error());
  EXPECT_TRUE(memo.sources.empty());

  // "tabs" twice: the last counts, and the memo describes neither.
  state = {};
  ASSERT_TRUE(decoder.decodeInto(good, state, memo).ok());
  Json twice = Json::parse(libraryOf(names("xyz")));
  std::string repeated = twice.dump();
  repeated.insert(1, "\"tabs\": " + Json::parse(good)["tabs"].dump() + ", ");
  ASSERT_TRUE(decoder.decodeInto(repeated, state, memo).ok());
  EXPECT_EQ(state, decodeLibrary(repeated).value());
  EXPECT_NE(memo.sources.size(), state.tabs.size());
}

using LibraryDecoderReadTest = testing::TempDirTest;

// A read finds the unchanged leading part of the last file read already in place; what
// it returns must still be the file as it is now, whatever came between.
TEST_F(LibraryDecoderReadTest, EveryReadHoldsTheFileAsItIsNow) {
  const std::filesystem::path file = root_ / "library.json";
  std::string first(1'100'000, ' ');  // more than four of the pieces a file is read in
  for (size_t i = 0; i < first.size(); ++i) first[i] = static_cast<char>('a' + i * 7919 % 26);
  const auto edited = [&](size_t at) {
    std::string text = first;
    text[at] = '#';
    return text;
  };
  LibraryDecoder decoder;
  std::optional<ContentDigest> firstDigest;
  const auto expectRead = [&](const std::string& content) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
    const Result<std::string_view> bytes = decoder.readFile(file);
    ASSERT_TRUE(bytes.ok());
    EXPECT_TRUE(*bytes == content) << "a read of " << content.size() << " bytes";
    EXPECT_EQ(decoder.lastDigest().size, content.size());
    if (content == first) {
      if (!firstDigest) firstDigest = decoder.lastDigest();
      EXPECT_EQ(decoder.lastDigest(), *firstDigest);
    } else if (firstDigest) {
      EXPECT_NE(decoder.lastDigest(), *firstDigest);
    }
  };
  expectRead(first);
  expectRead(first);
  expectRead(edited(600'000));  // a middle piece differs
  expectRead(first);
  expectRead(edited(0));          // the first piece differs, so all go to the buffer
  expectRead(edited(1'099'999));  // only the last one
  expectRead(first.substr(0, 700'000));
  expectRead(first);
  expectRead(first + std::string(300'000, 'z'));
  expectRead(first + std::string(3'000'000, 'z'));  // beyond the buffer: it moves
  expectRead(first);
  expectRead("");
  expectRead(first);
  // Another document decoded in between, and a read that failed, leave nothing that a
  // read could take for the file's bytes.
  ASSERT_FALSE(decoder.decode(first.substr(0, 1000)).ok());
  expectRead(first);
  std::filesystem::remove(file);
  ASSERT_FALSE(decoder.readFile(file).ok());
  expectRead(first);
}

}  // namespace
}  // namespace velto
