#include "usermodel/preference_table.h"

#include "usermodel/user_preferences.h"

namespace kestrin {
namespace {

using enum PreferenceControl;
using enum PreferencePage;

constexpr const char* appearanceEffect = "the look of all windows, at once";

// clang-format off
std::vector<Preference> generalPreferences() {
  return {
    {.key = "pref_launchAtLogin", .control = toggle, .label = "Launch at login", .page = general, .section = "App Behavior",
     .fallback = false, .effect = "registers the application with the desktop's start"},
    {.key = "pref_showInMenuBar", .control = toggle, .label = "Show in menu bar", .page = general, .section = "App Behavior",
     .fallback = true},
    {.key = "pref_showDockIcon", .control = toggle, .label = "Show dock icon", .page = general, .section = "App Behavior",
     .fallback = true, .effect = "the windows' entry in the taskbar"},
    {.key = "pref_playSounds", .control = toggle, .label = "Play sounds for notifications", .page = general, .section = "App Behavior",
     .fallback = true},
    {.key = "pref_holdKey", .control = dropdown, .label = "Hold key", .page = general, .section = "Keyboard Shortcuts",
     .fallback = nullptr, .openChoices = true, .effect = "the key held to speak, from the next start on"},
    {.key = "pref_primaryLanguage", .control = dropdown, .label = "Primary language", .page = general, .section = "Language & Region",
     .fallback = "English", .choices = {"English", "Spanish", "French", "German", "Japanese", "Chinese"}},
    {.key = "pref_dateFormat", .control = dropdown, .label = "Date format", .page = general, .section = "Language & Region",
     .fallback = "MM/DD/YYYY", .choices = {"MM/DD/YYYY", "DD/MM/YYYY", "YYYY-MM-DD"}},
    {.key = "pref_timeFormat", .control = dropdown, .label = "Time format", .page = general, .section = "Language & Region",
     .fallback = "12-hour", .choices = {"12-hour", "24-hour"}},
  };
}

std::vector<Preference> voicePreferences() {
  return {
    {.key = "pref_inputDevice", .control = dropdown, .label = "Input device", .page = voiceAndAudio, .section = "Voice Input",
     .fallback = "Default", .choices = {"Default"}, .openChoices = true, .effect = "the microphone, also as the system's default"},
    {.key = "pref_inputSensitivity", .control = slider, .label = "Input sensitivity", .page = voiceAndAudio, .section = "Voice Input",
     .fallback = 50.0, .maximum = 100, .suffix = "%", .effect = "the recorder's voice gate"},
    {.key = "pref_noiseCancellation", .control = toggle, .label = "Noise cancellation", .page = voiceAndAudio, .section = "Voice Input",
     .fallback = true},
    {.key = "pref_autoDetectEnd", .control = toggle, .label = "Auto-detect speech end", .page = voiceAndAudio, .section = "Voice Input",
     .fallback = true},
    {.key = "pref_preRoll", .control = toggle, .label = "Keep the last moment before the key goes down", .page = voiceAndAudio, .section = "Voice Input",
     .fallback = false, .effect = "the microphone stays open, so that no first word is cut"},
    {.key = "pref_outputDevice", .control = dropdown, .label = "Output device", .page = voiceAndAudio, .section = "Voice Output",
     .fallback = "Default", .choices = {"Default"}, .openChoices = true, .effect = "the system's default output"},
    {.key = "pref_speechRate", .control = slider, .label = "Speech rate", .page = voiceAndAudio, .section = "Voice Output",
     .fallback = 1.0, .minimum = 0.5, .maximum = 2.0, .suffix = "x", .decimals = 1, .effect = "\"Test voice\" only"},
    {.key = "pref_voiceVolume", .control = slider, .label = "Voice volume", .page = voiceAndAudio, .section = "Voice Output",
     .fallback = 80.0, .maximum = 100, .suffix = "%", .effect = "the volume of spoken replies"},
    {.key = "pref_voiceStyle", .control = dropdown, .label = "Voice style", .page = voiceAndAudio, .section = "Voice Output",
     .fallback = "Default", .choices = {"Default"}, .openChoices = true, .effect = "\"Test voice\" only"},
    {.key = "pref_showLiveTranscription", .control = toggle, .label = "Show live transcription", .page = voiceAndAudio, .section = "Transcription",
     .fallback = true},
    {.key = "pref_autoPunctuate", .control = toggle, .label = "Auto-punctuate", .page = voiceAndAudio, .section = "Transcription",
     .fallback = true},
    {.key = "pref_filterProfanity", .control = toggle, .label = "Filter profanity", .page = voiceAndAudio, .section = "Transcription",
     .fallback = false},
  };
}

std::vector<Preference> appearancePreferences() {
  return {
    {.key = "pref_appearance", .control = segmented, .label = "Appearance", .page = appearance, .section = "Theme",
     .fallback = 0, .choices = {"Light", "Dark", "System"}, .effect = appearanceEffect},
    {.key = "pref_accentColor", .control = dropdown, .label = "Accent color", .page = appearance, .section = "Theme",
     .fallback = "Green", .choices = {"Green", "Blue", "Purple", "Orange", "Pink"}, .effect = appearanceEffect},
    {.key = "pref_alwaysOnTop", .control = toggle, .label = "Always on top", .page = appearance, .section = "Window",
     .fallback = false, .effect = "the main window above all others"},
    {.key = "pref_windowOpacity", .control = slider, .label = "Window opacity", .page = appearance, .section = "Window",
     .fallback = 100.0, .minimum = 50, .maximum = 100, .suffix = "%", .effect = "the main window's opacity"},
    {.key = "pref_compactMode", .control = toggle, .label = "Compact mode", .page = appearance, .section = "Window",
     .fallback = false, .effect = "a smaller main window"},
    {.key = "pref_showSidebar", .control = toggle, .label = "Show sidebar", .page = appearance, .section = "Window",
     .fallback = true, .effect = "the main window's sidebar"},
    {.key = "pref_fontSize", .control = dropdown, .label = "Font size", .page = appearance, .section = "Text & Display",
     .fallback = "Medium", .choices = {"Small", "Medium", "Large"}, .effect = appearanceEffect},
    {.key = "pref_useSystemFont", .control = toggle, .label = "Use system font", .page = appearance, .section = "Text & Display",
     .fallback = true, .effect = appearanceEffect},
    {.key = "pref_showEmoji", .control = toggle, .label = "Show emoji in transcripts", .page = appearance, .section = "Text & Display",
     .fallback = true},
  };
}

std::vector<Preference> accountPreferences() {
  return {
    {.key = "pref_saveHistory", .control = toggle, .label = "Save transcription history", .page = privacy, .section = "Data & Privacy",
     .fallback = true},
    {.key = "pref_shareAnalytics", .control = toggle, .label = "Share usage analytics", .page = privacy, .section = "Data & Privacy",
     .fallback = false},
    {.key = "pref_sendCrashReports", .control = toggle, .label = "Send crash reports", .page = privacy, .section = "Data & Privacy",
     .fallback = true},
    {.key = "pref_geminiApiKey", .control = textField, .label = "Gemini API Key", .page = integrations, .section = "API Configuration",
     .fallback = "", .placeholder = "AI...", .effect = "the hosted language model; kept in the secret store"},
    {.key = "pref_llmEndpoint", .control = textField, .label = "Custom LLM Endpoint", .page = integrations, .section = "API Configuration",
     .fallback = nullptr, .placeholder = "http://127.0.0.1:8765", .effect = "sent with agent requests"},
    {.key = "pref_searchEndpoint", .control = textField, .label = "Search Service", .page = integrations, .section = "API Configuration",
     .fallback = "", .placeholder = "http://127.0.0.1:8888", .effect = "a SearXNG-compatible service that research searches with"},
    {.key = "pref_weatherEndpoint", .control = textField, .label = "Weather Service", .page = integrations, .section = "API Configuration",
     .fallback = "", .placeholder = "https://wttr.in", .effect = "a service with the interface of wttr.in; from the companion's next start"},
    {.key = "pref_newsFeeds", .control = textField, .label = "News Feeds", .page = integrations, .section = "API Configuration",
     .fallback = "", .placeholder = "addresses with blanks between them", .effect = "RSS or Atom feeds of the home page's news; from the companion's next start"},
    {.key = "pref_syncPrefs", .control = toggle, .label = "Sync preferences across devices", .page = integrations, .section = "Sync",
     .fallback = true},
    {.key = "pref_syncHistory", .control = toggle, .label = "Sync history", .page = integrations, .section = "Sync",
     .fallback = false},
  };
}

std::vector<Preference> advancedPreferences() {
  return {
    {.key = "pref_useLocalASR", .control = toggle, .label = "Use local ASR (faster, offline)", .page = advanced, .section = "Processing",
     .fallback = true},
    {.key = "pref_useLocalLLM", .control = toggle, .label = "Use local LLM", .page = advanced, .section = "Processing",
     .fallback = false, .effect = "sent with agent requests; start-up and first-run test"},
    {.key = "pref_modelQuality", .control = dropdown, .label = "Model quality", .page = advanced, .section = "Processing",
     .fallback = "Balanced", .choices = {"Fast", "Balanced", "High Quality"}},
    {.key = "pref_contextWindow", .control = slider, .label = "Context window", .page = advanced, .section = "Processing",
     .fallback = 4000.0, .minimum = 1000, .maximum = 8000, .suffix = " tokens"},
    {.key = "pref_debugMode", .control = toggle, .label = "Developer mode (show Terminal & Logs tabs)", .page = advanced, .section = "Developer",
     .fallback = false, .effect = "the tabs of terminal and logs"},
    {.key = "pref_showMetrics", .control = toggle, .label = "Show performance metrics", .page = advanced, .section = "Developer",
     .fallback = false},
    {.key = "pref_serviceHost", .control = dropdown, .label = "Where the services run", .page = none, .section = "",
     .fallback = "companion", .choices = {"companion", "container", "external"}, .effect = "what is started and watched"},
    {.key = "pref_actionTier", .control = dropdown, .label = "What spoken commands may be allowed", .page = none, .section = "",
     .fallback = "elevated", .choices = {"safe", "elevated"}, .effect = "\"safe\" refuses to let them press keys or run scripts in any run"},
    {.key = "pref_keySource", .control = dropdown, .label = "Where key presses are seen", .page = none, .section = "",
     .fallback = "session", .choices = {"session", "evdev"}, .effect = "from the next start on"},
  };
}
// clang-format on

std::vector<Preference> all() {
  std::vector<Preference> out;
  for (auto part : {generalPreferences, voicePreferences, appearancePreferences, accountPreferences,
                    advancedPreferences}) {
    for (Preference& each : part()) out.push_back(std::move(each));
  }
  return out;
}

}  // namespace

const std::vector<Preference>& preferences() {
  static const std::vector<Preference> table = all();
  return table;
}

const std::map<std::string, PreferenceType, std::less<>>& otherSettings() {
  using enum PreferenceType;
  using P = UserPreferences;
  static const std::map<std::string, PreferenceType, std::less<>> table{
      {P::userNameKey, text},
      {P::userLocationKey, text},
      {P::userCityKey, text},
      {P::userCountryKey, text},
      {P::userTimezoneKey, text},
      {P::userPersonalityKey, text},
      {P::userAboutMeTranscriptKey, text},
      {P::userArchetypeKey, object},
      {P::personalityTestCompletedKey, boolean},
      {P::setupCompletedKey, boolean},
      {P::customPromptsKey, object},
      {P::modeTemperaturesKey, object},
      {P::liveAssistPromptsKey, object},
      {"lastSyncTime", date},
      {"hasGmailAccess", boolean},
      {"hasCalendarAccess", boolean},
      {"linkedGoogleAccount", object},
      {"LA_LiveAssistEnabled", boolean},
      {"LA_UseCase", text},
      {"totalVoiceCommands", integer},
      {"totalNotes", integer},
      {"totalCalls", integer},
      {"totalResearchSessions", integer},
      {"com.kestrin.nibo.device_id", text},
      {"nibo_setup_machine_id", text},
  };
  return table;
}

}  // namespace kestrin
