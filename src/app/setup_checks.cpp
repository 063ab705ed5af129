#include "app/setup_checks.h"

#include <algorithm>

#include "services/local/docker_tool.h"
#include "services/local/service_host.h"

namespace kestrin {
namespace {

using State = Finding::State;

}  // namespace

SetupChecks::SetupChecks(CoreServices& core, const Doctor::Options& options)
    : core_(core),
      companionProgram_(options.companionProgram),
      doctor_(core.platform, core.logger, options) {}

SetupItems SetupChecks::examineRequired() {
  SetupItems items{accessibility(), microphone()};
  for (auto&& item : {languageModel(), serviceHost()}) {
    if (item.required) items.push_back(item);
  }
  return items;
}

SetupItems SetupChecks::examine() {
  return {accessibility(), microphone(),    {doctor_.checkKey(), false},
          recogniser(),    languageModel(), serviceHost()};
}

/// Never in the way of the start: what brings it up is the start itself.
SetupItem SetupChecks::recogniser() {
  auto finding = doctor_.checkRecogniserAnswers();
  if (finding.state == State::missing) finding.state = State::warning;
  return {finding, false};
}

SetupItem SetupChecks::languageModel() {
  const std::string check = "Language model";
  // A container without one is of no use; the others do without.
  const bool required =
      chosenServiceHost(core_.platform.settings, core_.endpoints) == ServiceHostKind::container;
  if (core_.platform.settings.boolean("pref_useLocalLLM")) {
    return {{State::ok, check, "local", ""}, required};
  }
  if (!core_.geminiKey.apiKey().empty()) return {{State::ok, check, "Gemini", ""}, required};
  return {{required ? State::missing : State::warning, check,
           required ? "none is chosen" : "none is chosen; dictation works without one",
           "kestrin setup chooses one"},
          required};
}

SetupItem SetupChecks::serviceHost() {
  const std::string check = "Service host";
  auto& processes = core_.platform.processes;
  switch (chosenServiceHost(core_.platform.settings, core_.endpoints)) {
    case ServiceHostKind::external:
      return {{State::ok, check, "external services, taken as they are", ""}, false};
    case ServiceHostKind::companion:
      if (processes.find(companionProgram_)) {
        return {{State::ok, check, "kestrin-companion, started with the application", ""}, true};
      }
      return {{State::missing, check, "kestrin-companion is not installed",
               "install it, or set pref_serviceHost to external"},
              true};
    case ServiceHostKind::container:
      break;
  }
  const DockerTool docker(core_.platform.files, processes);
  if (docker.isInstalled()) return {{State::ok, check, "container", ""}, true};
  return {{State::missing, check, "Docker is not installed",
           docker.installCommand() + ", or set pref_serviceHost to companion"},
          true};
}

bool SetupRecord::needsSetup(const SetupItems& items) {
  machine_.machineId();  // read here, so that completing need not wait for it
  if (!settings_.boolean(completedKey) || !machine_.isSetupMachineMatch()) return true;
  const Json accepted = settings_.get(acceptedKey).value_or(Json::array());
  return std::any_of(items.begin(), items.end(), [&](const SetupItem& item) {
    return item.isMissing() &&
           std::none_of(accepted.items().begin(), accepted.items().end(),
                        [&](const Json& name) { return name.asString() == item.finding.check; });
  });
}

void SetupRecord::complete(const SetupItems& items) {
  const auto missing = missingNames(items);
  if (missing.empty()) {
    settings_.remove(acceptedKey);
  } else {
    settings_.set(acceptedKey, Json::arrayOf(missing));
  }
  settings_.set(MachineIdentity::setupMachineKey, machine_.machineId());
  settings_.set(completedKey, true);
}

std::vector<std::string> missingNames(const SetupItems& items) {
  std::vector<std::string> names;
  for (const auto& item : items) {
    if (item.isMissing()) names.push_back(item.finding.check);
  }
  return names;
}

}  // namespace kestrin
