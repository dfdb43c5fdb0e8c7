// Drives `pulsebar --mcp` with the official MCP TypeScript SDK: its stdio client transport starts the
// server, its client initializes and lists the tools, and every answer is checked against the SDK's own
// result schemas. Usage: node client.test.mjs /path/to/pulsebar
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";
import { CallToolResultSchema, ListToolsResultSchema } from "@modelcontextprotocol/sdk/types.js";
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdtempSync, mkdirSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

const binary = process.argv[2];
assert.ok(binary, "usage: node client.test.mjs PULSEBAR");

const home = mkdtempSync(join(tmpdir(), "pulsebar-sdk-"));
const dataHome = join(home, "data");

// A history file as the tray application leaves it: the last 20 minutes of cpu_user, one row a minute,
// in the per-second tier and rolled up into the per-minute tier.
function writeHistory() {
  const folder = join(dataHome, "Pulsebar");
  mkdirSync(folder, { recursive: true });
  const columns = ["cpu_user", "cpu_system", "gpu", "mem_pressure", "mem_used", "disk_read", "disk_write",
    "net_down", "net_up", "temperature", "fan", "battery", "power"];
  const now = Math.floor(Date.now() / 1000);
  let sql = "";
  for (const table of ["raw", "m1", "m15"])
    sql += `CREATE TABLE ${table} (ts INTEGER PRIMARY KEY, ${columns.map((c) => c + " REAL").join(", ")});\n`;
  for (let i = 20; i >= 1; --i) {
    sql += `INSERT INTO raw (ts, cpu_user) VALUES (${now - i * 60}, ${i});\n`;
    sql += `INSERT INTO m1 (ts, cpu_user) VALUES (${Math.floor((now - i * 60) / 60) * 60}, ${i});\n`;
  }
  execFileSync("sqlite3", [join(folder, "history.sqlite")], { input: sql });
}

const failures = [];
async function check(name, body) {
  try {
    await body();
    console.log(`ok   ${name}`);
  } catch (error) {
    failures.push(name);
    console.log(`FAIL ${name}\n${error.stack ?? error}`);
  }
}

writeHistory();
// The server samples the network as the app does; its ping and public-address request stay local.
mkdirSync(join(home, "config", "pulsebar"), { recursive: true });
writeFileSync(join(home, "config", "pulsebar", "preferences.json"),
  JSON.stringify({ "PulsebarConfig.v1": { pingHost: "127.0.0.1" } }));
const transport = new StdioClientTransport({
  command: binary,
  args: ["--mcp"],
  env: {
    HOME: home,
    XDG_CONFIG_HOME: join(home, "config"),
    XDG_DATA_HOME: dataHome,
    PATH: process.env.PATH ?? "/usr/bin:/bin",
    PULSEBAR_IPIFY_URL: "http://127.0.0.1:9/",
    PULSEBAR_OPEN_METEO_URL: "http://127.0.0.1:9/",
    PULSEBAR_GEOCODING_URL: "http://127.0.0.1:9/",
    PULSEBAR_IPAPI_URL: "http://127.0.0.1:9/",
    ...(process.env.ASAN_OPTIONS ? { ASAN_OPTIONS: process.env.ASAN_OPTIONS } : {}),
    ...(process.env.LSAN_OPTIONS ? { LSAN_OPTIONS: process.env.LSAN_OPTIONS } : {}),
  },
  stderr: "pipe",
});
let stderr = "";
transport.stderr.on("data", (chunk) => (stderr += chunk));

const client = new Client({ name: "pulsebar-sdk-test", version: "1.0.0" });
await client.connect(transport);

async function call(name, args) {
  const result = await client.callTool({ name, arguments: args }, CallToolResultSchema);
  CallToolResultSchema.parse(result);
  assert.equal(result.content.length, 1);
  assert.equal(result.content[0].type, "text");
  return result;
}

async function callOk(name, args) {
  const result = await call(name, args);
  assert.equal(result.isError, false, result.content[0].text);
  return JSON.parse(result.content[0].text);
}

async function callError(name, args, text) {
  const result = await call(name, args);
  assert.equal(result.isError, true);
  assert.equal(result.content[0].text, text);
}

await check("initialize names the server", async () => {
  const info = client.getServerVersion();
  assert.equal(info.name, "pulsebar");
  assert.equal(info.title, "Pulsebar");
  assert.match(info.version, /\S/);
  assert.deepEqual(client.getServerCapabilities(), { tools: { listChanged: false } });
  assert.match(client.getInstructions(), /^Live and historical stats for this computer from Pulsebar\./);
});

await check("ping", async () => {
  assert.deepEqual(await client.ping(), {});
});

