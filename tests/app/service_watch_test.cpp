#include "app/service_watch.h"

#include "app/desk.h"

namespace kestrin::test {
namespace {

using Service = ServiceWatch::Service;

TEST(ServiceWatch, NamesWhatIsDownUntilItAnswersAgain) {
  Desk desk;
  auto& watch = desk.start().serviceWatch();
  int told = 0;
  watch.onChange = [&] { ++told; };
  const ServiceWatch::Services page{Service::agent, Service::records};
  const auto look = [&] {
    desk.onMain([&] { watch.check(); });
    EXPECT_TRUE(watch.isChecking());
    EXPECT_TRUE(desk.simulation->runUntil([&] { return !watch.isChecking(); }, 15s));
  };
  EXPECT_FALSE(watch.isAnyDown(page)) << "nobody has looked yet";
  desk.http.once("GET", "127.0.0.1:8765/health", ScriptedReply::never());
  look();
  EXPECT_EQ(watch.text(page), "") << "one missed answer is no outage";
  EXPECT_GT(told, 0);

  desk.http.on("GET", "127.0.0.1:8780/", ScriptedReply::refused());
  desk.http.on("GET", "127.0.0.1:8001/", ScriptedReply::json(Json::object({}), 503));
  look();
  EXPECT_TRUE(watch.isDown(Service::records));
  EXPECT_EQ(watch.text(page).find("The service that keeps the records (http://127.0.0.1:8780)"), 0U)
      << watch.text(page);
  EXPECT_EQ(watch.text(page).find('\n'), std::string::npos) << "this page needs no recogniser";
  EXPECT_EQ(watch.text({Service::recogniser}),
            "The speech recogniser (http://127.0.0.1:8001) does not answer: status 503");
  EXPECT_FALSE(watch.isAnyDown({Service::agent}));

  desk.http.on("GET", "127.0.0.1:8780/", ScriptedReply::json(Json::object({{"status", "ok"}})));
  look();
  EXPECT_EQ(watch.text(page), "");
}

}  // namespace
}  // namespace kestrin::test
