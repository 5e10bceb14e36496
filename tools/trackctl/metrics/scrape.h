// One HTTP request for the metrics on a connection that somebody else has accepted, as a socket
// unit with Accept=yes does. The request and the time for all of it are bounded.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "tools/trackctl/metrics/text.h"

namespace ot::trackctl {

// Makes the text of the metrics. What it throws is answered with status 503.
using metrics_source = std::function<std::string(text_form form)>;

// The whole answer to a request, of which `head` is all up to the empty line.
std::string http_answer(std::string_view head, const metrics_source& source);

// Reads a request, answers it, and waits until the other side has read the answer; each for some
// seconds at most. Who connects and says nothing gets nothing.
void answer_scrape(int input, int output, const metrics_source& source);

}  // namespace ot::trackctl
