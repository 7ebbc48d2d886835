// SPDX-License-Identifier: Apache-2.0

#include "tools/words/refusal.h"

#include "client/mdxsms.h"

namespace {

struct word_t {
  int number;
  const char* text;
};

// 3GPP TS 27.007, 9.2: those that an owner can do something about.
// clang-format off
constexpr word_t kWords[] = {
    {3,   "not allowed now"                              },
    {4,   "not supported"                                },
    {10,  "no SIM is inserted"                           },
    {11,  "the SIM wants its PIN"                        },
    {12,  "the SIM wants its PUK"                        },
    {13,  "the SIM does not work"                        },
    {14,  "the SIM is busy"                              },
    {15,  "this SIM will not do"                         },
    {16,  "the password is wrong"                        },
    {17,  "the SIM wants its PIN2"                       },
    {18,  "the SIM wants its PUK2"                       },
    {20,  "the memory is full"                           },
    {21,  "there is nothing of that number"              },
    {22,  "it was not found"                             },
    {30,  "there is no network"                          },
    {31,  "the network took too long"                    },
    {32,  "the network allows emergency calls only"      },
    {50,  "a value is wrong"                             },
    {100, "the modem does not say why"                   },
    {103, "the network refuses this device or card"      },
    {107, "the network does not offer it"                },
    {111, "the network does not let this card in"        },
    {112, "the network does not let this card in here"   },
    {113, "roaming is not allowed here"                  },
};
// clang-format on

const char* words_of(int number) {
  for (const word_t& word : kWords)
    if (word.number == number) return word.text;
  return nullptr;
}

}  // namespace

std::string refusal_with_words(const std::string& text) {
  const std::string cme = "+CME ERROR: ";
  const char* words = nullptr;
  if (text.starts_with(cme)) {
    const std::string number = text.substr(cme.size());
    const bool is_number = !number.empty() && number.size() <= 4 &&
                           number.find_first_not_of("0123456789") == std::string::npos;
    if (is_number) words = words_of(std::stoi(number));
  } else if (text.starts_with("+CMS ERROR: ")) {
    words =
        mdx_sms_error_text(mdx_sms_error_number(text.data(), static_cast<uint32_t>(text.size())));
  }
  return words == nullptr ? text : text + ", " + words;
}
