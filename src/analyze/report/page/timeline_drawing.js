// The picture of the time line on a canvas: a lane for each worker, one for the CLI executor.

import { duration, printable } from "./format.js";

export const GUTTER = 44; // for the lanes' names
const AXIS = 24;
const EXECUTOR = 36;
const LEAST_LABEL = 36; // pixels of a bar that gets one
const FONT = "12px system-ui, sans-serif";

const COLOURS = ["ground", "ink", "faint", "grid", "run", "chain", "failed", "on-bar", "wait"];

function readColours(canvas) {
  const style = getComputedStyle(canvas);
  return Object.fromEntries(COLOURS.map((name) => [name, style.getPropertyValue(`--${name}`)]));
}

/** Lanes get lower when there are many: a browser draws no picture of any height. */
export function laneHeight(workers) {
  if (workers > 300) return Math.max(1, Math.floor(3600 / workers));
  return Math.max(12, Math.min(26, Math.floor(640 / Math.max(1, workers))));
}

export function pictureHeight(workers) {
  return AXIS + workers * laneHeight(workers) + EXECUTOR + 4;
}

/** The worker whose lane is at a height; none above and below the lanes. */
export function workerAt(y, workers) {
  const lane = Math.floor((y - AXIS) / laneHeight(workers));
  return lane >= 0 && lane < workers ? lane : null;
}

/** A step of 1, 2 or 5 times a power of ten that fits at most `most` times into a whole. */
export function niceStep(whole, most) {
  for (let power = 1; ; power *= 10) {
    for (const factor of [1, 2, 5]) {
      if (whole / (power * factor) <= most) return power * factor;
    }
  }
}

/** view: {from, to}: the moments at the sides. */
export class TimelineDrawing {
  constructor(model, load) {
    this.model = model;
    this.load = load;
    this.most = load.reduce((most, part) => Math.max(most, part.sharers), 0);
  }

  draw(canvas, width, scale, view, selected) {
    const { workers } = this.model.boot;
    const height = pictureHeight(workers);
    canvas.width = Math.round(width * scale);
    canvas.height = Math.round(height * scale);
    const pen = canvas.getContext("2d");
    this.pen = pen;
    this.colours = readColours(canvas);
    this.view = view;
    this.width = width;
    this.lane = laneHeight(workers);
    pen.scale(scale, scale);
    pen.font = FONT;
    pen.textBaseline = "middle";
    pen.fillStyle = this.colours.ground;
    pen.fillRect(0, 0, width, height);
    this.#drawAxis(height);
    pen.save();
    pen.beginPath();
    pen.rect(GUTTER, AXIS, width - GUTTER, height - AXIS);
    pen.clip();
    for (const plugin of this.model.plugins) if (plugin.ran) this.#drawBar(plugin);
    this.#drawExecutor(AXIS + workers * this.lane + 4);
    if (selected?.ran) this.#drawSelected(selected);
    pen.restore();
    this.#drawNames(workers);
  }

  x(moment) {
    const { from, to } = this.view;
    return GUTTER + ((moment - from) / (to - from)) * (this.width - GUTTER);
  }

  y(worker) {
    return AXIS + worker * this.lane;
  }

  #drawAxis(height) {
    const { pen, colours, view } = this;
    const step = niceStep(view.to - view.from, Math.max(2, this.width / 110));
    pen.textAlign = "center";
    for (let at = Math.ceil(view.from / step) * step; at <= view.to; at += step) {
      const x = Math.round(this.x(at)) + 0.5;
      pen.fillStyle = colours.grid;
      pen.fillRect(x, AXIS - 4, 1, height - AXIS);
      pen.fillStyle = colours.faint;
      pen.textAlign = x > this.width - 30 ? "right" : "center";
      pen.fillText(duration(at), x, AXIS / 2);
    }
  }

  #drawBar(plugin) {
    const { pen, colours, lane } = this;
    const left = this.x(plugin.start);
    const right = Math.max(left + 1, this.x(plugin.end));
    if (right < GUTTER || left > this.width) return;
    const gap = lane > 6 ? 1 : 0;
    const top = this.y(plugin.worker) + gap;
    const height = lane - 2 * gap;
    const failed = plugin.result === "failed";
    pen.fillStyle = colours[failed ? "failed" : plugin.onChain ? "chain" : "run"];
    const width = right - left;
    pen.fillRect(left, top, width > 3 ? width - 0.5 : width, height);
    if (width < LEAST_LABEL || lane < 14) return;
    // Isolated, so that a name of another direction keeps to itself.
    const mark = failed ? "✕ " : plugin.onChain ? "◆ " : "";
    this.#label(`${mark}\u2068${printable(plugin.name)}\u2069`, left, right, top + height / 2 + 1);
  }

  #label(text, left, right, y) {
    const { pen, colours } = this;
    const from = Math.max(left, GUTTER);
    if (right - from < LEAST_LABEL) return;
    pen.save();
    pen.beginPath();
    pen.rect(from, 0, right - from - 3, 1e5);
    pen.clip();
    pen.fillStyle = colours["on-bar"];
    pen.textAlign = "left";
    pen.direction = "ltr";
    pen.fillText(text, from + 4, y);
    pen.restore();
  }

  #drawExecutor(top) {
    const { pen, colours, view } = this;
    const room = EXECUTOR - 8;
    pen.fillStyle = colours.wait;
    for (const { start, end, sharers } of this.load) {
      if (end < view.from || start > view.to) continue;
      const height = (room * sharers) / this.most;
      const left = this.x(start);
      pen.fillRect(left, top + room - height, Math.max(0.5, this.x(end) - left), height);
    }
  }

  #drawSelected(plugin) {
    const { pen, colours, lane } = this;
    const left = this.x(plugin.start);
    const top = this.y(plugin.worker);
    const ready = this.x(plugin.start - plugin.wait_worker);
    pen.strokeStyle = colours.ink;
    pen.lineWidth = 2;
    pen.strokeRect(left, top, Math.max(3, this.x(plugin.end) - left), lane);
    pen.setLineDash([4, 3]);
    pen.beginPath();
    pen.moveTo(ready, top + lane / 2);
    pen.lineTo(left, top + lane / 2);
    pen.stroke();
    pen.setLineDash([]);
  }

  #drawNames(workers) {
    const { pen, colours, lane } = this;
    pen.fillStyle = colours.ground;
    pen.fillRect(0, AXIS, GUTTER - 2, workers * lane + EXECUTOR);
    pen.fillStyle = colours.faint;
    pen.textAlign = "right";
    const every = Math.ceil(14 / lane);
    for (let worker = 0; worker < workers; worker += every) {
      pen.fillText(String(worker), GUTTER - 8, this.y(worker) + lane / 2);
    }
    if (this.most > 0) pen.fillText(`CLI ${this.most}`, GUTTER - 6, AXIS + workers * lane + 12);
  }
}
