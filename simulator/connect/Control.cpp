// The HTTP server and client of the control interface: the sockets, the limits, and which requests are refused.
#include "simulator/connect/Control.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <map>
#include <thread>
#include <tuple>
#include <utility>

#include "simulator/model/Error.h"

namespace sim {
namespace {

constexpr std::size_t kMostBody = std::size_t{1} << 20;  // bytes of a request's body
constexpr int kThreads = 40;
constexpr int kBacklog = 128;     // clients that may wait to be accepted; the library's default is 5
constexpr int kMostStreams = 24;  // clients that wait for a message; the other threads remain for short requests
constexpr int kSocketPort = 80;   // the library requires a port even for a Unix-domain socket, and ignores it
constexpr time_t kReadSeconds = 5;
constexpr time_t kWriteSeconds = 10;
constexpr auto kStopRetry = std::chrono::milliseconds(2);
constexpr long kMostDescriptors = 65536;
long MostDescriptors() { return std::min(sysconf(_SC_OPEN_MAX), kMostDescriptors); }

constexpr int kBadRequest = 400;
constexpr int kForbidden = 403;
constexpr int kLengthRequired = 411;
constexpr int kTooLarge = 413;
constexpr int kUnsupported = 415;
constexpr int kInternal = 500;
constexpr int kBusy = 503;

// The requests whose body is read, even if the answer does not depend on it: if a connection is closed with unread
// bytes, the client may lose the answer.
const char* const kBodyMethods[] = {"POST", "PUT", "PATCH", "DELETE"};
const char* const kJson = "application/json";

bool IsPath(const std::string& where) { return where.find('/') != std::string::npos; }

// The two parts of HOST:PORT, where HOST may be in brackets.
struct HostPort {
  std::string host;
  int port = 0;
};
std::optional<HostPort> Split(const std::string& where) {
  const std::size_t colon = where.rfind(':');
  if (colon == std::string::npos || colon == 0) {
    return std::nullopt;
  }
  HostPort parts{where.substr(0, colon), 0};
  const char* const end = where.data() + where.size();
  const auto parsed = std::from_chars(where.data() + colon + 1, end, parts.port);
  if (parsed.ec != std::errc() || parsed.ptr != end || parts.port < 0 || parts.port > 0xFFFF) {
    return std::nullopt;
  }
  if (parts.host.size() > 2 && parts.host.starts_with('[') && parts.host.ends_with(']')) {
    parts.host = parts.host.substr(1, parts.host.size() - 2);
  }
  return parts;
}

std::string Lower(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

bool IsAddress(const std::string& host) {
  in6_addr address{};
  return inet_pton(AF_INET, host.c_str(), &address) == 1 || inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

bool IsLoopback(const sockaddr* address) {
  if (address->sa_family == AF_INET) {
    return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr) >> 24 == 127;
  }
  return address->sa_family == AF_INET6 &&
         IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr) != 0;
}

// The connection of the request that this thread answers; less than zero if it is not known.
thread_local int connection = -1;

// Returns whether the client has closed its side of the connection.
bool HasLeft(int file) {
  pollfd peer{file, POLLRDHUP, 0};
  return poll(&peer, 1, 0) == 1;
}

// The library's threads, which set `connection`. The library does not tell a handler its connection, but it calls
// enqueue after each connection that it accepts, and that is then the only connection that enqueue has not seen yet.
class Threads : public httplib::TaskQueue {
 public:
  // Returns whether a descriptor is a connection to the server.
  using IsConnection = std::function<bool(int file)>;
  explicit Threads(IsConnection is_connection) : pool_(kThreads), is_connection_(std::move(is_connection)) {}

  using Enqueued = decltype(std::declval<httplib::TaskQueue&>().enqueue(nullptr));  // depends on the library's version
  Enqueued enqueue(std::function<void()> task) override {
    return pool_.enqueue([task = std::move(task), file = NewConnection()] {
      connection = file;
      task();
    });
  }
  void shutdown() override { pool_.shutdown(); }

 private:
  // Other threads close connections and may reuse their descriptors, but no other thread accepts connections. So a
  // descriptor that is a connection when it is checked was the same connection when its cookie was read just before.
  int NewConnection() {
    const long most = MostDescriptors();
    for (int file = 0; file < most; ++file) {
      std::uint64_t cookie = 0;  // unique to each socket
      socklen_t size = sizeof cookie;
      if (getsockopt(file, SOL_SOCKET, SO_COOKIE, &cookie, &size) == 0 && is_connection_(file) &&
          std::exchange(known_[file], cookie) != cookie) {
        return file;
      }
    }
    return -1;
  }

