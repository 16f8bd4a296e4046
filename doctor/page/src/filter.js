// Which lines, and with them which marks and parts of the story, are shown.

import {LEVELS} from "./machine.js";

export class Filter {
  constructor() {
    this.text = "";
    this.hiddenLevels = new Set();
    this.operation = -1;
    this.thread = -1;
  }

  get pattern() {
    return this.text ? new RegExp(this.text.replace(/[.*+?^${}()|[\]\\]/g, "\\$&"), "gi") : null;
  }

  get active() {
    return this.text !== "" || this.restricts;
  }

  // By anything but the text.
  get restricts() {
    return this.hiddenLevels.size > 0 || this.operation >= 0 || this.thread >= 0;
  }

  // Narrows `machine` to what passes: machine.shown (indexes of lines, ascending), machine.passes
  // (a byte a line), machine.shownStory and each lane's markShown.
  apply(machine) {
    const {lines, levels, data} = machine;
    const pattern = this.text ? new RegExp(this.pattern.source, "i") : null;
    const levelPasses = Uint8Array.from(LEVELS, name => (this.hiddenLevels.has(name) ? 0 : 1));
    const operationPasses = data.operations.map(name => (pattern ? pattern.test(name) : false));
    const passes = new Uint8Array(lines.length);
    const shown = new Uint32Array(lines.length);
    let count = 0;
    for (let i = 0; i < lines.length; ++i) {
      const line = lines[i];
      if (!levelPasses[levels[i]]) continue;
      if (this.operation >= 0 && line[5] !== this.operation) continue;
      if (this.thread >= 0 && line[3] !== this.thread) continue;
      if (pattern && !operationPasses[line[5]] && !pattern.test(line[6])) continue;
      passes[i] = 1;
      shown[count++] = i;
    }
    machine.passes = passes;
    machine.shown = shown.subarray(0, count);

    // A mark or a part of the story passes with its line; by its own words, too, as long as only a text
    // is searched for.
    const told = thing => {
      if (!this.active) return true;
      const index = machine.indexOf(thing.line);
      if (index >= 0 && passes[index]) return true;
      return !this.restricts && pattern !== null && pattern.test(thing.text);
    };
    machine.shownStory = data.story.filter(told);
    for (const lane of machine.lanes) {
      lane.marks.forEach((mark, i) => { lane.markShown[i] = told(mark) ? 1 : 0; });
    }
  }
}
