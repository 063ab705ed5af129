#include <gtest/gtest.h>
#include <map>

#include "platform/dispatch/simulation.h"
#include "platform/linux/curl_http.h"
#include "platform/linux/linux_files.h"
#include "platform/simulated/simulated_files.h"
#include "platform/simulated/simulated_http.h"
#include "support/loopback_server.h"
#include "support/worlds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;
using test::Log;
using test::LoopbackServer;

/// The twin, in virtual time.
struct SimulatedWorld {
  std::unique_ptr<Simulation> dispatch = Simulation::make();
  SimulatedFiles files{dispatch->clock()};
  SimulatedHttp twin{*dispatch, nullptr, &files};
  Http& http = twin;

  std::string host() const { return "10.0.0.1:80"; }
  std::string deadHost() const { return "10.0.0.2:81"; }
  std::string folder() { return files.home(); }
  void serve(const std::string& path, ScriptedReply reply) {
    twin.on("*", host() + path, std::move(reply));
  }
  bool until(const std::function<bool()>& done) { return dispatch->runUntil(done, 1h); }
};

/// The real backend, and a server that plays the same scripts on a socket.
struct RealWorld {
  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  LinuxFiles files;
  test::ScratchFolder scratch;
  std::mutex mutex;
  std::map<std::string, ScriptedReply> replies;
  LoopbackServer server{[this](LoopbackServer::Peer& peer) { play(peer); }};
  std::unique_ptr<Http> backend = makeCurlHttp(*dispatch);
  Http& http = *backend;

  std::string host() const { return server.host(); }
  std::string deadHost() const { return "127.0.0.1:1"; }
  std::string folder() { return scratch.path(); }
  void serve(const std::string& path, ScriptedReply reply) {
    const std::lock_guard lock(mutex);
    replies[path] = std::move(reply);
  }
  bool until(const std::function<bool()>& done) { return test::eventually(done); }

  void play(LoopbackServer::Peer& peer) {
    while (const auto request = peer.request()) {
      const size_t start = request->find(' ') + 1;
      ScriptedReply reply;
      {
        const std::lock_guard lock(mutex);
        reply = replies.at(request->substr(start, request->find(' ', start) - start));
      }
      if (reply.head == ScriptedReply::Head::never) return peer.waitUntilClosed();
      if (!peer.pause(reply.delay) || reply.head == ScriptedReply::Head::lost) return peer.reset();
      HttpResponse head;
      head.headers = reply.headers;
      const bool chunked = head.header("Content-Length").empty();
      std::string text = "HTTP/1.1 " + std::to_string(reply.status) + " Scripted\r\n";
      for (const auto& [name, value] : reply.headers) text += name + ": " + value + "\r\n";
      peer.send(text + (chunked ? "Transfer-Encoding: chunked\r\n\r\n" : "\r\n"));
      if (request->compare(0, 5, "HEAD ") == 0) continue;
      for (const auto& piece : reply.pieces) {
        if (!peer.pause(piece.delay)) return;
        char size[32];
        snprintf(size, sizeof size, "%zx\r\n", piece.bytes.size());
        peer.send(chunked ? size + piece.bytes + "\r\n" : piece.bytes);
      }
      if (reply.end == ScriptedReply::End::never) return peer.waitUntilClosed();
      if (!peer.pause(reply.endDelay)) return;
      if (reply.end == ScriptedReply::End::lost) return peer.reset();
      if (chunked) peer.send("0\r\n\r\n");
    }
  }
};

HttpStreamHandlers logged(Log& log) {
  return {[&log](int status, const HttpHeaders&) { log.add(std::to_string(status) + ":"); },
          [&log](std::string_view bytes) { log.add(std::string(bytes)); },
          [&log](const std::optional<Error>& error) {
            log.add(error ? "!" + std::to_string(error->code) : ".");
          }};
}

