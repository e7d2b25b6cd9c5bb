// The page: what the gateway tells is shown, what people want is asked of it.

import { CameraList, healthOf, healthText, holderText } from "./cameras.js";
import { Connection } from "./connection.js";
import { Dials } from "./dial.js";
import { byId, element, setText, show } from "./element.js";
import { Hand } from "./hand.js";
import { Live, pathOf, request } from "./live.js";
import { Login } from "./login.js";
import { pushByButton, pushByGamepad, pushByKeys, pushByPad } from "./pad.js";
import { Picture } from "./picture.js";
import { Presets } from "./presets.js";

const STOP_WORD = 3000; // ms after which a stop that is not confirmed is told of
/// What results mean, for moves that were watched until they were over.
const RESULTS = {
  arrived: "arrived",
  sent: "the camera took it",
  stopped: "it was stopped before that was over",
  replaced: "something else was wanted before that was over",
  stalled: "the camera stands still short of it",
  "still moving": "it was still moving when it was last looked at",
  refused: "the camera refused",
  "login refused": "the camera refused the gateway's login",
  "not reached": "the camera cannot be reached",
  "not sent": "the camera could not be told",
  unsupported: "this camera does not do that",
  "out of range": "that is out of its range",
  failed: "the camera failed",
  abandoned: "the gateway gave it up",
};

const cameras = new Map();
let me = null;
let chosen = null; // the name
let missed = null; // the name of one that went while it was chosen
let told = 0; // when the chosen one was last told of
let track = [], exchanges = [];

// What is said.

function say(text, isBad = false) {
  setText(byId("said"), isBad ? "" : text);
  setText(byId("failed"), isBad ? text : "");
}

function tellOutcome(label, { result, text, error, done }) {
  const why = text ?? error?.text;
  say(`${label}: ${RESULTS[result] ?? result}${why ? ` (${why})` : ""}`, !done);
  return done;
}

/// Has the chosen camera do something, and tells what came of it, also answered as a boolean.
async function wish(what, word, body) {
  const camera = chosen, label = `${camera}: ${what}`;
  hand.letGo("something else was wanted");
  say(`${label} …`);
  try {
    return tellOutcome(label, (await live.ask(camera, word, body)).outcome);
  } catch (problem) {
    say(`${label}: ${problem.message}`, true);
    return false;
  }
}

/// By the connection that there is, or beside it. A stop is the only thing that is tried without one.
async function stop(camera, why) {
  const label = why ? `${camera}: stopping, since ${why}` : `${camera}: stopping`;
  say(`${label} …`);
  const late = setTimeout(() => say(`${label}: not confirmed yet!`, true), STOP_WORD);
  try {
    const outcome = live.isOpen ? (await live.ask(camera, "stop")).outcome
                                : await request("POST", pathOf(camera) + "/stop");
    clearTimeout(late);
    if (outcome.done) say(`${camera}: stopped${why ? `, since ${why}` : ""}`);
    else tellOutcome(`${camera}: NOT stopped`, outcome);
  } catch (problem) {
    clearTimeout(late);
    say(`${camera}: the stop is not confirmed: ${problem.message}`, true);
  }
}

function stopChosen() {
  if (chosen === null || byId("stop").disabled) return;
  hand.forget();
  stop(chosen);
}

// What is shown.

