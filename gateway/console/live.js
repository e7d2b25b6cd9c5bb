// The connection to the gateway: what it tells of the cameras, and what it is asked.

const FIRST_PAUSE = 500, LONGEST_PAUSE = 15000; // ms, between tries to connect
const PING_AFTER = 2000, GIVE_UP_AFTER = 3000; // ms without a word

/// What the gateway refused, or what could not be asked of it. Its message is for people.
export class Problem extends Error {
  constructor(message, status = 0) {
    super(message);
    this.status = status;
  }
}

/// A request beside the socket; answers what came as JSON, null for nothing. Raises `Problem`.
export async function request(method, path, body) {
  let response;
  try {
    response = await fetch("/api/v1" + path, {
      method,
      headers: { "X-PTZ-Console": "1", ...(body === undefined ? {} : { "Content-Type": "application/json" }) },
      body: body === undefined ? undefined : JSON.stringify(body),
      cache: "no-store",
      signal: AbortSignal.timeout(15000),
    });
  } catch {
    throw new Problem("the gateway does not answer");
  }
  const answer = await response.json().catch(() => null);
  if (!response.ok) throw new Problem(answer?.detail ?? `the gateway answered ${response.status}`, response.status);
  return answer;
}

export const pathOf = (camera) => "/cameras/" + encodeURIComponent(camera);

/// `told` has what is called: hello(me, cameras), camera(camera), gone(name), seen(seen), loginWanted(), and
/// lost(milliseconds until the next try, what the gateway says if anything), at each try that fails.
export class Live {
  #told;
  #socket = null; // from when the gateway has greeted
  #opening = null;
  #asked = new Map(); // by number: what waits for an answer
  #next = 1;
  #pause = FIRST_PAUSE;
  #timer = 0;
  #try = 0; // counts what was begun, so that a late end of an earlier one changes nothing
  #heard = 0;
  #pinged = 0;

  constructor(told) {
    this.#told = told;
    setInterval(() => this.#listen(), 1000);
    const again = () => this.#timer && this.begin();
    addEventListener("online", again);
    addEventListener("offline", () => this.#socket && this.drop());
    document.addEventListener("visibilitychange", () => document.hidden || again());
  }

  get isOpen() {
    return this.#socket !== null;
  }

  async begin() {
    clearTimeout(this.#timer);
    this.#timer = 0;
    const number = ++this.#try;
    this.#leave();
    let socket;
    try {
      // A socket that is refused does not say why.
      await request("GET", "/me");
      if (number !== this.#try) return;
      const scheme = location.protocol === "https:" ? "wss" : "ws";
      socket = this.#opening = new WebSocket(`${scheme}://${location.host}/api/v1/socket?console`);
    } catch (problem) {
      if (number !== this.#try) return;
      if (problem.status === 401) this.#told.loginWanted();
      else this.#retry(problem.status ? problem.message : "");
      return;
    }
    const late = setTimeout(() => number === this.#try && !this.isOpen && this.drop(), 10000);
    socket.onmessage = (event) => number === this.#try && this.#read(socket, JSON.parse(event.data));
    socket.onclose = () => {
      clearTimeout(late);
      if (number === this.#try) this.drop();
    };
  }

  /// The connection is over, however that was found out. The gateway stops what was driven.
  drop() {
    ++this.#try;
    this.#leave();
    const asked = [...this.#asked.values()];
    this.#asked.clear();
    for (const { refuse } of asked) refuse(new Problem("the connection was lost before the answer came"));
    this.#retry("");
  }

  /// No further tries, and nothing is told any more.
  end() {
    clearTimeout(this.#timer);
    this.#timer = 0;
    ++this.#try;
    this.#leave();
  }

  /// Answers what comes of a wish, as soon as it is over. `taken` is called as soon as the gateway goes about it, for
  /// a drive only. Nothing is kept for later: without a connection it fails at once.
  ask(camera, word, body = {}, taken = () => {}) {
    if (!this.isOpen) return Promise.reject(new Problem("there is no connection to the gateway"));
    const id = this.#next++;
    this.#socket.send(JSON.stringify({ ...body, id, camera, do: word }));
    return new Promise((answer, refuse) => this.#asked.set(id, { answer, refuse, taken }));
  }

  #leave() {
    (this.#socket ?? this.#opening)?.close();
    this.#socket = this.#opening = null;
  }

  #retry(why) {
    const pause = this.#pause;
    this.#pause = Math.min(2 * pause, LONGEST_PAUSE);
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.begin(), pause);
    this.#told.lost(pause, why);
  }

  #read(socket, message) {
    this.#heard = performance.now();
    if (message.hello) {
      this.#socket = socket;
      this.#pinged = 0;
      this.#pause = FIRST_PAUSE;
      this.#told.hello(message.hello.me, message.hello.cameras);
    } else if (message.camera) {
      this.#told.camera(message.camera);
    } else if (message.gone) {
      this.#told.gone(message.gone);
    } else if (message.seen) {
      this.#told.seen(message.seen);
    } else if (this.#asked.has(message.id)) {
      const { answer, refuse, taken } = this.#asked.get(message.id);
      if (message.taken) return taken();
      this.#asked.delete(message.id);
      if (message.problem) refuse(new Problem(message.problem.detail, message.problem.status));
      else answer(message);
    }
  }

  /// A network that is gone closes no socket for minutes.
  #listen() {
    if (!this.isOpen) return;
    const now = performance.now();
    if (this.#pinged > this.#heard) {
      if (now - this.#pinged > GIVE_UP_AFTER) this.drop();
    } else if (now - this.#heard > PING_AFTER) {
      this.#pinged = now;
      this.ask(undefined, "ping").catch(() => {});
    }
  }
}
