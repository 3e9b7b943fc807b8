// The control interface without its sockets: a request in, an answer in JSON out. Control serves it over HTTP.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "simulator/connect/MessageLog.h"
#include "simulator/model/Setup.h"
#include "simulator/model/Time.h"

namespace sim {

class Device;

using Query = std::map<std::string, std::string>;

constexpr int kNoAnswer = 0;  // the status that a client reports if no answer came

// Waits for the next part of an answer that is a stream of server-sent events, and returns its text. Returns after a
// few seconds even if there is nothing to report, and early if `left`, which may be empty, returns true or the log has
// been stopped.
using Stream = std::function<std::string(const MessageLog::Left& left)>;

struct Answer {
  int status = 200;      // as in HTTP, or kNoAnswer
  std::string body;      // a JSON object, unless `policy` is set
  Stream stream{};       // if set, the answer instead of `body`
  std::string policy{};  // if set, `body` is a web page, with this Content-Security-Policy
};

// How long GET /wait waits for a message: by default, and at most.
constexpr std::uint64_t kDefaultWaitMs = 10000;
constexpr std::uint64_t kGreatestWaitMs = 600000;

struct RouteCall;

// A row of the table of routes, with everything that the answer to GET / and the test of the manual need.
struct Route {
  std::string_view method;
  std::string_view path;   // in which ID is a number
  bool device;             // it needs a simulated device
  std::string_view query;  // the parameters that it takes, separated by spaces
  std::string_view text;
  Answer (*handle)(const RouteCall& call);  // throws Error for status 400
};
std::span<const Route> RouteTable();

class Routes {
 public:
  struct Options {
    std::string version{};
    // Calls its argument with the daemon's lock held, and passes the time. Empty if a capture or hardware takes the
    // place of the simulated device.
    std::function<void(const std::function<void(Device& device, Time now)>&)> locked{};
    // Makes the setup from the text of a scenario. Throws Error.
    std::function<Setup(const std::string& scenario)> setup{};
  };
  // The log must outlive the routes.
  Routes(Options options, MessageLog& log) : options_(std::move(options)), log_(log) {}

  // Returns the answer to a request, even to an invalid one. Waits only in GET /wait, for a message, and not after the
  // client has left. May be called by several threads at the same time.
  Answer Handle(const std::string& method, const std::string& path, const Query& query, const std::string& body,
                const MessageLog::Left& left = {}) const;

 private:
  const Options options_;
  MessageLog& log_;
};

// Returns the answer {"error": "..."}.
Answer Refusal(int status, const std::string& text);

}  // namespace sim
