#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "identity/device_id_manager.h"
#include "identity/gemini_key_manager.h"
#include "platform/lifetime.h"
#include "platform/pasteboard.h"
#include "services/local/agent_client.h"
#include "usermodel/user_preferences.h"

namespace kestrin {

/// The page that edits the prompts and the creativity of the modes. The settings store is its only
/// state; edits live in the cards until they are saved, and a save or a reset lays the page out
/// again from what is stored. Main queue.
class ModesView {
 public:
  static constexpr const char* title = "Mode Prompts";
  static constexpr const char* intro =
      "Customize the prompts used for each mode. Voice-request modes guide how your voice is "
      "transformed into text. Live-assist modes guide the real-time assistant during calls and "
      "meetings.";
  static constexpr const char* resetTitle = "Reset all to defaults";
  static constexpr const char* voiceSection = "Voice-Request Modes";
  static constexpr const char* liveAssistSection = "Live-Assist Modes";
  static constexpr const char* badgeTitle = "Custom";
  static constexpr const char* promptTitle = "PROMPT";
  static constexpr const char* creativityTitle = "CREATIVITY";
  static constexpr const char* preciseLabel = "Precise";
  static constexpr const char* creativeLabel = "Creative";
  static constexpr const char* saveTitle = "Save";
  static constexpr std::chrono::milliseconds toastDuration{1500};
  static constexpr std::chrono::milliseconds testTimeout{20'000};

  struct Card {
    std::string id;  ///< of its buttons: the mode, or "live_assist_" and the use case
    std::string name;
    std::string icon;
    std::string description;
    bool isCustom = false;  ///< shows the badge
    std::string prompt;     ///< what the editor holds
    /// Live Assist has none of the following.
    std::optional<double> creativity;  ///< where the slider stands, 0 to 1
    std::string creativityLabel;       ///< "0.3"
    std::string testTitle;
    bool canTest = false;
  };

  struct Alert {
    std::string title;
    std::string text;
    std::vector<std::string> buttons;
    std::function<void(size_t button)> answered;
  };

  struct Services {
    Dispatch& dispatch;
    SettingsStore& settings;
    UserPreferences& preferences;
    DeviceIdManager& deviceId;
    GeminiKeyManager& geminiKey;
    AgentClient& agent;
    Pasteboard& pasteboard;
    Logger& logger;
  };
  explicit ModesView(Services services);

  const std::vector<Card>& voiceCards() const { return voiceCards_; }
  const std::vector<Card>& liveAssistCards() const { return liveAssistCards_; }
  /// The alert to be shown now; answering it shows the next one.
  const Alert* alert() const { return alerts_.empty() ? nullptr : &alerts_.front(); }
  /// The small label that goes by itself.
  const std::optional<std::string>& toast() const { return toast_; }

  /// Typing in a card's editor and moving its slider; nothing is stored yet.
  void editPrompt(const std::string& id, const std::string& text);
  void moveSlider(const std::string& id, double value);
  void saveModePrompt(const std::string& id);
  /// Asks first. Live Assist's prompts stay.
  void resetAllPrompts();
  /// "test_" and the mode: sends the mode's sample to the agent with what was last saved.
  void testModePrompt(const std::string& buttonId);
  void answerAlert(size_t button);
  /// Lays the page out from the settings; unsaved edits are gone.
  void rebuild();

  /// After every change of what is shown.
  std::function<void()> onChange;

 private:
  Card* find(const std::string& id);
  void showToast(const std::string& text);
  void showAlert(Alert alert);
  void finishTest(const std::string& mode, const Result<AgentAnswer>& answer);
  void changed();

  Services services_;
  std::vector<Card> voiceCards_;
  std::vector<Card> liveAssistCards_;
  std::set<std::string> testing_;
  std::deque<Alert> alerts_;
  std::optional<std::string> toast_;
  TimerHandle toastTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
