// The time line of the workers: zoomed, moved and walked through by mouse, touch and keyboard.

import { event, select } from "d3-selection";
import { zoom, zoomIdentity } from "d3-zoom";
import { announce, button, element, nameText, section } from "./dom.js";
import { duration, printable } from "./format.js";
import { executorLoad } from "./model.js";
import { GUTTER, TimelineDrawing, pictureHeight, workerAt } from "./timeline_drawing.js";

const HELP =
  "Keys: left and right go to the plugin before and after on the same worker, up and down to another " +
  "worker; plus and minus zoom, 0 shows the whole boot, page up and page down move; home and end go to " +
  "the first and the last; enter opens the plugin's page. With a mouse: drag, double-click, and turn " +
  "the wheel with Ctrl held.";

function legend() {
  const keys = [
    ["run", "ran"],
    ["chain", "◆ critical chain"],
    ["failed", "✕ failed"],
    ["wait", "sharing the CLI executor"],
  ];
  return element(
    "p",
    { class: "legend" },
    keys.map(([kind, text]) => element("span", { class: `key ${kind}` }, text)),
  );
}

/** What one says of a plugin in one line. */
function lineOf(plugin) {
  const times = `worker ${plugin.worker}, ${duration(plugin.start)} to ${duration(plugin.end)}`;
  const result = plugin.result === "failed" ? ", failed" : "";
  const chain = plugin.onChain ? ", critical chain" : "";
  return `: ${times}, ran ${duration(plugin.run)}${result}${chain}`;
}

export class Timeline {
  /** choose(plugin) when one is picked, open(plugin) when its page is wanted. */
  constructor(model, choose, open) {
    Object.assign(this, { model, choose, open, selected: null, transform: zoomIdentity });
    this.whole = Math.max(1, model.boot.makespan);
    this.lanes = Array.from({ length: model.boot.workers }, () => []);
    for (const plugin of model.plugins) if (plugin.ran) this.lanes[plugin.worker].push(plugin);
    this.drawing = new TimelineDrawing(model, executorLoad(model.plugins));
    this.canvas = element("canvas", { "aria-hidden": "true" });
    this.readout = element("p", { class: "readout" }, "\u00a0");
    this.box = element(
      "div",
      {
        class: "timeline",
        tabindex: "0",
        role: "application",
        "aria-roledescription": "time line",
        "aria-label": "Time line of the workers",
        "aria-describedby": "timeline-help",
        onkeydown: (press) => this.#key(press),
        onpointermove: (move) => this.#tell(this.#pluginAt(move)),
        onpointerleave: () => this.#tell(this.selected),
        onclick: (click) => this.#pick(this.#pluginAt(click)),
      },
      this.canvas,
    );
    const help = element("p", { id: "timeline-help", class: "help" }, HELP);
    const parts = [this.#controls(), legend(), this.readout, this.box, help];
    this.element = section("timeline", "Time line", ...parts);
    this.#startZooming();
  }

  draw() {
    const width = this.box.clientWidth;
    if (width === 0) return;
    const printing = document.documentElement.classList.contains("printing");
    const scale = printing ? 3 : window.devicePixelRatio;
    this.canvas.style.height = printing ? "auto" : `${pictureHeight(this.model.boot.workers)}px`;
    this.drawing.draw(this.canvas, width, scale, this.#view(), this.selected);
  }

  select(plugin) {
    this.selected = plugin;
    this.#tell(plugin);
    this.#redrawSoon();
  }

  /** Zooms so that a plugin is well seen. */
  show(plugin) {
    const margin = Math.max(plugin.run / 2, this.whole / 50);
    const from = Math.max(0, plugin.start - margin);
    const to = Math.min(this.whole, plugin.end + margin);
    this.#apply(this.#transformAt(from, Math.max(1, this.whole / Math.max(1, to - from))));
    this.element.scrollIntoView({ block: "nearest" });
    this.box.focus({ preventScroll: true });
  }

  #view() {
    const moment = (x) => ((this.transform.invertX(x) - GUTTER) / this.room) * this.whole;
    return { from: moment(GUTTER), to: moment(GUTTER + this.room) };
  }

  #controls() {
    const by = (factor) => () => this.#zoomBy(factor);
    const move = (share) => () => this.#moveBy(share);
    return element(
      "div",
      { class: "controls" },
      button("Zoom in", by(2)),
      button("Zoom out", by(1 / 2)),
      button("Whole boot", () => this.#apply(zoomIdentity)),
      button("Earlier", move(-0.5)),
      button("Later", move(0.5)),
    );
  }

  #startZooming() {
    this.zoom = zoom()
      .scaleExtent([1, Math.max(1, this.whole / 20)])
      .extent(() => this.extent)
      .duration(matchMedia("(prefers-reduced-motion: reduce)").matches ? 0 : 250)
      .filter(() => this.#isForUs())
      .on("zoom", () => {
        this.transform = event.transform;
        this.#redrawSoon();
      });
    this.#measure();
    // The page goes on to scroll under a finger.
    select(this.box).call(this.zoom).style("touch-action", "pan-y");
    new ResizeObserver(() => this.#resize()).observe(this.box);
  }

  #measure() {
    this.room = Math.max(1, this.box.clientWidth - GUTTER);
    const sides = [GUTTER, GUTTER + this.room];
    this.extent = sides.map((x) => [x, 0]);
    this.zoom.translateExtent([
      [sides[0], -Infinity],
      [sides[1], Infinity],
    ]);
  }

  /** What is seen stays. */
  #resize() {
    const { from } = this.#view();
    this.#measure();
    this.#apply(this.#transformAt(from, this.transform.k));
    this.draw();
  }

