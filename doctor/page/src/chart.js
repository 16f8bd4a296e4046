// The lanes over time, on a canvas: moving and zooming with D3, by mouse, touch and keyboard.

import {event, select} from "d3-selection";
import {scaleUtc} from "d3-scale";
import {zoom, zoomIdentity, zoomTransform} from "d3-zoom";
import {byId, make, oncePerFrame} from "./dom.js";
import {lowerBound} from "./machine.js";
import {Clusters} from "./marks.js";
import * as signs from "./signs.js";
import * as words from "./words.js";

const AXIS = 58;
const BAND = 22;
const MARKS = 18;
const GAP = 12;
const DENSITY = 44;
const OVERVIEW = 30;
const BIN = 3;
// The narrowest view, in milliseconds.
const CLOSEST = 20;

const colour = signs.colour;

// A canvas of that many CSS pixels, sharp on the reader's screen. Returns its context, cleared.
function prepare(canvas, width, height, ratio = window.devicePixelRatio || 1) {
  const [across, down] = [Math.round(width * ratio), Math.round(height * ratio)];
  if (canvas.width !== across || canvas.height !== down) {
    canvas.width = across;
    canvas.height = down;
    canvas.style.height = `${height}px`;
  }
  const context = canvas.getContext("2d");
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  context.clearRect(0, 0, width, height);
  return context;
}

// A name whose middle gives way when there is no room: adapters differ in their last words.
function shortened(name) {
  const tail = name.match(/\s\S{1,11}$/)?.[0] ?? "";
  return [make("span", {class: "head"}, name.slice(0, name.length - tail.length)), make("span", {class: "tail"}, tail)];
}

// The times at the indexes, in order also where a clock was set back.
function ascending(times, indexes) {
  const chosen = new Float64Array(indexes.length);
  let ordered = true;
  for (let n = 0; n < indexes.length; ++n) {
    chosen[n] = times[indexes[n]];
    if (n > 0 && chosen[n] < chosen[n - 1]) ordered = false;
  }
  return ordered ? chosen : chosen.sort();
}

// Ticks are labelled with what changes between them.
function tickLabel(date, step) {
  const t = date.getTime();
  if (step < 1000) return words.clock(t);
  if (step < 60000) return words.clock(t, false);
  if (step < 86400000 && t % 86400000 !== 0) return words.clock(t, false).slice(0, 5);
  return `${words.weekday(t).slice(0, 3)} ${words.shortDay(t)}`;
}

export class Chart {
  // `chosen(thing)`: the reader chose {lane, interval} or {lane, marks}. `moved()`: the view is another.
  constructor({chosen, moved}) {
    Object.assign(this, {chosen, moved});
    this.plot = byId("plot");
    this.canvas = byId("canvas");
    this.overview = byId("overview");
    this.tip = byId("tip");
    this.focus = null;
    this.cursor = null;
    this.chosenThing = null;
    this.plain = new Map();
    this.bold = new Map();
    this.small = new Map();
    this.redraw = oncePerFrame(() => this.draw());
    this.behaviour = zoom()
      .filter(() => (event.type === "wheel" ? event.ctrlKey || event.metaKey : !event.button))
      .on("zoom", () => {
        this.redraw();
        this.moved();
      });
    if (matchMedia("(prefers-reduced-motion: reduce)").matches) this.behaviour.duration(0);
    this.selection = select(this.plot).call(this.behaviour);
    this.plot.addEventListener("wheel", wheel => this.wheel(wheel), {passive: false});
    this.plot.addEventListener("mousemove", mouse => this.hover(mouse));
    this.plot.addEventListener("mouseleave", () => this.hideTip());
    this.plot.addEventListener("click", mouse => this.click(mouse));
    this.plot.addEventListener("keydown", key => this.key(key));
    this.plot.addEventListener("focus", this.redraw);
    this.plot.addEventListener("blur", this.redraw);
    this.overview.addEventListener("pointerdown", pointer => this.overviewPointer(pointer, true));
    this.overview.addEventListener("pointermove", pointer => this.overviewPointer(pointer, false));
    new ResizeObserver(() => this.resize()).observe(this.plot);
    byId("earlier").onclick = () => this.pan(-0.5);
    byId("later").onclick = () => this.pan(0.5);
    byId("closer").onclick = () => this.magnify(2);
    byId("wider").onclick = () => this.magnify(0.5);
    byId("everything").onclick = () => this.showEverything();
    byId("verdict-time").onclick = () => this.showVerdict();
  }

