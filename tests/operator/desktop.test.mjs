// Two operators' products on one desktop, installed as an administrator does: packages and policies, nothing
// loaded unpacked. Runs as root in a system of its own (./own-system), under ../browser/run.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { generateKeyPairSync } from "node:crypto";
import { cpSync, mkdirSync, readdirSync, readFileSync, writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { build, call, connect, domainList, kBrowsers, kPin, makeHome, operator as example, root, servePages, startServer, temporaryFolder, until, visit }
  from "../browser/support.mjs";

const run = (program, ...args) => execFileSync(program, args, { stdio: ["ignore", "ignore", "inherit"] });
const kPolicies = "/etc/firefox/policies/policies.json";
// Debian's Firefox takes an extension that Mozilla has not signed, and one that asks a server without https
// for updates, only where the administrator's policies say so.
const kOwnPolicies = { Preferences: Object.fromEntries(["xpinstall.signatures.required", "extensions.checkUpdateSecurity"]
  .map((name) => [name, { Value: false, Status: "locked" }])) };

/** Builds a product whose extension comes from a server of this machine; gives its two packages. */
function makeProduct(folder, name, server) {
  const extensionKey = generateKeyPairSync("rsa", { modulusLength: 2048 });
  const own = path.join(folder, `operator-${name}`), out = path.join(folder, name);
  cpSync(path.join(root, "operator/example"), own, { recursive: true });
  writeFileSync(path.join(own, "operator.json"), JSON.stringify({ ...example, hostName: `test.${name}.host`, package: `${name}-sign`,
    sites: [`http://${name}.localhost/*`], firefoxId: `${name}@example.test`, updateUrl: `${server}${name}/`, domainsPublicKey: path.join(build, "development-key/domains-public.pem"),
    chromiumKey: extensionKey.publicKey.export({ type: "spki", format: "der" }).toString("base64"), pinEntry: "page" }));
  run(path.join(root, "script/operator"), own, out);
  // What Chromium installs from a server is signed with the extension's own key.
  writeFileSync(path.join(own, "extension.pem"), extensionKey.privateKey.export({ type: "pkcs8", format: "pem" }));
  run("unzip", "-q", path.join(out, "extension-chromium-self-hosted.zip"), "-d", path.join(out, "extension-chromium"));
  execFileSync("chromium", ["--no-sandbox", "--headless=new", `--user-data-dir=${own}/packing`, `--pack-extension=${out}/extension-chromium`,
    `--pack-extension-key=${own}/extension.pem`], { stdio: "ignore" });
  return readdirSync(out).filter((file) => /^\w+-sign(-policies)?_.*deb$/.test(file)).map((file) => path.join(out, file));
}

/** Opens a page of a product and its host, as soon as the browser has installed the extension. */
async function open(browser, url) {
  const page = await browser.newPage();
  await until(`an extension on ${url}`, async () => {
    await page.goto(url);
    return connect(page, domainList("localhost")).then(() => true, (error) => { if (error.kind !== "no-extension") throw error; });
  }, 60);
  return page;
}

async function sign(page) {
  const [{ id }] = await call(page, "list");
  const digest = Buffer.alloc(32, 7).toString("base64");
  await assert.rejects(call(page, "sign", id, digest), { kind: "pin-missing" });
  await call(page, "setPin", kPin);
  assert.equal(Buffer.from(await call(page, "sign", id, digest), "base64").length, 256);
}

test("two products side by side, by policy", { timeout: 900_000 }, async (t) => {
  const folder = temporaryFolder();
  // The folders of "updateUrl".
  const told = await startServer(t, "python3", ["-u", "-m", "http.server", "--bind", "127.0.0.1", "--directory", folder, "0"]);
  const server = `http://localhost:${/port (\d+)/.exec(told)[1]}/`;
  const address = await servePages(t);
  mkdirSync(path.dirname(kPolicies), { recursive: true });
  writeFileSync(kPolicies, JSON.stringify({ policies: kOwnPolicies }));
  const packages = ["first", "second"].map((name) => makeProduct(folder, name, server));
  run("apt-get", "install", "--quiet", "--yes", ...packages.flat());

  const homes = { Chromium: makeHome(), Firefox: makeHome() };
  const inEach = async (what, road) => {
    for (const [name, start] of kBrowsers) await t.test(`${name}: ${what}`, async (t2) => road(await start(t2, homes[name]), name));
  };
  await inEach("both sign, and an upgrade lets an open page go on", async (browser) => {
    await sign(await open(browser, address("second")));
    const page = await open(browser, address("first"));
    run("dpkg", "--install", ...packages[0]); // the same version again replaces every file, as an upgrade does
    await sign(page);
    await sign(await open(browser, address("first")));
  });

  run("dpkg", "--purge", "second-sign-policies", "second-sign");
  assert.deepEqual(JSON.parse(readFileSync(kPolicies)).policies.Preferences, kOwnPolicies.Preferences);
  await inEach("the other signs after one was removed", async (browser, name) => {
    await sign(await open(browser, address("first")));
    const page = await visit(browser, address("second"));
    // Chromium takes the extension away, Firefox leaves it to the person.
    await assert.rejects(connect(page, domainList("localhost")), { kind: name === "Chromium" ? "no-extension" : "host-not-found" });
  });
});
