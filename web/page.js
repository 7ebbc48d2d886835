// SPDX-License-Identifier: Apache-2.0

// Puts the page together: who knows what, which panel is shown, and when it is written anew.

import { CommandsPanel } from "./commands.js";
import { Counters } from "./counters.js";
import { HealthPanel } from "./health.js";
import { History } from "./history.js";
import { Live } from "./live.js";
import { MessagesPanel } from "./messages.js";
import { ACCESS, MISSING, NO_SERVER } from "./mdxctl.js";
import { NowPanel } from "./now.js";
import { Questions } from "./questions.js";
import { ReportsPanel } from "./reports.js";
import { SignalPanel } from "./signal.js";
import { _, filled, moment, setText, shown } from "./words.js";

const AGES_MS = 1000;

document.documentElement.lang = cockpit.language || "en";
cockpit.translate();

const live = new Live();
const counters = new Counters();
export const history = new History(live, counters);
const questions = new Questions(live, history);
const panels = {
  now: new NowPanel(live, questions),
  signal: new SignalPanel(history),
  reports: new ReportsPanel(live),
  commands: new CommandsPanel(),
  messages: new MessagesPanel(live),
  health: new HealthPanel(live, counters),
};

let shownPanel = "now";
let userName = "";
let willRender = false;

function showPanel() {
  const wanted = window.location.hash.replace(/^#\/?/, "");
  shownPanel = Object.hasOwn(panels, wanted) ? wanted : "now";
  for (const name of Object.keys(panels)) document.getElementById(name).hidden = name !== shownPanel;
  for (const link of document.querySelectorAll("nav a")) {
    if (link.hash === `#/${shownPanel}`) link.setAttribute("aria-current", "page");
    else link.removeAttribute("aria-current");
  }
  panels[shownPanel].shown?.();
  render();
}

function failureText({ reason, message }) {
  switch (reason) {
    case MISSING:
      return _("mdxctl is not installed. Install the package mdxgate on this machine.");
    case ACCESS:
      return filled(_("$0 may not use the modem: the user is not in group mdxgate. An administrator can change that with \"usermod -aG mdxgate $0\"; it counts from the next login on."),
        userName || _("This user"));
    case NO_SERVER:
      return filled(_("The server mdxgate is not running since $0 or before. Start it with \"systemctl start mdxgate\"; this page goes on by itself."),
        moment(live.failure.since));
    default:
      return shown(message);
  }
}

/** Told once when it changes, so that a screen reader says it once. */
function renderLink() {
  const { failure, link } = live;
  const banner = document.getElementById("banner");
  banner.hidden = !failure;
  setText(banner, failure ? failureText(failure) : "");
  const state = failure ? "unknown" : !link ? "wait" : link.up ? "up" : "gone";
  const words = {
    unknown: _("Modem: not known"), wait: _("Modem: looking"), gone: _("Modem gone"), up: _("Modem connected"),
  };
  const status = document.getElementById("link");
  status.className = state;
  setText(status, state === "up" || state === "gone" ? filled(_("$0 since $1"), words[state], moment(link.since)) : words[state]);
}

function render() {
  willRender = false;
  renderLink();
  panels[shownPanel].render(Date.now());
}

/** However much comes, the page is written once a frame, and not at all while it is hidden. */
function renderSoon() {
  if (willRender || cockpit.hidden) return;
  willRender = true;
  requestAnimationFrame(render);
}

live.addEventListener("change", renderSoon);
counters.addEventListener("change", renderSoon);
setInterval(renderSoon, AGES_MS);
window.addEventListener("hashchange", showPanel);
cockpit.addEventListener("visibilitychange", () => {
  if (cockpit.hidden) return;
  for (const source of [live, counters, questions]) source.pageWasShown();
  panels[shownPanel].shown?.();
  renderSoon();
});
cockpit.user().then((user) => {
  userName = user.name;
  renderSoon();
});

live.listen();
counters.start();
showPanel();