/// "200:body." or "!2 Could not connect to ...".
std::function<void(Result<HttpResponse>)> answer(Log& log) {
  return [&log](const Result<HttpResponse>& result) {
    log.add(result ? std::to_string(result->status) + ":" + result->body + "."
                   : "!" + std::to_string(result.error().code) + " " + result.error().description);
  };
}

HttpRequest request(const std::string& url, const std::string& method = "GET") {
  HttpRequest out;
  out.url = url;
  out.method = method;
  return out;
}

template <class World>
struct HttpContract : ::testing::Test {
  World world;
  std::shared_ptr<HttpSession> session(HttpSessionConfiguration configuration = {}) {
    return world.http.makeSession(configuration);
  }
  std::string url(const std::string& path) { return "http://" + world.host() + path; }
  std::string ask(HttpSession& session, HttpRequest what) {
    Log log;
    session.data(std::move(what), answer(log));
    EXPECT_TRUE(world.until([&] { return !log.text().empty(); }));
    return log.text();
  }
  std::string ask(HttpSession& session, const std::string& path) {
    return ask(session, request(url(path)));
  }
};
using Worlds = ::testing::Types<SimulatedWorld, RealWorld>;
TYPED_TEST_SUITE(HttpContract, Worlds);

TYPED_TEST(HttpContract, AnswersAndErrorStatusesComeWhole) {
  this->world.serve("/good", ScriptedReply::json(Json::object({{"a", 1}})));
  this->world.serve("/bad", ScriptedReply::body("no", 503));
  this->world.serve("/empty", ScriptedReply::body("", 204));
  const auto session = this->session();
  EXPECT_EQ(this->ask(*session, "/good"), "200:{\"a\":1}.");
  EXPECT_EQ(this->ask(*session, "/bad"), "503:no.");
  EXPECT_EQ(this->ask(*session, "/empty"), "204:.");
  EXPECT_EQ(this->ask(*session, request(this->url("/good"), "HEAD")), "200:.");
}

TYPED_TEST(HttpContract, FailuresSayWhatHappened) {
  this->world.serve("/lost", ScriptedReply::lost());
  this->world.serve("/cut", ScriptedReply::body("0123456789").cutAfter(4));
  this->world.serve("/never", ScriptedReply::never());
  const auto session = this->session();
  const std::string dead = this->world.deadHost();
  EXPECT_EQ(this->ask(*session, request("http://" + dead + "/")),
            "!2 Could not connect to " + dead);
  const std::string lost = "!4 The connection to " + this->world.host() + " was lost";
  EXPECT_EQ(this->ask(*session, "/lost"), lost);
  EXPECT_EQ(this->ask(*session, "/cut"), lost);
  HttpRequest impatient = request(this->url("/never"));
  impatient.timeout = 50ms;
  EXPECT_EQ(this->ask(*session, impatient), "!3 The request timed out");
  for (const char* bad :
       {"", "nonsense", "ftp://a/", "http://", "file:///etc/passwd", "http://a b/"}) {
    EXPECT_EQ(this->ask(*session, request(bad)), "!1 The address is not valid") << bad;
  }
}

TYPED_TEST(HttpContract, AStreamDeliversWhatCameBeforeTheBreak) {
  this->world.serve("/stream", ScriptedReply::events({{0ms, "a"}, {20ms, "b"}}));
  this->world.serve(
      "/broken",
      ScriptedReply::events({{0ms, "a"}, {20ms, "b"}}).ending(ScriptedReply::End::lost, 20ms));
  const auto session = this->session();
  Log good, broken;
  session->stream(request(this->url("/stream")), logged(good));
  session->stream(request(this->url("/broken")), logged(broken));
  EXPECT_TRUE(this->world.until([&] { return good.has(".") && broken.has("!"); }));
  EXPECT_EQ(good.text(), "200:ab.");
  EXPECT_EQ(broken.text(), "200:ab!4");
}

