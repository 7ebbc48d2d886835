// SPDX-License-Identifier: Apache-2.0

// What should be zero and is not, how full the queues are, who listens and what they lost; and a file for
// whoever is asked for help.

import { supportFile } from "./support.js";
import { _, duration, element, fileTime, filled, number, saveFile, setText, shownOnALine } from "./words.js";
import { ACCESS, run } from "./mdxctl.js";

const SHOULD_BE_ZERO = {
  answers_too_long: () => _("answers longer than there is room for"),
  late_answers_absorbed: () => _("answers that came after their client had given up"),
  patience_ran_out: () => _("answers that never came"),
  prompts_escaped: () => _("modem was left waiting for a message"),
  lines_dropped: () => _("lines of the modem that mean nothing here"),
  channel_sends_failed: () => _("commands that the modem did not take"),
  channel_closed: () => _("times the modem went away"),
  requests_missized: () => _("requests of the wrong size"),
  requests_of_the_dead: () => _("requests of clients that died"),
  answers_dropped_dead: () => _("answers to clients that died"),
  answers_dropped_unread: () => _("answers that their client did not take"),
  answers_refused: () => _("answers that found no room"),
  nas_queue_refused: () => _("deliveries that found no room"),
  raises_failed: () => _("clients that could not be woken"),
  task_names_refused: () => _("names of others' tasks that were removed"),
  receivers_refused: () => _("receivers turned away"),
  receivers_displaced: () => _("receivers that gave way to another user's"),
  receivers_silent: () => _("connections that did not subscribe"),
  packets_lost: () => _("reports that a receiver was too slow for"),
  packets_refused: () => _("malformed messages of receivers"),
  uninstalls_refused: () => _("uninstall messages without the right"),
  console_dropped: () => _("console clients that were hung up"),
  traces_lost: () => _("traces that the log did not take"),
};

const QUEUES = {
  requests_waiting: () => _("requests"), answers_waiting: () => _("answers"), deliveries_waiting: () => _("deliveries"),
};

const cell = (text, attributes = {}) => element("td", attributes, text);

export class HealthPanel {
  constructor(live, counters) {
    this.live = live;
    this.counters = counters;
    const byId = (id) => document.getElementById(id);
    [this.note, this.verdict, this.bad, this.queues, this.receivers, this.versions, this.all, this.button, this.status] =
      ["health-note", "health-verdict", "health-bad", "health-queues", "health-receivers", "health-versions", "health-all",
        "support", "support-status"].map(byId);
    this.button.addEventListener("click", () => this.save());
    run(["--version"]).then(({ text }) => { this.version = text.trim().replace(/^mdxctl\s+/, ""); });
  }

  render() {
    const { stats, failure } = this.counters;
    setText(this.note, stats ? "" : this.whyNot(failure));
    this.note.hidden = Boolean(stats);
    document.getElementById("health-figures").hidden = !stats;
    setText(this.versions, filled(_("Server $0, mdxctl $1"), stats?.version || _("not known"), this.version || _("not known"))
      + (stats ? ` · ${filled(_("running for $0"), duration(stats.values.uptime_seconds))}` : ""));
    if (!stats || this.written === stats) return;
    this.written = stats;
    this.writeCounters(stats.values);
    this.writeReceivers(stats.receivers);
  }

  whyNot(failure) {
    if (!failure) return _("The counters are being read.");
    if (failure.reason === ACCESS) return _("Counters are for administrators: turn on administrative access above, and they appear here within half a minute.");
    return shownOnALine(failure.message);
  }

  writeCounters(values) {
    const bad = Object.entries(SHOULD_BE_ZERO).filter(([name]) => values[name] > 0);
    this.verdict.className = bad.length === 0 ? "verdict good" : "verdict bad";
    setText(this.verdict, bad.length === 0 ? _("All that should be zero is zero.")
      : filled(_("Not zero, since the server's start: $0"), bad.length));
    this.bad.querySelector("tbody").replaceChildren(...bad.map(([name, words]) => element("tr", {},
      element("th", { scope: "row" }, words(), " ", element("code", {}, name)), cell(number(values[name]), { class: "count" }))));
    this.bad.hidden = bad.length === 0;
    this.queues.replaceChildren(...Object.entries(QUEUES).map(([name, words]) => element("tr", {},
      element("th", { scope: "row" }, words()), cell(number(values[name] ?? 0), { class: "count" }))));
    this.all.replaceChildren(...Object.entries(values).map(([name, value]) => element("tr", {},
      element("th", { scope: "row", class: "code" }, name), cell(number(value), { class: "count" }))));
  }

  writeReceivers(receivers) {
    this.receivers.replaceChildren(...receivers.map(({ process, user, wants, sent, lost }) => element("tr", {},
      element("th", { scope: "row" }, String(process)), cell(shownOnALine(user)), cell(shownOnALine(wants)),
      cell(number(sent), { class: "count" }), cell(number(lost), { class: lost > 0 ? "count bad" : "count" }))));
  }

  async save() {
    this.button.disabled = true;
    setText(this.status, _("Collecting …"));
    saveFile(`mdxgate-support-${fileTime()}.txt`, "text/plain", await supportFile());
    setText(this.status, _("Saved. Numbers and texts in it are masked; look through it before you pass it on."));
    this.button.disabled = false;
  }
}
