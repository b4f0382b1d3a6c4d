#pragma once

// What the command groups share: argument parsing, failure reporting, table and cell
// formatting, and opening the library.

#include <functional>
#include <initializer_list>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/commands.h"
#include "core/model/library_store.h"

namespace velto {

using Args = std::span<const std::string>;

inline constexpr size_t kTitleColumn = 40;
inline constexpr size_t kURLColumn = 200;

// ---- text

// Text for one table cell or message: valid UTF-8, control characters as spaces, at most
// `width` code points, the last one an ellipsis when the text was cut.
std::string cell(std::string_view text, size_t width = kTitleColumn);

// `text` as a cell between double quotes.
std::string inQuotes(std::string_view text);

// "45 seconds", "1 minute", "3 hours", "12 days": whole units, rounded down.
std::string duration(double seconds);

// Rows as columns separated by two spaces; the last column is not padded.
void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows,
                std::string_view indent = "");

// ---- outcomes

// Reports `message` as one line on `err` and returns `status`.
int fail(CommandContext& c, int status, std::string_view message);

// A usage failure pointing at the help of `command` (the words after "velto", or empty).
int usage(CommandContext& c, std::string_view message, std::string_view command);

void warn(CommandContext& c, std::string_view message);

// Prints `text` on `out` and succeeds.
int help(CommandContext& c, std::string_view text);

// ---- arguments

// What one command accepts.
struct CommandSpec {
  std::string_view name;  // its words after "velto", e.g. "clients add"
  std::string_view help;
  size_t positional;        // how many words it takes besides options
  std::string_view misuse;  // said when that number is wrong
  std::initializer_list<std::string_view> flags = {};
  // Options that take a value, as "--name VALUE" or "--name=VALUE".
  std::initializer_list<std::string_view> valued = {};
};

// A command's arguments. `exit` is set when the command is already done: --help (given
// anywhere) printed its help, or the arguments were wrong and that was reported. "--"
// ends the options.
struct Arguments {
  std::vector<std::string> positional;
  std::vector<std::string> flags;
  std::vector<std::pair<std::string, std::string>> values;  // the last one given counts
  std::optional<int> exit;

  bool has(std::string_view flag) const;
  std::optional<std::string> value(std::string_view option) const;
};

Arguments parse(CommandContext& c, Args args, const CommandSpec& spec);

// ---- the library

struct Library {
  LibraryStore store;
  LibraryState state;
};

// The store of the library at its default location, or absent after reporting why there
// is none.
std::optional<LibraryStore> libraryStore(CommandContext& c);

// The library as stored now, or absent after reporting why it cannot be had.
std::optional<Library> openLibrary(CommandContext& c);

// Changes the library under the writers' lock (updateLibrary): reloads it, lets `change`
// edit it and saves it, unless `change` returns false. kExitSuccess, or kExitFailure
// after reporting why; a library that cannot be read is never overwritten.
int changeLibrary(CommandContext& c, const LibraryStore& store,
                  const std::function<bool(LibraryState&)>& change);

// ---- the command groups, each in its own file

int browsersCommand(CommandContext& c, Args args);
int clientsCommand(CommandContext& c, Args args);
int statusCommand(CommandContext& c, Args args);
int suggestCommand(CommandContext& c, Args args);
int watchCommand(CommandContext& c, Args args);

}  // namespace velto
