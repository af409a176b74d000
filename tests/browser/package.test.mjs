// The registration for one user.
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { mkdirSync, readdirSync, readFileSync, writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { hostProgram, operator, root, temporaryFolder } from "./support.mjs";

const everything = (folder) => readdirSync(folder, { recursive: true }).sort();

test("registration for one user is undone exactly", () => {
  const home = temporaryFolder();
  const env = { PATH: process.env.PATH, HOME: home };
  const run = (script, ...args) => spawnSync(path.join(root, "script", script), args, { env, encoding: "utf8" });
  mkdirSync(path.join(home, ".config/chromium/NativeMessagingHosts"), { recursive: true });
  const before = everything(home);

  assert.equal(run("install-user", hostProgram).status, 0);
  const manifests = everything(home).filter((name) => name.endsWith(".json"));
  assert.equal(manifests.length, 6);
  // Real browsers read one of each kind in the other tests.
  const kinds = new Set(manifests.map((name) => `${/mozilla/.test(name)} ${readFileSync(path.join(home, name), "utf8")}`));
  assert.equal(kinds.size, 2);
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
