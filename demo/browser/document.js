// What is signed: a text, or a file that is read in pieces. Only its digest leaves the page.
import { $, numberWords, texts } from "./page.js";

/** A browser's buffer holds less. */
const kMaxFileBytes = 2 ** 31;

/** A failure of the document, not of the card. */
export class DocumentError extends Error {
  constructor(summary, advice) {
    super(summary);
    this.summary = summary;
    this.advice = advice;
  }
}

/** @type {File | null} */
let file = null;

export const chosenKind = () => document.querySelector('input[name="kind"]:checked').value;
export const isChosen = () => (chosenKind() === "text" ? $("text").value !== "" : file !== null);

export function chooseFile(chosen) {
  if (!chosen) return;
  file = chosen;
  $("file-name").textContent = texts.of("demo.what.file", { name: file.name, bytes: numberWords(file.size) });
}

/** Size in bytes of what is chosen. */
export const chosenSize = () => (chosenKind() === "text" ? new Blob([$("text").value]).size : file.size);

async function bytesOf({ name, size }, stream, tell, signal) {
  const bytes = new Uint8Array(size);
  let at = 0;
  for (const reader = stream.getReader(); ;) {
    signal?.throwIfAborted();
    const { done, value } = await reader.read();
    if (done) return bytes;
    bytes.set(value, at);
    at += value.length;
    tell(texts.of("demo.status.hashing", { name, percent: Math.floor((100 * at) / size) }));
  }
}

/**
 * The document as it stands now.
 * @param {(words: string) => void} [tell] Is told how far the reading of a file is.
 * @param {AbortSignal} [signal]
 * @returns {Promise<{kind: string, name: string, size: number, blob: Blob, digest: Uint8Array}>}
 */
export async function readDocument(tell = () => {}, signal) {
  const kind = chosenKind();
  const blob = kind === "text" ? new Blob([$("text").value]) : file;
  const name = kind === "text" ? "text.txt" : file.name;
  if (blob.size >= kMaxFileBytes) {
    throw new DocumentError(texts.of("demo.problem.too-big", { name }), texts.of("demo.problem.too-big-advice"));
  }
  let bytes;
  try {
    bytes = kind === "text" ? await blob.arrayBuffer() : await bytesOf(file, file.stream(), tell, signal);
  } catch (error) {
    signal?.throwIfAborted();
    throw Object.assign(new DocumentError(texts.of("demo.problem.unreadable", { name }), texts.of("demo.problem.unreadable-advice")), { cause: error });
  }
  return { kind, name, size: blob.size, blob, digest: new Uint8Array(await crypto.subtle.digest("SHA-256", bytes)) };
}
