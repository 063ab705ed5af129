#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrin::home {

struct NewsItem {
  std::string title;
  std::string source;
  std::string url;  ///< http or https, or empty
};

/// The entries of an RSS or Atom feed, in its order; none when it is neither. Texts are plain.
std::vector<NewsItem> readFeed(std::string_view xml);

/// The newest of several feeds in turn, so that none crowds out the others.
std::vector<NewsItem> mixed(const std::vector<std::vector<NewsItem>>& feeds, size_t most);

/// "Here are the latest headlines. ..." for reading aloud.
std::string spokenNews(const std::vector<NewsItem>& items);

}  // namespace kestrin::home
