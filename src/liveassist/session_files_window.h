#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "liveassist/drive_client.h"
#include "liveassist/live_assist_session_manager.h"
#include "platform/lifetime.h"

namespace kestrin {

/// The window with a session's files, and the picker over the user's Drive. Main queue only.
class SessionFilesWindow {
 public:
  static constexpr const char* title = "Session Files";
  static constexpr const char* header = "Files for this session (max 5)";
  static constexpr const char* hint = "Tick files to use for Live Assist context.";
  static constexpr const char* noFiles =
      "No files attached.\nAdd up to 5 files from Local or Drive.";
  static constexpr const char* localTitle = "Attach local files";
  static constexpr const char* driveTitle = "Google Drive — Select Files";
  static constexpr const char* tooMany = "Maximum 5 files";

  struct DriveRow {
    std::string id;
    std::string name;
    std::string size;  ///< "1.2 MB"; empty when unknown
    std::string icon;  ///< "spreadsheet", "document", "presentation", "image" or "file"
  };

  SessionFilesWindow(LiveAssistSessionManager& sessions, DriveClient& drive)
      : sessions_(sessions), drive_(drive) {}

  void open();
  void close();
  bool isOpen() const { return isOpen_; }
  const std::vector<LAAttachedFile>& files() const { return sessions_.attachedFiles(); }
  /// "2/5 attached • 1 used for context".
  std::string countText() const;

  void attachLocal(const std::vector<std::string>& paths) { sessions_.addLocalFiles(paths); }
  void setUsed(const std::string& fileId, bool used) { sessions_.setUseForContext(fileId, used); }
  void remove(size_t index) { sessions_.removeFile(index); }

  void openDrivePicker();
  void closeDrivePicker();
  bool isDrivePickerOpen() const { return isPickerOpen_; }
  const std::vector<DriveRow>& driveRows() const { return driveRows_; }
  /// "Loading files from Google Drive...", "12 files · Click to attach", or what went wrong.
  const std::string& driveText() const { return driveText_; }
  void attachDrive(size_t row);

  std::function<void()> onChange;
  /// The files have changed.
  void changed() const {
    if (onChange) onChange();
  }

 private:
  void listed(const Result<std::vector<DriveFile>>& files);

  LiveAssistSessionManager& sessions_;
  DriveClient& drive_;
  bool isOpen_ = false;
  bool isPickerOpen_ = false;
  int listings_ = 0;
  std::vector<DriveFile> driveFiles_;
  std::vector<DriveRow> driveRows_;
  std::string driveText_;
  Lifetime lifetime_;
};

}  // namespace kestrin
