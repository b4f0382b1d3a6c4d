// VeltoMCP against the official MCP TypeScript SDK client over stdio: connect, list the
// tools, call each one, and check what a real client sees.
// Usage: node interop_test.mjs /absolute/path/to/VeltoMCP
// Exit status: 0 passed, 1 failed, 77 skipped (the SDK is not installed: run `npm ci` here).

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
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
assert.ok(server && existsSync(server), `usage: node interop_test.mjs /path/to/VeltoMCP (got ${server})`);

const opener = { id: "C0FFEE00-0000-4000-8000-000000000001", token: "1".repeat(64) };
const reader = { id: "C0FFEE00-0000-4000-8000-000000000002", token: "2".repeat(64) };
const sha256 = (text) => createHash("sha256").update(text, "utf8").digest("hex");
const isoSeconds = (date) => date.toISOString().replace(/\.\d{3}Z$/, "Z");

const home = mkdtempSync(join(tmpdir(), "velto-interop-"));
const now = new Date();
const library = {
  version: 1,
  liveUpdatedAt: isoSeconds(now),
  liveTabs: [
    { id: "chrome:1:2", browser: "chrome", windowID: 1, index: 2, title: "Docs", url: "https://docs.example/a/b",
      isActive: true, pinState: "unknown", lastActiveAt: isoSeconds(now), observedAt: isoSeconds(now) },
    { id: "edge:4:1", browser: "edge", windowID: 4, index: 1, title: "Not connected", url: "https://edge.example/",
      isActive: false, pinState: "unknown", lastActiveAt: isoSeconds(now), observedAt: isoSeconds(now) },
  ],
  tabs: [
    { id: "5A7ED000-0000-4000-8000-000000000001", title: "velto/core pull request", browser: "chrome",
      url: "https://github.com/velto/core/pull/42", savedAt: "2026-01-10T08:00:00Z",
      closedAt: "2026-01-12T09:00:00Z", state: "closed", isFavorite: false },
    { id: "5A7ED000-0000-4000-8000-000000000002", title: "Crème brûlée", browser: "safari",
      url: "https://cooking.example/creme", savedAt: "2026-01-11T08:00:00Z", state: "closed", isFavorite: true },
  ],
  preferences: { idleHours: 24, autoClose: false, connectedBrowsers: ["chrome", "safari"],
                 exclusions: ["bank.example"], flaURL: "" },
  clients: [
    { id: opener.id, name: "Opener", tokenHash: sha256(opener.token), allowReopen: true, createdAt: "2026-01-01T00:00:00Z" },
    { id: reader.id, name: "Reader", tokenHash: sha256(reader.token), allowReopen: false, createdAt: "2026-01-01T00:00:00Z" },
  ],
};
mkdirSync(join(home, "data", "Velto"), { recursive: true, mode: 0o700 });
writeFileSync(join(home, "data", "Velto", "library.json"), JSON.stringify(library, null, 2), { mode: 0o600 });

// A fake Chrome that records the arguments it was started with.
const bin = join(home, "bin");
const recorded = join(home, "chrome-arguments.txt");
mkdirSync(bin);
writeFileSync(join(bin, "google-chrome-stable"),
              `#!/bin/sh\nprintf '%s\\n' "$@" > "${recorded}.tmp" && mv "${recorded}.tmp" "${recorded}"\n`);
chmodSync(join(bin, "google-chrome-stable"), 0o755);

async function connect(client) {
  const transport = new StdioClientTransport({
    command: server,
    args: [],
    cwd: "/",
    stderr: "pipe",
    env: { HOME: home, XDG_DATA_HOME: join(home, "data"), PATH: `${bin}:/usr/bin:/bin`,
           VELTO_CLIENT_ID: client.id, VELTO_CLIENT_TOKEN: client.token },
  });
  let stderr = "";
  transport.stderr?.on("data", (chunk) => { stderr += chunk; });
  const mcp = new Client({ name: "velto-interop", version: "1.0.0" });
  await mcp.connect(transport);
  return { mcp, stderr: () => stderr };
}

async function waitForFile(path) {
  for (let i = 0; i < 200 && !existsSync(path); i++) await new Promise((r) => setTimeout(r, 25));
  return readFileSync(path, "utf8");
}

// The text of a result is its structured object again, slashes escaped.
function checkText(result) {
  assert.equal(result.content.length, 1);
  assert.equal(result.content[0].type, "text");
  assert.deepEqual(JSON.parse(result.content[0].text), result.structuredContent);
}

try {
  const { mcp, stderr } = await connect(opener);
  assert.equal(mcp.getServerVersion().name, "velto");
  assert.match(mcp.getInstructions(), /untrusted website data/);
  await mcp.ping();

  const { tools } = await mcp.listTools();
  assert.deepEqual(tools.map((t) => t.name), ["list_tabs", "search_closed_tabs", "reopen_tab"]);
  assert.ok(tools.every((t) => t.inputSchema.type === "object"));

  const listed = await mcp.callTool({ name: "list_tabs", arguments: {} });
  assert.equal(listed.isError, false);
  checkText(listed);
  assert.deepEqual(listed.structuredContent, {
    tabs: [{ id: "chrome:1:2", title: "Docs", url: "https://docs.example/a/b", browser: "chrome", isActive: true }],
    total: 1, observedAt: isoSeconds(now) });

  const found = await mcp.callTool({ name: "search_closed_tabs", arguments: { query: "CREME safari", limit: 5 } });
  checkText(found);
  assert.deepEqual(found.structuredContent, { total: 1, tabs: [{
    id: "5A7ED000-0000-4000-8000-000000000002", title: "Crème brûlée", url: "https://cooking.example/creme",
    browser: "safari", closedAt: "2026-01-11T08:00:00Z" }] });
  assert.match(found.content[0].text, /https:\\\/\\\/cooking\.example\\\/creme/);

  const reopened = await mcp.callTool({ name: "reopen_tab", arguments: { id: "5a7ed000-0000-4000-8000-000000000001" } });
  checkText(reopened);
  assert.deepEqual(reopened.structuredContent, { opened: true });
  assert.equal(await waitForFile(recorded), "https://github.com/velto/core/pull/42\n");

  await assert.rejects(mcp.callTool({ name: "list_tabs", arguments: { limit: 0 } }),
                       (error) => error.code === -32602 && /Invalid arguments/.test(error.message));
  await assert.rejects(mcp.callTool({ name: "no_such_tool", arguments: {} }),
                       (error) => error.code === -32602 && /Unknown tool/.test(error.message));
  await mcp.close();
  assert.equal(stderr(), "");

  const readOnly = (await connect(reader)).mcp;
  const refused = await readOnly.callTool({ name: "reopen_tab", arguments: { id: "5A7ED000-0000-4000-8000-000000000001" } });
  assert.equal(refused.isError, true);
  assert.equal(refused.content[0].text, "This connection is read-only. Enable reopening for this client in Velto.");
  assert.equal(refused.structuredContent, undefined);
  await readOnly.close();

  await assert.rejects(connect({ id: reader.id, token: opener.token }),
                       (error) => error.code === -32001 && /Connection not allowed/.test(error.message));
  console.log("interop: passed");
} catch (error) {
  console.error("interop: FAILED:", error);
  process.exitCode = 1;
} finally {
  rmSync(home, { recursive: true, force: true });
  // A failure may leave a server connected; do not wait for it.
  process.exit(process.exitCode ?? 0);
}
