#include "app/desk.h"

namespace kestrin::test {
namespace {

TEST(Account, TakesTheDevicesPlaceInAgentRequestsUntilSignOut) {
  Desk desk;
  desk.files.put("/home/user/.local/share/com.kestrin.kestrin/firebase_user.json",
                 User{"uid-1", "ada@example.org", "id-token", "", ""}.toJson().dump());
  auto& core = desk.startReady().core();
  const std::string device = core.deviceId.deviceId();
  const auto carried = [&](const std::string& where) {
    const HttpRequest request = desk.http.requests(where).back().request;
    const Json body = Json::parse(request.body).value();
    std::string bearer;
    for (const auto& [name, value] : request.headers) {
      if (name == "Authorization") bearer = value;
    }
    EXPECT_EQ(body.stringAt("device_id"), device);
    return body.stringAt("user_id", "") + " " + body.stringAt("user_email", "-") + " " + bearer;
  };
  desk.dictateWhole();
  EXPECT_EQ(carried("127.0.0.1:8765/process/stream"), "uid-1 ada@example.org Bearer id-token");
  EXPECT_EQ(carried("127.0.0.1:8780/log-transcription"), device + " ada@example.org ");

  core.auth.signOut();
  desk.dictateWhole();
  EXPECT_EQ(desk.streams(), 2u);
  EXPECT_EQ(carried("127.0.0.1:8765/process/stream"), device + " - ");
}

}  // namespace
}  // namespace kestrin::test