  httplib::ThreadPool pool_;
  const IsConnection is_connection_;
  std::map<int, std::uint64_t> known_;  // the cookie of the connection that was last seen at each descriptor
};

// Returns the first address of a host as a number, and whether it is loopback.
std::pair<std::string, bool> AddressOf(const std::string& where, const std::string& host) {
  if (host == "localhost") {
    return {"127.0.0.1", true};  // even on a minimal system, which cannot resolve the name
  }
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found); error != 0) {
    throw Error("--control " + where + ": " + gai_strerror(error));
  }
  char address[NI_MAXHOST] = "";
  getnameinfo(found->ai_addr, found->ai_addrlen, address, sizeof address, nullptr, 0, NI_NUMERICHOST);
  const bool loopback = IsLoopback(found->ai_addr);
  freeaddrinfo(found);
  return {address, loopback};
}

// Returns whether a server accepts connections at the socket.
bool IsServed(const sockaddr_un& address) {
  const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const bool refused = connect(file, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
                       (errno == ECONNREFUSED || errno == ENOENT);
  close(file);
  return !refused;
}

void Put(httplib::Response& response, const Answer& answer) {
  response.status = answer.status;
  response.set_content(answer.body, answer.policy.empty() ? kJson : "text/html; charset=utf-8");
  if (!answer.policy.empty()) {
    response.set_header("Content-Security-Policy", answer.policy);
    response.set_header("Cache-Control", "no-store");
    response.set_header("X-Content-Type-Options", "nosniff");
  }
}

}  // namespace

struct Control::Server {
  Server(std::string place, bool open, const Routes& routes_, MessageLog& log_)
      : where(std::move(place)), anyone(open), routes(routes_), log(log_) {}

  void SetUp();
  void Resolve();
  void OpenPath();
  std::string OpenPort();
  void Answers(const httplib::Request& request, const std::string& body, httplib::Response& response);
  void Send(Stream stream, httplib::Response& response);
  static std::optional<Answer> Unreadable(const httplib::Request& request);
  std::optional<Answer> Refused(const httplib::Request& request) const;
  bool KnownHost(const std::string& header) const;
  bool IsConnection(int file) const;
  void EndConnections() const;

  const std::string where;
  const bool anyone;
  const Routes& routes;
  MessageLog& log;
  std::string host;          // as given; empty for a path
  std::string host_address;  // the host's address as text, such as 127.0.0.1
  httplib::Server http;
  int listener = -1;    // the socket on which the library listens
  struct stat made {};  // the socket's file when it was created
  sa_family_t family = AF_UNIX;
  in_port_t port = 0;  // in the network's byte order
  std::thread thread;
  std::atomic<bool> done = false;  // the thread has ended
  std::atomic<int> streams = 0;    // how many clients wait for messages
};

// Returns the refusal of a request with a body that is not plain. It must not be read: the library would decode it.
std::optional<Answer> Control::Server::Unreadable(const httplib::Request& request) {
  if (request.has_header("Transfer-Encoding")) {
    return Refusal(kLengthRequired, "Transfer-Encoding: the body needs a Content-Length");
  }
  if (request.has_header("Content-Encoding") || request.is_multipart_form_data()) {
    return Refusal(kUnsupported, "compressed and multipart bodies are not accepted");
  }
  return std::nullopt;
}

// Returns the refusal of a request from a web page of another origin. Browsers say where the page comes from in Origin
// and Sec-Fetch-Site, which the page cannot forge. But it can make its own host's name resolve to this address, so the
// name in Host must be known too.
std::optional<Answer> Control::Server::Refused(const httplib::Request& request) const {
  const std::string given = request.get_header_value("Host");
  if (!host.empty() && !KnownHost(given)) {
    return Refusal(kForbidden, "Host: '" + given + "' is not a name of this simulator");
  }
  if (request.has_header("Origin") && Lower(request.get_header_value("Origin")) != "http://" + Lower(given)) {
    return Refusal(kForbidden, "Origin: requests from other web pages are refused");
  }
  // "same-site" is a page of another port. "none" is a request that the user made, without a page.
  const std::string site = request.get_header_value("Sec-Fetch-Site");
  if (!site.empty() && site != "same-origin" && site != "none") {
    return Refusal(kForbidden, "Sec-Fetch-Site: requests from other web pages are refused");
  }
  return std::nullopt;
}

bool Control::Server::KnownHost(const std::string& header) const {
  const std::size_t colon = header.ends_with(']') ? std::string::npos : header.rfind(':');
  std::string name = Lower(header.substr(0, colon));
  if (name.starts_with('[') && name.ends_with(']')) {
    name = name.substr(1, name.size() - 2);
  }
  return IsAddress(name) || name == "localhost" || name == Lower(host);
}

