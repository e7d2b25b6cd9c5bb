// The camera's own picture: its film where it has one, and else a snapshot each second. A film is read part by part,
// since a browser that shows one by itself does not tell when it stands still.

import { byId, setText, show } from "./element.js";
import { pathOf } from "./live.js";

const PACE = 1000, LONGEST_PAUSE = 30000, LONGEST_STILL = 10000; // ms
const LONGEST_HEAD = 1024; // bytes of a part

/// The pictures of a multipart body as the gateway sends it, each with its length.
async function* parts(body, type) {
  const reader = body.getReader(), text = new TextDecoder("latin1");
  let bytes = new Uint8Array(0);
  const more = async () => {
    const { done, value } = await reader.read();
    if (done) throw new Error("the film has ended");
    const all = new Uint8Array(bytes.length + value.length);
    all.set(bytes);
    all.set(value, bytes.length);
    bytes = all;
  };
  const boundary = /boundary=(\S+)/.exec(type)?.[1];
  for (;;) {
    let head, end;
    for (;;) {
      head = text.decode(bytes.subarray(0, LONGEST_HEAD));
      end = head.indexOf("\r\n\r\n");
      if (end >= 0 || bytes.length >= LONGEST_HEAD) break;
      await more();
    }
    const length = Number(/^content-length: *(\d+)/im.exec(head.slice(0, end))?.[1]);
    if (end < 0 || !head.includes(`--${boundary}`) || !length) throw new Error("the film cannot be understood");
    const kind = /^content-type: *(\S+)/im.exec(head.slice(0, end))?.[1];
    while (bytes.length < end + 4 + length) await more();
    yield new Blob([bytes.subarray(end + 4, end + 4 + length)], { type: kind });
    bytes = bytes.slice(end + 4 + length);
  }
}

export class Picture {
  #section = byId("picture");
  #image = this.#section.querySelector("img");
  #note = this.#section.querySelector("p");
  #source = null;
  #leaving = new AbortController();

  constructor() {
    // Nobody looks: nothing is fetched.
    document.addEventListener("visibilitychange", () => this.#begin());
  }

  /// Null for none.
  follow(camera) {
    const kind = camera?.picture.film ? "film" : camera?.picture.snapshot ? "snapshot" : null;
    if (camera?.name === this.#source?.name && kind === (this.#source?.kind ?? null)) return;
    this.#source = kind ? { name: camera.name, kind } : null;
    show(this.#section, kind !== null);
    show(this.#note, false);
    this.#image.removeAttribute("src");
    if (kind) this.#image.alt = `What ${camera.name} sees`;
    this.#begin();
  }

  #begin() {
    this.#leaving.abort();
    this.#leaving = new AbortController();
    if (this.#source && !document.hidden) this.#run(this.#source, this.#leaving.signal);
  }

  async #run(source, leaving) {
    let pause = PACE;
    while (!leaving.aborted) {
      try {
        await this.#look(source, leaving, () => (pause = PACE));
      } catch (error) {
        if (leaving.aborted) return;
        setText(this.#note, `There is no picture at the moment (${error.message}).`);
        show(this.#note, true);
        pause = Math.min(2 * pause, LONGEST_PAUSE);
      }
      await new Promise((over) => setTimeout(over, pause));
    }
  }

  /// One snapshot, or one film until it ends.
  async #look({ name, kind }, leaving, seen) {
    const attempt = new AbortController(), end = () => attempt.abort(new Error("it stands still"));
    leaving.addEventListener("abort", end);
    let still = setTimeout(end, LONGEST_STILL);
    try {
      const response = await fetch(`/api/v1${pathOf(name)}/${kind}`,
                                   { headers: { "X-PTZ-Console": "1" }, cache: "no-store", signal: attempt.signal });
      if (!response.ok) throw new Error((await response.json()).detail);
      const pictures = kind === "film" ? parts(response.body, response.headers.get("Content-Type"))
                                       : [await response.blob()];
      for await (const picture of pictures) {
        await this.#put(picture, leaving);
        seen();
        clearTimeout(still);
        still = setTimeout(end, LONGEST_STILL);
      }
    } finally {
      clearTimeout(still);
      leaving.removeEventListener("abort", end);
      attempt.abort();
    }
  }

  async #put(picture, leaving) {
    if (leaving.aborted) return;
    const before = this.#image.src;
    this.#image.src = URL.createObjectURL(picture);
    if (before) URL.revokeObjectURL(before);
    await this.#image.decode().catch(() => {
      throw new Error("it is no picture that this browser knows");
    });
    show(this.#note, false);
  }
}
