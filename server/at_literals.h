// Which row of a table of literals does a line hold? One pass over the line answers for all of
// them.
//
// Every literal has at least four bytes. So the line is skimmed, sixteen bytes at a time, for
// places where a literal could start; only there four bytes are looked up in a small hash of the
// literals' heads, and the rows that share this head are compared in full. When several rows occur
// in a line the lowest wins, as if the table had been searched from the top with strstr. All of
// this is arranged from the rows while compiling: the table stays the only place to edit.
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

/// The literals of the table `rows`, arranged for the search. Each row has a `literal`, the last
/// row's is null.
template <const auto& rows>
class at_literals {
 public:
  /// @return the lowest row that `line` holds, -1 when it holds none
  static int32_t find(std::string_view line) {
    size_t lowest = kRows;
    if (line.size() <= kStep) {
      char whole[kStep + 1] = {};
      std::memcpy(whole, line.data(), line.size());
      compare(line, 0, starts_within(whole), &lowest);
    } else {
      const size_t last = line.size() - kStep - 1;
      for (size_t place = 0; place < last; place += kStep) {
        compare(line, place, starts_within(line.data() + place), &lowest);
      }
      compare(line, last, starts_within(line.data() + last), &lowest);
    }
    return lowest == kRows ? -1 : static_cast<int32_t>(lowest);
  }

  /// A row whose literal holds an earlier row's literal can never be the lowest, so it is
  /// never found.
  static constexpr bool is_hidden(size_t row) {
    for (size_t earlier = 0; earlier < row; ++earlier) {
      if (literal(row).find(literal(earlier)) != std::string_view::npos) return true;
    }
    return false;
  }

 private:
  static constexpr size_t kRows = std::size(rows) - 1;
  static constexpr size_t kHead = 4;     // bytes of a literal that are hashed
  static constexpr size_t kStep = 16;    // bytes of a line that are skimmed at once
  static constexpr size_t kSlots = 512;  // many for few heads, so that no two share one
  static constexpr uint8_t kEmpty = 0xff;

  using bytes_t = uint8_t __attribute__((vector_size(kStep)));
  using places_t = std::array<uint64_t, kStep / sizeof(uint64_t)>;
  static_assert(std::endian::native == std::endian::little, "the first place is the lowest byte");

  /// How a literal starts. A sign is rare in a line, a letter is not: there the second byte counts
  /// too.
  struct start_t {
    char first;
    char second;  // 0 for any
    constexpr bool operator==(const start_t&) const = default;
  };

  struct plan_t {
    std::array<uint8_t, kRows> order;   // rows by head; rows of one head in the table's order
    std::array<uint8_t, kSlots> first;  // where in `order` the rows of a head begin
    uint32_t factor;                    // of the hash
    std::array<start_t, kRows> starts;
    size_t start_count;
    size_t order_count;
  };

  static constexpr std::string_view literal(size_t row) { return rows[row].literal; }

  static constexpr uint32_t head_of(const char* text) {
    uint32_t head = 0;
    for (size_t i = 0; i < kHead; ++i) {
      head |= static_cast<uint32_t>(static_cast<uint8_t>(text[i])) << (8 * i);
    }
    return head;
  }

  static constexpr size_t slot_of(uint32_t head, uint32_t factor) { return head * factor >> 23; }

  static constexpr void add_start(plan_t* plan, std::string_view text) {
    const bool is_letter = text[0] >= 'A' && text[0] <= 'Z';
    const start_t start = {text[0], is_letter ? text[1] : '\0'};
    for (size_t i = 0; i < plan->start_count; ++i) {
      if (plan->starts[i] == start) return;
    }
    plan->starts[plan->start_count++] = start;
  }

  static constexpr bool fill_slots(plan_t* plan) {
    plan->first.fill(kEmpty);
    uint32_t before = 0;
    for (size_t i = 0; i < plan->order_count; ++i) {
      const uint32_t head = head_of(literal(plan->order[i]).data());
      if (head == before) continue;
      before = head;
      uint8_t& slot = plan->first[slot_of(head, plan->factor)];
      if (slot != kEmpty) return false;
      slot = static_cast<uint8_t>(i);
    }
    return true;
  }

  static constexpr plan_t arrange() {
    plan_t plan = {};
    for (size_t row = 0; row < kRows; ++row) {
      if (is_hidden(row)) continue;
      plan.order[plan.order_count++] = static_cast<uint8_t>(row);
      add_start(&plan, literal(row));
    }
    std::sort(plan.order.begin(), plan.order.begin() + plan.order_count, [](uint8_t a, uint8_t b) {
      const uint32_t head_a = head_of(literal(a).data());
      const uint32_t head_b = head_of(literal(b).data());
      return head_a != head_b ? head_a < head_b : a < b;
    });
    for (plan.factor = 0x9E3779B1; !fill_slots(&plan); plan.factor += 2) {
    }
    return plan;
  }

  static constexpr plan_t kPlan = arrange();

  template <size_t... start>
  static auto hits(const bytes_t& here, const bytes_t& next, std::index_sequence<start...>) {
    return (hit<start>(here, next) | ...);
  }

  template <size_t start>
  static auto hit(const bytes_t& here, const bytes_t& next) {
    constexpr start_t kStart = kPlan.starts[start];
    auto found = here == static_cast<uint8_t>(kStart.first);
    if constexpr (kStart.second != '\0') found &= next == static_cast<uint8_t>(kStart.second);
    return found;
  }

  /// The first kStep places where a literal could start, a byte each; reads one byte more.
  static places_t starts_within(const char* text) {
    bytes_t here;
    bytes_t next;
    std::memcpy(&here, text, kStep);
    std::memcpy(&next, text + 1, kStep);
    const auto found = hits(here, next, std::make_index_sequence<kPlan.start_count>());
    places_t places;
    std::memcpy(&places, &found, sizeof(places));
    return places;
  }

  /// Lowers `*lowest` to the lowest row that stands at one of these places, counted from `place`.
  static void compare(std::string_view line, size_t place, places_t places, size_t* lowest) {
    if ((places[0] | places[1]) == 0) return;
    for (uint64_t eight : places) {
      while (eight != 0) {
        const auto byte = static_cast<size_t>(std::countr_zero(eight)) / 8;
        compare_at(line, place + byte, lowest);
        eight &= ~(uint64_t{0xff} << 8 * byte);
      }
      place += sizeof(eight);
    }
  }

  static void compare_at(std::string_view line, size_t place, size_t* lowest) {
    if (place + kHead > line.size()) return;
    const uint32_t head = head_of(line.data() + place);
    for (size_t i = kPlan.first[slot_of(head, kPlan.factor)]; i < kPlan.order_count; ++i) {
      const size_t row = kPlan.order[i];
      if (row >= *lowest || head_of(literal(row).data()) != head) return;
      const std::string_view rest(line.data() + place, line.size() - place);
      if (rest.starts_with(literal(row))) *lowest = row;
    }
  }
};
