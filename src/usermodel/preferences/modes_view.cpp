#include "usermodel/preferences/modes_view.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/text/text.h"
#include "usermodel/preferences/mode_cards.h"

namespace kestrin {
namespace {

const std::string liveAssistPrefix = "live_assist_";
const std::string testPrefix = "test_";
constexpr const char* testTitle = "▶ Test";
constexpr const char* testingTitle = "⏳...";
constexpr double middle = 0.5;

std::string withoutPrefix(const std::string& id, const std::string& prefix) {
  return id.starts_with(prefix) ? id.substr(prefix.size()) : id;
}

template <class Map>
typename Map::mapped_type valueIn(const Map& map, const std::string& key,
                                  typename Map::mapped_type otherwise) {
  const auto found = map.find(key);
  return found == map.end() ? otherwise : found->second;
}

void setSlider(ModesView::Card& card, double value) {
  const double within = std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : middle;
  card.creativity = within;
  card.creativityLabel = text::fixed(within, 1);
}

ModesView::Card cardOf(const ModeCard& mode, const std::string& id) {
  ModesView::Card card;
  card.id = id;
  card.name = mode.name;
  card.icon = mode.icon;
  card.description = mode.description;
  return card;
}

}  // namespace

ModesView::ModesView(Services services) : services_(services) { rebuild(); }

void ModesView::rebuild() {
  const auto& preferences = services_.preferences;
  const auto prompts = preferences.customPrompts();
  const auto temperatures = preferences.modeTemperatures();
  voiceCards_.clear();
  for (const auto& mode : voiceModeCards()) {
    auto card = cardOf(mode, mode.id);
    card.isCustom =
        preferences.hasCustomPrompt(mode.id) || preferences.hasCustomTemperature(mode.id);
    card.prompt = valueIn(prompts, mode.id, "");
    setSlider(card, valueIn(temperatures, mode.id, middle));
    card.canTest = !testing_.count(mode.id);
    card.testTitle = card.canTest ? testTitle : testingTitle;
    voiceCards_.push_back(std::move(card));
  }
  const auto livePrompts = preferences.liveAssistPrompts();
  liveAssistCards_.clear();
  for (const auto& useCase : kestrin::liveAssistCards()) {
    auto card = cardOf(useCase, liveAssistPrefix + useCase.id);
    card.prompt = valueIn(livePrompts, useCase.id, "");
    card.isCustom = card.prompt != valueIn(defaultLiveAssistPrompts(), useCase.id, "");
    liveAssistCards_.push_back(std::move(card));
  }
  changed();
}

ModesView::Card* ModesView::find(const std::string& id) {
  for (auto* cards : {&voiceCards_, &liveAssistCards_}) {
    for (auto& card : *cards) {
      if (card.id == id) return &card;
    }
  }
  return nullptr;
}

void ModesView::editPrompt(const std::string& id, const std::string& text) {
  if (auto* card = find(id)) card->prompt = text;
}

void ModesView::moveSlider(const std::string& id, double value) {
  auto* card = find(id);
  if (!card || !card->creativity) return;
  setSlider(*card, value);
  changed();
}

void ModesView::saveModePrompt(const std::string& id) {
  const auto* card = find(id);
  if (!card) return;
  auto& preferences = services_.preferences;
  const auto prompt = text::trim(card->prompt);
  const auto name = withoutPrefix(id, liveAssistPrefix);
  if (name != id) {
    auto prompts = preferences.liveAssistPrompts();
    prompts[name] = prompt;
    preferences.setLiveAssistPrompts(prompts);
  } else {
    auto prompts = preferences.customPrompts();
    prompts[name] = prompt;
    preferences.setCustomPrompts(prompts);
    auto temperatures = preferences.modeTemperatures();
    temperatures[name] = card->creativity.value_or(middle);
    preferences.setModeTemperatures(temperatures);
  }
  services_.logger.log("Modes", LogLevel::info, "Mode prompts saved locally");
  showToast(name + " saved!");
  rebuild();
}

void ModesView::resetAllPrompts() {
  showAlert({"Reset All Settings?",
             "This will reset all mode prompts and creativity levels to their default values. This "
             "cannot be undone.",
             {"Reset All", "Cancel"},
             [this](size_t button) {
               if (button != 0) return;
               services_.settings.remove(UserPreferences::customPromptsKey);
               services_.settings.remove(UserPreferences::modeTemperaturesKey);
               rebuild();
             }});
}

void ModesView::testModePrompt(const std::string& buttonId) {
  const auto mode = withoutPrefix(buttonId, testPrefix);
  auto* card = find(mode);
  if (!card || !card->canTest) return;
  testing_.insert(mode);
  card->canTest = false;
  card->testTitle = testingTitle;
  changed();
  const auto main = services_.dispatch.mainQueue();
  const std::function<void(Result<AgentAnswer>)> finish = lifetime_.guard(
      [this, mode](const Result<AgentAnswer>& answer) { finishTest(mode, answer); });
  const std::function<void(Json)> send = lifetime_.guard([this, main, finish](const Json& body) {
    services_.agent.process(body, main, finish, testTimeout);
  });
  // Identity and secret are read off the main queue: they can keep it waiting.
  services_.dispatch.globalQueue()->post([services = services_, main, send, mode] {
    auto body = Json::object({{"transcript", modeSample(mode)}, {"mode", mode}});
    const auto device = services.deviceId.deviceId();
    body.set("user_id", device).set("device_id", device).set("app_context", "{}");
    setModelFields(body, services.settings, services.geminiKey);
    main->post([send, body] { send(body); });
  });
}

void ModesView::finishTest(const std::string& mode, const Result<AgentAnswer>& answer) {
  testing_.erase(mode);
  if (auto* card = find(mode)) {
    card->canTest = true;
    card->testTitle = testTitle;
  }
  const auto failed = [this](const std::string& description) {
    showAlert({"Test Failed", description, {"OK"}, nullptr});
  };
  if (!answer) {
    return failed(answer.error().code == agentNoData && answer.error().domain == "AgentClient"
                      ? "No response from server"
                      : answer.error().description);
  }
  const bool hasText = answer->processedText || answer->transcript;
  if (!hasText && answer->error) return failed(*answer->error);
  const auto result = answer->processedText.value_or(answer->transcript.value_or(""));
  showAlert({"Mode: " + mode,
             "Input: " + modeSample(mode) + "\n\nOutput:\n" + result,
             {"OK", "Copy Output"},
             [services = services_, result](size_t button) {
               if (button != 1) return;
               services.dispatch.globalQueue()->post([services, result] {
                 const auto copied = services.pasteboard.setString(result);
                 if (copied) return;
                 services.logger.log("Modes", LogLevel::error, copied.error().description);
               });
             }});
}

void ModesView::showToast(const std::string& text) {
  toast_ = text;
  toastTimer_ = services_.dispatch.after(services_.dispatch.mainQueue(), toastDuration, [this] {
    toast_.reset();
    changed();
  });
}

void ModesView::showAlert(Alert alert) {
  alerts_.push_back(std::move(alert));
  changed();
}

void ModesView::answerAlert(size_t button) {
  if (alerts_.empty()) return;
  const auto answered = std::move(alerts_.front().answered);
  alerts_.pop_front();
  if (answered) answered(button);
  changed();
}

void ModesView::changed() {
  if (onChange) onChange();
}

}  // namespace kestrin