  setMachine(machine) {
    this.machine = machine;
    this.focus = null;
    this.cursor = null;
    this.chosenThing = null;
    this.clusters = new Map(machine.lanes.map(lane => [lane, new Clusters(lane)]));
    this.layout();
    byId("verdict-time").disabled = this.verdictTimes().length === 0;
    this.width = 0;
    this.resize();
    this.showEverything();
  }

  // After the filter has changed.
  refresh() {
    for (const clusters of this.clusters.values()) clusters.forget();
    const {machine} = this;
    this.density = ascending(machine.times, machine.shown);
    this.trouble = ascending(machine.times, machine.shown.filter(i => machine.levels[i] === 4 || machine.levels[i] === 5));
    this.overviewPicture = null;
    this.redraw();
  }

  restyle() {
    signs.refreshColours();
    this.overviewPicture = null;
    if (this.machine) this.redraw();
  }

  layout() {
    let y = AXIS;
    this.rows = this.machine.lanes.map(lane => {
      const height = BAND + (lane.marks.length ? MARKS : 0) + GAP;
      const row = {lane, y, height};
      y += height;
      return row;
    });
    this.densityY = y;
    this.height = y + DENSITY;
    byId("names").replaceChildren(
      ...this.rows.map(({lane, y: top}) => {
        const name = make("div", {
          class: `name lane-${lane.id.split(":")[0]} ${lane.id.startsWith("cable:") ? "part" : ""}`, title: lane.title,
        }, ...shortened(lane.title.replace(/^Cable: /, "")));
        name.style.top = `${top}px`;
        return name;
      }),
      (() => {
        const name = make("div", {class: "name"}, "Lines");
        name.style.top = `${y + 12}px`;
        return name;
      })());
    byId("names").style.height = `${this.height}px`;
  }

  resize() {
    const width = this.plot.clientWidth;
    if (!this.machine || !width || width === this.width) return;
    const view = this.width ? this.view : null;
    this.width = width;
    this.overviewPicture = null;
    const whole = this.machine.until - this.machine.from;
    this.behaviour.extent([[0, 0], [width, this.height]]).translateExtent([[0, -Infinity], [width, Infinity]])
      .scaleExtent([1, Math.max(1, whole / CLOSEST)]);
    if (view) this.setView(view.from, view.until);
    else this.redraw();
  }

  // ---- where in time

  get transform() {
    return zoomTransform(this.plot);
  }

  // Pixels a millisecond.
  get scale() {
    return (this.width / (this.machine.until - this.machine.from)) * this.transform.k;
  }

  get view() {
    const {x} = this.transform;
    const {from} = this.machine;
    return {from: from - x / this.scale, until: from + (this.width - x) / this.scale};
  }

  setView(from, until) {
    const {machine} = this;
    const whole = machine.until - machine.from;
    const k = Math.min(Math.max(1, whole / CLOSEST), Math.max(1, whole / Math.max(CLOSEST, until - from)));
    const pixel = this.width / whole;
    const middle = (from + until) / 2 - machine.from;
    const x = Math.min(0, Math.max(this.width - this.width * k, this.width / 2 - middle * pixel * k));
    this.selection.call(this.behaviour.transform, zoomIdentity.translate(x, 0).scale(k));
  }

  showEverything() {
    this.setView(this.machine.from, this.machine.until);
  }

  // The times that the verdict is about: its own and those of its proof.
  verdictTimes() {
    const {data} = this.machine;
    const verdict = data.findings[0];
    const times = [verdict.t, ...verdict.proof.map(proof => proof.t)].filter(t => t !== null && t !== undefined);
    return times.length || data.at === null ? times : [data.at];
  }

  showVerdict() {
    const times = this.verdictTimes();
    if (!times.length) return;
    const [from, until] = [Math.min(...times), Math.max(...times)];
    const margin = Math.max(5000, (until - from) * 0.25);
    this.setView(from - margin, until + margin);
  }

  pan(part) {
    const {from, until} = this.view;
    this.setView(from + (until - from) * part, until + (until - from) * part);
  }

  // Around what has the focus, else around the middle.
  magnify(factor) {
    const {from, until} = this.view;
    const focused = this.focus ? this.focus.t : (from + until) / 2;
    const middle = focused >= from && focused <= until ? focused : (from + until) / 2;
    this.setView(middle - (middle - from) / factor, middle + (until - middle) / factor);
  }

