// Asks who somebody is.

import { byId, setText } from "./element.js";
import { request } from "./live.js";

export class Login {
  #dialog = byId("login");
  #form = this.#dialog.querySelector("form");
  #wrong = this.#dialog.querySelector(".bad");

  /// `done` is called when somebody is known.
  constructor(done) {
    this.#dialog.addEventListener("cancel", (event) => event.preventDefault());
    this.#form.addEventListener("submit", async (event) => {
      event.preventDefault();
      const { user, password } = this.#form.elements;
      const button = this.#form.querySelector("button");
      button.disabled = true;
      setText(this.#wrong, "");
      try {
        await request("POST", "/login", { user: user.value, password: password.value });
        this.#dialog.close();
        done();
      } catch (problem) {
        setText(this.#wrong, problem.message.charAt(0).toUpperCase() + problem.message.slice(1) + ".");
      }
      password.value = "";
      button.disabled = false;
      if (this.#dialog.open) password.focus();
    });
  }

  ask() {
    if (!this.#dialog.open) this.#dialog.showModal();
  }
}
