#include "services/local/docker_container.h"

#include <utility>

#include "platform/text/text.h"
#include "services/local/docker_commands.h"
#include "services/local/docker_config.h"

namespace kestrin {
namespace {

using State = DockerASRStatus::State;

constexpr std::chrono::seconds answerDeadline{15};
/// Creating reads the whole image once on a cold disk.
constexpr std::chrono::seconds changeDeadline{120};
/// The tool gives the container ten seconds before it kills it.
constexpr std::chrono::seconds stopDeadline{40};
/// Without a terminal a pull prints nothing while a large layer comes in.
constexpr std::chrono::minutes pullSilence{30};

std::string shortId(const std::string& output) { return text::trim(output).substr(0, 12); }

}  // namespace

DockerContainer::DockerContainer(Dispatch& dispatch, Processes& processes, Files& files,
                                 Logger& logger, const DockerTool& tool, ServiceHealth& health,
                                 Observer observer)
    : dispatch_(dispatch),
      processes_(processes),
      files_(files),
      logger_(logger),
      tool_(tool),
      health_(health),
      observer_(std::move(observer)),
      questions_(dispatch, processes),
      changes_(dispatch, processes) {}

void DockerContainer::bringUp() {
  ask(docker::containerStatus(), [this](const CommandOutcome& outcome) {
    const std::string status = text::trim(outcome.output);
    if (text::lower(status).find("up") != std::string::npos) {
      print("✅ ASR container already running");
      observer_.setStatus({State::running});
      return observer_.onRunning();
    }
    if (!status.empty()) {
      print("🔄 Starting existing ASR container...");
      return startContainer();
    }
    ask(docker::imageCheck(), [this](const CommandOutcome& images) {
      if (!text::trim(images.output).empty()) {
        print("📦 Image exists locally, creating container...");
        return createAndStartContainer();
      }
      print("📥 Image not found locally, pulling from Docker Hub...");
      pullAndStartContainer();
    });
  });
}

void DockerContainer::cancel() {
  flow_ = std::make_unique<Lifetime>();
  roundTimer_.reset();
  questions_.abandonAll();
}

void DockerContainer::stop(std::function<void()> completion) {
  whenIdle([this, completion = std::move(completion)] {
    changing_ = true;
    changes_.run({.program = tool_.dockerPath(),
                  .arguments = docker::stop(),
                  .deadline = stopDeadline,
                  .outlivesUs = true},
                 [this, completion](const CommandOutcome&) {
                   changing_ = false;
                   completion();
                   whenIdle({});
                 });
  });
}

/// Each waiting job may start the next change; the rest then waits for that one.
void DockerContainer::whenIdle(std::function<void()> job) {
  if (job) whenIdle_.push_back(std::move(job));
  while (!changing_ && !whenIdle_.empty()) {
    const auto next = std::move(whenIdle_.front());
    whenIdle_.erase(whenIdle_.begin());
    next();
  }
}

void DockerContainer::pullAndStartContainer() {
  print(std::string("📥 Pulling ASR image: ") + docker::image + " (this may take a few minutes...)");
  progress_ = {};
  observer_.setStatus({State::imagePulling});
  observer_.tell(std::string("Pulling image: ") + docker::image);
  observer_.tell("This may take a few minutes...");
  // Reads and writes files: not here.
  const std::function<void(const std::string&)> tell = lifetime_.guard(observer_.tell);
  const std::function<void()> goOn = flow_->guard([this] { pull(); });
  dispatch_.globalQueue()->post([&files = files_, &processes = processes_, &logger = logger_,
                                 main = dispatch_.mainQueue(), tell, goOn] {
    fixDockerCredentialConfig(
        files, processes, [&logger](const std::string& line) { logger.print(line); },
        [&main, &tell](const std::string& line) { main->post([tell, line] { tell(line); }); });
    main->post(goOn);
  });
}

void DockerContainer::pull() {
  observer_.tell("Downloading from Docker Hub...");
  const auto onLine = flow_->guard([this](const std::string& line) {
    observer_.tell(line);
    if (!progress_.take(line)) return;
    observer_.setStatus({State::imagePulling, "Downloading AI models... (" +
                                                  std::to_string(progress_.done()) + "/" +
                                                  std::to_string(progress_.total()) + ")"});
  });
  questions_.run(
      {.program = tool_.dockerPath(),
       .arguments = docker::pull(),
       .deadline = pullSilence,
       .onLine = onLine},
      flow_->guard([this](const CommandOutcome& outcome) {
        if (!outcome.succeeded()) {
          print("❌ Failed to pull image");
          observer_.tell("Failed to download image");
          return observer_.setStatus(DockerASRStatus::error("Failed to download ASR model"));
        }
        print("✅ Image pulled successfully");
        observer_.tell("✓ Image downloaded successfully");
        createAndStartContainer();
      }));
}

void DockerContainer::createAndStartContainer() {
  print("🚀 Creating ASR container...");
  observer_.setStatus({State::containerStarting});
  observer_.tell(std::string("Creating container: ") + docker::container);
  const auto created = [this](const CommandOutcome& outcome) {
    if (!outcome.succeeded()) {
      print("❌ Failed to start container: " + text::trim(outcome.errorText));
      observer_.tell("Error: Failed to start container");
      return observer_.setStatus(DockerASRStatus::error("Failed to start ASR service"));
    }
    print("✅ Container started: " + shortId(outcome.output));
    observer_.tell("✓ Container started");
    observer_.tell("Initializing AI models...");
    waitForHealthy(0);
  };
  change({.program = tool_.dockerPath(), .arguments = docker::remove(), .deadline = changeDeadline},
         [this, created](const CommandOutcome&) {
           observer_.tell("Starting container with ports 8001, 8082, 8765...");
           change({.program = tool_.dockerPath(),
                   .arguments = docker::create(),
                   .deadline = changeDeadline},
                  created);
         });
}

void DockerContainer::startContainer() {
  observer_.setStatus({State::containerStarting});
  observer_.tell("Starting existing container...");
  change({.program = tool_.dockerPath(),
          .arguments = docker::startExisting(),
          .deadline = changeDeadline},
         [this](const CommandOutcome& outcome) {
           if (!outcome.succeeded()) {
             print("❌ Failed to start container: " + text::trim(outcome.errorText));
             observer_.tell("Recreating container...");
             return createAndStartContainer();
           }
           observer_.tell("✓ Container started");
           waitForHealthy(0);
         });
}

void DockerContainer::waitForHealthy(int attempts) {
  if (attempts >= healthRounds) {
    observer_.tell("Error: Service startup timeout");
    return observer_.setStatus(DockerASRStatus::error("ASR service failed to start"));
  }
  if (attempts > 0 && attempts % 10 == 0) {
    const std::string seconds = std::to_string(attempts * 2) + "s)";
    print("⏳ Waiting for ASR service to be ready... (" + seconds);
    observer_.tell("Loading models... (" + seconds);
  }
  health_.check(flow_->guard([this, attempts](bool healthy) {
    if (healthy) {
      print("✅ ASR service is healthy and ready!");
      observer_.setStatus({State::running});
      return observer_.onRunning();
    }
    roundTimer_ = dispatch_.after(dispatch_.mainQueue(), roundPause,
                                  flow_->guard([this, attempts] { waitForHealthy(attempts + 1); }));
  }));
}

void DockerContainer::ask(std::vector<std::string> arguments, OnOutcome completion) {
  questions_.run(
      {.program = tool_.dockerPath(),
       .arguments = std::move(arguments),
       .deadline = answerDeadline},
      flow_->guard([this, completion = std::move(completion)](const CommandOutcome& outcome) {
        if (outcome.exitCode != CommandOutcome::neverEnded) return completion(outcome);
        // Its silence must not be read as "there is no container".
        print("❌ " + outcome.errorText);
        observer_.setStatus(DockerASRStatus::error("Docker does not answer"));
      }));
}

void DockerContainer::change(CommandRunner::Command command, OnOutcome completion) {
  changing_ = true;
  OnOutcome wanted = flow_->guard(std::move(completion));
  changes_.run(std::move(command), [this, wanted](const CommandOutcome& outcome) {
    changing_ = false;
    wanted(outcome);
    whenIdle({});
  });
}

}  // namespace kestrin
