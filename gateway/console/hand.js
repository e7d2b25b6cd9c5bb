// What the pad, the keys, the buttons and the gamepad together want a camera to do, and that it stops when they
// do not want it any more.

const LEASE = 1000, RENEW = 300; // ms
const PACE = 100; // ms between changes of speed
const NO_WORD = 1000; // ms after which a renewal that nobody answered means that there is no connection

export class Hand extends EventTarget {
  #live;
  #say;
  #camera = null;
  #pushes = new Map(); // by input: {pan, tilt, zoom}, -1 to 1
  #speed = 0.5;
  #drive = null; // the one that goes on: {camera, isTaken, isReleased, why}
  #sent = null;
  #sentAt = 0;
  #later = 0;
  #renewal = 0;

  constructor(live, say) {
    super();
    this.#live = live;
    this.#say = say;
    addEventListener("blur", () => this.letGo("this window lost the focus"));
    addEventListener("pagehide", () => this.letGo("this page was left"));
    document.addEventListener("visibilitychange", () => document.hidden && this.letGo("this page was hidden"));
  }

  get isDriving() {
    return this.#drive !== null;
  }

  /// From now on it is about this camera; what was driven stops.
  turnTo(camera) {
    if (this.#camera?.name !== camera?.name) this.letGo("another camera was chosen");
    this.#camera = camera;
  }

  set speed(part) {
    this.#speed = part;
    if (this.#pushes.size) this.#update();
  }

  push(input, part) {
    this.#pushes.set(input, part);
    this.#update();
  }

  lift(input) {
    if (this.#pushes.delete(input)) this.#update();
  }

  /// Stops what is driven and has every input begin anew.
  letGo(why) {
    const drive = this.#drive;
    this.forget();
    if (drive) this.#stop(drive, why);
  }

  /// As `letGo` where the stop is somebody else's.
  forget() {
    this.#pushes.clear();
    this.#end();
    this.dispatchEvent(new Event("letgo"));
  }

  #end() {
    clearTimeout(this.#later);
    clearInterval(this.#renewal);
    this.#later = this.#renewal = 0;
    this.#drive = this.#sent = null;
  }

  #wanted() {
    const { ranges, can } = this.#camera;
    const sum = (axis) => {
      let all = 0;
      for (const part of this.#pushes.values()) all += part[axis] ?? 0;
      return Math.round(100 * this.#speed * Math.max(-1, Math.min(1, all))) / 100;
    };
    const wanted = {}, before = this.#sent ?? {};
    // What is left out goes on as it is, so that what was driven is said to stop.
    const pan = sum("pan"), tilt = sum("tilt"), zoom = sum("zoom");
    if (can.drive && (pan || tilt || before.pan || before.tilt)) {
      if (ranges.pan_speed) wanted.pan = pan;
      if (ranges.tilt_speed) wanted.tilt = tilt;
    }
    if (can.zoom_drive && ranges.zoom_speed && (zoom || before.zoom)) wanted.zoom = zoom;
    return wanted;
  }

  #update() {
    if (!this.#camera) return;
    const wanted = this.#wanted();
    if (!Object.values(wanted).some((speed) => speed !== 0)) {
      const drive = this.#drive;
      this.#end();
      if (drive) this.#stop(drive);
      return;
    }
    if (JSON.stringify(wanted) === JSON.stringify(this.#sent)) return;
    const wait = this.#sentAt + PACE - performance.now();
    if (wait > 0) {
      if (!this.#later)
        this.#later = setTimeout(() => {
          this.#later = 0;
          this.#update();
        }, wait);
      return;
    }
    this.#send(wanted);
  }

  async #send(part) {
    const camera = this.#camera.name;
    this.#sent = part;
    this.#sentAt = performance.now();
    if (!this.isDriving) this.#say(`${camera}: moving while held`);
    const drive = { camera, isTaken: this.#drive?.isTaken ?? false, isReleased: false };
    this.#drive = drive;
    this.#renew(camera);
    const taken = () => {
      drive.isTaken = true;
      if (drive.isReleased) this.#stop(drive, drive.why);
    };
    try {
      const { outcome } = await this.#live.ask(camera, "drive", { part, lease_ms: LEASE }, taken);
      if (this.#drive !== drive) return;
      this.forget();
      this.#say(`${camera}: the move is over: ${outcome.text ?? outcome.error?.text ?? outcome.result}`, !outcome.done);
    } catch (problem) {
      if (this.#drive !== drive && !drive.isReleased) return;
      if (this.#drive === drive) this.forget();
      this.#say(`${camera}: ${problem.message}`, true);
    }
  }

  #renew(camera) {
    if (this.#renewal) return;
    let since = 0;
    this.#renewal = setInterval(async () => {
      const now = performance.now();
      if (since && now - since > NO_WORD) {
        this.#live.drop();
        return;
      }
      since ||= now;
      const drive = this.#drive;
      try {
        await this.#live.ask(camera, "renew");
        since = 0;
      } catch (problem) {
        if (this.#drive !== drive || !this.#live.isOpen) return;
        this.forget();
        this.#say(`${camera}: it could not be kept going: ${problem.message}`, true);
      }
    }, RENEW);
  }

  /// What the gateway refused is not ours to stop: somebody else may be driving.
  #stop(drive, why) {
    if (!drive.isTaken) {
      drive.isReleased = true;
      drive.why = why;
      return;
    }
    this.dispatchEvent(new CustomEvent("stop", { detail: { camera: drive.camera, why } }));
  }
}
