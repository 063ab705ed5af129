#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "home/mail/email.h"
#include "identity/device_id_manager.h"
#include "platform/dispatch/dispatch.h"
#include "platform/http.h"
#include "platform/lifetime.h"

namespace kestrin {

struct GmailStatus {
  bool hasAccess = false;
  int64_t unreadCount = 0;
};

/// A mail to be sent; with a thread it is a reply.
struct OutgoingEmail {
  std::string to, subject, body;
  std::string threadId;
};

/// The user's mail, through the backend, which holds the tokens. Main queue only; must be destroyed
/// there. Completions run there once, never within the call. Errors: domain "Gmail" (ErrorCode),
/// and the transport's as they come.
class GmailClient {
 public:
  enum ErrorCode {
    refused = 1,     ///< by the backend, which says why or gives an error status
    unreadable = 2,  ///< "Invalid response"
    noData = 3,
    badUrl = 4,
  };
  static constexpr const char* domain = "Gmail";
  static constexpr std::chrono::seconds sendTimeout{30};

  GmailClient(Dispatch& dispatch, Http& http, Logger& logger, DeviceIdManager& deviceId,
              std::string backend);

  void status(std::function<void(const Result<GmailStatus>&)> completion);
  /// The newest of the inbox.
  void messages(int count, std::function<void(const Result<std::vector<Email>>&)> completion);
  void summary(int count, std::function<void(const Result<std::string>&)> completion);
  void sendEmail(const OutgoingEmail& email, std::function<void(const Status&)> completion);
  void frequentContacts(std::function<void(const Result<std::vector<MailContact>>&)> completion);
  void searchContacts(const std::string& query,
                      std::function<void(const Result<std::vector<MailContact>>&)> completion);

 private:
  using Received = std::function<void(const Result<HttpResponse>&)>;
  /// `request` makes the request for the device's id, off the main queue.
  void ask(std::function<HttpRequest(const std::string& deviceId)> request, Received received);
  void post(const std::string& path, Json body, Received received);
  Status sent(const Result<HttpResponse>& response);

  Dispatch& dispatch_;
  Logger& logger_;
  DeviceIdManager& deviceId_;
  const std::string backend_;
  const std::shared_ptr<HttpSession> session_;
  Lifetime lifetime_;
};

}  // namespace kestrin
