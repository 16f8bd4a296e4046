// One machine of the report, with what the views ask again and again kept in flat arrays.

export const LEVELS = ["TraceIn", "TraceOut", "Verbose", "Information", "Warning", "Error", "Diag"];
const MARK_KINDS = ["decision", "warning", "error"];

// The first index whose value is not below `value`; `at` gives the value at an index, ascending.
export function lowerBound(count, at, value) {
  let low = 0;
  let high = count;
  while (low < high) {
    const middle = (low + high) >>> 1;
    if (at(middle) < value) low = middle + 1;
    else high = middle;
  }
  return low;
}

class Lane {
  constructor(lane, marks) {
    this.id = lane.id;
    this.title = lane.title;
    this.intervals = lane.intervals;
    this.starts = Float64Array.from(lane.intervals, interval => interval.from);
    this.ends = Float64Array.from(lane.intervals, interval => interval.until);
    this.marks = marks.sort((left, right) => left.t - right.t);
    this.markTimes = Float64Array.from(this.marks, mark => mark.t);
    this.markKinds = Uint8Array.from(this.marks, mark => Math.max(0, MARK_KINDS.indexOf(mark.kind)));
    this.markCounts = Float64Array.from(this.marks, mark => mark.times);
    this.markShown = new Uint8Array(this.marks.length).fill(1);
  }

  intervalAt(t) {
    const index = lowerBound(this.ends.length, i => this.ends[i], t + 1e-6);
    return index < this.ends.length && this.starts[index] <= t ? index : -1;
  }

  // Intervals and marks in the order of their times, for the keyboard.
  get things() {
    if (!this.ordered) {
      this.ordered = [
        ...this.intervals.map(interval => ({lane: this, interval, t: interval.from})),
        ...this.marks.map(mark => ({lane: this, marks: [mark], t: mark.t})),
      ].sort((left, right) => left.t - right.t);
    }
    return this.ordered;
  }
}

export class Machine {
  constructor(data) {
    this.data = data;
    this.lines = data.lines;
    const count = this.lines.length;
    this.times = new Float64Array(count);
    this.levels = new Uint8Array(count);
    let ordered = true;
    for (let i = 0; i < count; ++i) {
      const line = this.lines[i];
      this.times[i] = line[2];
      this.levels[i] = line[4];
      if (i > 0 && this.order(i - 1, line[0], line[1]) >= 0) ordered = false;
    }
    // Lines are looked up by file and number; where the report has another order, by a sorted index.
    this.byPlace = null;
    if (!ordered) {
      this.byPlace = Uint32Array.from({length: count}, (_, i) => i).sort(
        (left, right) => this.lines[left][0] - this.lines[right][0] || this.lines[left][1] - this.lines[right][1]);
    }

    const marks = new Map(data.lanes.map(lane => [lane.id, []]));
    for (const mark of data.marks) {
      (marks.get(mark.lane) || marks.get("runs") || []).push(mark);
    }
    this.lanes = data.lanes.map(lane => new Lane(lane, marks.get(lane.id)));
    this.days = data.from !== null && data.until - data.from > 86400000;
    // The times that the lanes reach from and to.
    [this.from, this.until] = this.extent();
  }

  extent() {
    let {from, until} = this.data;
    for (const lane of this.lanes) {
      if (!lane.intervals.length) continue;
      from = Math.min(from ?? Infinity, lane.starts[0]);
      until = Math.max(until ?? -Infinity, lane.ends[lane.ends.length - 1]);
    }
    from ??= this.data.at ?? 0;
    until ??= from;
    // What happens at either end keeps clear of the edge.
    const margin = Math.max(50, (until - from) * 0.02);
    return [from - margin, until + margin];
  }

  order(index, file, line) {
    return this.lines[index][0] - file || this.lines[index][1] - line;
  }

  // The index of the line that [file, line] names, or -1 when the report does not carry it.
  indexOf(reference) {
    if (!reference) return -1;
    const [file, line] = reference;
    const place = i => (this.byPlace ? this.byPlace[i] : i);
    let low = 0;
    let high = this.lines.length;
    while (low < high) {
      const middle = (low + high) >>> 1;
      if (this.order(place(middle), file, line) < 0) low = middle + 1;
      else high = middle;
    }
    return low < this.lines.length && this.order(place(low), file, line) === 0 ? place(low) : -1;
  }

  // The line at the time, or the last one before it. Clocks are set back: it is a good guess, not more.
  indexAt(t) {
    const after = lowerBound(this.times.length, i => this.times[i], t + 1e-6);
    return Math.min(Math.max(after - 1, 0), this.times.length - 1);
  }

  fileName(number) {
    const file = this.data.files[number];
    return file ? file.path.split(/[\\/]/).pop() : "?";
  }

  // "LinkvaneService.log:17"
  place(reference) {
    return `${this.fileName(reference[0])}:${reference[1]}`;
  }

  operation(index) {
    return this.data.operations[this.lines[index][5]] || "";
  }

  thread(index) {
    return this.data.threads[this.lines[index][3]] || "";
  }
}
