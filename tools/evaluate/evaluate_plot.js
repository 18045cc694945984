"use strict";
const data = page_data();
const chart = document.getElementById("chart");
const note = document.getElementById("note");
const box = {left: 60, right: 920, top: 15, bottom: 410, zero: 140};
const dashes = ["", "7 4", "2 3", "9 3 2 3"];
// More than that is of no use to anybody.
const most_shown = 1000;
// Where the lines begin to differ is where something can be learnt: the worst one first.
const shares = data.settings[0].levels[data.settings[0].chosen].found;
let condition = shares.indexOf(Math.min(...shares)), setting = 0, level = 0;

// What all settings have in common is said once.
const parts = data.settings.map(s => s.name.split(", "));
const common = parts.length > 1 ? parts[0].filter(part => parts.every(p => p.includes(part))) : [];
data.settings.forEach((s, i) => {
  s.name = parts[i].filter(part => !common.includes(part)).join(", ");
  s.shown = s.levels.map((l, j) => j).filter(j => s.levels[j].false_per_hour <= most_shown);
  if (s.shown.length === 0) s.shown = [s.levels.length - 1];
});

const rates = data.settings.flatMap(s => s.shown.map(j => s.levels[j].false_per_hour)).filter(r => r > 0);
const least = Math.pow(10, Math.floor(Math.log10(Math.min(...rates, 1))));
const most = Math.pow(10, Math.ceil(Math.log10(Math.max(...rates, 10))));
const x = rate => rate <= 0 ? box.left + 25 : box.zero +
    (box.right - box.zero) * Math.log10(rate / least) / Math.log10(most / least);
const y = share => box.bottom - (box.bottom - box.top) * share;
const colour = i => `var(--c${i % 8})`;
const percent = share => (100 * share).toFixed(1) + " %";

function axes() {
  for (let share = 0; share <= 1.001; share += 0.1) {
    make(chart, "line", {class: "grid", x1: box.left, x2: box.right, y1: y(share), y2: y(share)});
    make(chart, "text", {x: box.left - 8, y: y(share) + 4, "text-anchor": "end"}, Math.round(100 * share) + " %");
  }
  make(chart, "text", {x: x(0), y: box.bottom + 18, "text-anchor": "middle"}, "none");
  for (let rate = least; rate <= most * 1.001; rate *= 10) {
    make(chart, "line", {class: "grid", x1: x(rate), x2: x(rate), y1: box.top, y2: box.bottom});
    make(chart, "text", {x: x(rate), y: box.bottom + 18, "text-anchor": "middle"}, String(+rate.toPrecision(2)));
  }
  if (data.false_per_hour > 0) make(chart, "line", {class: "limit", x1: x(data.false_per_hour), x2: x(data.false_per_hour), y1: box.top, y2: box.bottom});
  make(chart, "text", {x: (box.left + box.right) / 2, y: box.bottom + 40, "text-anchor": "middle"}, "false findings an hour");
}

function draw() {
  chart.replaceChildren();
  axes();
  data.settings.forEach((s, i) => {
    const shown = s.shown.map(j => s.levels[j]);
    const points = shown.map(l => x(l.false_per_hour).toFixed(1) + "," + y(l.found[condition]).toFixed(1));
    make(chart, "polyline", {class: "curve" + (i === setting ? "" : " off"), points: points.join(" "),
      style: `stroke:${colour(i)}`, "stroke-dasharray": dashes[Math.floor(i / 8) % 4]});
    if (i === setting) shown.forEach(l => make(chart, "circle", {
      cx: x(l.false_per_hour), cy: y(l.found[condition]), r: 2.5, style: `fill:${colour(i)}`}));
  });
  const at = data.settings[setting].levels[level];
  make(chart, "circle", {cx: x(at.false_per_hour), cy: y(at.found[condition]), r: 7, fill: "none",
    style: `stroke:${colour(setting)};stroke-width:3`});
}

function tell() {
  const s = data.settings[setting], at = s.levels[level];
  note.style.borderLeftColor = colour(setting);
  note.textContent = `${s.name}, threshold ${at.threshold}, ${data.conditions[condition]}: ` +
    `${percent(at.found[condition])} found` +
    (at.median_s[condition] > 0 ? `, after ${at.median_s[condition].toFixed(2)} s in the middle and ${at.p95_s[condition].toFixed(2)} s at 95 %` : "") +
    `; ${at.wrong[condition]} wrong. ` + (data.background_hours > 0
      ? `${at.false_findings} false finding(s) in ${data.background_hours.toFixed(2)} h of background: ${at.false_per_hour.toFixed(2)} an hour, below ${at.bound.toFixed(2)} at 95 %.`
      : "No background, so nothing is known of false findings.");
}

function show() { draw(); tell(); }

function table() {
  const element = document.getElementById("table");
  element.replaceChildren();
  const head = make(element, "tr", {});
  for (const title of ["setting", "threshold", "false an hour", ...data.conditions]) make(head, "th", {scope: "col"}, title);
  data.settings.forEach((s, i) => {
    const row = make(element, "tr", {}), at = s.levels[s.chosen];
    const name = make(row, "td", {});
    make(name, "span", {class: "key", style: `background:${colour(i)}`});
    name.append(s.name);
    make(row, "td", {}, at.threshold);
    make(row, "td", {}, data.background_hours > 0 ? at.false_per_hour.toFixed(2) : "?");
    for (const share of at.found) make(row, "td", {}, percent(share));
  });
}

function choose() {
  const set = document.getElementById("conditions");
  data.conditions.forEach((name, i) => {
    const label = make(set, "label", {});
    const input = make(label, "input", {type: "radio", name: "condition", value: i});
    input.checked = i === condition;
    input.addEventListener("change", () => { condition = i; show(); });
    label.append(" " + name);
  });
}

chart.addEventListener("pointermove", event => {
  const area = chart.getBoundingClientRect();
  const px = (event.clientX - area.left) * 960 / area.width, py = (event.clientY - area.top) * 460 / area.height;
  let best = Infinity;
  data.settings.forEach((s, i) => s.shown.forEach(j => {
    const l = s.levels[j];
    const distance = Math.hypot(x(l.false_per_hour) - px, y(l.found[condition]) - py);
    if (distance < best) { best = distance; setting = i; level = j; }
  }));
  show();
});

chart.addEventListener("keydown", event => {
  const settings = data.settings.length;
  const move = {ArrowLeft: [1, 0], ArrowRight: [-1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]}[event.key];
  if (!move) return;
  event.preventDefault();
  setting = (setting + move[1] + settings) % settings;
  const shown = data.settings[setting].shown;
  level = Math.max(shown[0], Math.min(shown[shown.length - 1], level + move[0]));
  show();
});

document.getElementById("about").textContent = data.about + (common.length > 0 ? " All with " + common.join(", ") + "." : "");
level = data.settings[0].chosen;
choose();
table();
draw();