void Control::Server::Answers(const httplib::Request& request, const std::string& body, httplib::Response& response) {
  if (const auto refused = Refused(request)) {
    Put(response, *refused);
    return;
  }
  Query query;
  for (const auto& [key, value] : request.params) {
    if (!query.emplace(key, value).second) {
      Put(response, Refusal(kBadRequest, key + ": given twice"));
      return;
    }
  }
  // A browser that reconnects sends the id of the last event that it has seen.
  if (request.path == "/events" && request.has_header("Last-Event-ID")) {
    query["since"] = request.get_header_value("Last-Event-ID");
  }
  const bool waits = request.path == "/wait" || request.path == "/events" || request.path == "/view/events";
  if (waits && ++streams > kMostStreams) {
    --streams;
    Put(response, Refusal(kBusy, "too many clients wait for messages (" + std::to_string(kMostStreams) + ")"));
    return;
  }
  Answer answer = routes.Handle(request.method == "HEAD" ? "GET" : request.method, request.path, query, body,
                                [] { return HasLeft(connection); });
  if (answer.stream && request.method != "HEAD") {
    Send(std::move(answer.stream), response);  // which decrements `streams` when it ends
    return;
  }
  if (waits) {
    --streams;
  }
  Put(response, answer);
}

void Control::Server::Send(Stream stream, httplib::Response& response) {
  response.set_header("Cache-Control", "no-cache");
  response.set_chunked_content_provider(
      "text/event-stream",
      [this, next = std::move(stream)](std::size_t, httplib::DataSink& sink) {
        const auto left = [] { return HasLeft(connection); };
        const std::string text = next(left);
        return !left() && !log.stopped() && sink.write(text.data(), text.size());
      },
      [this](bool) { --streams; });
}

