#pragma once

#include <string>
#include <vector>

#include "companion/assist/conversation.h"
#include "platform/json/json.h"

namespace kestrin::assist {

/// For each document the passage that fits what was said last, as {title, detail}; a document whose
/// words have nothing to do with it gives none. One that came as bytes (`content_bytes`) gives a
/// note that it cannot be read here.
Json docItems(const std::vector<const Json*>& documents, const std::vector<Sentence>& sentences);

}  // namespace kestrin::assist
