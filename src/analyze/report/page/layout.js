// Where the nodes of a graph stand; this runs beside the page.

import dagre from "dagre";

/** graph: {nodes: [{id, width, height}], edges: [[from, to]]}. Gives places and the points of edges. */
export function layOut({ nodes, edges }) {
  const graph = new dagre.graphlib.Graph();
  graph.setGraph({ rankdir: "LR", nodesep: 10, ranksep: 40, ranker: "tight-tree" });
  graph.setDefaultEdgeLabel(() => ({}));
  for (const { id, width, height } of nodes) graph.setNode(id, { width, height });
  for (const [from, to] of edges) graph.setEdge(from, to);
  dagre.layout(graph);
  const { width, height } = graph.graph();
  return {
    width: Math.max(1, width || 0),
    height: Math.max(1, height || 0),
    places: nodes.map(({ id }) => ({ x: graph.node(id).x, y: graph.node(id).y })),
    paths: edges.map(([from, to]) => graph.edge(from, to).points),
  };
}

/** Answers {number, graph} with {number, layout}. */
export function serve(worker) {
  worker.onmessage = ({ data }) => {
    worker.postMessage({ number: data.number, layout: layOut(data.graph) });
  };
}
