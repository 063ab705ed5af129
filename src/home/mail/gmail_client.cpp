#include "home/mail/gmail_client.h"

#include <utility>

#include "platform/dispatch/background.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr std::chrono::milliseconds requestTimeout{60'000};
/// For a peer that never falls silent and never ends either.
constexpr std::chrono::milliseconds resourceTimeout{120'000};
constexpr size_t maximumBodyBytes = 8u << 20;
constexpr size_t shownCharacters = 300;

auto failed(GmailClient::ErrorCode code, std::string description) {
  return fail(GmailClient::domain, code, std::move(description));
}

/// The object of a good answer. One that says `success` false, or comes with an error status, is
/// none.
Result<Json> objectIn(const Result<HttpResponse>& response) {
  if (!response) return fail(response.error());
  auto json = Json::parse(response->body);
  const bool isObject = json && json->isObject();
  const bool refused =
      response->status / 100 != 2 || (isObject && json->boolAt("success") == false);
  if (refused) {
    const std::string error = isObject ? json->stringAt("error", "") : "";
    return failed(GmailClient::refused, error.empty() ? "The backend answered with status " +
                                                            std::to_string(response->status)
                                                      : text::prefix(error, shownCharacters));
  }
  if (!isObject) return failed(GmailClient::unreadable, "Invalid response");
  return std::move(*json);
}

Result<std::vector<MailContact>> contactsIn(const Result<HttpResponse>& response) {
  const auto answer = objectIn(response);
  if (!answer) return fail(answer.error());
  return parseContacts(*answer);
}

}  // namespace

GmailClient::GmailClient(Dispatch& dispatch, Http& http, Logger& logger, DeviceIdManager& deviceId,
                         std::string backend)
    : dispatch_(dispatch),
      logger_(logger),
      deviceId_(deviceId),
      backend_(std::move(backend)),
      session_(http.makeSession({.requestTimeout = requestTimeout,
                                 .resourceTimeout = resourceTimeout,
                                 .maximumBodyBytes = maximumBodyBytes})) {}

void GmailClient::ask(std::function<HttpRequest(const std::string& deviceId)> request,
                      Received received) {
  const auto told = onMain(dispatch_, lifetime_, std::move(received));
  // The first reading of the id waits for the disk.
  dispatch_.globalQueue()->post([request = std::move(request), told, session = session_,
                                 &id = deviceId_] { session->data(request(id.deviceId()), told); });
}

void GmailClient::post(const std::string& path, Json body, Received received) {
  ask(
      [url = backend_ + path, body = std::move(body)](const std::string& deviceId) {
        Json whole = Json::object({{"device_user_id", deviceId}});
        for (const auto& [key, value] : body.members()) whole.set(key, value);
        return jsonPost(url, whole.dump());
      },
      std::move(received));
}

void GmailClient::status(std::function<void(const Result<GmailStatus>&)> completion) {
  ask(
      [url = backend_ + "/gmail/status/", &logger = logger_](const std::string& deviceId) {
        logger.print("📧 Checking Gmail access for device: " + deviceId);
        return HttpRequest{.url = url + urlEncode(deviceId)};
      },
      [completion = std::move(completion)](const Result<HttpResponse>& response) {
        const auto answer = objectIn(response);
        if (!answer) return completion(fail(answer.error()));
        const auto hasAccess = answer->boolAt("hasAccess");
        if (!hasAccess) return completion(failed(unreadable, "Invalid response"));
        completion(GmailStatus{*hasAccess, answer->intAt("unreadCount").value_or(0)});
      });
}

void GmailClient::messages(int count,
                           std::function<void(const Result<std::vector<Email>>&)> completion) {
  post("/gmail/messages", Json::object({{"max_results", count}, {"query", "in:inbox"}}),
       [completion = std::move(completion)](const Result<HttpResponse>& response) {
         const auto answer = objectIn(response);
         if (!answer) return completion(fail(answer.error()));
         auto emails = parseEmails(*answer);
         if (!emails) return completion(failed(unreadable, "Invalid response"));
         completion(std::move(*emails));
       });
}

void GmailClient::summary(int count, std::function<void(const Result<std::string>&)> completion) {
  post("/gmail/summary", Json::object({{"count", count}}),
       [completion = std::move(completion)](const Result<HttpResponse>& response) {
         const auto answer = objectIn(response);
         if (!answer) return completion(fail(answer.error()));
         const std::string summary = text::trim(answer->stringAt("summary", ""));
         if (summary.empty()) return completion(failed(unreadable, "Invalid response"));
         completion(summary);
       });
}

void GmailClient::sendEmail(const OutgoingEmail& email,
                            std::function<void(const Status&)> completion) {
  logger_.print("📧 Sending email: to=" + email.to + ", subject=" + email.subject +
                (email.threadId.empty() ? "" : ", thread=" + email.threadId));
  const std::string url = backend_ + "/gmail/send";
  if (!isHttpUrl(url)) {
    logger_.print("❌ Invalid backend URL for email send");
    return dispatch_.mainQueue()->post(lifetime_.guard(
        [completion] { completion(failed(badUrl, "Invalid backend URL for email send")); }));
  }
  ask(
      [url, email](const std::string& deviceId) {
        Json body = Json::object({{"device_user_id", deviceId},
                                  {"to", email.to},
                                  {"subject", email.subject},
                                  {"body", email.body}});
        if (!email.threadId.empty()) body.set("thread_id", email.threadId);
        HttpRequest request = jsonPost(url, body.dump());
        request.timeout = sendTimeout;
        return request;
      },
      [this, completion = std::move(completion)](const Result<HttpResponse>& response) {
        completion(sent(response));
      });
}

Status GmailClient::sent(const Result<HttpResponse>& response) {
  if (!response) {
    logger_.print("❌ Network error sending email: " + response.error().description);
    return fail(response.error());
  }
  logger_.print("📧 Email send response status: " + std::to_string(response->status));
  if (response->body.empty()) {
    logger_.print("❌ No data received from email send");
    return failed(noData, "No data received");
  }
  logger_.print("📧 Email send response: " + text::prefix(response->body, shownCharacters));
  auto answer = objectIn(response);
  if (answer && !answer->boolAt("success"))
    answer = failed(refused, answer->stringAt("error", "Unknown error"));
  if (answer) return {};
  logger_.print(answer.error().code == unreadable
                    ? "❌ Could not parse email send response"
                    : "❌ Email send failed: " + answer.error().description);
  return fail(answer.error());
}

void GmailClient::frequentContacts(
    std::function<void(const Result<std::vector<MailContact>>&)> completion) {
  ask([url = backend_ + "/contacts/frequent/"](
          const std::string& deviceId) { return HttpRequest{.url = url + urlEncode(deviceId)}; },
      [completion = std::move(completion)](const Result<HttpResponse>& response) {
        completion(contactsIn(response));
      });
}

void GmailClient::searchContacts(
    const std::string& query,
    std::function<void(const Result<std::vector<MailContact>>&)> completion) {
  ask(
      [url = backend_ + "/contacts/search", query](const std::string& deviceId) {
        return HttpRequest{.url = url + "?device_user_id=" + urlEncode(deviceId) +
                                  "&query=" + urlEncode(query)};
      },
      [completion = std::move(completion)](const Result<HttpResponse>& response) {
        completion(contactsIn(response));
      });
}

}  // namespace kestrin
