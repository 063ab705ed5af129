#include "platform/linux/eds_calendars.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>

#include "platform/linux/evolution_sources.h"
#include "platform/linux/linux_files.h"
#include "platform/private_bus.h"
#include "platform/text/text.h"
#include "support/worlds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

const Date from = *dates::parseIso8601("2026-03-20T00:00:00Z");
const Date to = *dates::parseIso8601("2026-04-03T00:00:00Z");
const std::string serverPrefix = "org.gnome.evolution.dataserver.";

std::string event(const std::string& uid, const std::string& title, const std::string& lines) {
  return text::replaceAll(
      "BEGIN:VEVENT\nUID:" + uid + "\nSUMMARY:" + title + "\n" + lines + "END:VEVENT\n", "\n",
      "\r\n");
}
/// An event in the range.
std::string event(const std::string& title) {
  return event(title, title, "DTSTART:20260401T080000Z\nDTEND:20260401T090000Z\n");
}
std::string source(const std::string& name, const std::string& sourceLines = {},
                   const std::string& calendarLines = {}) {
  return "[Data Source]\nDisplayName=" + name + "\n" + sourceLines +
         "\n[Calendar]\nBackendName=local\nColor=rgb(1,2,255)\n" + calendarLines;
}

/// A user's folders, and what this user's calendars give.
struct User {
  void own(const std::string& events) {
    write("config/kestrin/calendars/mine.ics", calendar(events));
  }
  void evolution(const std::string& folder, const std::string& keyFile, const std::string& events) {
    if (!keyFile.empty())
      write("config/evolution/sources/" + (folder == "system" ? "system-calendar" : folder) +
                ".source",
            keyFile);
    write("data/evolution/calendar/" + folder + "/calendar.ics", calendar(events));
  }
  EdsCalendars calendars(const std::string& address, Duration patience = 60s) {
    return EdsCalendars(
        files, [address] { return dbus::Connection::open(address); }, patience);
  }
  /// By start and title.
  static std::vector<CalendarRecord> sorted(Calendars& calendars) {
    auto records = calendars.events(from, to).value();
    std::sort(records.begin(), records.end(), [](const auto& a, const auto& b) {
      return std::tie(a.start, a.title) < std::tie(b.start, b.title);
    });
    return records;
  }
  static std::string titles(Calendars& calendars) {
    std::string out;
    for (const auto& record : sorted(calendars)) out += record.title + " ";
    return text::trim(out);
  }
  /// Each record with all that it says.
  static std::string told(Calendars& calendars) {
    std::string out;
    for (const auto& r : sorted(calendars)) {
      for (const std::string& part : {r.id, r.title, dates::iso8601(r.start), dates::iso8601(r.end),
                                      std::string(r.allDay ? "all day" : ""), r.location, r.notes,
                                      r.calendarName, r.color, r.organizer})
        out += part + "|";
      out += "\n";
    }
    return out;
  }

  test::ScratchFolder home;
  LinuxFiles files;

 private:
  static std::string calendar(const std::string& events) {
    return "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//t//t\r\n" + events + "END:VCALENDAR\r\n";
  }
  void write(const std::string& path, const std::string& content) {
    ASSERT_TRUE(files.writeAtomic(home.file(path), content));
  }
  const test::Variable home_{"HOME", home.path()};
  const test::Variable config_{"XDG_CONFIG_HOME", home.file("config")};
  const test::Variable data_{"XDG_DATA_HOME", home.file("data")};
  const test::Variable cache_{"XDG_CACHE_HOME", home.file("cache")};
  const test::Variable runtime_{"XDG_RUNTIME_DIR", home.path()};
  const test::Variable settings_{"GSETTINGS_BACKEND", "memory"};
};