  bringIntoView(from, until) {
    const view = this.view;
    if (from >= view.from && from <= view.until) return;
    const half = (view.until - view.from) / 2;
    const middle = until - from < half ? (from + until) / 2 : from + half * 0.8;
    this.setView(middle - half, middle + half);
  }

  setCursor(t) {
    this.cursor = t;
    if (t !== null) this.bringIntoView(t, t);
    this.redraw();
  }

  // ---- drawing

  draw() {
    if (!this.machine || !this.width) return;
    const context = prepare(this.canvas, this.width, this.height);
    this.from = this.machine.from;
    this.offset = this.transform.x;
    this.pixels = this.scale;
    this.drawAxis(context);
    for (const row of this.rows) this.drawLane(context, row);
    this.drawDensity(context, this.densityY + 8, DENSITY - 10);
    this.drawMoments(context);
    this.drawFocus(context);
    this.drawOverview();
  }

  x(t) {
    return (t - this.from) * this.pixels + this.offset;
  }

  time(x) {
    return this.from + (x - this.offset) / this.pixels;
  }

  drawAxis(context) {
    const {from, until} = this.view;
    const ticks = scaleUtc().domain([new Date(from), new Date(until)]).ticks(Math.max(2, Math.floor(this.width / 120)));
    const step = ticks.length > 1 ? ticks[1] - ticks[0] : 1000;
    context.font = `12px ${colour("font")}`;
    context.textBaseline = "alphabetic";
    context.textAlign = "left";
    context.fillStyle = colour("muted");
    context.fillText(words.longDay(from), 2, 12);
    context.textAlign = "center";
    for (const tick of ticks) {
      const x = Math.round(this.x(tick.getTime())) + 0.5;
      context.fillStyle = colour("grid");
      context.fillRect(x - 0.5, 35, 1, this.height - 35);
      context.fillStyle = colour("muted");
      const label = tickLabel(tick, step);
      const half = this.textWidth(context, label, this.plain) / 2;
      context.fillText(label, Math.min(this.width - half, Math.max(half, x)), 30);
    }
  }

  // The width in the context's font, of which `widths` remembers what was measured.
  textWidth(context, text, widths) {
    let width = widths.get(text);
    if (width === undefined) {
      if (widths.size > 5000) widths.clear();
      width = context.measureText(text).width;
      widths.set(text, width);
    }
    return width;
  }

  drawLane(context, {lane, y}) {
    const hue = signs.laneColour(lane.id);
    const {starts, ends, intervals} = lane;
    const count = intervals.length;
    const labelled = [];
    // More changes than pixels; what adjoins is drawn at once.
    let [manyFrom, manyUntil] = [0, 0];
    const drawMany = () => {
      if (manyUntil > manyFrom) signs.drawMany(context, hue, manyFrom, y, manyUntil - manyFrom, BAND);
    };
    let i = lowerBound(count, n => ends[n], this.time(0));
    while (i < count) {
      const x1 = Math.max(-2, this.x(starts[i]));
      if (x1 > this.width) break;
      const x2 = Math.min(this.width + 2, this.x(ends[i]));
      if (x2 - x1 >= 2) {
        signs.drawState(context, hue, intervals[i].state, x1, y, x2 - x1, BAND);
        if (x2 - x1 >= signs.WHO_SIZE + 6) labelled.push(i);
        ++i;
        continue;
      }
      // Everything that ends within the next two pixels is one stroke.
      const next = Math.max(i + 1, lowerBound(count, n => ends[n], this.time(x1 + 2)));
      if (next - i <= 1) signs.drawState(context, hue, intervals[i].state, x1, y, 2, BAND);
      else if (x1 <= manyUntil) manyUntil = x1 + 2;
      else {
        drawMany();
        [manyFrom, manyUntil] = [x1, x1 + 2];
      }
      i = next;
    }
    drawMany();
    for (const n of labelled) this.drawLabel(context, intervals[n], y);
    if (lane.marks.length) this.drawMarks(context, lane, y + BAND + MARKS / 2 + 1);
  }

