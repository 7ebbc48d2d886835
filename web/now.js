// SPDX-License-Identifier: Apache-2.0

// The modem as it is: one card for each thing, with its age; grey when it is old or from before the modem
// went away. Cards never appear or go, so nothing moves.

import { _, age, duration, element, filled, number, setText, shownOnALine } from "./words.js";

const OLD_S = 3600;
const OLD_SIGNAL_S = 300;
const BARS = 5;
// The lower edges of 2 to 5 bars, in dBm.
const RSSI_BARS = [-95, -85, -75, -65];
const RSRP_BARS = [-115, -105, -95, -85];

const yesOrNo = (value) => (value ? _("yes") : _("no"));
const rate = (bytes) => filled(_("$0 kB/s"), number(bytes / 1000, 1));

function levelsText(levels) {
  const names = { rscp_dbm: "RSCP", rsrp_dbm: "RSRP", rsrq_db: "RSRQ", sinr_db: "SINR", ecio_db: "Ec/Io" };
  return Object.entries(names).filter(([key]) => levels[key] !== null && levels[key] !== undefined)
    .map(([key, name]) => `${name} ${number(levels[key], 1)} ${key.endsWith("dbm") ? "dBm" : "dB"}`).join(" · ");
}

export function signalText(levels) {
  const dbm = levels.rssi_dbm ?? levels.rsrp_dbm;
  return dbm === null || dbm === undefined ? _("none") : `${number(dbm)} dBm`;
}

function barsOf(levels) {
  const rsrp = levels.rssi_dbm === null || levels.rssi_dbm === undefined;
  const dbm = rsrp ? levels.rsrp_dbm : levels.rssi_dbm;
  if (dbm === null || dbm === undefined) return 0;
  return 1 + (rsrp ? RSRP_BARS : RSSI_BARS).filter((edge) => dbm >= edge).length;
}

/** A state that is known in the person's language, any other as it was told. */
function inWords(words, state) {
  return Object.hasOwn(words, state) ? words[state] : shownOnALine(state);
}

function simText(state) {
  const words = {
    READY: _("ready"), "SIM PIN": _("asks for its PIN"), "SIM PUK": _("asks for its PUK"),
    "NOT INSERTED": _("none"),
  };
  return inWords(words, state);
}

export function registrationText(status) {
  const words = {
    "home network": _("home network"), roaming: _("roaming"), searching: _("searching"),
    denied: _("denied"), "not registered": _("not registered"), unknown: _("unknown"),
    "home network, messages only": _("home network, messages only"),
    "roaming, messages only": _("roaming, messages only"),
    "emergency calls only": _("emergency calls only"),
    "home network, calls restricted": _("home network, calls restricted"),
    "roaming, calls restricted": _("roaming, calls restricted"),
  };
  return inWords(words, status);
}

/** Rates alone tell of no connection's beginning or end. */
function dataText(known) {
  const told = ["IPv4", "IPv6"].filter((family) => known.has(family));
  if (told.length === 0) return "";
  const up = told.filter((family) => known.get(family).value);
  return up.length > 0 ? filled(_("up: $0"), up.join(", ")) : _("down");
}

function latest(known, ...names) {
  const times = names.map((name) => known.get(name)?.at).filter(Boolean);
  return times.length > 0 ? Math.max(...times) : null;
}

// What each card shows: its text, a smaller line beneath, and since when it is known.
const CARDS = {
  operator: (known) => [shownOnALine(known.get("operator")?.value || _("none")), "", latest(known, "operator")],
  registration: (known) => {
    const cell = known.get("cell")?.value;
    return [registrationText(known.get("registration")?.value),
      cell ? filled(_("cell $0, area $1"), shownOnALine(cell.cell), shownOnALine(cell.area)) : "",
      latest(known, "registration")];
  },
  technology: (known) => [shownOnALine(known.get("technology")?.value), "", latest(known, "technology")],
  signal: (known) => {
    const levels = known.get("signal")?.value;
    return levels ? [signalText(levels), levelsText(levels), latest(known, "signal")] : ["", "", null];
  },
  sim: (known) => [simText(known.get("sim")?.value), "", latest(known, "sim")],
  roaming: (known) => [yesOrNo(known.get("roaming")?.value), "", latest(known, "roaming")],
  data: (known) => {
    const flow = known.get("flow")?.value;
    return [dataText(known),
      flow ? filled(_("down $0, up $1"), rate(flow.rx_rate), rate(flow.tx_rate)) : "",
      latest(known, "IPv4", "IPv6", "flow")];
  },
  temperature: (known) => {
    const told = known.get("temperature")?.value;
    return [told ? filled(_("event $0, parameter $1"), told.event, told.parameter) : "", "",
      latest(known, "temperature")];
  },
};

export class NowPanel {
  constructor(live, questions) {
    this.live = live;
    this.cards = new Map([...document.querySelectorAll("#now [data-card]")].map((card) => [card.dataset.card, card]));
    this.bars = document.getElementById("signal-bars");
    this.button = document.getElementById("ask-again");
    this.button.addEventListener("click", () => questions.ask());
  }

  render(now) {
    const { live } = this;
    this.button.disabled = Boolean(live.asking) || !live.link?.up || Boolean(live.failure);
    this.renderModem(now);
    for (const [name, words] of Object.entries(CARDS)) {
      const [text, more, at] = words(live.known);
      this.renderCard(name, at === null ? null : { text, more, at }, now);
    }
    this.renderBars();
  }

  renderModem(now) {
    const { link, failure } = this.live;
    const gone = failure || (link && !link.up);
    const since = failure ? failure.since : link?.since;
    const text = failure ? _("not known") : !link ? "" : link.up ? _("connected") : _("gone");
    this.write("modem", text || "–", "", since ? filled(_("for $0"), duration((now - since) / 1000)) : "", false);
    this.cards.get("modem").classList.toggle("bad", Boolean(gone));
  }

  renderCard(name, card, now) {
    if (!card) return this.write(name, "–", "", _("not told"), true);
    const seconds = (now - card.at) / 1000;
    const gone = this.live.failure || !this.live.link?.up;
    const old = seconds > (name === "signal" ? OLD_SIGNAL_S : OLD_S);
    this.write(name, card.text || "–", card.more, age(seconds), gone || old);
  }

  write(name, text, more, when, grey) {
    const card = this.cards.get(name);
    setText(card.querySelector(".value"), text);
    setText(card.querySelector(".more"), more);
    setText(card.querySelector(".age"), when);
    card.classList.toggle("grey", Boolean(grey));
  }

  renderBars() {
    const levels = this.live.known.get("signal")?.value;
    const bars = levels ? barsOf(levels) : 0;
    this.bars.setAttribute("aria-label", filled(_("$0 of $1 bars"), bars, BARS));
    [...this.bars.children].forEach((bar, i) => bar.classList.toggle("on", i < bars));
  }
}
