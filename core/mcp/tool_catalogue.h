#pragma once

#include <nlohmann/json.hpp>

namespace velto {

// The three tools the server offers, in their fixed order: "list_tabs",
// "search_closed_tabs", "reopen_tab". The same list for every client, whatever it may do:
// a read-only client still sees "reopen_tab" and is refused when it calls it. Each entry
// has exactly "name", "description", "inputSchema" (an object schema that allows no other
// properties) and "annotations" (the four behaviour hints). The schemas tell the client
// what the tool-call checks enforce; they are not used to check anything here.
nlohmann::json toolDefinitions();

}  // namespace velto
