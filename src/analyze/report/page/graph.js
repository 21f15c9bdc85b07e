// The graph of plugins and milestones, or a part of it.

import { event, select } from "d3-selection";
import { zoom, zoomIdentity } from "d3-zoom";
import { announce, button, element, section } from "./dom.js";
import { counted, printable } from "./format.js";
import { MOST_WHOLE, around, chain, everything } from "./graph_choice.js";

const SVG = "http://www.w3.org/2000/svg";
const MARGIN = 12;
const READABLE = 0.55; // scale

function shape(tag, attributes, ...children) {
  const made = document.createElementNS(SVG, tag);
  for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
  made.append(...children);
  return made;
}

/** The program itself once more, beside the page: there it only lays out. */
function startLayouter() {
  const text = document.getElementById("program").textContent;
  const address = URL.createObjectURL(new Blob([text], { type: "text/javascript" }));
  const worker = new Worker(address);
  URL.revokeObjectURL(address);
  return worker;
}

function pathOf(points) {
  return points
    .map(({ x, y }, index) => `${index === 0 ? "M" : "L"}${x.toFixed(1)},${y.toFixed(1)}`)
    .join("");
}

export class Graph {
  constructor(model) {
    Object.assign(this, { model, selected: null, number: 0, worker: null });
    this.status = element("p", { role: "status" });
    this.svg = shape("svg", { role: "group", "aria-label": "Graph of plugins and milestones" });
    this.box = element("div", { class: "graph" }, this.svg);
    const text =
      "Who waits for whom, from left to right: plugins in boxes, milestones between them.";
    this.element = section(
      "graph",
      "Graph",
      element("p", {}, text),
      this.#controls(),
      this.status,
      this.box,
    );
    this.zoom = zoom()
      .scaleExtent([0.02, 4])
      .filter(() => (event.type === "wheel" ? event.ctrlKey || event.metaKey : !event.button))
      .on("zoom", () => this.layer?.setAttribute("transform", event.transform.toString()));
    select(this.svg).call(this.zoom).style("touch-action", "pan-x pan-y");
    this.#drawWhenSeen();
  }

  select(plugin) {
    this.selected = plugin;
    if (this.seen && this.part.value === "around") this.update();
  }

  /** Draws what is around a plugin, whatever was shown before. */
  show(plugin) {
    this.part.value = "around";
    this.selected = plugin;
    this.seen = true;
    this.update();
    this.element.scrollIntoView({ block: "start" });
    this.element.querySelector("h2").focus({ preventScroll: true });
  }

  #controls() {
    const option = (value, label) => element("option", { value }, label);
    const update = () => this.update();
    this.part = element("select", { id: "graph-part", onchange: update }, [
      option("around", `around the chosen ${this.model.noun}`),
      option("chain", "critical chain"),
      option("whole", "whole boot"),
    ]);
    const distances = [1, 2, 3, 4, 6].map((distance) => option(distance, String(distance)));
    this.distance = element("select", { id: "graph-distance", onchange: update }, distances);
    this.distance.value = "2";
    const scale = (factor) => () => select(this.svg).call(this.zoom.scaleBy, factor);
    return element(
      "div",
      { class: "controls" },
      [element("label", { for: "graph-part" }, "Show"), this.part],
      [element("label", { for: "graph-distance" }, "Edges away"), this.distance],
      button("Larger", scale(1.5)),
      button("Smaller", scale(1 / 1.5)),
      button("Fit", () => this.#fit()),
    );
  }

