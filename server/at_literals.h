// SPDX-License-Identifier: Apache-2.0

// Which rows of the server's tables of literals does a line hold? One look at the line answers for
// all tables.
//
// Every literal has a byte that is rare in what modems say: a sign, or one of two letters. So the
// line is skimmed for these bytes, sixteen at a time; only where one stands, four bytes are looked
// up in a small hash of the literals' heads, and the rows that share this head are compared in
// full. When several rows of a table occur in a line the lowest wins, as if the table had been
// searched from the top with strstr. All of this is arranged from the tables while compiling: they
// stay the only places to edit.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

/// What a table's row is found by: its `literal`, or its `text`. Null in the last row.
constexpr const char* at_row_text(const auto& row) {
  if constexpr (requires { row.text; }) {
    return row.text;
  } else {
    return row.literal;
  }
}

/// The literals of some tables, arranged for the search; each has at least four bytes.
template <const auto&... tables>
class at_literals {
 public:
  /// A row of each table, in the order of the tables; -1 where the line holds none.
  using rows_t = std::array<int32_t, sizeof...(tables)>;

  /// @return the lowest row of each table that `line` holds
  static rows_t find(std::string_view line) {
    static_assert(every_literal_has_its_rare_byte_in_place());
    rows_t lowest;
    lowest.fill(-1);
    char whole_line[kStep] = {};
    const char* text = line.data();
    if (line.size() < kStep) {
      std::memcpy(whole_line, text, line.size());
      text = whole_line;
    }
    const size_t last = std::max(line.size(), kStep) - kStep;
    for (size_t place = 0;; place = std::min(place + kStep, last)) {
      const hits_t hits = rare_bytes(text + place);
      if ((hits[0] | hits[1]) != 0) look_up(line, place, hits, &lowest);
      if (place == last) return lowest;
    }
  }

  /// A row whose literal holds an earlier row's can never be the lowest.
  static constexpr bool is_hidden(const auto& rows, size_t row) {
    const std::string_view literal = at_row_text(rows[row]);
    return std::any_of(rows, rows + row, [literal](const auto& earlier) {
      return literal.find(at_row_text(earlier)) != literal.npos;
    });
  }

 private:
  static constexpr std::string_view kRareBytes = "^+XN";
  static constexpr size_t kStep = 16;  // bytes of a line that are skimmed at once
  static constexpr size_t kHead = 4;   // bytes of a literal that are hashed
  static constexpr size_t kBuckets = 64;
  static constexpr size_t kRows = ((std::size(tables) - 1) + ...);
  static_assert(kRows < 0xff);

  using bytes_t = uint8_t __attribute__((vector_size(kStep)));
  using hits_t = std::array<uint64_t, kStep / sizeof(uint64_t)>;

  struct entry_t {
    uint8_t length;
    uint8_t table;
    uint8_t row;
    uint16_t text;  // where it begins in the plan's texts
  };

  static constexpr size_t size_of_all(const auto& rows) {
    size_t size = 0;
    for (size_t row = 0; at_row_text(rows[row]) != nullptr; ++row) {
      size += std::string_view(at_row_text(rows[row])).size();
    }
    return size;
  }
  static constexpr size_t kTexts = (size_of_all(tables) + ...);

  struct plan_t {
    std::array<entry_t, kRows> entries;  // by bucket
    std::array<uint8_t, kBuckets + 1>
        first;                       // of a bucket's entries; they end where the next's begin
    std::array<uint8_t, 32> place;   // of a rare byte, by its low bits, in the literals it leads to
    size_t count;                    // of the entries
    std::array<char, kTexts> texts;  // the literals, so that no pointer leads to them
  };

  static constexpr uint32_t head_of(const char* text) {
    const auto byte = [text](int i) { return uint32_t{static_cast<uint8_t>(text[i])} << (8 * i); };
    return byte(0) | byte(1) | byte(2) | byte(3);
  }

  static constexpr size_t bucket_of(uint32_t head) {
    constexpr uint32_t kSpread = 0x9E3779B1;
    return head * kSpread >> (32 - std::bit_width(kBuckets - 1));
  }

  static constexpr size_t place_index(char rare) { return static_cast<uint8_t>(rare) % 32; }

  static constexpr void add_table(plan_t* plan, uint8_t table, const auto& rows) {
    for (uint8_t row = 0; at_row_text(rows[row]) != nullptr; ++row) {
      if (is_hidden(rows, row)) continue;
      const std::string_view literal = at_row_text(rows[row]);
      plan->entries[plan->count++] = {static_cast<uint8_t>(literal.size()), table, row, 0};
    }
  }