  // Who, the state, and the reason where there is room; held in sight while any of the band is.
  drawLabel(context, interval, y) {
    const left = Math.max(0, this.x(interval.from)) + 4;
    const right = Math.min(this.width, this.x(interval.until)) - 4;
    let x = left;
    const middle = y + BAND / 2;
    if (interval.state !== "unknown") {
      if (right - x < signs.WHO_SIZE) return;
      signs.stampWho(context, interval.who, x + signs.WHO_SIZE / 2, middle);
      x += signs.WHO_SIZE + 5;
    }
    const state = words.stateWord(interval.state);
    context.textAlign = "left";
    context.textBaseline = "middle";
    const stateFont = `600 12px ${colour("font")}`;
    context.font = stateFont;
    const stateWidth = this.textWidth(context, state, this.bold);
    if (stateWidth > right - x) return;
    const whyFont = `12px ${colour("font")}`;
    const why = interval.why ? ` \u00b7 ${interval.why}` : "";
    context.font = whyFont;
    let whyWidth = this.textWidth(context, why, this.plain);
    if (whyWidth > right - x - stateWidth) whyWidth = 0;
    if (signs.isPatterned(interval.state)) {
      context.fillStyle = colour("band");
      context.fillRect(x - 3, y + 3, stateWidth + whyWidth + 6, BAND - 6);
    }
    context.fillStyle = signs.textColour(interval.state);
    if (whyWidth) context.fillText(why, x + stateWidth, middle + 0.5);
    context.font = stateFont;
    context.fillText(state, x, middle + 0.5);
  }

  drawMarks(context, lane, y) {
    const clusters = this.clusters.get(lane);
    clusters.update(this.pixels);
    const {markTimes, marks} = lane;
    const {first, count} = clusters;
    let n = lowerBound(count, c => markTimes[first[c]], this.time(-40));
    for (; n < count; ++n) {
      const x = this.x(markTimes[first[n]]);
      if (x > this.width + 10) break;
      const times = clusters.times[n];
      const end = Math.min(this.width, this.x(marks[first[n]].until));
      if (end - x > 8) {
        context.fillStyle = colour(["decision", "warning", "fault"][lane.markKinds[first[n]]]);
        context.fillRect(x, y - 1, end - x, 2);
      }
      signs.stampMark(context, signs.MARK_KINDS[clusters.kind[n]], x, y);
      if (times > 1) {
        context.font = `600 10px ${colour("font")}`;
        context.textBaseline = "middle";
        context.fillStyle = colour("text");
        const text = times > 999 ? "999+" : String(times);
        const beside = x + 8 + this.textWidth(context, text, this.small) <= this.width;
        context.textAlign = beside ? "left" : "right";
        context.fillText(text, beside ? x + 8 : x - 8, y + 0.5);
      }
    }
  }

  // How many lines there are at each moment; those of warnings and errors stand out from below.
  drawDensity(context, y, height) {
    const bin = BIN / this.pixels;
    const full = Math.log1p(2000);
    const start = Math.floor((this.time(0) - this.from) / bin) * bin + this.from;
    const bars = (times, filling) => {
      context.fillStyle = filling;
      let before = lowerBound(times.length, i => times[i], start);
      for (let t = start; t < this.time(this.width) && before < times.length; ) {
        t += bin;
        const after = lowerBound(times.length, i => times[i], t);
        if (after > before) {
          const tall = Math.max(2, Math.min(1, Math.log1p(after - before) / full) * height);
          context.fillRect(Math.round(this.x(t - bin)), Math.round(y + height - tall), BIN - 1, Math.round(tall));
        }
        before = after;
      }
    };
    bars(this.density, colour("faint"));
    bars(this.trouble, colour("fault"));
    context.fillStyle = colour("grid");
    context.fillRect(0, y + height, this.width, 1);
  }

  // The moment that was asked about, the findings by their numbers, and the line that was chosen.
  drawMoments(context) {
    const {data} = this.machine;
    const line = (t, kind) => {
      const x = Math.round(this.x(t)) + 0.5;
      if (x >= 0 && x <= this.width) signs.drawMoment(context, kind, x, AXIS - 6, this.height);
    };
    if (data.at !== null) line(data.at, "asked");
    const taken = [];
    for (const finding of data.findings) {
      if (finding.t === null) continue;
      const x = this.x(finding.t);
      if (x < -8 || x > this.width + 8 || taken.some(other => Math.abs(other - x) < 18)) continue;
      taken.push(x);
      const middle = Math.min(this.width - 9, Math.max(9, x));
      signs.drawFlag(context, finding.severity, String(finding.number), x, middle, 35);
    }
    if (this.cursor !== null) line(this.cursor, "chosen");
  }

