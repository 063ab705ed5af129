#include "dictation/undelivered.h"

#include <algorithm>

namespace kestrin {

void UndeliveredStore::keepRecording(UndeliveredRecording recording) {
  {
    std::lock_guard lock(mutex_);
    recordings_.push_back(std::move(recording));
    size_t bytes = 0;
    for (const auto& kept : recordings_) bytes += kept.pcm.size();
    // The newest always stays, however long it is.
    while (recordings_.size() > 1 &&
           (recordings_.size() > maxRecordings || bytes > maxRecordingBytes)) {
      bytes -= recordings_.front().pcm.size();
      recordings_.pop_front();
    }
  }
  changed();
}

void UndeliveredStore::keepText(UndeliveredText text) {
  {
    std::lock_guard lock(mutex_);
    texts_.push_back(std::move(text));
    if (texts_.size() > maxTexts) texts_.pop_front();
  }
  changed();
}

std::vector<UndeliveredRecording> UndeliveredStore::recordings() const {
  std::lock_guard lock(mutex_);
  return {recordings_.rbegin(), recordings_.rend()};
}

std::vector<UndeliveredText> UndeliveredStore::texts() const {
  std::lock_guard lock(mutex_);
  return {texts_.rbegin(), texts_.rend()};
}

std::optional<UndeliveredRecording> UndeliveredStore::takeLatestRecording() {
  std::optional<UndeliveredRecording> out;
  {
    std::lock_guard lock(mutex_);
    if (recordings_.empty()) return out;
    out = std::move(recordings_.back());
    recordings_.pop_back();
  }
  changed();
  return out;
}

std::optional<UndeliveredText> UndeliveredStore::takeLatestText() {
  std::optional<UndeliveredText> out;
  {
    std::lock_guard lock(mutex_);
    if (texts_.empty()) return out;
    out = std::move(texts_.back());
    texts_.pop_back();
  }
  changed();
  return out;
}

bool UndeliveredStore::latestIsText() const {
  std::lock_guard lock(mutex_);
  if (texts_.empty()) return false;
  return recordings_.empty() || texts_.back().at >= recordings_.back().at;
}

bool UndeliveredStore::empty() const {
  std::lock_guard lock(mutex_);
  return texts_.empty() && recordings_.empty();
}

void UndeliveredStore::remove(const std::string& id) {
  size_t removed = 0;
  {
    std::lock_guard lock(mutex_);
    removed += std::erase_if(recordings_, [&](const auto& item) { return item.id == id; });
    removed += std::erase_if(texts_, [&](const auto& item) { return item.id == id; });
  }
  if (removed > 0) changed();
}

void UndeliveredStore::clear() {
  {
    std::lock_guard lock(mutex_);
    recordings_.clear();
    texts_.clear();
  }
  changed();
}

void UndeliveredStore::changed() const {
  if (onChange) onChange();
}

}  // namespace kestrin
