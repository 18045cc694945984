// Builds the page, and answers mouse and keys.
"use strict";

const by_id = id => document.getElementById(id);
const measures = [
  {name: "amplitude", title: "Amplitude", unit: "mean |sample| of 32,768", range: decades},
  {name: "deviation", title: "Spectral deviation", unit: "of the frame's magnitudes", range: decades},
  {name: "weighted_power", title: "Weighted power", unit: "log₁₀ power × (1 − entropy)", range: linear},
];
const most_rows = 4;  // of names above the wave; what has no room is marked without its name
const missed_at_first = 3;  // samples that were not found and are shown all the same

let call, view, cursor = null;
const panels = [];  // {draw(), tell(frame)} of what is on the page
let drawing = false;

const seconds = frame => frame * call.seconds_per_frame;
const time_text = frame => seconds(frame).toFixed(3) + " s";
const digits = value => String(+value.toPrecision(5));

// ---- values at the cursor ----

function measure_text(side, name, frame) {
  if (frame >= side.frames) return "no audio";
  const at = Math.floor(frame / call.column_frames);
  const [low, high] = [side[name].levels[0].low[at], side[name].levels[0].high[at]];
  const threshold = call.activity[name];
  const reached = high >= threshold ? "≥" : "<";
  return (low === high ? digits(high) : `${digits(low)} to ${digits(high)}`) + ` ${reached} ${threshold}`;
}

function wave_text(side, frame) {
  if (frame >= side.frames) return "no audio";
  const at = Math.floor(frame / call.column_frames);
  const next = lower_bound(side.spans, frame + 1);  // begins and ends take turns
  return `peak ${Math.round(Math.max(Math.abs(side.wave.levels[0].low[at]), Math.abs(side.wave.levels[0].high[at])) * side.peak / 127)}, ` +
    (side.active[at] ? "active" : "silent") + (next % 2 === 1 ? ", in a segment" : "");
}

const shift_text = (shifts, i) => shifts.votes[i] === 0 ? "none" :
  `${digits(shifts.score[i])} (${shifts.votes[i]} ${shifts.votes[i] === 1 ? "vote" : "votes"}, offset ${time_text(shifts.shift[i])})`;

/** The track's point at this frame, or the newest before it. */
function point_at(track, frame) { return lower_bound(track.frames, frame + 1) - 1; }

function track_texts(track, frame) {
  const i = point_at(track, frame);
  if (i < 0) return ["no votes yet"];
  const when = track.frames[i] === frame ? "" : `at ${time_text(track.frames[i])}: `;
  return [`${when}score ${shift_text(track.voted, i)}`, `best ${shift_text(track.best, i)}`, `runner-up ${shift_text(track.runner_up, i)}`];
}

// ---- panels ----

/** `texts(frame)`: what is said of it. Their place is there before them, so that nothing moves. */
function make_panel(parent, title, unit, label, draw, texts) {
  const panel = make(parent, "div", {class: "panel"});
  const head = make(panel, "div", {class: "head"});
  make(head, "b", {}, title);
  make(head, "span", {class: "unit"}, unit);
  const value = make(head, "output", {"data-value": label, "aria-live": "off"});
  const canvas = make(panel, "canvas", {role: "img", "aria-label": label});
  const tell = frame => { value.replaceChildren(); for (const text of texts(frame)) make(value, "span", {}, text + " "); };
  const entry = {panel, head, value, draw: () => draw(canvas), tell};
  panels.push(entry);
  return entry;
}

/** Findings as what can be pressed, above the wave; each in the first row that has room for its name. */
function make_lane(parent, side) {
  const lane = make(parent, "div", {class: "lane"});
  const marks = side.detections.map(found => ({from: found.shift + found.start, to: found.shift + found.end, name: found.name, kind: "",
    frame: found.frame, title: `${found.name}: found at ${time_text(found.frame)}, score ${digits(found.score)}`}));
  if (side.first_activity !== null) {
    marks.push({from: side.first_activity, to: side.first_activity, name: "first activity", kind: " is-activity", frame: side.first_activity,
      title: `first activity at ${time_text(side.first_activity)}`});
  }
  marks.sort((a, b) => a.from - b.from);
  for (const mark of marks) {
    mark.button = make(lane, "button", {type: "button", class: "mark" + mark.kind, title: mark.title, "aria-label": mark.title, "data-from": mark.from, "data-to": mark.to});
    make(mark.button, "span", {}, mark.name);
    mark.button.addEventListener("click", () => look_at(mark.frame));
  }
  panels.push({draw: () => place_marks(lane, marks), tell: () => {}});
}

