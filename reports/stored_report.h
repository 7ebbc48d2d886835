// SPDX-License-Identifier: Apache-2.0

// The report that is kept: clients ask for it without the modem being asked.
//
// Its handler fills it, the server answers from it and gives it its first text.
#pragma once

#include "wire/at_msg.h"

/// The last ^RSSI line as the answer area of a record, `ret_val` 2. Main thread only.
extern at_answer_t mdx_rssi_report;
