// SPDX-License-Identifier: Apache-2.0

// The support file: what mdxctl and the journal say, with everything personal masked. Commands and
// messages are in neither; but a trace may show a text that was refused, and a person's number looks like
// any other long one. So every long number and every quoted text is masked, and times are not.

import { run } from "./mdxctl.js";

const JOURNAL_LINES = "1000";
const MASK = "#";
const NUMBERS = /\+?\d[\d\s()\/-]{3,}\d/g;
const HEX = /\b(?=[0-9a-f]*\d)(?=[0-9a-f]*[a-f])[0-9a-f]{8,}\b/gi;
const QUOTED = /"[^"\n]*"?/g;
const KEPT_KEYS = /(_s|_us|_seconds|_microseconds|_bytes|time|version)$/;

const hidden = (text) => text.replace(/[^\s]/gu, MASK);

/** A line of a log: quoted texts, long numbers, long runs of hexadecimal digits. */
export function maskedLine(line) {
  return line.replace(QUOTED, (text) => `"${hidden(text.replace(/"/g, ""))}"`)
    .replace(HEX, hidden).replace(NUMBERS, (text) => text.replace(/\d/g, MASK));
}

// Journal lines begin with a time, the machine's name, and the program's with its number.
const JOURNAL_HEAD = /^(\d{4}-\d\d-\d\dT\S+) \S+ (\S+\[\d+\]:)(.*)$/;

export function maskedJournal(text) {
  return text.split("\n").map((line) => {
    const head = JOURNAL_HEAD.exec(line);
    return head ? `${head[1]} ${head[2]}${maskedLine(head[3])}` : maskedLine(line);
  }).join("\n");
}

/** Of an object the texts and numbers of packets; counters, times and versions stay. */
export function maskedObject(value, key = "", inFields = false) {
  if (Array.isArray(value)) return value.map((one) => maskedObject(one, key, inFields));
  if (value !== null && typeof value === "object") {
    return Object.fromEntries(Object.entries(value).map(([name, one]) => [name, maskedObject(one, name, inFields || name === "fields")]));
  }
  if (typeof value !== "string" || KEPT_KEYS.test(key)) return value;
  return inFields || key === "payload" ? hidden(value) : maskedLine(value);
}

async function section(title, words, options) {
  const { object, message } = await run(words, options);
  return `== ${title}\n${object ? JSON.stringify(maskedObject(object), null, 1) : maskedLine(message)}\n`;
}

function journal() {
  const command = ["journalctl", "--unit", "mdxgate", "--lines", JOURNAL_LINES, "--no-pager", "--output", "short-iso"];
  return new Promise((resolve) => {
    cockpit.spawn(command, { err: "message", superuser: "try" })
      .then((text) => resolve(maskedJournal(text)), (problem) => resolve(maskedLine(problem.message || String(problem))));
  });
}

export async function supportFile() {
  const root = { superuser: "try" };
  return [
    `mdxgate support file, ${new Date().toISOString()}\n`,
    await section("mdxctl status", ["status", "--json"], root),
    await section("mdxctl state", ["state", "--json"], root),
    await section("mdxctl stats", ["stats", "--json"], root),
    `== journal of mdxgate\n${await journal()}\n`,
  ].join("\n");
}
