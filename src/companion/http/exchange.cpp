#include "companion/http/exchange.h"

#include <algorithm>
#include <cstring>
#include <poll.h>

namespace kestrin::server {

namespace {

ssize_t readPieces(void* exchange, uint64_t, char* target, size_t size) {
  return (*static_cast<std::shared_ptr<Exchange>*>(exchange))->read(target, size);
}

void releaseExchange(void* exchange) { delete static_cast<std::shared_ptr<Exchange>*>(exchange); }

}  // namespace

Exchange::Exchange(MHD_Connection* connection) : connection_(connection) {}

void Exchange::answerWhole(int status, std::string contentType, Bytes body) {
  std::lock_guard lock(mutex_);
  if (answer_ != Answer::none) return;
  answer_ = Answer::whole;
  status_ = status;
  contentType_ = std::move(contentType);
  outgoing_ = std::move(body);
  resumeLocked();
}

bool Exchange::answerPieces(std::string contentType) {
  std::lock_guard lock(mutex_);
  if (answer_ != Answer::none) return false;
  answer_ = Answer::pieces;
  status_ = MHD_HTTP_OK;
  contentType_ = std::move(contentType);
  resumeLocked();
  return true;
}

void Exchange::send(std::string_view bytes) {
  std::lock_guard lock(mutex_);
  if (answer_ != Answer::pieces || end_ != End::open || gone_ || bytes.empty()) return;
  outgoing_.append(bytes);
  resumeLocked();
}

void Exchange::close(End end) {
  std::lock_guard lock(mutex_);
  if (answer_ != Answer::pieces || end_ != End::open) return;
  end_ = end;
  resumeLocked();
}

bool Exchange::clientGone() const {
  std::lock_guard lock(mutex_);
  return gone_;
}

void Exchange::onClientGone(Job job) {
  {
    std::lock_guard lock(mutex_);
    if (!gone_) {
      // After the end of the answer nobody can go any more.
      if (isOpen_) goneJobs_.push_back(std::move(job));
      return;
    }
  }
  job();
}

Exchange::Next Exchange::next() {
  std::lock_guard lock(mutex_);
  if (gone_) return Next::drop;
  if (answer_ != Answer::none) return Next::send;
  suspended_ = true;
  MHD_suspend_connection(connection_);
  return Next::wait;
}

MHD_Result Exchange::queueAnswer(const std::shared_ptr<Exchange>& self) {
  MHD_Response* response = nullptr;
  int status = 0;
  {
    std::lock_guard lock(mutex_);
    status = status_;
    if (answer_ == Answer::whole) {
      response = MHD_create_response_from_buffer(outgoing_.size(), outgoing_.data(),
                                                 MHD_RESPMEM_MUST_COPY);
    } else {
      response =
          MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 16384, readPieces,
                                            new std::shared_ptr<Exchange>(self), releaseExchange);
    }
  }
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, contentType_.c_str());
  MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
  if (!allow.empty()) MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, allow.c_str());
  const MHD_Result result =
      MHD_queue_response(connection_, static_cast<unsigned>(status), response);
  MHD_destroy_response(response);
  return result;
}

ssize_t Exchange::read(char* target, size_t size) {
  std::lock_guard lock(mutex_);
  if (gone_) return MHD_CONTENT_READER_END_WITH_ERROR;
  const size_t count = std::min(size, outgoing_.size() - sent_);
  if (count > 0) {
    std::memcpy(target, outgoing_.data() + sent_, count);
    sent_ += count;
    if (sent_ == outgoing_.size()) {
      outgoing_.clear();
      sent_ = 0;
    }
    return static_cast<ssize_t>(count);
  }
  if (end_ == End::whole) return MHD_CONTENT_READER_END_OF_STREAM;
  if (end_ == End::broken) return MHD_CONTENT_READER_END_WITH_ERROR;
  suspended_ = true;
  MHD_suspend_connection(connection_);
  return 0;
}

void Exchange::abandon() {
  std::unique_lock lock(mutex_);
  if (!isOpen_) return;
  gone_ = true;
  resumeLocked();
  runGoneJobs(std::move(lock));
}

bool Exchange::peerHasClosed() const {
  std::lock_guard lock(mutex_);
  if (!suspended_) return false;  // otherwise libmicrohttpd sees it itself
  pollfd descriptor{
      MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd,
      POLLRDHUP, 0};
  return poll(&descriptor, 1, 0) > 0 && (descriptor.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

Exchange::Told Exchange::told() const {
  std::lock_guard lock(mutex_);
  if (answer_ == Answer::none) return {};
  return {status_, contentType_, outgoing_, answer_ == Answer::whole || end_ != End::open};
}

void Exchange::finished(bool completely) {
  std::unique_lock lock(mutex_);
  isOpen_ = false;
  connection_ = nullptr;
  suspended_ = false;
  if (completely) {
    std::vector<Job> unneeded;
    unneeded.swap(goneJobs_);
    lock.unlock();
    return;  // the jobs may hold the last handles: they are dropped without the lock
  }
  gone_ = true;
  runGoneJobs(std::move(lock));
}

void Exchange::resumeLocked() {
  if (!suspended_) return;
  suspended_ = false;
  MHD_resume_connection(connection_);
}

void Exchange::runGoneJobs(std::unique_lock<std::mutex> lock) {
  std::vector<Job> jobs;
  jobs.swap(goneJobs_);
  lock.unlock();
  for (Job& job : jobs) job();
}

}  // namespace kestrin::server
