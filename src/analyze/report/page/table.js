// Tables that people sort.

import { counted, duration } from "./format.js";
import { button, element, pluginLink } from "./dom.js";

/** A column of durations under a key of the rows' plugins. */
export function timeColumn(title, value) {
  return {
    title,
    value,
    numeric: true,
    cell: (row) => (value(row) === null ? "" : duration(value(row))),
  };
}

/** The column with a plugin's name. */
export function nameColumn(title, plugin = (row) => row) {
  return {
    title,
    value: (row) => plugin(row)?.name ?? null,
    cell: (row) => (plugin(row) ? pluginLink(plugin(row)) : "nobody"),
    heads: true,
  };
}

/** Rows in the order of a column; those without a value last. */
export function sortRows(rows, value, descending) {
  const sign = descending ? -1 : 1;
  return [...rows].sort((one, other) => {
    const [a, b] = [value(one), value(other)];
    if (a === null || b === null) return (a === null) - (b === null);
    if (a === b) return 0;
    return a < b ? -sign : sign;
  });
}

/**
 * A table whose headings sort it. options: caption, columns ({title, value, cell, numeric, heads}),
 * rows, sort (a column's number), descending, step (how many rows are shown at first, and more at a
 * time).
 */
export class SortedTable {
  constructor(options) {
    this.options = { sort: null, descending: false, step: 50, ...options };
    this.shown = this.options.step;
    this.body = element("tbody");
    this.headings = this.options.columns.map((column, number) => this.#heading(column, number));
    this.rest = element("div", { class: "rest" });
    const table = element(
      "table",
      {},
      element("caption", {}, this.options.caption),
      element("thead", {}, element("tr", {}, this.headings)),
      this.body,
    );
    const scroller = { class: "scroller", role: "region", tabindex: "0" };
    this.element = element(
      "div",
      {},
      element("div", { ...scroller, "aria-label": this.options.caption }, table),
      this.rest,
    );
    this.setRows(this.options.rows);
  }

  setRows(rows) {
    this.options.rows = rows;
    this.shown = this.options.step;
    this.#fill();
  }

  #heading(column, number) {
    const sort = button(column.title, () => this.#sortBy(number), { class: "sort" });
    return element("th", { scope: "col", class: column.numeric ? "number" : null }, sort);
  }

  #sortBy(number) {
    const { options } = this;
    // Of numbers, people want to see the great ones first.
    const first = Boolean(options.columns[number].numeric);
    options.descending = options.sort === number ? !options.descending : first;
    options.sort = number;
    this.#fill();
  }

  #fill() {
    const { columns, rows, sort, descending } = this.options;
    this.headings.forEach((heading, number) => {
      if (number !== sort) heading.removeAttribute("aria-sort");
      else heading.setAttribute("aria-sort", descending ? "descending" : "ascending");
    });
    this.sorted = sort === null ? rows : sortRows(rows, columns[sort].value, descending);
    this.body.replaceChildren();
    this.#append(0, this.shown);
  }

  #append(from, to) {
    this.body.append(...this.sorted.slice(from, to).map((row) => this.#row(row)));
    const left = this.sorted.length - Math.min(to, this.sorted.length);
    this.rest.replaceChildren();
    if (left === 0) return;
    const more = Math.min(left, 10 * this.options.step);
    const show = (count) => () => {
      const place = this.shown;
      this.shown += count;
      this.#append(place, this.shown);
      this.body.rows[place].querySelector("a")?.focus();
    };
    this.rest.append(`${counted(left, "row")} more `, button(`Show ${more} more`, show(more)));
    if (more < left) this.rest.append(" ", button("Show all", show(left)));
  }

  #row(row) {
    const cells = this.options.columns.map((column) => {
      const content = column.cell ? column.cell(row) : column.value(row);
      const attributes = { class: column.numeric ? "number" : null };
      if (column.heads) return element("th", { scope: "row" }, content ?? "");
      return element("td", attributes, content ?? "");
    });
    return element("tr", {}, cells);
  }
}
