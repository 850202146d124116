// The simulator's page in a browser, with the real simulator and the real tool.
// Environment: KORRIN_TOOL, KORRIN_CLOUDSIM, CHROMIUM, KORRIN_SCREENSHOTS (a directory, optional).
import assert from "node:assert/strict";
import {execFile, spawn} from "node:child_process";
import {mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";
import {after, before, beforeEach, test} from "node:test";
import {chromium} from "playwright-core";

const directory = mkdtempSync(join(tmpdir(), "korrin-page-"));
let simulator, url, browser, context, page, problems;

function startSimulator(port) {
  return new Promise((resolve, reject) => {
    simulator = spawn(process.env.KORRIN_CLOUDSIM, ["--port", String(port)],
                      {stdio: ["ignore", "pipe", "inherit"]});
    simulator.once("error", reject);
    simulator.stdout.once("data", text => resolve(String(text).trim()));
  });
}

const stopSimulator = () => new Promise(resolve => {
  simulator.once("exit", resolve);
  simulator.kill();
});

/** Runs the tool as a device. @return its exit status */
function korrin(...args) {
  const device = ["-p", `server_url=${url}`, "-p", "mode=update", "-p", "product_no=KX-100",
                  "-p", "soft_ver=1.0", "-p", "language_code=en",
                  "-p", "cloud_log_file_max_size=0"];
  return new Promise(resolve => execFile(
    process.env.KORRIN_TOOL, [args[0], ...device, ...args.slice(1)], {cwd: directory},
    error => resolve(error ? error.code : 0)));
}

const upload = name => korrin("send-file", name, "-p", "mode=s3_upload",
  "-p", `server_url=${url}kx-logs/`, "-p", "aws_access_key=KORRINSIMACCESSKEY",
  "-p", "aws_secret_access_key=korrin/sim+secret");

const api = (path, options) =>
  fetch(url + "_sim/api/" + path, options).then(answer => answer.json());
const change = (method, path, body) => api(path, {
  method, headers: {"Content-Type": "application/json"}, body: body && JSON.stringify(body)});

async function open(view = "exchanges", options = {}) {
  context = await browser.newContext({viewport: {width: 1280, height: 800}, ...options});
  page = await context.newPage();
  problems = [];
  page.on("console", message => message.type() === "error" && problems.push(message.text()));
  page.on("pageerror", error => problems.push(String(error)));
  page.on("request", request => {
    const target = request.url();
    if (!target.startsWith(url) && !target.startsWith("data:"))
      problems.push("request to " + target);
  });
  await page.goto(`${url}_sim/#${view}`);
  await page.waitForSelector("#connection.live");
}

const go = view => page.click(`nav a[href="#${view}"]`);
const rows = table => page.locator(`#${table} > tbody > tr`);
const waitForRows = (table, number) => page.waitForFunction(
  ([id, wanted]) => document.querySelectorAll(`#${id} > tbody > tr`).length === wanted,
  [table, number]);

before(async () => {
  url = await startSimulator(0);
  browser = await chromium.launch({
    executablePath: process.env.CHROMIUM || "/usr/bin/chromium", headless: true,
    args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync"]});
});

beforeEach(async () => {
  await change("DELETE", "exchanges");
  await change("DELETE", "faults");
  if (context)
    await context.close();
});

after(async () => {
  await browser.close();
  await stopSimulator();
  rmSync(directory, {recursive: true});
});

test("an exchange of a device appears without reload", async () => {
  await open();
  assert.match(await page.textContent("#exchange-empty"), /No device has called yet/);
  assert.equal(await korrin("check"), 0);
  await waitForRows("exchange-table", 2); // the check and its log record
  assert.match(await rows("exchange-table").nth(1).innerText(),
               /GET \/su\/search\s+chkud\s+KX-100\s+200/);
  assert.deepEqual(problems, []);
});

test("until the exchanges are there the page says that they are being loaded", async () => {
  await korrin("check");
  await open("faults");
  let answer;
  const asked = new Promise(resolve => page.route("**/_sim/api/exchanges?*", route => {
    answer = route;
    resolve();
  }));
  await go("exchanges");
  await asked;
  assert.match(await page.textContent("#exchange-empty"), /Loading/);
  assert.equal(await page.isVisible("#exchange-empty"), true);
  assert.equal(await page.isVisible("#exchange-table"), false);
  await answer.continue();
  await page.waitForSelector("#exchange-table");
  assert.equal(await page.isVisible("#exchange-empty"), false);
});

test("the filter narrows the list, also for what arrives", async () => {
  await korrin("check");
  await korrin("check", "-p", "product_no=KX-200");
  await open();
  await waitForRows("exchange-table", 4);
  await page.selectOption("#exchange-filter [name=is]", "chkud");
  await waitForRows("exchange-table", 2);
  await page.fill("#exchange-filter [name=product]", "KX-200");
  await waitForRows("exchange-table", 1);
  await korrin("check");
  await korrin("check", "-p", "product_no=KX-200");
  await waitForRows("exchange-table", 2);
  await page.click("#exchange-filter [type=reset]");
  await waitForRows("exchange-table", 8);
  await page.fill("#exchange-filter [name=q]", "SEARCH");
  await waitForRows("exchange-table", 4);
});

test("request and answer are shown side by side, byte for byte", async () => {
  await korrin("check", "-p", "product_no=Gr\u00fc\u00dfe & Co");
  await open();
  await waitForRows("exchange-table", 2);
  await rows("exchange-table").nth(1).click();
  await page.waitForSelector("#detail .pair");
  assert.deepEqual(await page.locator("#detail .items tr").allInnerTexts(),
                   ["is\tchkud", "lang\ten", "pn\tGr\u00fc\u00dfe & Co", "sv\t1.0"]);
  const id = await rows("exchange-table").nth(1).getAttribute("data-id");
  const {request, answer} = await api("exchanges/" + id);
  const shown = await page.locator("#detail pre").allInnerTexts();
  const expected = text => Buffer.from(text, "base64").toString("latin1").replaceAll("\r", "")
    .replace(/[^\n\t -~]/g, c => "\\x" + c.charCodeAt(0).toString(16));
  assert.equal(shown[0], expected(request));
  assert.equal(shown[1], expected(answer));
  assert.match(shown[1], /Gr\\xc3\\xbc/);

  await page.click("#hex");
  await page.waitForFunction(
    () => document.querySelector("#detail pre").textContent.startsWith("000000  47 45 54 20"));
  const [download] = await Promise.all(
    [page.waitForEvent("download"), page.locator("#detail h3 a").nth(1).click()]);
  assert.equal(readFileSync(await download.path()).toString("base64"), answer);
  await page.keyboard.press("Escape");
  assert.equal(await page.isVisible("#detail"), false);
  assert.deepEqual(problems, []);
});

test("a fault that is switched on makes the next check fail, off makes it pass", async () => {
  await change("POST", "faults",
               {fault: "status", code: 503, match: {is: "chkud"}, enabled: false});
  await open("faults");
  await waitForRows("fault-table", 1);
  assert.equal(await korrin("check"), 0);
  await page.click("[role=switch]");
  await page.waitForSelector("[role=switch][aria-checked=true]");
  assert.equal(await korrin("check"), 4);
  await page.waitForFunction(
    () => document.querySelector("#fault-table td.number").textContent === "1");
  await page.click("[role=switch]");
  await page.waitForSelector("[role=switch][aria-checked=false]");
  assert.equal(await korrin("check"), 0);
});

test("rules are added and removed, and a wrong one is explained", async () => {
  await open("faults");
  await page.selectOption("#fault-form [name=fault]", "refuse");
  await page.fill("#fault-form [name=p-message]", "Not you.");
  await page.fill("#fault-form [name=product]", "KX-100");
  await page.selectOption("#fault-form [name=often]", "next");
  await page.fill("#fault-form [name=number]", "2");
  await page.click("#fault-form [type=submit]");
  await waitForRows("fault-table", 1);
  const [rule] = (await api("faults")).faults;
  assert.deepEqual([rule.fault, rule.code, rule.message, rule.match],
                   ["refuse", "99", "Not you.", {product: "KX-100", next: 2}]);
  assert.equal(await korrin("check"), 2);

  await page.selectOption("#fault-form [name=fault]", "delay");
  await page.fill("#fault-form [name=p-ms]", "soon");
  await page.click("#fault-form [type=submit]");
  await page.waitForFunction(
    () => document.querySelector("#fault-error").textContent.includes("ms"));
  assert.equal(await rows("fault-table").count(), 1);
  await page.click("#fault-table .danger");
  await waitForRows("fault-table", 0);
  assert.deepEqual((await api("faults")).faults, []);
});

test("every kind of fault can be added by the form", async () => {
  await open("faults");
  const kinds = await page.locator("#fault-form [name=fault] option").allInnerTexts();
  assert.equal(kinds.length, 12);
  for (const kind of kinds) {
    await page.selectOption("#fault-form [name=fault]", kind);
    await page.click("#fault-form [type=submit]");
    await waitForRows("fault-table", kinds.indexOf(kind) + 1);
  }
  assert.deepEqual((await api("faults")).faults.map(rule => rule.fault), kinds);
});

test("devices, cloud log, reports and objects fill while one watches", async () => {
  writeFileSync(join(directory, "log.zip"), "PK and so on");
  await open("devices");
  await korrin("check");
  await waitForRows("device-table", 1);
  await go("cloudlog");
  await waitForRows("log-table", 1);
  await korrin("check", "-p", "product_no=nobody");
  await waitForRows("log-table", 2);
  assert.match(await rows("log-table").first().innerText(),
               /nobody\s+korrinCheckEnable\s+-\s+203\s+10:Unknown product: nobody/);
  await page.click("#log-table summary");
  assert.match(await rows("log-table").first().innerText(), /server_url\s+http:/);
  await page.fill("#log-filter [name=q]", "203");
  await waitForRows("log-table", 1);
  await go("reports");
  await korrin("send", "-p", "send_data_type=result", "-p", "result=1");
  await waitForRows("report-table", 1);
  await go("objects");
  await upload("log.zip");
  await page.waitForSelector("#object-table a");
  const [download] = await Promise.all(
    [page.waitForEvent("download"), page.click("#object-table a")]);
  assert.equal(String(readFileSync(await download.path())), "PK and so on");
  assert.deepEqual(problems, []);
});

test("all is forgotten when one says so", async () => {
  await korrin("check");
  await open();
  await waitForRows("exchange-table", 2);
  page.once("dialog", dialog => dialog.dismiss());
  await page.click("#clear");
  assert.equal(await rows("exchange-table").count(), 2);
  page.once("dialog", dialog => dialog.accept());
  await page.click("#clear");
  await page.waitForSelector("#exchange-empty:visible");
  assert.equal((await api("info")).exchanges, 0);
});

test("what a device sends stays text", async () => {
  const hostile = "<img src=x onerror=document.title='hit'>";
  await korrin("check", "-p", `product_no=${hostile}`);
  await open();
  await waitForRows("exchange-table", 2);
  await rows("exchange-table").nth(1).click();
  await page.waitForSelector("#detail .pair");
  for (const view of ["devices", "cloudlog"]) {
    await go(view);
    await page.waitForSelector(`#view-${view} tbody tr`);
    assert.match(await page.innerText(`#view-${view} tbody`), /<img src=x/);
  }
  assert.equal(await page.locator("main img").count(), 0);
  assert.equal(await page.title(), "korrin-cloudsim");
  assert.deepEqual(problems, []);
});

test("long texts of a device fit a phone", async () => {
  const long = "x".repeat(400);
  const keys = ["pn", "ldt", "mode", "fn", "fa", "en", "ed", "pr", long];
  const items = ["is=cloudlog", ...keys.map(key => key + "=" + long)];
  await fetch(url + "su/upload", {method: "POST", body: items.join("&")});
  await open("exchanges", {viewport: {width: 390, height: 844}});
  await waitForRows("exchange-table", 1);
  await rows("exchange-table").first().click();
  await page.waitForSelector("#detail .pair");
  for (const view of ["exchanges", "cloudlog", "devices"]) {
    await go(view);
    await page.waitForSelector(`#view-${view} tbody tr`);
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 390, view);
  }
});

test("a carriage return without its line feed is shown", async () => {
  await fetch(url + "su/upload", {method: "POST", body: "is=a\rb\r\nc"});
  await open();
  await waitForRows("exchange-table", 1);
  await rows("exchange-table").first().click();
  await page.waitForSelector("#detail .pair");
  assert.match((await page.locator("#detail pre").allInnerTexts())[0], /\n\nis=a\\x0db\nc$/);
});

test("what arrives while a list is loaded stays", async () => {
  await korrin("check");
  await open();
  await waitForRows("exchange-table", 2);
  let answered;
  const arrived = new Promise(resolve => { answered = resolve; });
  await page.route("**/exchanges?*", async route => {
    const response = await route.fetch();
    await korrin("check");
    await waitForRows("exchange-table", 4);
    await route.fulfill({response});
    answered();
  }, {times: 1});
  await page.fill("#exchange-filter [name=q]", "su");
  await arrived;
  await go("devices");
  await page.waitForSelector("#view-devices tbody tr");
  assert.equal(await rows("exchange-table").count(), 4);
});

test("the keyboard suffices", async () => {
  await korrin("check");
  await open();
  await waitForRows("exchange-table", 2);
  await page.keyboard.press("Tab");
  assert.equal(await page.evaluate(() => document.activeElement.className), "skip");
  await page.focus("#exchange-table tbody tr");
  await page.evaluate(() => loadExchanges());
  assert.equal(await page.evaluate(() => document.activeElement.rowIndex), 1,
               "a list that is loaded anew keeps the focus");
  await page.keyboard.press("ArrowDown");
  await page.keyboard.press("Enter");
  await page.waitForSelector("#detail .pair");
  assert.equal(await page.evaluate(() => document.activeElement.id), "detail");
  await page.keyboard.press("Escape");
  assert.equal(await page.evaluate(() => document.activeElement.rowIndex), 2);
  await change("POST", "faults", {fault: "close", enabled: false});
  await page.focus("nav a[href='#faults']");
  await page.keyboard.press("Enter");
  await page.focus("[role=switch]");
  await page.keyboard.press("Space");
  await page.waitForSelector("[role=switch][aria-checked=true]");
  assert.equal(await page.evaluate(() => document.activeElement.getAttribute("role")), "switch");
});

test("a slow exchange is shown while it is under way, and then as it ended", async () => {
  await change("POST", "faults", {fault: "delay", ms: 700, match: {is: "chkud"}});
  await open();
  const running = korrin("check");
  await page.waitForSelector("#exchange-table tr:has-text('…')");
  assert.equal(await running, 0);
  await waitForRows("exchange-table", 2);
  await page.waitForFunction(
    () => !document.querySelector("#exchange-table").innerText.includes("…"));
});

test("the page finds the simulator again after a restart", async () => {
  await open();
  const port = new URL(url).port;
  await stopSimulator();
  await page.waitForSelector("#connection.lost");
  await startSimulator(port);
  await page.waitForSelector("#connection.live");
  await korrin("check");
  await waitForRows("exchange-table", 2);
});

test("every view fits a phone, in light and dark, and is photographed", async () => {
  const folder = process.env.KORRIN_SCREENSHOTS;
  if (folder)
    mkdirSync(folder, {recursive: true});
  writeFileSync(join(directory, "kx-100.zip"), Buffer.alloc(48213, "PK"));
  await korrin("check");
  await korrin("recv-file", "x", "--check", "-p", "download_file_path=kx-100-2.0.bin");
  await korrin("send", "-p", "send_data_type=update_log", "unpacked 3 files, verified, installed");
  await korrin("send", "-p", "send_data_type=result", "-p", "result=1", "-p", "soft_ver=2.0");
  await korrin("check", "-p", "product_no=KX-200", "-p", "soft_ver=1.2");
  await korrin("check", "-p", "product_no=KX-999");
  await upload("kx-100.zip");
  await change("POST", "faults",
               {fault: "status", code: 503, match: {is: "chkud", product: "KX-200", next: 2}});
  await change("POST", "faults", {fault: "drip", bytes_per_second: 2000,
                                  match: {path: "/su/download"}, enabled: false});
  await korrin("check", "-p", "product_no=KX-200", "-p", "soft_ver=1.2");
  const looks = [["light", {colorScheme: "light"}], ["dark", {colorScheme: "dark"}],
                 ["phone", {viewport: {width: 390, height: 844}, colorScheme: "light"}]];
  for (const [look, options] of looks) {
    await open("exchanges", options);
    for (const view of ["exchanges", "detail", "devices", "cloudlog", "reports", "objects",
                        "faults"]) {
      if (view === "detail") {
        await page.locator("#exchange-table tbody tr:has-text('KX-100')").last().click();
        await page.waitForSelector("#detail .pair");
      } else {
        await go(view);
        await page.waitForSelector(`#view-${view} tbody tr`);
      }
      const [wide, seen] = await page.evaluate(() => {
        const {scrollWidth, clientWidth} = document.documentElement;
        return [scrollWidth, clientWidth];
      });
      assert.ok(wide <= seen, `${look} ${view} is ${wide} wide in ${seen}`);
      if (folder)
        await page.screenshot({path: join(folder, `${look}-${view}.png`), fullPage: true});
    }
    assert.deepEqual(problems, []);
    await context.close();
  }
  context = null;
});
