// SPDX-License-Identifier: Apache-2.0

// What becomes of a modem's bytes, whatever way they are cut.
//
// A case is a script of lines: "> " what is sent, "." the server waits no longer, "< " what the
// modem says, "~20" milliseconds of silence, "!" the modem is gone, "o" the device is opened: "op"
// while a body is owed, "o1" while a result is, "om" and then perhaps a body, "oe" by a modem that
// echoes; "= " a delivery or an ESC that has come by then, "clean" and "dirty" how the line is.
// Each step must bring exactly the deliveries that stand behind it, and the script is run with the
// modem's bytes whole, byte by byte and cut at random.

#include "tests/delivery/modem_line.h"

namespace {

using namespace std::string_literals;

void run_script(const script_t& script, cut_t cut) {
  modem_line line(std::move(cut));
  size_t at = 0;
  while (at < script.size()) {
    const string& step = script[at++];
    line.deliveries.clear();
    if (step[0] == '>') line.send(step.substr(2));
    if (step[0] == '<') line.say(step.substr(2));
    if (step[0] == '~') line.wait(std::stoul(step.substr(1)));
    if (step[0] == '!') line.lose();
    if (step[0] == '.') line.end_exchange();
    if (step == "o") line.open();
    if (step == "op") line.open({.prompt = 1});
    if (step == "o1") line.open({.results = 1});
    if (step == "om") line.open({.results = 1, .prompt = 2});
    if (step == "oe") line.open({.results = 1, .echo = 1});
    if (step == "clean" || step == "dirty") {
      ASSERT_EQ(line.is_clean(), step == "clean") << "at step " << at;
    }
    script_t expected;
    while (at < script.size() && script[at][0] == '=') expected.push_back(script[at++].substr(2));
    ASSERT_EQ(line.deliveries, expected) << "behind step " << readable(step);
  }
  line.deliveries.clear();
  line.wait(60000);
  EXPECT_EQ(line.deliveries, script_t()) << "at the end";
}

void run_at_all_cuts(const script_t& script) {
  {
    SCOPED_TRACE("whole");
    run_script(script, whole);
  }
  {
    SCOPED_TRACE("byte by byte");
    run_script(script, byte_by_byte);
  }
  const uint32_t first_seed = std::random_device{}();
  for (uint32_t seed = first_seed; seed < first_seed + 20; ++seed) {
    SCOPED_TRACE("cut at random, seed " + std::to_string(seed));
    run_script(script, at_random(seed));
  }
}

struct case_t {
  const char* name;
  script_t script;
};

void PrintTo(const case_t& row, std::ostream* out) { *out << row.name; }

class Delivery : public testing::TestWithParam<case_t> {};

TEST_P(Delivery, IsTheSameAtAllCuts) { run_at_all_cuts(GetParam().script); }

string repeated(const string& text, size_t count) {
  string all;
  for (size_t i = 0; i < count; ++i) all += text;
  return all;
}

const string pdu = "0001000B914497381100000000A054747A0E4ACF41";
const string line_of_100 = string(98, 'x') + "\r\n";

// clang-format off
const case_t lines[] = {
    {"ReportAtOnce",         {"< \r\n^RSSI:20\r\n", "= \r\n^RSSI:20\r\n"}},
    {"BlankLineStaysBehind", {"< \r\n^NWTIME:1\r\n\r\n", "= \r\n^NWTIME:1\r\n", "~1000", "< ^EONS:0\r\n", "= \r\n^EONS:0\r\n"}},
    {"BlankLinesAlone",      {"< \r\n\r\n\r\r\n\r", "~1000"}},
    {"LineStopsInTheMiddle", {"< ^RSS", "~299", "~1", "= ^RSS", "< I:1\r\n"}},
    {"LinesThenHalfALine",   {"< ^A:1\r\n", "= ^A:1\r\n", "< \r\n^B", "~299", "~1", "= \r\n^B"}},
    {"CrKeptForItsLf",       {"< ^RSSI:1\r", "~300", "= ^RSSI:1", "~1000", "< \n", "~1000", "< ^A\r\n", "= \r\n^A\r\n"}},
    {"LfAloneIsText",        {"< ^a\nb\r\n", "= ^a\nb\r\n", "> AT\r", "< a\nb\r\nOK\r\n", "= a\nb\r\nOK\r\n"}},
    {"DoubledCrs",           {"< ^A:1\r\r\n", "= ^A:1\r\n", "< \r\r\r\n^B:1\r\r\r\n", "= \r\n^B:1\r\n"}},
    {"NulAndHighBytes",      {"< +X:\0\xFF\x80\r\n"s, "= +X:\0\xFF\x80\r\n"s}},
};
const case_t answers[] = {
    {"InOneDelivery",       {"> AT+CSQ\r", "< \r\n+CSQ: 13,99\r\n", "~299", "< \r\nOK\r\n", "= \r\n+CSQ: 13,99\r\n\r\nOK\r\n"}},
    {"ReportInFrontJoins",  {"> AT+CMGD=0\r", "< \r\n^RSSI:1\r\n", "~299", "< \r\nOK\r\n", "= \r\n^RSSI:1\r\n\r\nOK\r\n"}},
    {"ReportBehindDoesNot", {"> AT\r", "< \r\nOK\r\n\r\n^RSSI:1\r\n", "= \r\nOK\r\n", "= \r\n^RSSI:1\r\n"}},
    {"SlowModem",           {"> AT+COPS=?\r", "< \r\n^RSSI:1\r\n", "~299", "~1", "= \r\n^RSSI:1\r\n",
                             "~30000", "< \r\n+COPS: 0\r\n\r\nOK\r\n", "= \r\n+COPS: 0\r\n\r\nOK\r\n"}},
    {"ResultWords",         {"> AT\r", "< +CME ERROR: 13\r\n", "= +CME ERROR: 13\r\n", "> ATDT1\r", "< CONNECT 3600000\r\n", "= CONNECT 3600000\r\n",
                             "> ATA\r", "< NO CARRIER\r\n", "= NO CARRIER\r\n", "> AT\r", "< ERROR\r\n", "= ERROR\r\n",
                             "> AT\r", "< +CMS ERROR: 500\r\n", "= +CMS ERROR: 500\r\n", "> atd1;\r", "< BUSY\r\n", "= BUSY\r\n"}},
    {"PauseInALine",        {"> AT+CSQ\r", "< \r\n+CSQ: 1", "~299", "< 3,99\r", "~299", "< \n\r\nO", "~299", "< K\r\n", "= \r\n+CSQ: 13,99\r\n\r\nOK\r\n"}},
    {"SlowListing",         {"> AT+CMGL=4\r", "< +CMGL: 1,,2\r\n0791\r\n", "~60", "< +CMGL: 2,,2\r\n0792\r\n", "~299", "< OK\r\n",
                             "= +CMGL: 1,,2\r\n0791\r\n+CMGL: 2,,2\r\n0792\r\nOK\r\n"}},
    {"NoResultWords",       {"> AT\r", "< +CME ERRO\r\nok\r\n OK\r\nNO\r\n", "~299", "~1", "= +CME ERRO\r\nok\r\n OK\r\nNO\r\n"}},
    {"ResultWithoutLineEnd",{"> AT\r", "< OK", "~299", "~1", "= OK", ".", "clean", "< \r\n^A:1\r\n", "= \r\n^A:1\r\n"}},
    {"Prompt",              {"> AT+CMGS=22\r", "< \r\n> ", "= \r\n> ", "> " + pdu + "\x1a\r", "< \r\n+CMGS: 31\r\n", "~299",
                             "< \r\nOK\r\n", "= \r\n+CMGS: 31\r\n\r\nOK\r\n", ".", "clean"}},
    {"PromptWithoutBlank",  {"> AT+CMGS=22\r", "< \r\n>", "~19", "~1", "= \r\n>"}},
    {"NoPromptInALine",     {"> AT\r", "< a> b\r\n>> \r\nOK\r\n", "= a> b\r\n>> \r\nOK\r\n"}},
    {"TextLikeAPrompt",     {"> AT\r", "< > a\r\nb\r\nOK\r\n", "= > ", "= a\r\nb\r\nOK\r\n", ".", "clean"}},
    {"SendWhileHeld",       {"> AT\r", "< old\r\nhal", "~10", "> AT+X\r", "< f\r\nOK\r\n", "= old\r\nhalf\r\nOK\r\n"}},
    {"ModemGoneInALine",    {"> AT\r", "< ^A:1\r\n^B", "!", "~0", "= ^A:1\r\n^B", "< :2\r\n"}},
};
/// A report each 10 ms, behind an answer that never comes and behind one that may not be its own.
script_t chatter_behind_a_lost_answer() {
  script_t script = {"> AT\r", "."};
  const auto chatter = [&script](int reports) {
    for (int i = 0; i < reports; ++i)
      for (const char* step : {"~10", "< ^A:1\r\n", "= ^A:1\r\n"}) script.emplace_back(step);
  };
  const auto add = [&script](const script_t& steps) {
    script.insert(script.end(), steps.begin(), steps.end());
  };
  chatter(499);
  add({"dirty", "~10", "= OK\r\n", "clean", "> AT\r", "< OK\r\n", "= OK\r\n", "."});
  chatter(199);
  add({"dirty", "~10", "clean"});
  return script;
}

const case_t debts[] = {
    {"PaidAtOnce",          {"> AT\r", "< OK\r\n", "= OK\r\n", ".", "clean"}},
    {"PaidLate",            {"> AT+COPS=?\r", "~1000", ".", "dirty", "~2000", "< \r\n+COPS: 1\r\n", "= \r\n+COPS: 1\r\n", "< name\r\n\r\nOK\r\n", "= \r\nOK\r\n",
                             "~19", "dirty", "~1", "clean"}},
    {"TextInBothHalves",    {"> AT+CPIN?\r", "< +CPIN: READY\r\n", "~300", "= +CPIN: READY\r\n", ".", "< late\r\nOK\r\n", "= OK\r\n", "~20", "clean"}},
    {"NeverPaid",           {"> AT\r", "< text\r\n", "~300", "= text\r\n", ".", "~4999", "dirty", "~1", "= OK\r\n", "clean"}},
    {"PaidBehindPatience",  {"> AT\r", ".", "~5000", "= OK\r\n", "clean", "< \r\nOK\r\n", "clean"}},
    {"PaidByTheNextOnes",   {"> AT+COPS=?\r", ".", "~5000", "= OK\r\n", "clean", "> AT+X\r", "< OK\r\n", "= OK\r\n", ".", "dirty", "~999", "< text\r\nOK\r\n", "= OK\r\n",
                             "~20", "clean", "> AT\r", "< OK\r\n", "= OK\r\n", ".", "clean"}},
    {"NeverPaidByTheNext",  {"> AT\r", ".", "~5000", "= OK\r\n", "clean", "> AT\r", "< OK\r\n", "= OK\r\n", ".", "~999", "dirty", "~1", "clean",
                             "> AT\r", "< OK\r\n", "= OK\r\n", ".", "clean"}},
    {"TwoCommandsInOne",    {"> AT\rATI\r", "< OK\r\n", "= OK\r\n", ".", "dirty", "< evil\r\nOK\r\n", "= OK\r\n", "~20", "clean"}},
    {"BothResultsAtOnce",   {"> AT\rATI\r", "< OK\r\nevil\r\nOK\r\n", "= OK\r\n", "= evil\r\nOK\r\n", ".", "dirty", "~20", "clean"}},
    {"EndOfACall",          {"> AT+CSQ\r", "< NO CARRIER\r\n", "= NO CARRIER\r\n", ".", "dirty", "< text\r\nOK\r\n", "= OK\r\n", "~20", "clean"}},
    {"ForeignResults",      {"< \r\nOK\r\n+CME ERROR: 3\r\nCONNECT\r\n^A:1\r\n", "= \r\n^A:1\r\n", "> AT\r", "< OK\r\nOK\r\n", "= OK\r\n", ".", "clean"}},
    {"ForeignLines",        {"< \r\nRDY\r\nSMS Ready\r\n^RSSI:1\r\n", "= \r\n^RSSI:1\r\n", "< *PSUTTZ: 1\r\nIRING\r\n", "= IRING\r\n", "< x ^CPINNTY:READY\r\n", "= x ^CPINNTY:READY\r\n"}},
    {"ForeignListing",      {"< +CMGL: 1,,2\r\n0791\r\n^HCMGR:1\r\n^A:1\r\n\x1a\r\n^B:1\r\n", "= ^B:1\r\n", "< +CMGR: 1\r\n", "~50", "< ^C:1\r\n", "= ^C:1\r\n"}},
    {"OneOfThemDials",      {"> ATD1\rAT\r", "< NO CARRIER\r\n", "= NO CARRIER\r\n", "< OK\r\n", "= OK\r\n", ".", "~20", "clean"}},
    {"BegunBefore",         {"< NO CAR", "> AT\r", "< RIER\r\nOK\r\n", "= OK\r\n", ".", "clean"}},
    {"ModemGone",           {"> AT\r", "< half", "!", "~0", "~10", ".", "dirty", "~10", "= OK\r\n", "clean"}},
    {"AnotherModem",        {"> AT\r", ".", "!", "o", "~10", "< RDY\r\n^A:1\r\n", "~99", "~1", "= ^A:1\r\n", "= OK\r\n", "clean"}},
    {"BackBeforeItsEnd",    {"> AT\r", "< OK\r\n", "= OK\r\n", "!", "o", "~10", "< ^A:1\r\n", "= ^A:1\r\n"}},
    {"NeverSilent",         {"o", "~90", "< \r\n", "~90", "< \r\n", "~90", "< \r\n", "~90", "< \r\n", "~90", "< \r\n", "~90", "< \r\n", "~90", "< \r\n", "~90", "< \r\n",
                             "~90", "< \r\n", "~90", "< \r\n", "~90", "< \r\n", "~10", "dirty", "~10", "clean"}},
    {"NeverSilentBehindIt", chatter_behind_a_lost_answer()},
    {"StopsToEcho",         {"> AT\r", "< AT\r\r\nOK\r\n", "= OK\r\n", ".", "> AT\r", ".", "~5000", "= OK\r\n", "clean",
                             "> AT\r", "< OK\r\n", ".", "~5000", "= OK\r\n", "clean", "> AT\r", "< OK\r\n", ".", "~5000", "= OK\r\n", "clean",
                             "> AT\r", "< OK\r\n", ".", "~5000", "= OK\r\n", "clean", "> AT\r", "< OK\r\n", "= OK\r\n", "."}},
    {"LeftByAnother",       {"o1", "~3000", "dirty", "< +CSQ: 1\r\nOK\r\n", "= +CSQ: 1\r\nOK\r\n", "~19", "dirty", "~1", "clean"}},
};
const case_t prompts[] = {
    {"NobodyAnswers",       {"> at+cmgs =22\r", "< \r\n> ", "= \r\n> ", ".", "= \x1b", "dirty", "< \r\nOK\r\n", "= \r\nOK\r\n", "~20", "clean"}},
    {"SecondEscape",        {"> AT+CMGS=22\r", "< > ", "= > ", ".", "= \x1b", "~999", "~1", "= \x1b", "~3999", "dirty", "~1", "= OK\r\n", "clean"}},
    {"EscapeAnsweredLate",  {"> AT+CMGS=22\r", "< > ", "= > ", ".", "= \x1b", "~1000", "= \x1b", "~3000", "dirty", "< \r\nOK\r\n", "= \r\nOK\r\n", "~20", "clean"}},
    {"ComesLate",           {"> AT+CMGS=22\r", ".", "~2000", "< > ", "= \x1b", "< \r\n+CMS ERROR: 500\r\n", "= \r\n+CMS ERROR: 500\r\n", "~20", "clean"}},
    {"ComesBehindPatience", {"> AT+CMGS=22\r", ".", "~5000", "= OK\r\n", "clean", "< > ", "= \x1b", "dirty", "< OK\r\n", "= OK\r\n", "~20", "clean"}},
    {"BodyInFront",         {"> AT+CMGS=22\r", "> " + pdu + "\x1a\r", "< \r\n> ", "= \r\n> ", "< \r\n+CMGS: 1\r\nOK\r\n", "= \r\n+CMGS: 1\r\nOK\r\n", ".", "clean"}},
    {"BodyInFrontIsMissed", {"> AT+CMGS=22\r", "> " + pdu + "\x1a\r", "< \r\n> ", "= \r\n> ", ".", "~5000", "= \x1b", "< OK\r\n", "= OK\r\n", "~20", "clean"}},
    {"HeadIsRefused",       {"> AT+CMGS=22\r", "> " + pdu + "\x1a\r", "< ERROR\r\n", "= ERROR\r\n", ".", "clean"}},
    {"LeftByAnother",       {"op", "~0", "= \x1b", "< OK\r\n", "= OK\r\n", "~100", "clean"}},
    {"CrWentToAnother",     {"o1", "< \n> ", "= \x1b", "< OK\r\n", "= OK\r\n", "~100", "clean"}},
    {"MayBeLeft",           {"om", "~5000", "= \x1b", "< OK\r\n", "= OK\r\n", "~20", "clean"}},
    {"ForEachLine",         {"> AT+CMGS=\"1\"\r", "< > ", "= > ", "> one\rtwo\x1a\r", "< \r\n> ", "< \r\n+CMGS: 1\r\nOK\r\n", "= \r\n\r\n+CMGS: 1\r\nOK\r\n", ".", "clean"}},
    {"ModemIsGone",         {"> AT+CMGS=22\r", "< > ", "= > ", "!", ".", "dirty", "~20", "= OK\r\n", "clean"}},
};
const case_t echoes[] = {
    {"Plain",            {"> AT+CSQ\r", "< AT+CSQ\r\r\n+CSQ: 1,9\r\n\r\nOK\r\n", "= +CSQ: 1,9\r\n\r\nOK\r\n"}},
    {"OwnCrOnly",        {"> AT\r", "< AT\r", "~5000", "< \r\nOK\r\n", "= OK\r\n"}},
    {"NoBlankLine",      {"> AT\r", "< AT\rOK\r\n", "= OK\r\n"}},
    {"TornBySilence",    {"> AT+CSQ\r", "< AT+C", "~900", "< SQ", "~900", "< \r\r\nOK\r\n", "= OK\r\n"}},
    {"NeverFinished",    {"> AT+CSQ\r", "< AT+C", "~999", "~1", "= AT+C"}},
    {"BehindReport",     {"> AT+CPMS=\"SM\"\r", "< ^SRVST:0\r\nAT+CPMS=\"SM\"\r\r\n+CPMS: 0\r\n\r\nOK\r\n", "= ^SRVST:0\r\n+CPMS: 0\r\n\r\nOK\r\n"}},
    {"ReportNotDelayed", {"> AT+CSQ\r", "< ^A:1\r\nAT+", "~299", "~1", "= ^A:1\r\n", "~100", "< CSQ\r\r\nOK\r\n", "= OK\r\n"}},
    {"Pdu",              {"> AT+CMGS=22\r", "< AT+CMGS=22\r\r\n> ", "= > ", "> " + pdu + "\x1a\r", "< " + pdu + "\x1a\r\n+CMGS: 31\r\n\r\nOK\r\n", "= +CMGS: 31\r\n\r\nOK\r\n"}},
    {"PduBehindPrompt",  {"> AT+CMGS=22\r", "> " + pdu + "\x1a\r", "< \r\n> " + pdu + "\x1a\r\r\n+CMGS: 3\r\n\r\nOK\r\n", "= \r\n> ", "= +CMGS: 3\r\n\r\nOK\r\n"}},
    {"BothStepsAtOnce",  {"> at+cmgs=22\r" + pdu + "\x1a\r", "< at+cmgs=22\r\r\n> ", "= > ", "< " + pdu + "\x1a\r\n+CMS ERROR: 5\r\n", "= +CMS ERROR: 5\r\n"}},
    {"CrOfTheOneBefore", {"> AT\r", "< OK\r\n\r", "= OK\r\n", ".", "> AT+X\r", "< AT+X\r\r\nERROR\r\n", "= ERROR\r\n"}},
    {"EscapeInFront",    {"> AT+X\r", "< \r\x1b" "AT+X\r\r\nERROR\r\n", "= ERROR\r\n"}},
    {"RestInFront",      {"> AT+CMGS=1\r0\x1a" "1\x1a\r", "< > 0\x1a\r\nOK\r\n", "= > ", "= 0\x1a\r\nOK\r\n", ".", "> AT+X\r", "< 1\x1a\rAT+", "~900", "< X\r\r\nERROR\r\n", "= ERROR\r\n"}},
    {"BehindAnErased",   {"> AT+X\r", "< AT+", ".", "~5000", "= OK\r\n", "> AT\r", "< \b \b\b \b\b \bAT\r\r\nERROR\r\n", "= ERROR\r\n"}},
    {"HeadAfterBody",    {"> AT+CMGS=22\r", "> " + pdu + "\x1a\r", "< AT+CMGS=22\r\r\n> ", "= > ", "< " + pdu + "\x1a\r\r\n+CMGS: 3\r\n\r\nOK\r\n", "= +CMGS: 3\r\n\r\nOK\r\n"}},
    {"OnlyTheFirst",     {"> AT\r", "< AT\r\r\nAT\r\nOK\r\n", "= AT\r\nOK\r\n"}},
    {"OnlyTheWholeLine", {"> AT\r", "< ATI\r\n AT\r\nA\r\nOK\r\n", "= ATI\r\n AT\r\nA\r\nOK\r\n"}},
    {"NotAMessageText",  {"> AT+CMGR=1\r", "< \r\n+CMGR: 1\r\nAT+CMGR=1\r\n\r\nOK\r\n", "= \r\n+CMGR: 1\r\nAT+CMGR=1\r\n\r\nOK\r\n"}},
    {"OfAnAbandonedOne", {"> AT+X\r", ".", "< AT+X\r\r\nOK\r\n", "= OK\r\n", "~20", "clean"}},
    // Patience has run out; what stands in front of the echo is the late answer.
    {"TellsALateAnswer", {"> AT\r", "< AT\r\r\nOK\r\n", "= OK\r\n", ".", "> AT+COPS=?\r", ".", "~5000", "= OK\r\n",
                          "> AT+COPS?\r", "< AT+COPS=?\r\r\n+COPS: 7\r\nname\r\n^A:1\r\nOK\r\n", "~300", "= ^A:1\r\n",
                          "< AT+COPS?\r\r\n+COPS: 0\r\nOK\r\n", "= +COPS: 0\r\nOK\r\n", ".", "clean"}},
    {"TellsALatePrompt", {"> AT\r", "< AT\r\r\nOK\r\n", "= OK\r\n", ".", "> AT+CMGS=22\r", ".", "~5000", "= OK\r\n",
                          "> AT+CMGS=7\r", "< > ", "~3000", ".", "= \x1b", "< OK\r\n", "= OK\r\n", "~20", "clean"}},
    {"TellsOfOthers",    {"> AT\r", "< AT\r\r\nOK\r\n", "= OK\r\n", ".", "> AT+COPS=?;+CMGL=4\r", ".", "~5000", "= OK\r\n",
                          "> AT+X\r", "< +COPS: 7\r\n+CMGL: 1,,2\r\n0791\r\nOK\r\n", "< AT+X\r\r\nOK\r\n", "= OK\r\n", ".", "clean"}},
    {"ItsOwnTellsNot",   {"> AT\r", "< AT\r\r\nOK\r\n", "= OK\r\n", ".", "> AT+COPS=?\r", ".", "~5000", "= OK\r\n", "< AT+COPS=?\r",
                          "> AT+X\r", "< \r\nOK\r\n", "< AT+X\r\r\nERROR\r\n", "= ERROR\r\n", ".", "clean"}},
    {"TellsNotOfAlikes", {"> AT\r", "< AT\r\r\nOK\r\n", "= OK\r\n", ".", "> AT+CSQ\r", ".", "~5000", "= OK\r\n",
                          "> AT+CSQ\r", "< AT+CSQ\r\r\n+CSQ: 1\r\nOK\r\n", "= +CSQ: 1\r\nOK\r\n", ".", "dirty",
                          "~900", "< AT+CSQ\r\r\ntext\r\nOK\r\n", "= OK\r\n", "~20", "clean"}},
    {"EscapesInFront",   {"> AT\r", "< AT\r\r\nOK\r\n", "= OK\r\n", ".", "> AT+CMGS=1\r" "0\x1a" "1\x1a\r", "~10", ".", "~5000", "= OK\r\n", "> AT+Y\r", ".", "~5000", "= OK\r\n",
                          "> AT+X\r", "< AT+CMGS=1\r\r\nOK\r\n1\x1a\r\x1b\x1b" "AT+Y\rAT+X\r\r\nERROR\r\n", "= ERROR\r\n", ".", "clean"}},
    {"MessagesEndAlike", {"> AT\r", "< AT\r\r\nOK\r\n", "= OK\r\n", ".", "> AT+CMGS=1\r", "> one\rtwo\x1a\r", ".", "~5000", "= OK\r\n", "> AT+X\r", ".", "~5000", "= OK\r\n",
                          "> AT+CMGS=2\r", "> 2\rtwo\x1a\r", "< AT+CMGS=1\r\r\nERROR\r\none\rtwo\x1a\rAT+X\r\r\nOK\r\n", "< AT+CMGS=2\r\r\n+CMS ERROR: 2\r\n",
                          "= +CMS ERROR: 2\r\n", "< 2\rtwo\x1a\r", ".", "clean"}},
    {"OfAnEarlierLife",  {"oe", "~999", "dirty", "~1", "clean", "> AT\r", "< OK\r\n", "< AT\r\r\nERROR\r\n", "= ERROR\r\n", ".", "clean"}},
    {"OfAnEarlierPaid",  {"oe", "~500", "< OK\r\n", "= OK\r\n", "~99", "dirty", "~1", "clean", "> AT\r", "< OK\r\n", "= OK\r\n", ".", "clean"}},
    {"OfTheEarlierLifes",{"oe", "~1000", "clean", "> AT+CMEE=1\r", "< AT+CMEE=1\r\r\nOK\r\n", "= OK\r\n", ".", "dirty",
                          "~900", "< AT+CMEE=1\r\r\nOK\r\n", "= OK\r\n", "~20", "clean"}},
    {"TellsALateEscape", {"> AT\r", "< AT\r\r\nOK\r\n", "= OK\r\n", ".", "> AT+CMGS=22\r", "< AT+CMGS=22\r\r\n> ", "= > ", ".", "= \x1b", "~1000", "= \x1b", "~4000", "= OK\r\n",
                          "clean", "> AT+X\r", "< \r\nOK\r\nAT+X\r\r\nERROR\r\n", "= \r\nERROR\r\n", ".", "clean"}},
    {"SwitchedOff",      {"> AT\r", "< AT\r\r\nOK\r\n", "= OK\r\n", ".", "> ATE0\rAT\r", "< ATE0\r\r\nOK\r\n", "= OK\r\n", ".", "~5000", "= OK\r\n",
                          "> AT\r", "< OK\r\n", "= OK\r\n", ".", "~1000", "clean"}},
};
const case_t bodies[] = {
    {"Cmt",            {"< \r\n+CMT: ,35\r\n", "~49", "< 0791\r\n", "= \r\n+CMT: ,35\n0791\r\n"}},
    {"CmtTooLate",     {"< +CMT: ,35\r\n", "~49", "~1", "= +CMT: ,35\r\n", "< 0791\r\n"}},
    {"CmtInAnAnswer",  {"> AT+CSQ\r", "< +CSQ: 1\r\n^A:1\r\n+CMT: ,35\r\n\r\n0791\r\nOK\r\n", "= +CSQ: 1\r\n^A:1\r\n+CMT: ,35\n0791\r\nOK\r\n"}},
    {"BodyLikeNews",   {"< +CMT: \"1\",,\"t\"\r\n+CREG: 1\r\n", "= +CMT: \"1\",,\"t\"\n+CREG: 1\r\n", "< +CDS: 25\r\nOK\r\n", "= +CDS: 25\nOK\r\n"}},
    {"NoBodyInText",   {"< +CDS: 6,1,,,\"t\",\"t\",0\r\n", "= +CDS: 6,1,,,\"t\",\"t\",0\r\n"}},
    {"BodyTorn",       {"< +CBM : 88\r\n\r\n07", "~49", "< 91\r\n", "= +CBM : 88\r\n\r\n0791\r\n"}},
    {"Index",          {"< +CMTI: \"SM\",1\r\n", "= +CMTI: \"SM\",1\r\n", "< +CDSI: 1\r\n", "= +CDSI: 1\r\n"}},
    {"NotInTheMiddle", {"< ^X+CMT: 1\r\n", "= ^X+CMT: 1\r\n", "< +CMT\r\n", "= +CMT\r\n"}},
    {"Stored",         {"> AT+CMGR=1\r", "< \r\n+CMGR: 0,,23\r\n", "~299", "< 0791\r\n\r\nOK\r\n", "= \r\n+CMGR: 0,,23\r\n0791\r\n\r\nOK\r\n"}},
    {"EmptyPlace",     {"> AT+CMGR=1\r", "< \r\n+CMGR: 0,,0\r\n\r\nOK\r\n", "= \r\n+CMGR: 0,,0\r\n\r\nOK\r\n", ".", "clean"}},
    {"TextLikePrompt", {"> AT\r", "< +CMT: 1\r\n> hello\r\nOK\r\n", "= +CMT: 1\n> hello\r\nOK\r\n"}},
    {"Raw",            {"> AT^HCMGR=1\r", "< ^HCMGR:1\r\na\r\nOK\r\nb\x1a" "c\r\n\x1a\r\n\r\nOK\r\n", "= ^HCMGR:1\r\na\r\nOK\r\nb\x1a" "c\r\n\x1a\r\n\r\nOK\r\n"}},
    {"RawKeepsItsCrs", {"> AT\r", "< ^HCMGR:1\r\r\na\r\r\n\r\r\nb\x1a\r\r\nOK\r\n", "= ^HCMGR:1\r\na\r\r\n\r\r\nb\x1a\r\nOK\r\n"}},
    {"RawNeverEnds",   {"> AT\r", "< ^HCMGR:1\r\na\r\n> ", "~299", "~1", "= ^HCMGR:1\r\na\r\n> ", "< OK\r\n", "= OK\r\n"}},
};
const case_t limits[] = {
    {"JustFits",        {"< ^" + string(1496, 'x') + "\r\n", "= ^" + string(1496, 'x') + "\r\n"}},
    {"OneTooLong",      {"< ^" + string(1497, 'x') + "\r\n", "= ^" + string(1497, 'x'), "< ^A\r\n", "= \r\n^A\r\n"}},
    {"NoLineEnd",       {"> AT\r", "< " + string(4000, 'x'), "= " + string(1499, 'x'), "= " + string(1499, 'x'), "~299", "~1", "= " + string(1002, 'x')}},
    {"ForNobody",       {"< " + string(4000, 'x') + "\r\n^A\r\n", "= ^A\r\n"}},
    {"BehindLastLine",  {"> AT\r", "< " + repeated(line_of_100, 15), "= " + repeated(line_of_100, 14), "~299", "~1", "= " + line_of_100}},
    {"LongAnswer",      {"> AT\r", "< " + repeated(line_of_100, 16) + "OK\r\n", "= " + repeated(line_of_100, 14), "= " + repeated(line_of_100, 2) + "OK\r\n"}},
    {"HeaderGoesAlong", {"> AT\r", "< " + repeated(line_of_100, 14) + "+CMGL: 1\r\n" + line_of_100 + "OK\r\n", "= " + repeated(line_of_100, 14), "= +CMGL: 1\r\n" + line_of_100 + "OK\r\n"}},
    {"BlankLines",      {"< " + repeated("\r\n", 5000), "~1000", "< ^A\r\n", "= " + repeated("\r\n", 5000 % 749) + "^A\r\n"}},
    {"CarriageReturns", {"< " + string(5000, '\r'), "~1000", "< \n^A\r\n", "= \r\n^A\r\n"}},
};
// clang-format on

string case_name(const testing::TestParamInfo<case_t>& row) { return row.param.name; }
INSTANTIATE_TEST_SUITE_P(Lines, Delivery, testing::ValuesIn(lines), case_name);
INSTANTIATE_TEST_SUITE_P(Answers, Delivery, testing::ValuesIn(answers), case_name);
INSTANTIATE_TEST_SUITE_P(Debts, Delivery, testing::ValuesIn(debts), case_name);
INSTANTIATE_TEST_SUITE_P(Prompts, Delivery, testing::ValuesIn(prompts), case_name);
INSTANTIATE_TEST_SUITE_P(Echoes, Delivery, testing::ValuesIn(echoes), case_name);
INSTANTIATE_TEST_SUITE_P(Bodies, Delivery, testing::ValuesIn(bodies), case_name);
INSTANTIATE_TEST_SUITE_P(Limits, Delivery, testing::ValuesIn(limits), case_name);

// While more bytes wait, reports gather; then they go out in one delivery.
TEST(DeliveryRead, GathersWhatIsWaiting) {
  delivery_assembler assembler;
  const string reports = "^A:1\r\n\r\n^B:1\r\n";
  ASSERT_EQ(assembler.received(reports.data(), reports.size(), 5), reports.size());
  EXPECT_TRUE(assembler.next(500, true).empty());
  EXPECT_EQ(assembler.next(5, false), reports);
}

TEST(DeliveryDebt, WhatMayHaveChangedTheEchoIsNotForgottenByTheNextLife) {
  modem_line line(whole);
  line.send("AT\r");
  line.say("AT\r\r\nOK\r\n");
  EXPECT_EQ(line.debt().balance().echo, 1u);
  line.send("AT\rATE0\r");
  EXPECT_EQ(line.debt().balance().echo, 0u);
}

TEST(DeliverySize, AnswersThatDoNotFitARecordAreCounted) {
  const struct {
    string answer;
    uint32_t too_long;
  } cases[] = {
      {repeated(string(100, 'x') + "\r\n", 14) + string(99, 'x') + "\r\nOK\r\n", 0},
      {repeated(string(100, 'x') + "\r\n", 15) + "OK\r\n", 1},
      {repeated(string(100, 'x') + "\r\n", 50) + "OK\r\n", 1},
  };
  for (const auto& [answer, too_long] : cases) {
    modem_line line(at_random(1));
    line.send("AT+CLAC\r");
    line.say(answer);
    EXPECT_EQ(line.answers_too_long(), too_long) << answer.size();
  }
}

}  // namespace
