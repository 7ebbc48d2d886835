"""Report lines as modems really write them, and what the device is told for each.

Every line comes twice: while nobody asks for anything, and in front of a client's answer, which must
not suffer from it: the PDU of a message is a line of its own and may stand there as text, nothing else.
All of that whole, byte by byte, and torn at random.
"""

import json
import pathlib
import unittest

from device import CUTS, OK
from watching import WatchTest

SESSION = pathlib.Path("/tmp/session.txt")
PDU = "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07"


def simst(sim, lock):
    both = f"sim_state={sim} lock_state={lock}"
    return [f"EVT_AT_SIM_STATE_27 id=10 {both}"] + [
        f"EVT_AT_SIM_STATE_{module} {both}" for module in (19, 9, 6, 4)]


def hcsq(*values):
    names = ("sysmode", "value1", "value2", "value3", "value4", "value5")
    return ["EVT_AT_HCSQ " + " ".join(map("{}={}".format, names, values + (0,) * 5))]


def nwtime(year, month, day, hour, minute, second, zone):
    return [f"EVT_AT_NETWORK_TIME tm_year={year} tm_mon={month} tm_mday={day} tm_hour={hour} "
            f"tm_min={minute} tm_sec={second} time_zone={zone}"]


def ussd(kind, text, scheme=0):
    return [f"EVT_AT_USSD rspType={kind} cusdStr={text} cusdStrLen={len(text)} codeType={scheme}"]


def caller(event, number, kind, service=0, validity=0):
    return [f"{event} number={number} type={kind} service_class={service} cli_validity={validity}"]


