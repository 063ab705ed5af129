#pragma once

#include <string>

#include "platform/result.h"

namespace kestrin {

struct BrowserTab {
  std::string url;
  std::string title;
};

/// What a browser shows, through its accessibility tree (Firefox and Chromium families). Blocking,
/// with deadlines. Thread-safe. Errors: domain "Browser".
class Browser {
 public:
  virtual ~Browser() = default;
  virtual Result<BrowserTab> activeTab(int pid) = 0;
  /// Visible text of the active document, up to `limit` characters.
  virtual Result<std::string> pageText(int pid, size_t limit) = 0;
  /// Selects the first tab whose address (or, where only titles are known, title) matches; false
  /// when none does.
  virtual Result<bool> selectTab(int pid, const std::string& urlToken,
                                 const std::string& title) = 0;
};

}  // namespace kestrin
