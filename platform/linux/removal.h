// SPDX-License-Identifier: Apache-2.0

// Clears a name, whatever bears it.
#pragma once

/// Removes an entry of a directory: a file, or a directory with all in it. Links are not followed.
///
/// What lies deeper is moved up first and gets a name of its own; whoever removes all entries of
/// `directory` comes to it, too. What cannot be emptied, since it is another user's, only gets such
/// a name.
/// @return whether the name is free
bool remove_entry(int directory, const char* name);

/// Whether it is a name of the kind that remove_entry gives.
bool is_removed_entry(const char* name);

/// Removes all entries of a directory for which `goes` is true, with what comes to light meanwhile.
void remove_entries(int directory, bool (*goes)(int directory, const char* name));