  drawFocus(context) {
    const frame = (thing, width) => {
      const place = this.placeOf(thing);
      if (!place) return;
      context.strokeStyle = colour("focus");
      context.lineWidth = width;
      context.strokeRect(place.x - 1, place.y - 1, place.width + 2, place.height + 2);
    };
    if (this.chosenThing) frame(this.chosenThing, 2.5);
    if (this.focus && document.activeElement === this.plot) frame(this.focus, 2.5);
  }

  placeOf({lane, interval, marks}) {
    const row = this.rows.find(candidate => candidate.lane === lane);
    if (!row) return null;
    if (interval) {
      const x1 = Math.max(1, this.x(interval.from));
      const x2 = Math.min(this.width - 1, this.x(interval.until));
      return x2 < 0 || x1 > this.width ? null : {x: x1, y: row.y, width: Math.max(2, x2 - x1), height: BAND};
    }
    const x = this.x(marks[0].t);
    return {x: x - 8, y: row.y + BAND + 1, width: 16, height: MARKS};
  }

  drawOverview() {
    const context = prepare(this.overview, this.width, OVERVIEW);
    if (!this.overviewPicture) {
      const picture = document.createElement("canvas");
      const ink = prepare(picture, this.width, OVERVIEW);
      const [offset, pixels] = [this.offset, this.pixels];
      this.offset = 0;
      this.pixels = this.width / (this.machine.until - this.machine.from);
      ink.fillStyle = colour("band");
      ink.fillRect(0, 0, this.width, OVERVIEW);
      this.drawDensity(ink, 3, OVERVIEW - 4);
      if (this.machine.data.at !== null) {
        ink.fillStyle = colour("accent");
        ink.fillRect(this.x(this.machine.data.at) - 1, 0, 2, OVERVIEW);
      }
      [this.offset, this.pixels] = [offset, pixels];
      this.overviewPicture = picture;
    }
    context.drawImage(this.overviewPicture, 0, 0, this.width, OVERVIEW);
    const {k, x} = this.transform;
    const left = -x / k;
    const width = Math.max(6, this.width / k);
    context.fillStyle = colour("veil");
    context.fillRect(0, 0, left, OVERVIEW);
    context.fillRect(left + width, 0, this.width - left - width, OVERVIEW);
    context.strokeStyle = colour("accent");
    context.lineWidth = 2;
    context.strokeRect(left + 1, 1, Math.max(1, width - 2), OVERVIEW - 2);
  }

  // ---- pointer

  thingAt(x, y) {
    const row = this.rows.find(candidate => y >= candidate.y - 2 && y < candidate.y + candidate.height - 2);
    if (!row) return null;
    const {lane} = row;
    if (lane.marks.length && y > row.y + BAND) {
      const clusters = this.clusters.get(lane);
      clusters.update(this.scale);
      for (let n = 0; n < clusters.count; ++n) {
        const t = lane.markTimes[clusters.first[n]];
        if (Math.abs(this.x(t) + 4 - x) < 14) return {lane, marks: clusters.marks(n), t};
      }
      return null;
    }
    const index = lane.intervalAt(this.time(x));
    return index < 0 ? null : {lane, interval: lane.intervals[index], t: lane.starts[index]};
  }

  hover(mouse) {
    const box = this.canvas.getBoundingClientRect();
    const [x, y] = [mouse.clientX - box.left, mouse.clientY - box.top];
    const thing = mouse.buttons ? null : this.thingAt(x, y);
    this.plot.classList.toggle("over", thing !== null);
    const text = thing ? describe(thing) : [words.moment(Math.round(this.time(x)))];
    this.tip.replaceChildren(...text.map((line, n) => make(n ? "div" : "strong", {}, line)));
    this.tip.hidden = mouse.buttons !== 0;
    const left = x + 16 + this.tip.offsetWidth > this.width ? Math.max(0, x - 12 - this.tip.offsetWidth) : x + 16;
    this.tip.style.transform = `translate(${left}px, ${Math.min(y + 14, this.height - this.tip.offsetHeight)}px)`;
  }

  hideTip() {
    this.tip.hidden = true;
  }

