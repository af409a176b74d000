// Joins the page to the background: opaque messages between a line to the page and a port of the
// extension. What a request may say is the background's to check, which a page cannot reach
// into; how many there are is limited here, in the page's own process, where a flood harms nobody
// else.
"use strict";

(() => {
  const api = globalThis.browser ?? globalThis.chrome;

  /** Connections that a page may have at once. */
  const kMaxConnections = 4;
  /** New ones that it may open in a row, and how many more each second. */
  const kMaxNewInARow = 8;
  const kNewPerSecond = 2;
  /** Time between the starts of two hosts: Firefox starts processes one by one, and every page's messages to theirs wait. */
  const kBetweenStartsMs = 250;
  /** Longest text of a request: more than the host reads. The background checks to the byte. */
  const kMaxTextLength = 1000;
  /** A request has fewer members, and a signing has no more documents. */
  const kMaxMembers = 8;
  const kMaxDocuments = 200;
  /** Longest message: a signing of as many documents. */
  const kMaxMessageLength = 500_000;
  /** Refusals between two answers; a page that goes on is not talking but flooding. */
  const kMaxRefusals = 100;

  /** What ends each connection that is open; all are called when the page is left. */
  const connections = new Set();

  /** Once a person sees the page: one that is being prerendered waits. */
  function whenSeen(act) {
    if (document.prerendering) document.addEventListener("prerenderingchange", act, { once: true });
    else act();
  }

  // The page's element, in no document, is the line: both sides tell each other events of it. Those
  // stay in the page's process, where every port's messages pass Firefox's main process, and
  // whoever floods that with ports of his own keeps all of them waiting.
  function onConnect({ relatedTarget: element }) {
    if (!(element instanceof Element) || element.isConnected) return;
    whenSeen(() => {
      let listener = () => {};
      join({
        postMessage: (message) => element.dispatchEvent(new CustomEvent("signing-host-told", { detail: JSON.stringify(message) })),
        close: () => element.removeEventListener("signing-host-asked", listener),
        set onmessage(hear) {
          this.close();
          listener = ({ detail }) => { if (typeof detail === "string" && detail.length <= kMaxMessageLength) hear?.({ data: parsed(detail) }); };
          element.addEventListener("signing-host-asked", listener);
        },
      });
    });
  }
  const parsed = (text) => { try { return JSON.parse(text); } catch { return null; } };

  // Pages with a client of before send a port.
  function onMessage(event) {
    // Only the page itself: a frame in it, or a window that opened it, is another source.
    if (event.source !== window || event.data?.signingHost !== "connect" || event.ports.length !== 1) return;
    whenSeen(() => join(event.ports[0]));
  }

  // A page kept for the back button lives on, but its host must not.
  function onLeave() {
    for (const end of [...connections]) end("closed");
  }

  // The second time changes nothing: the listeners are the same ones.
  function listen() {
    window.addEventListener("message", onMessage);
    document.addEventListener("signing-host-connect", onConnect);
    window.addEventListener("pagehide", onLeave);
  }
  listen();
  // document.open() takes every listener of the window away, but not those who watch the document.
  new MutationObserver(listen).observe(document, { childList: true });

  // The popup asks whether this page is served.
  api.runtime.onMessage.addListener((message, _, answer) => {
    if (message?.type === "address") answer(location.href);
  });

  let newOnes = kMaxNewInARow;
  let countedAt = performance.now();
  function mayOpen() {
    const now = performance.now();
    newOnes = Math.min(kMaxNewInARow, newOnes + ((now - countedAt) / 1000) * kNewPerSecond);
    countedAt = now;
    if (newOnes < 1 || connections.size >= kMaxConnections) return false;
    --newOnes;
    return true;
  }

  /** The starts asked for; one that the page has closed meanwhile never comes. */
  let starts = Promise.resolve();

  const isShort = (value) => typeof value === "number" || (typeof value === "string" && value.length <= kMaxTextLength);
  const isRecord = (value) => typeof value === "object" && value !== null && !Array.isArray(value)
    && Object.keys(value).length <= kMaxMembers && Object.keys(value).every(isShort);

  /** Why a request goes no further, or null. Looks at no more of it than a request may have. */
  function flawOf(request) {
    if (!isRecord(request)) return "a request is an object with few members.";
    const { documents = [], ...members } = request;
    const isList = Array.isArray(documents) && documents.length <= kMaxDocuments && documents.every(isRecord);
    const texts = isList ? documents.concat(members).flatMap(Object.values) : [null];
    return texts.every(isShort) ? null : "its members are short texts, and numbers.";
  }

  /** @param {{postMessage: (message: object) => void, close: () => void, onmessage: any}} page Its line, or a MessagePort. */
  function join(page) {
    const give = (reason) => {
      page.postMessage({ type: "closed", reason });
      page.close();
    };
    /** Deaf, but not closed: to throw away what waits in a closed port takes Firefox seconds. */
    const giveUp = () => {
      page.onmessage = null;
      page.postMessage({ type: "closed", reason: "closed" });
    };
    if (!mayOpen()) return give("too-many");
    let background = null;
    /** One request at a time: the host works on one, and answers carry no number. */
    let isUnderWay = false;
    let isCancelled = false;
    let refusals = 0;

    const end = (reason, tell = give) => {
      if (!connections.delete(end)) return;
      background?.disconnect();
      if (reason) tell(reason);
      else page.close();
    };
    connections.add(end);

    const refuse = (reason) => {
      if (++refusals > kMaxRefusals) end("closed", giveUp);
      else page.postMessage({ type: "refused", reason });
    };
    const start = () => {
      if (!connections.has(end)) return undefined;
      try {
        background = api.runtime.connect({ name: "page" });
      } catch {
        // The extension was updated or removed since this page was loaded.
        return end("no-extension");
      }
      background.onMessage.addListener((message) => {
        if (!connections.has(end)) return;
        if (message.type === "answer") refusals = 0;
        isUnderWay = isUnderWay && message.type === "open";
        page.postMessage(message);
      });
      background.onDisconnect.addListener(() => end("closed"));
      return new Promise((resolve) => setTimeout(resolve, kBetweenStartsMs));
    };
    starts = starts.then(start);
    page.onmessage = ({ data }) => {
      if (data?.type === "close") return end();
      if (!connections.has(end)) return;
      if (data?.type === "cancel" && isUnderWay && !isCancelled) {
        isCancelled = true;
        background.postMessage({ type: "cancel" });
      }
      if (data?.type !== "request") return;
      if (!background) return refuse("the connection is not open yet.");
      if (isUnderWay) return refuse("the answer to the one before it has not come yet.");
      const flaw = flawOf(data.request);
      if (flaw !== null) return refuse(flaw);
      isUnderWay = true;
      isCancelled = false;
      background.postMessage(data.request);
    };
  }
})();