TYPED_TEST(HttpContract, TheIdleTimeOutStartsAnewWithEachArrivalAndTheWholeOneDoesNot) {
  this->world.serve("/slow", ScriptedReply::events({{700ms, "a"}, {700ms, "b"}, {700ms, "c"}}));
  this->world.serve("/drip",
                    ScriptedReply::events({{50ms, "a"}}).ending(ScriptedReply::End::never));
  HttpSessionConfiguration patient;
  patient.requestTimeout = 2s;
  const auto first = this->session(patient);
  EXPECT_EQ(this->ask(*first, "/slow"), "200:abc.");
  HttpSessionConfiguration bounded;
  bounded.resourceTimeout = 1s;
  const auto second = this->session(bounded);
  Log log;
  second->stream(request(this->url("/drip")), logged(log));
  EXPECT_TRUE(this->world.until([&] { return log.has("!"); }));
  EXPECT_EQ(log.text(), "200:a!3");
}

TYPED_TEST(HttpContract, CancelEndsOnceAndSilencesTheRest) {
  this->world.serve(
      "/long", ScriptedReply::events({{0ms, "a"}, {1ms, "b"}}).ending(ScriptedReply::End::never));
  this->world.serve("/good", ScriptedReply::body("x"));
  const auto session = this->session();
  Log log;
  HttpTaskRef task;
  HttpStreamHandlers handlers = logged(log);
  handlers.onData = [&](std::string_view) {
    log.add("data");
    task->cancel();
    task->cancel();
  };
  // On its own queue, so that the task is known before anything of it arrives.
  session->queue()->post([&] { task = session->stream(request(this->url("/long")), handlers); });
  EXPECT_TRUE(this->world.until([&] { return log.has("!"); }));
  EXPECT_EQ(log.text(), "200:data!5");
  // A task that has ended ignores it.
  Log done;
  const auto finished = session->data(request(this->url("/good")), answer(done));
  EXPECT_TRUE(this->world.until([&] { return done.has("."); }));
  finished->cancel();
  EXPECT_EQ(this->ask(*session, "/good"), "200:x.");
  EXPECT_EQ(done.text(), "200:x.");
  EXPECT_EQ(log.text(), "200:data!5");
}

TYPED_TEST(HttpContract, ASessionThatIsGoneIsSilent) {
  this->world.serve("/never", ScriptedReply::never());
  this->world.serve("/good", ScriptedReply::body("x"));
  Log log;
  auto witness = std::make_shared<int>(0);
  auto session = this->session();
  const auto task = session->data(request(this->url("/never")),
                                  [&log, witness](const auto&) { log.add("called"); });
  session.reset();
  EXPECT_TRUE(this->world.until([&] { return witness.use_count() == 1; }));
  task->cancel();
  const auto other = this->session();
  EXPECT_EQ(this->ask(*other, "/good"), "200:x.");
  EXPECT_EQ(log.text(), "");
}

TYPED_TEST(HttpContract, RequestsOverTheLimitWaitForAPlace) {
  this->world.serve("/slow", ScriptedReply::body("slow").after(100ms));
  this->world.serve("/never", ScriptedReply::never());
  this->world.serve("/fast", ScriptedReply::body("fast"));
  HttpSessionConfiguration narrow;
  narrow.maximumConnectionsPerHost = 1;
  const auto session = this->session(narrow);
  Log log;
  session->data(request(this->url("/slow")), answer(log));
  const auto stuck = session->data(request(this->url("/never")), answer(log));
  session->data(request(this->url("/fast")), answer(log));
  EXPECT_TRUE(this->world.until([&] { return log.has("slow"); }));
  stuck->cancel();
  EXPECT_TRUE(this->world.until([&] { return log.has("fast"); }));
  EXPECT_EQ(log.text(), "200:slow.!5 The request was cancelled200:fast.");
}

