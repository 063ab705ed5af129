#pragma once

#include <string>

namespace kestrin {

/// Runs a line of the shell to its end and returns what it printed.
std::string shell(const std::string& line);
/// A folder that goes away with the session.
std::string scratchFile(const std::string& name);
void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);

/// The user's hands: keys ("ctrl+s Left") and typed text reach whatever has the focus.
void userPresses(const std::string& keys);
void userTypesKeys(const std::string& text);
/// Title of the active window.
std::string activeTitle();

}  // namespace kestrin
