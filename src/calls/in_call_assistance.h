#pragma once

#include <functional>
#include <memory>

#include "calls/in_call_assist_panel.h"
#include "calls/in_call_capture.h"

namespace kestrin {

/// The help in a call, the same for each of its hosts: both sides are heard, and what is said goes
/// to the panel and to Live Assist. Main queue only; must be destroyed there.
class InCallAssistance {
 public:
  /// `liveAssist` makes it when it is first wanted.
  InCallAssistance(const InCallCapture::Services& capture, std::shared_ptr<InCallAssistPanel> panel,
                   std::function<LiveAssistService&()> liveAssist)
      : panel_(std::move(panel)),
        liveAssist_(std::move(liveAssist)),
        profiles_(capture.profiles),
        capture_(capture, [this](const std::string& label, const std::string& text) {
          liveAssist_().appendTurn(label, text);
          panel_->addTranscriptLine(label, text);
        }) {}

  InCallAssistPanel& panel() { return *panel_; }
  LiveAssistService& liveAssist() { return liveAssist_(); }

  /// Shows the panel and lets it hear of feedback. Nothing of an earlier conversation comes along.
  void show(const std::string& callerName) {
    panel_->show(callerName);
    LiveAssistService& assist = liveAssist_();
    if (!assist.isRunning()) {
      assist.reset();
      assist.useCase = LALiveAssistUseCase::meeting;
      assist.start();
    }
    const auto takeSources = [this] { liveAssist_().contextFilters = panel_->contextFilters(); };
    takeSources();
    panel_->onSourcesChanged = takeSources;
    assist.delegate = panel_;
  }
  void listen() { capture_.startInCallAudioCapture(); }
  /// Forgets the conversation: read it before.
  void end() {
    capture_.stopInCallAudioCapture();
    panel_->dismissPanel();
    LiveAssistService& assist = liveAssist_();
    assist.delegate.reset();
    assist.reset();
    profiles_.resetSystemProfile();
  }

 private:
  const std::shared_ptr<InCallAssistPanel> panel_;
  const std::function<LiveAssistService&()> liveAssist_;
  BehavioralProfileManager& profiles_;
  InCallCapture capture_;
};

}  // namespace kestrin
