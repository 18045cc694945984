// Draws curves of a call on canvases. All have the same left and right edge, so that a moment is the same x in all.
"use strict";

const edge = {left: 52, right: 12};

/** What is shown: frames from `begin` to `end`, on `width` pixels. */
class View {
  constructor(frames) { this.frames = frames; this.begin = 0; this.end = frames; this.width = 600; }

  static least_frames = 24;

  get span() { return this.end - this.begin; }
  get frames_per_pixel() { return this.span / (this.width - edge.left - edge.right); }
  x(frame) { return edge.left + (frame - this.begin) / this.frames_per_pixel; }
  frame(x) { return this.begin + (x - edge.left) * this.frames_per_pixel; }

  show(begin, end) {
    const span = Math.min(this.frames, Math.max(View.least_frames, end - begin));
    const middle = (begin + end) / 2;
    this.begin = Math.min(Math.max(0, middle - span / 2), this.frames - span);
    this.end = this.begin + span;
  }
  /** Less is shown when factor < 1; `frame` stays where it is. */
  zoom(factor, frame) { this.show(frame - (frame - this.begin) * factor, frame + (this.end - frame) * factor); }
  move(frames) { this.show(this.begin + frames, this.end + frames); }
}

/** The page's colours, as they are now. */
function palette() {
  const style = getComputedStyle(document.documentElement), known = {};
  return name => known[name] ??= style.getPropertyValue("--" + name).trim();
}

/** Clears a canvas for `height` pixels of its width on the page; its context, in these pixels. */
function prepare(canvas, width, height) {
  const ratio = window.devicePixelRatio || 1;
  canvas.width = Math.round(width * ratio);
  canvas.height = Math.round(height * ratio);
  canvas.style.height = height + "px";
  const context = canvas.getContext("2d");
  context.scale(ratio, ratio);
  context.font = "11px system-ui, sans-serif";
  return context;
}

/** y of values from low to high; a logarithmic scale's zero is its lower end. */
function scale_y(low, high, top, bottom, logarithmic) {
  const to = logarithmic ? value => Math.log10(Math.max(value, low)) : value => value;
  return value => bottom - (bottom - top) * (to(Math.min(value, high)) - to(low)) / (to(high) - to(low));
}

function short_number(value) {
  if (value >= 1000) return (value / 1000 >= 1000 ? value / 1e6 + " M" : value / 1000 + " k");
  return String(+value.toPrecision(3));
}

function draw_ticks(context, colour, view, ticks, y) {
  context.textAlign = "right";
  context.textBaseline = "middle";
  for (const tick of ticks) {
    context.fillStyle = colour("line");
    context.fillRect(edge.left, Math.round(y(tick)), view.width - edge.left - edge.right, 1);
    context.fillStyle = colour("faint");
    context.fillText(short_number(tick), edge.left - 6, y(tick));
  }
}

function draw_spans(context, colour, view, side, top, bottom) {
  const areas = new Path2D(), edges = new Path2D();
  let drawn = -1;
  for (let i = lower_bound(side.spans, view.begin) & ~1; i < side.spans.length && side.spans[i] < view.end; i += 2) {
    const from = Math.max(edge.left, view.x(side.spans[i]));
    const to = Math.min(view.width - edge.right, Math.max(from + 1, view.x(side.spans[i + 1])));
    if (to <= from || to - drawn < 0.5) continue;  // many in a pixel: one of them
    drawn = to;
    areas.rect(from, top, to - from, bottom - top);
    edges.rect(from, top, to - from, 2);
  }
  context.fillStyle = colour("active");
  context.fill(areas);
  context.fillStyle = colour("active-edge");
  context.fill(edges);
}

/** Which single frames are active: a rug. */
function draw_active_frames(context, colour, view, side, column_frames, top, height) {
  context.fillStyle = colour("active-edge");
  each_pixel(view, side.active.length, column_frames, (x, begin, end) => {
    for (let i = begin; i < end; ++i) if (side.active[i]) return context.fillRect(x, top, 1, height);
  });
}

/** Calls on_pixel(x, begin, end) for every pixel column that has some of `count` columns. */
function each_pixel(view, count, column_frames, on_pixel) {
  for (let x = edge.left; x < view.width - edge.right; ++x) {
    const begin = Math.floor(view.frame(x) / column_frames);
    const end = Math.max(begin + 1, Math.ceil(view.frame(x + 1) / column_frames));
    if (begin >= 0 && begin < count) on_pixel(x, begin, Math.min(end, count));
  }
}

