// SPDX-License-Identifier: Apache-2.0

// Which commands a person is asked about first, and which hold a PIN or a password.

import { _ } from "./words.js";

// As in mdxctl's shell, which does not keep these either; a test compares the two.
const SECRETS = [
  "+CPIN=", "+CPIN2=", "+CPWD=", "+CLCK=", "+CGAUTH=", "+QICSGP=", "+QSSLCFG=", "+QMTCONN=", "+UAUTHREQ=",
  "+UPSD=", "+WPPP=", "#PASSW=", "#SPN=", "$QCPDPP=", "$QCPIN=", "%CPIN=", "*CPIN=", "*CGAUTH=",
  "^AUTHDATA=", "^CARDLOCK=", "^CPIN=", "^DATALOCK=", "^SCPIN=", "^SIMLOCKUNLOCK=", "^NDISDUP=",
  "AUTH", "PASSW", "PWD",
  "**03*", "**04*", "**042*", "**05*", "**052*",
];

const PLAIN = "(^AT|;)[A-Z0-9&=?\\\\]*";  // commands of one letter, in front of any other
const CAUTIONS = [
  [/\+CFUN=/, () => _("This restarts the modem or turns its radio off or on. Calls and data connections end.")],
  [new RegExp(PLAIN + "(&F|Z)"), () => _("This sets the modem's settings back. Programs that use it may hear no more reports.")],
  [/PIN2?=|\*\*0\d/, () => _("A wrong PIN uses up a try. After the last one the card wants its PUK, and after ten of those it is lost.")],
  [/(\+CPWD|\+CLCK|LOCK[A-Z]*)=/, () => _("This changes or uses a lock of card or modem. A wrong password uses up a try.")],
  [/(\+[CQ]MGD|DEL)[A-Z]*=/, () => _("This deletes messages or files from the modem's memory.")],
  [/\+CPBW=\d+;?$/, () => _("This deletes an entry of the phone book.")],
  [/\+COPS=[0-4]/, () => _("This chooses the network. The modem may be without one for minutes.")],
  [/(RESET|REBOOT|POWD|SHUTDOWN|NVRESTORE|FACTORY)/, () => _("This may restart the modem, turn it off or erase what it has stored.")],
];

const ASKS_FOR_VALUES = /[^A-Z0-9;&][A-Z0-9]+=\?/g;  // such as +CFUN=?

const compared = (command) => command.replace(/\s/g, "").toUpperCase();

/** What a person must know before this is sent; "" for nothing. */
export function cautionAbout(command) {
  const plain = compared(command).replace(ASKS_FOR_VALUES, "");
  return CAUTIONS.filter(([pattern]) => pattern.test(plain)).map(([, words]) => words()).join(" ");
}

export function isSecret(command) {
  const plain = compared(command);
  return SECRETS.some((name) => plain.includes(name));
}

/** The command as it may be shown: nothing of what stands behind the first value's sign. */
export function masked(command) {
  if (!isSecret(command)) return command;
  const end = command.search(/[=*]/);
  return end < 0 ? "AT…" : `${command.slice(0, end + 1)}••••`;
}
