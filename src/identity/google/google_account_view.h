#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "identity/google/google_auth_service.h"

namespace kestrin {

/// The card of the Google account: what is linked, what may be read, and the buttons that change
/// it. Main queue only; must be destroyed there.
class GoogleAccountView {
 public:
  struct Choice {
    const char* name;   ///< "gmail.modify"
    const char* title;  ///< "Read and send mail"
  };
  static const std::vector<Choice>& choices();

  explicit GoogleAccountView(GoogleAuthService& auth);

  /// Ticks or unticks one of the choices; told to the backend by `link` or `applyScopes`.
  void choose(const std::string& name, bool chosen);
  bool isChosen(const std::string& name) const { return chosen_.count(name) != 0; }
  /// The ticks differ from what the linked account may do.
  bool hasNewScopes() const;

  // Nothing while an answer is awaited, but for `link` in front of an open window: it begins anew.
  void link();
  void unlink();
  void applyScopes();
  /// What failed last, once more.
  void retry();

  /// "Not connected", "Connected as ada@example.org"
  std::string statusLine() const;
  bool isLinked() const { return auth_.linkedAccount().has_value(); }
  bool isBusy() const { return running_ != Action::none; }
  /// Why the last action failed; empty when it did not.
  const std::string& problem() const { return problem_; }

  /// After every change; a widget redraws.
  std::function<void()> onChange;
  /// An account was linked or unlinked, or may do something else than before.
  std::function<void()> onLinkChanged;

 private:
  enum class Action { none, link, unlink, scopes };
  void begin(Action action);
  void end(Action action, const Error* error);
  std::vector<std::string> scopes() const;
  void adopt();

  GoogleAuthService& auth_;
  std::set<std::string> chosen_;
  Action running_ = Action::none, failed_ = Action::none;
  std::string problem_;
  int begun_ = 0;
  Lifetime lifetime_;
};

}  // namespace kestrin
