#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "core/model/prepared_library.h"
#include "core/model/records.h"
#include "core/support/date.h"
#include "core/support/result.h"
#include "core/support/uuid.h"

namespace velto {

// The three tools, as typed handlers. Each tool has an arguments record, a decoder from
// the call's "arguments" object, and a handler that runs over the library loaded for
// this request. Nothing here knows about JSON-RPC envelopes or sessions.
//
// A decoder's Error carries the sentence of the "invalid params" error the client gets;
// a handler's Error carries the sentence of a tool result marked as an error (stale
// data, no permission, tab gone, the browser's own failure).
namespace ToolCalls {

// Reopens a saved tab in its browser; the Error's message is shown to the client as is.
using Opener = std::function<Result<void>(const SavedTab&)>;

// The tool's structured result (an object), or the message of a tool error.
using ToolResult = Result<nlohmann::json>;

inline constexpr int64_t kDefaultLimit = 50;
// An open-tab snapshot older than this (or dated in the future) is not listed.
inline constexpr double kSnapshotFreshSeconds = 120;
inline constexpr size_t kMaxQueryCharacters = 500;

struct ListTabsArguments {
  std::optional<Browser> browser;
  int64_t limit = kDefaultLimit;
};

struct SearchClosedTabsArguments {
  std::string query;
  std::optional<Date> since;
  int64_t limit = kDefaultLimit;
};

struct ReopenTabArguments {
  Uuid id;
};

// `arguments` is the call's "arguments" when it is an object, else an empty object.
// A "limit" must be a number (not a boolean) with no fractional part between 1 and 100;
// 5.0 counts as 5. Character counts are of user-perceived characters.
Result<ListTabsArguments> decodeListTabs(const nlohmann::json& arguments);
Result<SearchClosedTabsArguments> decodeSearchClosedTabs(const nlohmann::json& arguments);
Result<ReopenTabArguments> decodeReopenTab(const nlohmann::json& arguments);

// {"tabs": [...], "total": n, "observedAt": date}: the live tabs, in library order, that
// are not excluded, belong to a connected browser and match the browser asked for;
// "total" counts them before the limit. A tool error when the snapshot is stale at `now`.
ToolResult listTabs(const ListTabsArguments& arguments, const PreparedLibrary& library, Date now);

// {"tabs": [...], "total": n}: the closed, not excluded tabs active at or after "since"
// that match the query, newest activity first (ties in library order).
ToolResult searchClosedTabs(const SearchClosedTabsArguments& arguments,
                            const PreparedLibrary& library);

// {"opened": true} once `open` has reopened the tab. Refused for a grant without
// allowReopen before the library is even looked at; a pendingClose or excluded tab counts
// as not found. Never changes the library.
ToolResult reopenTab(const ReopenTabArguments& arguments, const PreparedLibrary& library,
                     const ClientGrant& grant, const Opener& open);

}  // namespace ToolCalls

}  // namespace velto
