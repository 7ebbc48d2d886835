// SPDX-License-Identifier: Apache-2.0

// mdxctl report: what the server has stored of the modem's reports.

#include <string>
#include <string_view>

#include "tools/mdxctl/answer.h"
#include "tools/mdxctl/client_session.h"
#include "tools/mdxctl/commands.h"
#include "tools/mdxctl/known_states.h"
#include "tools/mdxctl/output.h"
#include "tools/mdxctl/request.h"

namespace {

constexpr int32_t kWaitS = 10;  // as the library's options have it
constexpr std::string_view kAtStart = "^RSSI: 0";

}  // namespace

int run_report(const report_arguments_t& arguments) {
  answer_t answer(arguments.name, arguments.json, kWaitS);
  const client_session_t session;
  if (session.error() != MDX_OK) return answer.fail(session.error(), error_text(session.error()));
  mdx_result_t result = MDX_RESULT_INIT;
  const int error = fetch_report(session.client(), MDX_REPORT_RSSI, &result);
  if (error != MDX_OK) return answer.fail(error, error_text(error));
  if (modem_link_t link; fetch_link(&link) == MDX_OK) answer.tell_link(link);
  const std::string text(result.text, result.length);
  if (text == kAtStart) tell("this also stands there until the first ^RSSI report has come");
  return answer.show(result, text);
}