function place_marks(lane, marks) {
  const rows = [];
  for (const mark of marks) {
    const from = Math.max(view.x(mark.from), edge.left), to = Math.min(view.x(mark.to), view.width - edge.right);
    const shown = view.x(mark.to) >= edge.left && view.x(mark.from) <= view.width - edge.right;
    mark.button.hidden = !shown;
    if (!shown) continue;
    const name_width = 7 * mark.name.length + 14;
    const left = from + name_width > view.width && from - name_width > 0;
    const begin = left ? from - name_width : from, end = left ? to : Math.max(to, from + name_width);
    let row = rows.findIndex(ends => ends <= begin);
    const room = row >= 0 || rows.length < most_rows;
    if (row < 0) row = room ? rows.length : most_rows - 1;
    rows[row] = Math.max(rows[row] ?? 0, end);
    mark.button.classList.toggle("bare", !room);
    mark.button.classList.toggle("left", left);
    Object.assign(mark.button.style, {left: from + "px", width: Math.max(5, to - from) + "px", top: row * 24 + "px"});
  }
  lane.style.height = Math.max(1, rows.length) * 24 + "px";
}

function track_state(side, track) {
  const found = side.detections.filter(each => each.id === track.id);
  if (found.length > 0) return {text: "✓ found at " + found.map(each => time_text(each.frame)).join(", "), found: true};
  if (track.nearest === null) return {text: "no votes", found: false};
  return {text: `✗ missed by ${+(-track.nearest).toPrecision(3)}`, found: false};
}

function make_track_panel(parent, side, track, shown) {
  const state = track_state(side, track);
  const entry = make_panel(parent, track.name, "score", `Score of ${track.name}, ${side.name}`,
    canvas => draw_track(canvas, view, side, track), frame => track_texts(track, frame));
  make(entry.head, "span", {class: "state" + (state.found ? " is-found" : "")}, state.text);
  if (track.points > track.frames.length) make(entry.head, "span", {class: "unit"}, `${track.frames.length} of ${track.points} points`);
  entry.value.classList.add("scores");
  entry.head.after(entry.value);
  entry.panel.hidden = !shown;
  return entry;
}

const legend_parts = [
  ["score", "what the node compares with the threshold", "M3 12V3M8 12V7M13 12V1M18 12V6M23 12V4", ""],
  ["best", "best offset so far", "M0 6H26", ""],
  ["rival", "runner-up, more than 8 frames from it", "M0 6H26", "6 3"],
  ["limit", "threshold", "M0 6H26", "4 4"],
];

function make_legend(parent) {
  const legend = make(parent, "div", {class: "legend"});
  for (const [colour, text, path, dash] of legend_parts) {
    const item = make(legend, "span", {});
    item.innerHTML = `<svg viewBox="0 0 26 12" aria-hidden="true"><path d="${path}" fill="none" stroke="var(--${colour})" stroke-width="2" stroke-dasharray="${dash}"/></svg>`;
    item.append(text);
  }
  const found = make(legend, "span", {});
  found.innerHTML = '<svg viewBox="0 0 26 12" aria-hidden="true"><path d="M6 0H18L12 9Z" fill="var(--found)"/></svg>';
  found.append("found");
}

function make_tracks(parent, side) {
  if (side.tracks.length === 0) return;
  const details = make(parent, "details", {});
  const summary = make(details, "summary", {});
  const choices = make(details, "div", {class: "choices"});
  make_legend(parent);
  const entries = [];
  let missed = 0;
  const count = () => {
    const shown = entries.filter(entry => !entry.panel.hidden).length;
    summary.textContent = `Samples on this side: ${shown} of ${side.tracks.length} shown, the nearest to its threshold first`;
  };
  for (const track of side.tracks) {
    const shown = track_state(side, track).found || missed++ < missed_at_first;
    const entry = make_track_panel(parent, side, track, shown);
    entries.push(entry);
    const label = make(choices, "label", {});
    const box = make(label, "input", {type: "checkbox"});
    box.checked = shown;
    box.addEventListener("change", () => { entry.panel.hidden = !box.checked; count(); redraw(); });
    label.append(" " + track.name);
  }
  count();
}

function make_side_panels(parent, side) {
  const title = side.name[0].toUpperCase() + side.name.slice(1);
  make(parent, "h3", {}, title);
  make_lane(parent, side);
  const loudness = side.peak > 0 ? `peak ${(20 * Math.log10(side.peak / 32768)).toFixed(1)} dBFS` : "silence";
  make_panel(parent, "Waveform", `${loudness}; shaded: segments of activity`, `Waveform, ${side.name}`,
    canvas => draw_wave(canvas, view, call, side), frame => [wave_text(side, frame)]);
  for (const {name, title, unit, range} of measures) {
    make_panel(parent, title, unit, `${title}, ${side.name}`, canvas => draw_measure(canvas, view, call, side, name, range),
      frame => [measure_text(side, name, frame)]);
  }
  make_tracks(parent, side);
}

