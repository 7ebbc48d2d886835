// SPDX-License-Identifier: Apache-2.0

// What the modem does not tell by itself it is asked: when the page is opened, when the modem came back,
// and when it tells that something changed; never by the clock, and never for a hidden page.

import { run } from "./mdxctl.js";
import { registrationText } from "./now.js";
import { shownOnALine } from "./words.js";

const BETWEEN_QUESTIONS_MS = 10000;
const FOR_MORE_CHANGES_MS = 500;
const DOMAINS = ["evolved", "five_g", "packet_switched", "circuit_switched"];

/** The registration that says most: one that is registered, else the first that was told. */
function bestOf(registration) {
  const told = DOMAINS.map((name) => registration[name]).filter(Boolean);
  return told.find((domain) => domain.registered) || told[0] || null;
}

export class Questions {
  constructor(live, history) {
    this.live = live;
    this.history = history;
    this.mode = null;
    live.addEventListener("packets", ({ detail }) => detail.forEach((packet) => this.take(packet)));
  }

  take(packet) {
    const cameUp = packet.event === "MDX_LINK_UP";
    if (cameUp || this.tellsChange(packet)) this.askSoon();
  }

  /** Whether operator, registration or SIM may be others now. A mode that is told again is no change. */
  tellsChange({ event, fields, remembered }) {
    if (event === "EVT_AT_SYS_MODE") {
      const before = this.mode;
      this.mode = JSON.stringify(fields);
      return before !== null && before !== this.mode;
    }
    if (remembered) return false;
    if (event === "DIALUP_MSG_NET_CHANGE") return Object.keys(fields).length === 0;
    return /^EVT_AT_(REG_CHANGE|NO_SERVICE|EONS|SIM_)/.test(event);
  }

  /** Once for all that is told within ten seconds. */
  askSoon() {
    if (this.timer) return;
    const wait = (this.asked || 0) + BETWEEN_QUESTIONS_MS - Date.now();
    this.timer = setTimeout(() => this.ask(), Math.max(FOR_MORE_CHANGES_MS, wait));
  }

  pageWasShown() {
    if (this.whenShown) this.ask();
  }

  async ask() {
    clearTimeout(this.timer);
    this.timer = null;
    this.whenShown = cockpit.hidden;
    if (this.whenShown || this.live.asking) return;
    this.live.asking = true;
    this.live.changed();
    this.asked = Date.now();
    await this.askNetwork();
    await this.askSim();
    await this.askSignal();
    this.live.asking = false;
    this.live.changed();
  }

  async askNetwork() {
    const { object, reason } = await run(["network", "--json"]);
    if (reason || !object) return;
    const domain = bestOf(object.registration);
    this.live.learn("operator", object.operator);
    if (object.technology) this.live.learn("technology", object.technology);
    if (!domain) return;
    this.live.learn("registration", domain.status);
    this.live.learn("registered", domain.registered);
    this.live.learn("cell", domain.cell ? { area: domain.area, cell: domain.cell } : null);
    this.live.learn("roaming", domain.roaming);
    const status = registrationText(domain.status);
    this.history.addRegistration([shownOnALine(object.operator || ""), status].filter(Boolean).join(", "));
  }

  async askSim() {
    const { object } = await run(["sim", "--json"]);
    if (object && object.state) this.live.learn("sim", object.state);
  }

  /** A modem that reports its signal has told it; others are asked this once. */
  async askSignal() {
    const { object, reason } = await run(["signal", "--json"]);
    if (reason || !object) return;
    this.live.learn("signal", object);
    this.history.addSignal(object, Date.now());
  }
}