/// A bus that starts the installed server of calendars in the user's folders, and nothing else.
class ServerBus {
 public:
  explicit ServerBus(const User& user) {
    fs::create_directories(user.home.file("services"));
    for (const auto& file : fs::directory_iterator("/usr/share/dbus-1/services")) {
      const std::string name = file.path().filename();
      // Address books are not needed, and would come and go as they like.
      if (name.rfind(serverPrefix + "Sources", 0) == 0 ||
          name.rfind(serverPrefix + "Calendar", 0) == 0)
        fs::copy(file.path(), user.home.file("services"));
    }
    EXPECT_FALSE(fs::is_empty(user.home.file("services"))) << "evolution-data-server is needed";
    std::ofstream(user.home.file("bus.conf"))
        << "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen><servicedir>"
        << user.home.file("services")
        << "</servicedir><policy context='default'><allow send_destination='*'/>"
           "<allow own='*'/><allow receive_sender='*'/></policy></busconfig>";
    bus = std::make_unique<PrivateBus>("--config-file=" + user.home.file("bus.conf"));
    client = bus->connect();
  }
  /// The server ends with its bus; until then it writes to the user's folders.
  ~ServerBus() {
    std::vector<std::string> programs;
    for (const std::string& name : names()) {
      if (name.rfind(serverPrefix, 0) != 0) continue;
      if (const auto pid = client->processId(name, 30s))
        programs.push_back("/proc/" + std::to_string(*pid) + "/exe");
    }
    bus->stop();
    EXPECT_TRUE(test::eventually([&] {
      return std::none_of(programs.begin(), programs.end(),
                          [](const std::string& program) { return fs::exists(program); });
    }));
  }
  std::vector<std::string> names() {
    return client
        ->call<std::vector<std::string>>(
            {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"}, "ListNames",
            30s)
        .value_or(std::vector<std::string>{});
  }
  size_t clients() {
    const auto all = names();
    return static_cast<size_t>(
        std::count_if(all.begin(), all.end(), [](const auto& name) { return name[0] == ':'; }));
  }
  std::unique_ptr<PrivateBus> bus;
  std::unique_ptr<dbus::Connection> client;
};

TEST(EdsCalendars, TheServerGivesWhatTheReaderOfItsFilesGives) {
  User user;
  user.own(event("Own"));
  const std::string paris = ";TZID=Europe/Paris:";
  const auto moved = [&](const char* day, const char* title, const char* toDay) {
    return event("w", title,
                 "RECURRENCE-ID" + paris + day + "T090000\nDTSTART" + paris + toDay +
                     "T150000\nDTEND" + paris + toDay + "T160000\n");
  };
  user.evolution("work", source("Work"),
                 text::replaceAll("BEGIN:VTIMEZONE\nTZID:Office \"5\"\nBEGIN:STANDARD\n"
                                  "DTSTART:19700101T000000\nTZOFFSETFROM:+0530\nTZOFFSETTO:+0530\n"
                                  "END:STANDARD\nEND:VTIMEZONE\n",
                                  "\n", "\r\n") +
                     event("w", "Weekly",
                           "DTSTART" + paris + "20260302T090000\nDTEND" + paris +
                               "20260302T100000\nRRULE:FREQ=WEEKLY\n"
                               "LOCATION:Room\\, 1\nDESCRIPTION:Long\n") +
                     moved("20260323", "Later", "20260324") +
                     moved("20260330", "Away", "20260520") +
                     event(R"(d "q" \\n)", "Daily",
                           "DTSTART;VALUE=DATE:20260327\nRRULE:FREQ=DAILY;COUNT=3\n"
                           "EXDATE;VALUE=DATE:20260328\n") +
                     event("z", "Zone",
                           "DTSTART;TZID=Office \"5\":20260401T120000\nDURATION:PT1H\n"
                           "ORGANIZER:mailto:a@x.example\n") +
                     event("f", "Floating", "DTSTART:20260325T120000\nDURATION:PT1H\n") +
                     event("c", "Cancelled", "DTSTART:20260325T120000\nSTATUS:CANCELLED\n"));
  user.evolution("system", source("Personal"), event("Private"));
  user.evolution("off", source("Off", "Enabled=false\n"), event("Off"));
  user.evolution("unticked", source("Unticked", "", "Selected=false\n"), event("Unticked"));
  user.evolution("account", source("Account", "Enabled=false\n"), event("Account"));
  user.evolution("child", source("Child", "Parent=account\n"), event("Child"));
  user.evolution("trash/old", "", event("Deleted"));

  ServerBus server(user);
  EdsCalendars calendars = user.calendars(server.bus->address());
  FileCalendars files(user.files);
  const std::string expected = User::told(files);
  EXPECT_EQ(User::titles(calendars), "Later Floating Daily Daily Zone Own Private");
  EXPECT_EQ(User::told(calendars), expected);
  EXPECT_NE(expected.find("|a@x.example|\n"), expected.npos);
  EXPECT_NE(expected.find("|Personal|#0102ff||\n"), expected.npos);
  const auto names = server.names();
  ASSERT_TRUE(std::any_of(names.begin(), names.end(), [](const std::string& name) {
    return name.rfind(serverPrefix + "Calendar", 0) == 0;
  })) << "it was the server that answered";

  const size_t before = server.clients();
  std::vector<std::future<std::string>> readers;
  for (int i = 0; i < 4; ++i)
    readers.push_back(std::async(std::launch::async, [&] { return User::told(calendars); }));
  for (auto& reader : readers) EXPECT_EQ(reader.get(), expected);
  EXPECT_TRUE(test::eventually([&] { return server.clients() == before; }))
      << "a reading leaves no connection behind";
}

/// A data server of another release, on a bus of its own.
class FakeServer {
 public:
  using Objects = std::vector<std::string>;
  /// Opening a calendar that has no objects here fails; one named "silent" is never opened.
  FakeServer(const std::map<std::string, std::string>& sources,
             std::map<std::string, Objects> objects, bool silent = false)
      : objects_(std::move(objects)) {
    const std::string paths = "/org/gnome/evolution/dataserver/";
    EXPECT_TRUE(registry_->requestName(serverPrefix + "Sources12"));
    EXPECT_TRUE(factory_->requestName(serverPrefix + "Calendar21"));
    const auto publish = [this](dbus::Connection& on, const std::string& path, auto declare) {
      published_.push_back(on.exportObject(path, declare).value());
    };
    publish(*registry_, paths + "SourceManager", [](sdbus::IObject& o) { o.addObjectManager(); });
    for (const auto& each : sources) {
      publish(*registry_, paths + "SourceManager/" + each.first, [&](sdbus::IObject& o) {
        const std::string interface = serverPrefix + "Source";
        o.registerProperty("UID").onInterface(interface).withGetter(
            [this, silent, id = each.first] {
              if (silent) released_.wait();
              return id;
            });
        o.registerProperty("Data").onInterface(interface).withGetter(
            [keyFile = each.second] { return keyFile; });
      });
    }
    publish(*factory_, paths + "CalendarFactory", [this, paths](sdbus::IObject& o) {
      o.registerMethod("OpenCalendar")
          .onInterface(serverPrefix + "CalendarFactory")
          .implementedAs([this, paths](sdbus::Result<std::string, std::string>&& result,
                                       const std::string& id) {
            if (id == "silent") return;
            if (objects_.count(id) == 0) return result.returnError(sdbus::Error("org.x.No", "no"));
            result.returnResults(paths + id, factory_->uniqueName());
          });
    });
    for (const auto& each : objects_) {
      publish(*factory_, paths + each.first, [&](sdbus::IObject& o) {
        const std::string interface = serverPrefix + "Calendar";
        o.registerMethod("Open").onInterface(interface).implementedAs([] { return Objects{}; });
        o.registerMethod("GetObjectList")
            .onInterface(interface)
            .implementedAs([&list = each.second](const std::string&) { return list; });
        o.registerMethod("GetTimezone")
            .onInterface(interface)
            .implementedAs([](const std::string&) -> std::string {
              throw sdbus::Error("org.x.No", "no such zone");
            });
      });
    }
  }
  ~FakeServer() { release_.set_value(); }
  const std::string& address() const { return bus_.address(); }