function draw_envelope(context, view, envelope, column_frames, y) {
  let before = null;
  each_pixel(view, envelope.count, column_frames, (x, begin, end) => {
    const [low, high] = envelope.extremes(begin, end);
    let from = y(high), to = y(low);
    if (before) { from = Math.min(from, before[1]); to = Math.max(to, before[0]); }  // no gaps in a steep curve
    context.fillRect(x, from - 0.75, 1, Math.max(1.5, to - from + 1.5));
    before = [y(high), y(low)];
  });
}

/** A dashed line with its name. */
function draw_limit(context, colour, view, y, text) {
  context.strokeStyle = colour("limit");
  context.setLineDash([5, 4]);
  context.lineWidth = 1.2;
  context.beginPath();
  context.moveTo(edge.left, y);
  context.lineTo(view.width - edge.right, y);
  context.stroke();
  context.setLineDash([]);
  context.textAlign = "right";
  context.textBaseline = y < 16 ? "top" : "bottom";
  const right = view.width - edge.right - 4, width = context.measureText(text).width;
  context.fillStyle = colour("paper");
  context.globalAlpha = 0.8;
  context.fillRect(right - width - 3, y < 16 ? y + 2 : y - 15, width + 6, 13);
  context.globalAlpha = 1;
  context.fillStyle = colour("limit");
  context.fillText(text, right, y + (y < 16 ? 3 : -3));
}

function draw_wave(canvas, view, call, side) {
  const height = 84, colour = palette(), context = prepare(canvas, view.width, height);
  draw_spans(context, colour, view, side, 0, height - 8);
  const y = scale_y(-127, 127, 3, height - 11, false);
  context.fillStyle = colour("line");
  context.fillRect(edge.left, y(0), view.width - edge.left - edge.right, 1);
  context.fillStyle = colour("wave");
  draw_envelope(context, view, side.wave, call.column_frames, y);
  context.fillStyle = colour("faint");
  context.textAlign = "right";
  context.textBaseline = "middle";
  context.fillText("active", edge.left - 6, height - 4);
  draw_active_frames(context, colour, view, side, call.column_frames, height - 6, 5);
}

/** The decade around a logarithmic curve and its threshold. */
function decades(envelope, threshold) {
  const high = Math.pow(10, Math.ceil(Math.log10(Math.max(envelope.highest, threshold * 2, 1e-3))));
  const low = Math.pow(10, Math.floor(Math.log10(Math.max(threshold / 5, high / 1e7, 1e-3))));
  const count = Math.round(Math.log10(high / low)), step = Math.ceil(count / 3), ticks = [];
  for (let i = 0; i <= count; i += step) ticks.push(+(low * Math.pow(10, i)).toPrecision(2));
  return {low, high, ticks, logarithmic: true};
}

function linear(envelope, threshold) {
  const high = Math.max(envelope.highest, threshold) * 1.08 || 1;
  return {low: 0, high, ticks: nice_ticks(0, high, 4), logarithmic: false};
}

function draw_measure(canvas, view, call, side, name, range_of) {
  const height = 66, colour = palette(), context = prepare(canvas, view.width, height);
  const threshold = call.activity[name], range = range_of(side[name], threshold);
  const y = scale_y(range.low, range.high, 6, height - 6, range.logarithmic);
  draw_spans(context, colour, view, side, 0, height);
  draw_ticks(context, colour, view, range.ticks, y);
  context.fillStyle = colour("score");
  draw_envelope(context, view, side[name], call.column_frames, y);
  draw_limit(context, colour, view, y(threshold), "threshold " + threshold);
}

/** A step curve through the points of a track that are in view. */
function draw_steps(context, view, track, values, y) {
  let i = Math.max(0, lower_bound(track.frames, view.begin) - 1);
  let pixel = -1, level = null;
  context.beginPath();
  for (; i < track.frames.length && track.frames[i] <= view.end; ++i) {
    if (values.votes[i] === 0) continue;
    const x = Math.max(edge.left, view.x(track.frames[i]));
    if (level !== null && x - pixel < 0.5) continue;
    if (level === null) context.moveTo(x, y(values.score[i])); else context.lineTo(x, level);
    level = y(values.score[i]);
    context.lineTo(x, level);
    pixel = x;
  }
  if (level !== null) context.lineTo(view.x(Math.min(view.end, view.frames)), level);
  context.stroke();
}

