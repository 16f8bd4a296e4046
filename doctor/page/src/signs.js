// The signs and fillings of the lanes, drawn the same way in the lanes and in the legend. What they say is
// never in the colour alone: who acted has a letter and a shape, marks have shapes, states have fillings.

import {whoLetter} from "./words.js";

export const FILLINGS = {
  in: "solid", on: "solid", running: "solid", awake: "light",
  out: "light", off: "light", stopped: "light",
  "no-address": "stripes", starting: "stripes",
  unknown: "hatch", slept: "hatch",
};

export const MARK_KINDS = ["decision", "warning", "error"];

let palette = null;
let patterns = new Map();
let stamps = new Map();

// Reads the colours anew: after the theme has changed.
export function refreshColours() {
  const style = getComputedStyle(document.documentElement);
  const read = name => style.getPropertyValue(name).trim();
  palette = {read, cache: new Map()};
  patterns = new Map();
  stamps = new Map();
}

export function colour(name) {
  if (!palette) refreshColours();
  if (!palette.cache.has(name)) palette.cache.set(name, palette.read(`--${name}`));
  return palette.cache.get(name);
}

export const laneColour = id => colour(`lane-${id.split(":")[0]}`);

function pattern(context, hue, kind) {
  const key = `${hue} ${kind}`;
  if (!patterns.has(key)) {
    const size = kind === "stripes" ? 10 : 8;
    const tile = document.createElement("canvas");
    tile.width = tile.height = size;
    const pen = tile.getContext("2d");
    pen.strokeStyle = hue;
    pen.lineWidth = kind === "stripes" ? 3 : 1;
    pen.globalAlpha = kind === "stripes" ? 0.45 : 0.55;
    pen.beginPath();
    for (const shift of [-size, 0, size]) {
      pen.moveTo(shift - 2, size + 2);
      pen.lineTo(shift + size + 2, -2);
    }
    pen.stroke();
    patterns.set(key, context.createPattern(tile, "repeat"));
  }
  return patterns.get(key);
}

// The band of one state. On whole pixels, and with rectangles alone where it is narrow: there can be
// thousands in a picture.
export function drawState(context, hue, state, left, y, wide, height) {
  const x = Math.round(left);
  const width = Math.max(1, Math.round(left + wide) - x);
  const filling = FILLINGS[state] || "hatch";
  context.fillStyle = filling === "hatch" ? colour("faint") : hue;
  context.fillRect(x, y, width, height);
  if (filling === "solid" || width < 3) return;
  context.fillStyle = colour("band");
  context.fillRect(x + 1, y + 1, width - 2, height - 2);
  if (filling === "light" || width < 6) return;
  context.fillStyle = pattern(context, filling === "hatch" ? colour("faint") : hue, filling);
  context.fillRect(x + 1, y + 1, width - 2, height - 2);
}

// More changes than there are pixels.
export function drawMany(context, hue, left, y, width, height) {
  const x = Math.round(left);
  context.fillStyle = hue;
  context.globalAlpha = 0.6;
  context.fillRect(x, y, Math.round(left + width) - x, height);
  context.globalAlpha = 1;
}

export const isPatterned = state => !["solid", "light"].includes(FILLINGS[state]);

export const textColour = state => (FILLINGS[state] === "solid" ? colour("on-solid") : colour("text"));

export const WHO_SIZE = 14;

// Who acted: a circle with U, a square with S, a diamond with W, a dotted circle with a question mark.
// (x, y) is the middle.
export function drawWho(context, who, x, y) {
  const half = WHO_SIZE / 2;
  const known = who === "user" || who === "service" || who === "windows";
  context.beginPath();
  if (who === "service") context.rect(x - half + 0.5, y - half + 0.5, WHO_SIZE - 1, WHO_SIZE - 1);
  else if (who === "windows") {
    context.moveTo(x, y - half - 1.5);
    context.lineTo(x + half + 1.5, y);
    context.lineTo(x, y + half + 1.5);
    context.lineTo(x - half - 1.5, y);
    context.closePath();
  } else context.arc(x, y, half, 0, 2 * Math.PI);
  context.fillStyle = colour(known ? `who-${who}` : "band");
  context.fill();
  context.strokeStyle = known ? colour("card") : colour("muted");
  context.lineWidth = 1;
  if (!known) context.setLineDash([2, 2]);
  context.stroke();
  context.setLineDash([]);
  context.fillStyle = known ? colour("who-letter") : colour("text");
  context.font = `700 9px ${colour("font")}`;
  context.textAlign = "center";
  context.textBaseline = "middle";
  context.fillText(whoLetter(who), x, y + 0.5);
}

