#include "cli/command_support.h"

#include <algorithm>
#include <cmath>

#include "core/model/library_lock.h"
#include "core/support/text.h"

namespace velto {

namespace {

bool isContinuationByte(char ch) { return (static_cast<unsigned char>(ch) & 0xc0) == 0x80; }

size_t codePoints(std::string_view text) {
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char ch) { return !isContinuationByte(ch); }));
}

}  // namespace

std::string cell(std::string_view text, size_t width) {
  std::string clean = sanitizedUTF8(text);
  std::replace_if(
      clean.begin(), clean.end(),
      [](char ch) { return static_cast<unsigned char>(ch) < 0x20 || ch == 0x7f; }, ' ');
  if (codePoints(clean) <= width) return clean;
  size_t cut = 0;
  for (size_t points = 0; cut < clean.size(); ++cut) {
    if (!isContinuationByte(clean[cut]) && points++ == width - 1) break;
  }
  return clean.substr(0, cut) + "\u2026";
}

// Built by appends: g++ 12 warns falsely about a literal joined to a temporary string.
std::string inQuotes(std::string_view text) {
  std::string out = "\"";
  out += cell(text);
  out += '"';
  return out;
}

std::string duration(double seconds) {
  const auto whole = static_cast<int64_t>(std::max(0.0, std::floor(seconds)));
  const auto unit = [](int64_t n, std::string_view name) {
    return std::to_string(n) + " " + std::string(name) + (n == 1 ? "" : "s");
  };
  if (whole < 60) return unit(whole, "second");
  if (whole < 3600) return unit(whole / 60, "minute");
  if (whole < 86400) return unit(whole / 3600, "hour");
  return unit(whole / 86400, "day");
}

void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows,
                std::string_view indent) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], codePoints(row[i]));
  }
  for (const auto& row : rows) {
    out << indent;
    for (size_t i = 0; i < row.size(); ++i) {
      out << row[i];
      if (i + 1 < row.size()) out << std::string(widths[i] - codePoints(row[i]) + 2, ' ');
    }
    out << '\n';
  }
}

// Messages may quote a path or a library's key, which can hold a line break.
int fail(CommandContext& c, int status, std::string_view message) {
  c.err << "velto: " << cell(message, std::string_view::npos) << '\n';
  return status;
}

// `command` is the command's words after "velto" ("clients add"), or empty.
int usage(CommandContext& c, std::string_view message, std::string_view command) {
  const std::string words = command.empty() ? "" : std::string(command) + " ";
  return fail(c, kExitUsage, std::string(message) + " (see \"velto " + words + "--help\")");
}

void warn(CommandContext& c, std::string_view message) {
  c.err << "velto: warning: " << message << '\n';
}

int help(CommandContext& c, std::string_view text) {
  c.out << text;
  return kExitSuccess;
}

bool Arguments::has(std::string_view flag) const {
  return std::find(flags.begin(), flags.end(), flag) != flags.end();
}

std::optional<std::string> Arguments::value(std::string_view option) const {
  std::optional<std::string> found;
  for (const auto& [name, text] : values) {
    if (name == option) found = text;
  }
  return found;
}

Arguments parse(CommandContext& c, Args args, const CommandSpec& spec) {
  Arguments parsed;
  bool optionsEnded = false;
  std::string unknown;
  const auto valued = [&](std::string_view name) {
    return std::find(spec.valued.begin(), spec.valued.end(), name) != spec.valued.end();
  };
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    const size_t equals = arg.find('=');
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      parsed.positional.push_back(arg);
    } else if (valued(arg)) {
      if (i + 1 == args.size()) {
        parsed.exit = usage(c, "give " + arg + " a value", spec.name);
        return parsed;
      }
      parsed.values.emplace_back(arg, args[++i]);
    } else if (equals != std::string::npos && valued(std::string_view(arg).substr(0, equals))) {
      parsed.values.emplace_back(arg.substr(0, equals), arg.substr(equals + 1));
    } else if (arg == "--") {
      optionsEnded = true;
    } else if (arg == "--help" || arg == "-h") {
      parsed.exit = help(c, spec.help);
      return parsed;
    } else if (std::find(spec.flags.begin(), spec.flags.end(), arg) != spec.flags.end()) {
      parsed.flags.push_back(arg);
    } else if (unknown.empty()) {
      unknown = arg;
    }
  }
  if (!unknown.empty()) {
    parsed.exit = usage(c, std::string("unknown option ") + cell(unknown), spec.name);
  } else if (parsed.positional.size() != spec.positional) {
    parsed.exit = usage(c, spec.misuse, spec.name);
  }
  return parsed;
}

std::optional<LibraryStore> libraryStore(CommandContext& c) {
  Result<LibraryStore> store = LibraryStore::atDefaultLocation(c.env);
  if (!store.ok()) {
    fail(c, kExitFailure, store.error().message);
    return std::nullopt;
  }
  return std::move(*store);
}

std::optional<Library> openLibrary(CommandContext& c) {
  std::optional<LibraryStore> store = libraryStore(c);
  if (!store) return std::nullopt;
  Result<LibraryState> state = store->load();
  if (!state.ok()) {
    fail(c, kExitFailure, state.error().message);
    return std::nullopt;
  }
  return Library{std::move(*store), std::move(*state)};
}

int changeLibrary(CommandContext& c, const LibraryStore& store,
                  const std::function<bool(LibraryState&)>& change) {
  if (const Result<void> changed = updateLibrary(store, change); !changed.ok()) {
    return fail(c, kExitFailure, changed.error().message);
  }
  return kExitSuccess;
}

}  // namespace velto
