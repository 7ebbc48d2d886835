// SPDX-License-Identifier: Apache-2.0

// What people read: words in their language, times in their zone, and texts of others.
//
// What a modem, a network or the sender of a message says becomes text nodes and nothing else, and what
// would be invisible or turn the line around is written out: such a text looks like what it is.

export const _ = cockpit.gettext;
export const filled = cockpit.format;

const language = (cockpit.language || "en").replace("_", "-");
const MINUTE = 60;
const HOUR = 60 * MINUTE;
const DAY = 24 * HOUR;
const UNITS = [["day", DAY], ["hour", HOUR], ["minute", MINUTE], ["second", 1]];

// Control characters, marks of direction, and characters without width. Joiners inside emoji stay.
const UNSEEN = /[\u0000-\u0008\u000b-\u001f\u007f-\u009f\u00ad\u061c\u180e\u200b\u200e\u200f\u2028-\u202e\u2060-\u206f\u115f\u1160\u3164\uffa0\ufeff\ufff9-\ufffb\u{e0000}-\u{e007f}]/gu;

/** Text of the modem, the network or a sender, with everything in it to be seen; line ends and tabs stay. */
export function shown(text) {
  return String(text).replace(/\r\n?/g, "\n").replace(UNSEEN, (c) => {
    const code = c.codePointAt(0);
    if (code < 0x20) return String.fromCodePoint(0x2400 + code);
    return "⟨U+" + code.toString(16).toUpperCase().padStart(4, "0") + "⟩";
  });
}

/** The same on one line. */
export function shownOnALine(text) {
  return shown(text).replace(/[\n\t]/g, " ");
}

export function number(value, digits = 0) {
  return new Intl.NumberFormat(language, { maximumFractionDigits: digits }).format(value);
}

const clockFormat = new Intl.DateTimeFormat(language, { timeStyle: "medium" });
const shortClockFormat = new Intl.DateTimeFormat(language, { timeStyle: "short" });
const dayFormat = new Intl.DateTimeFormat(language, { dateStyle: "medium", timeStyle: "short" });

export const clock = (ms) => clockFormat.format(ms);
export const shortClock = (ms) => shortClockFormat.format(ms);

/** The time of today, or day and time. */
export function moment(ms) {
  const today = new Date(ms).toDateString() === new Date().toDateString();
  return (today ? shortClockFormat : dayFormat).format(ms);
}

/** Day and time, or what was told where that is no time. */
export function dayAndTime(text) {
  const ms = Date.parse(text);
  return Number.isNaN(ms) ? shownOnALine(text || "") : dayFormat.format(ms);
}

/** The largest unit that fits, such as [3, "minute"]. */
function inUnits(seconds) {
  const whole = Math.max(0, Math.floor(seconds));
  const [unit, size] = UNITS.find(([, size]) => whole >= size) || UNITS[UNITS.length - 1];
  return [Math.floor(whole / size), unit];
}

const ageFormat = new Intl.RelativeTimeFormat(language, { style: "short" });

/** "3 min. ago" */
export function age(seconds) {
  const [count, unit] = inUnits(seconds);
  return ageFormat.format(-count, unit);
}

/** "3 min" */
export function duration(seconds) {
  const [count, unit] = inUnits(seconds);
  return new Intl.NumberFormat(language, { style: "unit", unit, unitDisplay: "short" }).format(count);
}

/** element("p", {class: "x"}, "text", child): texts are texts, never markup. */
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (value === true) made.setAttribute(key, "");
    else if (value !== false && value !== null) made.setAttribute(key, value);
  }
  made.append(...children.filter((child) => child !== null));
  return made;
}

/** Writes only what changed, so that nothing is laid out or read aloud again for nothing. */
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

/** Gives a file to the browser's downloads. */
export function saveFile(name, type, text) {
  const link = element("a", { download: name });
  link.href = URL.createObjectURL(new Blob([text], { type }));
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

/** "2026-11-23-145012", for names of files. */
export function fileTime(now = new Date()) {
  const local = new Date(now - now.getTimezoneOffset() * 60000);
  return local.toISOString().slice(0, 19).replace("T", "-").replaceAll(":", "");
}
