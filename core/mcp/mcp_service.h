#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/mcp/tool_calls.h"
#include "core/model/library_reader.h"
#include "core/model/library_store.h"
#include "core/support/date.h"
#include "core/support/diagnostics.h"

namespace velto {

// Answers the JSON-RPC 2.0 messages of one MCP connection, one at a time: checks the
// envelope, authorizes the client, keeps the two-step handshake and runs the tools.
//
// Every request (a message with an "id", even null) gets exactly one response line; a
// notification gets none, unless its envelope is invalid. Checks run in a fixed order:
// JSON, envelope, notification, "ping", library load, client, "initialize", handshake,
// method. The library is read afresh through the store for every request after "ping"
// and is never written; only the session state survives between requests. A failed
// library load is answered as a tool-style error result, not a JSON-RPC error.
//
// Responses are compact, with sorted keys, non-ASCII as UTF-8 and "/" unescaped, except
// inside a tool result's text, where every "/" is written "\/".
//
// A refused client and a library that does not load are also told to `diagnostics`, once
// per request, naming the check that failed or the file and why; the answers are the
// same with or without it, and nothing is told about a request that succeeds.
//
// Not thread-safe: one caller, one request at a time.
class MCPService {
 public:
  using Clock = std::function<Date()>;

  // The handshake: "initialize" accepted, then the "notifications/initialized" notification.
  // A refused request never moves the session.
  enum class Session { fresh, initialized, ready };

  // `clientID` and `token` are taken as given (empty when unset); they are checked on
  // every request. `clock` gives the time the open-tab snapshot's age is measured at.
  // `reader` may be shared by services that are used one after another on one thread
  // (a fuzzer's many short sessions), so that they reuse one decoding of unchanged bytes.
  MCPService(LibraryStore store, std::string clientID, std::string token, ToolCalls::Opener opener,
             Clock clock = now, Diagnostics diagnostics = {},
             std::shared_ptr<LibraryReader> reader = std::make_shared<LibraryReader>());

  // The response to one message (the bytes of one line, without its line end), without a
  // line end; absent when nothing must be sent back.
  std::optional<std::string> respond(std::string_view message);

  Session session() const { return session_; }

 private:
  struct Reply;

  Reply dispatch(const std::string& method, const nlohmann::json& params);
  Reply callTool(const nlohmann::json& params, const PreparedLibrary& library,
                 const ClientGrant& grant);

  LibraryStore store_;
  std::string clientID_;
  std::string token_;
  ToolCalls::Opener opener_;
  Clock clock_;
  Diagnostics diagnostics_;
  Session session_ = Session::fresh;
  // Every request that needs the library reads the file whole through it; only the
  // decoding of bytes already decoded is reused, which no answer can tell apart.
  std::shared_ptr<LibraryReader> reader_;
};

}  // namespace velto
