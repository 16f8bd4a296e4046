// Puts the page together: one machine of the report at a time, and what the views tell each other.

import "./page.css";
import {afterPause, byId, make, marked} from "./dom.js";
import {Chart} from "./chart.js";
import {detailOf, lineCells} from "./detail.js";
import {Filter} from "./filter.js";
import {findingsOf, severitySign} from "./findings.js";
import {legendGroups} from "./legend.js";
import {LEVELS, lowerBound, Machine} from "./machine.js";
import {filesTable, laneTables, storyTable} from "./tables.js";
import {VirtualList} from "./virtual_list.js";
import * as words from "./words.js";

const report = JSON.parse(byId("data").textContent);
// Its text is as large as the report itself.
byId("data").remove();

const machines = new Map();
const filter = new Filter();
let machine = null;
let storyRows = [];
let lineRows = new Uint32Array(0);

const storyList = new VirtualList(document.querySelector("#story .list"), {
  rowHeight: 46,
  rowClass: index => storyRows[index].severity,
  row: storyRow,
  chosen: index => chooseStory(storyRows[index]),
});
const linesList = new VirtualList(document.querySelector("#lines .list"), {
  rowHeight: 24,
  rowClass: index => LEVELS[machine.levels[lineRows[index]]],
  row: lineRow,
  chosen: index => chooseLine(lineRows[index]),
});
const chart = new Chart({chosen: chooseThing, moved: viewMoved});

// ---- rows

function storyRow(index) {
  const entry = storyRows[index];
  return [
    make("span", {class: "time"}, words.clock(entry.t, false), make("small", {}, words.shortDay(entry.t))),
    make("span", {class: `who ${entry.who}`, title: words.byWhom(entry.who)}, whoText(entry.who)),
    make("span", {class: "text", title: `${words.moment(entry.t)} ${entry.text}`},
      marked(entry.text, filter.pattern),
      entry.times > 1 ? make("span", {class: "times"}, ` ${words.number(entry.times)} times in ${words.duration(entry.until - entry.t)}`) : null),
    entry.severity === "note" ? null : severitySign(entry.severity),
  ];
}

const whoText = who => ({user: "User", service: "Service", windows: "Windows"})[who] || "?";

function lineRow(index) {
  const cells = lineCells(machine, lineRows[index]);
  return [
    make("span", {class: "number"}, cells.number),
    make("span", {class: "time"}, machine.days ? `${words.shortDay(machine.times[lineRows[index]])} ` : "", cells.time),
    make("span", {class: `level ${cells.level}`}, cells.level),
    make("span", {class: "thread"}, cells.thread),
    make("span", {class: "text", title: `${cells.place} ${cells.operation} ${cells.text}`},
      make("span", {class: "operation"}, marked(cells.operation, filter.pattern)), " ", marked(cells.text, filter.pattern)),
  ];
}

// ---- what the reader chooses

function chooseThing(thing) {
  const reference = thing.interval ? thing.interval.line : thing.marks ? thing.marks[0].line : null;
  let index = machine.indexOf(reference);
  if (index < 0 && machine.lines.length) index = machine.indexAt(thing.t);
  showDetail(thing, index);
  if (index >= 0) showInLists(index);
}

function showDetail(thing, index) {
  const detail = byId("detail");
  detail.replaceChildren(
    make("button", {type: "button", class: "close", "aria-label": "Close", onclick: closeDetail}, "\u2715"),
    ...detailOf(machine, thing, index, {show: goToLine, choose: mark => goToLine(machine.indexOf(mark.line))}));
  detail.hidden = false;
}

function closeDetail() {
  byId("detail").hidden = true;
  byId("plot").focus();
}

function chooseStory(entry) {
  const index = machine.indexOf(entry.line);
  chart.setCursor(entry.t);
  if (index >= 0) showInLists(index, false);
}

function chooseLine(index) {
  chart.setCursor(machine.times[index]);
  showWhole(index);
  showInStory(index);
}

