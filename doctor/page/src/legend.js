// What the signs and fillings mean, drawn by what draws the lanes.

import {make} from "./dom.js";
import * as signs from "./signs.js";

const GROUPS = {
  "What was so": [
    ["on, in, running", context => signs.drawState(context, signs.laneColour("wifi"), "on", 1, 3, 28, 16)],
    ["off, out, stopped", context => signs.drawState(context, signs.laneColour("wifi"), "off", 1, 3, 28, 16)],
    ["on the way: no address yet, starting", context => signs.drawState(context, signs.laneColour("wifi"), "starting", 1, 3, 28, 16)],
    ["not known", context => signs.drawState(context, signs.laneColour("wifi"), "unknown", 1, 3, 28, 16)],
  ],
  "Who acted": [
    ["the user", context => signs.drawWho(context, "user", 15, 11)],
    ["the service", context => signs.drawWho(context, "service", 15, 11)],
    ["Windows", context => signs.drawWho(context, "windows", 15, 11)],
    ["not known by whom", context => signs.drawWho(context, "unknown", 15, 11)],
  ],
  "What happened": [
    ["decision", context => signs.drawMark(context, "decision", 15, 11)],
    ["warning", context => signs.drawMark(context, "warning", 15, 11)],
    ["error; a number counts", context => signs.drawMark(context, "error", 15, 11)],
    ["a finding, by its number", context => signs.drawFlag(context, "fault", "1", 15, 15, 1)],
    ["the moment of the verdict", context => signs.drawMoment(context, "asked", 15.5, 0, 22)],
    ["lines a moment; red: warnings and errors", context => {
      context.fillStyle = signs.colour("faint");
      [5, 9, 14, 7, 11].forEach((tall, n) => context.fillRect(4 + n * 4, 18 - tall, 3, tall));
      context.fillStyle = signs.colour("fault");
      [0, 2, 6, 0, 3].forEach((tall, n) => context.fillRect(4 + n * 4, 18 - tall, 3, tall));
    }],
  ],
};

function entry([text, draw]) {
  const ratio = window.devicePixelRatio || 1;
  const canvas = make("canvas", {width: 30 * ratio, height: 22 * ratio, "aria-hidden": "true"});
  canvas.style.width = "30px";
  canvas.style.height = "22px";
  const context = canvas.getContext("2d");
  context.scale(ratio, ratio);
  draw(context);
  return make("li", {}, canvas, make("span", {}, text));
}

export const legendGroups = () => Object.entries(GROUPS).map(
  ([title, entries]) => make("div", {}, make("h3", {}, title), make("ul", {}, ...entries.map(entry))));
