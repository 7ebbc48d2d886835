// SPDX-License-Identifier: Apache-2.0

#include "tools/mdxctl/sms_news.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "wire/destinations.h"
#include "wire/report_records.h"

namespace {

// The report that a record came from.
constexpr int64_t kStored = 0;        // +CMTI
constexpr int64_t kWhole = 1;         // +CMT
constexpr int64_t kStoredReport = 2;  // +CDSI
constexpr int64_t kWholeReport = 3;   // +CDS

struct record_t {
  std::map<std::string, int64_t> numbers;
  std::map<std::string, std::string> texts;
};

record_t read_record(const mdx_packet_t& packet) {
  record_t record;
  mdx_field_t field = MDX_FIELD_INIT;
  for (uint32_t i = 0; mdx_packet_field(&packet, i, &field) == MDX_OK; ++i) {
    if (field.kind == MDX_FIELD_NUMBER) record.numbers[field.name] = field.number;
    if (field.kind == MDX_FIELD_UNSIGNED) {
      record.numbers[field.name] = static_cast<int64_t>(field.unsigned_number);
    }
    if (field.kind == MDX_FIELD_TEXT) {
      record.texts[field.name].assign(static_cast<const char*>(field.data), field.length);
    }
  }
  return record;
}

/// A message that was handed over wants to be acknowledged where the modem is set so, else the
/// network sends it again. Who does that twice hears an error, and nothing else happens.
void acknowledge(sms_store_t& store) {
  const std::vector<std::string> service = values_behind(store.ask("AT+CSMS?").text, "+CSMS:");
  if (!service.empty() && service[0] == "1") store.ask("AT+CNMA");
}

sms_news_t fetch(sms_store_t& store, const std::string& memory, int64_t index) {
  sms_news_t news;
  const std::string place = memory + " " + std::to_string(index);
  if (index < 0) {
    news.problem = "a message came, and the modem had no place for it (" + place +
                   "): delete some with: mdxctl sms delete";
    return news;
  }
  const std::string before = store.memory();
  store.use_memory(memory);
  const size_t errors = store.errors().size();
  const bool there = store.read(static_cast<int>(index), &news.entry);
  store.use_memory(before);
  news.memory = memory;
  if (there) return news;
  news.problem = store.errors().size() > errors
                     ? store.errors().back()
                     : "a message came, and somebody deleted it before it was read (" + place + ")";
  return news;
}

}  // namespace

// +CNMI: <mode>,<messages>,<broadcasts>,<reports>,<buffer>
std::string turn_on_news(sms_store_t& store, sms_news_kind_t kind) {
  std::vector<std::string> values = values_behind(store.ask("AT+CNMI?").text, "+CNMI:");
  if (values.size() < 4) return "";
  const auto command = [](const std::vector<std::string>& settings) {
    std::string text;
    for (const std::string& value : settings) text += (text.empty() ? "AT+CNMI=" : ",") + value;
    return text;
  };
  std::string before = command(values);
  const auto place = static_cast<size_t>(kind);
  if (values[0] != "0" && values[place] != "0") return "";
  if (values[0] == "0") values[0] = "2";
  if (values[place] != "0") {
    store.get(command(values));
    return before;
  }
  // Reports in the modem's memory are the second choice: not every modem has a place for them.
  values[place] = "1";
  if (store.ask(command(values)).ok()) return before;
  values[place] = "2";
  if (store.ask(command(values)).ok()) return before;
  values[0] = "1";
  values[place] = "1";
  if (store.ask(command(values)).ok()) return before;
  throw sms_failure_t(EXIT_MODEM_ERROR,
                      "the modem cannot be told to report that, see what AT+CNMI=? offers");
}

std::optional<sms_news_t> take_news(sms_store_t& store, const mdx_packet_t& packet) {
  if (packet.kind != MDX_KIND_NOTIFICATION || packet.module != NOTIFY_MODULE_1 ||
      packet.type != EVT_AT_SMS_NEW) {
    return std::nullopt;
  }
  record_t record = read_record(packet);
  const int64_t report = record.numbers["id"];
  if (packet.length == sizeof(at_sms_index_info)) {
    if (report != kStored && report != kStoredReport) return std::nullopt;
    return fetch(store, record.texts["mem"], record.numbers["index"]);
  }
  if (report != kWhole && report != kWholeReport) return std::nullopt;
  const std::string& pdu = record.texts["pdu"];
  const std::string digits = pdu.substr(0, pdu.find_first_not_of("0123456789ABCDEFabcdef"));
  sms_news_t news;
  news.entry = read_entry(digits, static_cast<uint32_t>(record.numbers["length"]));
  acknowledge(store);
  return news;
}
