#include "identity/account_file.h"

namespace kestrin {

std::string legacyAccountFilePath(Files& files, const std::string& name) {
  return files.dataFolder() + "/" + legacyAccountFolder + "/" + name;
}

std::optional<std::string> accountFilePath(Files& files, const std::string& name) {
  const std::string base = files.dataFolder();
  if (base.empty()) return std::nullopt;
  const std::string folder = base + "/" + accountFolder;
  const std::string current = folder + "/" + name;
  const std::string legacy = legacyAccountFilePath(files, name);
  if (files.exists(legacy) && !files.exists(current)) {
    files.createFolders(folder);
    files.copy(legacy, current);
  }
  return current;
}

}  // namespace kestrin
