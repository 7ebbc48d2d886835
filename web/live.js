// SPDX-License-Identifier: Apache-2.0

// What the modem told by itself, through `mdxctl watch`: each thing with the time since when it is known,
// which may be before the modem went away. Whoever shows some of it listens to "change"; "packets" has
// each packet as mdxctl prints it.

import { NO_SERVER, follow } from "./mdxctl.js";

const LOOK_FOR_SERVER_MS = 2000;
const LOOK_FOR_ACCESS_MS = 15000;

const CONNECTIONS = {
  DIALUP_MSG_V4_UP: ["IPv4", true], DIALUP_MSG_V4_DOWN: ["IPv4", false],
  DIALUP_MSG_V6_UP: ["IPv6", true], DIALUP_MSG_V6_DOWN: ["IPv6", false],
};

export class Live extends EventTarget {
  /** Why nothing is heard: {reason, message, since}; null while the server is there. */
  failure = null;
  /** {up, since}; null while nobody has told. */
  link = null;
  /** What is known, by name: {value, at}. */
  known = new Map();

  /** Listens for good. It only waits, so a hidden page goes on with it and has no gaps. */
  listen() {
    follow(["watch", "--json", "--last"], (packets) => this.take(packets), (reason, message) => {
      this.fail(reason, message);
      setTimeout(() => this.listenWhenShown(), reason === NO_SERVER ? LOOK_FOR_SERVER_MS : LOOK_FOR_ACCESS_MS);
    });
  }

  listenWhenShown() {
    this.waits = cockpit.hidden;
    if (!this.waits) this.listen();
  }

  pageWasShown() {
    if (this.waits) this.listenWhenShown();
  }

  learn(name, value, at = Date.now()) {
    this.known.set(name, { value, at });
  }

  changed() {
    this.dispatchEvent(new Event("change"));
  }

  fail(reason, message) {
    this.failure = { reason, message, since: this.failure ? this.failure.since : Date.now() };
    this.changed();
  }

  take(packets) {
    this.failure = null;
    for (const packet of packets) {
      packet.at = Date.now() - 1000 * (packet.age_s || 0);
      this.takeState(packet);
    }
    this.dispatchEvent(new CustomEvent("packets", { detail: packets }));
    this.changed();
  }

  takeState({ event, destination, fields, signal, at }) {
    if (destination === "link") {
      this.link = { up: event === "MDX_LINK_UP", since: at };
    } else if (signal) {
      this.learn("signal", signal, at);
      if (signal.technology) this.learn("technology", signal.technology, at);
    } else if (event in CONNECTIONS) {
      const [family, up] = CONNECTIONS[event];
      this.learn(family, up, at);
    } else if (event === "EVT_AT_FLOW_REPORT" || event === "CMS_MSG_FLOW_REPORT") {
      this.learn("flow", fields, at);
    } else if (event === "EVT_AT_MACHINE_TEMP") {
      this.learn("temperature", fields, at);
    } else if (event === "EVT_AT_ROAMING_STATUS_0" || event === "EVT_AT_ROAMING_STATUS_1") {
      this.learn("roaming", event.endsWith("1"), at);
    }
  }
}
