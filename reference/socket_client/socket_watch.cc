#include "reference/socket_client/socket_watch.h"

#include <boost/asio/buffer.hpp>
#include <cstring>
#include <filesystem>
#include <utility>

namespace reference {
namespace {

std::string FolderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path();
  return folder.empty() ? "." : folder;
}

}  // namespace

SocketWatch::SocketWatch(boost::asio::io_context* io, const std::string& path,
                         std::function<void()> appeared)
    : folder_(FolderOf(path)),
      file_name_(std::filesystem::path(path).filename()),
      appeared_(std::move(appeared)),
      inotify_(*io) {}

void SocketWatch::Watch() {
  if (!inotify_.is_open()) Open();
  if (!inotify_.is_open()) return;
  // Adding the same folder again returns the same watch.
  const int watch =
      inotify_add_watch(inotify_.native_handle(), folder_.c_str(), IN_CREATE | IN_MOVED_TO);
  if (watch != watch_) Stop();
  watch_ = watch;
}

void SocketWatch::Stop() {
  // Fails if the folder, and with it the watch, is gone.
  if (watch_ != -1) inotify_rm_watch(inotify_.native_handle(), watch_);
  watch_ = -1;
}

void SocketWatch::Open() {
  const int descriptor = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (descriptor == -1) return;
  inotify_.assign(descriptor);
  Read();
}

void SocketWatch::Read() {
  inotify_.async_read_some(boost::asio::buffer(events_),
                           [this](const boost::system::error_code& error, std::size_t size) {
                             if (error) return;
                             const bool appeared = watch_ != -1 && Appeared(size);
                             Read();
                             if (appeared) appeared_();
                           });
}

bool SocketWatch::Appeared(std::size_t size) const {
  for (std::size_t at = 0; at + sizeof(inotify_event) <= size;) {
    inotify_event event{};
    std::memcpy(&event, events_.data() + at, sizeof event);
    const char* const name = events_.data() + at + sizeof event;
    // After an overflow, any event may have been missed.
    if ((event.mask & IN_Q_OVERFLOW) != 0) return true;
    if (event.len != 0 && file_name_ == name) return true;
    at += sizeof event + event.len;
  }
  return false;
}

}  // namespace reference
