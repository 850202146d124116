"use strict";

const API = "/_sim/api/";
const MOST_ROWS = 500;
const PAGE_ROWS = 100;

const byId = id => document.getElementById(id);

/** An element with attributes and children; texts stay texts. */
function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (key.startsWith("on"))
      made.addEventListener(key.slice(2), value);
    else if (value !== false && value !== null)
      made.setAttribute(key, value === true ? "" : value);
  }
  made.append(...children);
  return made;
}

async function ask(path, options) {
  const answer = await fetch(API + path, options);
  const body = await answer.json();
  if (!answer.ok)
    throw new Error(body.error || "status " + answer.status);
  return body;
}

const change = (method, path, body) => ask(path, {
  method, headers: {"Content-Type": "application/json"},
  body: body === undefined ? undefined : JSON.stringify(body)});

const clockTime = iso => {
  const date = new Date(iso);
  const milliseconds = String(date.getMilliseconds()).padStart(3, "0");
  return date.toLocaleTimeString([], {hour12: false}) + "." + milliseconds;
};
const dateTime = iso => iso.slice(0, 10) + " " + clockTime(iso);
const duration = ms => ms === null ? "…"
  : ms < 1000 ? ms.toFixed(1) + " ms" : (ms / 1000).toFixed(2) + " s";
const count = number => number.toLocaleString("en");

function cell(text, className = "", name = "") {
  const made = element("td", {class: className || null, "data-name": name || null});
  made.append(text);
  return made;
}

/** Devices choose these texts: only what is as short as it should be stays on its line. */
const unbroken = text => text.length <= 32 ? "nowrap" : "";

/** Fills a table and shows the text for an empty one instead where there are no rows. */
function fill(tableId, rows) {
  const table = byId(tableId);
  table.tBodies[0].replaceChildren(...rows);
  table.hidden = rows.length === 0;
  table.parentElement.querySelector(".empty").hidden = rows.length > 0;
}

// Exchanges

const exchanges = new Map(); // by id, as the filter lets them through
let filter = {q: "", is: "", product: ""};
let openId = null;
let hasOlder = false;
let arrived = [];

function passes(exchange) {
  const {path, is, product, fault, status} = exchange;
  const text = [path, is, product, fault, status].join(" ");
  return (!filter.is || is === filter.is) && (!filter.product || product === filter.product)
    && text.toLowerCase().includes(filter.q.toLowerCase());
}

function exchangeRow(exchange) {
  const failed = exchange.status === 0 || exchange.status >= 400;
  const noStatus = exchange.duration_ms === null ? "…" : "none";
  const status = exchange.status === 0 ? noStatus : String(exchange.status);
  return element("tr", {tabindex: 0, "data-id": exchange.id,
                        "aria-selected": String(exchange.id === openId),
                        onclick: () => openExchange(exchange.id), onkeydown: rowKey},
    cell(clockTime(exchange.time), "nowrap"),
    cell(exchange.method + " " + exchange.path, "mono"),
    cell(exchange.is), cell(exchange.product),
    cell(status, "number" + (failed ? " bad" : ""), "status"),
    cell(count(exchange.answer_bytes), "number", "bytes"),
    cell(duration(exchange.duration_ms), "number"),
    cell(exchange.fault, "bad", "fault"));
}

function rowKey(event) {
  const row = event.currentTarget;
  const other = {ArrowDown: row.nextElementSibling, ArrowUp: row.previousElementSibling}[event.key];
  if (event.key === "Enter" || event.key === " ")
    openExchange(Number(row.dataset.id));
  else if (!other)
    return;
  else
    other.focus();
  event.preventDefault();
}

function showExchanges() {
  const body = byId("exchange-table").tBodies[0];
  const focused = body.contains(document.activeElement) ? document.activeElement.dataset.id : null;
  const rows = [...exchanges.values()].sort((a, b) => b.id - a.id).map(exchangeRow);
  body.replaceChildren(...rows);
  if (focused !== null)
    body.querySelector(`[data-id="${focused}"]`)?.focus();
  showExchangeFrame();
}

function showExchangeFrame() {
  const isEmpty = exchanges.size === 0;
  const isFiltered = filter.q || filter.is || filter.product;
  byId("exchange-table").hidden = isEmpty;
  byId("exchange-empty").hidden = !isEmpty;
  byId("exchange-empty").textContent = isFiltered ? "No exchange fits." :
    "No device has called yet. Try: korrin check -p server_url=" + location.origin
      + "/ -p mode=update -p product_no=KX-100 -p soft_ver=1.0";
  byId("older").hidden = !hasOlder || isEmpty;
}

