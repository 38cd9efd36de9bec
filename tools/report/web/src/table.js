// SPDX-License-Identifier: Apache-2.0
// A table that the reader sorts and pages through.
import { element, grouped } from "./format.js";

const pageSize = 25;

// columns: id, header, value(row) to sort by, cell(row) to show (the value when there is none), number: to the right,
// largest first; wide: left out where there is little room; title: what the head says when pointed at.
export class SortedTable {
  constructor(box, columns, sortedBy) {
    this.box = box;
    this.head = element("thead");
    this.body = element("tbody");
    this.more = element("button", { type: "button", class: "more", onclick: () => this.showMore() }, "Show more");
    this.rows = [];
    this.size = pageSize;
    box.append(element("div", { class: "scroll" }, element("table", {}, this.head, this.body)), this.more);
    this.arrange(columns, sortedBy);
  }

  arrange(columns, sortedBy) {
    this.columns = columns;
    this.sorted = { id: sortedBy, descending: this.columns.find((column) => column.id === sortedBy).number ?? false };
  }

  show(rows) {
    this.rows = rows;
    this.size = pageSize;
    this.draw();
  }

  showMore() {
    const first = this.size;
    this.size += 100;
    this.draw();
    this.body.rows[first]?.querySelector("button")?.focus();
  }

  sortBy(column) {
    const descending = this.sorted.id === column.id ? !this.sorted.descending : column.number ?? false;
    this.sorted = { id: column.id, descending };
    this.draw();
    this.head.querySelector(`button[data-column="${column.id}"]`).focus();
  }

  inOrder() {
    const { value } = this.columns.find((column) => column.id === this.sorted.id);
    const sign = this.sorted.descending ? -1 : 1;
    const order = (a, b) => (typeof a === "string" ? a.localeCompare(b) : a - b);
    return [...this.rows].sort((a, b) => sign * order(value(a), value(b)));
  }

  headCell(column) {
    const sorted = this.sorted.id === column.id;
    const button = element("button", { type: "button", "data-column": column.id, onclick: () => this.sortBy(column) }, column.header);
    return element("th", { class: classOf(column), scope: "col", title: column.title, "aria-sort": sorted ? (this.sorted.descending ? "descending" : "ascending") : null }, button);
  }

  draw() {
    this.head.replaceChildren(element("tr", {}, this.columns.map((column) => this.headCell(column))));
    this.body.replaceChildren(...this.inOrder().slice(0, this.size).map((row) => element("tr", {}, this.columns.map((column) =>
      element("td", { class: classOf(column) }, column.cell ? column.cell(row) : column.number ? grouped(column.value(row)) : column.value(row))))));
    this.more.hidden = this.rows.length <= this.size;
  }
}

const classOf = ({ number, wide, kind }) => [number ? "number" : "", wide ? "wide" : "", kind ?? ""].filter(Boolean).join(" ") || null;
