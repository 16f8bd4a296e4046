// A list box of many rows of one height, of which only those in sight are elements.

import {make, oncePerFrame} from "./dom.js";

export class VirtualList {
  // `row(index)` gives the children of a row; `chosen(index)` is called when the reader chooses one.
  constructor(host, {rowHeight, row, rowClass, chosen}) {
    Object.assign(this, {host, rowHeight, row, rowClass, chosen});
    this.count = 0;
    this.active = -1;
    this.rows = new Map();
    this.inside = host.appendChild(make("div", {class: "inside", role: "presentation"}));
    const draw = oncePerFrame(() => this.draw());
    host.addEventListener("scroll", draw, {passive: true});
    host.addEventListener("keydown", event => this.key(event));
    this.inside.addEventListener("click", event => {
      const element = event.target.closest("[data-index]");
      if (element) this.choose(Number(element.dataset.index));
    });
    new ResizeObserver(draw).observe(host);
  }

  // Another content, as many rows as given; nothing is chosen any more.
  reset(count) {
    this.count = count;
    this.active = -1;
    this.inside.style.height = `${count * this.rowHeight}px`;
    this.redraw();
  }

  redraw() {
    this.inside.replaceChildren();
    this.rows.clear();
    this.draw();
  }

  draw() {
    const {scrollTop, clientHeight} = this.host;
    const first = Math.max(0, Math.floor(scrollTop / this.rowHeight) - 6);
    const end = Math.min(this.count, Math.ceil((scrollTop + clientHeight) / this.rowHeight) + 6);
    for (const [index, element] of this.rows) {
      if (index < first || index >= end) {
        element.remove();
        this.rows.delete(index);
      }
    }
    for (let index = first; index < end; ++index) {
      if (!this.rows.has(index)) this.rows.set(index, this.inside.appendChild(this.element(index)));
    }
    const active = this.rows.get(this.active);
    if (active) this.host.setAttribute("aria-activedescendant", active.id);
    else this.host.removeAttribute("aria-activedescendant");
  }

  element(index) {
    const element = make("div", {
      class: `row ${this.rowClass(index)}`, role: "option", id: `${this.host.parentElement.id}-${index}`,
      "data-index": index, "aria-setsize": this.count, "aria-posinset": index + 1,
      "aria-selected": index === this.active ? "true" : "false",
    }, ...this.row(index));
    element.style.top = `${index * this.rowHeight}px`;
    element.style.height = `${this.rowHeight}px`;
    return element;
  }

  // Marks the row and brings it into sight; -1 marks none.
  show(index) {
    const before = this.rows.get(this.active);
    if (before) before.setAttribute("aria-selected", "false");
    this.active = index;
    const now = this.rows.get(index);
    if (now) now.setAttribute("aria-selected", "true");
    this.reveal(index);
  }

  // Brings the row into sight.
  reveal(index) {
    const top = index * this.rowHeight;
    const {scrollTop, clientHeight} = this.host;
    if (index >= 0 && (top < scrollTop || top + this.rowHeight > scrollTop + clientHeight)) {
      this.host.scrollTop = Math.max(0, top - clientHeight / 3);
    }
    this.draw();
  }

  choose(index) {
    if (index < 0 || index >= this.count) return;
    this.show(index);
    this.chosen(index);
  }

  key(event) {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    const page = Math.max(1, Math.floor(this.host.clientHeight / this.rowHeight) - 1);
    const steps = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -this.count, End: this.count, Enter: 0};
    if (!(event.key in steps) || this.count === 0) return;
    event.preventDefault();
    // The first key chooses the row at the top of what is in sight.
    const from = this.active >= 0 ? this.active + steps[event.key] : Math.ceil(this.host.scrollTop / this.rowHeight);
    this.choose(Math.min(this.count - 1, Math.max(0, from)));
  }
}
