// SPDX-License-Identifier: Apache-2.0

// Lines over time, one plot above the other on one axis of time, in plain SVG. Many values that fall on
// one pixel are drawn as their mean; a null between two values is a gap.

import { clock, number, shortClock } from "./words.js";

const SVG = "http://www.w3.org/2000/svg";
const LEFT = 44;
const RIGHT = 14;
const PLOT_GAP = 36;
const BOTTOM = 22;
const STEPS_MS = [1, 2, 5, 10, 15, 30, 60, 120, 180, 360].map((minutes) => minutes * 60000);
const WIDE_TICK = 90;

function svg(name, attributes, text) {
  const made = document.createElementNS(SVG, name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  if (text !== undefined) made.textContent = text;
  return made;
}

/** Values as {x, y} of pixels, with null for each gap. */
function points(values, from, xOf, yOf) {
  const drawn = [];
  let pixel = null;
  const flush = () => {
    if (pixel) drawn.push({ x: pixel.x, y: yOf(pixel.sum / pixel.count) });
    pixel = null;
  };
  for (const { at, value } of values) {
    if (at < from) continue;
    const x = Math.round(xOf(at));
    if (value === null || value === undefined || (pixel && pixel.x !== x)) flush();
    if (value === null || value === undefined) drawn.push(null);
    else if (pixel) [pixel.sum, pixel.count] = [pixel.sum + value, pixel.count + 1];
    else pixel = { x, sum: value, count: 1 };
  }
  flush();
  return drawn;
}

/** A path; a value that stands alone between two gaps is a dot. */
function pathOf(drawn, dots) {
  let path = "";
  drawn.forEach((point, i) => {
    if (!point) return;
    const alone = !drawn[i - 1] && !drawn[i + 1];
    if (alone && dots) path += `M${point.x - 1},${point.y.toFixed(1)}h2`;
    else path += `${drawn[i - 1] ? "L" : "M"}${point.x},${point.y.toFixed(1)}`;
  });
  return path;
}

/** A scale from `low` to at least `high` in round steps. */
function roundScale(low, high, fixed) {
  if (fixed) return fixed;
  const top = Math.max(high, low + 1e-9);
  const size = 10 ** Math.floor(Math.log10(top));
  return { low, high: Math.max(1, [1, 2, 5, 10].find((step) => step * size >= top) * size) };
}

function timeAxis(chart, { from, to, width, height, xOf }) {
  const room = (width - LEFT - RIGHT) / WIDE_TICK;
  const step = STEPS_MS.find((ms) => (to - from) / ms <= room) || STEPS_MS[STEPS_MS.length - 1];
  const zone = new Date(to).getTimezoneOffset() * 60000;
  for (let at = Math.ceil((from - zone) / step) * step + zone; at <= to; at += step) {
    const x = Math.round(xOf(at));
    chart.append(svg("line", { class: "grid", x1: x, x2: x, y1: 0, y2: height - BOTTOM }));
    if (x < width - 24 && x > LEFT - 10) {
      chart.append(svg("text", { class: "tick", x, y: height - 6, "text-anchor": "middle" }, shortClock(at)));
    }
  }
}

function drawPlot(chart, plot, top, { from, width, xOf }) {
  const seen = plot.values.filter(({ at, value }) => at >= from && value !== null && value !== undefined);
  const highest = seen.reduce((most, { value }) => Math.max(most, value), 0);
  const { low, high } = roundScale(0, highest, plot.scale);
  const yOf = (value) => {
    const inside = Math.min(high, Math.max(low, value));
    return top + plot.height - ((inside - low) / (high - low)) * plot.height;
  };
  for (const value of [low, (low + high) / 2, high]) {
    const y = Math.round(yOf(value));
    chart.append(svg("line", { class: "grid", x1: LEFT, x2: width - RIGHT, y1: y, y2: y }));
    chart.append(svg("text", { class: "tick", x: LEFT - 6, y: y + 4, "text-anchor": "end" }, number(value, 1)));
  }
  chart.append(svg("text", { class: "name", x: LEFT, y: top - 12 }, plot.name));
  const path = pathOf(points(plot.values, from, xOf, yOf), true);
  if (path) chart.append(svg("path", { class: `line ${plot.class}`, d: path }));
}

/** Of marks that fall on one pixel the first is drawn: a day of a bad network has thousands. */
function drawMarks(chart, marks, { from, height, xOf }) {
  let before = null;
  for (const { at, what } of marks.filter((mark) => mark.at >= from)) {
    const x = Math.round(xOf(at));
    if (x === before) continue;
    before = x;
    const mark = svg("g", { class: "mark" });
    mark.append(svg("title", {}, `${clock(at)} ${what}`));
    mark.append(svg("line", { x1: x, x2: x, y1: 14, y2: height - BOTTOM }));
    mark.append(svg("path", { d: `M${x - 5},6h10l-5,8z` }));
    chart.append(mark);
  }
}

/**
 * Draws anew into an svg element, as wide as it is shown.
 * @param {{from: number, to: number, marks: {at, what}[], plots: {name, class, height, values: {at, value}[],
 *   scale: ?{low, high}}[]}} what  times in ms
 */
export function draw(chart, { from, to, marks, plots }) {
  const width = Math.max(200, chart.parentElement.clientWidth);
  const height = plots.reduce((sum, plot) => sum + plot.height + PLOT_GAP, 0) + BOTTOM;
  const xOf = (at) => LEFT + ((at - from) / (to - from)) * (width - LEFT - RIGHT);
  const frame = { from, to, width, height, xOf };
  chart.setAttribute("viewBox", `0 0 ${width} ${height}`);
  chart.setAttribute("height", height);
  chart.replaceChildren();
  timeAxis(chart, frame);
  let top = PLOT_GAP;
  for (const plot of plots) {
    drawPlot(chart, plot, top, frame);
    top += plot.height + PLOT_GAP;
  }
  drawMarks(chart, marks, frame);
}
