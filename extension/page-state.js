// Whether a page is served, and why not.
import { isTrustworthy } from "./protocol.js";

/** @param {URL} url @param {string} pattern A match pattern with http, https or * as its scheme. */
function fits(url, pattern) {
  const [, scheme, host, path] = /^([^:]+):\/\/([^/]*)(\/.*)/.exec(pattern) ?? [];
  if (scheme === undefined || (scheme !== "*" && url.protocol !== `${scheme}:`)) return false;
  const parts = path.split("*").map((part) => part.replace(/[^\w/]/g, "\\$&"));
  if (!new RegExp(`^${parts.join(".*")}$`).test(url.pathname + url.search)) return false;
  const [name, port] = host.split(/:(?=[\d*]+$)/);
  if (port !== undefined && port !== "*" && port !== url.port) return false;
  if (name === "*") return true;
  return name.startsWith("*.") ? `.${url.hostname}`.endsWith(name.slice(1)) : url.hostname === name;
}

/**
 * @param {string | undefined} address Of the page, as far as the browser tells it.
 * @param {string[]} sites The operator's match patterns.
 * @param {boolean} answers Whether the content script is in the page.
 * @returns {"served" | "no-answer" | "no-web" | "insecure" | "not-listed"}
 */
export function pageState(address, sites, answers) {
  if (!address || !/^https?:/.test(address)) return "no-web";
  const url = new URL(address);
  if (!isTrustworthy(url)) return "insecure";
  if (!sites.some((site) => fits(url, site))) return "not-listed";
  return answers ? "served" : "no-answer";
}
