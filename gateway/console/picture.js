// The camera's own picture: its film where it has one, and else a snapshot each second.

import { byId, setText, show } from "./element.js";
import { pathOf } from "./live.js";

const PACE = 1000, LONGEST_PAUSE = 30000; // ms

export class Picture {
  #section = byId("picture");
  #image = this.#section.querySelector("img");
  #note = this.#section.querySelector("p");
  #source = null;
  #timer = 0;
  #pause = PACE;

  constructor() {
    this.#image.addEventListener("load", () => {
      show(this.#note, false);
      this.#pause = PACE;
      if (this.#source?.kind === "snapshot") this.#again(PACE);
    });
    this.#image.addEventListener("error", () => {
      if (!this.#source) return;
      setText(this.#note, "There is no picture at the moment.");
      show(this.#note, true);
      this.#again(this.#pause);
      this.#pause = Math.min(2 * this.#pause, LONGEST_PAUSE);
    });
    // Nobody looks: nothing is fetched.
    document.addEventListener("visibilitychange", () => (document.hidden ? this.#leave() : this.#fetch()));
  }

  /// Null for none.
  follow(camera) {
    const kind = camera?.picture.film ? "film" : camera?.picture.snapshot ? "snapshot" : null;
    if (camera?.name === this.#source?.name && kind === (this.#source?.kind ?? null)) return;
    this.#leave();
    this.#source = kind ? { name: camera.name, kind } : null;
    show(this.#section, kind !== null);
    show(this.#note, false);
    this.#pause = PACE;
    if (!kind) return;
    this.#image.alt = `What ${camera.name} sees`;
    this.#fetch();
  }

  #fetch() {
    clearTimeout(this.#timer);
    if (this.#source && !document.hidden)
      this.#image.src = `/api/v1${pathOf(this.#source.name)}/${this.#source.kind}?at=${Date.now()}`;
  }

  #again(pause) {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.#fetch(), pause);
  }

  #leave() {
    clearTimeout(this.#timer);
    this.#image.removeAttribute("src");
  }
}
