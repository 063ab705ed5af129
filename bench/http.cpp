// What a session costs over the bare library: a loopback request there and back, and an event of a
// stream from the server's send to the handler. Printed as a ratio to a floor measured in the same
// run.
#include <algorithm>
#include <cstdio>
#include <curl/curl.h>
#include <future>
#include <vector>

#include "../tests/support/loopback_server.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/curl_http.h"

using namespace kestrin;
using Steady = std::chrono::steady_clock;

namespace {

constexpr int rounds = 3000;

double microseconds(Steady::duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count();
}

struct Figures {
  double median, late;
};
Figures figuresOf(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return {times[times.size() / 2], times[times.size() * 99 / 100]};
}

template <class Once>
Figures measure(Once once) {
  std::vector<double> times;
  for (int i = 0; i < rounds + 100; ++i) {
    const auto start = Steady::now();
    once();
    if (i >= 100) times.push_back(microseconds(Steady::now() - start));
  }
  return figuresOf(std::move(times));
}

void print(const char* what, Figures floor, Figures ours) {
  std::printf("%-28s floor %7.1f / %7.1f us   ours %7.1f / %7.1f us   ratio %.2f / %.2f\n", what,
              floor.median, floor.late, ours.median, ours.late, ours.median / floor.median,
              ours.late / floor.late);
}

size_t discard(char*, size_t size, size_t count, void*) { return size * count; }

}  // namespace

int main() {
  test::LoopbackServer server([](test::LoopbackServer::Peer& peer) {
    while (const auto request = peer.request()) peer.reply("{\"text\":\"hello\"}");
  });
  const std::string body(96'000, 'p');  // three seconds of speech
  const std::string url = server.url();

  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
  const auto bare = [easy] { curl_easy_perform(easy); };

  const auto dispatch = ThreadsDispatch::make();
  const auto http = makeCurlHttp(*dispatch);
  const auto session = http->makeSession({});
  HttpRequest request;
  request.url = url;
  const auto ours = [&] {
    std::promise<void> done;
    session->data(request, [&done](const auto&) { done.set_value(); });
    done.get_future().wait();
  };
  print("GET, median / 99th", measure(bare), measure(ours));

  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  request.method = "POST";
  request.body = body;
  print("POST of 96 kB", measure(bare), measure(ours));
  curl_easy_cleanup(easy);

  // One byte at a time: the server sends the next once the last was seen.
  std::atomic<Steady::rep> sentAt = 0;
  std::promise<void> streamed;
  std::vector<double> delays;
  const auto gate = dispatch->makeSemaphore(1, "the byte was seen");
  test::LoopbackServer drip([&](test::LoopbackServer::Peer& peer) {
    peer.request();
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(rounds) + "\r\n\r\n");
    for (int i = 0; i < rounds; ++i) {
      gate->wait();
      sentAt = Steady::now().time_since_epoch().count();
      peer.send("x");
    }
    peer.waitUntilClosed();
  });
  HttpStreamHandlers handlers;
  handlers.onData = [&](std::string_view) {
    delays.push_back(microseconds(Steady::now().time_since_epoch() - Steady::duration(sentAt)));
    gate->signal();
  };
  handlers.onComplete = [&](const auto&) { streamed.set_value(); };
  request = {};
  request.url = drip.url();
  session->stream(request, handlers);
  streamed.get_future().wait();
  const Figures stream = figuresOf(std::move(delays));
  std::printf("%-28s %7.1f / %7.1f us\n", "byte sent to handler", stream.median, stream.late);
}
