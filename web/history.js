// SPDX-License-Identifier: Apache-2.0

// What was, for a day: signal, registration, and the server's load. It lives in the page alone and begins
// when the page is opened. A value of null ends a line: from then on nothing is known.

import { NO_SERVER } from "./mdxctl.js";

const KEPT_MS = 24 * 3600 * 1000;
const MOST_KEPT = 90000;  // two a second would be far more than a modem tells

function keep(list, entry) {
  list.push(entry);
  if (list[0].at < entry.at - KEPT_MS || list.length > MOST_KEPT) list.shift();
}

const last = (list) => list[list.length - 1];

export class History {
  signal = [];        // {at, value}: dBm
  commands = [];      // {at, value}: a second
  latency = [];       // {at, value}: milliseconds
  registration = [];  // {at, what}

  constructor(live, counters) {
    live.addEventListener("packets", ({ detail }) => detail.forEach((packet) => this.take(packet)));
    live.addEventListener("change", () => {
      if (live.failure && live.failure.reason === NO_SERVER) this.end(this.signal, live.failure.since);
    });
    counters.addEventListener("change", () => this.takeCounters(counters));
  }

  take(packet) {
    if (packet.event === "MDX_LINK_GONE") this.end(this.signal, packet.at);
    if (packet.signal) this.addSignal(packet.signal, packet.at);
  }

  addSignal(levels, at) {
    if (this.signal.length > 0 && last(this.signal).at >= at) return;
    keep(this.signal, { at, value: levels.rssi_dbm ?? levels.rsrp_dbm });
  }

  addRegistration(what) {
    if (this.registration.length > 0 && last(this.registration).what === what) return;
    keep(this.registration, { at: Date.now(), what });
  }

  takeCounters(counters) {
    const at = Date.now();
    if (!counters.load) {
      this.end(this.commands, at);
      this.end(this.latency, at);
      return;
    }
    keep(this.commands, { at, value: counters.load.rate });
    keep(this.latency, { at, value: counters.load.latency });
  }

  end(list, at) {
    if (list.length > 0 && last(list).value !== null) keep(list, { at, value: null });
  }
}
