// SPDX-License-Identifier: Apache-2.0

// Gives the parameters of a report their names.
//
// A report line holds values by position alone. The table says which position carries which name;
// where a report has more than one form, the line itself tells which one it is. Nodes, names and
// values leave in one block, so that a chain costs one allocation and one release.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "platform/at_fields.h"
#include "platform/fields/parameters.h"
#include "platform/joined_texts.h"

namespace {

using namespace std::string_view_literals;

constexpr size_t kMostNames = 9;

/// How the parameters of a line are read: the functions of parameters.h.
enum reader_t : uint8_t { line, comma, pdu, ussd };

/// Which lines a row is for: those with one parameter, with six, with the IP type in fifth place.
enum form_t : uint8_t { any, one, six, fifth };

struct field_row_t {
  char prefix[13];
  reader_t reader;
  form_t form;
  const char* names;  ///< by position, a blank between two
};

/// The name of a parameter that makes no field.
constexpr std::string_view kNoField = "-";

// Rows of one prefix stand together and are tried from the top: a form that only some lines have
// comes before the one that all the others have. The network's time is two fields, date and time,
// whether the modem quotes the pair or not.
// clang-format off
constexpr field_row_t field_table[] = {
    {"^SYSINFO",     line,  six,   "srv_status srv_domain roam_status sys_mode sim_state sys_submode"},
    {"^SYSINFO",     line,  any,   "srv_status srv_domain roam_status sys_mode sim_state lock_state sys_submode"},
    {"^SRVST",       line,  any,   "srv_status"},
    {"^MODE",        line,  any,   "sys_mode sys_submode"},
    {"^SIMST",       line,  any,   "sim_state lock_state"},
    {"^SIMREFRESH",  line,  any,   "file_type"},
    {"^ANLEVEL",     line,  one,   "level"},
    {"^ANLEVEL",     line,  any,   "rscp ecio rssi level rsrp rsrq"},
    {"^LTESIGLEV",   line,  any,   "level"},
    {"^HCSQ",        line,  any,   "sysmode value1 value2 value3 value4 value5"},
    {"^HFREQINFO",   line,  any,   "switch sysmode band_class dl_fcn1 dl_freq1 dl_bw1 ul_fcn1 ul_freq1 ul_bw1"},
    {"^NWTIME",      comma, any,   "date time dst"},
    {"^APROAMRPT",   line,  any,   "roaming_status"},
    {"^REJINFO",     line,  any,   "plmnid srvdomain rejectcause rattype"},
    {"^DCONN",       line,  any,   "cid pdp_type"},
    {"^DEND",        line,  any,   "cid endCause pdp_type"},
    {"^APDIALUPRPT", line,  any,   ""},
    {"^NDISSTAT",    line,  fifth, "- stat err_code wx_state PDP_type"},
    {"^NDISSTAT",    line,  any,   "stat err_code wx_state PDP_type"},
    {"^NDISSTATEX",  line,  any,   "cid stat err_code wx_state PDP_type"},
    {"^DSFLOWRPT",   line,  any,   "curr_ds_time tx_rate rx_rate curr_tx_flow curr_rx_flow qos_tx_rate qos_rx_rate"},
    {"^TEMPPRT",     line,  any,   "tempprotect_event tempprotect_param"},
    {"^WAKEUPIN",    line,  any,   "value"},
    {"+CMT",         pdu,   one,   "length"},
    {"+CMT",         pdu,   any,   "alpha length"},
    {"+CDS",         pdu,   any,   "length"},
    {"+CBM",         pdu,   any,   "length"},
    {"+CMTI",        line,  any,   "mem index"},
    {"+CDSI",        line,  any,   "mem index"},
    {"^HCMGSS",      line,  any,   "mr"},
    {"^HCMGSF",      line,  any,   "errCode class"},
    {"^SMMEMFULL",   line,  any,   "mem_type"},
    {"+CUSD",        ussd,  any,   "rspType cusdStr codeType"},
    {"^STIN",        line,  any,   "cmdTpye cmdIndex isTimeOut"},
    {"+CIREGU",      line,  any,   "reg_info ext_info"},
    {"+CSSI",        line,  any,   "code index"},
    {"+CSSU",        line,  any,   "code index"},
};
// clang-format on

constexpr bool every_special_form_has_a_row_behind_it() {
  for (size_t i = 0; i < std::size(field_table); ++i) {
    if (field_table[i].form == any) continue;
    if (i + 1 == std::size(field_table)) return false;
    if (std::string_view(field_table[i].prefix) != field_table[i + 1].prefix) return false;
  }
  return true;
}
static_assert(every_special_form_has_a_row_behind_it());

constexpr bool every_row_has_room_for_its_names() {
  return std::all_of(std::begin(field_table), std::end(field_table), [](const field_row_t& row) {
    const std::string_view names = row.names;
    if (names.starts_with(' ') || names.ends_with(' ')) return false;
    if (names.find("  ") != names.npos) return false;
    return std::count(names.begin(), names.end(), ' ') < static_cast<ptrdiff_t>(kMostNames);
  });
}
static_assert(every_row_has_room_for_its_names());
static_assert(kMostNames <= parameter_list_t::kMost);

constexpr auto names_of_rows = [] {
  std::array<const char*, std::size(field_table)> names = {};
  for (size_t i = 0; i < names.size(); ++i) names[i] = field_table[i].names;
  return names;
}();
constexpr auto joined_names = join_texts<names_of_rows>();

/// A row of the table as it is searched: without a pointer.
struct found_row_t {
  char prefix[sizeof(field_row_t::prefix)];
  reader_t reader : 4;
  form_t form : 4;
  uint16_t names;  ///< where they begin in joined_names
};
constexpr auto found_table = [] {
  std::array<found_row_t, std::size(field_table)> rows = {};
  size_t names = 0;
  for (size_t i = 0; i < rows.size(); ++i) {
    std::copy(std::begin(field_table[i].prefix), std::end(field_table[i].prefix), rows[i].prefix);
    rows[i].reader = field_table[i].reader;
    rows[i].form = field_table[i].form;
    rows[i].names = static_cast<uint16_t>(names);
    names += std::string_view(field_table[i].names).size() + 1;
  }
  return rows;
}();

/// The fields of one line on their way into a block.
struct named_values_t {
  struct {
    std::string_view name;
    std::string_view value;
  } fields[kMostNames + 1];
  size_t count = 0;
  size_t text_size = 0;  ///< bytes of all names and values, each with its NUL

