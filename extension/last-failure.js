// The last thing that went wrong, for the popup: kept in memory until the browser ends.
import { failureKindOf } from "./failure-kind.js";

const api = globalThis.browser ?? globalThis.chrome;
const kKey = "lastFailure";

/**
 * @param {string} origin Of the page that met it.
 * @param {string} kind As the client calls it.
 * @param {Record<string, string | number>} [detail] For a report: no PIN, no names, nothing of documents.
 */
export function rememberFailure(origin, kind, detail = {}) {
  api.storage.session.set({ [kKey]: { origin, kind, detail, time: Date.now() } }).catch(() => {});
}

/** Remembers what an answer of the host tells, unless it is part of every signing. */
export function rememberAnswer(origin, answer) {
  // Answers to other commands repeat the state of the last token command.
  if (!answer?.error || ![2, 4, 5].includes(answer.command)) return;
  const kind = "message" in answer ? "not-initialised" : failureKindOf(answer);
  if (kind === "pin-missing") return;
  const { lastError = "", lastLowLevelError = "", errorMessage = "" } = answer;
  rememberFailure(origin, kind, { command: answer.command, lastError, lastLowLevelError, errorMessage });
}

/** @returns {Promise<{origin: string, kind: string, detail: object, time: number} | undefined>} */
export const lastFailure = async () => (await api.storage.session.get(kKey))[kKey];
