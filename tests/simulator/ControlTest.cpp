// The control interface on real sockets.
#include "simulator/connect/Control.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/simulator/Live.h"
#include "tests/simulator/Support.h"

namespace {

// A client that sends and reads what the test tells it to.
class Client {
 public:
  // A path, or the port of 127.0.0.1.
  explicit Client(const std::string& where, int flags = 0) : flags_(flags) {
    if (where.find('/') != std::string::npos) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      where.copy(address.sun_path, sizeof address.sun_path - 1);
      Connect(AF_UNIX, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } else {
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(where.substr(where.rfind(':') + 1))));
      address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      Connect(AF_INET, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
  }
  ~Client() { close(file_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool connected() const { return connected_; }
  // Sends all of the text, unless the server closes the connection first.
  void Write(const std::string& text) {
    sent_ = send(file_, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
  }
  bool sent() const { return sent_; }
  // Reads until the text has arrived; without a text, to the end. Returns everything read so far.
  std::string Await(const std::string& text = "\1") {
    char buffer[4096];
    ssize_t got = 0;
    while (read_.find(text) == std::string::npos && (got = recv(file_, buffer, sizeof buffer, 0)) > 0) {
      read_.append(buffer, static_cast<std::size_t>(got));
    }
    return read_;
  }
  // Sends a request and returns the status.
  int Ask(const std::string& method, const std::string& target, const std::string& headers = "",
          const std::string& body = "") {
    const std::string length = body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n";
    const std::string host = headers.find("Host:") == std::string::npos ? "Host: localhost\r\n" : "";
    Write(method + " " + target + " HTTP/1.1\r\n" + host + length + headers + "\r\n" + body);
    const std::string answer = Await();
    return answer.starts_with("HTTP/1.1 ") ? std::stoi(answer.substr(9, 3)) : 0;
  }

 private:
  void Connect(int family, const sockaddr* address, socklen_t size) {
    file_ = socket(family, SOCK_STREAM | SOCK_CLOEXEC | flags_, 0);
    const timeval limit{60, 0};  // for very busy machines
    setsockopt(file_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    connected_ = connect(file_, address, size) == 0;
  }

  const int flags_;
  int file_ = -1;
  bool connected_ = false;
  bool sent_ = false;
  std::string read_;
};

// A simulator without queues, and its control interface.
class Served {
 public:
  explicit Served(std::string where, bool anyone = false) : control_(std::move(where), anyone, routes_, log_) {}
  std::string Open() {
    control_.Resolve();
    return control_.Open();
  }
  std::string Start() {
    std::string where = Open();
    control_.Start();
    return where;
  }
  void Add() {
    sim::Event event;
    event.number = ++number_;
    event.body = Body(kVersion);
    log_.Add(event);
  }

  sim::MessageLog log_;
  const sim::Routes routes_{{}, log_};
  std::uint64_t number_ = 0;
  sim::Control control_;
};

class Control : public testing::Test {
 protected:
  Control() {
    char name[] = "/tmp/simZR4410.XXXXXX";
    folder_ = mkdtemp(name);
    path_ = folder_ + "/control";
  }
  ~Control() override {
    unlink(path_.c_str());
    rmdir(folder_.c_str());
  }
  bool Exists() const { return access(path_.c_str(), F_OK) == 0; }

  // Opens as many event streams as the server allows.
  std::vector<std::unique_ptr<Client>> EveryStream() const {
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 24; ++i) {
      clients.push_back(std::make_unique<Client>(path_));
      clients.back()->Write("GET /events HTTP/1.1\r\nHost: x\r\n\r\n");
      EXPECT_NE(clients.back()->Await(": messages\n\n"), "");
    }
    return clients;
  }

  std::string folder_, path_;
};

TEST_F(Control, ServesASocketForItsUserAndRemovesItAtTheEnd) {
  {
    Served served(path_);
    EXPECT_EQ(served.Start(), path_);
    struct stat file {};
    ASSERT_EQ(stat(path_.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode, S_IFSOCK | 0600U);
    EXPECT_EQ(Client(path_).Ask("GET", "/"), 200);
  }
  EXPECT_FALSE(Exists());
}

TEST_F(Control, LeavesTheMaskOfTheProcessAsItIs) {
  const mode_t before = umask(0);
  Served(path_).Start();
  EXPECT_EQ(umask(before), 0U);
}

TEST_F(Control, RemovesTheSocketIfItIsNeverStarted) {
  {
    Served served(path_);
    served.Open();
    EXPECT_TRUE(Exists());
  }
  EXPECT_FALSE(Exists());
}

TEST_F(Control, TakesOverTheSocketOfAKilledSimulator) {
  {
    const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(dead, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(dead);
  }
  ASSERT_TRUE(Exists());
  Served served(path_);
  served.Start();
  EXPECT_EQ(Client(path_).Ask("GET", "/"), 200);
}

TEST_F(Control, LeavesASecondSimulatorsSocketAlone) {
  Served first(path_);
  first.Start();
  {
    Served second(path_);
    EXPECT_EQ(ErrorOf([&] { second.Start(); }), "--control " + path_ + ": another process listens there");
  }
  EXPECT_EQ(Client(path_).Ask("GET", "/"), 200);
}

TEST_F(Control, LeavesAnotherFileAlone) {
  std::ofstream(path_) << "mine";
  {
    Served served(path_);
    EXPECT_EQ(ErrorOf([&] { served.Start(); }), "--control " + path_ + ": exists and is not a socket");
  }
  std::string text;
  std::ifstream(path_) >> text;
  EXPECT_EQ(text, "mine");
}

TEST_F(Control, ReportsWhyAPathCannotBeUsed) {
  const std::string nowhere = folder_ + "/no/control";
  Served served(nowhere);
  EXPECT_EQ(ErrorOf([&] { served.Start(); }), "--control " + nowhere + ": No such file or directory");
  const std::string length(108, '/');
  Served too_long(length);
  EXPECT_EQ(ErrorOf([&] { too_long.Start(); }),
            "--control " + length + ": a socket's path may have at most 107 characters");
}

TEST_F(Control, ServesAPortOfLoopback) {
  for (const char* const host : {"127.0.0.1", "localhost"}) {
    Served served(std::string(host) + ":0");
    const std::string where = served.Start();
    EXPECT_NE(where.substr(where.rfind(':')), ":0");
    const auto answer = sim::Control::Send(where, "GET", "/", "", 60);
    ASSERT_TRUE(answer) << where;
    EXPECT_EQ(answer->status, 200);
  }
}

TEST_F(Control, ServesOtherHostsOnlyIfAsked) {
  Served closed("0.0.0.0:0");
  EXPECT_EQ(ErrorOf([&] { closed.Start(); }),
            "--control 0.0.0.0:0: anyone on the network could control the simulator (--control-anyone allows it)");
  Served open("0.0.0.0:0", true);
  EXPECT_EQ(Client(open.Start()).Ask("GET", "/"), 200);
}

TEST_F(Control, ReportsWhyAPortCannotBeUsed) {
  for (const char* const where : {"", "x", ":1", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:65536", "127.0.0.1:-1"}) {
    Served served(where);
    EXPECT_EQ(ErrorOf([&] { served.Start(); }),
              std::string("--control ") + where + ": must be a path with a slash or HOST:PORT");
  }
  Served first("127.0.0.1:0");
  const std::string where = first.Start();
  Served second(where);
  EXPECT_EQ(ErrorOf([&] { second.Start(); }), "--control " + where + ": Address already in use");
}

// A web page of another origin can send requests to loopback, and can give its own host's name this address.
TEST_F(Control, RefusesWebPagesOfOtherOrigins) {
  Served served("localhost:0");
  const std::string where = served.Start();
  const std::string port = where.substr(where.rfind(':'));
  for (const char* const host : {"localhost", "LOCALHOST", "127.0.0.1", "[::1]"}) {
    EXPECT_EQ(Client(where).Ask("GET", "/", "Host: " + (host + port) + "\r\n"), 200) << host;
    EXPECT_EQ(Client(where).Ask("GET", "/", std::string("Host: ") + host + "\r\n"), 200) << host;
  }
  for (const char* const host : {"evil.example", "localhost.evil.example", "", "127.0.0.1.evil.example"}) {
    EXPECT_EQ(Client(where).Ask("GET", "/", "Host: " + (host + port) + "\r\n"), 403) << host;
  }
  const std::string host = "Host: localhost" + port + "\r\n";
  EXPECT_EQ(Client(where).Ask("GET", "/", host + "Origin: http://localhost" + port + "\r\n"), 200);
  for (const char* const origin : {"http://evil.example", "null", "http://localhost:1", "https://localhost"}) {
    EXPECT_EQ(Client(where).Ask("GET", "/", host + "Origin: " + origin + "\r\n"), 403) << origin;
    EXPECT_EQ(Client(where).Ask("POST", "/supply", host + "Origin: " + origin + "\r\n", "{}"), 403) << origin;
  }
  for (const auto& [site, status] :
       {std::pair{"cross-site", 403}, {"same-site", 403}, {"same-origin", 200}, {"none", 200}}) {
    EXPECT_EQ(Client(where).Ask("GET", "/", std::string("Sec-Fetch-Site: ") + site + "\r\n"), status) << site;
  }
}

TEST_F(Control, LimitsTheBody) {
  Served served(path_);
  served.Start();
  const std::string most(std::size_t{1} << 20, ' ');
  const int taken = 409;  // there is no device here
  EXPECT_EQ(Client(path_).Ask("POST", "/faults", "", most), taken);
  EXPECT_EQ(Client(path_).Ask("POST", "/faults", "Content-Type: application/x-www-form-urlencoded\r\n", most), taken);
  Client over(path_);
  EXPECT_EQ(over.Ask("POST", "/faults", "", most + " "), 413);
  EXPECT_NE(over.Await().find(R"({"error":"the body is larger than 1 MiB"})"), std::string::npos);
  EXPECT_EQ(Client(path_).Ask("POST", "/faults", "Transfer-Encoding: chunked\r\n"), 411);
  EXPECT_EQ(Client(path_).Ask("POST", "/faults", "Content-Encoding: gzip\r\n", "x"), 415);
  EXPECT_EQ(Client(path_).Ask("POST", "/faults", "Content-Type: multipart/form-data; boundary=x\r\n", "x"), 415);
}

// A client that cannot send all of its request usually does not read the answer.
TEST_F(Control, ReadsTheBodyOfARequestThatItRefuses) {
  Served served(path_);
  served.Start();
  const std::string body(500000, ' ');  // more than a socket's buffer
  const std::tuple<const char*, const char*, int> requests[] = {
      {"POST", "Origin: http://evil.example\r\n", 403},
      {"PUT", "", 405},
      {"DELETE", "", 409},  // there is no device here
  };
  for (const auto& [method, headers, status] : requests) {
    Client client(path_);
    EXPECT_EQ(client.Ask(method, "/faults", headers, body), status);
    EXPECT_TRUE(client.sent()) << method;
  }
}

TEST_F(Control, TreatsARequestWithoutALengthAsOneWithoutABody) {
  Served served(path_);
  served.Start();
  for (const char* const method : {"POST", "PATCH", "PUT", "DELETE"}) {
    Client client(path_);
    EXPECT_EQ(client.Ask(method, "/zoo"), 404) << method;
    EXPECT_NE(client.Await().find("there is no such path"), std::string::npos) << client.Await();
  }
  EXPECT_EQ(Client(path_).Ask("POST", "/zoo", "Content-Length: 0\r\n"), 404);
}

TEST_F(Control, AnswersAWrongRequestWithJson) {
  Served served(path_);
  served.Start();
  for (const char* const request : {"zoo\r\n\r\n", "GET\r\n\r\n", "GET / HTTP/9\r\n\r\n", "PUT / HTTP/1.1\r\n\r\n"}) {
    Client client(path_);
    client.Write(request);
    const std::string answer = client.Await();
    EXPECT_TRUE(answer.find("\r\n\r\n{\"error\":") != std::string::npos) << request << answer;
  }
}

TEST_F(Control, PassesTheQuery) {
  Served served(path_);
  served.Start();
  for (int i = 0; i < 3; ++i) {
    served.Add();
  }
  Client client(path_);
  EXPECT_EQ(client.Ask("GET", "/messages?since=1&match=AA%2010"), 200);
  const std::string answer = client.Await();
  EXPECT_EQ(answer.find(R"("number":1)"), std::string::npos);
  EXPECT_NE(answer.find(R"("number":2)"), std::string::npos);
}

TEST_F(Control, RefusesADuplicateParameter) {
  Served served(path_);
  served.Start();
  Client client(path_);
  EXPECT_EQ(client.Ask("GET", "/messages?since=1&match=AA&since=2"), 400);
  EXPECT_TRUE(client.Await().ends_with("{\"error\":\"since: given twice\"}\n")) << client.Await();
}

TEST_F(Control, IgnoresARange) {
  Served served(path_);
  served.Start();
  for (const char* const range : {"0-3", "9999999-", "-1"}) {
    Client client(path_);
    EXPECT_EQ(client.Ask("GET", "/", std::string("Range: bytes=") + range + "\r\n"), 200) << range;
    EXPECT_TRUE(client.Await().ends_with("}\n")) << client.Await();
  }
}

TEST_F(Control, ContinuesAStreamAfterTheLastEvent) {
  Served served(path_);
  served.Start();
  for (int i = 0; i < 3; ++i) {
    served.Add();
  }
  Client client(path_);
  client.Write("GET /events HTTP/1.1\r\nHost: x\r\nLast-Event-ID: 1\r\n\r\n");
  const std::string events = client.Await("id: 3\n");
  EXPECT_EQ(events.find("id: 1\n"), std::string::npos);
  EXPECT_NE(events.find("id: 2\n"), std::string::npos);
}

TEST_F(Control, StreamsMessages) {
  Served served(path_);
  served.Start();
  served.Add();
  Client client(path_);
  client.Write("GET /events HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_NE(client.Await(": messages\n\n").find("Content-Type: text/event-stream"), std::string::npos);
  served.Add();
  served.Add();
  const std::string events = client.Await("id: 3\n");
  EXPECT_EQ(events.find("id: 1\n"), std::string::npos);
  EXPECT_NE(events.find("id: 2\ndata: {\"number\":2,"), std::string::npos);
}

TEST_F(Control, ManyStreamsLeaveRoomForOtherRequests) {
  Served served(path_);
  served.Start();
  const std::vector<std::unique_ptr<Client>> clients = EveryStream();
  EXPECT_EQ(Client(path_).Ask("GET", "/events"), 503);
  EXPECT_EQ(Client(path_).Ask("GET", "/wait?timeout_ms=1"), 503);
  EXPECT_EQ(Client(path_).Ask("GET", "/"), 200);
}

// Clients that wait for 10 minutes leave, and no message is sent that would reveal it.
TEST_F(Control, AClientThatLeavesFreesItsPlace) {
  for (const std::string& where : {path_, std::string("127.0.0.1:0")}) {
    Served served(where);
    const std::string place = served.Start();
    const auto busy = [&place] { return Client(place).Ask("GET", "/wait?timeout_ms=0") == 503; };
    Client stays(place);
    stays.Write("GET /events HTTP/1.1\r\nHost: localhost\r\n\r\n");
    stays.Await(": messages\n\n");
    for (int round = 0; round < 2; ++round) {
      std::vector<std::unique_ptr<Client>> clients;
      ASSERT_TRUE(Eventually([&] {
        clients.push_back(std::make_unique<Client>(place));
        clients.back()->Write("GET /wait?timeout_ms=600000&match=FF HTTP/1.1\r\nHost: localhost\r\n\r\n");
        return busy();
      }));
      clients.clear();
      ASSERT_TRUE(Eventually([&busy] { return !busy(); })) << where;
    }
    served.Add();
    EXPECT_NE(stays.Await("id: 1\n").find("id: 1\n"), std::string::npos);
  }
}

// The server also notices it when it sends on an idle stream, after 5 s.
TEST_F(Control, AClosedStreamFreesItsPlaceAtOnce) {
  auto best = std::chrono::steady_clock::duration::max();
  for (int round = 0; round < 5 && best > std::chrono::seconds(3); ++round) {
    Served served(path_);
    served.Start();
    std::vector<std::unique_ptr<Client>> clients = EveryStream();
    clients.clear();
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(Eventually([this] { return Client(path_).Ask("GET", "/wait?timeout_ms=0") == 408; }));
    best = std::min(best, std::chrono::steady_clock::now() - start);
  }
  EXPECT_LT(best, std::chrono::seconds(3));
}

TEST_F(Control, ManyClientsMayComeAtOnce) {
  Served served(path_);
  served.Open();  // accepts nothing yet
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 64; ++i) {
    clients.push_back(std::make_unique<Client>(path_, SOCK_NONBLOCK));
    EXPECT_TRUE(clients.back()->connected()) << i;
  }
}

TEST_F(Control, BrokenClientsDoNoHarm) {
  Served served(path_);
  served.Start();
  for (int i = 0; i < 100; ++i) {
    Client(path_).Write("POST /supply HTTP/1.1\r\nHost: x\r\nContent-Length: 100\r\n\r\n{");
  }
  Client(path_).Write(std::string(100000, 'x'));
  Client(path_).Write("GET /messages HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_EQ(Client(path_).Ask("GET", "/"), 200);
}

// Clients that send half a request, read nothing or wait: each would occupy the server for seconds.
TEST_F(Control, StopDoesNotWaitForClients) {
  for (const std::string& where : {path_, std::string("127.0.0.1:0")}) {
    auto served = std::make_unique<Served>(where);
    const std::string place = served->Start();
    Client half(place);
    half.Write("POST /supply HTTP/1.1\r\nHost: localhost\r\nContent-Le");
    Client events(place);
    events.Write("GET /events HTTP/1.1\r\nHost: localhost\r\n\r\n");
    events.Await(": messages\n\n");
    Client stalled(place);
    stalled.Write("GET /events?since=0 HTTP/1.1\r\nHost: localhost\r\n\r\n");
    Client wait(place);
    wait.Write("GET /wait?timeout_ms=600000&match=FF HTTP/1.1\r\nHost: localhost\r\n\r\n");
    for (int i = 0; i < 20000; ++i) {
      served->Add();
    }
    // A server that waits for its clients needs at least 5 s: it reads the half request for that long, and waits longer
    // for the other clients. Any limit below 5 s shows the difference; this one leaves room for a busy machine.
    const auto start = std::chrono::steady_clock::now();
    served.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    half.Await();  // the connections are closed
    events.Await();
    wait.Await();
  }
}

TEST_F(Control, SendReportsThatThereIsNoSimulator) {
  EXPECT_FALSE(sim::Control::Send(path_, "GET", "/", "", 60));
  EXPECT_FALSE(sim::Control::Send("nonsense", "GET", "/", "", 60));
  std::string port;
  {
    Served served("127.0.0.1:0");
    port = served.Start();
  }
  EXPECT_FALSE(sim::Control::Send(port, "GET", "/", "", 60));
}

TEST_F(Control, SendReportsThatTheSimulatorDoesNotAnswer) {
  for (const std::string& where : {path_, std::string("127.0.0.1:0")}) {
    Served served(where);
    const std::string place = served.Open();  // answers nothing yet
    const auto answer = sim::Control::Send(place, "GET", "/", "", 1);
    ASSERT_TRUE(answer) << place;
    EXPECT_EQ(answer->status, sim::kNoAnswer);
  }
}

}  // namespace
