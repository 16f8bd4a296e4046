// The lanes and the story as tables: for those who do not see the picture, and for paper.

import {make} from "./dom.js";
import * as words from "./words.js";

function table(caption, head, rows, left) {
  return make("table", {},
    make("caption", {}, caption, left > 0 ? ` (${words.number(left)} more: look closer to have them here)` : ""),
    make("thead", {}, make("tr", {}, ...head.map(text => make("th", {scope: "col"}, text)))),
    make("tbody", {}, ...rows.map(cells => make("tr", {}, ...cells.map(
      cell => (typeof cell === "number" ? make("td", {class: "number"}, words.number(cell)) : make("td", {}, cell)))))));
}

const within = (things, {from, until}, begin, end) => things.filter(thing => begin(thing) <= until && end(thing) >= from);

function link(machine, reference, show) {
  if (!reference) return "";
  const index = machine.indexOf(reference);
  const place = machine.place(reference);
  return index < 0 ? place : make("button", {type: "button", class: "link", onclick: () => show(index)}, place);
}

// Of the period in view, at most `most` rows each; `show(index)` takes the reader to a line.
export function laneTables(machine, view, show, most) {
  return machine.lanes.flatMap(lane => {
    const intervals = within(lane.intervals, view, thing => thing.from, thing => thing.until);
    const marks = within(lane.marks, view, thing => thing.t, thing => thing.until);
    const tables = [table(lane.title, ["From", "Until", "State", "By", "Why", "Line"],
      intervals.slice(0, most).map(interval => [
        words.moment(interval.from), words.moment(interval.until), words.stateWord(interval.state),
        interval.state === "unknown" ? "" : words.whoWord(interval.who), interval.why, link(machine, interval.line, show)]),
      intervals.length - most)];
    if (marks.length) {
      tables.push(table(`${lane.title}: decisions, warnings and errors`, ["Time", "Kind", "What", "Times", "Line"],
        marks.slice(0, most).map(mark => [
          words.moment(mark.t), mark.kind, mark.text, mark.times, link(machine, mark.line, show)]),
        marks.length - most));
    }
    return tables;
  });
}

export function storyTable(machine, view, show, most) {
  const story = within(machine.shownStory, view, thing => thing.t, thing => thing.until);
  return table("The story", ["Time", "By", "What", "Times", "Line"],
    story.slice(0, most).map(entry => [
      words.moment(entry.t), words.whoWord(entry.who), entry.text, entry.times, link(machine, entry.line, show)]),
    story.length - most);
}

export function filesTable(machine) {
  const {files} = machine.data;
  return table("", ["File", "Bytes", "Lines", "Encoding", "From", "Until", "Remarks"],
    files.map(file => [
      file.path, file.bytes, file.lines, file.encoding, words.moment(file.from), words.moment(file.until),
      [file.unread ? `${words.number(file.unread)} that are no lines of a log` : "",
        file.doubtful ? `${words.number(file.doubtful)} doubtful` : ""].filter(Boolean).join(", ")]), 0);
}
