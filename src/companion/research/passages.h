#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrin::research {

/// One thing that was read: a page, or a record of the user's own.
struct Document {
  std::string title;
  std::string url;  ///< empty for the user's own
  std::vector<std::string> blocks;
};

/// A stretch of a document that fits the question.
struct Passage {
  size_t document = 0;  ///< its index
  std::string text;
  double score = 0;
};

/// The words of a text that carry meaning, in a form in which singular and plural are the same.
std::vector<std::string> searchWords(std::string_view text);

/// The passages that share most with the question (BM25 over all of them), best first, at most
/// `most` and at most `perDocument` of one document. None that shares nothing.
std::vector<Passage> bestPassages(std::string_view question, const std::vector<Document>& documents,
                                  size_t most, size_t perDocument);

}  // namespace kestrin::research
