// The extension's own window: what it shows, who may drive it, and how a signing ends.
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { createHash, sign, verify, X509Certificate } from "node:crypto";
import { readFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { pageState } from "../../extension/page-state.js";
import { build, call, connect, domainList, extensionOf, inPage, kBrowsers, kPin, makeCertificate, openPage, temporaryFolder, until,
  untilHosts, visit } from "./support.mjs";

const digestOf = (text) => createHash("sha256").update(text);
const kOther = "xn--caf-dma"; // café, in the form of the network
const credentials = domainList(`signer.localhost|${kOther}.localhost`);

/** Begins a signing that `outcome` waits for; options as the client takes them. */
const begin = (page, method, id, what, options = {}) => page.evaluate(`window.abort = new AbortController();
  window.result = client.${method}(...${JSON.stringify([id, what])}, { signal: abort.signal, ...${JSON.stringify(options)} })
    .then((value) => ({ value }), ({ kind, name }) => ({ kind: kind ?? name })); 0`);
const outcome = (page) => page.evaluate("window.result");

/** The window, once it shows something. Firefox's driver knows no address of an extension's page. */
const theWindow = (browser) => until("the window is there", async () => {
  const [window] = await windowsOf(browser);
  return await window?.evaluate(() => !document.querySelector("#request").hidden).catch(() => false) && window;
});
async function windowsOf(browser) {
  const pages = await browser.pages();
  const areOurs = await Promise.all(pages.map((page) => page.evaluate(() => location.pathname === "/window/window.html").catch(() => false)));
  return pages.filter((_, i) => areOurs[i]);
}
const noWindow = (browser) => until("no window is left", async () => (await windowsOf(browser)).length === 0);
const textOf = (window, selector) => window.evaluate((selector) => document.querySelector(selector).innerText.trim(), selector);
const says = (window, selector, pattern) => until(`${selector} says ${pattern}`, async () => pattern.test(await textOf(window, selector)));
const armed = (window) => until("the window listens", () => window.evaluate(() => document.querySelector("#sign").getAttribute("aria-disabled") === "false"));

/** The window works from the moment of the consent on. */
const isIdle = (window) => window.evaluate(() => document.body.getAttribute("aria-busy") !== "true");

/** The driver may miss the answer of a window that closes. */
const press = (window, key) => window.keyboard.press(key).catch(() => {});

/** Agrees by keyboard alone. */
async function agree(window, pin = "") {
  await armed(window);
  await window.focus(pin ? "#pin" : "#sign");
  await window.keyboard.type(pin);
  await press(window, "Enter");
}

const axe = readFileSync(new URL("node_modules/axe-core/axe.min.js", import.meta.url), "utf8");
/** Whether people of every kind can use what is in view, in a narrow window and in colours of their own. */
async function check(browser, view, what) {
  if (!browser.newCDPSession) return; // the other browser's driver has no way past the page's own policy for scripts
  await view.setViewportSize({ width: 320, height: 700 });
  assert.ok(await view.evaluate(() => document.documentElement.scrollWidth <= 320), `${what} fits into 320 px`);
  const client = await browser.newCDPSession(view);
  await client.send("Runtime.evaluate", { expression: axe });
  for (const [colorScheme, forcedColors] of [["light", "none"], ["dark", "none"], ["dark", "active"]]) {
    await view.emulateMedia({ colorScheme, forcedColors });
    const rules = { "color-contrast": { enabled: forcedColors === "none" } }; // forced colours are the system's
    const { violations } = await view.evaluate((rules) => globalThis.axe.run({ rules }), rules);
    assert.deepEqual(violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html)}`), [], `${what}, ${colorScheme}, forced colours ${forcedColors}`);
  }
}

for (const [name, start] of kBrowsers) {
  test(name, { timeout: 400_000 }, async (t) => {
    const { home, address, browser, page } = await openPage(t, start, { sites: ["signer", kOther], pinEntry: "extension", oneConsentForBatch: true });
    await connect(page, credentials);
    const [{ id }] = await call(page, "waitForCard");
    const digest = digestOf("what is signed").digest("base64");
    const ask = (from, options) => begin(from, "sign", id, digest, options).then(() => theWindow(browser));
    const isOver = async (from, kind) => {
      assert.equal((await outcome(from)).kind, kind);
      await noWindow(browser);
    };
    const openOther = async (name) => {
      const other = await visit(browser, address(name));
      await connect(other, credentials);
      return other;
    };

    await t.test("what is asked, a wrong PIN, the same again, the right one", async () => {
      const window = await ask(page, { name: "contract\u3164 \u202Efdp.<b>exe</b>" });
      assert.equal(await textOf(window, "#origin"), address("signer").slice(0, -1));
      assert.match(await textOf(window, "dl"), /María Núñez Solís \(FIRMA\)[^]*AC de Prueba/);
      assert.equal(await textOf(window, ".name"), "contractU+3164 U+202Efdp.<b>exe</b>");
      assert.equal(await textOf(window, "code"), digestOf("what is signed").digest("hex"));
      for (const told of [/The PIN was wrong\./, /not tried again/]) {
        await agree(window, "000000");
        await says(window, "#message", told);
      }
      await agree(window, kPin);
      const { value } = await outcome(page);
      const certificate = new X509Certificate(Buffer.from(await call(page, "certificate", id), "base64"));
      assert.ok(verify("sha256", Buffer.from("what is signed"), certificate.publicKey, Buffer.from(value, "base64")));
      await noWindow(browser);
    });

    await t.test("a known PIN still needs consent, and not in the window's first moment", async () => {
      const window = await ask(page);
      assert.match(await textOf(window, "#documents"), /does not say what it is/);
      await armed(window);
      // What a script could do, were there a way in: only a person's own events count.
      await window.evaluate(() => {
        document.querySelector("#sign").click();
        document.querySelector("#form").requestSubmit();
        document.querySelector("#sign").dispatchEvent(new KeyboardEvent("keydown", { key: "Enter", bubbles: true }));
      });
      assert.ok(await isIdle(window));
      // A moment after the window moved, or lost or got the focus, which lasts here until its clock goes on.
      await window.evaluate(() => { globalThis.clock = setTimeout; });
      for (const type of ["resize", "blur", "focus"]) {
        await window.evaluate((type) => { globalThis.setTimeout = () => 0; window.dispatchEvent(new Event(type)); }, type);
        await window.keyboard.press("Enter");
        assert.ok(await isIdle(window), type);
        await window.evaluate(() => { globalThis.setTimeout = clock; window.dispatchEvent(new Event("resize")); });
        await armed(window);
      }
      await agree(window);
      assert.equal(typeof (await outcome(page)).value, "string");
    });

    await t.test("one consent for several documents, every one listed and signed", async () => {
      const documents = Array.from({ length: 30 }, (_, i) => ({ digest: digestOf(`${i}`).digest("base64"), name: `invoice ${i} ${"long ".repeat(30)}end.pdf` }));
      await begin(page, "signAll", id, documents);
      const window = await theWindow(browser);
      assert.match(await textOf(window, "#what"), /30 documents/);
      assert.equal(await window.evaluate(() => document.querySelectorAll("#documents li").length), 30);
      assert.doesNotMatch(await textOf(window, ".name"), /(long ){15}/);
      await window.evaluate(() => document.querySelector(".name button").click());
      assert.match(await textOf(window, ".name"), /(long ){30}end\.pdf/);
      await check(browser, window, "the window");
      await agree(window);
      assert.equal(new Set((await outcome(page)).value).size, 30);
    });

    await t.test("giving up: the window, the page, leaving the page, closing its tab", async () => {
      const left = await openOther("signer");
      const ways = [
        [page, "cancelled", (window) => press(window, "Escape")], [page, "cancelled", (window) => window.close().catch(() => {})],
        [left, "AbortError", () => left.evaluate("abort.abort()")],
      ];
      for (const [from, kind, way] of ways) {
        await way(await ask(from));
        await isOver(from, kind);
      }
      await inPage(left, async ({ SigningClient }) => { for (let i = 0; i < 3; ++i) await new SigningClient().open(); }); // as many hosts as a tab may have
      const window = await ask(left);
      await agree(window, "000000");
      await says(window, "#message", /wrong/);
      await check(browser, window, "the window after a wrong PIN");
      await press(window, "Escape");
      await isOver(left, "cancelled");
      assert.equal((await call(left, "list")).length, 1, "the host that held a wrong PIN, and would refuse, was replaced");
      const closed = await openOther("signer");
      for (const [from, leave] of [[left, () => left.goto(address(kOther))], [closed, () => closed.close()]]) {
        await ask(from);
        await leave();
        await noWindow(browser);
      }
      await left.close();
      await untilHosts(home, 1);
    });

    await t.test("two pages get one window after the other, and the page's PIN commands are refused", async () => {
      const other = await openOther(kOther);
      const first = await ask(page, { name: "first" });
      await begin(other, "sign", id, digest, { name: "second" });
      await says(first, "#waiting", /1 more request waits/);
      assert.equal((await windowsOf(browser)).length, 1);
      await agree(first);
      assert.equal(typeof (await outcome(page)).value, "string");
      const second = await theWindow(browser);
      assert.match(await textOf(second, "#origin"), /café\.localhost/);
      assert.equal(await textOf(second, ".name"), "second");
      await press(second, "Escape");
      for (const [method, ...args] of [["setPin", "1"], ["typePinCharacter", "1"], ["deletePinCharacter"]]) {
        await assert.rejects(call(page, method, ...args), { kind: "refused", cause: /own window/ });
      }
      await other.close();
    });

    await t.test("a hostile page neither reaches, covers nor floods it", async () => {
      const hostile = await openOther(kOther);
      const window = await ask(hostile, { name: "<img src=x onerror=alert(1)>\n".repeat(20) });
      const look = () => window.evaluate(() => [location.href, window.opener, innerWidth, innerHeight, document.querySelectorAll("img").length,
        document.hasFocus(), document.activeElement.id, document.querySelector("#sign").getBoundingClientRect().bottom <= innerHeight]);
      await armed(window);
      const before = await look();
      assert.deepEqual(before.slice(-4), [0, true, "pin", true], "no markup of the page, and what is decided with is in sight");
      assert.deepEqual(await inPage(hostile, async (_, where) => {
        const frame = Object.assign(document.createElement("iframe"), { src: where });
        const field = document.createElement("input");
        document.body.append(frame, field);
        let opened;
        const stealing = setInterval(() => { for (const one of [window, field, opened]) one?.focus(); }, 10);
        try { opened = window.open(where, "_blank", "width=10,height=10"); } catch { /* as Firefox does */ }
        new BroadcastChannel("window").postMessage({ type: "consent", pin: "" });
        window.postMessage({ type: "consent", pin: "" }, "*");
        await new Promise((resolve) => setTimeout(resolve, 300));
        const ways = [() => opened.resizeTo(10, 10), () => opened.document.querySelector("#sign"), () => frame.contentDocument.querySelector("#sign"), () => fetch(where)];
        const reached = await Promise.all(ways.map(async (way) => way()).map((one) => one.catch(() => null)));
        clearInterval(stealing);
        frame.remove();
        opened?.close();
        return reached.filter(Boolean).length;
      }, before[0]), 0);
      assert.deepEqual(await look(), before);
      if (name === "Firefox") { // the other browser's driver feigns that every page has the focus
        await hostile.evaluate(() => { window.own = open("about:blank", "_blank", "popup"); });
        await until("a window of the page has the focus", () => window.evaluate(() => !document.hasFocus()));
        await window.keyboard.type(kPin);
        await window.keyboard.press("Enter");
        assert.deepEqual(await window.evaluate(() => [document.hasFocus(), document.querySelector("#pin").value.length]), [false, kPin.length]);
        assert.ok(await isIdle(window), "who is asked does not look there");
        await hostile.evaluate(() => window.own.close());
      }
      await press(window, "Escape");
      await isOver(hostile, "cancelled");
      // A page that asks on and on is given up on after three, also when it takes its signings back itself.
      for (let i = 0; i < 2; ++i) {
        await ask(hostile);
        await hostile.evaluate("abort.abort()");
        await isOver(hostile, "AbortError");
      }
      await begin(hostile, "sign", id, digest);
      await isOver(hostile, "asked-too-often");
      await hostile.close();
      await untilHosts(home, 1);
    });

    if (name === "Chromium") await t.test("the popup says what failed, and nothing of cards, pages and PINs", async () => {
      const other = await openOther("signer");
      await connect(other, domainList("example.test"));
      await assert.rejects(call(other, "list"), { kind: "domain-not-authorised" });
      const extension = new URL(browser.serviceWorkers()[0].url()).host;
      const popup = await visit(browser, `chrome-extension://${extension}/popup/popup.html`);
      await popup.getByText("Found, protocol 1.1").waitFor();
      await popup.getByText("This site is not in the list of domains that may use the card.").waitFor();
      await check(browser, popup, "the popup");
      const report = await popup.evaluate(() => new Promise((resolve) => {
        navigator.clipboard.writeText = async (text) => resolve(text);
        document.querySelector("#copy").click();
      }));
      assert.equal(JSON.parse(report).lastFailure.kind, "domain-not-authorised");
      assert.doesNotMatch(report, /Núñez|invoice|123456|000000/);
    });

    if (process.env.SIGNING_HOST_CARD) await t.test("a card that counts is locked at last, and the doctor says it in the same words", async () => {
      await agree(await ask(page)); // a PIN that is right gives the card its tries back
      assert.equal(typeof (await outcome(page)).value, "string");
      const other = await openOther("signer");
      const window = await ask(other);
      for (const [pin, told] of [["000000", /was wrong\./], ["111111", /2 times/], ["222222", /3 times/]]) {
        await agree(window, pin);
        await says(window, "#message", told);
      }
      await agree(window, kPin);
      await says(window, "#ended-text", /^The card is locked after too many wrong PINs\./);
      assert.equal((await outcome(other)).kind, "pin-locked");
      const { stdout } = spawnSync(path.join(build, "doctor/signing-host-doctor"), { env: home.env, encoding: "utf8" });
      assert.match(stdout, /^TO DO +The card is locked after too many wrong PINs\./m);
    });
  });
}

