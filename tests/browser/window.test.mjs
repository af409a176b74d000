// The extension's own window: what it shows, who may drive it, and how a signing ends.
import assert from "node:assert/strict";
import { createHash, verify, X509Certificate } from "node:crypto";
import { execFileSync } from "node:child_process";
import { readFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { pageState } from "../../extension/page-state.js";
import { readableOrigin } from "../../extension/shown.js";
import { call, connect, domainList, extensionOf, hostsOf, inPage, kDomainsKey, kPin, makeHome, openPage, root, startChromium, startFirefox, startServer,
  temporaryFolder, until, untilHosts } from "./support.mjs";

const digestOf = (text) => createHash("sha256").update(text);
const credentials = domainList("signer.localhost|other.localhost");
const operatorMembers = { pinEntry: "extension", oneConsentForBatch: true };

/** Begins a signing that `outcome` waits for; options as the client takes them. */
const begin = (page, method, ...args) => page.evaluate(`window.result = client.${method}(...${JSON.stringify(args)})
  .then((value) => ({ value }), ({ kind, signatures }) => ({ kind, signatures })); 0`);
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

/** The driver may miss the answer of a window that closes. */
const press = (window, key) => window.keyboard.press(key).catch(() => {});

/** Agrees by keyboard alone. */
async function agree(window, pin = "") {
  await armed(window);
  await window.focus(pin ? "#pin" : "#sign");
  await window.keyboard.type(pin);
  await press(window, "Enter");
}

for (const [name, start] of [["Chromium", startChromium], ["Firefox", startFirefox]]) {
  test(name, { timeout: 180_000 }, async (t) => {
    const { home, address, browser, page } = await openPage(t, start, { operatorMembers, sites: ["signer", "other"] });
    await connect(page, credentials);
    const [{ id }] = await call(page, "list");
    const digest = digestOf("what is signed").digest("base64");

    await t.test("what is asked, a wrong PIN, the same again, the right one", async () => {
      await begin(page, "sign", id, digest, { name: "contract\u3164 \u202Efdp.<b>exe</b>" });
      const window = await theWindow(browser);
      assert.equal(await textOf(window, "#origin"), address("signer").slice(0, -1));
      assert.match(await textOf(window, "dl"), /María Núñez Solís \(FIRMA\)[^]*AC de Prueba/);
      assert.equal(await textOf(window, ".name"), "contractU+3164 U+202Efdp.<b>exe</b>");
      assert.equal(await textOf(window, "code"), digestOf("what is signed").digest("hex"));
      await agree(window, "000000");
      await says(window, "#message", /The PIN was wrong\./);
      await agree(window, "000000");
      await says(window, "#message", /not tried again/);
      await agree(window, kPin);
      const { value } = await outcome(page);
      const certificate = new X509Certificate(Buffer.from(await call(page, "certificate", id), "base64"));
      assert.ok(verify("sha256", Buffer.from("what is signed"), certificate.publicKey, Buffer.from(value, "base64")));
      await noWindow(browser);
    });

    await t.test("a known PIN still needs consent, and not in the window's first moment", async () => {
      await begin(page, "sign", id, digest);
      const window = await theWindow(browser);
      assert.match(await textOf(window, "#documents"), /does not say what it is/);
      await armed(window);
      // What a script could do, were there a way in: only a person's own events count.
      await window.evaluate(() => {
        document.querySelector("#sign").click();
        document.querySelector("#form").requestSubmit();
        document.querySelector("#sign").dispatchEvent(new KeyboardEvent("keydown", { key: "Enter", bubbles: true }));
      });
      await new Promise((resolve) => setTimeout(resolve, 300)); // a signing takes less
      assert.equal(await page.evaluate(() => Promise.race([window.result, "pending"])), "pending");
      await window.evaluate(() => { window.dispatchEvent(new Event("resize")); });
      await window.keyboard.press("Enter"); // a moment after the window moved
      assert.equal(await page.evaluate(() => Promise.race([window.result, "pending"])), "pending");
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
      await agree(window);
      assert.equal(new Set((await outcome(page)).value).size, 30);
    });

    await t.test("giving up: the window, the page, leaving the page", async () => {
      const ways = [
        (window) => press(window, "Escape"), (window) => window.close().catch(() => {}),
      ];
      for (const way of ways) {
        await begin(page, "sign", id, digest);
        const window = await theWindow(browser);
        await way(window);
        assert.equal((await outcome(page)).kind, "cancelled");
        await noWindow(browser);
      }
      await begin(page, "sign", id, digest);
      await agree(await theWindow(browser));
      assert.equal(typeof (await outcome(page)).value, "string");
      await page.evaluate(`window.abort = new AbortController();
        window.result = client.sign("${id}", "${digest}", { signal: abort.signal }).catch(({ name }) => name); 0`);
      await theWindow(browser);
      await page.evaluate("abort.abort()");
      assert.equal(await outcome(page), "AbortError");
      await noWindow(browser);
      const left = await browser.newPage();
      await left.goto(address("signer"));
      await connect(left, credentials);
      await begin(left, "sign", id, digest);
      const window = await theWindow(browser);
      await agree(window, "000000");
      await says(window, "#message", /wrong/);
      await press(window, "Escape");
      assert.equal((await outcome(left)).kind, "cancelled");
      assert.equal((await call(left, "list")).length, 1, "the host that held a wrong PIN, and would refuse, was replaced");
      await noWindow(browser);
      await begin(left, "sign", id, digest);
      await theWindow(browser);
      await left.goto(address("other"));
      await noWindow(browser);
      await left.close();
      await untilHosts(home, 1);
    });

    await t.test("two pages get one window after the other, and the page's PIN commands are refused", async () => {
      const other = await browser.newPage();
      await other.goto(address("other"));
      await connect(other, credentials);
      await begin(page, "sign", id, digest, { name: "first" });
      const first = await theWindow(browser);
      await begin(other, "sign", id, digest, { name: "second" });
      await says(first, "#waiting", /1 more request waits/);
      assert.equal((await windowsOf(browser)).length, 1);
      await agree(first);
      assert.equal(typeof (await outcome(page)).value, "string");
      const second = await theWindow(browser);
      assert.match(await textOf(second, "#origin"), /other\.localhost/);
      assert.equal(await textOf(second, ".name"), "second");
      await press(second, "Escape");
      for (const [method, ...args] of [["setPin", "1"], ["typePinCharacter", "1"], ["deletePinCharacter"]]) {
        await assert.rejects(call(page, method, ...args), { kind: "refused", message: /own window/ });
      }
      await other.close();
    });

    await t.test("a hostile page neither reaches, covers nor floods it", async () => {
      const hostile = await browser.newPage();
      await hostile.goto(address("other"));
      await connect(hostile, credentials);
      await begin(hostile, "sign", id, digest, { name: "<img src=x onerror=alert(1)>\n".repeat(20) });
      const window = await theWindow(browser);
      const where = await window.evaluate(() => location.href);
      const before = await window.evaluate(() => [window.opener, innerWidth, innerHeight, document.querySelector("#documents").scrollHeight > 0]);
      const reached = await inPage(hostile, async (_, where) => {
        const got = [];
        const frame = Object.assign(document.createElement("iframe"), { src: where });
        document.body.append(frame);
        for (const name of ["", "_blank", "window"]) {
          try {
            const opened = window.open(where, name, "width=10,height=10");
            opened.resizeTo(10, 10);
            got.push(opened.document.querySelector("#sign") ? "document" : "");
            opened.close();
          } catch { /* not ours */ }
        }
        await fetch(where).then(() => got.push("fetched"), () => {});
        new BroadcastChannel("window").postMessage({ type: "consent", pin: "" });
        window.postMessage({ type: "consent", pin: "" }, "*");
        for (let i = 0; i < 20; ++i) window.focus();
        for (const type of ["keydown", "click", "submit"]) document.dispatchEvent(new Event(type, { bubbles: true }));
        await new Promise((resolve) => setTimeout(resolve, 300));
        try { if (frame.contentDocument?.querySelector("#sign")) got.push("frame"); } catch { /* not ours */ }
        frame.remove();
        return got.filter(Boolean);
      }, where);
      assert.deepEqual(reached, []);
      assert.deepEqual(await window.evaluate(() => [window.opener, innerWidth, innerHeight, document.querySelector("#documents").scrollHeight > 0]), before);
      assert.equal(await window.evaluate(() => document.querySelectorAll("img").length), 0);
      // Nothing of the page's paints outside its frame, and what is decided with is in sight.
      assert.ok(await window.evaluate(() => document.querySelector("#sign").getBoundingClientRect().bottom <= innerHeight));
      await press(window, "Escape");
      assert.equal((await outcome(hostile)).kind, "cancelled");
      // A page that asks on and on is given up on after three.
      const kinds = [];
      for (let i = 0; i < 4; ++i) {
        await begin(hostile, "sign", id, digest);
        const next = await Promise.race([theWindow(browser), outcome(hostile).then(() => null)]);
        if (next) await press(next, "Escape");
        kinds.push((await outcome(hostile)).kind);
      }
      assert.deepEqual(kinds, ["cancelled", "cancelled", "asked-too-often", "asked-too-often"]);
      await hostile.close();
      await noWindow(browser);
      assert.equal(hostsOf(home).length, 1);
    });
  });
}

for (const [name, start] of [["Chromium", startChromium], ["Firefox", startFirefox]]) {
  test(`${name}: the demo page as the example's operator has it`, { timeout: 120_000 }, async (t) => {
    const home = makeHome(t);
    const url = await startServer(t, path.join(root, "demo/browser/serve"), ["--port", "0", "--key", kDomainsKey]);
    const browser = await start(t, home, extensionOf(home.home, {}));
    const page = await browser.newPage();
    await page.goto(`${url.trim()}?lang=es`);
    const sign = () => page.evaluate(() => document.querySelector("#sign").click());
    await until("the card is read", () => page.evaluate(() => document.querySelector(".certificate") !== null));
    await sign();
    const window = await theWindow(browser);
    assert.match(await textOf(window, "#origin"), /^http:\/\/localhost:\d+$/);
    await press(window, "Escape");
    await noWindow(browser);
    await until("the page can go on", () => page.evaluate(() => !document.querySelector("#sign").disabled));
    await sign();
    await agree(await theWindow(browser), kPin);
    await until("the signature is good", () => page.evaluate(() => document.querySelector("#result").matches(".good:not([hidden])")));
  });
}

test("for everybody", { timeout: 120_000 }, async (t) => {
  const axe = readFileSync(path.join(root, "tests/browser/node_modules/axe-core/axe.min.js"), "utf8");
  const { browser, page } = await openPage(t, startChromium, { operatorMembers });
  await connect(page, credentials);
  const [{ id }] = await call(page, "list");
  const digest = digestOf("x").digest("base64");

  const check = async (view, what) => {
    for (const colorScheme of ["light", "dark"]) {
      for (const forcedColors of ["none", "active"]) {
        await view.emulateMedia({ colorScheme, forcedColors });
        await view.setViewportSize({ width: 320, height: 700 });
        assert.ok(await view.evaluate(() => document.documentElement.scrollWidth <= 320), `${what} fits into 320 px`);
        const client = await browser.newCDPSession(view); // past the page's own policy for scripts
        await client.send("Runtime.evaluate", { expression: axe });
        const { violations } = await view.evaluate((isForced) => globalThis.axe.run(isForced ? { rules: { "color-contrast": { enabled: false } } } : {}),
          forcedColors === "active"); // those colours are the system's
        assert.deepEqual(violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html)}`), [], `${what}, ${colorScheme}, forced colours ${forcedColors}`);
      }
    }
  };
  await begin(page, "signAll", id, Array.from({ length: 12 }, (_, i) => ({ digest, name: `a name of the page, number ${i} ${"and more ".repeat(20)}` })));
  const window = await theWindow(browser);
  await check(window, "the window");
  await agree(window, "000000");
  await says(window, "#message", /wrong/);
  await check(window, "the window after a wrong PIN");
  await agree(window, kPin);
  await outcome(page);

  const strange = await browser.newPage();
  await strange.goto(page.url());
  await connect(strange, domainList("example.test"));
  await assert.rejects(call(strange, "list"), { kind: "domain-not-authorised" });
  const popup = await browser.newPage();
  const extension = new URL(browser.serviceWorkers()[0].url()).host;
  await popup.goto(`chrome-extension://${extension}/popup/popup.html`);
  await popup.getByText("Found, protocol 1.1").waitFor();
  await popup.getByText("This site is not in the list of domains that may use the card.").waitFor();
  await check(popup, "the popup");
  const report = await popup.evaluate(() => new Promise((resolve) => {
    navigator.clipboard.writeText = async (text) => resolve(text);
    document.querySelector("#copy").click();
  }));
  assert.equal(JSON.parse(report).lastFailure.kind, "domain-not-authorised");
  assert.doesNotMatch(report, /Núñez|a name of the page|123456|000000/);
});

test("an origin as people write it, and why a page is not served", () => {
  const origins = {
    "https://sign.example:8443": "https://sign.example:8443", "https://xn--caf-dma.example": "https://café.example",
    "https://xn--80ak6aa92e.example:1": "https://аррӏе.example:1", "https://xn--n3h.example": "https://☃.example",
    "https://xn--wgv71a119e.example": "https://日本語.example", "https://xn--99999999.example": "https://xn--99999999.example",
  };
  for (const [origin, readable] of Object.entries(origins)) assert.equal(readableOrigin(origin), readable);
  const sites = ["https://*.pages.example/*", "http://localhost/*", "https://one.example:8443/*"];
  const states = {
    "https://a.pages.example/x": "served", "https://pages.example/": "served", "http://localhost:8080/": "served", "https://one.example:8443/": "served",
    "https://one.example/": "not-listed", "https://badpages.example/": "not-listed", "http://a.pages.example/": "insecure", "about:blank": "no-web",
  };
  for (const [address, state] of Object.entries(states)) assert.equal(pageState(address, sites, true), state, address);
  assert.equal(pageState("http://localhost/", sites, false), "no-answer");
});

test("what the host gets: no signing request before the consent, never the page's name, and no more after a lock", async (t) => {
  const told = [];
  const event = () => { const heard = []; return { addListener: (one) => heard.push(one), tell: (...args) => heard.forEach((one) => one(...args)) }; };
  const port = (who, more) => ({ onMessage: event(), onDisconnect: event(), disconnect() {}, postMessage: (message) => told.push([who, message]), ...more });
  const opened = [];
  globalThis.chrome = {
    runtime: { id: "me", getURL: (file) => `chrome-extension://me/${file}` }, storage: { session: { set: async () => {} } },
    windows: { onRemoved: event(), remove: async () => {}, create: async ({ url }) => { opened.push(url); return { id: 1 }; } },
  };
  const packed = path.join(extensionOf(temporaryFolder(t), {}), "chromium");
  const [{ Broker }, { SigningWindow }] = await Promise.all(["broker.js", "windows.js"].map((file) => import(path.join(packed, file))));
  const certificate = execFileSync("openssl", ["req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=Ana", "-keyout", "/dev/null", "-outform", "der"],
    { stdio: ["ignore", "pipe", "ignore"] }).toString("base64");
  const missing = { command: 5, error: true, lastError: 11, lastLowLevelError: 0, errorMessage: "", missingPin: true, invalidPin: false, pinRetryCount: 0 };
  const answers = [{ command: 4, error: false, certificate }, missing, { command: 3, error: true }, { ...missing, lastError: 5, lastLowLevelError: 0xa4, missingPin: false, invalidPin: true }];
  const host = port("host", { postMessage(request) { told.push(["host", request]); queueMicrotask(() => answers.length && this.onMessage.tell(answers.shift())); } });
  const page = port("page", { sender: { tab: { id: 1 } } });
  new Broker(page, "https://page.test", { start: () => ({ port: host, end() {} }), mayBatch: false });
  const digest = digestOf("x").digest("base64");
  page.onMessage.tell({ command: 5, certId: "AQ==", digest, name: "a name" });
  await until("a window is asked for", () => opened.length === 1);
  const requests = () => JSON.stringify(told.filter(([who]) => who === "host").map(([, request]) => request));
  assert.equal(requests(), '[{"command":4,"certId":"AQ=="}]');
  const url = opened[0];
  for (const sender of [{ id: "me", url: "https://page.test/" }, { id: "other", url }]) SigningWindow.join(port("false", { sender, name: `window:${url.split("#")[1]}` }));
  const window = port("window", { sender: { id: "me", url }, name: `window:${url.split("#")[1]}` });
  SigningWindow.join(window);
  window.onMessage.tell({ type: "consent", pin: "1234" });
  const [, { answer }] = await until("the page has its answer", () => told.find(([who]) => who === "page"));
  const sign = `{"command":5,"certId":"AQ==","digest":"${digest}"}`;
  assert.equal(requests(), `[{"command":4,"certId":"AQ=="},${sign},{"command":3,"pin":"1234"},${sign}]`);
  assert.equal(answer.lastLowLevelError, 0xa4);
  assert.deepEqual(told.filter(([who]) => who !== "host").map(([who, { type, kind, subject }]) => [who, type, kind ?? subject?.CN].join(" ").trim()),
    ["window request Ana", "window working", "window ended pin-locked", "page answer"]);

  // A page that takes its signings back itself makes windows flicker: it too is given up on after three.
  const ends = () => told.filter(([who]) => who === "page").map(([, { type }]) => type);
  for (let i = 1; i <= 4; ++i) {
    answers.push({ command: 4, error: false, certificate });
    page.onMessage.tell({ command: 5, certId: "AQ==", digest });
    if (i < 4) await until("another window", () => opened.length === i + 1);
    page.onMessage.tell({ type: "cancel" });
    await until("it has ended", () => ends().length === i + 1);
  }
  assert.deepEqual(ends().slice(1), ["cancelled", "cancelled", "cancelled", "refused"]);
});
