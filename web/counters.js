// SPDX-License-Identifier: Apache-2.0

// The server's counters, every two seconds while the page is to be seen. They cost the modem nothing.
// Only root may see them, so they are asked for with the rights that the person has turned on in Cockpit.

import { ACCESS, run } from "./mdxctl.js";

const EVERY_MS = 2000;
const WITHOUT_RIGHT_MS = 30000;

export class Counters extends EventTarget {
  /** As `mdxctl stats --json` has them; null while they are not known. */
  stats = null;
  /** Why not: {reason, message}. */
  failure = null;
  /** Commands a second, and their mean latency in ms or null where none was run; null where not known. */
  load = null;

  start() {
    this.look();
  }

  pageWasShown() {
    if (this.waits) this.look();
  }

  async look() {
    this.waits = cockpit.hidden;
    if (this.waits) return this.lose(null);
    const { object, reason, message } = await run(["stats", "--json"], { superuser: "try" });
    if (object && !reason) this.take(object);
    else this.lose({ reason, message });
    setTimeout(() => this.look(), reason === ACCESS ? WITHOUT_RIGHT_MS : EVERY_MS);
  }

  lose(failure) {
    if (failure) this.stats = null;
    this.failure = failure;
    this.load = null;
    this.lookedAt = 0;
    this.dispatchEvent(new Event("change"));
  }

  take(stats) {
    const now = performance.now();
    const before = this.stats && this.stats.values;
    const { values } = stats;
    const same = this.lookedAt && before && values.uptime_seconds >= before.uptime_seconds;
    this.load = same ? this.loadBetween(before, values, (now - this.lookedAt) / 1000) : null;
    this.lookedAt = now;
    this.stats = stats;
    this.failure = null;
    this.dispatchEvent(new Event("change"));
  }

  loadBetween(before, now, seconds) {
    const commands = Math.max(0, now.commands - before.commands);
    const took = Math.max(0, now.command_microseconds - before.command_microseconds);
    return { rate: commands / seconds, latency: commands > 0 ? took / 1000 / commands : null };
  }
}
