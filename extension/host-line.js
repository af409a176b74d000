// Asks the host one thing after another, and replaces a host that must forget what it knows.

/** The host is gone; `reason` and `detail` are what the page is told. */
export class HostGone extends Error {
  constructor(reason, detail) {
    super(detail);
    this.reason = reason;
    this.detail = detail;
  }
}

export class HostLine {
  #host = null;
  #reasonOf;
  #onGone;
  /** The page's command 0: a new host knows nothing. */
  #credentials = null;
  #turn = Promise.resolve();
  #underWay = null;
  #isOver = false;

  /**
   * @param {() => import("./flow.js").Host | null} start Starts a host; null when there are too many.
   * @param {(port: object) => HostGone} reasonOf Why a port closed.
   * @param {(gone: HostGone) => void} onGone Called when the host ends by itself.
   */
  constructor(start, reasonOf, onGone) {
    this.#reasonOf = reasonOf;
    this.#onGone = onGone;
    const host = start();
    if (host) {
      this.#take(host);
    } else {
      this.#isOver = true;
      onGone(new HostGone("too-many", ""));
    }
  }

  get isOpen() {
    return !this.#isOver;
  }

  /** @param {object} request As the host reads it. @returns {Promise<object>} The host's answer. */
  ask(request) {
    const answer = this.#turn.then(() => new Promise((resolve, reject) => {
      if (!this.#host) throw new HostGone("closed", "");
      this.#underWay = { resolve, reject };
      this.#host.port.postMessage(request);
      if (request.command === 0) this.#credentials = request;
    }));
    this.#turn = answer.catch(() => {});
    return answer;
  }

  /**
   * Another host in place of this one, whatever this one is doing; it has no PIN and knows of no
   * refusal. What is asked meanwhile waits: beside the old one there may be no room.
   */
  renew() {
    const replaced = this.#drop()?.replace();
    if (!replaced) return; // over, or another one is on its way
    this.#turn = replaced.then((host) => (this.#isOver ? host.end() : this.#take(host)));
    if (this.#credentials) this.ask(this.#credentials).catch(() => {});
  }

  end() {
    this.#isOver = true;
    this.#drop()?.end();
  }

  #drop() {
    const host = this.#host;
    this.#host = null;
    this.#fail(new HostGone("closed", ""));
    return host;
  }

  #take(host) {
    this.#host = host;
    host.port.onMessage.addListener((answer) => {
      if (host !== this.#host) return;
      const underWay = this.#underWay;
      this.#underWay = null;
      underWay?.resolve(answer);
    });
    host.port.onDisconnect.addListener(() => {
      const gone = this.#reasonOf(host.port);
      if (host !== this.#host) return;
      this.#isOver = true;
      this.#host = null;
      this.#fail(gone);
      this.#onGone(gone);
    });
  }

  #fail(gone) {
    const underWay = this.#underWay;
    this.#underWay = null;
    underWay?.reject(gone);
  }
}