function showCamera() {
  const camera = cameras.get(chosen);
  show(byId("camera"), Boolean(camera));
  show(byId("none"), !camera);
  const mayMove = Boolean(camera) && camera.role !== "viewer";
  byId("stop").disabled = !mayMove;
  if (!camera) return picture.follow(null);
  const { can, ranges, role, holder } = camera;
  const isAdministrator = role === "administrator";

  setText(byId("name"), camera.name);
  setText(byId("health"), healthText(camera));
  byId("health").className = healthOf(camera);
  setText(byId("holder"), holder ? upper(holderText(camera)) : "Nobody holds it");
  byId("holder").className = holder && !holder.mine ? "held" : "";
  show(byId("take"), mayMove && !holder?.mine);
  show(byId("release"), mayMove && Boolean(holder?.mine));
  show(byId("connect"), isAdministrator && !camera.connected);
  show(byId("disconnect"), camera.connected);
  show(byId("no-rights"), !mayMove);
  show(byId("not-yet"), mayMove && !camera.connected);

  const pushesHead = mayMove && can.drive, pushesZoom = mayMove && can.zoom_drive && ranges.zoom_speed;
  const isOff = !live.isOpen;
  show(byId("pad"), pushesHead);
  byId("pad").setAttribute("aria-disabled", isOff);
  for (const button of document.querySelectorAll("#pad button")) {
    const axis = "pan" in button.dataset ? "pan_speed" : "tilt_speed";
    show(button, Boolean(ranges[axis]));
  }
  show(byId("zoom-hold"), pushesZoom);
  show(byId("pad-help"), pushesHead || pushesZoom);
  show(byId("speed-label"), pushesHead || pushesZoom);
  // Who has no pad has the steps before him.
  const steps = byId("steps"), hasPad = String([camera.name, pushesHead]);
  if (steps.dataset.hasPad !== hasPad) steps.open = !pushesHead;
  steps.dataset.hasPad = hasPad;
  const zoomsBySteps = can.zoom;
  show(byId("move-steps"), can.move_by);
  show(byId("zoom-steps"), zoomsBySteps);
  show(byId("place"), can.move_to || can.zoom_to);
  for (const [name, is] of [["pan", can.move_to], ["tilt", can.move_to], ["zoom", can.zoom_to]]) {
    const input = byId("place").elements[name], range = ranges[name];
    show(input.parentElement, is);
    if (range) input.placeholder = `${range.least} to ${range.greatest}`;
  }
  show(steps, mayMove && (can.move_by || zoomsBySteps || can.move_to || can.zoom_to));
  show(byId("iris"), mayMove && (can.iris || can.iris_auto));
  show(byId("focus"), mayMove && (can.focus || can.focus_auto));
  for (const id of ["iris", "focus"])
    for (const button of byId(id).querySelectorAll("button"))
      show(button, button.dataset.level === "auto" ? can[id + "_auto"] : can[id]);
  show(byId("home"), mayMove && can.home);
  show(byId("ask-position"), mayMove);

  picture.follow(camera);
  presets.follow(camera);
  connection.follow(camera);
  drawDials();
}

function drawDials() {
  const camera = cameras.get(chosen);
  if (!camera) return;
  const now = performance.now();
  dials.draw(camera, track.map((each) => ({ ...each, since: now - each.at })), now - told);
}

function showSeen(seen) {
  if (seen.camera !== chosen) return;
  const at = performance.now();
  track = seen.track.map((each) => ({ ...each, at }));
  exchanges = seen.exchanges.reverse();
  drawExchanges();
  drawDials();
}

function drawExchanges() {
  if (!byId("exchanges").closest("details").open) return;
  byId("exchanges").replaceChildren(...exchanges.map(({ when, text, failed }) =>
    element("li", failed ? { class: "bad" } : {}, element("time", {}, when.replace(/^.*T/, "")), " ", text,
            failed ? " (failed)" : "")));
}

const upper = (text) => text.charAt(0).toUpperCase() + text.slice(1);

function choose(name) {
  missed = null;
  if (name !== chosen) {
    hand.turnTo(cameras.get(name) ?? null);
    chosen = name;
    track = exchanges = [];
    drawExchanges();
    const camera = cameras.get(name);
    document.title = camera ? `${name} – Cameras` : "Cameras";
    history.replaceState(null, "", camera ? "#" + encodeURIComponent(name) : "#");
    list.mark(name);
    if (matchMedia("(max-width: 700px)").matches && camera) byId("list-fold").open = false;
  }
  if (live.isOpen) live.ask(chosen ?? undefined, "follow", { others: "health" }).catch(() => {});
  told = performance.now();
  showCamera();
}

// The connection.

const live = new Live({
  hello(who, all) {
    me = who;
    document.body.classList.remove("offline");
    show(byId("lost"), false);
    setText(byId("link"), "connected");
    byId("link").className = "badge ok";
    show(byId("user"), !me.anonymous);
    setText(byId("user").querySelector("span"), me.user);
    cameras.clear();
    list.clear();
    for (const camera of all) {
      cameras.set(camera.name, camera);
      list.put(camera);
    }
    const wanted = chosen ?? decodeURIComponent(location.hash.slice(1));
    hand.turnTo(cameras.get(chosen) ?? null);
    choose(cameras.has(wanted) ? wanted : all.length === 1 ? all[0].name : null);
  },
  camera(camera) {
    const wasMine = cameras.get(camera.name)?.holder?.mine;
    cameras.set(camera.name, camera);
    list.put(camera);
    // One whose connection is changed goes and comes again.
    if (camera.name === missed) return choose(missed);
    if (camera.name !== chosen) return;
    told = performance.now();
    hand.turnTo(camera);
    if (hand.isDriving && wasMine && camera.holder && !camera.holder.mine) {
      // Whoever took it has stopped it; a stop from here would be his.
      hand.forget();
      say(`${camera.name}: it is ${holderText(camera)} now`, true);
    }
    showCamera();
  },
  gone(name) {
    cameras.delete(name);
    list.remove(name);
    if (name !== chosen) return;
    hand.forget();
    say(`${name} is not among the cameras any more`, true);
    choose(null);
    missed = name;
  },
  seen: showSeen,
  lost(pause, why) {
    const drove = hand.isDriving;
    hand.forget();
    document.body.classList.add("offline");
    setText(byId("link"), "no connection");
    byId("link").className = "badge bad";
    const first = byId("lost").hidden;
    show(byId("lost"), true);
    if (why) setText(byId("lost"), `The gateway refuses this page: ${why}.`);
    else if (first || drove)
      setText(byId("lost"), "No connection to the gateway: cameras that you drove have been stopped. " +
                            "A move to a place or preset goes on to its end. Nothing is sent until it is back.");
    setText(byId("link"), `no connection; next try in ${Math.ceil(pause / 1000)} s`);
    showCamera();
  },
  loginWanted: () => login.ask(),
});

