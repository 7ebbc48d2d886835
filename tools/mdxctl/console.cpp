// SPDX-License-Identifier: Apache-2.0

// mdxctl console: one line to the server's debug console, and what it prints.

#include <iostream>

#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/console_client.h"
#include "tools/mdxctl/exit_codes.h"

int run_console(const console_arguments_t& arguments) {
  std::string line = arguments.module;
  for (const std::string& word : arguments.words) line += ' ' + word;
  const int error =
      ask_console(line, [](const std::string& text) { std::cout << text << std::flush; });
  if (error != MDX_OK) std::cerr << "mdxctl: " << console_error_text(error) << std::endl;
  return exit_code_of_error(error);
}