// A decision is a ring, a warning a triangle, an error a square with a cross. (x, y) is the middle.
export function drawMark(context, kind, x, y) {
  context.lineWidth = 1.5;
  context.beginPath();
  if (kind === "decision") {
    context.arc(x, y, 4.5, 0, 2 * Math.PI);
    context.fillStyle = colour("card");
    context.fill();
    context.lineWidth = 2;
    context.strokeStyle = colour("decision");
    context.stroke();
    return;
  }
  if (kind === "warning") {
    context.moveTo(x, y - 6);
    context.lineTo(x + 6.5, y + 5);
    context.lineTo(x - 6.5, y + 5);
    context.closePath();
    context.fillStyle = colour("warning");
    context.fill();
    context.strokeStyle = colour("warning-edge");
    context.lineWidth = 1;
    context.stroke();
    return;
  }
  context.fillStyle = colour("fault");
  context.fillRect(x - 5.5, y - 5.5, 11, 11);
  context.moveTo(x - 3, y - 3);
  context.lineTo(x + 3, y + 3);
  context.moveTo(x + 3, y - 3);
  context.lineTo(x - 3, y + 3);
  context.strokeStyle = colour("card");
  context.stroke();
}

// A finding's number, above the moment at `x`; `middle` is where there is room for it, `y` its top.
export function drawFlag(context, severity, text, x, middle, y) {
  context.fillStyle = colour(`${severity}-flag`);
  context.beginPath();
  context.moveTo(middle - 8, y);
  context.lineTo(middle + 8, y);
  context.lineTo(middle + 8, y + 13);
  context.lineTo(x, y + 20);
  context.lineTo(middle - 8, y + 13);
  context.fill();
  context.fillStyle = colour("card");
  context.font = `700 11px ${colour("font")}`;
  context.textAlign = "center";
  context.textBaseline = "middle";
  context.fillText(text, middle, y + 7);
}

// A moment that stands out: what the verdict is about, or the line that was chosen.
export function drawMoment(context, kind, x, top, bottom) {
  context.strokeStyle = colour(kind === "asked" ? "accent" : "focus");
  context.lineWidth = 1.5;
  context.setLineDash(kind === "asked" ? [5, 4] : []);
  context.beginPath();
  context.moveTo(x, top);
  context.lineTo(x, bottom);
  context.stroke();
  context.setLineDash([]);
}

// Drawing a sign takes many strokes, and there are hundreds in a picture: they are drawn once and copied.
const STAMP = 20;

function stamp(context, kind, draw, x, y) {
  const ratio = window.devicePixelRatio || 1;
  let picture = stamps.get(kind);
  if (!picture || picture.width !== Math.ceil(STAMP * ratio)) {
    picture = document.createElement("canvas");
    picture.width = picture.height = Math.ceil(STAMP * ratio);
    const pen = picture.getContext("2d");
    pen.scale(ratio, ratio);
    draw(pen, kind, STAMP / 2, STAMP / 2);
    stamps.set(kind, picture);
  }
  // On whole pixels of the screen: a copy, not a new picture.
  const snap = value => Math.round((value - STAMP / 2) * ratio) / ratio;
  context.drawImage(picture, snap(x), snap(y), picture.width / ratio, picture.height / ratio);
}

export const stampWho = (context, who, x, y) => stamp(context, who, drawWho, x, y);
export const stampMark = (context, kind, x, y) => stamp(context, kind, drawMark, x, y);