const hand = new Hand(live, say);
hand.addEventListener("stop", ({ detail: { camera, why } }) => live.isOpen && stop(camera, why));
const list = new CameraList(choose);
const dials = new Dials(byId("dials"), byId("position"));
const presets = new Presets(live, wish);
const picture = new Picture();
const connection = new Connection();
const login = new Login(() => live.begin());

// What people press.

const can = (what) => live.isOpen && cameras.get(chosen)?.role !== "viewer" && cameras.get(chosen)?.can[what];
const mayPush = (part) => Boolean(part.zoom ? can("zoom_drive") : can("drive"));

function zoomStep(direction) {
  const range = cameras.get(chosen).ranges.zoom;
  // What a step is depends on the driver's scale.
  const unit = range ? (range.greatest - range.least) / 50 : 0.25 / 3;
  wish(direction > 0 ? "zoom in" : "zoom out", "zoom", { by: direction * unit * Number(byId("zoom-size").value) });
}

function moveStep({ pan = 0, tilt = 0 }) {
  const size = Number(byId("step-size").value);
  const where = pan ? (pan > 0 ? "right" : "left") : tilt > 0 ? "up" : "down";
  wish(`${size}° ${where}`, "move", { by: { pan: pan * size, tilt: tilt * size } });
}

pushByPad(hand, byId("pad"));
for (const button of document.querySelectorAll("#pad button, #zoom-hold button")) pushByButton(hand, button);
pushByKeys(hand, {
  mayPush,
  stop: stopChosen,
  step(part, isRepeated) {
    if (!(part.zoom ? can("zoom") : can("move_by"))) return false;
    if (!isRepeated) part.zoom ? zoomStep(part.zoom) : moveStep(part);
    return true;
  },
});
pushByGamepad(hand, { mayPush, stop: stopChosen });

byId("stop").addEventListener("click", stopChosen);
byId("speed").addEventListener("input", ({ target }) => {
  hand.speed = target.value / 100;
  byId("speed-out").value = `${target.value} %`;
});
byId("move-steps").addEventListener("click", ({ target: { dataset } }) => {
  const { pan = 0, tilt = 0 } = dataset;
  if (pan || tilt) moveStep({ pan: Number(pan), tilt: Number(tilt) });
});
byId("zoom-steps").addEventListener("click", ({ target: { dataset } }) => {
  if (dataset.zoom) zoomStep(Number(dataset.zoom));
});
byId("place").addEventListener("submit", (event) => {
  event.preventDefault();
  const to = {};
  for (const name of ["pan", "tilt", "zoom"]) {
    const { value } = event.target.elements[name];
    if (value !== "") to[name] = Number(value);
  }
  wish("move to " + Object.entries(to).map(([name, value]) => `${name} ${value}`).join(", "), "move", { to });
});
for (const id of ["iris", "focus"])
  byId(id).addEventListener("click", ({ target: { dataset } }) =>
    dataset.level && wish(`${id} ${dataset.level}`, id, { level: dataset.level }));
byId("home").addEventListener("click", () => wish("go home", "home"));
byId("ask-position").addEventListener("click", () => wish("ask where it looks", "position"));
byId("connect").addEventListener("click", () => wish("connect", "connect"));
byId("disconnect").addEventListener("click", () => wish("disconnect", "disconnect"));
for (const word of ["take", "release"])
  byId(word).addEventListener("click", async () => {
    const camera = chosen;
    try {
      await live.ask(camera, word);
      say(word === "take" ? `${camera}: you have control` : `${camera}: you gave control back`);
    } catch (problem) {
      say(`${camera}: ${problem.message}`, true);
    }
  });
byId("exchanges").closest("details").addEventListener("toggle", drawExchanges);
byId("logout").addEventListener("click", async () => {
  hand.letGo("you logged out");
  live.end();
  await request("DELETE", "/login").catch(() => {});
  location.reload();
});
addEventListener("hashchange", () => {
  const name = decodeURIComponent(location.hash.slice(1));
  if (cameras.has(name)) choose(name);
});
// A page that comes back from the browser's memory has lost its connection.
addEventListener("pageshow", (event) => event.persisted && live.drop());

setInterval(drawDials, 1000);
live.begin();
