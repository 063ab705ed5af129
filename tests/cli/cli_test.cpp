#include <algorithm>
#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>

#include "platform/audio/wav.h"
#include "platform/json/json.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/posix_processes.h"
#include "platform/text/text.h"
#include "support/loopback_server.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

/// Runs the built program with a home of its own and no services, display or bus.
struct Terminal {
  ProcessOutput run(std::vector<std::string> arguments, Bytes input = {},
                    const std::string& services = "http://127.0.0.1:9") {
    const auto output = processes->run(
        {.program = std::string(KESTRIN_BINARY_DIR) + "/bin/kestrin",
         .arguments = std::move(arguments),
         .environment = {{"HOME", folder.path()},
                         {"XDG_CONFIG_HOME", folder.file("config")},
                         {"XDG_DATA_HOME", folder.file("data")},
                         {"XDG_RUNTIME_DIR", folder.path()},
                         {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder.file("nobus")},
                         {"DISPLAY", ""},
                         {"WAYLAND_DISPLAY", ""},
                         {"PULSE_SERVER", "unix:" + folder.file("nosound")},
                         {"KESTRIN_ASR_URL", services},
                         {"KESTRIN_AGENT_URL", services},
                         {"KESTRIN_LLM_URL", services},
                         {"KESTRIN_BACKEND_URL", services}},
         .input = std::move(input)},
        std::chrono::seconds(60));
    return output ? *output
                  : ProcessOutput{.exitCode = -1, .standardError = output.error().description};
  }

  ScratchFolder folder;
  std::unique_ptr<Processes> processes = makePosixProcesses();
};

TEST(Cli, WrongUsageIsStatusTwo) {
  Terminal terminal;
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{"frobnicate"},
                                             {"dictate"},
                                             {"dictate", "--wav"},
                                             {"dictate", "--nope"},
                                             {"settings"},
                                             {"services"},
                                             {"services", "sideways"},
                                             {"settings", "set", "only-key"},
                                             {"press", "extra"},
                                             {"speak"},
                                             {"research"},
                                             {"research", " "},
                                             {"live", "--mic", "only.wav"},
                                             {"history", "--limit", "0"},
                                             {"--nope"}}) {
    const auto output = terminal.run(arguments);
    EXPECT_EQ(output.exitCode, 2) << text::join(arguments, " ");
    EXPECT_EQ(output.standardOutput, "");
    EXPECT_NE(output.standardError, "");
  }
}