  click(mouse) {
    const box = this.canvas.getBoundingClientRect();
    const [x, y] = [mouse.clientX - box.left, mouse.clientY - box.top];
    const thing = this.thingAt(x, y);
    this.focus = thing;
    if (thing) this.choose(thing);
    else this.chosen({t: this.time(x)});
  }

  choose(thing) {
    this.chosenThing = thing;
    this.redraw();
    this.chosen(thing);
    byId("spoken").textContent = `${describe(thing)[0]}: its lines are shown below`;
  }

  wheel(wheel) {
    if (wheel.ctrlKey || wheel.metaKey) return;
    const sideways = wheel.shiftKey ? wheel.deltaX || wheel.deltaY : wheel.deltaX;
    if (!sideways || (!wheel.shiftKey && Math.abs(wheel.deltaY) >= Math.abs(wheel.deltaX))) return;
    wheel.preventDefault();
    this.pan(sideways / this.width);
  }

  overviewPointer(pointer, pressed) {
    if (pressed) this.overview.setPointerCapture(pointer.pointerId);
    else if (!pointer.buttons) return;
    const {from, until} = this.view;
    const {machine} = this;
    const middle = machine.from + (pointer.offsetX / this.width) * (machine.until - machine.from);
    this.setView(middle - (until - from) / 2, middle + (until - from) / 2);
  }

  // ---- keyboard

  key(key) {
    if (key.ctrlKey || key.altKey || key.metaKey) return;
    const actions = {
      "+": () => this.magnify(2), "=": () => this.magnify(2),
      "-": () => this.magnify(0.5), "0": () => this.showEverything(),
      v: () => this.showVerdict(), V: () => this.showVerdict(),
      ArrowLeft: () => (key.shiftKey ? this.pan(-0.25) : this.step(-1)),
      ArrowRight: () => (key.shiftKey ? this.pan(0.25) : this.step(1)),
      ArrowUp: () => this.changeLane(-1), ArrowDown: () => this.changeLane(1),
      Home: () => this.stepTo(0), End: () => this.stepTo(-1),
      Enter: () => this.focus && this.choose(this.focus), " ": () => this.focus && this.choose(this.focus),
      Escape: () => { this.chosenThing = null; this.redraw(); },
    };
    const action = actions[key.key];
    if (!action) return;
    key.preventDefault();
    action();
  }

  moveFocus(thing) {
    if (!thing) return;
    this.focus = thing;
    this.bringIntoView(thing.t, thing.interval ? thing.interval.until : thing.t);
    byId("spoken").textContent = describe(thing).join(". ");
    this.redraw();
  }

  step(direction) {
    if (!this.focus) {
      this.changeLane(0);
      return;
    }
    const {things} = this.focus.lane;
    const same = thing => thing.interval === this.focus.interval && thing.marks?.[0] === this.focus.marks?.[0];
    const at = things.findIndex(same);
    this.moveFocus(things[Math.min(things.length - 1, Math.max(0, at + direction))]);
  }

  stepTo(index) {
    if (!this.focus) this.changeLane(0);
    this.moveFocus(this.focus?.lane.things.at(index));
  }

  // Keeps the time as far as the other lane has something there.
  changeLane(direction) {
    const {lanes} = this.machine;
    const at = this.focus ? lanes.indexOf(this.focus.lane) + direction : 0;
    const lane = lanes[Math.min(lanes.length - 1, Math.max(0, at))];
    const t = this.focus ? Math.max(this.focus.t, this.view.from) : this.view.from;
    const index = lane.intervalAt(t);
    this.moveFocus(index >= 0 ? {lane, interval: lane.intervals[index], t: lane.starts[index]} : lane.things[0]);
  }
}

// What the thing is, a line each, the first its heading.
export function describe({lane, interval, marks}) {
  if (interval) {
    return [
      `${lane.title}: ${words.stateWord(interval.state)}`,
      words.period(interval.from, interval.until) + ` (${words.duration(interval.until - interval.from)})`,
      [interval.state === "unknown" ? "" : words.byWhom(interval.who), interval.why].filter(Boolean).join(": "),
    ].filter(Boolean);
  }
  const shown = marks.slice(0, 4).map(
    mark => `${words.clock(mark.t)} ${mark.kind}: ${mark.text}${mark.times > 1 ? ` (${mark.times} times)` : ""}`);
  if (marks.length > shown.length) shown.push(`and ${words.plural(marks.length - shown.length, "other", "others")}`);
  return [lane.title, ...shown];
}
