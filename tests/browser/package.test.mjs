// Installed as users install it: the Debian package, and the registration for one user.
import assert from "node:assert/strict";
import { execFileSync, spawnSync } from "node:child_process";
import { createHash } from "node:crypto";
import { existsSync, mkdirSync, readdirSync, readFileSync, writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { build, call, connect, domainList, hostProgram, isRoot, openPage, operator, root, startChromium, temporaryFolder, until } from "./support.mjs";

const chromiumId = [...createHash("sha256").update(Buffer.from(operator.chromiumKey, "base64")).digest("hex").slice(0, 32)]
  .map((digit) => String.fromCharCode(97 + parseInt(digit, 16))).join("");
const kSystemManifests = [
  "/etc/opt/chrome/native-messaging-hosts", "/etc/chromium/native-messaging-hosts", "/etc/opt/edge/native-messaging-hosts",
  "/usr/lib/mozilla/native-messaging-hosts"].map((folder) => `${folder}/${operator.hostName}.json`);

function assertNamesTheExtension(file, host) {
  const { path: program, allowed_origins, allowed_extensions } = JSON.parse(readFileSync(file));
  const expected = /mozilla/.test(file) ? operator.firefoxId : `chrome-extension://${chromiumId}/`;
  assert.deepEqual([program, allowed_origins ?? allowed_extensions], [host, [expected]], file);
}

const everything = (folder) => readdirSync(folder, { recursive: true }).sort();
const isInstalled = () => spawnSync("dpkg", ["-s", "signing-host"]).status === 0;

test("the Debian package", {
  timeout: 900_000,
  skip: !isRoot ? "installing a package needs root" : isInstalled() && "signing-host is installed on this machine and stays as it is",
}, async (t) => {
  const key = path.join(build, "development-key/domains-public.pem");
  execFileSync(path.join(root, "script/package"), [`-DDOMAINS_PUBLIC_KEY=${key}`], { stdio: ["ignore", "ignore", "inherit"] });
  const folder = path.join(root, "build/package");
  const archive = path.join(folder, readdirSync(folder).find((name) => name.endsWith(".deb")));
  assert.match(execFileSync("dpkg-deb", ["--field", archive, "Depends"], { encoding: "utf8" }), /libnss3.*libc6|libc6.*libnss3/);

  t.after(() => spawnSync("dpkg", ["--purge", "signing-host"]));
  execFileSync("dpkg", ["--install", archive], { stdio: "ignore" });
  for (const file of kSystemManifests) assertNamesTheExtension(file, "/usr/bin/signing-host");

  await t.test("Chromium finds the host in the system's folder", async (t) => {
    const { page } = await openPage(t, startChromium, { register: false });
    await connect(page, domainList("signer.localhost"));
    assert.equal((await call(page, "list")).length, 1);
  });

  const own = execFileSync("dpkg", ["-L", "signing-host"], { encoding: "utf8" }).split("\n").filter((file) => /signing.host/.test(file));
  assert.ok(own.length >= 5, own.join());
  execFileSync("dpkg", ["--remove", "signing-host"], { stdio: "ignore" });
  assert.deepEqual(own.filter(existsSync), [], "removal leaves nothing");
  await until("its record is gone", () => !isInstalled());
});

test("registration for one user is undone exactly", (t) => {
  const home = temporaryFolder(t);
  const env = { PATH: process.env.PATH, HOME: home };
  const run = (script, ...args) => spawnSync(path.join(root, "script", script), args, { env, encoding: "utf8" });
  mkdirSync(path.join(home, ".config/chromium/NativeMessagingHosts"), { recursive: true });
  const before = everything(home);

  assert.equal(run("install-user", hostProgram).status, 0);
  const manifests = everything(home).filter((name) => name.endsWith(".json"));
  assert.equal(manifests.length, 6);
  for (const name of manifests) assertNamesTheExtension(path.join(home, name), hostProgram);
  assert.equal(run("install-user", hostProgram).status, 0, "a second time changes nothing");
  assert.equal(run("uninstall-user").status, 0);
  assert.deepEqual(everything(home), before);

  // What another installation or the user put there is left alone.
  const foreign = path.join(home, `.config/chromium/NativeMessagingHosts/${operator.hostName}.json`);
  writeFileSync(foreign, "theirs");
  assert.match(run("install-user", hostProgram).stderr, /was not made by this script/);
  run("uninstall-user");
  assert.equal(readFileSync(foreign, "utf8"), "theirs");
  assert.match(run("install-user", path.join(home, "absent")).stderr, /there is no host at .*absent/);
});
