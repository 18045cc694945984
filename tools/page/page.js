// What all pages have in common.
"use strict";

/** The data of this page. */
function page_data() {
  return JSON.parse(document.getElementById("data").textContent);
}

/** A new child of `parent`, in its namespace; `text` stays text, whatever is in it. */
function make(parent, name, attributes, text) {
  const element = document.createElementNS(parent.namespaceURI, name);
  for (const key in attributes) element.setAttribute(key, attributes[key]);
  if (text !== undefined) element.textContent = text;
  parent.appendChild(element);
  return element;
}

/** Steps of 1, 2 or 5 times a power of ten, `most` of them or fewer, from `low` to `high`. */
function nice_ticks(low, high, most) {
  const least = (high - low) / most;
  const power = Math.pow(10, Math.floor(Math.log10(least)));
  const step = power * [1, 2, 5, 10].find(factor => factor * power >= least * 0.999999);
  const ticks = [];
  for (let i = Math.ceil(low / step); i * step <= high + step * 1e-6; ++i) ticks.push(+(i * step).toPrecision(12));
  return ticks;
}
