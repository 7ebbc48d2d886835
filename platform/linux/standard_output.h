// SPDX-License-Identifier: Apache-2.0

// Standard output, of which whoever started this process decides where it leads.
#pragma once

/// Makes writes to standard output return at once for the life of the process: what it does not
/// take is lost. To be called before the first of them.
void standard_output_never_waits();
