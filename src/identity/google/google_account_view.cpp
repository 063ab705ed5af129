#include "identity/google/google_account_view.h"

#include <algorithm>

namespace kestrin {
namespace {

constexpr const char* scopePrefix = "https://www.googleapis.com/auth/";

}  // namespace

const std::vector<GoogleAccountView::Choice>& GoogleAccountView::choices() {
  static const std::vector<Choice> choices{{"calendar", "Calendar"},
                                           {"gmail.modify", "Read and send mail"},
                                           {"drive.readonly", "Files of Drive"},
                                           {"contacts.readonly", "Contacts"}};
  return choices;
}

GoogleAccountView::GoogleAccountView(GoogleAuthService& auth) : auth_(auth) { adopt(); }

/// The ticks of the linked account; all of them before there is one.
void GoogleAccountView::adopt() {
  const auto account = auth_.linkedAccount();
  chosen_.clear();
  for (const Choice& choice : choices()) {
    const bool enabled =
        !account || std::count(account->enabledScopes.begin(), account->enabledScopes.end(),
                               std::string(scopePrefix) + choice.name) != 0;
    if (enabled) chosen_.insert(choice.name);
  }
}

std::vector<std::string> GoogleAccountView::scopes() const {
  // By the first two the backend learns whose account it is.
  std::vector<std::string> scopes{"openid", "email", "profile"};
  for (const Choice& choice : choices()) {
    if (isChosen(choice.name)) scopes.push_back(std::string(scopePrefix) + choice.name);
  }
  return scopes;
}

void GoogleAccountView::choose(const std::string& name, bool chosen) {
  if (chosen) {
    chosen_.insert(name);
  } else {
    chosen_.erase(name);
  }
  if (onChange) onChange();
}

bool GoogleAccountView::hasNewScopes() const {
  const auto account = auth_.linkedAccount();
  if (!account) return false;
  const auto& enabled = account->enabledScopes;
  return std::any_of(choices().begin(), choices().end(), [&](const Choice& choice) {
    const bool may =
        std::count(enabled.begin(), enabled.end(), std::string(scopePrefix) + choice.name) != 0;
    return may != isChosen(choice.name);
  });
}

std::string GoogleAccountView::statusLine() const {
  const auto account = auth_.linkedAccount();
  if (!account) return "Not connected";
  return account->email.empty() ? "Connected" : "Connected as " + account->email;
}

void GoogleAccountView::link() { begin(Action::link); }
void GoogleAccountView::unlink() { begin(Action::unlink); }
void GoogleAccountView::applyScopes() { begin(Action::scopes); }
void GoogleAccountView::retry() { begin(failed_); }

void GoogleAccountView::begin(Action action) {
  const bool anew = action == Action::link && running_ == Action::link;
  if (action == Action::none || (isBusy() && !anew)) return;
  running_ = action;
  failed_ = Action::none;
  problem_.clear();
  const auto ended = [this, action, begun = ++begun_](const auto& result) {
    if (begun == begun_) end(action, result ? nullptr : &result.error());
  };
  const auto told = lifetime_.guard(ended);
  if (action == Action::link) auth_.signIn(scopes(), told);
  if (action == Action::unlink) auth_.signOut(told);
  if (action == Action::scopes) auth_.updateScopes(scopes(), told);
  if (onChange) onChange();
}

void GoogleAccountView::end(Action action, const Error* error) {
  running_ = Action::none;
  if (error) {
    failed_ = action;
    problem_ = error->description;
  } else {
    adopt();
  }
  if (onChange) onChange();
  if (!error && onLinkChanged) onLinkChanged();
}

}  // namespace kestrin
