#include "calls/contact_search.h"

#include <algorithm>
#include <utility>

#include "platform/dispatch/background.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

std::vector<CallContact> contactsIn(const Result<HttpResponse>& response) {
  std::vector<CallContact> out;
  const auto body = response ? Json::parse(response->body) : Result<Json>(Json());
  if (!body) return out;
  for (const Json* each : body->objectsAt("contacts"))
    out.push_back({each->stringAt("name", ""), each->stringAt("email", "")});
  return out;
}

}  // namespace

std::string CallContact::initial() const { return text::upper(text::prefix(shownName(), 1)); }

ContactSearch::ContactSearch(Dispatch& dispatch, Http& http, std::string backend)
    : dispatch_(dispatch), backend_(std::move(backend)), session_(http.makeSession({})) {}

void ContactSearch::request(const std::string& path,
                            std::function<void(std::vector<CallContact>)> completion) {
  HttpRequest request;
  request.url = backend_ + path;
  session_->data(std::move(request),
                 onMain<Result<HttpResponse>>(
                     dispatch_, lifetime_,
                     [completion = std::move(completion)](const Result<HttpResponse>& response) {
                       completion(contactsIn(response));
                     }));
}

void ContactSearch::fetchContacts() {
  request("/contacts/frequent/" + urlEncode(deviceId), [this](std::vector<CallContact> contacts) {
    // A backend that is away takes nothing from what is known.
    if (contacts.empty()) return;
    std::stable_sort(contacts.begin(), contacts.end(),
                     [](const CallContact& a, const CallContact& b) { return a.name < b.name; });
    cachedContacts_ = std::move(contacts);
  });
}

void ContactSearch::typed(const std::string& text) {
  ++searches_;
  const std::string query = text::lower(text::trim(text));
  if (query.empty()) return hide();
  std::vector<CallContact> matching;
  for (const CallContact& each : cachedContacts_) {
    if (matching.size() == mostShown) break;
    if (text::contains(text::lower(each.name), query) ||
        text::contains(text::lower(each.email), query)) {
      matching.push_back(each);
    }
  }
  if (!matching.empty()) return showContactDropdown(std::move(matching));
  searchContactsFromBackend(query);
}

void ContactSearch::searchContactsFromBackend(const std::string& query) {
  request("/contacts/search?device_user_id=" + urlEncode(deviceId) + "&query=" + urlEncode(query),
          [this, search = searches_](std::vector<CallContact> contacts) {
            if (search == searches_) showContactDropdown(std::move(contacts));
          });
}

void ContactSearch::showContactDropdown(std::vector<CallContact> contacts) {
  if (contacts.size() > mostShown) contacts.resize(mostShown);
  shown_ = std::move(contacts);
  if (onChange) onChange();
}

void ContactSearch::hide() {
  ++searches_;
  if (shown_.empty()) return;
  shown_.clear();
  if (onChange) onChange();
}

}  // namespace kestrin
