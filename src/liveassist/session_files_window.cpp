#include "liveassist/session_files_window.h"

#include <algorithm>

#include "platform/text/text.h"

namespace kestrin {
namespace {

std::string sizeText(int64_t bytes) {
  if (bytes <= 0) return "";
  if (bytes < 1024) return std::to_string(bytes) + " B";
  if (bytes < 1024 * 1024) return text::fixed(double(bytes) / 1024, 1) + " KB";
  return text::fixed(double(bytes) / (1024 * 1024), 1) + " MB";
}

std::string iconOf(const std::string& mimeType) {
  for (const char* kind : {"spreadsheet", "document", "presentation", "image"}) {
    if (text::contains(mimeType, kind)) return kind;
  }
  return "file";
}

std::string failureText(const Error& error) {
  if (error.domain != DriveClient::domain) return "Failed to connect. Check internet.";
  if (error.code != DriveClient::refused) return error.description;
  return "Error: " + error.description + "\nEnable Drive access in Settings.";
}

}  // namespace

void SessionFilesWindow::open() {
  isOpen_ = true;
  changed();
}

void SessionFilesWindow::close() {
  isOpen_ = false;
  isPickerOpen_ = false;
  changed();
}

std::string SessionFilesWindow::countText() const {
  const auto used = std::count_if(files().begin(), files().end(),
                                  [](const LAAttachedFile& file) { return file.useForContext; });
  return std::to_string(files().size()) + "/5 attached • " + std::to_string(used) +
         " used for context";
}

void SessionFilesWindow::openDrivePicker() {
  isPickerOpen_ = true;
  driveFiles_.clear();
  driveRows_.clear();
  driveText_ = "Loading files from Google Drive...";
  changed();
  drive_.files(
      lifetime_.guard([this, listing = ++listings_](const Result<std::vector<DriveFile>>& files) {
        if (listing == listings_) listed(files);
      }));
}

void SessionFilesWindow::closeDrivePicker() {
  isPickerOpen_ = false;
  ++listings_;
  changed();
}

void SessionFilesWindow::listed(const Result<std::vector<DriveFile>>& files) {
  if (!files) {
    driveText_ = failureText(files.error());
  } else if (files->empty()) {
    driveText_ = "No files found in your Drive.";
  } else {
    driveFiles_ = *files;
    for (const DriveFile& file : driveFiles_) {
      driveRows_.push_back({file.id, file.name, sizeText(file.size), iconOf(file.mimeType)});
    }
    driveText_ = std::to_string(driveRows_.size()) + " files · Click to attach";
  }
  changed();
}

void SessionFilesWindow::attachDrive(size_t row) {
  if (row >= driveFiles_.size()) return;
  if (files().size() >= LiveAssistSessionManager::mostFiles) {
    driveText_ = tooMany;
    return changed();
  }
  const DriveFile& file = driveFiles_[row];
  sessions_.addDriveFile(file.id, file.name, file.size, file.mimeType);
}

}  // namespace kestrin