 private:
  PrivateBus bus_;
  std::promise<void> release_;
  std::shared_future<void> released_ = release_.get_future().share();
  std::map<std::string, Objects> objects_;
  std::unique_ptr<dbus::Connection> registry_ = bus_.connect(), factory_ = bus_.connect();
  std::vector<SubscriptionHandle> published_;
};

TEST(EdsCalendars, WhatTheServerCannotReadComesFromItsFilesAndNothingTwice) {
  User user;
  user.own(event("Own"));
  user.evolution("good", "", event("Good-in-file"));
  user.evolution("refused", source("Refused"), event("Refused-in-file"));
  user.evolution("forgotten", source("Forgotten"), event("Forgotten"));
  FakeServer server({{"good", source("Good")},
                     {"refused", source("Refused")},
                     {"broken", source("Broken")},
                     {"nonsense", "\n[Calendar\n"},
                     {"off", source("Off", "Enabled=false\n")}},
                    {{"good", {event("Served"), event("Served")}},
                     {"broken",
                      {"", "BEGIN:VEVENT\r\nUID:x", "é", "END:VCALENDAR\r\n",
                       event("z", "Zoned", "DTSTART;TZID=Nowhere:20260401T080000\n"),
                       event("Whole"), "BEGIN:VEVENT\r\nDTSTART:soon\r\nEND:VEVENT\r\n"}},
                     {"off", {event("Off")}}});
  EdsCalendars calendars = user.calendars(server.address());
  EXPECT_EQ(User::titles(calendars), "Own Refused-in-file Served Whole Zoned");
}

TEST(EdsCalendars, AServerThatHangsOrIsNotThereLeavesTheFiles) {
  User user;
  user.own(event("Own"));
  user.evolution("silent", source("Silent"), event("Silent-in-file"));
  const std::string fromFiles = "Own Silent-in-file";
  FakeServer mute({{"silent", source("Silent")}}, {}, true);
  FakeServer stuck({{"silent", source("Silent")}}, {});
  for (const std::string& address : {mute.address(), stuck.address()}) {
    EdsCalendars calendars = user.calendars(address, 200ms);
    EXPECT_EQ(User::titles(calendars), fromFiles);
  }
  EdsCalendars none =
      user.calendars(PrivateBus("--config-file=" + user.home.file("none")).address());
  EXPECT_EQ(User::titles(none), fromFiles) << "no bus";
}

TEST(EvolutionSources, SayWhichCalendarsAreShownAndHow) {
  const test::Variable language("LANGUAGE", "de");
  const auto calendars = evolutionCalendars(
      {{"named", source("Personal\nDisplayName[de]=Eigenes\nDisplayName[fr]=Perso")},
       {"loop", source("Loop", "Parent=loop\n")},
       {"below", source("Below", "Parent=loop\n")},
       {"off", "[Data Source]\nEnabled=false\n"},
       {"belowOff", source("Below", "Parent=off\n")},
       {"switched", source("Switched", "", "Enabled=false\n")},
       {"painted", "[Data Source]\n[Calendar]\nColor=#3584e4\n"},
       {"odd", "[Data Source]\n[Calendar]\nColor=rgb(300,0,0)\n"},
       {"torn", "[Calendar]\nColor"},
       {"mail", "[Data Source]\n[Mail Account]\n"}});
  std::string said;
  for (const auto& [id, calendar] : calendars)
    said += id + "=" + calendar.name + calendar.color + (calendar.shown ? "+" : "-") + " ";
  EXPECT_EQ(said,
            "below=Below#0102ff+ belowOff=Below#0102ff- loop=Loop#0102ff+ named=Eigenes#0102ff+ "
            "odd=+ painted=#3584e4+ switched=Switched#0102ff- ");
}

}  // namespace
}  // namespace kestrin
