// The web page that shows the device, and the events that keep it up to date.
#pragma once

#include <string_view>

#include "simulator/connect/MessageLog.h"
#include "simulator/connect/Routes.h"

namespace sim {

extern const std::string_view kViewPage;  // view.html

// Returns the page. Its Content-Security-Policy allows only its own script and style, by a nonce that is different in
// each answer, connections to the simulator, and data: images.
Answer ViewPage();

// Returns the events for the page. The first is "hello": the version and the tables of variables and faults. It is
// followed by "view", at most ten times per second: what has changed since the last one, all faults if any has changed,
// and the newest messages with the number of those skipped. If nothing has changed, "beat" is sent every few seconds.
// The routes and the log must outlive the stream.
Stream ViewStream(const Routes::Options& options, MessageLog& log);

}  // namespace sim