TYPED_TEST(HttpContract, ABodyOverTheLimitFails) {
  this->world.serve("/ten", ScriptedReply::body("0123456789"));
  HttpSessionConfiguration small;
  small.maximumBodyBytes = 10;
  EXPECT_EQ(this->ask(*this->session(small), "/ten"), "200:0123456789.");
  small.maximumBodyBytes = 9;
  EXPECT_EQ(this->ask(*this->session(small), "/ten"), "!7 The response is too large");
}

TYPED_TEST(HttpContract, ADownloadIsThereWholeOrNotAtAll) {
  this->world.serve("/file", ScriptedReply::body("0123456789"));
  this->world.serve("/cut", ScriptedReply::body("0123456789").cutAfter(4));
  this->world.serve("/missing", ScriptedReply::body("no", 404));
  const auto session = this->session();
  const std::string folder = this->world.folder();
  Log log, progress;
  const auto fetch = [&](const std::string& path) {
    session->download(
        request(this->url(path)), folder + "/in" + path,
        [&](int64_t received, int64_t total) {
          if (received == total) progress.add(std::to_string(total));
        },
        answer(log));
  };
  fetch("/file");
  EXPECT_TRUE(this->world.until([&] { return log.has("200:."); }));
  EXPECT_EQ(this->world.files.read(folder + "/in/file").value_or(""), "0123456789");
  EXPECT_EQ(progress.text(), "10");
  fetch("/cut");
  EXPECT_TRUE(this->world.until([&] { return log.has("!4"); }));
  fetch("/missing");
  EXPECT_TRUE(this->world.until([&] { return log.has("404:no."); }));
  EXPECT_EQ(this->world.files.list(folder + "/in").value().size(), 1u);
  session->download(request(this->url("/file")), folder + "/in/file/below", nullptr, answer(log));
  EXPECT_TRUE(this->world.until([&] { return log.has("!8 The file could not be written"); }));
}

TEST(SimulatedHttp, EachFaultSiteFailsOnceAndLeavesTheRestAlone) {
  const auto run = [](int armed) {
    const auto dispatch = Simulation::make(7);
    FaultPlan plan;
    plan.arm(armed);
    SimulatedHttp http(*dispatch, &plan);
    http.on("GET", "a:1/x", ScriptedReply::body("12"));
    http.once("GET", "a:1/x", ScriptedReply::body("first"));
    const auto session = http.makeSession({});
    Log log;
    session->data(request("http://a:1/x?q=1"), [&](const auto& first) {
      answer(log)(first);
      session->stream(request("http://a:1/x"), logged(log));
    });
    dispatch->runFor(1s);
    EXPECT_EQ(http.requests("*q=1").size(), 1u);
    EXPECT_EQ(http.running(), 0u);
    return std::pair(log.text(), plan.sites());
  };
  const auto [text, sites] = run(0);
  EXPECT_EQ(text, "200:first.200:12.");
  ASSERT_EQ(sites.size(), 6u);  // two requests, each with a piece and an end
  EXPECT_EQ(sites[0], "http.data");
  EXPECT_EQ(run(1).first, "!2 Could not connect to a:1200:first.");
  EXPECT_EQ(run(2).first, "!4 The connection to a:1 was lost200:12.");
  EXPECT_EQ(run(4).first, "200:first.!2");
  EXPECT_EQ(run(6).first, "200:first.200:12!4");
}

// What only a socket can show.

struct RealHttp : ::testing::Test {
  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  std::unique_ptr<Http> http = makeCurlHttp(*dispatch);
  std::shared_ptr<HttpSession> session = http->makeSession({});

  std::string ask(HttpRequest what) {
    Log log;
    session->data(std::move(what), answer(log));
    EXPECT_TRUE(test::eventually([&] { return !log.text().empty(); }));
    return log.text();
  }
};

