// What was clicked in the lanes, with the lines at that place.

import {make} from "./dom.js";
import {describe} from "./chart.js";
import {LEVELS} from "./machine.js";
import * as words from "./words.js";

const AROUND = 3;
const MOST_MARKS = 12;

export function lineCells(machine, index) {
  const line = machine.lines[index];
  return {
    place: machine.place(line), number: String(line[1]), time: words.clock(line[2]), level: LEVELS[line[4]],
    thread: machine.thread(index), operation: machine.operation(index), text: line[6],
  };
}

function lineRow(machine, index, chosenIndex, show) {
  const cells = lineCells(machine, index);
  return make("li", {}, make("button", {
    type: "button", class: "proof", "aria-current": index === chosenIndex ? "true" : null, onclick: () => show(index),
  },
  make("span", {class: "place"}, cells.place),
  make("span", {class: "time"}, cells.time),
  make("span", {class: `level ${cells.level}`}, cells.level),
  make("span", {class: "text"}, cells.operation, " \u2014 ", cells.text)));
}

// `index` is the line that belongs to `thing` (-1: none); `show(index)` takes the reader to a line.
export function detailOf(machine, thing, index, {show, choose}) {
  const parts = [];
  if (thing.lane) {
    const [heading, ...rest] = describe(thing);
    parts.push(make("h3", {}, heading));
    if (thing.interval) parts.push(...rest.map(text => make("p", {}, text)));
    else {
      parts.push(make("ul", {class: "marks"}, ...thing.marks.slice(0, MOST_MARKS).map(mark => make("li", {},
        make("button", {type: "button", class: "proof", onclick: () => choose(mark)},
          make("span", {class: "time"}, words.clock(mark.t)),
          make("span", {class: `level ${mark.kind}`}, mark.kind),
          make("span", {class: "text"}, mark.text, mark.times > 1 ? ` (${words.number(mark.times)} times)` : ""))))));
      if (thing.marks.length > MOST_MARKS) {
        parts.push(make("p", {}, `and ${words.plural(thing.marks.length - MOST_MARKS, "other", "others")}: look closer to see them.`));
      }
    }
  } else {
    parts.push(make("h3", {}, words.moment(Math.round(thing.t))));
  }
  if (index >= 0) {
    const first = Math.max(0, index - AROUND);
    const end = Math.min(machine.lines.length, index + AROUND + 1);
    const rows = [];
    for (let i = first; i < end; ++i) rows.push(lineRow(machine, i, index, show));
    parts.push(make("ul", {class: "proofs around", "aria-label": "The lines there"}, ...rows));
  } else {
    parts.push(make("p", {}, "This page carries no line for it."));
  }
  return parts;
}
