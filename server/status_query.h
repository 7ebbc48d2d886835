// SPDX-License-Identifier: Apache-2.0

// Asks the modem how it stands, and completes a one-time preparation once the SIM allows it:
// reading the subscriber identity, and putting the operator format in numeric form.
//
// The server's picture of the modem comes from its unsolicited reports; these operations are ready
// for whoever wants to ask. All block, up to 3 seconds for each command.
#pragma once

#include <cstdint>

/// Stores the answer to "AT^SYSINFO" in `sysinfo_report`. A failure leaves the stored one.
/// @param retcode  never null
/// @return 0 for "OK", -1 for anything else
int32_t mdx_query_sysinfo(int* retcode);

/// Stores the answer to "AT+CIMI" in `cimi_report`; as above.
int32_t mdx_check_cimi(int* retcode);

/// Makes the modem name operators by number; as above, nothing is stored.
int32_t mdx_set_cops_format(int* retcode);

/// Queries the status, notes a change of roaming, and goes on with the preparation: each of its two
/// steps succeeds once in the life of the process and is tried again by the next query until it
/// does.
/// @return 0, also when the SIM does not allow the preparation yet; -1 when a command or the parse
///         failed
int32_t at_repetition_query(int* retcode);

/// One query, with its failure traced.
int32_t at_handshake(int* retcode);
