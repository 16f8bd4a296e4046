// Marks that would lie on each other are shown as one sign with a count. Which ones these are depends on
// the scale alone, so that nothing jumps while the reader moves along.

const SIGN_SPACE = 38;

export class Clusters {
  constructor(lane) {
    this.lane = lane;
    this.scale = 0;
    this.count = 0;
    this.first = new Uint32Array(lane.marks.length + 1);
    // What a sign stands for: its worst kind, and how many.
    this.kind = new Uint8Array(lane.marks.length);
    this.times = new Float64Array(lane.marks.length);
  }

  forget() {
    this.scale = 0;
  }

  // For `scale` pixels a millisecond: mark first[n] to first[n + 1] - 1 share a sign; of them only those
  // that pass the filter count.
  update(scale) {
    if (scale === this.scale) return;
    this.scale = scale;
    const {first, kind, times} = this;
    const {markTimes, markKinds, markCounts, markShown} = this.lane;
    const space = SIGN_SPACE / scale;
    let last = -1;
    let end = -Infinity;
    for (let i = 0; i < markTimes.length; ++i) {
      if (!markShown[i]) continue;
      if (markTimes[i] >= end) {
        first[++last] = i;
        kind[last] = markKinds[i];
        times[last] = markCounts[i];
        end = markTimes[i] + space;
      } else {
        if (markKinds[i] > kind[last]) kind[last] = markKinds[i];
        times[last] += markCounts[i];
      }
    }
    this.count = last + 1;
    first[this.count] = markTimes.length;
  }

  marks(cluster) {
    const marks = [];
    for (let i = this.first[cluster]; i < this.first[cluster + 1]; ++i) {
      if (this.lane.markShown[i]) marks.push(this.lane.marks[i]);
    }
    return marks;
  }
}