function make_found_table() {
  const parent = by_id("found");
  if (call.marks.length === 0) {
    make(parent, "p", {}, "No sample was found. The curves below show which came nearest, and how near.");
    return;
  }
  const table = make(make(parent, "div", {class: "scroll", tabindex: 0, role: "region", "aria-labelledby": "found-title"}), "table", {});
  const head = make(table, "tr", {});
  for (const name of ["found at", "side", "sample", "score", "begins at", "heard"]) make(head, "th", {scope: "col"}, name);
  for (const found of call.marks) {
    const row = make(table, "tr", {});
    const button = make(make(row, "td", {}), "button", {type: "button", "aria-label": `Show ${found.name} at ${time_text(found.frame)}`}, time_text(found.frame));
    button.addEventListener("click", () => { look_at(found.frame); go_to_charts(); });
    for (const text of [found.side.name, found.name, digits(found.score), time_text(found.shift), time_text(found.end - found.start)]) make(row, "td", {}, text);
  }
}

// ---- what is shown ----

function place_cursor() {
  const line = by_id("cursor");
  const x = cursor === null ? -1 : view.x(cursor + 0.5);
  line.hidden = x < edge.left || x > view.width - edge.right;
  line.style.left = x + "px";
}

function show_window() {
  const at = cursor === null ? "" : `at ${time_text(cursor)}, frame ${cursor} · `;
  by_id("shown").textContent = `${at}shown ${seconds(view.begin).toFixed(2)} to ${seconds(view.end).toFixed(2)} s`;
}

/** Draws everything as it is to be now. */
function draw() {
  drawing = false;
  view.width = by_id("charts").clientWidth;
  draw_axis(by_id("axis"), view, call.seconds_per_frame);
  draw_overview(by_id("overview"), view, call);
  for (const entry of panels) if (!entry.panel?.hidden) entry.draw();
  place_cursor();
  show_window();
  const whole = view.span >= view.frames;
  for (const name of ["out", "all", "earlier", "later"]) document.querySelector(`[data-do=${name}]`).disabled = whole;
  for (const name of ["previous", "next"]) document.querySelector(`[data-do=${name}]`).disabled = call.marks.length === 0;
  document.querySelector("[data-do=in]").disabled = view.span <= Math.min(View.least_frames, view.frames);
}

function redraw() {
  if (!drawing) requestAnimationFrame(draw);
  drawing = true;
}

/** Puts the cursor there. */
function point_to(frame) {
  cursor = Math.min(call.frames - 1, Math.max(0, Math.floor(frame)));
  for (const entry of panels) entry.tell(cursor);
  place_cursor();
  show_window();
}

/** For those who do not see the curves. */
function say() {
  by_id("told").textContent = `${time_text(cursor)}: ` + call.sides.map(side =>
    `${side.name} ${wave_text(side, cursor)}, ` + measures.map(m => `${m.title} ${measure_text(side, m.name, cursor)}`).join(", ")).join("; ");
}

function look_at(frame) {
  const span = Math.min(view.span, 10 / call.seconds_per_frame);
  view.show(frame - span / 2, frame + span / 2);
  point_to(frame);
  redraw();
}

/** The charts are on the screen, and the keys are theirs. */
function go_to_charts() {
  by_id("call-title").scrollIntoView();
  by_id("charts").focus({preventScroll: true});
}

function look_at_next(direction) {
  const from = cursor ?? (view.begin + view.end) / 2;
  const next = direction > 0 ? call.marks.find(mark => mark.frame > from) : call.marks.findLast(mark => mark.frame < from);
  if (next) look_at(next.frame);
}

const zoom_centre = () => cursor !== null && cursor >= view.begin && cursor <= view.end ? cursor : (view.begin + view.end) / 2;

const actions = {
  in: () => view.zoom(0.5, zoom_centre()),
  out: () => view.zoom(2, zoom_centre()),
  all: () => view.show(0, call.frames),
  earlier: () => view.move(-view.span * 0.8),
  later: () => view.move(view.span * 0.8),
  next: () => look_at_next(1),
  previous: () => look_at_next(-1),
};

const action_of_key = {"+": "in", "=": "in", "-": "out", "0": "all", PageUp: "earlier", PageDown: "later", n: "next", p: "previous"};

