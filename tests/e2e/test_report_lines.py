"""Report lines as modems really write them, and what the device is told for each.

Every line comes twice: while nobody asks for anything, and in front of a client's answer, which must
not suffer from it: the PDU of a message is a line of its own and may stand there as text, nothing else.
"""

import json
import pathlib
import unittest

from device import OK
from watching import WatchTest

SESSION = pathlib.Path("/tmp/session.txt")
PDU = "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07"


# One line for each way of a report through the server.
LINES = (
    ("^SRVST: 2", ["DIALUP_MSG_NET_CHANGE status=2", "EVT_AT_NO_SERVICE"]),
    ("^SIMST: 255,1", [f"EVT_AT_SIM_STATE_{module} sim_state=255 lock_state=1"
                       for module in ("27 id=10", 19, 9, 6, 4)]),
    ('^HCSQ:"LTE",48,35,86,14', ["EVT_AT_HCSQ sysmode=2 value1=48 value2=35 value3=86 value4=14 value5=0"]),
    ("^LTESIGLEV:3", []),
    ('^NDISSTAT:0,50,,"IPV6"', ["DIALUP_MSG_V6_DOWN cid=1 err_code=50"]),
    ("^DSFLOWRPT:00000124,00000082,00000EA6,0000000000012325,000000000022771D,0000BB80,0001F400",
     ["EVT_AT_FLOW_REPORT curr_ds_time=292 tx_rate=130 rx_rate=3750 curr_tx_flow=74533 "
      "curr_rx_flow=2258717 qos_tx_rate=48000 qos_rx_rate=128000"]),
    (f"+CMT: ,35\r\n{PDU}", ["EVT_AT_SMS_NEW id=1 length=35 pdu="]),
    (f"+CBM: 88\r\n{PDU}", [f"EVT_AT_SMS_NEW id=4 length=88 pdu={PDU}"]),
    ('+CMTI: "SM",1', ["EVT_AT_SMS_NEW id=0 mem=SM index=1"]),
    ('+CUSD: 1,"tariff "Mega". More",15',
     ['EVT_AT_USSD rspType=1 cusdStr=tariff "Mega". More cusdStrLen=19 codeType=15']),
    ("^CEND: 1,0, 67, 21", ["VOICE_CEND call_id=1 duration=0 end_status=67 cause=21"]),
    ('+CLIP: "+123456789",145',
     ["VOICE_CLIP number=+123456789 type=145 service_class=0 cli_validity=0"]),
)


def session():
    """All lines in quiet, then each one in front of the answer to a command that has its number."""
    steps = [f"< \r\n{line}\r\n" for line, _ in LINES]
    for number, (line, _) in enumerate(LINES):
        steps += [f"> AT+TAG={number}\r",
                  f"< \r\n{line}\r\n\r\n+TAG: {number}\r\n\r\nOK\r\n"]
    return "".join(step.replace("\\", "\\\\").replace("\r", "\\r").replace("\n", "\\n") + "\n"
                   for step in steps)


class ReportLines(WatchTest):
    def test_alone_and_in_front_of_an_answer(self):
        SESSION.write_text(session())
        self.start_server(ready=False)
        watcher, = self.start_watchers(())
        self.start_modem("--replay", str(SESSION), "--cut", "random:7", "--gap", "1")
        once = [packet for _, packets in LINES for packet in packets]
        watcher.wait_for(1 + len(once))
        code, out, err = self.ctl("at", "--json", "--match", "+TAG:", "-", stdin="\n".join(
            f"AT+TAG={number}" for number in range(len(LINES))))
        self.assertEqual(code, OK, err)
        watcher.wait_for(1 + 2 * len(once))
        self.assertEqual(watcher.words(), ["CMS_MSG_DATACARD_INSERTED"] + 2 * once)
        for number, answer in enumerate(map(json.loads, out.splitlines())):
            self.assertRegex(answer["text"], rf"^({PDU})*\+TAG: {number}$")
        self.assertEqual(self.modem.wait(10), 0, "the session was not played to its end")
        self.assertEqual(watcher.end(), (0, ""))


if __name__ == "__main__":
    unittest.main()
