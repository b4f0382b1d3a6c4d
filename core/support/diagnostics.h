#pragma once

#include <functional>
#include <string_view>

namespace velto {

// Receives what a component wants its operator to know: one sentence, without a line
// end, that never holds a secret (a token or its hash). Where it goes is the caller's
// choice (VeltoMCP: one line on stderr); an empty sink discards everything.
using Diagnostics = std::function<void(std::string_view message)>;

}  // namespace velto
