# mcp_bench drives the real VeltoMCP over its stdin and stdout.
target_link_libraries(mcp_bench PRIVATE velto_bench_support simdjson::simdjson)
target_compile_definitions(mcp_bench PRIVATE VELTO_MCP_BINARY="$<TARGET_FILE:VeltoMCP>")
add_dependencies(mcp_bench VeltoMCP)