// Takes the reader to the line: from a finding, a table or the lines beside a mark.
function goToLine(index) {
  if (index < 0) return;
  if (!machine.passes[index]) clearFilter();
  if (!lineRows.includes(index)) {
    byId("in-view").checked = false;
    fillLists();
  }
  chart.setCursor(machine.times[index]);
  showInLists(index);
  byId("lines").scrollIntoView({block: "nearest"});
}

// The whole of a line, which may be longer than its row.
function showWhole(index) {
  const cells = lineCells(machine, index);
  byId("whole-line").replaceChildren(
    `${cells.place}  ${words.moment(machine.times[index])}  thread ${cells.thread}  ${cells.level}  ${cells.operation}  `, make("b", {}, cells.text));
}

function showInLists(index, storyToo = true) {
  linesList.show(positionOf(index));
  showWhole(index);
  if (storyToo) showInStory(index);
}

// Where the line stands in the list; what comes before it when the filter hides it.
function positionOf(index) {
  const position = lowerBound(lineRows.length, i => lineRows[i], index);
  return lineRows[position] === index ? position : position - 1;
}

function showInStory(index) {
  const [file, line] = machine.lines[index];
  const told = storyRows.findIndex(entry => entry.line && entry.line[0] === file && entry.line[1] === line);
  storyList.show(told);
  // Not every line is told: then at least what was told before it.
  if (told < 0) storyList.reveal(lowerBound(storyRows.length, i => storyRows[i].t, machine.times[index] + 1) - 1);
}

// ---- filter

function applyFilter() {
  filter.apply(machine);
  chart.refresh();
  fillLists();
}

function fillLists() {
  const {from, until} = byId("in-view").checked ? chart.view : {from: -Infinity, until: Infinity};
  storyRows = machine.shownStory.filter(entry => entry.t <= until && entry.until >= from);
  lineRows = byId("in-view").checked
    ? machine.shown.filter(i => machine.times[i] >= from && machine.times[i] <= until) : machine.shown;
  byId("whole-line").replaceChildren();
  storyList.reset(storyRows.length);
  linesList.reset(lineRows.length);
  const more = left => (left ? `; ${words.number(left)} more only in the files` : "");
  document.querySelector("#story output").textContent =
    words.plural(storyRows.length, "entry", "entries") + more(machine.data.story_left_out);
  document.querySelector("#lines output").textContent =
    `${words.number(lineRows.length)} of ${words.plural(machine.lines.length, "line", "lines")}` + more(machine.data.lines_left_out);
  byId("hits").textContent = filter.active ? `${words.plural(machine.shown.length, "line", "lines")} found` : "";
  byId("no-filter").disabled = !filter.active;
  if (byId("tables").open) fillTables();
}

function clearFilter() {
  byId("search").value = "";
  filter.text = "";
  filter.hiddenLevels.clear();
  filter.operation = filter.thread = -1;
  fillFilter();
  applyFilter();
}

function fillFilter() {
  const carried = new Set(machine.data.levels);
  byId("levels").replaceChildren(make("legend", {}, "Levels"), ...LEVELS.filter(level => carried.has(level)).map(level => {
    const box = make("input", {type: "checkbox", value: level, onchange: () => {
      if (box.checked) filter.hiddenLevels.delete(level);
      else filter.hiddenLevels.add(level);
      applyFilter();
    }});
    box.checked = !filter.hiddenLevels.has(level);
    return make("label", {}, box, make("span", {class: `level ${level}`}, level));
  }));
  const choices = (select, names, all) => {
    const sorted = names.map((name, index) => ({name, index})).sort((left, right) => (left.name < right.name ? -1 : 1));
    select.replaceChildren(make("option", {value: -1}, all), ...sorted.map(({name, index}) => make("option", {value: index}, name)));
  };
  choices(byId("operation"), machine.data.operations, "All operations");
  choices(byId("thread"), machine.data.threads, "All threads");
}

