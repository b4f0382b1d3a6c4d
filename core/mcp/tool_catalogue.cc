#include "core/mcp/tool_catalogue.h"

#include "core/model/browser.h"

namespace velto {

namespace {

using nlohmann::json;

json limitSchema() { return {{"type", "integer"}, {"minimum", 1}, {"maximum", 100}}; }

json objectSchema(json properties, json required) {
  return {{"type", "object"},
          {"properties", std::move(properties)},
          {"required", std::move(required)},
          {"additionalProperties", false}};
}

json hints(bool readOnly, bool idempotent, bool openWorld) {
  return {{"readOnlyHint", readOnly},
          {"destructiveHint", false},
          {"idempotentHint", idempotent},
          {"openWorldHint", openWorld}};
}

json tool(const char* name, const char* description, json inputSchema, json annotations) {
  return {{"name", name},
          {"description", description},
          {"inputSchema", std::move(inputSchema)},
          {"annotations", std::move(annotations)}};
}

}  // namespace

json toolDefinitions() {
  json browsers = json::array();
  for (Browser browser : kAllBrowsers) browsers.push_back(rawValue(browser));

  return json::array({
      tool("list_tabs",
           "List recently observed open tabs across connected browsers. Excluded sites are "
           "omitted. Requires Velto running.",
           objectSchema({{"browser", {{"type", "string"}, {"enum", std::move(browsers)}}},
                         {"limit", limitSchema()}},
                        json::array()),
           hints(true, true, false)),
      tool("search_closed_tabs",
           "Search tabs Velto saved and confirmed closed by title or URL. Results are local "
           "metadata, not page contents.",
           objectSchema({{"query", {{"type", "string"}, {"maxLength", 500}}},
                         {"limit", limitSchema()},
                         {"since", {{"type", "string"}, {"format", "date-time"}}}},
                        json::array({"query"})),
           hints(true, true, false)),
      tool("reopen_tab",
           "Reopen one saved tab in its original browser. Requires explicit per-client reopen "
           "permission. Only use when requested by the user.",
           objectSchema({{"id", {{"type", "string"}, {"format", "uuid"}}}}, json::array({"id"})),
           hints(false, false, true)),
  });
}

}  // namespace velto
