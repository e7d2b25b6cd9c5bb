// The inputs of a hand: the pad, buttons that are held, keys, a gamepad.

const DEAD = 0.12; // of the pad's radius, or of a stick's way
const NUDGE = 400; // ms, for whoever can press a button but not hold it
const ARROWS = { ArrowLeft: { pan: -1 }, ArrowRight: { pan: 1 }, ArrowUp: { tilt: 1 }, ArrowDown: { tilt: -1 },
                 "+": { zoom: 1 }, "=": { zoom: 1 }, "-": { zoom: -1 } };

/// Nothing in the middle, and from there on evenly to the rim.
function beyondDead(x, y) {
  const length = Math.hypot(x, y);
  if (length < DEAD) return { x: 0, y: 0 };
  const scale = Math.min((length - DEAD) / (1 - DEAD), 1) / length;
  return { x: x * scale, y: y * scale };
}

export function pushByPad(hand, pad) {
  const knob = pad.querySelector(".knob");
  let pointer = null;

  const place = (x, y) => (knob.style.transform = `translate(${x}px, ${y}px)`);
  const follow = (event) => {
    const box = pad.getBoundingClientRect();
    const radius = box.width / 2;
    let x = event.clientX - box.left - radius, y = event.clientY - box.top - radius;
    const beyond = Math.hypot(x, y) / radius;
    if (beyond > 1) [x, y] = [x / beyond, y / beyond];
    place(x, y);
    const part = beyondDead(x / radius, y / radius);
    hand.push("pad", { pan: part.x, tilt: -part.y });
  };
  const release = () => {
    pointer = null;
    place(0, 0);
    pad.classList.remove("held");
    hand.lift("pad");
  };

  pad.addEventListener("pointerdown", (event) => {
    if (pointer !== null || event.button !== 0 || event.target.closest("button") || isOff(pad)) return;
    pointer = event.pointerId;
    pad.setPointerCapture(pointer);
    pad.classList.add("held");
    follow(event);
  });
  pad.addEventListener("pointermove", (event) => event.pointerId === pointer && follow(event));
  for (const end of ["pointerup", "pointercancel", "lostpointercapture"])
    pad.addEventListener(end, (event) => event.pointerId === pointer && release());
  pad.addEventListener("contextmenu", (event) => event.preventDefault());
  hand.addEventListener("letgo", release);
}

/// A button that pushes as long as it is held: `data-pan`, `data-tilt` and `data-zoom` say whereto.
export function pushByButton(hand, button) {
  const input = "button " + button.getAttribute("aria-label");
  const part = {};
  for (const axis of ["pan", "tilt", "zoom"]) if (axis in button.dataset) part[axis] = Number(button.dataset[axis]);

  const press = () => {
    if (isOff(button)) return;
    button.classList.add("held");
    hand.push(input, part);
  };
  const release = () => {
    button.classList.remove("held");
    hand.lift(input);
  };
  button.addEventListener("pointerdown", (event) => {
    if (event.button !== 0) return;
    button.setPointerCapture(event.pointerId);
    press();
  });
  for (const end of ["pointerup", "pointercancel", "lostpointercapture", "blur"]) button.addEventListener(end, release);
  button.addEventListener("keydown", (event) => {
    if (event.key !== "Enter") return;
    event.preventDefault();
    if (!event.repeat) press();
  });
  button.addEventListener("keyup", (event) => event.key === "Enter" && release());
  button.addEventListener("contextmenu", (event) => event.preventDefault());
  // A screen reader presses without a pointer and without a key.
  button.addEventListener("click", (event) => {
    if (event.detail !== 0) return;
    press();
    setTimeout(release, NUDGE);
  });
  hand.addEventListener("letgo", () => button.classList.remove("held"));
}

/// The arrow keys, + and -, wherever they write nothing. `step` is called in place of a push where the camera
/// goes by steps only; `stop` for Space and Escape.
export function pushByKeys(hand, { mayPush, step, stop }) {
  const down = new Map(); // by the key's place, since what it writes may change until it comes up
  const update = () => {
    const all = {};
    for (const part of down.values())
      for (const axis of Object.keys(part)) all[axis] = (all[axis] ?? 0) + part[axis];
    down.size ? hand.push("keys", all) : hand.lift("keys");
  };
  addEventListener("keydown", (event) => {
    if (event.target.closest("dialog")) return;
    if (event.ctrlKey || event.altKey || event.metaKey) {
      // The system may keep the key's coming up for itself.
      if (down.size) hand.letGo("a shortcut was pressed");
      return;
    }
    const isField = event.target.closest("input, select, textarea");
    if (event.key === "Escape" || (event.key === " " && !isField)) {
      event.preventDefault();
      if (!event.repeat) stop();
    } else if (event.key in ARROWS && !isField) {
      const part = ARROWS[event.key];
      const pushes = mayPush(part);
      if (!pushes && !step(part, event.repeat)) return;
      event.preventDefault();
      if (!pushes || event.repeat) return;
      down.set(event.code, part);
      update();
    }
  }, true);
  addEventListener("keyup", (event) => {
    // A button is pressed by Space when the key comes up.
    if (event.key === " " && event.target.closest("button, summary")) event.preventDefault();
    if (down.delete(event.code)) update();
  }, true);
  hand.addEventListener("letgo", () => down.clear());
}

/// The left stick turns, the right one's y or the triggers zoom, the second button stops. After a stop the sticks
/// have to come to the middle before they count again.
export function pushByGamepad(hand, { mayPush, stop }) {
  let isArmed = false, isPushing = false, wasStop = false, isLooking = false;
  const look = () => {
    const gamepad = navigator.getGamepads().find((each) => each?.connected);
    if (!gamepad) {
      isLooking = isPushing = isArmed = false;
      hand.lift("gamepad");
      return;
    }
    requestAnimationFrame(look);
    const isStandard = gamepad.mapping === "standard";
    const isStop = isStandard && gamepad.buttons[1].pressed;
    if (isStop && !wasStop) stop();
    wasStop = isStop;
    const stick = beyondDead(gamepad.axes[0] ?? 0, gamepad.axes[1] ?? 0);
    const part = { pan: stick.x, tilt: -stick.y, zoom: 0 };
    if (isStandard)
      part.zoom = gamepad.buttons[7].value - gamepad.buttons[6].value - beyondDead(0, gamepad.axes[3] ?? 0).y;
    const isNeutral = !part.pan && !part.tilt && !part.zoom;
    if (isNeutral) isArmed = true;
    if (isArmed && !isNeutral && document.hasFocus() && mayPush(part)) {
      isPushing = true;
      hand.push("gamepad", part);
    } else if (isPushing) {
      isPushing = false;
      hand.lift("gamepad");
    }
  };
  addEventListener("gamepadconnected", () => {
    if (isLooking) return;
    isLooking = true;
    look();
  });
  hand.addEventListener("letgo", () => (isArmed = isPushing = false));
}

function isOff(at) {
  return at.matches(":disabled, [aria-disabled=true]");
}
