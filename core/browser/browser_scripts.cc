#include "core/browser/browser_scripts.h"

#include <initializer_list>

namespace velto::BrowserScripts {

namespace {

// Assembles a script line by line: lines are separated by one line feed with none after
// the last, and a line that is only indentation keeps its spaces so that both families
// produce the same number of lines.
class ScriptText {
 public:
  void line(int indent, std::string_view text = {}) {
    if (started_) text_ += '\n';
    started_ = true;
    text_.append(static_cast<size_t>(indent), ' ');
    text_ += text;
  }
  std::string take() { return std::move(text_); }

 private:
  std::string text_;
  bool started_ = false;
};

std::string concat(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (std::string_view part : parts) text += part;
  return text;
}

}  // namespace

std::string quoted(std::string_view text) {
  std::string literal = "\"";
  literal.reserve(text.size() + 2);
  for (char c : text) {
    switch (c) {
      case '\\':
        literal += "\\\\";
        break;
      case '"':
        literal += "\\\"";
        break;
      case '\r':
        literal += "\\r";
        break;
      case '\n':
        literal += "\\n";
        break;
      default:
        literal += c;
    }
  }
  literal += '"';
  return literal;
}

std::string snapshotScript(Browser browser) {
  const bool safari = isSafariFamily(browser);
  ScriptText s;
  s.line(0, "with timeout of 12 seconds");
  s.line(4, concat({"tell application id \"", bundleID(browser), "\""}));
  s.line(8, "set rows to {}");
  s.line(8, "repeat with w in windows");
  // The Chromium window filter opens a block whose body is deliberately not indented
  // further, so that Safari (which has no filter) can share every other line.
  s.line(12, safari ? "" : "if mode of w is \"normal\" then");
  s.line(12, "set wi to (id of w) as text");
  s.line(12, safari ? "" : "set selectedIndex to active tab index of w");
  s.line(12, "set n to count of tabs of w");
  s.line(12, "repeat with ti from 1 to n");
  s.line(16, "try");
  s.line(20, "set t to tab ti of w");
  s.line(20, "set tu to URL of t");
  s.line(20, safari ? "set tn to name of t" : "set tn to title of t");
  s.line(20, safari ? "set ta to visible of t" : "set ta to (ti is selectedIndex)");
  s.line(20, safari ? "set tid to ti as text" : "set tid to (id of t) as text");
  s.line(20, "if tu is not missing value then set end of rows to {wi, tid, ti, tn, tu, ta}");
  s.line(16, "end try");
  // Bounds the size of the reply; checked after every tab, kept or not.
  s.line(16, "if (count of rows) \u2265 1000 then return rows");
  s.line(12, "end repeat");
  s.line(12, safari ? "" : "end if");
  s.line(8, "end repeat");
  s.line(8, "return rows");
  s.line(4, "end tell");
  s.line(0, "end timeout");
  return s.take();
}

std::string closeScript(const LiveTab& tab, bool automatic, int64_t protectedTabs) {
  const bool safari = isSafariFamily(tab.browser);
  const std::string url = BrowserScripts::quoted(tab.url);
  ScriptText s;
  s.line(0, "with timeout of 10 seconds");
  s.line(4, concat({"tell application id \"", bundleID(tab.browser), "\""}));
  s.line(8, "if not running then return false");
  s.line(8, "repeat with w in windows");
  // The snapshot delivered the window id as text, so it is matched as text.
  s.line(12, concat({"if (id of w) as text is ",
                     BrowserScripts::quoted(std::to_string(tab.windowID)), " then"}));
  s.line(16, safari ? "" : "if mode of w is not \"normal\" then return false");
  // A Safari tab has no id and is found by position, which is only trustworthy when
  // exactly one tab of the window shows the URL. The block is built without indentation.
  s.line(16, safari ? concat({"set matches to 0\n"
                              "repeat with t in tabs of w\n"
                              "if URL of t is ",
                              url,
                              " then set matches to matches + 1\n"
                              "end repeat\n"
                              "if matches is not 1 then return false"})
                    : "");
  s.line(16, "repeat with ti from 1 to count of tabs of w");
  s.line(20, "set t to tab ti of w");
  s.line(20, safari ? concat({"if ti is ", std::to_string(tab.index), " then"})
                    : concat({"if (id of t) as text is ",
                              BrowserScripts::quoted(tab.tabID.value_or("")), " then"}));
  s.line(24, concat({"if URL of t is not ", url, " then return false"}));
  if (automatic) {
    s.line(24, safari ? "if visible of t then return false"
                      : "if active tab index of w is ti then return false");
    const int64_t protectedCount = protectedTabs < 0 ? 0 : protectedTabs;
    s.line(24, concat({"if ti \u2264 ", std::to_string(protectedCount), " then return false"}));
  } else {
    s.line(24);
    s.line(24);
  }
  s.line(24, "close t");
  s.line(24, "return true");
  s.line(20, "end if");
  s.line(16, "end repeat");
  s.line(12, "end if");
  s.line(8, "end repeat");
  s.line(8, "return false");
  s.line(4, "end tell");
  s.line(0, "end timeout");
  return s.take();
}

}  // namespace velto::BrowserScripts
