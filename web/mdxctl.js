// SPDX-License-Identifier: Apache-2.0

// Runs mdxctl as the user who logged in, and says in words why it did not work.
//
// Commands, message texts and PINs go in through standard input: what stands on a command line can be
// read by every user of the machine.

import { _ } from "./words.js";

/** Why mdxctl could not do it: MISSING, ACCESS, NO_SERVER, or REFUSED with what it said. */
export const MISSING = "missing";
export const ACCESS = "access";
export const NO_SERVER = "no-server";
export const REFUSED = "refused";

const EXIT_NO_SERVER = 4;
const EXIT_REFUSED = 5;

function reasonOf(problem) {
  if (problem.problem === "not-found") return MISSING;
  if (problem.exit_status === EXIT_NO_SERVER) return NO_SERVER;
  const denied = /permission denied/.test(problem.message || "");
  return problem.problem === "access-denied" || (problem.exit_status === EXIT_REFUSED && denied)
    ? ACCESS : REFUSED;
}

function parsed(text) {
  try {
    return JSON.parse(text);
  } catch {
    return null;
  }
}

/**
 * Runs mdxctl to its end.
 * @param {string[]} words  its arguments
 * @param {{input?: string, superuser?: string}} options
 * @returns {Promise<{object: ?Object, text: string, reason: ?string, message: string, code: ?number}>}  reason is
 *   null where it ended well; the object that it printed may be there all the same. Never rejected.
 */
export function run(words, options = {}) {
  return new Promise((resolve) => {
    const process = cockpit.spawn(["mdxctl", ...words], { err: "message", superuser: options.superuser });
    process.then(
      (text) => resolve({ object: parsed(text), text, reason: null, message: "", code: 0 }),
      (problem, text) => resolve({
        object: parsed(text), text: text || "", reason: reasonOf(problem),
        message: messageOf(problem), code: problem.exit_status,
      }));
    process.input(options.input || "");
  });
}

/** What mdxctl said on standard error, without its name. */
function messageOf(problem) {
  if (problem.problem === "not-found") return _("mdxctl is not installed");
  return (problem.message || String(problem)).trim().replace(/^mdxctl: /gm, "");
}

/**
 * Runs mdxctl for as long as it goes on, and hands over each object that it prints.
 * @param {(objects: Object[]) => void} take  gets those that came together
 * @param {(reason: string, message: string) => void} ended
 */
export function follow(words, take, ended) {
  let rest = "";
  const process = cockpit.spawn(["mdxctl", ...words], { err: "message" });
  process.stream((data) => {
    const lines = (rest + data).split("\n");
    rest = lines.pop();
    take(lines.map(parsed).filter((object) => object !== null));
  });
  process.then(() => ended(NO_SERVER, ""), (problem) => ended(reasonOf(problem), messageOf(problem)));
}