  static constexpr std::string_view in_table(const entry_t& entry) {
    const char* literal = nullptr;
    uint8_t table = 0;
    ((literal = table++ == entry.table ? at_row_text(tables[entry.row]) : literal), ...);
    return {literal, entry.length};
  }

  static constexpr size_t bucket_of(const entry_t& entry) {
    return bucket_of(head_of(in_table(entry).data()));
  }

  static constexpr plan_t arrange() {
    plan_t plan = {};
    uint8_t table = 0;
    (add_table(&plan, table++, tables), ...);
    std::sort(plan.entries.begin(), plan.entries.begin() + plan.count,
              [](const entry_t& a, const entry_t& b) { return bucket_of(a) < bucket_of(b); });
    size_t end = 0;  // of the texts
    for (size_t i = 0; i < plan.count; ++i) {
      const std::string_view literal = in_table(plan.entries[i]);
      std::copy(literal.begin(), literal.end(), plan.texts.begin() + end);
      plan.entries[i].text = static_cast<uint16_t>(end);
      end += literal.size();
      const size_t rare = literal.find_first_of(kRareBytes);
      if (rare != literal.npos) plan.place[place_index(literal[rare])] = static_cast<uint8_t>(rare);
      for (size_t bucket = bucket_of(plan.entries[i]); bucket < kBuckets; ++bucket) {
        ++plan.first[bucket + 1];
      }
    }
    return plan;
  }

  static constexpr plan_t kPlan = arrange();

  static constexpr std::string_view literal_of(const entry_t& entry) {
    return {kPlan.texts.data() + entry.text, entry.length};
  }

  static constexpr bool every_literal_has_its_rare_byte_in_place() {
    return std::all_of(kPlan.entries.begin(), kPlan.entries.begin() + kPlan.count,
                       [](const entry_t& entry) {
                         const std::string_view literal = literal_of(entry);
                         const size_t rare = literal.find_first_of(kRareBytes);
                         return literal.size() >= kHead && rare != literal.npos &&
                                kPlan.place[place_index(literal[rare])] == rare;
                       });
  }

  template <size_t... rare>
  static auto equal_to_one(const bytes_t& bytes, std::index_sequence<rare...>) {
    return ((bytes == static_cast<uint8_t>(kRareBytes[rare])) | ...);
  }

  /// Of kStep bytes those that are rare: 0xff in their places, the first the lowest byte.
  static hits_t rare_bytes(const char* text) {
    bytes_t bytes;
    std::memcpy(&bytes, text, kStep);
    const auto found = equal_to_one(bytes, std::make_index_sequence<kRareBytes.size()>());
    hits_t hits;
    std::memcpy(&hits, &found, sizeof(hits));
    if constexpr (std::endian::native == std::endian::big) {
      for (uint64_t& eight : hits) eight = __builtin_bswap64(eight);
    }
    return hits;
  }

  /// Lowers `*lowest` by the rows that have a rare byte at one of these places, counted from
  /// `place`.
  static void look_up(std::string_view line, size_t place, hits_t hits, rows_t* lowest) {
    for (uint64_t eight : hits) {
      while (eight != 0) {
        const auto byte = static_cast<size_t>(std::countr_zero(eight)) / 8;
        const size_t rare = place + byte;
        const size_t before = kPlan.place[place_index(line[rare])];
        if (rare >= before) {
          const size_t start = rare - before;
          compare({line.data() + start, line.size() - start}, lowest);
        }
        eight &= ~(uint64_t{0xff} << 8 * byte);
      }
      place += sizeof(eight);
    }
  }

  /// Lowers `*lowest` by the rows that `text` starts with.
  static void compare(std::string_view text, rows_t* lowest) {
    if (text.size() < kHead) return;
    const uint32_t head = head_of(text.data());
    const size_t bucket = bucket_of(head);
    for (size_t i = kPlan.first[bucket]; i < kPlan.first[bucket + 1]; ++i) {
      const entry_t& entry = kPlan.entries[i];
      const std::string_view literal = literal_of(entry);
      if (head_of(literal.data()) != head) continue;
      int32_t& row = (*lowest)[entry.table];
      const bool is_lower = row == -1 || entry.row < row;
      if (is_lower && text.starts_with(literal)) row = entry.row;
    }
  }
};
