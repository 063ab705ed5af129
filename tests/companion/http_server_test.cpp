#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <vector>

#include "companion/agent/agent_service.h"
#include "companion/http/guard.h"
#include "companion/http/server.h"
#include "companion/raw_client.h"
#include "platform/dispatch/threads.h"

namespace kestrin::server {
namespace {

using kestrin::testing::RawClient;
using namespace std::chrono_literals;

constexpr const char* local = "Host: 127.0.0.1\r\nConnection: close\r\n";

class ServerTest : public ::testing::Test {
 protected:
  void start(ServerOptions options = {}) {
    server = std::make_unique<Server>(*dispatch, options);
    server->route("GET", "/hello", [](const Request& request, const Responder& responder) {
      responder.text(200, "text/plain", "hello " + request.queryValue("who"));
    });
    server->route("POST", "/size", [](const Request& request, const Responder& responder) {
      responder.text(200, "text/plain", "got " + std::to_string(request.body.size()));
    });
    server->route("GET", "/under/*", [](const Request& request, const Responder& responder) {
      responder.text(200, "text/plain", "rest=" + request.rest);
    });
    server->route("GET", "/dropped", [](const Request&, const Responder&) {});
    server->route("GET", "/stream", [this](const Request&, const Responder& responder) {
      streams.set_value(responder.stream("text/event-stream"));
    });
    server->route("GET", "/later", [this](const Request&, const Responder& responder) {
      later.set_value(responder);
    });
    ASSERT_TRUE(server->start());
  }
  std::string ask(const std::string& request) {
    RawClient client(server->port());
    client.send(request);
    return client.readToEnd();
  }
  std::string get(const std::string& path, const std::string& headers = local) {
    return ask("GET " + path + " HTTP/1.1\r\n" + headers + "\r\n");
  }

  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  std::promise<ResponseStream> streams;
  std::promise<Responder> later;
  std::unique_ptr<Server> server;
};

void expectStatus(const std::string& answer, int status) {
  EXPECT_TRUE(answer.starts_with("HTTP/1.1 " + std::to_string(status) + " ")) << answer;
}

TEST_F(ServerTest, AnswersRoutesAndSaysWhatItDoesNotHave) {
  start();
  EXPECT_NE(get("/hello?who=a%20b").find("\r\n\r\nhello a b"), std::string::npos);
  EXPECT_NE(get("/under/x%2Fy").find("rest=x/y"), std::string::npos);
  expectStatus(get("/nothing"), 404);
  expectStatus(get("/dropped"), 500);
  const std::string wrongMethod = get("/size");
  expectStatus(wrongMethod, 405);
  EXPECT_NE(wrongMethod.find("Allow: POST"), std::string::npos);
  const std::string head = ask(std::string("HEAD /hello HTTP/1.1\r\n") + local + "\r\n");
  expectStatus(head, 200);
  EXPECT_TRUE(head.ends_with("\r\n\r\n")) << head;
}

TEST_F(ServerTest, LetsOnlyThisMachinesOwnRequestsThrough) {
  start();
  for (const char* host :
       {"evil.example", "127.0.0.1.evil.example", "localhost:80:80", "127.0.0.2", "[::1"}) {
    expectStatus(get("/hello", std::string("Connection: close\r\nHost: ") + host + "\r\n"), 403);
  }
  for (const char* host : {"localhost", "LOCALHOST:8001", "127.0.0.1:1", "[::1]:8001"}) {
    expectStatus(get("/hello", std::string("Connection: close\r\nHost: ") + host + "\r\n"), 200);
  }
  expectStatus(get("/hello", "Connection: close\r\n"), 400);
  const std::string twoHosts = get("/hello", std::string(local) + "Host: evil.example\r\n");
  EXPECT_FALSE(twoHosts.starts_with("HTTP/1.1 200")) << twoHosts;
  for (const char* origin :
       {"null", "https://evil.example", "http://localhost.evil.example", "file://"}) {
    expectStatus(get("/hello", std::string(local) + "Origin: " + origin + "\r\n"), 403);
  }
  expectStatus(get("/hello", std::string(local) + "Origin: http://localhost:3000\r\n"), 200);
}

TEST_F(ServerTest, TakesBodiesUpToItsLimitAndNoFurther) {
  start({.bodyLimit = 100'000});
  const auto post = [](size_t announced) {
    return std::string("POST /size HTTP/1.1\r\n") + local +
           "Content-Length: " + std::to_string(announced) + "\r\n\r\n";
  };
  EXPECT_NE(ask(post(100'000) + std::string(100'000, 'x')).find("got 100000"), std::string::npos);
  expectStatus(ask(post(100'001)), 413);
  expectStatus(ask(post(1ull << 62)), 413);
  RawClient endless(server->port());
  endless.send(std::string("POST /size HTTP/1.1\r\n") + local +
               "Transfer-Encoding: chunked\r\n\r\n");
  for (int i = 0; i < 200 && endless.send("400\r\n" + std::string(1024, 'x') + "\r\n"); ++i) {
  }
  EXPECT_TRUE(endless.closedByServer());
}

TEST_F(ServerTest, GarbageAndHalfRequestsDisturbNobody) {
  start({.idleTimeout = std::chrono::seconds(1)});
  RawClient slow(server->port());
  slow.send("GET /hel");
  std::vector<std::unique_ptr<RawClient>> idle;
  for (int i = 0; i < 40; ++i) idle.push_back(std::make_unique<RawClient>(server->port()));
  for (const char* garbage :
       {"\r\n\r\n", "GET\r\n\r\n", "\x16\x03\x01\x02", "POST /size HTTP/9.9\r\n\r\n",
        "GET /hello HTTP/1.1\r\nContent-Length: -5\r\nHost: localhost\r\n\r\n"}) {
    RawClient client(server->port());
    client.send(garbage);
    client.send(std::string(70'000, 'A'));
    EXPECT_TRUE(client.closedByServer()) << garbage;
  }
  expectStatus(get("/hello"), 200);
  EXPECT_TRUE(slow.closedByServer());
}

TEST_F(ServerTest, APieceLeavesAtOnceAndAnEndIsAnEnd) {
  start();
  RawClient client(server->port());
  client.send(std::string("GET /stream HTTP/1.1\r\n") + local + "\r\n");
  ResponseStream stream = streams.get_future().get();
  for (int i = 0; i < 50; ++i) {
    const std::string piece = "piece " + std::to_string(i) + ";";
    stream.send(piece);
    EXPECT_NE(client.readUntil(piece).find(piece),
              std::string::npos);  // before the next one is sent
  }
  stream.close();
  stream.send("too late");
  EXPECT_TRUE(client.closedByServer());
  EXPECT_TRUE(client.readToEnd().ends_with("\r\n0\r\n\r\n"));
  EXPECT_EQ(client.readToEnd().find("too late"), std::string::npos);
}

TEST_F(ServerTest, AnAbortedStreamIsSeenAsBroken) {
  start();
  RawClient client(server->port());
  client.send(std::string("GET /stream HTTP/1.1\r\n") + local + "\r\n");
  ResponseStream stream = streams.get_future().get();
  stream.send("half");
  stream.abort();
  EXPECT_TRUE(client.closedByServer());
  EXPECT_NE(client.readToEnd().find("half"), std::string::npos);
  EXPECT_FALSE(client.readToEnd().ends_with("0\r\n\r\n"));
}

TEST_F(ServerTest, NoticesThatTheClientOfAWaitingAnswerHasGone) {
  start();
  RawClient client(server->port());
  client.send(std::string("GET /later HTTP/1.1\r\n") + local + "\r\n");
  auto responder = std::make_unique<Responder>(later.get_future().get());
  std::promise<void> gone;
  responder->onClientGone([&gone] { gone.set_value(); });
  EXPECT_FALSE(responder->clientGone());
  client.hangUp();
  ASSERT_EQ(gone.get_future().wait_for(20s), std::future_status::ready);
  EXPECT_TRUE(responder->clientGone());
  responder->text(200, "text/plain", "to nobody");
  responder.reset();
  expectStatus(get("/hello"), 200);
}

TEST_F(ServerTest, StopsWithOpenAnswersAndTheirHandlesStayHarmless) {
  start();
  RawClient streaming(server->port());
  streaming.send(std::string("GET /stream HTTP/1.1\r\n") + local + "\r\n");
  RawClient waiting(server->port());
  waiting.send(std::string("GET /later HTTP/1.1\r\n") + local + "\r\n");
  ResponseStream stream = streams.get_future().get();
  const Responder responder = later.get_future().get();
  server.reset();
  EXPECT_TRUE(streaming.closedByServer());
  EXPECT_TRUE(waiting.closedByServer());
  stream.send("x");
  stream.close();
  responder.error(500, "late");
  EXPECT_TRUE(stream.clientGone());
}

TEST_F(ServerTest, ATakenPortIsSaidClearly) {
  start();
  Server second(*dispatch, {.port = server->port()});
  const Status status = second.start();
  ASSERT_FALSE(status);
  EXPECT_EQ(status.error().code, EADDRINUSE);
  EXPECT_NE(status.error().description.find("already in use"), std::string::npos);
}

TEST_F(ServerTest, ClientsThatStopHalfWayKeepNobodyWaitingAndHoldNoThread) {
  constexpr size_t crowd = 600;  // more than there are places
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  if (files.rlim_cur < 3 * crowd) GTEST_SKIP() << "too few file descriptors";
  start({.connectionLimit = 512});
  const auto threads = [] {
    const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
  };
  expectStatus(get("/hello"), 200);
  const auto before = threads();
  RawClient early(server->port());
  early.send(std::string("GET /later HTTP/1.1\r\n") + local + "\r\n");
  const Responder owed = later.get_future().get();
  const std::string post = std::string("POST /size HTTP/1.1\r\n") + local;
  const std::string halves[] = {"", "GET /hel", std::string("GET /hello HTTP/1.1\r\n") + local,
                                post + "Content-Length: 5000000\r\n\r\nabc",
                                post + "Transfer-Encoding: chunked\r\n\r\n400\r\nxyz"};
  std::vector<std::unique_ptr<RawClient>> silent;
  for (size_t i = 0; i < crowd; ++i) {
    silent.push_back(std::make_unique<RawClient>(server->port()));
    silent.back()->send(halves[i % std::size(halves)]);
    if (i % 20 == 0) expectStatus(get("/hello"), 200);
  }
  EXPECT_LE(threads(), before + 4) << "only the pool may have grown";
  EXPECT_TRUE(silent.front()->closedByServer()) << "who waited longest makes room";
  owed.text(200, "text/plain", "late");
  EXPECT_NE(early.readToEnd().find("late"), std::string::npos) << "who is owed an answer gets it";
  silent.back()->send(std::string(1021, 'x') + "\r\n0\r\n\r\n");
  EXPECT_NE(silent.back()->readUntil("got 1024").find("got 1024"), std::string::npos);
}

TEST_F(ServerTest, ARequestThatComesByteByByteIsGivenUp) {
  start({.idleTimeout = 1s});
  const std::string post = std::string("POST /size HTTP/1.1\r\n") + local;
  for (const std::string& beginning :
       {post + "X-Slow: ", post + "Content-Length: 5000000\r\n\r\n"}) {
    RawClient slow(server->port());
    slow.send(beginning);
    const SteadyTime began = dispatch->clock().steadyNow();
    bool ended = false;
    // Well before the idle time-out could begin: something moves all the time.
    while (!ended && dispatch->clock().steadyNow() - began < 20s)
      ended = !slow.send("x") || slow.hasEnded(100);
    EXPECT_TRUE(ended);
    expectStatus(get("/hello"), 200);
  }
}

/// Says two pieces and then fails or ends.
class ScriptedAgent : public agent::Agent {
 public:
  void process(const Json& body, Emit emit, std::function<void()> done, agent::CancelRef) override {
    emit(Json::object({{"mode", "plain"}, {"auto_detected", true}}));
    emit(Json::object({{"chunk", "Hello "}}));
    emit(Json::object({{"chunk", body.stringAt("transcript", "")}}));
    if (body.boolAt("fail").value_or(false)) emit(Json::object({{"error", "model lost"}}));
    done();
  }
};

TEST_F(ServerTest, TheAgentsAnswerComesAsEventsOrWholeAndAFailureNeverLooksComplete) {
  ScriptedAgent scripted;
  server = std::make_unique<Server>(*dispatch, ServerOptions{});
  agent::addRoutes(*server, scripted);
  ASSERT_TRUE(server->start());
  const auto post = [&](const std::string& path, const std::string& body) {
    return kestrin::testing::ask(server->port(), "POST", path, body);
  };
  const std::string events = post("/process/stream", R"({"transcript":"w\u00f6rld"})");
  EXPECT_NE(events.find("data: {\"chunk\":\"Hello \"}\n\n"), std::string::npos) << events;
  EXPECT_NE(events.find("data: [DONE]\n\n"), std::string::npos);
  EXPECT_TRUE(events.ends_with("0\r\n\r\n"));
  const std::string broken = post("/process/stream", R"({"transcript":"x","fail":true})");
  EXPECT_NE(broken.find("model lost"), std::string::npos);
  EXPECT_EQ(broken.find("[DONE]"), std::string::npos);
  EXPECT_FALSE(broken.ends_with("0\r\n\r\n"));
  const std::string whole = post("/process", R"({"transcript":"world"})");
  EXPECT_NE(whole.find(R"("success":true,"processed_text":"Hello world")"), std::string::npos)
      << whole;
  expectStatus(post("/process", R"({"transcript":"x","fail":true})"), 502);
  expectStatus(post("/process/stream", "[]"), 400);
  expectStatus(post("/process", R"({"transcript":7})"), 400);
}

}  // namespace
}  // namespace kestrin::server
