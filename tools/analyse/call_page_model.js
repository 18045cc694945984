// The call's numbers: unpacked, and asked for by time.
"use strict";

/** The bytes of base64 text, inflated. */
async function unpack(text) {
  const characters = atob(text), packed = new Uint8Array(characters.length);
  for (let i = 0; i < packed.length; ++i) packed[i] = characters.charCodeAt(i);
  const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

/** A column at its place in the bytes; numbers of four bytes lie there as four planes, the low bytes first. */
function column(bytes, [at, count, type]) {
  if (type === "i8") return new Int8Array(bytes.buffer, at, count);
  const words = new Uint32Array(count);
  for (let plane = 0; plane < 4; ++plane) {
    const begin = at + plane * count;
    for (let i = 0; i < count; ++i) words[i] |= bytes[begin + i] << (8 * plane);
  }
  return type === "i32" ? new Int32Array(words.buffer) : new Float32Array(words.buffer);
}

/** Lowest and highest values of columns; asked for many at once, it looks at their summaries. */
class Envelope {
  static fold = 8;

  constructor(low, high) {
    this.levels = [{low, high}];
    for (let level = this.levels[0]; level.low.length > Envelope.fold; this.levels.push(level)) level = Envelope.summary(level);
  }

  static summary({low, high}) {
    const count = Math.ceil(low.length / Envelope.fold);
    const above = {low: new Float32Array(count).fill(Infinity), high: new Float32Array(count).fill(-Infinity)};
    for (let i = 0; i < low.length; ++i) {
      const at = Math.floor(i / Envelope.fold);
      above.low[at] = Math.min(above.low[at], low[i]);
      above.high[at] = Math.max(above.high[at], high[i]);
    }
    return above;
  }

  get count() { return this.levels[0].low.length; }
  get highest() { return this.extremes(0, this.count)[1]; }

  /** Of columns begin to end, which is behind the last; about, when they are many. */
  extremes(begin, end) {
    let depth = 0, width = 1;
    while (depth + 1 < this.levels.length && end - begin >= 4 * width * Envelope.fold) { ++depth; width *= Envelope.fold; }
    const {low, high} = this.levels[depth];
    let least = Infinity, most = -Infinity;
    const last = Math.min(low.length, Math.ceil(end / width));
    for (let i = Math.max(0, Math.floor(begin / width)); i < last; ++i) {
      least = Math.min(least, low[i]);
      most = Math.max(most, high[i]);
    }
    return [least, most];
  }
}

/** The first place in ascending numbers that is not below `value`. */
function lower_bound(numbers, value) {
  let begin = 0, end = numbers.length;
  while (begin < end) {
    const middle = (begin + end) >> 1;
    if (numbers[middle] < value) begin = middle + 1; else end = middle;
  }
  return begin;
}

function running_sums(steps) {
  let sum = 0;
  return Float64Array.from(steps, step => sum += step);
}

function make_track(bytes, raw) {
  const shifts = name => ({score: column(bytes, raw[name].score), shift: column(bytes, raw[name].shift), votes: column(bytes, raw[name].votes)});
  const track = {...raw, frames: running_sums(column(bytes, raw.steps)), voted: shifts("voted"), best: shifts("best"), runner_up: shifts("runner_up")};
  track.highest = track.threshold;
  for (const {score} of [track.voted, track.best]) for (const value of score) track.highest = Math.max(track.highest, value);
  return track;
}

function make_side(bytes, raw) {
  const envelope = ({low, high}) => new Envelope(column(bytes, low ?? high), column(bytes, high));
  const side = {...raw, wave: envelope(raw.wave), peak: raw.wave.peak, amplitude: envelope(raw.amplitude),
    deviation: envelope(raw.deviation), weighted_power: envelope(raw.weighted_power), active: column(bytes, raw.active),
    spans: column(bytes, raw.spans)};
  side.tracks = raw.tracks.map(track => make_track(bytes, track));
  return side;
}

/** The call of the page's data: `frames` of the longer side, `marks` of all findings by time. */
async function make_call(data) {
  const bytes = await unpack(data.packed);
  const call = {...data, sides: data.sides.map(side => make_side(bytes, side))};
  call.frames = Math.max(1, ...call.sides.map(side => side.frames));
  call.marks = call.sides.flatMap(side => side.detections.map(found => ({side, ...found})))
    .sort((a, b) => a.frame - b.frame);
  return call;
}
