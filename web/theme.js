// SPDX-License-Identifier: Apache-2.0

// Light or dark, as the person chose in Cockpit's menu, or as the system has it. A plain script, so that
// it is done before anything is painted.
(function () {
  "use strict";
  const system = window.matchMedia("(prefers-color-scheme: dark)");

  function apply(chosen) {
    const style = chosen || localStorage.getItem("shell:style") || "auto";
    const dark = style === "dark" || (style === "auto" && system.matches);
    document.documentElement.classList.toggle("dark", dark);
  }

  window.addEventListener("storage", (event) => event.key === "shell:style" && apply());
  window.addEventListener("cockpit-style", (event) => apply(event.detail.style));
  system.addEventListener("change", () => apply());
  apply();
})();
