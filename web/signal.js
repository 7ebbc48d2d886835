// SPDX-License-Identifier: Apache-2.0

// Signal over time, and beneath it what the server had to do.

import { draw } from "./chart.js";
import { _, clock, element, filled, number, setText } from "./words.js";

const DBM = { low: -120, high: -40 };
const REDRAW_MS = 1000;
const MARKS_LISTED = 20;

export class SignalPanel {
  constructor(history) {
    this.history = history;
    this.chart = document.getElementById("chart");
    this.summary = document.getElementById("chart-summary");
    this.marks = document.getElementById("chart-marks");
    this.range = document.getElementById("range");
    this.range.addEventListener("change", () => this.render(Date.now(), true));
    window.addEventListener("resize", () => this.render(Date.now(), true));
  }

  render(now, atOnce = false) {
    if (!atOnce && now - (this.drawnAt || 0) < REDRAW_MS) return;
    this.drawnAt = now;
    const from = now - Number(this.range.value) * 60000;
    const { history } = this;
    draw(this.chart, {
      from, to: now, marks: history.registration,
      plots: [
        { name: _("Signal, dBm"), class: "signal", height: 160, scale: DBM, values: upTo(now, history.signal) },
        { name: _("Commands a second"), class: "commands", height: 60, values: history.commands },
        { name: _("Latency, ms"), class: "latency", height: 60, values: history.latency },
      ],
    });
    this.describe(from);
  }

  /** The same in words, for whoever does not see the lines. */
  describe(from) {
    const told = this.history.signal.filter(({ at }) => at >= from).map(({ value }) => value ?? null);
    const values = told.filter((value) => value !== null);
    const gaps = told.filter((value, i) => value === null && i > 0 && told[i - 1] !== null).length;
    const text = values.length === 0 ? _("No signal was told in this time.")
      : filled(_("Signal: lowest $0 dBm, highest $1 dBm, last $2 dBm; gaps: $3."), number(values.reduce((low, value) => Math.min(low, value))),
        number(values.reduce((high, value) => Math.max(high, value))), number(values[values.length - 1]), gaps);
    setText(this.summary, text);
    this.chart.setAttribute("aria-label", text);
    const marks = this.history.registration.filter(({ at }) => at >= from).slice(-MARKS_LISTED);
    if (this.marks.children.length === marks.length && this.shownLast === marks[marks.length - 1]) return;
    this.shownLast = marks[marks.length - 1];
    this.marks.replaceChildren(...marks.map(({ at, what }) => element("li", {}, `${clock(at)} ${what}`)));
  }
}

/** A signal stays as it was told until it is told anew. */
function upTo(now, values) {
  const last = values[values.length - 1];
  return last && last.value !== null ? [...values, { at: now, value: last.value }] : values;
}
