// Which part of the graph is drawn.

import { printable } from "./format.js";

/** More than that takes a browser too long to lay out, and nobody could read it. */
export const MOST_AROUND = 120;
export const MOST_WHOLE = 400;
const MOST_EDGES = 1200;

const LETTER = 7.2; // pixels
const LONGEST = 28; // letters of a name that are shown

function shortened(name) {
  const text = [...printable(name)];
  return text.length > LONGEST ? text.slice(0, LONGEST - 1).join("") + "…" : text.join("");
}

function nodeOf(id, plugin, gate) {
  const mark = plugin?.result === "failed" ? "✕ " : plugin?.onChain ? "◆ " : "";
  const label = mark + shortened(plugin ? plugin.name : gate.name);
  const width = Math.max(40, [...label].length * LETTER + 18);
  return { id, plugin, gate, label, width, height: plugin ? 28 : 20 };
}

/** The gates before a plugin; of the levels below a script the nearest, before which are the others. */
function drawnGates(plugin) {
  return plugin.levels > 0 ? [...plugin.requires, plugin.levels - 1] : plugin.requires;
}

/** Plugins and the milestones between them as nodes "p0", "g0" with their neighbours. */
class WholeGraph {
  constructor(model) {
    this.model = model;
  }

  node(id) {
    const number = Number(id.slice(1));
    const { plugins, gates } = this.model;
    return id[0] === "p" ? nodeOf(id, plugins[number], null) : nodeOf(id, null, gates[number]);
  }

  before(id) {
    const number = Number(id.slice(1));
    if (id[0] === "p") return drawnGates(this.model.plugins[number]).map((gate) => `g${gate}`);
    return this.model.gates[number].providers.map((plugin) => `p${plugin.number}`);
  }

  after(id) {
    const number = Number(id.slice(1));
    if (id[0] === "p") return this.model.plugins[number].provides.map((gate) => `g${gate}`);
    return this.model.gates[number].requirers
      .filter((plugin) => drawnGates(plugin).includes(number))
      .map((plugin) => `p${plugin.number}`);
  }

  /** The nodes, with all edges between them. */
  part(ids) {
    const chosen = new Set(ids);
    const edges = ids.flatMap((id) =>
      this.after(id)
        .filter((other) => chosen.has(other) && other !== id)
        .map((other) => [id, other]),
    );
    return { nodes: ids.map((id) => this.node(id)), edges, left: 0 };
  }
}

/** What is at most so many edges from a plugin, the nearest first where there is too much. */
export function around(model, plugin, distance) {
  const whole = new WholeGraph(model);
  const found = new Set([`p${plugin.number}`]);
  let layer = [...found];
  for (let step = 0; step < distance; ++step) {
    const next = new Set(layer.flatMap((id) => [...whole.before(id), ...whole.after(id)]));
    layer = [...next].filter((id) => !found.has(id));
    layer.forEach((id) => found.add(id));
  }
  const ids = [...found];
  return { ...whole.part(ids.slice(0, MOST_AROUND)), left: Math.max(0, ids.length - MOST_AROUND) };
}

/** Everything that somebody waits for or that waits; null where that is too much. */
export function everything(model) {
  const plugins = model.plugins.map((plugin) => `p${plugin.number}`);
  const gates = model.gates
    .map((gate, number) => ({ gate, id: `g${number}` }))
    .filter(({ gate }) => gate.providers.length > 0 && gate.requirers.length > 0)
    .map(({ id }) => id);
  if (plugins.length + gates.length > MOST_WHOLE) return null;
  const graph = new WholeGraph(model).part([...plugins, ...gates]);
  return graph.edges.length > MOST_EDGES ? null : graph;
}

/** The critical chain, with what each link waited through. */
export function chain(model) {
  const nodes = [];
  const edges = [];
  for (const link of model.chain) {
    const id = `p${link.plugin}`;
    nodes.push(nodeOf(id, model.plugins[link.plugin], null));
    if (link.after === null) continue;
    const through = `w${link.plugin}`;
    const isWorker = link.after.kind === "worker";
    const name = isWorker ? `worker ${model.plugins[link.plugin].worker}` : link.after.milestone;
    nodes.push(nodeOf(through, null, { name }));
    edges.push([`p${link.after.plugin}`, through], [through, id]);
  }
  const most = 2 * MOST_AROUND;
  const kept = new Set(nodes.slice(-most).map((node) => node.id));
  return {
    nodes: nodes.slice(-most),
    edges: edges.filter((ends) => ends.every((id) => kept.has(id))),
    left: Math.max(0, nodes.length - most),
  };
}
