// SPDX-License-Identifier: Apache-2.0

// What the device is told, newest first. Thousands are kept, and some of them shown; what comes in one
// moment is put in together.

import { _, clock, element, fileTime, filled, number, saveFile, setText, shownOnALine } from "./words.js";

const MOST_KEPT = 5000;
const MOST_SHOWN = 200;

// The first that fits.
const KINDS = [
  ["link", ({ destination }) => destination === "link"],
  ["calls", ({ kind }) => kind === "voice"],
  ["messages", ({ event }) => /_(SMS|USSD)/.test(event)],
  ["sim", ({ event }) => /_(SIM|STK)_/.test(event)],
  ["signal", ({ event }) => /_(HCSQ|SIGNAL_LEVEL)$/.test(event)],
  ["network", ({ event }) => /_(REG_CHANGE|SYS_MODE|NET_CHANGE|ROAMING|FREQ_INFO|NO_SERVICE|EONS|NETWORK_TIME)/.test(event)],
  ["data", ({ event }) => /_(V4|V6)_|FLOW/.test(event)],
  ["other", () => true],
];

const kindOf = (packet) => KINDS.find(([, fits]) => fits(packet))[0];

function valueText(value) {
  return typeof value === "string" ? `"${shownOnALine(value)}"` : String(value);
}

function fieldsText(packet) {
  const words = Object.entries(packet.fields || {}).map(([name, value]) => `${name}=${valueText(value)}`);
  if (packet.payload) words.push(`payload=${packet.payload}`);
  return words.join(" ");
}

function rowOf(report) {
  const { packet } = report;
  return element("li", {},
    element("time", { datetime: new Date(packet.at).toISOString() }, clock(packet.at)),
    element("b", {}, packet.event || filled(_("unnamed $0"), packet.type)),
    element("span", { class: "to" }, shownOnALine(packet.destination)),
    element("span", { class: "fields" },
      packet.remembered ? element("span", { class: "note" }, _("told before")) : null,
      packet.lost > 0 ? element("span", { class: "note bad" }, filled(_("$0 lost before this one"), number(packet.lost))) : null,
      element("bdi", {}, report.fields)));
}

export class ReportsPanel {
  constructor(live) {
    this.kept = [];     // oldest first
    this.fresh = [];    // came since the list was last written
    this.count = 0;
    this.lost = 0;
    const byId = (id) => document.getElementById(id);
    [this.list, this.text, this.kind, this.pause, this.status] =
      ["report-list", "report-text", "report-kind", "report-pause", "report-status"].map(byId);
    live.addEventListener("packets", ({ detail }) => this.take(detail));
    this.text.addEventListener("input", () => this.renderAll());
    this.kind.addEventListener("change", () => this.renderAll());
    this.pause.addEventListener("click", () => this.setPaused(!this.paused));
    byId("report-save").addEventListener("click", () => this.save());
    byId("report-clear").addEventListener("click", () => this.clear());
  }

  take(packets) {
    for (const packet of packets) {
      const fields = fieldsText(packet);
      const searched = `${packet.event} ${packet.destination} ${fields}`.toLowerCase();
      const report = { packet, fields, kind: kindOf(packet), searched };
      this.kept.push(report);
      this.lost += packet.lost || 0;
      this.fresh.push(report);
    }
    this.count += packets.length;
    if (this.kept.length > MOST_KEPT) this.kept.splice(0, this.kept.length - MOST_KEPT);
    if (this.fresh.length > MOST_KEPT) this.fresh.splice(0, this.fresh.length - MOST_KEPT);
  }

  fits(report) {
    const { value } = this.kind;
    return (value === "" || report.kind === value) && report.searched.includes(this.text.value.trim().toLowerCase());
  }

  setPaused(paused) {
    this.paused = paused;
    this.pause.setAttribute("aria-pressed", String(paused));
    this.renderStatus();
    if (!paused) this.render();
  }

  clear() {
    this.kept = [];
    this.fresh = [];
    this.renderAll();
  }

  save() {
    const lines = this.kept.filter((report) => this.fits(report)).map(({ packet: { at, ...packet } }) => JSON.stringify(packet));
    saveFile(`mdxgate-reports-${fileTime()}.jsonl`, "application/x-ndjson", lines.join("\n") + "\n");
  }

  render() {
    if (!this.paused && this.fresh.length > 0) {
      const rows = this.fresh.filter((report) => this.fits(report)).slice(-MOST_SHOWN).reverse().map(rowOf);
      this.fresh = [];
      this.list.prepend(...rows);
      while (this.list.children.length > MOST_SHOWN) this.list.lastChild.remove();
    }
    this.renderStatus();
  }

  /** What came during a pause waits for its end, also when another choice is shown. */
  renderAll() {
    if (!this.paused) this.fresh = [];
    const told = this.kept.slice(0, this.kept.length - this.fresh.length);
    const fitting = told.filter((report) => this.fits(report));
    this.list.replaceChildren(...fitting.slice(-MOST_SHOWN).reverse().map(rowOf));
    this.renderStatus();
  }

  renderStatus() {
    const text = filled(_("$0 shown, $1 kept, $2 came, $3 lost"), ...[this.list.children.length, this.kept.length, this.count, this.lost].map((n) => number(n)));
    setText(this.status, this.paused ? `${_("Paused.")} ${filled(_("$0 more came."), number(this.fresh.length))}` : text);
  }
}
