// SPDX-License-Identifier: Apache-2.0

// USSD texts between people and modem: plain, packed into septets, or in UCS-2, as 3GPP TS 27.007's
// +CUSD with TS 23.038's coding schemes has them, and as makers do it.
#pragma once

#include <string>

/// What the network says, in UTF-8.
///
/// A modem whose character set is UCS2 gives four hexadecimal digits a character; some makers give
/// the packed septets in hexadecimal digits whatever the character set is. A text of digits alone
/// that could be either is taken as plain when it does not unpack to printable characters.
/// @param scheme   the coding scheme behind the text, 15 where there is none
/// @param charset  the modem's, as AT+CSCS? shows it
std::string ussd_text(const std::string& text, int scheme, const std::string& charset);

/// A code or reply of ASCII characters as the modem takes it.
std::string ussd_for_modem(const std::string& code, const std::string& charset);
/// The same for makers that want packed septets.
std::string ussd_packed(const std::string& code);

/// A code or reply that can be sent: printable ASCII without quotes, 182 characters at most.
bool is_ussd(const std::string& code);
