#include "reference/wire/unix_listener.h"

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/system/system_error.hpp>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace reference {
namespace {

using boost::asio::local::stream_protocol;
using boost::system::error_code;

// The address must hold a terminating zero too.
constexpr std::size_t kMaxPath = sizeof(sockaddr_un::sun_path) - 1;
constexpr mode_t kFolderMode = S_IRWXU;
constexpr mode_t kSocketMode = S_IRUSR | S_IWUSR;

[[noreturn]] void Fail(int error, const std::string& text) {
  throw boost::system::system_error(error_code(error, boost::system::system_category()), text);
}

void CheckPath(const std::string& path) {
  if (path.empty()) Fail(EINVAL, "the socket path is empty; name a file");
  if (path.size() > kMaxPath) {
    Fail(ENAMETOOLONG, "the socket path is " + std::to_string(path.size()) +
                           " bytes long, at most " + std::to_string(kMaxPath) +
                           " fit; choose a shorter one than " + path);
  }
}

[[noreturn]] void FailForListener(const std::string& path) {
  Fail(EADDRINUSE, "another program listens on " + path + "; stop it or choose another path");
}

bool IsTrusted(uid_t owner) { return owner == geteuid() || owner == 0; }

// The owner of a symbolic link to the folder, or anyone who may rename files in it, can replace our
// socket.
void CheckFolder(const std::string& folder) {
  struct stat found {};
  if (lstat(folder.c_str(), &found) != 0) return;
  if (S_ISLNK(found.st_mode) && !IsTrusted(found.st_uid)) {
    Fail(EPERM, "the folder " + folder + " is a symbolic link of user " +
                    std::to_string(found.st_uid) +
                    ", who can point it elsewhere; choose a folder of your own");
  }
  if (stat(folder.c_str(), &found) != 0) return;
  const bool others_write =
      (found.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (found.st_mode & S_ISVTX) == 0;
  if (IsTrusted(found.st_uid) && !others_write) return;
  Fail(EPERM, "other users can replace a socket in the folder " + folder +
                  "; choose a folder of your own");
}

std::string FolderOf(const std::string& path) {
  const std::string parent = std::filesystem::path(path).parent_path();
  return parent.empty() ? "." : parent;
}

// Creates the default folder only. A path that the operator gave may be mistyped.
void PrepareFolder(const std::string& path) {
  const std::string folder = FolderOf(path);
  if (folder == FolderOf(DefaultSocketPath({}))) {
    if (mkdir(folder.c_str(), kFolderMode) == 0) return;
    if (errno != EEXIST) {
      Fail(errno, "cannot create the folder " + folder +
                      " for the socket; correct XDG_RUNTIME_DIR, or name a socket elsewhere");
    }
  } else if (struct stat found{}; stat(folder.c_str(), &found) != 0) {
    Fail(errno, "there is no folder " + folder + " for the socket; create it first with mkdir " +
                    folder + ", or correct the path");
  }
  CheckFolder(folder);
}

}  // namespace

UnixListener::UnixListener(boost::asio::io_context* io, std::string path)
    : path_(std::move(path)), acceptor_(*io) {
  CheckPath(path_);
  PrepareFolder(path_);
  Lock();
  RemoveStaleSocket();
  Listen();
}

UnixListener::~UnixListener() {
  struct stat now {};
  if (lstat(path_.c_str(), &now) == 0 && now.st_dev == device_ && now.st_ino == inode_) {
    unlink(path_.c_str());
  }
}

// Between `bind` and `listen` a socket looks stale. Two servers that both find a stale socket would
// remove each other's.
void UnixListener::Lock() {
  const std::string file = path_ + ".lock";
  try {
    lock_.emplace(file);
  } catch (const boost::system::system_error& error) {
    if (error.code() == boost::system::errc::operation_would_block) FailForListener(path_);
    Fail(error.code().value(), "cannot lock " + file + "; choose a path in a folder of your own");
  }
}

void UnixListener::RemoveStaleSocket() {
  struct stat found {};
  if (lstat(path_.c_str(), &found) != 0) return;
  if (!S_ISSOCK(found.st_mode)) {
    Fail(EEXIST, path_ + " exists and is not a socket; remove it or choose another path");
  }
  // Non-blocking, because a server too busy to accept is alive too.
  // For such a server, connect() fails with EAGAIN, which Asio reports as no_buffer_space or, since
  // Boost 1.83 at the latest, as success.
  stream_protocol::socket probe(acceptor_.get_executor());
  probe.open();
  probe.non_blocking(true);
  error_code error;
  probe.connect(path_, error);
  if (error == boost::asio::error::connection_refused) {
    unlink(path_.c_str());
  } else if (!error || error == boost::asio::error::no_buffer_space) {
    FailForListener(path_);
  } else {
    Fail(error.value(), "cannot find out who listens on " + path_);
  }
}

void UnixListener::Listen() {
  error_code error;
  acceptor_.open(stream_protocol());
  acceptor_.bind(path_, error);
  if (error) Fail(error.value(), "cannot create the socket " + path_);
  struct stat made {};
  // Nobody can connect before `listen`.
  if (chmod(path_.c_str(), kSocketMode) != 0 || lstat(path_.c_str(), &made) != 0) {
    Fail(errno, "cannot protect the socket " + path_);
  }
  device_ = made.st_dev;
  inode_ = made.st_ino;
  acceptor_.listen(boost::asio::socket_base::max_listen_connections, error);
  if (error) Fail(error.value(), "cannot listen on " + path_);
}

std::string DefaultSocketPath(std::string_view name) {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  const bool has_runtime = runtime != nullptr && *runtime == '/';
  const std::string folder = has_runtime ? std::string(runtime) + "/zuskux/"
                                         : "/tmp/zuskux-" + std::to_string(getuid()) + '/';
  return folder + std::string(name);
}

}  // namespace reference