LINES = (
    ("^SRVST:1", ["DIALUP_MSG_NET_CHANGE status=1"]),
    ("^SRVST: 2", ["DIALUP_MSG_NET_CHANGE status=2", "EVT_AT_NO_SERVICE"]),
    ("^MODE:5,4", ["DIALUP_MSG_NET_CHANGE status=5", "EVT_AT_SYS_MODE sys_mode=5 sys_submode=4"]),
    ("^MODE: 3,4", ["DIALUP_MSG_NET_CHANGE status=3", "EVT_AT_SYS_MODE sys_mode=3 sys_submode=4"]),
    ("^MODE:5", ["DIALUP_MSG_NET_CHANGE status=5", "EVT_AT_SYS_MODE sys_mode=5 sys_submode=0"]),
    ("^SIMST:1", simst(1, 0)),
    ("^SIMST: 255,1", simst(255, 1)),
    ("^SIMREFRESH:1", ["EVT_AT_SIM_REFRESH file_type=1"]),
    ("^ANLEVEL:3", ["EVT_AT_SIGNAL_LEVEL level=3"]),
    ("^ANLEVEL:0,99,10,4,108,7", ["EVT_AT_SIGNAL_LEVEL level=4"]),
    ("^LTESIGLEV:3", []),
    ('^HCSQ:"LTE",48,35,86,14', hcsq(2, 48, 35, 86, 14)),
    ('^HCSQ: "WCDMA", 26, 24, 43', hcsq(1, 26, 24, 43)),
    ("^HCSQ: LTE,33,40,135,11", hcsq(2, 33, 40, 135, 11)),
    ('^HCSQ: "NOSERVICE"', hcsq(-1)),
    ("^HFREQINFO:0,6,1,425,21525,15000,18425,19625,15000",
     ["EVT_AT_FREQ_INFO switch=0 sysmode=6 band_class=1 dl_fcn1=425 dl_freq1=21525 dl_bw1=15000 "
      "ul_fcn1=18425 ul_freq1=19625 ul_bw1=15000"]),
    ("^NWTIME:18/12/13,06:20:04+28,00", nwtime(2018, 12, 13, 6, 20, 4, 28)),
    ("^NWTIME: 18/03/09,12:36:21+4,00", nwtime(2018, 3, 9, 12, 36, 21, 4)),
    ("^APROAMRPT:1", ["EVT_AT_ROAMING_STATUS_1"]),
    ('^REJINFO:46000,1,40,2,3,40,"0026F8","FF","0A444202"', []),
    ('^DCONN:1,"IPV4"', ["DIALUP_MSG_V4_UP cid=1 err_code=-1"]),
    ('^DEND: 1,0,"IPV4"', ["DIALUP_MSG_V4_DOWN cid=1 err_code=-1"]),
    ('^NDISSTAT:1,,,"IPV4"', ["DIALUP_MSG_V4_UP cid=1 err_code=-1"]),
    ("^NDISSTAT: 1,,,IPV4", ["DIALUP_MSG_V4_UP cid=1 err_code=-1"]),
    ('^NDISSTAT:0,50,,"IPV6"', ["DIALUP_MSG_V6_DOWN cid=1 err_code=50"]),
    ('^NDISSTAT: 1,,,"IPV4",0,,,"IPV6"', ["DIALUP_MSG_V4_UP cid=1 err_code=-1"]),
    ('^NDISSTAT: 1,1,,,"IPV4"', ["DIALUP_MSG_V4_UP cid=1 err_code=-1"]),
    ('^NDISSTATEX:1,1,,,"IPV4"', ["DIALUP_MSG_V4_UP cid=1 err_code=-1"]),
    ("^DSFLOWRPT:00000124,00000082,00000EA6,0000000000012325,000000000022771D,0000BB80,0001F400",
     ["EVT_AT_FLOW_REPORT curr_ds_time=292 tx_rate=130 rx_rate=3750 curr_tx_flow=74533 "
      "curr_rx_flow=2258717 qos_tx_rate=48000 qos_rx_rate=128000"]),
    ("^TEMPPRT:1,2", ["EVT_AT_MACHINE_TEMP event=1 parameter=2"]),
    ("^WAKEUPIN:1", ["EVT_AT_WAKEUP_IN value=1"]),
    (f"+CMT: ,35\r\n{PDU}", ["EVT_AT_SMS_NEW id=1 length=35 pdu="]),
    (f'+CMT: "",22\r\n{PDU}', ["EVT_AT_SMS_NEW id=1 length=22 pdu="]),
    (f"+CMT: 35\r\n{PDU}", ["EVT_AT_SMS_NEW id=1 length=35 pdu="]),
    (f"+CDS: 25\r\n{PDU}", ["EVT_AT_SMS_NEW id=3 length=25 pdu="]),
    (f"+CBM: 88\r\n{PDU}", [f"EVT_AT_SMS_NEW id=4 length=88 pdu={PDU}"]),
    ('+CMTI: "SM",1', ["EVT_AT_SMS_NEW id=0 mem=SM index=1"]),
    ('+CMTI: "SM",-1', ["EVT_AT_SMS_NEW id=0 mem=SM index=-1"]),
    ('+CDSI: "SM",3', ["EVT_AT_SMS_NEW id=2 mem=SM index=3"]),
    ("^HCMGSS:31", ["EVT_AT_SMS_SEND_RESULT id=42 mr=31"]),
    ("^HCMGSF:107", ["EVT_AT_SMS_SEND_RESULT id=43 errCode=107"]),
    ("^HCMGSF:15,2", ["EVT_AT_SMS_SEND_RESULT id=43 errCode=15"]),
    ('^SMMEMFULL: "SM"', ["EVT_AT_SMS_MEM_FULL"]),
    ('+CUSD: 0,"Available Balance: R 96.45 .",15', ussd(0, "Available Balance: R 96.45 .", 15)),
    ("+CUSD: 5", ussd(5, "")),
    ('+CUSD: 1,"tariff "Mega". More",15', ussd(1, 'tariff "Mega". More', 15)),
    ("+CUSD: 0, 49B41C74ACD3", ussd(0, "49B41C74ACD3")),
    ("^STIN:0,0,0", ["EVT_AT_STK_IND cmdTpye=0 cmdIndex=0 isTimeOut=0"]),
    ("^STIN: 7, 0, 0", ["EVT_AT_STK_IND cmdTpye=7 cmdIndex=0 isTimeOut=0"]),
    ("^STIN: 11", ["EVT_AT_STK_IND cmdTpye=11 cmdIndex=0 isTimeOut=0"]),
    ("+CSSI: 1", []),
    ("^ORIG:1,0", ["VOICE_ORIG call_id=1 call_type=0"]),
    ("^CONF:1", ["VOICE_CONF call_id=1"]),
    ("^CONN:1,0", ["VOICE_CONN call_id=1 call_type=0"]),
    ("^CEND:1,0,104,31", ["VOICE_CEND call_id=1 duration=0 end_status=104 cause=31"]),
    ("^CEND:1,82,29", ["VOICE_CEND call_id=1 duration=82 end_status=29 cause=0"]),
    ("^CEND: 1,0, 67, 21", ["VOICE_CEND call_id=1 duration=0 end_status=67 cause=21"]),
    ("^CEND:,10,0", ["VOICE_CEND call_id=0 duration=10 end_status=0 cause=0"]),
    ('+CLIP: "+123456789",145', caller("VOICE_CLIP", "+123456789", 145)),
    ('+CLIP: "123456789",129,,,,0', caller("VOICE_CLIP", "123456789", 129)),
    ('+CLIP:"",128,,,,1', caller("VOICE_CLIP", "", 128, validity=1)),
    ('+CCWA: "123456789",129,1,,0', caller("VOICE_CCWA", "123456789", 129, 1)),
    ('^CCWA:"123456789",129,1', caller("VOICE_CCWA", "123456789", 129, 1)),
    ("^CCALLSTATE: 1,0,1", ["VOICE_CCALLSTATE call_id=1 state=0 voice_domain=1"]),
    ("^XLEMA:1,2,112,0,1,fff",
     ["VOICE_XLEMA index=1 total=2 number=112 category=0 sim_present=1 mcc=fff"]),
    ("^CSCHANNELINFO: 0,1", ["VOICE_CSCHANNELINFO status=0 voice_domain=1"]),
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
    def play(self, cut):
        SESSION.write_text(session())
        self.start_server(ready=False)
        watcher, = self.start_watchers(())
        self.start_modem("--replay", str(SESSION), "--cut", cut, "--gap", "1")
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

    def test_whole(self):
        self.play(CUTS[0])

    def test_byte_by_byte(self):
        self.play(CUTS[1])

    def test_cut_at_random(self):
        self.play(CUTS[2])


if __name__ == "__main__":
    unittest.main()