void Control::Server::SetUp() {
  http.new_task_queue = [this] { return new Threads([this](int file) { return IsConnection(file); }); };
  http.set_keep_alive_max_count(1);  // an idle connection would occupy a thread
  http.set_read_timeout(kReadSeconds);
  http.set_write_timeout(kWriteSeconds);
  http.set_payload_max_length(kMostBody);
  http.set_socket_options([this](int file) {
    listener = file;
    // The library's default would let a second simulator use the same port.
    const int yes = 1;
    setsockopt(file, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  http.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
    using Result = httplib::Server::HandlerResponse;
    // The library would shorten the answer as the Range header asks; a server may ignore the header.
    const_cast<httplib::Request&>(request).ranges.clear();
    if (const auto unreadable = Unreadable(request)) {
      Put(response, *unreadable);
      return Result::Handled;
    }
    // Without a length there is no body; the library would wait for one until the client leaves.
    const bool has_body = request.has_header("Content-Length") &&
                          std::ranges::find(kBodyMethods, request.method) != std::end(kBodyMethods);
    if (!has_body) {
      Answers(request, "", response);
    }
    return has_body ? Result::Unhandled : Result::Handled;
  });
  // Without a reader, the library would parse a body of curl's default content type as parameters.
  const auto with_body = [this](const httplib::Request& request, httplib::Response& response,
                                const httplib::ContentReader& reader) {
    std::string body;
    const bool whole = reader([&body](const char* data, std::size_t size) {
      body.append(data, std::min(size, kMostBody + 1 - body.size()));
      return body.size() <= kMostBody;
    });
    if (whole) {
      Answers(request, body, response);
    }
  };
  http.Post(".*", with_body);
  http.Put(".*", with_body);
  http.Patch(".*", with_body);
  http.Delete(".*", with_body);
  http.set_error_handler(httplib::Server::Handler([](const httplib::Request&, httplib::Response& response) {
    if (response.body.empty()) {
      const std::string text = response.status == kTooLarge ? "the body is larger than 1 MiB" : "malformed request";
      Put(response, Refusal(response.status, text));
    }
  }));
  http.set_exception_handler([](const httplib::Request&, httplib::Response& response, std::exception_ptr) {
    Put(response, Refusal(kInternal, "the simulator failed to answer"));
  });
}

void Control::Server::OpenPath() {
  const std::string place = "--control " + where + ": ";
  sockaddr_un address{};
  if (where.size() >= sizeof address.sun_path) {
    throw Error(place + "a socket's path may have at most " + std::to_string(sizeof address.sun_path - 1) +
                " characters");
  }
  address.sun_family = AF_UNIX;
  std::copy(where.begin(), where.end(), address.sun_path);
  if (struct stat there{}; lstat(where.c_str(), &there) == 0) {
    if (!S_ISSOCK(there.st_mode)) {
      throw Error(place + "exists and is not a socket");
    }
    if (IsServed(address)) {
      throw Error(place + "another process listens there");
    }
    unlink(where.c_str());  // left behind by a simulator that was killed
  }
  const mode_t before = umask(0177);
  errno = 0;
  const bool opened = http.set_address_family(AF_UNIX).bind_to_port(where, kSocketPort);
  const int error = errno;
  umask(before);
  if (!opened) {
    throw Error(place + (error != 0 ? std::strerror(error) : "the socket cannot be created"));
  }
  stat(where.c_str(), &made);
}

void Control::Server::Resolve() {
  const auto parts = Split(where);
  if (!parts) {
    throw Error("--control " + where + ": must be a path with a slash or HOST:PORT");
  }
  host = parts->host;
  bool loopback = false;
  std::tie(host_address, loopback) = AddressOf(where, host);
  if (!loopback && !anyone) {
    throw Error("--control " + where +
                ": anyone on the network could control the simulator (--control-anyone allows it)");
  }
  if (loopback && anyone) {
    throw Error("--control " + where + ": --control-anyone has no effect with a loopback address");
  }
  port = htons(static_cast<std::uint16_t>(parts->port));
}

std::string Control::Server::OpenPort() {
  errno = 0;
  int bound = ntohs(port);
  if (bound == 0) {
    bound = http.bind_to_any_port(host_address);
  } else if (!http.bind_to_port(host_address, bound)) {
    bound = -1;
  }
  if (bound < 0) {
    throw Error("--control " + where + ": " + (errno != 0 ? std::strerror(errno) : "the port cannot be opened"));
  }
  const bool six = host_address.find(':') != std::string::npos;
  family = six ? AF_INET6 : AF_INET;
  port = htons(static_cast<std::uint16_t>(bound));
  return (six ? "[" + host_address + "]" : host_address) + ":" + std::to_string(bound);
}

// The library does not expose its connections, so this recognises them: they are the sockets with the server's
// address.
bool Control::Server::IsConnection(int file) const {
  sockaddr_storage name{};
  socklen_t size = sizeof name;
  if (file == listener || getsockname(file, reinterpret_cast<sockaddr*>(&name), &size) != 0 ||
      name.ss_family != family) {
    return false;
  }
  // The port has the same offset in IPv4 and IPv6 addresses.
  return family == AF_UNIX ? reinterpret_cast<const sockaddr_un*>(&name)->sun_path == where
                           : reinterpret_cast<const sockaddr_in*>(&name)->sin_port == port;
}

void Control::Server::EndConnections() const {
  const long most = MostDescriptors();
  for (int file = 0; file < most; ++file) {
    if (IsConnection(file)) {
      shutdown(file, SHUT_RDWR);
    }
  }
}

Control::Control(std::string where, bool anyone, const Routes& routes, MessageLog& log)
    : server_(std::make_unique<Server>(std::move(where), anyone, routes, log)) {
  server_->SetUp();
}

Control::~Control() { Stop(); }

void Control::Resolve() {
  if (!IsPath(server_->where)) {
    server_->Resolve();
  }
}

std::string Control::Open() {
  std::string where = server_->where;
  if (IsPath(where)) {
    server_->OpenPath();
  } else {
    where = server_->OpenPort();
  }
  listen(server_->listener, kBacklog);
  return where;
}

void Control::Start() {
  server_->thread = std::thread([server = server_.get()] {
    server->http.listen_after_bind();
    server->done = true;
  });
}

void Control::Stop() {
  Server& server = *server_;
  server.log.Stop();
  if (server.thread.joinable()) {
    while (!server.http.is_running() && !server.done) {
      std::this_thread::sleep_for(kStopRetry);
    }
    server.http.stop();
    // The library waits for its threads, which may wait for slow clients.
    while (!server.done) {
      server.EndConnections();
      std::this_thread::sleep_for(kStopRetry);
    }
    server.thread.join();
  }
  if (struct stat now{}; server.made.st_ino != 0 && stat(server.where.c_str(), &now) == 0 &&
                         now.st_ino == server.made.st_ino && now.st_dev == server.made.st_dev) {
    unlink(server.where.c_str());
  }
  server.made = {};
}

std::optional<Answer> Control::Send(const std::string& where, const std::string& method, const std::string& target,
                                    const std::string& body, int seconds) {
  const auto parts = IsPath(where) ? HostPort{where, kSocketPort} : Split(where);
  if (!parts) {
    return std::nullopt;
  }
  httplib::Client client(parts->host, parts->port);
  if (IsPath(where)) {
    client.set_address_family(AF_UNIX);
  }
  client.set_connection_timeout(seconds);
  client.set_read_timeout(seconds);
  httplib::Request request;
  request.method = method;
  request.path = target;
  request.set_header("Host", IsPath(where) ? "localhost" : where);
  if (!body.empty()) {
    request.body = body;
    request.set_header("Content-Type", kJson);
  }
  const httplib::Result result = client.send(request);
  if (!result) {
    return result.error() == httplib::Error::Connection ? std::nullopt : std::optional(Answer{kNoAnswer, ""});
  }
  return Answer{result->status, result->body};
}

}  // namespace sim