  #transformAt(from, k) {
    const x = GUTTER + (from / this.whole) * this.room;
    return zoomIdentity.translate(GUTTER - x * k, 0).scale(k);
  }

  /** The page keeps the wheel, and one finger until something is zoomed. */
  #isForUs() {
    if (event.type === "wheel") return event.ctrlKey || event.metaKey;
    if (event.type === "touchstart") return event.touches.length > 1 || this.transform.k > 1;
    return !event.button;
  }

  #apply(transform) {
    select(this.box).call(this.zoom.transform, transform);
  }

  #zoomBy(factor) {
    select(this.box).call(this.zoom.scaleBy, factor, [this.#focusX(), 0]);
  }

  /** Keys and buttons zoom at the selected plugin where it is seen, else at the middle. */
  #focusX() {
    const { from, to } = this.#view();
    const plugin = this.selected;
    const middle = GUTTER + this.room / 2;
    if (!plugin?.ran || plugin.start < from || plugin.start > to) return middle;
    return GUTTER + ((plugin.start - from) / (to - from)) * this.room;
  }

  #moveBy(share) {
    const distance = (-share * this.room) / this.transform.k;
    select(this.box).call(this.zoom.translateBy, distance, 0);
  }

  #redrawSoon() {
    if (this.waiting) return;
    this.waiting = true;
    requestAnimationFrame(() => {
      this.waiting = false;
      this.draw();
    });
  }

  #tell(plugin) {
    if (plugin?.ran) this.readout.replaceChildren(nameText(plugin.name), lineOf(plugin));
    else this.readout.replaceChildren("\u00a0");
  }

  #pluginAt(pointer) {
    const place = this.box.getBoundingClientRect();
    const worker = workerAt(pointer.clientY - place.top, this.model.boot.workers);
    if (worker === null) return null;
    const { from, to } = this.#view();
    const share = (pointer.clientX - place.left - GUTTER) / this.room;
    const moment = from + share * (to - from);
    const near = (2 / this.room) * (to - from); // short bars are at least a pixel wide
    return this.lanes[worker].findLast(
      (plugin) => plugin.start - near <= moment && plugin.end + near >= moment,
    );
  }

  #pick(plugin) {
    if (!plugin) return;
    this.choose(plugin);
    announce(printable(plugin.name) + lineOf(plugin));
  }

  /** Goes to a plugin, and moves what is seen when that is elsewhere. */
  #go(plugin) {
    if (!plugin) return;
    this.#pick(plugin);
    const { from, to } = this.#view();
    if (plugin.start >= from && plugin.start <= to) return;
    const x = GUTTER + (plugin.start / this.whole) * this.room;
    select(this.box).call(this.zoom.translateTo, x, 0);
  }

  #neighbour(step) {
    const plugin = this.selected;
    if (!plugin?.ran) return this.#edge(0);
    const lane = this.lanes[plugin.worker];
    return lane[lane.indexOf(plugin) + step];
  }

  /** On the next worker, what runs at that time or was the last to begin before. */
  #other(step) {
    const plugin = this.selected;
    if (!plugin?.ran) return this.#edge(0);
    const lane = this.lanes[plugin.worker + step];
    return lane?.findLast((other) => other.start <= plugin.start) ?? lane?.[0];
  }

  #edge(place) {
    return this.model.plugins.filter((plugin) => plugin.ran).at(place);
  }

  #key(press) {
    const acts = {
      ArrowLeft: () => this.#go(this.#neighbour(-1)),
      ArrowRight: () => this.#go(this.#neighbour(1)),
      ArrowUp: () => this.#go(this.#other(-1)),
      ArrowDown: () => this.#go(this.#other(1)),
      Home: () => this.#go(this.#edge(0)),
      End: () => this.#go(this.#edge(-1)),
      PageUp: () => this.#moveBy(-0.5),
      PageDown: () => this.#moveBy(0.5),
      "+": () => this.#zoomBy(2),
      "=": () => this.#zoomBy(2),
      "-": () => this.#zoomBy(1 / 2),
      0: () => this.#apply(zoomIdentity),
      Enter: () => this.selected && this.open(this.selected),
    };
    const act = acts[press.key];
    if (!act || press.ctrlKey || press.metaKey || press.altKey) return;
    press.preventDefault();
    act();
  }
}