/** Puts what has arrived since the last frame on top, or in place of its earlier row. */
function showArrived() {
  const body = byId("exchange-table").tBodies[0];
  for (const exchange of arrived.splice(0)) {
    const old = exchanges.has(exchange.id) && body.querySelector(`[data-id="${exchange.id}"]`);
    exchanges.set(exchange.id, exchange);
    const row = exchangeRow(exchange);
    if (old) {
      const focused = old === document.activeElement;
      old.replaceWith(row);
      if (focused)
        row.focus();
    } else {
      row.classList.add("new");
      const next = [...body.rows].find(other => Number(other.dataset.id) < exchange.id);
      body.insertBefore(row, next || null);
    }
    if (exchange.id === openId)
      openExchange(openId, false);
  }
  while (body.rows.length > MOST_ROWS) {
    exchanges.delete(Number(body.lastElementChild.dataset.id));
    body.lastElementChild.remove();
    hasOlder = true;
  }
  showExchangeFrame();
}

function exchangeArrived(exchange) {
  if (!passes(exchange))
    return;
  if (arrived.length === 0)
    requestAnimationFrame(showArrived);
  arrived.push(exchange);
}

/** What has arrived since the list was made belongs on top of it. */
function keepNewer(newestId) {
  for (const [id, exchange] of exchanges) {
    if (id <= newestId || !passes(exchange))
      exchanges.delete(id);
  }
}

async function loadExchanges(before = 0) {
  const query = new URLSearchParams({limit: PAGE_ROWS, before, ...filter});
  const asked = query.toString();
  const found = (await ask("exchanges?" + query)).exchanges;
  if (asked !== new URLSearchParams({limit: PAGE_ROWS, before, ...filter}).toString())
    return; // The filter has changed meanwhile.
  if (!before)
    keepNewer(found.length ? found[0].id : 0);
  for (const exchange of found) {
    const known = exchanges.get(exchange.id);
    if (!known || known.duration_ms === null)
      exchanges.set(exchange.id, exchange);
  }
  hasOlder = found.length === PAGE_ROWS;
  showExchanges();
}

// One exchange

const fromBase64 = text => Uint8Array.from(atob(text), c => c.charCodeAt(0));

/** Bytes as text: line ends as they are, other control and non-ASCII bytes as \xNN. */
function bytesAsText(bytes) {
  const pre = element("pre", {tabindex: 0});
  let plain = "";
  let at = 0;
  const flush = () => { pre.append(plain); plain = ""; };
  for (const byte of bytes) {
    const next = bytes[++at];
    if ((byte >= 32 && byte < 127) || byte === 10 || byte === 9) {
      plain += String.fromCharCode(byte);
    } else if (byte !== 13 || next !== 10) {
      flush();
      pre.append(element("span", {class: "byte"}, "\\x" + byte.toString(16).padStart(2, "0")));
    }
  }
  flush();
  return pre;
}

function bytesAsHex(bytes) {
  let text = "";
  for (let at = 0; at < bytes.length; at += 16) {
    const line = bytes.subarray(at, at + 16);
    const hex = [...line].map(b => b.toString(16).padStart(2, "0")).join(" ");
    const chars = [...line].map(b => b >= 32 && b < 127 ? String.fromCharCode(b) : ".").join("");
    text += at.toString(16).padStart(6, "0") + "  " + hex.padEnd(47) + "  " + chars + "\n";
  }
  return element("pre", {tabindex: 0}, text);
}

const SHOWN_BYTES = 65536;
let showsHex = false;

function side(title, id, bytes, total, truncated) {
  const shown = bytes.subarray(0, SHOWN_BYTES);
  const link = element("a", {download: title.toLowerCase() + "-" + id + ".bin",
                             href: "data:application/octet-stream;base64," + bytes.base64},
                       "save the bytes");
  const kept = truncated ? "the first " + count(bytes.length) + " of " : "";
  const note = kept + count(total) + " bytes" + (truncated ? " are kept" : "");
  const more = shown.length < bytes.length ? ", " + count(shown.length) + " shown" : "";
  return element("div", {class: "side"},
    element("h3", {}, title, element("span", {class: "soft"}, note + more),
            bytes.length ? link : ""),
    bytes.length
      ? (showsHex ? bytesAsHex(shown) : bytesAsText(shown))
      : element("p", {class: "soft"}, title === "Answer" ? "No answer was sent." : "Nothing."));
}

