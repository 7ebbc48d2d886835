// SPDX-License-Identifier: Apache-2.0

// The numbers of errors and status reports in words: 3GPP TS 27.005, 3.2.5, with what it takes from
// 24.011 (E.2) and 23.040 (9.2.3.22), and 23.040, 9.2.3.15.

#include "client/mdxsms.h"

namespace {

struct word_row_t {
  int32_t number;
  const char* text;
};

// clang-format off
constexpr word_row_t kErrors[] = {
  {1,   "the number is not assigned"                              },
  {8,   "the operator bars this SIM"                              },
  {10,  "calls are barred"                                        },
  {21,  "the network rejected the message"                        },
  {27,  "the receiver is out of service"                          },
  {28,  "the receiver is not known"                               },
  {29,  "the receiver's network rejected the message"             },
  {30,  "the network does not know this SIM"                      },
  {38,  "the network is out of order"                             },
  {41,  "the network failed for a moment: try again"              },
  {42,  "the network is congested: try again later"               },
  {47,  "the network has no room left: try again later"           },
  {50,  "this SIM has no subscription for text messages"          },
  {69,  "the network does not know text messages"                 },
  {81,  "the network does not know the message's reference"       },
  {95,  "the network took the message for wrong"                  },
  {96,  "the network misses a part of the message"                },
  {97,  "the network does not know this kind of message"          },
  {98,  "the message does not fit the state of the protocol"      },
  {99,  "the network does not know a part of the message"         },
  {111, "a protocol error that the network does not tell"         },
  {127, "the networks do not work together, and do not say why"   },
  {128, "the receiver takes no such message"                      },
  {129, "the receiver takes no message of this type"              },
  {130, "the receiver takes no message that replaces another"     },
  {143, "the protocol was refused"                                },
  {144, "the alphabet or class was refused"                       },
  {145, "messages of this class were refused"                     },
  {159, "the coding scheme was refused"                           },
  {175, "the command was refused"                                 },
  {176, "the message was refused"                                 },
  {192, "the service centre is busy: try again later"             },
  {193, "there is no subscription at the service centre"          },
  {194, "the service centre has a failure"                        },
  {195, "the service centre does not know the number"             },
  {196, "the receiver is barred"                                  },
  {197, "the same message was rejected before"                    },
  {198, "the validity period was refused"                         },
  {208, "the SIM has no room left: delete messages"               },
  {209, "the SIM cannot store messages"                           },
  {210, "an error in the phone"                                   },
  {211, "the phone has no memory left"                            },
  {212, "the SIM's applications are busy"                         },
  {255, "an error that is not told"                               },
  {300, "the modem failed"                                        },
  {301, "the modem reserves messages for itself"                  },
  {302, "the modem does not allow that now"                       },
  {303, "the modem does not support that"                         },
  {304, "the modem takes the PDU for wrong, or is in text mode"   },
  {305, "the modem takes the text for wrong, or is in text mode"  },
  {310, "no SIM is inserted"                                      },
  {311, "the SIM wants its PIN"                                   },
  {312, "the SIM works in another phone only"                     },
  {313, "the SIM failed"                                          },
  {314, "the SIM is busy: try again"                              },
  {315, "the SIM is the wrong one"                                },
  {316, "the SIM wants its PUK"                                   },
  {317, "the SIM wants its PIN2"                                  },
  {318, "the SIM wants its PUK2"                                  },
  {320, "the memory failed"                                       },
  {321, "there is no message of that number"                      },
  {322, "the memory is full: delete messages"                     },
  {330, "the number of the service centre is not known: set it with AT+CSCA"},
  {331, "there is no network"                                     },
  {332, "the network did not answer in time"                      },
  {340, "no acknowledgement is expected"                          },
  {500, "an error that the modem does not name"                   },
};

constexpr word_row_t kStatus[] = {
  {0x00, "it was delivered"                                                 },
  {0x01, "it was passed on, and nobody knows whether it was delivered"      },
  {0x02, "it was replaced by a later one"                                   },
  {0x20, "the network is congested, and goes on trying"                     },
  {0x21, "the receiver is busy, and the network goes on trying"             },
  {0x22, "the receiver does not answer, and the network goes on trying"     },
  {0x23, "the service was rejected, and the network goes on trying"         },
  {0x24, "the quality is not to be had, and the network goes on trying"     },
  {0x25, "the receiver's phone failed, and the network goes on trying"      },
  {0x40, "the receiver's procedure failed"                                  },
  {0x41, "the receiver cannot take it"                                      },
  {0x42, "it was rejected"                                                  },
  {0x43, "the receiver is not to be had"                                    },
  {0x44, "the service is not to be had"                                     },
  {0x45, "the networks do not work together"                                },
  {0x46, "it was too old"                                                   },
  {0x47, "its sender deleted it"                                            },
  {0x48, "the service centre's operator deleted it"                         },
  {0x49, "the service centre does not know it"                              },
};
// clang-format on

template <size_t Count>
const char* look_up(const word_row_t (&rows)[Count], int32_t number) {
  for (const word_row_t& row : rows) {
    if (row.number == number) return row.text;
  }
  return nullptr;
}

}  // namespace

const char* mdx_sms_error_text(int32_t number) { return look_up(kErrors, number); }

int mdx_sms_fate(const mdx_sms_t* report) {
  const uint32_t kind = report == nullptr ? 3 : report->status >> 5 & 7;
  return kind == 0 ? MDX_SMS_DELIVERED : kind == 1 ? MDX_SMS_TRYING : MDX_SMS_FAILED;
}

const char* mdx_sms_status_text(uint32_t status) {
  const char* text = look_up(kStatus, static_cast<int32_t>(status & 0xff));
  if (text != nullptr) return text;
  switch (status >> 5 & 7) {
    case 0:
      return "it arrived, in a way that only the network knows";
    case 1:
      return "not delivered yet, and the network goes on trying";
    default:
      return "it was not delivered, for a reason that only the network knows";
  }
}
