// SPDX-License-Identifier: Apache-2.0

// The messages that the modem keeps, as conversations. They are read when the panel is opened, when the
// modem tells of a new one, and when the person asks; to read marks them as read in the modem, so what was
// unread is remembered here. Sent messages are kept by no modem unless it is told to: those that this page
// sent are shown until it is closed.

import { askPerson } from "./dialog.js";
import { run } from "./mdxctl.js";
import { _, dayAndTime, element, filled, setText, shown, shownOnALine } from "./words.js";

const COUNT_AFTER_MS = 300;
const READ_AFTER_MS = 500;
const SAMPLE_NUMBER = "+1";

const plainNumber = (text) => text.replace(/[\s().\/-]/g, "");

export class MessagesPanel {
  constructor(live) {
    this.live = live;
    this.stored = [];
    this.sent = [];
    this.unread = new Set();
    this.drafts = new Map();  // {number, text} by the number of the conversation
    this.chosen = null;
    const byId = (id) => document.getElementById(id);
    [this.list, this.thread, this.status, this.form, this.number, this.text, this.count, this.sendButton, this.title] =
      ["conversations", "thread", "messages-status", "message-form", "message-number", "message-text", "message-count",
        "message-send", "thread-title"].map(byId);
    byId("messages-load").addEventListener("click", () => this.load());
    byId("message-new").addEventListener("click", () => this.choose(null, true));
    this.text.addEventListener("input", () => this.countSoon());
    this.form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.send();
    });
    live.addEventListener("packets", ({ detail }) => {
      if (detail.some(({ event, remembered }) => event === "EVT_AT_SMS_NEW" && !remembered)) this.loadSoon();
    });
  }

  render() {}

  shown() {
    if (!this.loaded || this.stale) this.load();
  }

  loadSoon() {
    this.stale = true;
    clearTimeout(this.loadTimer);
    this.loadTimer = setTimeout(() => {
      const visible = !document.getElementById("messages").hidden && !cockpit.hidden;
      if (visible) this.load();
    }, READ_AFTER_MS);
  }

  /** @returns {Promise<boolean>}  whether they could be read */
  load() {
    this.loading ||= this.read().finally(() => {
      this.loading = null;
      if (this.stale) this.loadSoon();
    });
    return this.loading;
  }

  async read() {
    this.stale = false;
    setText(this.status, _("Reading messages …"));
    const { object, reason, message } = await run(["sms", "list", "--all", "--json"]);
    this.loaded = reason === null;
    if (!object || !object.messages) {
      setText(this.status, shownOnALine(object?.error || message));
      return false;
    }
    this.stored = object.messages;
    for (const { state, numbers } of this.stored) if (state === "unread") this.unread.add(String(numbers));
    setText(this.status, object.errors ? shownOnALine(object.errors.map(errorText).join("; ")) : "");
    this.write();
    return true;
  }

  // Conversations

  /** Of each number its messages, oldest first; the number that wrote last comes first. */
  conversations() {
    const byNumber = new Map();
    for (const message of [...this.stored, ...this.sent]) {
      const number = message.number || "";
      if (!byNumber.has(number)) byNumber.set(number, []);
      byNumber.get(number).push(message);
    }
    const timeOf = (message) => Date.parse(message.time) || 0;
    const all = [...byNumber].map(([number, messages]) => {
      messages.sort((one, other) => timeOf(one) - timeOf(other));
      return { number, messages, last: timeOf(messages[messages.length - 1]) };
    });
    return all.sort((one, other) => other.last - one.last);
  }

  /** Whoever is in one of the lists with the keyboard keeps that place. */
  write() {
    const focused = document.activeElement;
    const place = [this.list, this.thread].find((one) => one.contains(focused));
    this.writeLists();
    if (!place || place.contains(document.activeElement)) return;
    const same = [...place.querySelectorAll("button")].find((button) => button.dataset.key === focused.dataset.key);
    (same || this.title).focus({ preventScroll: true });
  }

  writeLists() {
    const all = this.conversations();
    this.list.replaceChildren(...all.map((conversation) => this.conversationRow(conversation)));
    if (all.length === 0) this.list.append(element("li", { class: "empty" }, _("The modem keeps no messages.")));
    this.writeThread(all.find(({ number }) => number === this.chosen));
  }

  conversationRow({ number, messages }) {
    const last = messages[messages.length - 1];
    const unread = messages.filter((message) => this.unread.has(String(message.numbers))).length;
    const button = element("button", { type: "button", "data-key": number, "aria-current": this.chosen === number ? "true" : null },
      element("bdi", { class: "number" }, shownOnALine(number) || _("no number")),
      element("bdi", { class: "beginning" }, shownOnALine(bodyOf(last)).slice(0, 80)));
    if (unread > 0) button.append(element("span", { class: "badge" }, filled(_("$0 new"), unread)));
    button.addEventListener("click", () => this.choose(number));
    return element("li", {}, button);
  }

  choose(number, anew = false) {
    this.keepDraft();
    this.chosen = number;
    const conversation = this.conversations().find((one) => one.number === number);
    for (const { numbers } of conversation?.messages || []) this.unread.delete(String(numbers));
    this.takeDraft();
    this.write();
    this.thread.scrollTop = this.thread.scrollHeight;
    (anew ? this.number : this.title).focus();
  }

  /** What is being written stays with its conversation, so that nobody else gets it. */
  keepDraft() {
    const text = this.text.value;
    if (text === "") this.drafts.delete(this.chosen);
    else this.drafts.set(this.chosen, { number: this.number.value, text });
  }

  takeDraft() {
    const { number, text } = this.drafts.get(this.chosen) || { number: this.chosen || "", text: "" };
    this.number.value = number;
    if (this.text.value === text) return;
    this.text.value = text;
    this.countSoon();
  }

  writeThread(conversation) {
    setText(this.title, conversation ? shownOnALine(conversation.number) || _("no number") : _("New message"));
    this.thread.replaceChildren(...(conversation?.messages || []).map((message) => this.bubble(message)));
  }

  bubble(message) {
    const outgoing = message.type === "outgoing" || message.here;
    const notes = [message.state === "unsent" ? _("not sent") : "", missingText(message), message.fate || ""].filter(Boolean);
    const when = dayAndTime(message.time);
    const line = element("p", { class: "when" }, when, ...notes.map((note) => ` · ${note}`));
    if (!message.here) {
      const button = element("button", { type: "button", class: "link", "data-key": String(message.numbers), "aria-label": filled(_("Delete the message of $0"), when) }, _("Delete"));
      button.addEventListener("click", () => this.remove(message));
      line.append(" ", button);
    }
    return element("li", { class: outgoing ? "out" : "in" }, element("p", { class: "body", dir: "auto" }, shown(bodyOf(message))), line);
  }

  /** The place of a message may hold another one by now, so it is looked at again. */
  async remove(message) {
    const text = shownOnALine(bodyOf(message)).slice(0, 200);
    if (!await askPerson(_("Delete this message?"), text, _("Delete")) || !await this.load()) return;
    if (!this.stored.some((one) => isSame(one, message))) {
      setText(this.status, _("Nothing was deleted: the modem does not have this message any more."));
      return;
    }
    const { object, reason, message: said } = await run(["sms", "delete", "--json", ...message.numbers.map(String)]);
    await this.load();
    if (reason) setText(this.status, shownOnALine(object?.error || said));
  }

  // Sending

  countSoon() {
    clearTimeout(this.countTimer);
    this.countTimer = setTimeout(() => this.countParts(), COUNT_AFTER_MS);
  }

  /** mdxctl itself tells how it would send it. */
  async countParts() {
    const text = this.text.value;
    if (text === "") return setText(this.count, "");
    const { object } = await run(["sms", "send", "--dry-run", "--json", SAMPLE_NUMBER, "-"], { input: text });
    if (text !== this.text.value) return;
    setText(this.count, object?.parts
      ? filled(_("Characters: $0, parts: $1, alphabet: $2"), [...text].length, object.parts.length, object.alphabet)
      : shownOnALine(object?.error || ""));
  }

  async send() {
    const number = plainNumber(this.number.value);
    const text = this.text.value;
    if (!/^[+*#0-9]+$/.test(number)) return this.complain(_("A number has digits, and may begin with +."), this.number);
    if (text === "") return this.complain(_("The message is empty."), this.text);
    const from = this.chosen;
    this.sendButton.disabled = true;
    setText(this.count, _("Sending …"));
    const { object, reason, message } = await run(["sms", "send", "--json", number, "-"], { input: text });
    this.sendButton.disabled = false;
    if (reason) return this.complain(filled(_("Not sent: $0"), shownOnALine(object?.error || message)), this.text);
    this.sent.push({ number, text, time: new Date().toISOString(), here: true });
    setText(this.count, _("Sent."));
    this.drafts.delete(from);
    const wentOn = this.chosen !== from || this.text.value !== text;
    if (wentOn) return this.write();
    this.text.value = "";
    this.choose(number);
  }

  complain(text, field) {
    setText(this.count, text);
    field.focus();
  }
}

const errorText = (error) => (typeof error === "string" ? error : error.error || JSON.stringify(error));

/** Its state is another once it was read. */
function isSame(one, other) {
  return JSON.stringify({ ...one, state: "" }) === JSON.stringify({ ...other, state: "" });
}

function bodyOf(message) {
  if (message.error) return filled(_("cannot be read: $0"), message.error);
  if (message.type === "report") return filled(_("delivery report: $0"), message.status_text || message.status);
  return message.text ?? message.data ?? "";
}

function missingText({ parts }) {
  return parts?.missing?.length > 0 ? filled(_("parts missing: $0"), parts.missing.join(", ")) : "";
}
