// SPDX-License-Identifier: Apache-2.0

// Two streams through the recorder's masking, torn and let go anywhere: as many bytes come out as
// went in, and what is a control character stays one. What the host sets as PIN behind it, and what
// the modem echoes, is nowhere.

#include "fuzz/fuzz.h"
#include "tools/mdxtap/masker.h"

namespace {

void require_same_shape(const std::string& plain, const std::string& shown) {
  fuzz::require(plain.size() == shown.size());
  for (size_t i = 0; i < plain.size(); ++i)
    fuzz::require(static_cast<unsigned char>(plain[i]) > ' ' || plain[i] == shown[i]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::input input(data, size);
  mdxtap::Masker masker{mdxtap::StandIn({1, 2})};
  std::string fed[2];
  std::string got[2];
  while (!input.empty()) {
    const bool host = input.byte() % 2 == 0;
    const std::string piece = input.piece('~');
    fed[host] += piece;
    got[host] += host ? masker.from_host(piece) : masker.from_modem(piece);
    if (piece.size() % 8 == 0) got[host] += host ? masker.release_host() : masker.release_modem();
  }
  got[1] += masker.release_host();
  got[0] += masker.release_modem();
  constexpr char kSecret[] = "Xq7Zk2Wv";
  const std::string command = std::string("\rAT+CPIN=\"") + kSecret + "\"\r";
  const bool known = (fed[0] + '\n' + fed[1]).find(kSecret) != std::string::npos;
  fed[1] += command;
  got[1] += masker.from_host(command);
  fed[0] += command;
  got[0] += masker.from_modem(command) + masker.release_modem();
  got[1] += masker.release_host();
  require_same_shape(fed[0], got[0]);
  require_same_shape(fed[1], got[1]);
  fuzz::require(known || (got[0] + '\n' + got[1]).find(kSecret) == std::string::npos);
  return 0;
}