/** What the node compared at each frame: a stem for each, the highest of a pixel's. */
function draw_votes(context, view, track, y) {
  const bottom = y(0);
  let pixel = -1, top = bottom;
  const put = () => { if (pixel >= 0) { context.fillRect(pixel, top, 1, bottom - top); context.fillRect(pixel - 0.5, top - 1, 2, 2.5); } };
  for (let i = lower_bound(track.frames, view.begin); i < track.frames.length && track.frames[i] < view.end; ++i) {
    const x = Math.floor(view.x(track.frames[i]));
    if (x !== pixel) { put(); pixel = x; top = bottom; }
    top = Math.min(top, y(track.voted.score[i]));
  }
  put();
}

function draw_found(context, colour, view, track, side, bottom) {
  context.fillStyle = colour("found");
  for (const found of side.detections.filter(each => each.id === track.id)) {
    const x = view.x(found.frame);
    if (x < edge.left || x > view.width - edge.right) continue;
    context.fillRect(x - 0.75, 0, 1.5, bottom);
    context.beginPath();
    context.moveTo(x - 6, 0);
    context.lineTo(x + 6, 0);
    context.lineTo(x, 8);
    context.fill();
  }
}

function draw_track(canvas, view, side, track) {
  const height = 92, colour = palette(), context = prepare(canvas, view.width, height);
  const high = track.highest * 1.1 || 1;
  const y = scale_y(0, high, 4, height - 5, false);
  context.save();
  draw_ticks(context, colour, view, nice_ticks(0, high, 5), y);
  context.beginPath();
  context.rect(edge.left, 0, view.width - edge.left - edge.right, height);
  context.clip();
  context.fillStyle = colour("score");
  context.globalAlpha = 0.75;
  draw_votes(context, view, track, y);
  context.globalAlpha = 1;
  context.lineWidth = 1.5;
  context.strokeStyle = colour("best");
  draw_steps(context, view, track, track.best, y);
  context.strokeStyle = colour("rival");
  context.setLineDash([6, 3]);
  draw_steps(context, view, track, track.runner_up, y);
  context.setLineDash([]);
  draw_found(context, colour, view, track, side, height);
  context.restore();
  draw_limit(context, colour, view, y(track.threshold), "threshold " + +track.threshold.toPrecision(6));
}

function clock_text(seconds, step) {
  const digits = Math.max(0, Math.min(3, Math.ceil(-Math.log10(step) - 1e-9)));
  if (seconds < 60) return seconds.toFixed(digits) + " s";
  const minutes = Math.floor(seconds / 60 + 1e-9), rest = Math.max(0, seconds - 60 * minutes);
  return minutes + ":" + rest.toFixed(digits).padStart(digits === 0 ? 2 : digits + 3, "0");
}

/** Steps that a clock has. */
function time_ticks(begin_s, end_s, most) {
  const least = (end_s - begin_s) / most;
  const step = [0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14400].find(s => s >= least) ?? 28800;
  const ticks = [];
  for (let i = Math.ceil(begin_s / step); i * step <= end_s; ++i) ticks.push(i * step);
  return {ticks, step};
}

function draw_axis(canvas, view, seconds_per_frame) {
  const colour = palette(), context = prepare(canvas, view.width, 22);
  const {ticks, step} = time_ticks(view.begin * seconds_per_frame, view.end * seconds_per_frame, Math.max(3, view.width / 90));
  context.textBaseline = "bottom";
  for (const tick of ticks) {
    const x = view.x(tick / seconds_per_frame);
    context.fillStyle = colour("faint");
    context.fillRect(x, 0, 1, 5);
    context.textAlign = x > view.width - 40 ? "right" : "center";
    context.fillText(clock_text(tick, step), x, 20);
  }
}

function draw_overview(canvas, view, call) {
  const height = 34, colour = palette(), context = prepare(canvas, view.width, height);
  const whole = new View(view.frames);
  whole.width = view.width;
  const each = height / call.sides.length;
  call.sides.forEach((side, i) => {
    context.fillStyle = colour("wave");
    draw_envelope(context, whole, side.wave, call.column_frames, scale_y(-127, 127, i * each + 1, (i + 1) * each - 1, false));
    context.fillStyle = colour("found");
    for (const found of side.detections) context.fillRect(whole.x(found.frame) - 1, i * each, 2, each);
  });
  const from = whole.x(view.begin), to = whole.x(view.end);
  context.fillStyle = colour("window");
  context.fillRect(from, 0, to - from, height);
  context.fillStyle = colour("accent");
  for (const x of [from, to - 2]) context.fillRect(x, 0, 2, height);
}
