// VeltoMCP driven by the official MCP TypeScript SDK client over stdio, on the library of
// server/testing/library.json. Usage: node interop_test.mjs /absolute/path/to/VeltoMCP
// Exit status: 0 passed, 1 failed, 77 skipped (the SDK is missing: run `npm ci` here).

import assert from "node:assert/strict";
import { chmodSync, existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

let Client, StdioClientTransport;
try {
  ({ Client } = await import("@modelcontextprotocol/sdk/client/index.js"));
  ({ StdioClientTransport } = await import("@modelcontextprotocol/sdk/client/stdio.js"));
} catch {
  console.error("interop: @modelcontextprotocol/sdk is not installed; run `npm ci` in server/interop");
  process.exit(77);
}

const server = process.argv[2];
const home = mkdtempSync(join(tmpdir(), "velto-interop-"));
const observedAt = new Date().toISOString().replace(/\.\d+Z$/, "Z");
const library = readFileSync(new URL("../testing/library.json", import.meta.url), "utf8");
mkdirSync(join(home, "data", "Velto"), { recursive: true });
writeFileSync(join(home, "data", "Velto", "library.json"), library.replace("$LIVE_UPDATED_AT", observedAt));
// A fake Chrome that records the arguments it is started with.
const recorded = join(home, "chrome-arguments.txt");
mkdirSync(join(home, "bin"));
writeFileSync(join(home, "bin", "google-chrome-stable"),
              `#!/bin/sh\nprintf '%s\\n' "$@" > "${recorded}.tmp" && mv "${recorded}.tmp" "${recorded}"\n`);
chmodSync(join(home, "bin", "google-chrome-stable"), 0o755);

async function connect(id, token) {
  const transport = new StdioClientTransport({
    command: server, args: [], cwd: "/", stderr: "pipe",
    env: { HOME: home, XDG_DATA_HOME: join(home, "data"), PATH: `${join(home, "bin")}:/usr/bin:/bin`,
           VELTO_CLIENT_ID: id, VELTO_CLIENT_TOKEN: token },
  });
  const client = new Client({ name: "velto-interop", version: "1.0.0" });
  await client.connect(transport);
  return client;
}

// A result's text is its structured object again.
function structured(result) {
  assert.equal(result.isError, false);
  assert.deepEqual(JSON.parse(result.content[0].text), result.structuredContent);
  return result.structuredContent;
}

try {
  const opener = await connect("C0FFEE00-0000-4000-8000-000000000001", "1".repeat(64));
  assert.equal(opener.getServerVersion().name, "velto");
  assert.match(opener.getInstructions(), /untrusted website data/);
  await opener.ping();
  const { tools } = await opener.listTools();
  assert.deepEqual(tools.map((t) => t.name), ["list_tabs", "search_closed_tabs", "reopen_tab"]);

  const listed = structured(await opener.callTool({ name: "list_tabs", arguments: { browser: "safari" } }));
  assert.deepEqual(listed, { observedAt, total: 1, tabs: [
    { id: "safari:2:1", title: "Maps", url: "https://maps.example/?q=caf%C3%A9", browser: "safari", isActive: false }] });

  const found = await opener.callTool({ name: "search_closed_tabs", arguments: { query: "CREME safari", limit: 5 } });
  assert.deepEqual(structured(found), { total: 1, tabs: [{ id: "5A7ED000-0000-4000-8000-000000000002",
    title: "Crème brûlée recipe", url: "https://cooking.example/creme-brulee", browser: "safari",
    closedAt: "2026-01-11T08:00:00Z" }] });
  assert.match(found.content[0].text, /https:\\\/\\\/cooking\.example\\\/creme-brulee/);

  // A saved (not yet closed) tab, named in lower case.
  const reopened = await opener.callTool({ name: "reopen_tab", arguments: { id: "5a7ed000-0000-4000-8000-000000000003" } });
  assert.deepEqual(structured(reopened), { opened: true });
  for (let i = 0; i < 200 && !existsSync(recorded); i++) await new Promise((r) => setTimeout(r, 25));
  assert.equal(readFileSync(recorded, "utf8"), "https://read.example/later\n");

  // A tool error is a result; an argument error is a JSON-RPC error.
  const missing = await opener.callTool({ name: "reopen_tab", arguments: { id: "5A7ED000-0000-4000-8000-000000000004" } });
  assert.deepEqual(missing, { content: [{ type: "text", text: "Tab not found or excluded." }], isError: true });
  await assert.rejects(opener.callTool({ name: "list_tabs", arguments: { limit: 0 } }),
                       (error) => error.code === -32602 && /Invalid arguments/.test(error.message));
  await opener.close();

  await assert.rejects(connect("C0FFEE00-0000-4000-8000-000000000002", "1".repeat(64)),
                       (error) => error.code === -32001 && /Connection not allowed/.test(error.message));
  console.log("interop: passed");
} catch (error) {
  console.error("interop: FAILED:", error);
  process.exitCode = 1;
} finally {
  rmSync(home, { recursive: true, force: true });
  process.exit(process.exitCode ?? 0);  // a failure may leave a server connected
}
