// SPDX-License-Identifier: Apache-2.0

// A prompt for AT commands: what was sent, what the modem said, and how long that took. PINs and
// passwords go to the modem and nowhere else: not into the history, nor onto the page.

import { cautionAbout, isSecret, masked } from "./cautions.js";
import { askPerson } from "./dialog.js";
import { run } from "./mdxctl.js";
import { _, clock, element, filled, number, shown } from "./words.js";

const MOST_SHOWN = 100;
const LONGEST = 638;
const SEARCH_S = 240;  // AT+COPS=? looks for networks for minutes
const FOR_A_TURN_S = 30;

export class CommandsPanel {
  constructor() {
    const byId = (id) => document.getElementById(id);
    [this.form, this.input, this.timeout, this.log, this.send, this.hint] =
      ["command-form", "command", "command-timeout", "command-log", "command-send", "command-hint"].map(byId);
    this.past = [];
    this.place = 0;
    this.form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.submit();
    });
    this.input.addEventListener("keydown", (event) => this.walkHistory(event));
  }

  render() {}

  walkHistory(event) {
    const step = { ArrowUp: -1, ArrowDown: 1 }[event.key];
    if (!step) return;
    event.preventDefault();
    this.place = Math.min(this.past.length, Math.max(0, this.place + step));
    this.input.value = this.past[this.place] || "";
  }

  /** What can never be a command is told before anything is sent. */
  mistakeIn(command) {
    if (!/^at/i.test(command)) return _("A command begins with AT.");
    if (command.length > LONGEST) return filled(_("A command has $0 characters at most."), LONGEST);
    return "";
  }

  async submit() {
    const command = this.input.value.trim();
    const mistake = this.mistakeIn(command);
    this.hint.textContent = mistake;
    this.input.setAttribute("aria-invalid", String(mistake !== ""));
    if (mistake || this.running) return;
    const caution = cautionAbout(command);
    if (caution && !await askPerson(filled(_("Send $0?"), masked(command)), caution, _("Send"))) {
      this.input.focus();
      return;
    }
    this.remember(command);
    this.input.value = "";
    await this.runCommand(command);
  }

  remember(command) {
    if (!isSecret(command) && this.past[this.past.length - 1] !== command) this.past.push(command);
    this.place = this.past.length;
  }

  async runCommand(command) {
    this.setRunning(true);
    const entry = this.addEntry(command);
    const timeout = /\+COPS=\?/i.test(command) ? Math.max(SEARCH_S, this.timeout.value) : this.timeout.value;
    const answer = await run(["at", "--json", "--timeout", String(timeout), "--wait", String(FOR_A_TURN_S), "-"],
      { input: command + "\n" });
    this.showAnswer(entry, answer, command);
    this.setRunning(false);
    this.input.focus();
  }

  setRunning(running) {
    this.running = running;
    this.send.disabled = running;
    this.form.setAttribute("aria-busy", String(running));
  }

  addEntry(command) {
    const entry = element("div", { class: "entry" },
      element("p", { class: "asked" }, element("time", {}, clock(Date.now())), " ", element("code", {}, shown(masked(command)))),
      element("pre", { class: "answer" }, "…"));
    this.log.append(entry);
    while (this.log.children.length > MOST_SHOWN) this.log.firstChild.remove();
    this.log.scrollTop = this.log.scrollHeight;
    return entry;
  }

  /** A modem may repeat the command in its answer. */
  showAnswer(entry, { object, reason, message }, command) {
    const text = (object?.text || "").replaceAll(command, () => masked(command));
    entry.querySelector(".answer").replaceWith(...(text ? [element("pre", { class: "answer" }, shown(text))] : []));
    const good = reason === null;
    const name = object?.result?.name || _("not sent");
    // A refusal is shown as text already; what mdxctl says of a PIN may repeat it.
    const why = object?.error || (object?.result ? "" : isSecret(command) ? _("mdxctl refused it") : message);
    const line = element("p", { class: good ? "result good" : "result bad" }, shown(name));
    if (why) line.append(` – ${shown(why)}`);
    if (object?.seconds !== undefined) line.append(element("span", { class: "took" }, filled(_("$0 ms"), number(object.seconds * 1000, 1))));
    if (object?.truncated) line.append(element("span", { class: "note bad" }, _("The answer was longer than there is room for.")));
    entry.append(line);
    this.log.scrollTop = this.log.scrollHeight;
  }
}