await check("tools/list gives the eight tools in order", async () => {
  const listed = ListToolsResultSchema.parse(await client.listTools());
  assert.deepEqual(listed.tools.map((t) => t.name), ["get_overview", "get_top_processes", "get_history",
    "get_sensors", "get_battery", "get_network", "get_disks", "get_connected_devices"]);
  for (const tool of listed.tools) {
    assert.deepEqual(tool.annotations, { readOnlyHint: true, openWorldHint: false });
    assert.equal(tool.inputSchema.type, "object");
    assert.equal(tool.inputSchema.additionalProperties, false);
  }
});

const metricError = "metric must be one of: cpu_user, cpu_system, gpu, mem_pressure, mem_used, disk_read, " +
  "disk_write, net_down, net_up, temperature, fan, battery, power";

await check("get_overview", async () => {
  const overview = await callOk("get_overview", {});
  assert.match(overview.time, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d$/);
  assert.equal(typeof overview.computer.model, "string");
  for (const key of ["processor", "uptime", "insight"])
    assert.equal(typeof overview.computer[key], "string", key);
  assert.ok(overview.computer.cores >= 1);
  for (const key of ["cpu", "memory", "network"])
    assert.equal(typeof overview[key], "object", key);
  assert.equal(overview.cpu.load_average.length, 3);
  assert.match(overview.memory.total, /^[\d.]+ [KMGT]?B$/);
  assert.match(overview.network.download_per_second, /^[\d.]+ [KMG]?B\/s$/);
  assert.ok(Array.isArray(overview.fans_rpm));
});

await check("get_top_processes with default, valid and invalid arguments", async () => {
  const byCpu = await callOk("get_top_processes", {});
  assert.equal(byCpu.sorted_by, "cpu");
  assert.ok(Array.isArray(byCpu.processes) && byCpu.processes.length <= 10);
  const byMemory = await callOk("get_top_processes", { sort_by: "memory", limit: 3 });
  assert.equal(byMemory.sorted_by, "memory");
  assert.ok(byMemory.processes.length <= 3);
  const clamped = await callOk("get_top_processes", { sort_by: "disk", limit: 500 });
  assert.ok(clamped.processes.length <= 30);
  await callOk("get_top_processes", { limit: "ten" }); // not an integer: the default
  await callError("get_top_processes", { sort_by: "gpu" }, "sort_by must be cpu, memory or disk.");
});

await check("get_history with default, valid and invalid arguments", async () => {
  const day = await callOk("get_history", { metric: "cpu_user" });
  assert.equal(day.metric, "cpu_user");
  assert.equal(day.unit, "%");
  assert.equal(day.range, "24h");
  assert.equal(typeof day.summary.average, "number");
  assert.ok(Array.isArray(day.points) && day.points.length > 0);
  const hour = await callOk("get_history", { metric: "cpu_user", range: "1h", points: 0 });
  assert.deepEqual(Object.keys(hour).sort(), ["metric", "range", "summary", "unit"]);
  assert.equal(hour.summary.max, 20);
  assert.equal(hour.summary.min, 1);
  const empty = await callOk("get_history", { metric: "fan", range: "7d" });
  assert.deepEqual(empty, { metric: "fan", unit: "rpm", range: "7d", note: "No samples in this range." });
  await callError("get_history", {}, metricError);
  await callError("get_history", { metric: 3 }, metricError);
  await callError("get_history", { metric: "cpu_user", range: "1y" }, "range must be 1h, 24h, 7d or 30d.");
});

await check("get_sensors with default, valid and invalid arguments", async () => {
  const sensors = await callOk("get_sensors", {});
  assert.ok(!("all_sensors" in sensors));
  await callOk("get_sensors", { all_sensors: true });
  await callOk("get_sensors", { all_sensors: "yes" }); // not a boolean: false
});

await check("get_battery, get_network, get_disks, get_connected_devices", async () => {
  const battery = await callOk("get_battery", {});
  assert.equal(typeof battery.present, "boolean");
  const network = await callOk("get_network", {});
  assert.equal(network.speed_tests, "None yet. Run one from Pulsebar's Network dropdown.");
  const disks = await callOk("get_disks", {});
  assert.ok(Array.isArray(disks.volumes));
  const devices = await callOk("get_connected_devices", {});
  assert.ok(Array.isArray(devices.devices));
});

await check("an unknown tool is a tool error, not a protocol error", async () => {
  await callError("get_weather", {}, "Unknown tool: get_weather");
});

await client.close();
rmSync(home, { recursive: true, force: true });

await check("the server wrote nothing to standard error", async () => {
  assert.equal(stderr, "");
});

if (failures.length > 0) {
  console.log(`${failures.length} failed: ${failures.join(", ")}`);
  process.exit(1);
}