byId("search").oninput = afterPause(120, () => {
  filter.text = byId("search").value;
  applyFilter();
});
byId("operation").onchange = () => {
  filter.operation = Number(byId("operation").value);
  applyFilter();
};
byId("thread").onchange = () => {
  filter.thread = Number(byId("thread").value);
  applyFilter();
};
byId("in-view").onchange = fillLists;
byId("no-filter").onclick = clearFilter;
document.addEventListener("keydown", key => {
  if (key.key === "Escape" && !byId("detail").hidden) closeDetail();
  if (key.key !== "/" || key.target.closest("input, select, textarea")) return;
  key.preventDefault();
  byId("search").focus();
});

// ---- the period in view

const viewSettled = afterPause(200, () => {
  if (byId("in-view").checked) fillLists();
  else if (byId("tables").open) fillTables();
});

function viewMoved() {
  const {from, until} = chart.view;
  byId("period").textContent = `${words.period(Math.round(from), Math.round(until))} (${words.duration(until - from)})`;
  viewSettled();
}

const ROWS_ON_SCREEN = 200;
const ROWS_ON_PAPER = 50;

function fillTables(most = ROWS_ON_SCREEN) {
  document.querySelector("#tables div").replaceChildren(
    storyTable(machine, chart.view, goToLine, most), ...laneTables(machine, chart.view, goToLine, most));
}
byId("tables").ontoggle = () => {
  if (byId("tables").open) fillTables();
};

// ---- machines

function showMachine(index) {
  if (!machines.has(index)) machines.set(index, new Machine(report.machines[index]));
  machine = machines.get(index);
  for (const [n, button] of [...byId("machines").children].entries()) {
    button.setAttribute("aria-current", n === index ? "true" : "false");
  }
  const {data} = machine;
  const verdict = data.findings[0];
  document.title = `${words.severity(verdict.severity).word}: ${verdict.sentence}`;
  byId("about").textContent = [
    data.name, data.from === null ? null : words.period(data.from, data.until),
    words.plural(data.files.length, "file", "files"),
    report.asked?.time ? `asked about ${words.moment(report.asked.time)}` : null,
  ].filter(Boolean).join(" \u00b7 ");
  byId("findings").replaceChildren(...findingsOf(machine, proof => goToLine(machine.indexOf([proof.file, proof.line]))));
  byId("detail").hidden = true;
  byId("files").replaceChildren(filesTable(machine));
  filter.hiddenLevels.clear();
  filter.operation = filter.thread = -1;
  fillFilter();
  filter.apply(machine);
  chart.setMachine(machine);
  chart.refresh();
  fillLists();
  const proven = verdict.proof.length ? machine.indexOf([verdict.proof[0].file, verdict.proof[0].line]) : -1;
  if (proven >= 0) showInLists(proven);
}

function fillMachines() {
  byId("machines").hidden = report.machines.length < 2;
  byId("machines").replaceChildren(...report.machines.map((data, index) => make("button",
    {type: "button", onclick: () => showMachine(index), title: data.findings[0].sentence},
    severitySign(data.findings[0].severity), make("span", {}, data.name))));
}

// ---- colours

const root = document.documentElement;
const systemIsDark = matchMedia("(prefers-color-scheme: dark)");

function setTheme(theme) {
  root.setAttribute("data-theme", theme);
  chart.restyle();
  byId("legend").replaceChildren(...legendGroups());
}

function setChosenTheme() {
  const chosen = document.querySelector("#theme input:checked").value;
  setTheme(chosen === "auto" ? (systemIsDark.matches ? "dark" : "light") : chosen);
}
byId("theme").onchange = setChosenTheme;
systemIsDark.addEventListener("change", setChosenTheme);

// Paper is white and shows no scrolled list: the tables stand in for them.
let tablesWereOpen = false;
window.addEventListener("beforeprint", () => {
  tablesWereOpen = byId("tables").open;
  byId("tables").open = true;
  fillTables(ROWS_ON_PAPER);
  setTheme("light");
  chart.draw();
});
window.addEventListener("afterprint", () => {
  byId("tables").open = tablesWereOpen;
  setChosenTheme();
});

byId("made-by").textContent = `LinkvaneDoctor ${report.doctor}. Times are the log's own local times. This page is complete: it loads nothing.`;
fillMachines();
setChosenTheme();
showMachine(0);
