#include "app/press_capture.h"

#include <utility>

namespace kestrin {
namespace {

struct Workspace {
  std::optional<std::string> path;
  std::vector<std::string> files;
};

Workspace findWorkspace(WorkspaceFileService& service, const CapturedContext& context) {
  Workspace found;
  if (!WorkspaceFileService::isCodeEditorName(context.appName)) return found;
  found.path = service.extractWorkspacePath(context.windowTitle, context.appName);
  if (!found.path) return found;
  for (const auto& file : service.scanWorkspace(*found.path)) {
    found.files.push_back(file.relativePath);
  }
  return found;
}

}  // namespace

PressCapturer::PressCapturer(Dispatch& dispatch, std::shared_ptr<ContextCapture> context,
                             std::shared_ptr<WorkspaceFileService> workspace,
                             std::shared_ptr<StreamingRequestManager> manager)
    : dispatch_(dispatch),
      context_(std::move(context)),
      workspace_(std::move(workspace)),
      manager_(std::move(manager)) {}

std::shared_ptr<PressCapture> PressCapturer::begin() {
  auto capture = std::make_shared<PressCapture>();
  dispatch_.globalQueue()->post([main = dispatch_.mainQueue(), source = context_,
                                 workspaces = workspace_, manager = manager_, capture] {
    const auto context = source->captureCurrentContext();
    main->post([capture, context, cursor = manager->captureCursorContext()] {
      capture->context = context;
      capture->cursor = cursor;
      if (capture->onSnapshots) capture->onSnapshots();
    });
    main->post([capture, workspace = findWorkspace(*workspaces, context)] {
      capture->context->workspacePath = workspace.path;
      capture->context->workspaceFiles = workspace.files;
      capture->workspaceKnown = true;
      if (capture->onWorkspaceKnown) capture->onWorkspaceKnown();
    });
  });
  return capture;
}

}  // namespace kestrin