const itemRow = ([key, value]) => element("tr", {},
  element("th", {scope: "row"}, key), element("td", {class: "mono"}, value));

async function openExchange(id, moves = true) {
  openId = id;
  for (const row of byId("exchange-table").tBodies[0].rows)
    row.setAttribute("aria-selected", String(Number(row.dataset.id) === id));
  let exchange;
  try {
    exchange = await ask("exchanges/" + id);
  } catch (error) {
    closeExchange();
    return;
  }
  if (openId !== id)
    return;
  const request = fromBase64(exchange.request);
  const answer = fromBase64(exchange.answer);
  request.base64 = exchange.request;
  answer.base64 = exchange.answer;
  const items = exchange.items.map(itemRow);
  const fault = exchange.fault ? ", fault: " + exchange.fault : "";
  const detail = byId("detail");
  detail.hidden = false;
  detail.replaceChildren(
    element("div", {class: "bar"},
      element("h2", {}, "Exchange " + id + ", " + dateTime(exchange.time) + fault),
      element("button", {type: "button", "aria-pressed": String(showsHex), id: "hex",
                         onclick: () => toggleHex(id)}, "Hexadecimal"),
      element("button", {type: "button", id: "close", onclick: closeExchange}, "Close")),
    items.length ? element("table", {class: "items"}, element("tbody", {}, ...items)) : "",
    element("div", {class: "pair"},
      side("Request", id, request, exchange.request_bytes, exchange.request_truncated),
      side("Answer", id, answer, exchange.answer_bytes, exchange.answer_truncated)));
  if (moves)
    detail.focus();
}

function toggleHex(id) {
  showsHex = !showsHex;
  openExchange(id, false).then(() => byId("hex").focus());
}

function closeExchange() {
  const row = byId("exchange-table").querySelector(`[data-id="${openId}"]`);
  openId = null;
  byId("detail").hidden = true;
  byId("detail").replaceChildren();
  for (const selected of document.querySelectorAll("tr[aria-selected=true]"))
    selected.setAttribute("aria-selected", "false");
  if (row)
    row.focus();
}

// Devices, cloud log, reports, objects

async function loadDevices() {
  const results = {"1": ["succeeded", "good"], "0": ["failed", "bad"]};
  fill("device-table", (await ask("devices")).devices.map(device => {
    const [result, look] = results[device.last_result] || ["", ""];
    return element("tr", {}, cell(device.product), cell(device.version, "", "version"),
      cell(dateTime(device.last_contact), "nowrap"),
      cell(count(device.exchanges), "number", "exchanges"),
      cell(result, look, "update"), cell(device.last_error, "bad wide"));
  }));
}

const settingsOf = (record, settings, open) => element("details",
  {"data-id": record.id, open: open.has(String(record.id))},
  element("summary", {}, settings.length + " set"),
  element("table", {class: "items"}, element("tbody", {}, ...settings)));

async function loadLog() {
  const form = new FormData(byId("log-filter"));
  const query = new URLSearchParams({q: form.get("q"), product: form.get("product")});
  const open = new Set();
  for (const details of document.querySelectorAll("#log-table details[open]"))
    open.add(details.dataset.id);
  fill("log-table", (await ask("cloudlog?" + query)).records.map(record => {
    const settings =
      Object.entries(record.settings).filter(([, value]) => value !== "").map(itemRow);
    const failed = record.error !== "0";
    return element("tr", {}, cell(record.time, unbroken(record.time)), cell(record.product),
      cell(record.function, "mono " + unbroken(record.function)), cell(record.arguments, "mono"),
      cell(record.error, (unbroken(record.error) && "number ") + (failed ? "bad" : ""), "error"),
      cell(record.detail, failed ? "bad wide" : "wide"),
      cell(settings.length ? settingsOf(record, settings, open) : "", "wide"));
  }));
}

async function loadReports() {
  fill("report-table", (await ask("reports")).reports.map(report => element("tr", {},
    cell(dateTime(report.received), "nowrap"), cell(report.product),
    cell(report.version, "", "version"),
    cell(report.kind === "result" ? (report.result === "1" ? "succeeded" : "failed") : "log",
         report.kind !== "result" ? "" : report.result === "1" ? "good" : "bad"),
    cell(report.text, "mono wide"))));
}