TEST_F(RealHttp, EachArrivalIsDeliveredBeforeTheServerSendsMore) {
  Log log;
  // The server goes on only once the client has what was sent: nothing may be held back, neither
  // the head nor half a character.
  LoopbackServer server([&](LoopbackServer::Peer& peer) {
    peer.request();
    const auto step = [&](std::string_view bytes, const std::string& seen) {
      peer.send(bytes);
      EXPECT_TRUE(test::eventually([&] { return log.text() == seen; })) << log.text();
    };
    step("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n", "200:");
    step("a", "200:a");
    step("\xC3", "200:a\xC3");
    step("\xA9", "200:a\xC3\xA9");
    step("b",
         "200:a\xC3\xA9"
         "b.");
  });
  session->stream(request(server.url()), logged(log));
  EXPECT_TRUE(test::eventually([&] { return log.has("."); }));
}

TEST_F(RealHttp, ConnectionsAreReusedAndAClosedOneIsReplaced) {
  std::atomic<int> served = 0;
  LoopbackServer server([&](LoopbackServer::Peer& peer) {
    while (const auto request = peer.request()) {
      // Every third answer is the last of its connection, without a word.
      peer.reply(request->substr(request->find("\r\n\r\n") + 4));
      if (++served % 3 == 0) return;
    }
  });
  for (int i = 0; i < 7; ++i) {
    HttpRequest post = request(server.url(), "POST");
    post.body = "body " + std::to_string(i);
    EXPECT_EQ(ask(post), "200:" + post.body + ".");
  }
  EXPECT_EQ(server.accepted(), 3);
}

TEST_F(RealHttp, RequestsGoOutAsWritten) {
  LoopbackServer server([&](LoopbackServer::Peer& peer) {
    while (const auto request = peer.request()) peer.reply(*request);
  });
  HttpRequest post = request(server.url("/a%20b?c=d"), "PATCH");
  post.headers = {{"X-One", "1\r\nX-Two: 2"}, {"X-Empty", ""}};
  post.body = Bytes(3'000'000, '\0');
  const std::string sent = ask(post);
  EXPECT_NE(sent.find("200:PATCH /a%20b?c=d HTTP/1.1\r\n"), std::string::npos);
  EXPECT_NE(sent.find("\r\nX-One: 1  X-Two: 2\r\n"), std::string::npos);
  EXPECT_NE(sent.find("\r\nX-Empty:\r\n"), std::string::npos);
  EXPECT_EQ(sent.find("Expect"), std::string::npos);
  EXPECT_EQ(sent.find("Content-Type"), std::string::npos);
  EXPECT_EQ(sent.size(), sent.find("\r\n\r\n") + 4 + post.body.size() + 1);
}

