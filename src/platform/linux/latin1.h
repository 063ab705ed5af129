#pragma once

#include <string>
#include <string_view>

namespace kestrin {

/// The target STRING of the X clipboard is Latin-1; characters it lacks read "?".
std::string latin1FromUtf8(std::string_view utf8);
std::string utf8FromLatin1(std::string_view latin1);

}  // namespace kestrin