async function loadObjects() {
  fill("object-table", (await ask("objects")).objects.map(object => {
    const path = object.bucket + "/" + object.key;
    const href = "/" + path.split("/").map(encodeURIComponent).join("/");
    return element("tr", {}, cell(element("a", {href, download: true}, path), "mono wide"),
      cell(count(object.bytes), "number", "bytes"), cell(object.content_type),
      cell(object.etag, "mono wide"), cell(dateTime(object.time), "nowrap"));
  }));
}

// Faults

const FAULTS = {
  delay: {help: "The answer begins later.", fields: [["ms", "Milliseconds", "1000"]]},
  stall: {help: "Silence for ever, before the answer or in the middle of its body.",
          fields: [["at", "Where", ["before", "body"]]]},
  drip: {help: "The answer comes slowly.",
         fields: [["bytes_per_second", "Bytes per second", "100"]]},
  cut: {help: "The connection is closed within the body; half of it goes out when no number is"
              + " given.",
        fields: [["bytes", "After bytes", ""]]},
  close: {help: "The connection is closed before the answer.", fields: []},
  reset: {help: "The connection is reset before the answer.", fields: []},
  status: {help: "An HTTP status; the request is not carried out.",
           fields: [["code", "Status", "503"]]},
  echo: {help: "The answer names another kind of request.", fields: [["text", "Kind", "other"]]},
  refuse: {help: "The server says no; the request is not carried out.",
           fields: [["code", "Code", "99"], ["message", "Message", "Not today."]]},
  space: {help: "White space between the answer's elements.", fields: []},
  malformed: {help: "The answer is not well-formed XML.", fields: []},
  huge: {help: "The answer is filled up.", fields: [["bytes", "Bytes", "67108864"]]},
};
const TEXT_FIELDS = ["at", "text", "message"];

function showFaultFields() {
  const kind = byId("fault-form").fault.value;
  byId("fault-help").textContent = FAULTS[kind].help;
  byId("fault-parameters").replaceChildren(...FAULTS[kind].fields.map(([name, title, value]) =>
    element("label", {}, title, Array.isArray(value)
      ? element("select", {name: "p-" + name}, ...value.map(text => element("option", {}, text)))
      : element("input", {name: "p-" + name, type: "text", value, autocomplete: "off"}))));
}

/** A number where it is one, so that the simulator can say what is wrong with anything else. */
const numeric = text => /^-?\d+(\.\d+)?$/.test(text) ? Number(text) : text;

function ruleFromForm(form) {
  const rule = {fault: form.fault.value, match: {}};
  for (const [name] of FAULTS[rule.fault].fields) {
    const text = form["p-" + name].value;
    const isText = TEXT_FIELDS.includes(name) || (rule.fault === "refuse" && name === "code");
    if (text !== "")
      rule[name] = isText ? text : numeric(text);
  }
  for (const key of ["path", "is", "product"]) {
    if (form[key].value)
      rule.match[key] = form[key].value;
  }
  if (form.often.value)
    rule.match[form.often.value] = numeric(form.number.value);
  return rule;
}

function describe(object, left) {
  return Object.entries(object).filter(([key]) => !left.includes(key))
    .map(([key, value]) => key + " " + value).join(", ");
}

function faultRow(rule) {
  const parameters = describe(rule, ["id", "enabled", "match", "fault", "hits"]);
  const title = rule.fault + (parameters ? ", " + parameters : "");
  const toggle = element("button", {type: "button", role: "switch", "aria-label": title});
  const path = "faults/" + rule.id;
  toggle.addEventListener("click", () => tryFault(() =>
    change("PATCH", path, {enabled: toggle.getAttribute("aria-checked") !== "true"})));
  return element("tr", {"data-id": rule.id},
    cell(toggle), cell(title), cell(describe(rule.match, []) || "every exchange"),
    cell("", "number", "hits"),
    cell(element("button", {type: "button", class: "danger", "aria-label": "Remove " + title,
                            onclick: () => tryFault(() => change("DELETE", path))}, "Remove"),
         "number"));
}

/** Rows stay the same elements, so that a key or a click that is under way meets its switch. */
function showFaults(rules) {
  byId("count-faults").textContent = rules.filter(rule => rule.enabled).length || "";
  const old = new Map([...byId("fault-table").tBodies[0].rows].map(row => [row.dataset.id, row]));
  const rows = rules.map(rule => {
    const row = old.get(String(rule.id)) || faultRow(rule);
    row.querySelector("[role=switch]").setAttribute("aria-checked", String(rule.enabled));
    row.querySelector("td.number").textContent = count(rule.hits);
    return row;
  });
  const isSame = rows.length === old.size && rows.every(row => row.isConnected);
  if (!isSame || rows.length === 0)
    fill("fault-table", rows);
}