TEST_F(RealHttp, MalformedAnswersAreErrors) {
  const auto kindOf = [this](const std::string& raw) {
    LoopbackServer server([raw](LoopbackServer::Peer& peer) {
      peer.request();
      peer.send(raw);
    });
    return ask(request(server.url())).substr(0, 3);
  };
  const std::string head = "HTTP/1.1 200 OK\r\n";
  std::string many = head;
  for (int i = 0; i < 10'000; ++i) many += "X-Header-" + std::to_string(i) + ": 0123456789\r\n";
  EXPECT_EQ(kindOf(head + "Transfer-Encoding: chunked\r\n\r\nzz\r\n"), "!6 ");
  EXPECT_EQ(kindOf("SSH-2.0 hello\r\n\r\n"), "!6 ");
  EXPECT_EQ(kindOf(head + "X: " + std::string(300'000, 'x') + "\r\n\r\n"), "!6 ");
  EXPECT_EQ(kindOf(many + "\r\n"), "!6 ");
  EXPECT_EQ(kindOf(head + "Content-Length: 10\r\n\r\nshort"), "!4 ");
  EXPECT_EQ(kindOf(""), "!4 ");
}

TEST_F(RealHttp, RedirectsAreFollowedForGetOnlyAFewTimesAndToHttpOnly) {
  LoopbackServer server([&](LoopbackServer::Peer& peer) {
    while (const auto request = peer.request()) {
      const size_t slash = request->find('/') + 1;
      const int left = std::atoi(request->substr(slash, 3).c_str());
      const std::string target =
          left == 100 ? "file:///etc/passwd" : "/" + std::to_string(left - 1);
      if (left == 0) {
        peer.reply("arrived");
      } else {
        peer.send("HTTP/1.1 302 Found\r\nContent-Length: 4\r\nLocation: " + target +
                  "\r\n\r\ngone");
      }
    }
  });
  EXPECT_EQ(ask(request(server.url("/5"))), "200:arrived.");
  EXPECT_EQ(ask(request(server.url("/6"))).substr(0, 3), "!6 ");
  EXPECT_EQ(ask(request(server.url("/100"))).substr(0, 3), "!6 ");
  EXPECT_EQ(ask(request(server.url("/1"), "POST")), "302:gone.");
}

TEST_F(RealHttp, ASlowReaderHoldsTheSenderBackInsteadOfFillingMemory) {
  constexpr size_t total = 64u << 20;
  std::atomic<size_t> sent = 0;
  LoopbackServer server([&](LoopbackServer::Peer& peer) {
    peer.request();
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(total) + "\r\n\r\n");
    const std::string block(1u << 20, 'x');
    while (sent < total && peer.send(block)) sent += block.size();
    peer.waitUntilClosed();
  });
  const auto gate = dispatch->makeSemaphore(0, "the test lets it read");
  std::atomic<size_t> received = 0;
  Log log;
  HttpStreamHandlers handlers = logged(log);
  handlers.onData = [&](std::string_view bytes) {
    if (received == 0) gate->wait();
    received += bytes.size();
  };
  session->stream(request(server.url()), handlers);
  // The sender has stopped once nothing moves while the reader is held.
  size_t before = 0;
  int still = 0;
  EXPECT_TRUE(test::eventually([&] {
    still = sent > 0 && sent == before ? still + 1 : 0;
    before = sent;
    return still > 200;
  }));
  EXPECT_LT(sent, total / 2);
  gate->signal();
  EXPECT_TRUE(test::eventually([&] { return log.has("."); }));
  EXPECT_EQ(received, total);
}

TEST_F(RealHttp, StoppingTheNetworkEndsWhatRuns) {
  LoopbackServer server([](LoopbackServer::Peer& peer) { peer.waitUntilClosed(); });
  Log log;
  const auto task = session->data(request(server.url()), answer(log));
  http.reset();
  EXPECT_EQ(ask(request(server.url())).substr(0, 3), "!5 ");
  EXPECT_EQ(log.text().substr(0, 3), "!5 ");
  task->cancel();
}

TEST_F(RealHttp, ManyStreamsAtOnceLoseNothing) {
  LoopbackServer server([](LoopbackServer::Peer& peer) {
    // A late stream may come over the connection of one that has ended.
    while (peer.request()) {
      peer.send("HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\n");
      for (int i = 0; i < 1000; ++i) peer.send(std::to_string(1000 + i));
    }
  });
  HttpSessionConfiguration wide;
  wide.maximumConnectionsPerHost = 64;
  session = http->makeSession(wide);
  std::string expected = "200:";
  for (int i = 0; i < 1000; ++i) expected += std::to_string(1000 + i);
  std::vector<std::unique_ptr<Log>> logs;
  for (int i = 0; i < 64; ++i) {
    logs.push_back(std::make_unique<Log>());
    session->stream(request(server.url()), logged(*logs.back()));
  }
  for (const auto& log : logs) {
    EXPECT_TRUE(test::eventually([&] { return log->has("."); }));
    EXPECT_EQ(log->text(), expected + ".");
  }
}

}  // namespace
}  // namespace kestrin
