// SPDX-License-Identifier: Apache-2.0

// mdxctl console: one line to the server's debug console, and what it prints.

#include <iostream>

#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/console_client.h"
#include "tools/mdxctl/exit_codes.h"
#include "tools/mdxctl/output.h"

int run_console(const console_arguments_t& arguments) {
  std::string line = arguments.module;
  for (const std::string& word : arguments.words) line += ' ' + word;
  bool begun = false;
  bool refused = false;
  const auto show = [&](const std::string& text) {
    if (!begun) refused = text.starts_with("usage:");
    begun = true;
    (refused ? std::cerr : std::cout) << for_output(text) << std::flush;
  };
  const int error = ask_console(line, show);
  if (error != MDX_OK) tell(console_error_text(error));
  return error == MDX_OK && refused ? EXIT_USAGE : exit_code_of_error(error);
}
