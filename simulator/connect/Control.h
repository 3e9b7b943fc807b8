// Serves the control interface over HTTP, on a Unix-domain socket or a TCP port, and is its client too. Routes answers
// the requests; only Control.cpp knows the HTTP library.
//
// The server has threads of its own. A slow or broken client occupies one of them and delays nothing else.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "simulator/connect/MessageLog.h"
#include "simulator/connect/Routes.h"

namespace sim {

// `where` is a path, which has a slash, or HOST:PORT.
class Control {
 public:
  // `anyone`: the host may be an address other than loopback. The log and the routes must outlive it.
  Control(std::string where, bool anyone, const Routes& routes, MessageLog& log);
  // Does the same as Stop.
  ~Control();
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;

  // Finds the address of HOST, which may take long if a name server does not answer. Must be called before Open. Throws
  // Error.
  void Resolve();
  // Creates the socket, with mode 0600, or opens the port. Clients can connect from now on, and are answered after
  // Start. Returns the path, or the address and the port. Throws Error.
  std::string Open();
  // Starts the threads that answer. The stop signals should be blocked before, because the threads inherit the mask.
  void Start();
  // Ends all connections and the log's waits, and removes the socket.
  void Stop();

  // Sends a request to the control interface of a simulator and returns the answer; nothing if no process listens at
  // `where`. `target` is the path with the query. Waits at most `seconds` for the connection, and for the answer. If
  // the simulator has not answered by then, the status is kNoAnswer.
  static std::optional<Answer> Send(const std::string& where, const std::string& method, const std::string& target,
                                    const std::string& body, int seconds);

 private:
  struct Server;
  const std::unique_ptr<Server> server_;
};

}  // namespace sim
