// SPDX-License-Identifier: Apache-2.0

// One question in front of what cannot be undone. Escape and the left button are a no.

const dialog = document.getElementById("question");
const confirm = document.getElementById("question-yes");
document.getElementById("question-no").addEventListener("click", () => dialog.close("no"));
confirm.addEventListener("click", () => dialog.close("yes"));

/** @returns {Promise<boolean>} */
export function askPerson(title, text, yes) {
  document.getElementById("question-title").textContent = title;
  document.getElementById("question-text").textContent = text;
  confirm.textContent = yes;
  dialog.returnValue = "no";
  dialog.showModal();
  return new Promise((resolve) => {
    dialog.addEventListener("close", () => resolve(dialog.returnValue === "yes"), { once: true });
  });
}