function move_cursor(steps) {
  const step = Math.max(1, Math.round(view.frames_per_pixel * 4));
  point_to((cursor ?? Math.floor((view.begin + view.end) / 2)) + steps * step);
  if (cursor < view.begin) view.move(cursor - view.begin);
  if (cursor >= view.end) view.move(cursor + 1 - view.end);
  redraw();
  say();
}

function on_key(event) {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  const move = {ArrowLeft: -1, ArrowRight: 1}[event.key];
  const jump = {Home: 0, End: call.frames - 1}[event.key];
  const action = action_of_key[event.key];
  if (move === undefined && jump === undefined && !action) return;
  event.preventDefault();
  if (move) move_cursor(event.shiftKey ? 10 * move : move);
  if (jump !== undefined) { point_to(jump); move_cursor(0); }
  if (action) { actions[action](); redraw(); if (cursor !== null) say(); }
}

// ---- mouse ----

const frame_under = event => view.frame(event.clientX - by_id("charts").getBoundingClientRect().left);

function on_wheel(event) {
  if (!event.ctrlKey && !event.shiftKey) return;
  event.preventDefault();
  const turned = event.deltaY || event.deltaX;
  if (event.ctrlKey) view.zoom(Math.exp(Math.max(-1, Math.min(1, turned / 200))), frame_under(event));
  else view.move(turned * view.frames_per_pixel);
  redraw();
}

/** Dragging marks a part, and letting go shows it. */
function watch_dragging(charts) {
  const selection = by_id("selection");
  let from = null;
  const pixels = event => [from, event.clientX - charts.getBoundingClientRect().left].sort((a, b) => a - b);
  charts.addEventListener("pointerdown", event => {
    if (event.button === 0 && event.target.tagName === "CANVAS") from = event.clientX - charts.getBoundingClientRect().left;
  });
  charts.addEventListener("pointermove", event => {
    if (event.target.tagName !== "CANVAS" && from === null) return;
    point_to(frame_under(event));
    if (from === null) return;
    const [left, right] = pixels(event);
    selection.hidden = right - left < 4;
    Object.assign(selection.style, {left: left + "px", width: right - left + "px"});
  });
  window.addEventListener("pointerup", event => {
    if (from === null) return;
    const [left, right] = pixels(event);
    if (!selection.hidden) view.show(view.frame(left), view.frame(right));
    from = null;
    selection.hidden = true;
    redraw();
  });
  window.addEventListener("pointercancel", () => { from = null; selection.hidden = true; });
}

function watch_overview(overview) {
  const go = event => {
    const share = (event.clientX - overview.getBoundingClientRect().left - edge.left) / (view.width - edge.left - edge.right);
    view.move(share * call.frames - (view.begin + view.end) / 2);
    redraw();
  };
  overview.addEventListener("pointerdown", event => { overview.setPointerCapture(event.pointerId); go(event); });
  overview.addEventListener("pointermove", event => { if (event.buttons === 1) go(event); });
}

function watch() {
  const charts = by_id("charts");
  for (const button of document.querySelectorAll("[data-do]")) {
    button.addEventListener("click", () => { actions[button.dataset.do](); redraw(); });
  }
  charts.addEventListener("keydown", event => { if (!event.target.closest("details")) on_key(event); });
  charts.addEventListener("wheel", on_wheel, {passive: false});
  charts.addEventListener("dblclick", event => { if (event.target.tagName === "CANVAS") { actions.all(); redraw(); } });
  watch_dragging(charts);
  watch_overview(by_id("overview"));
  window.addEventListener("resize", redraw);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redraw);
}

function say_what_it_is() {
  document.title = `${call.name} · corvanth analyse`;
  by_id("name").textContent = call.name;
  const parts = [`${time_text(call.frames)} of ${call.sides.map(side => side.name).join(" and ")}`, `rule ${call.rule}`, `configuration version ${call.version}`,
    `drift ${call.drift_frames} frame(s)`, `session ${call.uuid}`];
  if (call.column_frames > 1) parts.push(`long call: lowest and highest of ${call.column_frames} frames each`);
  by_id("about").textContent = parts.join(" · ");
}

async function start() {
  if (!("DecompressionStream" in window)) {
    by_id("about").textContent = "This browser cannot unpack the data of the page: it takes one from the middle of 2023 or newer.";
    return;
  }
  call = await make_call(page_data());
  view = new View(call.frames);
  say_what_it_is();
  make_found_table();
  for (const side of call.sides) make_side_panels(by_id("charts"), side);
  watch();
  draw();
  document.body.dataset.ready = "yes";  // for who drives the page
}

start();
