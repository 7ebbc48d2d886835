// SPDX-License-Identifier: Apache-2.0

// Runs the built mdxctl.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

struct Outcome {
  int code;
  std::string output;
};

/// Runs mdxctl; both outputs come in one.
inline Outcome mdxctl(const std::string& arguments, const std::string& input = "") {
  const std::string command = "printf '" + input + "' | '" MDXCTL "' " + arguments + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  Outcome outcome;
  char text[4096];
  while (const size_t size = fread(text, 1, sizeof(text), pipe)) outcome.output.append(text, size);
  outcome.code = WEXITSTATUS(pclose(pipe));
  return outcome;
}
