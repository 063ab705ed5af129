#pragma once

#include <string>

#include "platform/json/json.h"

namespace kestrin::agent {

/// What the application in front is for.
enum class AppKind { other, mail, chat, code, notes, browser, terminal };

/// The part of the request's `app_context` (a JSON text inside a string) that the agent looks at.
struct AppContext {
  std::string appName;
  std::string windowTitle;
  std::string browserUrl;
  std::string surroundingText;
  std::string selectedText;
  std::string activeFileName;
  std::string documentContent;
  std::string pageContent;
  AppKind kind = AppKind::other;

  /// Anything missing or of another type stays empty.
  static AppContext fromBody(const Json& body);
};

/// By name of the application, and by address where it is a browser.
AppKind appKind(const std::string& appName, const std::string& browserUrl);

}  // namespace kestrin::agent