  void add(std::string_view name, std::string_view value) {
    fields[count++] = {name, value};
    text_size += name.size() + value.size() + 2;
  }
};

const found_row_t* row_of(const char* prefix) {
  for (const found_row_t& row : found_table) {
    if (std::strcmp(row.prefix, prefix) == 0) return &row;
  }
  return nullptr;
}

void read(reader_t reader, const char* text, parameter_list_t& list) {
  switch (reader) {
    case line:
      return read_parameters(text, list);
    case comma:
      return read_at_every_comma(text, list);
    case pdu:
      return read_with_pdu(text, list);
    case ussd:
      return read_ussd(text, list);
  }
}

bool is_ip_type(std::string_view value) {
  return value.size() >= 2 && At_strncasecmp(value.data(), "IP", 2) == 0;
}

bool has_form(const parameter_list_t& list, form_t form) {
  switch (form) {
    case one:
      return list.count == 1;
    case six:
      return list.count == 6;
    case fifth:
      return is_ip_type(list.at(4)) && !is_ip_type(list.at(3));
    case any:
      break;
  }
  return true;
}

std::string_view take_word(std::string_view* text) {
  const std::string_view word(text->data(), std::min(text->size(), text->find(' ')));
  text->remove_prefix(std::min(text->size(), word.size() + 1));
  return word;
}

named_values_t name_values(const found_row_t* row, const parameter_list_t& list) {
  while (!has_form(list, row->form)) ++row;
  named_values_t named;
  std::string_view rest = joined_names.data() + row->names;
  for (size_t i = 0; i < kMostNames && i < list.count && !rest.empty(); ++i) {
    const std::string_view name = take_word(&rest);
    if (name != kNoField) named.add(name, list.values[i]);
  }
  if (!list.pdu.empty()) named.add("pdu"sv, list.pdu);
  return named;
}

/// Puts a text and its NUL at `*end`. @return where it stands
const char* put_text(char** end, std::string_view text) {
  char* start = *end;
  std::memcpy(start, text.data(), text.size());
  start[text.size()] = '\0';
  *end += text.size() + 1;
  return start;
}

/// Nodes first, their texts behind them. Null when there is no memory.
at_field_t* build_chain(const named_values_t& named) {
  void* block = std::malloc(named.count * sizeof(at_field_t) + named.text_size);
  if (block == nullptr) return nullptr;
  auto* nodes = static_cast<at_field_t*>(block);
  auto* text = reinterpret_cast<char*>(nodes + named.count);
  for (size_t i = 0; i < named.count; ++i) {
    const char* name = put_text(&text, named.fields[i].name);
    const char* value = put_text(&text, named.fields[i].value);
    nodes[i] = {name, value, 0, i + 1 < named.count ? &nodes[i + 1] : nullptr};
  }
  return nodes;
}

}  // namespace

int at_cmd_parse(at_field_t** chain, const char* prefix, const char* text, int, int) {
  if (chain == nullptr || prefix == nullptr || text == nullptr) return -1;
  const found_row_t* row = row_of(prefix);
  if (row == nullptr) return -1;
  const char* parameters = find_parameters(text, prefix);
  if (parameters == nullptr) return -1;

  parameter_list_t list;
  read(row->reader, parameters, list);
  const named_values_t named = name_values(row, list);
  if (named.count == 0) return 0;
  at_field_t* built = build_chain(named);
  if (built == nullptr) return -1;
  *chain = built;
  return 0;
}

void free_at_cmd(at_field_t* chain) { std::free(chain); }