test("why a page is not served", () => {
  const states = { "https://a.pages.example/x": "served", "https://one.example:8443/sign.now?a=b": "served", "about:blank": "no-web", "https://one.example/": "not-listed",
    "https://one.example:8443/signed": "not-listed", "https://badpages.example/": "not-listed", "http://a.pages.example/": "insecure" };
  const served = ["https://*.pages.example/*", "https://one.example:8443/sign.*"];
  for (const [address, state] of Object.entries(states)) assert.equal(pageState(address, served, true), state, address);
});

test("what the host gets: no signing request before the consent, never the page's name, no more after a lock; and what was signed is told", async () => {
  const event = () => { const heard = []; return { addListener: (one) => heard.push(one), tell: (told) => heard.forEach((one) => one(told)) }; };
  const port = (members) => ({ told: [], onMessage: event(), onDisconnect: event(), disconnect() {}, postMessage(message) { this.told.push(message); }, ...members });
  const opened = [];
  globalThis.chrome = {
    runtime: { id: "me", getURL: (file) => `chrome-extension://me/${file}` }, storage: { session: { set: async () => {} } },
    windows: { onRemoved: event(), remove: async () => {}, create: async ({ url }) => { opened.push(url); return { id: 1 }; } },
  };
  const packed = path.join(extensionOf(temporaryFolder(), {}), "chromium");
  const [{ Broker }, { SigningWindow }] = await Promise.all(["broker.js", "windows.js"].map((file) => import(path.join(packed, file))));
  const refusal = { command: 5, error: true, lastLowLevelError: 0, errorMessage: "", missingPin: true, pinRetryCount: 0 };
  const { key, certificate } = makeCertificate();
  const fetched = { command: 4, error: false, certificate };
  const signed = (what) => ({ command: 5, error: false, pkcs1: sign("sha256", what, key).toString("base64") });
  const answers = [fetched, { ...refusal, lastError: 11 }, { command: 3, error: true }, signed("x"),
    { ...refusal, lastError: 5, lastLowLevelError: 0xa4, missingPin: false, invalidPin: true }, fetched, signed("of another")];
  const host = port({ postMessage(request) { this.told.push(request); queueMicrotask(() => answers.length && this.onMessage.tell(answers.shift())); } });
  const page = port({ sender: { tab: { id: 1 } } });
  const start = () => ({ port: host, end() {}, replace: async () => start() });
  new Broker(page, "https://page.test", { start, mayBatch: true });
  const fetching = { command: 4, certId: "AQ==" };
  const signing = { command: 5, certId: "AQ==", digest: digestOf("x").digest("base64") };
  page.onMessage.tell({ command: 5, certId: "AQ==", documents: [{ digest: signing.digest, name: "a name" }, { digest: signing.digest }] });
  const [url] = await until("a window is asked for", () => opened.length > 0 && opened);
  assert.deepEqual(host.told, [fetching]);
  const senders = [{ id: "me", url: "https://page.test/" }, { id: "other", url }, { id: "me", url }];
  const join = (sender, url) => { const one = port({ sender, name: `window:${url.split("#")[1]}` }); SigningWindow.join(one); return one; };
  const windows = senders.map((sender) => join(sender, url));
  windows[2].onMessage.tell({ type: "consent", pin: "1234" });
  const answer = await until("the page has its answer", () => page.told[0]?.answer);
  assert.deepEqual([answer.lastLowLevelError, answer.signatures], [0xa4, [signed("x").pkcs1]]);
  assert.deepEqual(host.told, [fetching, signing, { command: 3, pin: "1234" }, signing, signing]);
  const told = windows.map((one) => one.told.map(({ type, kind, subject, signed }) => [type, kind ?? subject?.CN, signed].join(" ").trim()));
  assert.deepEqual(told, [[], [], ["request Ana", "working", "working", "ended pin-locked 1"]]);
  page.onMessage.tell(signing);
  await until("another window is asked for", () => opened.length > 1);
  join({ id: "me", url: opened[1] }, opened[1]).onMessage.tell({ type: "consent", pin: "" });
  await until("a signature of another document is kept back", () => page.told[1]?.kind === "signature-misfit");
});
