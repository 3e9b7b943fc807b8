// The web page that shows the device, and the events that keep it up to date.
#pragma once

#include <string_view>

#include "simulator/connect/MessageLog.h"
#include "simulator/connect/Routes.h"

namespace sim {

extern const std::string_view kViewPage;  // view.html

// Returns the page. Its policy allows only its own script and style, by a nonce that is different in each answer.
Answer ViewPage();

// Returns the events for the page. The first is "hello": the tables of variables and faults. It is followed by "view",
// at most ten times per second: the variables and faults that have changed since the last, and the new messages. If
// nothing has changed, "beat" is sent every few seconds. The routes and the log must outlive the stream.
Stream ViewStream(const Routes::Options& options, MessageLog& log);

}  // namespace sim
