#include "web/control_channel.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <utility>

namespace kestrin::web {

ControlChannel::ControlChannel()
    : in_(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)),
      out_(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
  const Descriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  ::dup2(nothing.get(), STDIN_FILENO);
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
}

void ControlChannel::send(const Json& event) {
  const std::string line = event.dump() + "\n";
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t sent = ::write(out_.get(), rest.data(), rest.size());
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return;
    rest.remove_prefix(static_cast<size_t>(sent));
  }
}

bool ControlChannel::receive() {
  std::array<char, 65'536> block;
  const ssize_t got = ::read(in_.get(), block.data(), block.size());
  if (got < 0) return errno == EINTR || errno == EAGAIN;
  if (got == 0) return false;
  pending_.append(block.data(), static_cast<size_t>(got));
  for (size_t end = 0; (end = pending_.find('\n')) != std::string::npos;) {
    if (auto command = Json::parse(std::string_view(pending_).substr(0, end))) {
      commands_.push_back(std::move(*command));
    }
    pending_.erase(0, end + 1);
  }
  return true;
}

std::optional<Json> ControlChannel::next() {
  if (commands_.empty()) return {};
  Json command = std::move(commands_.front());
  commands_.pop_front();
  return command;
}

std::optional<Json> ControlChannel::await(const std::function<bool(const Json&)>& wanted,
                                          std::chrono::milliseconds limit) {
  const Deadline deadline(limit);
  for (;;) {
    const auto found = std::find_if(commands_.begin(), commands_.end(), wanted);
    if (found != commands_.end()) {
      Json command = std::move(*found);
      commands_.erase(found);
      return command;
    }
    if (deadline.passed()) return {};
    pollfd readable{in_.get(), POLLIN, 0};
    if (::poll(&readable, 1, static_cast<int>(deadline.left().count())) > 0 && !receive()) {
      return {};
    }
  }
}

}  // namespace kestrin::web