TEST(Cli, HelpAndVersionAreStatusZeroAndTheManualSaysTheSame) {
  Terminal terminal;
  const auto help = terminal.run({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  for (const char* command :
       {"dictate",  "press",    "release", "toggle",   "cancel", "show",  "status",
        "quit",     "retry",    "elevate", "lower",    "speak",  "setup", "doctor",
        "settings", "services", "history", "research", "live",   "note",  "terminal"}) {
    EXPECT_NE(help.standardOutput.find(std::string("\n  ") + command + " "), std::string::npos);
    EXPECT_EQ(terminal.run({command, "--help"}).exitCode, 0);
  }
  EXPECT_EQ(terminal.run({"--version"}).standardOutput.rfind("kestrin ", 0), 0u);
  const auto page = LinuxFiles().read(std::string(KESTRIN_SOURCE_DIR) + "/packaging/man/kestrin.1");
  EXPECT_EQ(terminal.run({"--help-man"}).standardOutput, page.value_or("")) << "run scripts/man";
  const auto completion =
      LinuxFiles().read(std::string(KESTRIN_SOURCE_DIR) + "/packaging/completions/kestrin");
  EXPECT_EQ(terminal.run({"--help-completion"}).standardOutput, completion.value_or(""))
      << "run scripts/man";
}

TEST(Cli, ATornOrEmptyRecordingIsAClearError) {
  Terminal terminal;
  const auto whole = wav::write(Bytes(32000, '\1'));
  for (const Bytes& bytes :
       {Bytes(), whole.substr(0, 20), whole.substr(0, 44), Bytes("RIFFnoise")}) {
    const auto output = terminal.run({"dictate", "--wav", "-", "--json"}, bytes);
    EXPECT_EQ(output.exitCode, 1);
    EXPECT_NE(output.standardError, "");
    const auto event = Json::parse(output.standardOutput);
    ASSERT_TRUE(event) << output.standardOutput;
    EXPECT_EQ(event->stringAt("event"), "error");
    EXPECT_EQ(event->stringAt("domain"), "WAV");
  }
  EXPECT_EQ(terminal.run({"dictate", "--wav", terminal.folder.file("nothing.wav")}).exitCode, 1);
}

TEST(Cli, ARecogniserThatIsDownEndsTheDictationWithItsError) {
  Terminal terminal;
  const auto output =
      terminal.run({"dictate", "--wav", "-", "--json"}, wav::write(Bytes(32000, '\1')));
  EXPECT_EQ(output.exitCode, 1);
  std::vector<std::string> events;
  for (const auto& line : text::split(text::trim(output.standardOutput), "\n")) {
    const auto event = Json::parse(line);
    ASSERT_TRUE(event) << line;
    events.push_back(event->stringAt("event", ""));
  }
  EXPECT_EQ(events, (std::vector<std::string>{"status", "status", "error"}));
}

TEST(Cli, TheHistoryComesFromTheBackendElseFromWhatWasKept) {
  Terminal terminal;
  const auto nothing = terminal.run({"history"});
  EXPECT_EQ(nothing.exitCode, 1);
  EXPECT_NE(nothing.standardError.find("this machine kept none"), std::string::npos);

  const std::string answer =
      R"({"history":[{"timestamp":"2020-05-01T12:00:00Z","mode":"chat","transcript":"a",)"
      R"("processedText":"older"},{"timestamp":"2020-05-02T12:00:00Z","mode":"email",)"
      R"("transcript":"b","processedText":"newer\n\u001b[31mred\u009b","appName":"Mail"}]})";
  std::string asked;
  {
    LoopbackServer server([&](LoopbackServer::Peer& peer) {
      asked = peer.request().value_or("");
      peer.reply(answer);
    });
    const auto shown = terminal.run({"history"}, {}, server.url(""));
    EXPECT_EQ(shown.exitCode, 0) << shown.standardError;
    std::vector<std::string> lines = text::split(shown.standardOutput, "\n");
    ASSERT_EQ(lines.size(), 9u) << shown.standardOutput;
    EXPECT_EQ(lines[0], "May 2, 2020");
    EXPECT_TRUE(lines[1].ends_with("  email · Mail")) << lines[1];
    EXPECT_EQ(lines[2], "         newer");
    EXPECT_EQ(lines[3], "         [31mred") << "the terminal would obey";
    EXPECT_EQ(lines[4], "");
    EXPECT_EQ(lines[5], "May 1, 2020");
  }
  EXPECT_NE(asked.find("GET /history/device_"), std::string::npos) << asked;
  EXPECT_NE(asked.find("limit=50"), std::string::npos) << asked;
  const auto kept = terminal.run({"history", "--json", "--limit", "1"});
  EXPECT_EQ(kept.exitCode, 0);
  EXPECT_NE(kept.standardError.find("this is what this machine kept"), std::string::npos);
  const auto entry = Json::parse(kept.standardOutput);
  ASSERT_TRUE(entry) << kept.standardOutput;
  EXPECT_EQ(entry->stringAt("output"), "newer\n\x1B[31mred\xC2\x9B");
  EXPECT_EQ(entry->stringAt("app_context"), "Mail");
  EXPECT_EQ(std::filesystem::status(terminal.folder.file("data/Kestrin/Cache/history.json"))
                .permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(Cli, SpeakIsHeardAtTheVolumeOfRepliesAndEndsWithItsText) {
  Terminal terminal;
  const std::string script =
      "parec --raw --rate=16000 --channels=1 --format=s16le -d speakers.monitor >heard & "
      "recorder=$!; until [ -s heard ]; do sleep 0.02; done; " +
      std::string(KESTRIN_BINARY_DIR) +
      "/bin/kestrin speak -- --one two three; status=$?; kill $recorder; exit $status";
  const auto heard = [&](const char* volume) {
    EXPECT_EQ(terminal.run({"settings", "set", "pref_voiceVolume", volume}).exitCode, 0);
    const auto output = terminal.processes->run(
        {.program = std::string(KESTRIN_SOURCE_DIR) + "/scripts/private-sound",
         .arguments = {"bash", "-c", script},
         .environment = {{"XDG_CONFIG_HOME", terminal.folder.file("config")}},
         .workingFolder = terminal.folder.path()},
        std::chrono::seconds(60));
    EXPECT_TRUE(output && output->exitCode == 0) << (output ? output->standardError : "");
    double peak = 0;
    for (const float sample :
         wav::fromPcm16(LinuxFiles().read(terminal.folder.file("heard")).value_or(""))) {
      peak = std::max(peak, std::fabs(double(sample)));
    }
    return peak;
  };
  const double loud = heard("100");
  EXPECT_GT(loud, 0.2);
  EXPECT_LT(heard("40"), loud * 0.7);
  EXPECT_EQ(heard("0"), 0);
}

TEST(Cli, SpeakWithoutSoundOrWordsFailsAndSaysWhy) {
  Terminal terminal;
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{"speak", "hello"}, {"speak", " "}, {"speak", "-"}}) {
    const auto output = terminal.run(arguments);
    EXPECT_EQ(output.exitCode, 1);
    EXPECT_EQ(output.standardOutput, "");
    EXPECT_EQ(output.standardError.rfind("kestrin: ", 0), 0u) << output.standardError;
  }
}

TEST(Cli, ADictationIsPrintedAndItsReportReachesTheBackendBeforeTheEnd) {
  Log reported;
  LoopbackServer services([&](LoopbackServer::Peer& peer) {
    while (const auto request = peer.request()) {
      if (request->starts_with("POST /transcribe/pcm")) {
        peer.reply("{\"transcript\":\"hello there\"}");
      } else if (request->starts_with("POST /process/stream")) {
        peer.reply("data: {\"chunk\":\"Hello there.\"}\n\ndata: [DONE]\n\n");
      } else if (request->starts_with("POST /log-transcription")) {
        // A backend that takes its time, but not forever.
        if (peer.pause(std::chrono::milliseconds(300)) && peer.reply("{}")) reported.add(*request);
      }
    }
  });
  Terminal terminal;
  const auto output = terminal.run({"dictate", "--wav", "-"}, wav::write(Bytes(32000, '\1')),
                                   "http://" + services.host());
  EXPECT_EQ(output.exitCode, 0) << output.standardError;
  EXPECT_EQ(output.standardOutput, "Hello there.\n");
  EXPECT_TRUE(reported.has("\"processed_text\":\"Hello there.\"")) << reported.text();
}

TEST(Cli, AResearchTellsItsStepsThenPrintsTheAnswerAndItsSources) {
  Terminal terminal;
  const std::string stream =
      "data: {\"step_type\":\"reading\",\"title\":\"A\\u001b[2Jpage\",\"url\":\"https://a\"}\n\n"
      "data: {\"summary\":\"It **is**.\",\"sources\":[{\"title\":\"T\",\"url\":\"https://t\","
      "\"snippet\":\"s\"}]}\n\n";
  Log asked;
  LoopbackServer server([&](LoopbackServer::Peer& peer) {
    while (const auto request = peer.request()) {
      asked.add(*request + "\n");
      peer.reply(request->starts_with("POST /research/stream") ? stream : "{}");
    }
  });
  const auto text = terminal.run({"research", "is", "it?"}, {}, server.url(""));
  EXPECT_EQ(text.exitCode, 0) << text.standardError;
  EXPECT_EQ(text.standardOutput, "It is.\n\nSources:\n1. T\n   https://t\n");
  EXPECT_TRUE(text::contains(text.standardError, "🔎 A[2Jpage — https://a\n")) << text.standardError;
  EXPECT_TRUE(asked.has(R"("query":"is it?","context":"","user_id":"device_)"));
  EXPECT_TRUE(asked.has("POST /research/save")) << "the page's history has it too";
  const auto json = terminal.run({"research", "--json", "q"}, {}, server.url(""));
  EXPECT_EQ(json.standardOutput,
            R"({"event":"step","step_type":"reading","title":"A\u001b[2Jpage","url":"https://a"})"
            "\n"
            R"({"event":"result","summary":"It **is**.","sources":[{"title":"T",)"
            R"("url":"https://t","snippet":"s"}]})"
            "\n");
}

TEST(Cli, AResearchWithoutAnAnswerFailsWithItsText) {
  Terminal terminal;
  LoopbackServer server([](LoopbackServer::Peer& peer) {
    while (peer.request()) peer.reply("data: {\"step_type\":\"thinking\"}\n");
  });
  const auto empty = terminal.run({"research", "q"}, {}, server.url(""));
  EXPECT_EQ(empty.exitCode, 1);
  EXPECT_EQ(empty.standardOutput, "");
  EXPECT_TRUE(text::contains(empty.standardError, "kestrin: No results received from research\n"));
  const auto down = terminal.run({"research", "--json", "q"});
  EXPECT_EQ(down.exitCode, 1);
  const auto event = Json::parse(down.standardOutput);
  ASSERT_TRUE(event) << down.standardOutput;
  EXPECT_EQ(event->stringAt("event"), "error");
  EXPECT_TRUE(event->stringAt("description", "").starts_with("Could not connect"));
}

TEST(Cli, ASessionFromTwoRecordingsTellsLinesOfBothSidesAndFeedback) {
  Terminal terminal;
  LoopbackServer server([](LoopbackServer::Peer& peer) {
    while (const auto request = peer.request()) {
      const auto quiet = std::count(request->begin(), request->end(), '\0');
      const bool speech = size_t(quiet) < request->size() * 9 / 10;
      if (request->starts_with("POST /transcribe")) {
        peer.reply(speech ? R"({"transcript":"What does the plan cost us?"})"
                          : R"({"transcript":""})");
      } else if (request->starts_with("POST /memory/live-context")) {
        peer.reply(R"({"success":true,"feedbackSummary":"It is about\u001b[2J money"})");
      } else {
        peer.reply(R"({"success":true,"sessionId":"s"})");
      }
    }
  });
  Bytes talk(64000, '\1'), later(160000, '\0');
  for (size_t i = 1; i < talk.size(); i += 4) talk[i] = '\x30';
  const std::string mic = terminal.folder.file("mic.wav"), system = terminal.folder.file("o.wav");
  ASSERT_TRUE(LinuxFiles().writeAtomic(mic, wav::write(later + talk)));
  ASSERT_TRUE(LinuxFiles().writeAtomic(system, wav::write(talk)));
  const std::vector<std::string> arguments{"live", "--mic", mic, "--system", system, "--fast"};
  const auto output = terminal.run(arguments, {}, server.url(""));
  EXPECT_EQ(output.exitCode, 0) << output.standardError;
  const auto& said = output.standardOutput;
  const auto other = said.find("OTHER  What does the plan cost us?");
  ASSERT_NE(other, std::string::npos) << said;
  EXPECT_LT(other, said.find("YOU    What does the plan cost us?")) << said;
  EXPECT_NE(said.find("● It is about[2J money"), std::string::npos) << said;
  const auto down = terminal.run(arguments);
  EXPECT_EQ(down.exitCode, 1);
  EXPECT_NE(down.standardError.find("Could not connect"), std::string::npos) << down.standardError;
}

TEST(Cli, TheTerminalRunsALineOrWhatComesIn) {
  Terminal terminal;
  const auto shell = terminal.run({"terminal", "-c", "shell echo Hello; echo there >&2"});
  EXPECT_EQ(shell.exitCode, 0);
  EXPECT_NE(shell.standardOutput.find("hello\nthere\n"), std::string::npos);
  EXPECT_EQ(terminal.run({"terminal", "-c", "frobnicate"}).exitCode, 1);
  EXPECT_EQ(terminal.run({"terminal", "-c", "health"}).exitCode, 1) << "nothing answers";
  const auto lines = terminal.run({"terminal"}, "stats\nshell sleep 0.1; echo one\nshell echo two");
  const auto& said = lines.standardOutput;
  EXPECT_NE(said.find("APP STATISTICS"), std::string::npos);
  EXPECT_LT(said.find("one"), said.find("two")) << "each line's output is whole before the next";
}

TEST(Cli, SettingsAreKeptWithTheirKinds) {
  Terminal terminal;
  EXPECT_EQ(terminal.run({"settings", "get", "pref_holdKey"}).exitCode, 1);
  EXPECT_EQ(terminal.run({"settings", "set", "pref_holdKey", "Right Super"}).exitCode, 0);
  EXPECT_EQ(terminal.run({"settings", "set", "pref_voiceVolume", "35.5"}).exitCode, 0);
  EXPECT_EQ(terminal.run({"settings", "set", "pref_preRoll", "true"}).exitCode, 0);
  EXPECT_EQ(terminal.run({"settings", "get", "pref_holdKey"}).standardOutput, "Right Super\n");
  EXPECT_EQ(terminal.run({"settings", "list", "--json"}).standardOutput,
            "{\"pref_holdKey\":\"Right Super\",\"pref_preRoll\":true,\"pref_voiceVolume\":35.5}\n");
  EXPECT_EQ(terminal.run({"settings", "reset", "pref_holdKey"}).exitCode, 0);
  EXPECT_EQ(terminal.run({"settings", "set", "nibo_user_name", "42"}).exitCode, 0);
  EXPECT_EQ(terminal.run({"settings", "reset"}).exitCode, 0);
  EXPECT_EQ(terminal.run({"settings", "list", "--json"}).standardOutput,
            "{\"nibo_user_name\":\"42\"}\n");
  EXPECT_EQ(terminal.run({"settings", "get", "pref_voiceVolume"}).standardOutput, "80.0\n");
}

TEST(Cli, AWrongSettingIsRefusedWithWhatWouldBeRightAndChangesNothing) {
  Terminal terminal;
  const auto refuses = [&](const char* key, const char* value, const char* why) {
    const auto output = terminal.run({"settings", "set", key, value});
    EXPECT_EQ(output.exitCode, 1) << key;
    EXPECT_NE(output.standardError.find(why), std::string::npos) << output.standardError;
  };
  refuses("pref_voiceVolume", "101", "a number from 0 to 100");
  refuses("pref_compactMode", "1", "true or false");
  refuses("pref_volume", "5", "There is no setting pref_volume");
  refuses("nibo_setup_completed", "yes", "true or false");
  refuses("pref_geminiApiKey", "AIza", "no secret store");
  EXPECT_EQ(terminal.run({"settings", "list"}).standardOutput, "");
  EXPECT_NE(terminal.run({"settings", "list", "--all"})
                .standardOutput.find("pref_timeFormat = 12-hour\n"),
            std::string::npos);
  const auto entry = terminal.folder.file("config/autostart/kestrin.desktop");
  EXPECT_EQ(terminal.run({"settings", "set", "pref_launchAtLogin", "true"}).exitCode, 0);
  EXPECT_TRUE(std::filesystem::exists(entry));
  EXPECT_EQ(terminal.run({"settings", "reset"}).exitCode, 0);
  EXPECT_FALSE(std::filesystem::exists(entry));
}

TEST(Cli, ASettingThatCannotBeStoredIsAFailure) {
  Terminal terminal;
  std::filesystem::create_directories(terminal.folder.file("config/kestrin/settings.json/in"));
  const auto output = terminal.run({"settings", "set", "pref_compactMode", "true"});
  EXPECT_EQ(output.exitCode, 1);
  EXPECT_NE(output.standardError.find("settings.json"), std::string::npos) << output.standardError;
}

TEST(Cli, SetupAsksNobodyWithoutATerminalAndAcceptsAsItStandsWhenTold) {
  Terminal terminal;
  const auto asked = terminal.run({"setup"});
  EXPECT_EQ(asked.exitCode, 2);
  EXPECT_NE(asked.standardError.find("--yes"), std::string::npos);
  EXPECT_EQ(terminal.run({"settings", "list"}).standardOutput, "");

  const auto accepted = terminal.run({"setup", "--yes"});
  EXPECT_EQ(accepted.exitCode, 0);
  EXPECT_NE(accepted.standardOutput.find("❌ Microphone: "), std::string::npos);
  EXPECT_EQ(terminal.run({"settings", "get", "nibo_setup_completed"}).standardOutput, "true\n");
  EXPECT_GT(terminal.run({"settings", "get", "nibo_setup_machine_id"}).standardOutput.size(), 8u);
  const auto missing = terminal.run({"settings", "get", "nibo_setup_accepted"}).standardOutput;
  EXPECT_NE(missing.find("Microphone"), std::string::npos) << missing;
}

TEST(Cli, WithoutARunningApplicationStatusSaysSoAndCommandsFail) {
  Terminal terminal;
  const auto status = terminal.run({"status", "--json"});
  EXPECT_EQ(status.exitCode, 0);
  EXPECT_EQ(Json::parse(status.standardOutput)->boolAt("ready"), false);
  for (const char* command : {"press", "quit", "retry", "elevate"}) {
    const auto output = terminal.run({command});
    EXPECT_EQ(output.exitCode, 1);
    EXPECT_NE(output.standardError, "");
  }
  const auto doctor = terminal.run({"doctor"});
  EXPECT_EQ(doctor.exitCode, 1);
  EXPECT_NE(doctor.standardOutput.find("❌ Sound server: "), std::string::npos);
}

}  // namespace
}  // namespace kestrin::test
