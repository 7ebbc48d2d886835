// SPDX-License-Identifier: Apache-2.0

// Cuts both streams into lines for the masking.
//
// A prompt has no end and comes out at once: the host answers it.
#include "tools/mdxtap/masker.h"

namespace mdxtap {
namespace {

constexpr size_t kLongestLine = 8192;
constexpr std::string_view kPrompt = "> ";
constexpr char kCtrlZ = '\x1a';
constexpr char kEscape = '\x1b';

}  // namespace

// True when the line has ended and is to be shown whole. Of one that is too long nothing but its
// beginning is kept, and the rest is masked as it comes.
bool Masker::take(Side& side, char c, bool ends, std::string& out, bool from_host) {
  if (ends) {
    if (!side.too_long) return true;
    out += from_host ? release_host() : release_modem();
    side = {};
    out += c;
    return false;
  }
  side.line += c;
  if (side.line.size() < kLongestLine) return false;
  out += from_host ? release_host() : release_modem();
  side.too_long = true;
  side.line.clear();
  side.shown = 0;
  return false;
}

std::string Masker::from_host(std::string_view bytes) {
  std::string out;
  if (modem_.line == kPrompt.substr(0, 1)) lines_.prompt_began();
  for (const char c : bytes) {
    const bool ends = c == '\r' || c == '\n' || c == kCtrlZ || c == kEscape;
    if (!take(host_, c, ends, out, true)) continue;
    out += lines_.host_line(host_.line, c).substr(host_.shown);
    out += c;
    host_ = {};
  }
  return out;
}

std::string Masker::from_modem(std::string_view bytes) {
  std::string out;
  for (const char c : bytes) {
    if (!take(modem_, c, c == '\r' || c == '\n', out, false)) continue;
    out += lines_.modem_line(modem_.line).substr(modem_.shown);
    out += c;
    modem_ = {};
  }
  if (modem_.line == kPrompt && !modem_.too_long) {
    out += lines_.modem_line(kPrompt).substr(modem_.shown);
    modem_ = {};
  }
  return out;
}

void Masker::hung_up() {
  host_ = modem_ = {};
  lines_.hung_up();
}

std::string Masker::release_host() {
  std::string out = lines_.part_of_host_line(host_.line).substr(host_.shown);
  host_.shown = host_.line.size();
  if (host_.too_long) host_.line.clear(), host_.shown = 0;
  return out;
}

std::string Masker::release_modem() {
  std::string out = lines_.part_of_modem_line(modem_.line).substr(modem_.shown);
  modem_.shown = modem_.line.size();
  if (modem_.too_long) modem_.line.clear(), modem_.shown = 0;
  return out;
}

}  // namespace mdxtap