  /** Laying out costs more than all the rest of the page. */
  #drawWhenSeen() {
    const watcher = new IntersectionObserver((entries) => {
      if (!entries.some((entry) => entry.isIntersecting)) return;
      watcher.disconnect();
      if (this.seen) return;
      this.seen = true;
      this.update();
    });
    watcher.observe(this.box);
  }

  #choose() {
    if (this.part.value === "chain") return chain(this.model);
    if (this.part.value === "whole") return everything(this.model);
    return this.selected ? around(this.model, this.selected, Number(this.distance.value)) : null;
  }

  update() {
    this.distance.disabled = this.part.value !== "around";
    const graph = this.#choose();
    if (graph === null || graph.nodes.length === 0) {
      this.worker?.terminate();
      this.worker = null;
      this.svg.replaceChildren();
      this.element.classList.remove("drawn");
      this.layer = null;
      const tooLarge = this.part.value === "whole";
      this.status.textContent = tooLarge
        ? `The boot has too many nodes for one picture (at most ${MOST_WHOLE}): look around one of them.`
        : "There is nothing to draw.";
      return;
    }
    this.status.textContent = "Laying out …";
    this.#layOut(graph);
  }

  /** What is still being laid out is given up. */
  #layOut(graph) {
    const number = ++this.number;
    if (this.worker === null || this.busy) {
      this.worker?.terminate();
      this.worker = startLayouter();
    }
    this.busy = true;
    this.worker.onmessage = ({ data }) => {
      if (data.number !== number) return;
      this.busy = false;
      this.#draw(graph, data.layout);
    };
    const nodes = graph.nodes.map(({ id, width, height }) => ({ id, width, height }));
    this.worker.postMessage({ number, graph: { nodes, edges: graph.edges } });
  }

  #draw(graph, layout) {
    const arrow = shape("path", { d: "M0,0L8,4L0,8z" });
    const marker = {
      id: "arrow",
      viewBox: "0 0 8 8",
      refX: 8,
      refY: 4,
      markerWidth: 7,
      orient: "auto",
    };
    const edges = layout.paths.map((points) =>
      shape("path", { class: "edge", d: pathOf(points), "marker-end": "url(#arrow)" }),
    );
    const nodes = graph.nodes.map((node, index) => this.#node(node, layout.places[index]));
    this.element.classList.add("drawn");
    this.layer = shape("g", {}, shape("g", { "aria-hidden": "true" }, ...edges), ...nodes);
    this.svg.replaceChildren(shape("defs", {}, shape("marker", marker, arrow)), this.layer);
    this.size = layout;
    const chosen = graph.nodes.findIndex((node) => node.plugin === this.selected);
    this.middle = layout.places[chosen] ?? layout.places.at(-1);
    this.#fit(READABLE);
    const left =
      graph.left > 0 ? `; the ${counted(graph.left, "node")} farthest away are left out` : "";
    const text = `${counted(graph.nodes.length, "node")}, ${counted(graph.edges.length, "edge")}${left}.`;
    this.status.textContent = text;
    announce(`Graph: ${text}`);
  }

  #node({ plugin, label, width, height, gate }, { x, y }) {
    const name = printable(plugin ? plugin.name : gate.name);
    const box = { x: x - width / 2, y: y - height / 2, width, height, rx: plugin ? 4 : height / 2 };
    const text = shape(
      "text",
      { x, y: y + 4, "text-anchor": "middle", direction: "ltr" },
      `\u2068${label}\u2069`,
    );
    const parts = [shape("title", {}, name), shape("rect", box), text];
    if (plugin === null) return shape("g", { class: "gate" }, ...parts);
    const chosen = plugin === this.selected ? " chosen" : "";
    const kind = plugin.result === "failed" ? "failed" : plugin.onChain ? "chain" : "run";
    const link = shape("a", { href: plugin.address, class: `plugin ${kind}${chosen}` }, ...parts);
    link.setAttribute("aria-label", name);
    link.addEventListener("focus", () => this.#reveal(x, y));
    return link;
  }

  /** What is reached by keyboard is seen. */
  #reveal(x, y) {
    const transform = this.svg.__zoom;
    const [left, top] = transform.apply([x, y]);
    const { clientWidth: width, clientHeight: height } = this.svg;
    if (left > 0 && left < width && top > 0 && top < height) return;
    select(this.svg).call(this.zoom.translateTo, x, y);
  }

  /** Shows all of it, or at a scale of at least `least` what is around the chosen plugin. */
  #fit(least = 0) {
    if (!this.layer) return;
    const { width: wide, height: high } = this.size;
    const width = this.svg.clientWidth;
    const across = (width - 2 * MARGIN) / wide;
    const height = Math.min(
      640,
      Math.max(120, high * Math.min(1.2, Math.max(across, least)) + 2 * MARGIN),
    );
    this.svg.style.height = `${height}px`;
    const down = (height - 2 * MARGIN) / high;
    const scale = Math.max(Math.min(1.2, across, down), least);
    const center = { x: wide / 2, y: high / 2 };
    const { x, y } = scale > Math.min(across, down) ? (this.middle ?? center) : center;
    const place = zoomIdentity
      .translate(width / 2, height / 2)
      .scale(scale)
      .translate(-x, -y);
    select(this.svg).call(this.zoom.transform, place);
  }
}
