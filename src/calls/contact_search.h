#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/http.h"
#include "platform/json/json.h"
#include "platform/lifetime.h"

namespace kestrin {

struct CallContact {
  std::string name, email;  ///< empty where the backend has none

  std::string shownName() const { return name.empty() ? "Unknown" : name; }
  std::string initial() const;
  /// What is called when it is chosen.
  const std::string& address() const { return name.empty() ? email : name; }
};

/// The people that the user may call: those called often are kept here and looked through first,
/// the rest is asked of the backend. Main queue only; must be destroyed there.
class ContactSearch {
 public:
  static constexpr size_t mostShown = 8;

  ContactSearch(Dispatch& dispatch, Http& http, std::string backend);

  std::string deviceId;

  void fetchContacts();
  /// What the user has typed: changes `shown` at once or when the backend has answered.
  void typed(const std::string& text);
  void hide();

  /// At most `mostShown`; empty: nothing is shown.
  const std::vector<CallContact>& shown() const { return shown_; }
  bool isShowingContactSearch() const { return !shown_.empty(); }
  const std::vector<CallContact>& cachedContacts() const { return cachedContacts_; }

  std::function<void()> onChange;

 private:
  void request(const std::string& path, std::function<void(std::vector<CallContact>)> completion);
  void searchContactsFromBackend(const std::string& query);
  void showContactDropdown(std::vector<CallContact> contacts);

  Dispatch& dispatch_;
  const std::string backend_;
  const std::shared_ptr<HttpSession> session_;
  std::vector<CallContact> cachedContacts_, shown_;
  int searches_ = 0;  ///< only the newest may show
  Lifetime lifetime_;
};

}  // namespace kestrin
