// Where the camera looks: pan as a dial, tilt as an arc, the last minute as a track that goes from the middle, a
// minute ago, to the rim, now.

import { element, setText, shortly, svg } from "./element.js";

const RIM = 46, TRACK_RIM = 42, HUB = 10;
const TRACK = 60000; // ms

const onCircle = (angle, radius) => {
  const radians = (angle * Math.PI) / 180;
  return [radius * Math.cos(radians), radius * Math.sin(radians)];
};
const point = ([x, y]) => `${x.toFixed(2)} ${y.toFixed(2)}`;

/// Both angles as SVG has them: 0 to the right, clockwise.
function arc(from, to, radius) {
  if (Math.abs(to - from) >= 360)
    return `M ${radius} 0 A ${radius} ${radius} 0 1 1 ${-radius} 0 A ${radius} ${radius} 0 1 1 ${radius} 0`;
  const [least, greatest] = [Math.min(from, to), Math.max(from, to)];
  return `M ${point(onCircle(least, radius))} A ${radius} ${radius} 0 ${greatest - least > 180 ? 1 : 0} 1 ` +
         point(onCircle(greatest, radius));
}

/// An axis as a round instrument; `angleOf` turns its degrees into SVG's.
class Instrument {
  constructor(title, angleOf, marks) {
    this.title = title;
    this.angleOf = angleOf;
    this.range = svg("path", { class: "range" });
    this.track = svg("polyline", { class: "track" });
    this.needle = svg("path", { class: "needle", d: `M 0 -2 L ${RIM - 3} 0 L 0 2 Z` });
    this.drawing = svg("svg", { role: "img" }, this.range,
      ...marks.map((degrees) => {
        const [x, y] = onCircle(angleOf(degrees), RIM + 8);
        // Beside the rim, wide ones too.
        const side = Math.abs(x) < 1 ? "" : x < 0 ? "left" : "right";
        return svg("text", { x: side ? 0.94 * x : x, y, class: `mark ${side}` }, `${degrees}°`);
      }),
      this.track, this.needle, svg("circle", { r: 3, class: "hub" }));
    this.figure = element("figure", {}, this.drawing, element("figcaption", {}, title));
  }

  draw(range, degrees, kind, track) {
    this.figure.hidden = !range;
    if (!range) return;
    // The half that a head that does not turn over has no use for is left out.
    const isHalf = this.angleOf(0) === 0 && range.least >= -90 && range.greatest <= 90;
    this.drawing.setAttribute("viewBox", isHalf ? "-20 -62 92 124" : "-72 -62 144 124");
    this.range.setAttribute("d", arc(this.angleOf(range.least), this.angleOf(range.greatest), RIM));
    this.needle.setAttribute("class", `needle ${kind ?? "unknown"}`);
    if (degrees !== null) this.needle.setAttribute("transform", `rotate(${this.angleOf(degrees).toFixed(2)})`);
    this.track.setAttribute("points", track.map(({ age, degrees }) =>
      point(onCircle(this.angleOf(degrees), HUB + (TRACK_RIM - HUB) * Math.max(0, 1 - age / TRACK)))).join(", "));
    this.drawing.setAttribute("aria-label",
      degrees === null ? `${this.title}: not known` : `${this.title} ${shortly(degrees)}°`);
  }
}

export class Dials {
  #pan = new Instrument("Pan", (degrees) => degrees - 90, [0, 90, 180, -90]);
  #tilt = new Instrument("Tilt", (degrees) => 0 - degrees, [90, 45, 0, -45, -90]);
  #fill = element("span", { class: "fill" });
  #zoom = element("div", { class: "zoom-bar", role: "meter", "aria-label": "Zoom" }, this.#fill);
  #zoomFigure = element("figure", { class: "zoom-figure" }, this.#zoom, element("figcaption", {}, "Zoom"));
  #text;
  #last = {}; // known of the camera, while it is on its way

  constructor(at, text) {
    at.append(this.#pan.figure, this.#tilt.figure, this.#zoomFigure);
    this.#text = text;
  }

  /// `since`: how long ago the camera was told of so, in ms, which adds to all ages.
  draw(camera, track, since) {
    const { ranges } = camera;
    if (this.#last.camera !== camera.name) this.#last = { camera: camera.name, position: null };
    if (camera.position) this.#last.position = camera.position;
    const position = camera.position ?? (this.#last.position && { ...this.#last.position, kind: "old" });
    const axis = (name) => track.map((each) => ({ age: each.age_ms + each.since, degrees: each[name] }));
    this.#pan.draw(ranges.pan, position?.pan ?? null, position?.kind, axis("pan"));
    this.#tilt.draw(ranges.tilt, position?.tilt ?? null, position?.kind, axis("tilt"));

    const zoom = position?.zoom ?? null, range = ranges.zoom;
    this.#zoomFigure.hidden = !range || zoom === null;
    if (!this.#zoomFigure.hidden) {
      const part = (zoom - range.least) / (range.greatest - range.least || 1);
      this.#fill.style.height = `${100 * Math.max(0, Math.min(1, part))}%`;
      for (const [name, value] of [["valuemin", range.least], ["valuemax", range.greatest], ["valuenow", zoom]])
        this.#zoom.setAttribute("aria-" + name, value);
    }
    setText(this.#text, position ? this.#tell(position, since) : "Where it looks is not known.");
  }

  #tell({ pan, tilt, zoom, kind, age_ms }, since) {
    const places = `pan ${shortly(pan)}°, tilt ${shortly(tilt)}°` +
                   (zoom === null ? "" : `, zoom ${shortly(zoom)}`);
    const seconds = Math.round((age_ms + since) / 1000);
    const age = seconds < 2 ? "just now" : seconds < 120 ? `${seconds} s ago` : `${Math.round(seconds / 60)} min ago`;
    if (kind === "old") return `Not known now; it was at ${places}.`;
    if (kind === "target") return `Sent to ${places} ${age}; where it is it does not tell.`;
    if (kind === "estimated") return `About ${places}, judged ${age} by what it was sent.`;
    return `At ${places}, as it told ${age}.`;
  }
}