async function tryFault(action) {
  byId("fault-error").textContent = "";
  try {
    await action();
    return true;
  } catch (error) {
    byId("fault-error").textContent = error.message;
    return false;
  }
}

const loadFaults = async () => showFaults((await ask("faults")).faults);

// Views and events

const VIEWS = {exchanges: loadExchanges, devices: loadDevices, cloudlog: loadLog,
               reports: loadReports, objects: loadObjects, faults: loadFaults};

const currentView = () => VIEWS[location.hash.slice(1)] ? location.hash.slice(1) : "exchanges";

function showView() {
  const view = currentView();
  for (const section of document.querySelectorAll("main > section"))
    section.hidden = section.id !== "view-" + view;
  for (const link of document.querySelectorAll("nav a")) {
    if (link.hash === "#" + view)
      link.setAttribute("aria-current", "page");
    else
      link.removeAttribute("aria-current");
  }
  load(view);
}

function load(view) {
  VIEWS[view]().catch(() => setConnection("lost"));
}

function loadIfShown(...views) {
  if (views.includes(currentView()))
    load(currentView());
}

/** Runs it soon, and once for many calls in a row. */
function later(action) {
  let timer = null;
  return () => {
    if (timer === null)
      timer = setTimeout(() => { timer = null; action(); }, 250);
  };
}

function setConnection(state) {
  byId("connection").className = state;
  byId("connection").textContent = {live: "live", lost: "connection lost, trying again"}[state];
}

const refreshInfo = later(async () => {
  const info = await ask("info").catch(() => null);
  if (info) {
    byId("address").textContent = info.url;
    byId("count-exchanges").textContent = info.exchanges ? count(info.exchanges) : "";
  }
});
const refreshOthers = later(() => loadIfShown("devices", "reports"));
const refreshLog = later(() => loadIfShown("cloudlog", "devices"));

function listen() {
  const source = new EventSource(API + "events");
  source.onopen = () => {
    setConnection("live");
    refreshInfo();
    loadFaults().catch(() => {});
    exchanges.clear(); // Another simulator counts anew.
    load(currentView()); // What happened while there was no connection.
  };
  source.onerror = () => setConnection("lost");
  source.addEventListener("exchange", event => {
    exchangeArrived(JSON.parse(event.data));
    refreshInfo();
    refreshOthers();
  });
  source.addEventListener("cloudlog", refreshLog);
  source.addEventListener("objects", () => loadIfShown("objects"));
  source.addEventListener("faults", event => showFaults(JSON.parse(event.data).faults));
  source.addEventListener("cleared", () => {
    closeExchange();
    refreshInfo();
    exchanges.clear();
    showExchanges();
    load(currentView());
  });
}

function setUp() {
  byId("fault-form").fault.append(...Object.keys(FAULTS).map(kind => element("option", {}, kind)));
  showFaultFields();
  byId("fault-form").fault.addEventListener("change", showFaultFields);
  byId("fault-form").often.addEventListener("change", event => {
    byId("often-label").hidden = !event.target.value;
  });
  byId("fault-form").addEventListener("submit", event => {
    event.preventDefault();
    tryFault(() => change("POST", "faults", ruleFromForm(event.target)));
  });
  const applyFilter = later(() => {
    const form = byId("exchange-filter");
    filter = {q: form.q.value.trim(), is: form.is.value, product: form.product.value.trim()};
    load("exchanges");
  });
  byId("exchange-filter").addEventListener("input", applyFilter);
  byId("exchange-filter").addEventListener("reset", applyFilter);
  byId("exchange-filter").addEventListener("submit", event => event.preventDefault());
  byId("log-filter").addEventListener("input", later(() => load("cloudlog")));
  byId("log-filter").addEventListener("submit", event => event.preventDefault());
  byId("older").addEventListener("click", () =>
    loadExchanges(Math.min(...exchanges.keys())).catch(() => setConnection("lost")));
  byId("clear").addEventListener("click", () => {
    if (confirm("Forget all exchanges, log records, reports and devices? Objects stay."))
      change("DELETE", "exchanges").catch(() => setConnection("lost"));
  });
  addEventListener("keydown", event => {
    if (event.key === "Escape" && openId !== null)
      closeExchange();
  });
  addEventListener("hashchange", showView);
  showView();
  listen();
}

setUp();
