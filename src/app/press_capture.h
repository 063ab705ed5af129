#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dictation/context_capture.h"
#include "dictation/streaming_request_manager.h"
#include "dictation/workspace_file_service.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin {

/// What is known of the user's screen and of the place for the text, taken at one press and filled
/// in while the user speaks. Main queue only.
struct PressCapture {
  std::optional<CapturedContext> context;
  std::shared_ptr<CursorContext> cursor;
  bool workspaceKnown = false;

  /// Both snapshots are there.
  std::function<void()> onSnapshots;
  /// The project of a code editor has been looked for as well.
  std::function<void()> onWorkspaceKnown;
};

/// Takes the snapshots on a background queue: they block on other programs and on the disk.
class PressCapturer {
 public:
  PressCapturer(Dispatch& dispatch, std::shared_ptr<ContextCapture> context,
                std::shared_ptr<WorkspaceFileService> workspace,
                std::shared_ptr<StreamingRequestManager> manager);

  std::shared_ptr<PressCapture> begin();

 private:
  Dispatch& dispatch_;
  std::shared_ptr<ContextCapture> context_;
  std::shared_ptr<WorkspaceFileService> workspace_;
  std::shared_ptr<StreamingRequestManager> manager_;
};

}  // namespace kestrin
