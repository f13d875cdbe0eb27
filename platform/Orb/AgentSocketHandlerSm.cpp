#include "Orb/AgentSocketHandlerSm.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "Loom/Errors.h"
#include "Orb/OrbTrace.h"

namespace Orb {

// One client connection: first its request line, then its answer.
struct AgentSocketHandlerSm::Connection {
  std::uint64_t id = 0;
  Limits limits;  // as they were when the connection was accepted
  UniqueFd socket;
  std::string request;
  bool answering = false;
  UniqueFd answer;  // the callback's in-memory answer
  std::size_t answerSize = 0;
  std::size_t answerSent = 0;
  TaskSchedulerRoot::TimerId timer = 0;  // request timeout, then stall timeout
};

namespace {

constexpr std::size_t kScratchBytes = std::size_t{64} << 10;
constexpr int kMaxAcceptsPerRound = 16;
constexpr std::size_t kMaxDiscardBytes = std::size_t{64} << 10;
constexpr std::chrono::milliseconds kAcceptRetryDelay{100};
constexpr int kListenBacklog = 64;
constexpr std::size_t kMaxShownCommandBytes = 64;

// What the process shares between handlers: the socket directory and which handler serves
// which path.
struct ProcessState {
  std::mutex mutex;
  std::optional<std::string> socketDir;
  std::map<std::string, AgentSocketHandlerSm*> activeByPath;
};

ProcessState& processState() {
  static ProcessState state;
  return state;
}

std::system_error systemError(int error, std::string const& what) {
  return std::system_error(error, std::generic_category(), "Orb::AgentSocketHandlerSm: " + what);
}

std::string errorText(int error) {
  return std::generic_category().message(error);
}

sockaddr_un addressOf(std::string const& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path) {
    throw std::invalid_argument("Orb::AgentSocketHandlerSm: socket path '" + path +
                                "' is longer than " + std::to_string(sizeof address.sun_path - 1) +
                                " bytes");
  }
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

sockaddr const* asSockaddr(sockaddr_un const& address) {
  return reinterpret_cast<sockaddr const*>(&address);
}

// Creates `dir` and any missing parent, each with mode 0700.
void makeDirectories(std::string const& dir) {
  for (std::size_t from = 1;;) {
    auto const slash = dir.find('/', from);
    std::string const prefix = dir.substr(0, slash);
    if (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST) {
      throw systemError(errno, "cannot create socket directory '" + prefix + "'");
    }
    if (slash == std::string::npos) {
      break;
    }
    from = slash + 1;
  }
  struct stat info {};
  if (::stat(dir.c_str(), &info) != 0) {
    throw systemError(errno, "cannot use socket directory '" + dir + "'");
  }
  if (!S_ISDIR(info.st_mode)) {
    throw systemError(ENOTDIR, "socket directory '" + dir + "' is not a directory");
  }
}

// Removes the socket file at `path` when no agent serves it any more. Throws when a live agent
// still does, or when the path is not a socket.
void clearStaleSocket(std::string const& path, sockaddr_un const& address) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) {
    if (errno == ENOENT) {
      return;
    }
    throw systemError(errno, "cannot inspect '" + path + "'");
  }
  if (!S_ISSOCK(info.st_mode)) {
    throw systemError(EEXIST, "'" + path + "' exists and is not a socket");
  }
  UniqueFd const probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!probe) {
    throw systemError(errno, "cannot create a socket");
  }
  if (::connect(probe.get(), asSockaddr(address), sizeof address) == 0 || errno == EAGAIN ||
      errno == EINPROGRESS) {
    throw systemError(EADDRINUSE, "agent socket '" + path + "' is served by a running agent");
  }
  if (errno != ECONNREFUSED && errno != ENOENT) {
    throw systemError(errno, "cannot probe agent socket '" + path + "'");
  }
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    throw systemError(errno, "cannot remove stale agent socket '" + path + "'");
  }
  TRACE(orbFacility(), kOrbTraceClient, "removed stale agent socket ", path);
}

// A command as it may be shown in an error line: printable, quoted-safe, bounded.
std::string shownCommand(std::string_view command) {
  std::string shown;
  for (char const c : command.substr(0, kMaxShownCommandBytes)) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7f || c == '\'' || c == '\\') {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02x", byte);
      shown += hex;
    } else {
      shown += c;
    }
  }
  if (command.size() > kMaxShownCommandBytes) {
    shown += "...";
  }
  return shown;
}

// A buffer for one answer: a memory file sealed at a fixed size, so that writes past it fail
// instead of growing it; unwritten pages take no memory. The answer's length is the file
// position after the callback. The size is the answer limit rounded up to a multiple of the
// largest chunk the kernel writes at once (2 MiB), so that a write that does not fit fills the
// file up to its end before it fails: a runaway answer always ends at or above the limit and is
// refused, never silently cut short.
constexpr std::size_t kAnswerBufferGranule = std::size_t{2} << 20;

UniqueFd answerBuffer(std::size_t maxAnswerBytes) {
  std::size_t const bytes =
      (maxAnswerBytes + kAnswerBufferGranule - 1) / kAnswerBufferGranule * kAnswerBufferGranule;
  UniqueFd buffer(::memfd_create("agent-socket-answer", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!buffer) {
    return buffer;
  }
  if (::ftruncate(buffer.get(), static_cast<off_t>(bytes)) != 0 ||
      ::fcntl(buffer.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) != 0) {
    buffer.reset();
  }
  return buffer;
}

// Runs `callback` for one request, its answer going to `answerFd`. An exception of the
// callback is reported in the answer after what the callback wrote.
void runCallback(AgentSocketCallback& callback, std::string const& command, std::string_view args,
                 int answerFd, std::string const& path) {
  try {
    callback.handleCommand(static_cast<std::uint32_t>(answerFd), Loom::String(args));
  } catch (std::exception const& e) {
    TRACE(orbFacility(), kOrbTraceError, "agent socket ", path, ": command ", command,
          " failed: ", e.what());
    writeAll(answerFd, "error: command '" + command + "' failed: " + e.what() + "\n");
  } catch (...) {
    TRACE(orbFacility(), kOrbTraceError, "agent socket ", path, ": command ", command, " failed");
    writeAll(answerFd, "error: command '" + command + "' failed\n");
  }
}

// Reads and drops what the client still sent, a bounded amount, so that closing the
// connection ends it cleanly for a client that is done writing.
void discardInput(int fd) noexcept {
  char buffer[4096];
  for (std::size_t dropped = 0; dropped < kMaxDiscardBytes;) {
    auto const n = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
    if (n <= 0) {
      return;
    }
    dropped += static_cast<std::size_t>(n);
  }
}

}  // namespace

Loom::Ptr<AgentSocketHandlerSm> AgentSocketHandlerSm::AgentSocketHandlerSmIs(
    Loom::String const& name) {
  return Loom::make<AgentSocketHandlerSm>(name);
}

AgentSocketHandlerSm::AgentSocketHandlerSm(Loom::String name) : name_(std::move(name)) {
  if (name_.empty() || name_ == "." || name_ == ".." ||
      name_.view().find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) {
    throw std::invalid_argument("Orb::AgentSocketHandlerSm: '" + shownCommand(name_.view()) +
                                "' cannot name a socket file");
  }
}

AgentSocketHandlerSm::~AgentSocketHandlerSm() {
  if (hasNotificationActive()) {
    deactivate();
  }
}

Loom::TypeData const& AgentSocketHandlerSm::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"name", Loom::AttributeKind::scalar, "Loom::String"},
          {"hasNotificationActive", Loom::AttributeKind::scalar, "bool"},
          {"agentSocketCallback", Loom::AttributeKind::collection, "Orb::AgentSocketCallback"},
          {"limits", Loom::AttributeKind::scalar, "Orb::AgentSocketHandlerSm::Limits"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 1, typeName);
        return AgentSocketHandlerSmIs(Loom::argAt<Loom::String>(args, 0, typeName));
      },
      false);
  return data;
}

void AgentSocketHandlerSm::socketDirIs(std::string dir) {
  auto& state = processState();
  std::lock_guard lock(state.mutex);
  if (dir.empty()) {
    state.socketDir.reset();
  } else {
    state.socketDir = std::move(dir);
  }
}

std::string AgentSocketHandlerSm::socketDir() {
  auto& state = processState();
  std::lock_guard lock(state.mutex);
  if (state.socketDir) {
    return *state.socketDir;
  }
  char const* const fromEnv = std::getenv(kSocketDirEnv);
  return fromEnv != nullptr && *fromEnv != '\0' ? std::string(fromEnv)
                                                : std::string(kDefaultSocketDir);
}

std::string AgentSocketHandlerSm::socketPath() const {
  return hasNotificationActive() ? boundPath_ : socketDir() + "/" + name_.str();
}

void AgentSocketHandlerSm::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) {
    return;
  }
  if (active) {
    activate();
  } else {
    deactivate();
  }
}

void AgentSocketHandlerSm::agentSocketCallbackIs(Loom::Ptr<AgentSocketCallback> callback) {
  if (!callback) {
    throw Loom::NullPointerArgumentError(typeName, "agentSocketCallback");
  }
  if (callback->handlerName() != name_) {
    throw std::invalid_argument("Orb::AgentSocketHandlerSm '" + name_.str() +
                                "': the callback of command '" + callback->command().str() +
                                "' belongs to handler '" + callback->handlerName().str() + "'");
  }
  auto const command = callback->command();
  callbacks_.insert_or_assign(command, std::move(callback));
}

void AgentSocketHandlerSm::agentSocketCallbackDel(Loom::String const& command) {
  callbacks_.erase(command);
}

Loom::Ptr<AgentSocketCallback> AgentSocketHandlerSm::agentSocketCallback(
    Loom::String const& command) const {
  auto const it = callbacks_.find(command);
  return it == callbacks_.end() ? nullptr : it->second;
}

std::string AgentSocketHandlerSm::answerText(std::string_view command,
                                             std::string_view args) const {
  auto const found = callbacks_.find(Loom::String(command));
  if (found == callbacks_.end()) {
    return "error: unknown command '" + shownCommand(command) + "'\n";
  }
  UniqueFd const answer = answerBuffer(limits_.maxAnswerBytes);
  if (!answer) {
    return "error: cannot buffer the answer\n";
  }
  runCallback(*found->second, std::string(command), args, answer.get(), socketPath());
  auto const size = ::lseek(answer.get(), 0, SEEK_CUR);
  if (size < 0) {
    return "error: cannot read the answer\n";
  }
  if (static_cast<std::size_t>(size) >= limits_.maxAnswerBytes) {
    return "error: answer too large\n";
  }
  std::string text(static_cast<std::size_t>(size), '\0');
  std::size_t done = 0;
  while (done < text.size()) {
    auto const got =
        ::pread(answer.get(), text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return "error: cannot read the answer\n";
    }
    done += static_cast<std::size_t>(got);
  }
  return text;
}

void AgentSocketHandlerSm::limitsIs(Limits const& limits) {
  auto const require = [](bool ok, char const* field) {
    if (!ok) {
      throw std::invalid_argument(std::string("Orb::AgentSocketHandlerSm::Limits: ") + field +
                                  " must be positive");
    }
  };
  require(limits.maxRequestBytes > 0, "maxRequestBytes");
  require(limits.requestTimeout.count() > 0, "requestTimeout");
  require(limits.stallTimeout.count() > 0, "stallTimeout");
  require(limits.maxAnswerBytes > 0, "maxAnswerBytes");
  require(limits.maxConnections > 0, "maxConnections");
  limits_ = limits;
}

void AgentSocketHandlerSm::activate() {
  auto* const root = TaskSchedulerRoot::root();
  if (root == nullptr) {
    throw std::logic_error("Orb::AgentSocketHandlerSm '" + name_.str() +
                           "': no root scheduler (Orb::TaskSchedulerRoot::rootIs)");
  }
  std::string const dir = socketDir();
  std::string const path = dir + "/" + name_.str();
  sockaddr_un const address = addressOf(path);
  makeDirectories(dir);

  // Another handler of this process that serves the path gives it up.
  AgentSocketHandlerSm* previous = nullptr;
  {
    auto& state = processState();
    std::lock_guard lock(state.mutex);
    auto const it = state.activeByPath.find(path);
    previous = it == state.activeByPath.end() ? nullptr : it->second;
  }
  if (previous != nullptr) {
    TRACE(orbFacility(), kOrbTraceClient, "agent socket ", path,
          " taken over from an older handler");
    previous->hasNotificationActiveIs(false);
  }
  clearStaleSocket(path, address);

  UniqueFd listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!listener) {
    throw systemError(errno, "cannot create a socket");
  }
  if (::bind(listener.get(), asSockaddr(address), sizeof address) != 0) {
    throw systemError(errno, "cannot bind agent socket '" + path + "'");
  }
  // The file is ours from here on; a failure below removes it again.
  struct Unbind {
    std::string const& path;
    bool armed = true;
    ~Unbind() {
      if (armed) {
        ::unlink(path.c_str());
      }
    }
  } unbind{path};
  // Not yet listening: nobody can connect before the mode is right.
  if (::chmod(path.c_str(), 0600) != 0) {
    throw systemError(errno, "cannot set the mode of agent socket '" + path + "'");
  }
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    throw systemError(errno, "cannot inspect agent socket '" + path + "'");
  }
  if (::listen(listener.get(), kListenBacklog) != 0) {
    throw systemError(errno, "cannot listen on agent socket '" + path + "'");
  }
  Loom::Ptr<TaskSchedulerRoot> scheduler(root);
  scheduler->fdHandlerIs(listener.get(), POLLIN, [this](short) { onListenerReady(); });
  {
    auto& state = processState();
    std::lock_guard lock(state.mutex);
    state.activeByPath[path] = this;
  }
  unbind.armed = false;

  scheduler_ = std::move(scheduler);
  listener_ = std::move(listener);
  boundPath_ = path;
  boundDev_ = info.st_dev;
  boundIno_ = info.st_ino;
  scratch_.resize(kScratchBytes);
  nodeFlagIs(Loom::NodeFlag::notificationActive, true);
  TRACE(orbFacility(), kOrbTraceDetail, "agent socket ", path, " listening");
}

void AgentSocketHandlerSm::deactivate() noexcept {
  waitingForRoom_ = false;
  while (!connections_.empty()) {
    closeConnection(connections_.begin()->first);
  }
  scheduler_->fdHandlerDel(listener_.get());
  scheduler_->timerDel(acceptRetryTimer_);
  acceptRetryTimer_ = 0;
  // Only the file this handler bound; the listener still pins its inode.
  struct stat info {};
  if (::lstat(boundPath_.c_str(), &info) == 0 && info.st_dev == boundDev_ &&
      info.st_ino == boundIno_) {
    ::unlink(boundPath_.c_str());
  }
  listener_.reset();
  {
    auto& state = processState();
    std::lock_guard lock(state.mutex);
    auto const it = state.activeByPath.find(boundPath_);
    if (it != state.activeByPath.end() && it->second == this) {
      state.activeByPath.erase(it);
    }
  }
  TRACE(orbFacility(), kOrbTraceDetail, "agent socket ", boundPath_, " closed");
  boundPath_.clear();
  scratch_ = {};
  nodeFlagIs(Loom::NodeFlag::notificationActive, false);
  scheduler_ = nullptr;
}

void AgentSocketHandlerSm::pauseAccepting() {
  // Out of descriptors or memory: stop watching the listener for a moment instead of spinning.
  scheduler_->fdHandlerDel(listener_.get());
  scheduler_->timerDel(acceptRetryTimer_);
  acceptRetryTimer_ = scheduler_->timerIs(kAcceptRetryDelay, [this] {
    acceptRetryTimer_ = 0;
    scheduler_->fdHandlerIs(listener_.get(), POLLIN, [this](short) { onListenerReady(); });
  });
}

void AgentSocketHandlerSm::waitForRoom() {
  // Further clients stay queued in the listen backlog, their requests buffered by the kernel,
  // and are accepted as connections close: a burst is served in turn, not turned away.
  TRACE(orbFacility(), kOrbTraceClient, "agent socket ", boundPath_, ": ", connections_.size(),
        " connections open, the next wait");
  scheduler_->fdHandlerDel(listener_.get());
  waitingForRoom_ = true;
}

void AgentSocketHandlerSm::onListenerReady() {
  for (int i = 0; i < kMaxAcceptsPerRound; ++i) {
    if (connections_.size() >= limits_.maxConnections) {
      waitForRoom();
      return;
    }
    int const fd = ::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      int const error = errno;
      if (error == EAGAIN || error == EWOULDBLOCK) {
        return;
      }
      if (error == EINTR || error == ECONNABORTED || error == EPROTO) {
        continue;
      }
      TRACE(orbFacility(), kOrbTraceError, "agent socket ", boundPath_,
            ": accept failed: ", errorText(error));
      pauseAccepting();
      return;
    }
    UniqueFd socket(fd);
    auto connection = std::make_unique<Connection>();
    auto const id = nextConnectionId_++;
    connection->id = id;
    connection->limits = limits_;
    connection->socket = std::move(socket);
    Connection& added = *connections_.emplace(id, std::move(connection)).first->second;
    scheduler_->fdHandlerIs(fd, POLLIN, [this, id](short) { onConnectionReady(id); });
    armTimer(added, added.limits.requestTimeout, "request");
    TRACE(orbFacility(), kOrbTraceDetail, "agent socket ", boundPath_, ": connection ", id,
          " accepted");
  }
}

void AgentSocketHandlerSm::onConnectionReady(std::uint64_t id) {
  // A callback may drop the last reference to this handler; it goes when the event is done.
  Loom::Ptr<AgentSocketHandlerSm> const self(this);
  auto const it = connections_.find(id);
  if (it == connections_.end()) {
    return;
  }
  if (it->second->answering) {
    sendAnswer(*it->second);
  } else {
    readRequest(*it->second);
  }
}

void AgentSocketHandlerSm::readRequest(Connection& connection) {
  std::size_t const maxBytes = connection.limits.maxRequestBytes;
  for (;;) {
    // At most one byte past the limit: enough to tell an over-long line.
    std::size_t const room = maxBytes + 1 - connection.request.size();
    auto const n =
        ::recv(connection.socket.get(), scratch_.data(), std::min(room, scratch_.size()), 0);
    if (n > 0) {
      std::size_t const searchFrom = connection.request.size();
      connection.request.append(scratch_.data(), static_cast<std::size_t>(n));
      auto const newline = connection.request.find('\n', searchFrom);
      if (newline != std::string::npos) {
        std::string const line = connection.request.substr(0, newline);
        dispatch(connection, line);
        return;
      }
      if (connection.request.size() > maxBytes) {
        refuse(connection, "error: request too long\n");
        return;
      }
      continue;
    }
    if (n == 0) {
      refuse(connection, "error: request without newline\n");
      return;
    }
    int const error = errno;
    if (error == EINTR) {
      continue;
    }
    if (error == EAGAIN || error == EWOULDBLOCK) {
      return;
    }
    TRACE(orbFacility(), kOrbTraceClient, "agent socket ", boundPath_, ": connection ",
          connection.id, " failed while reading: ", errorText(error));
    closeConnection(connection.id);
    return;
  }
}

void AgentSocketHandlerSm::dispatch(Connection& connection, std::string_view line) {
  scheduler_->timerDel(connection.timer);
  connection.timer = 0;
  if (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  auto const start = line.find_first_not_of(" \t");
  if (start == std::string_view::npos) {
    refuse(connection, "error: empty request\n");
    return;
  }
  line.remove_prefix(start);
  auto const end = line.find_first_of(" \t");
  std::string const command(line.substr(0, end));
  std::string_view const args = end == std::string_view::npos ? "" : line.substr(end + 1);
  auto const found = callbacks_.find(Loom::String(command));
  if (found == callbacks_.end()) {
    refuse(connection, "error: unknown command '" + shownCommand(command) + "'\n");
    return;
  }
  UniqueFd answer = answerBuffer(connection.limits.maxAnswerBytes);
  if (!answer) {
    TRACE(orbFacility(), kOrbTraceError, "agent socket ", boundPath_,
          ": cannot create an answer buffer: ", errorText(errno));
    refuse(connection, "error: cannot buffer the answer\n");
    return;
  }

  std::uint64_t const id = connection.id;
  TRACE(orbFacility(), kOrbTraceDetail, "agent socket ", boundPath_, ": connection ", id,
        " command ", command);
  runCallback(*found->second, command, args, answer.get(), boundPath_);

  // The callback may have switched the handler off, which closed every connection.
  auto const still = connections_.find(id);
  if (still == connections_.end()) {
    return;
  }
  Connection& current = *still->second;
  auto const size = ::lseek(answer.get(), 0, SEEK_CUR);
  if (size < 0) {
    TRACE(orbFacility(), kOrbTraceError, "agent socket ", boundPath_,
          ": cannot size the answer: ", errorText(errno));
    refuse(current, "error: cannot read the answer\n");
    return;
  }
  if (static_cast<std::size_t>(size) >= current.limits.maxAnswerBytes) {
    refuse(current, "error: answer too large\n");
    return;
  }
  startAnswer(current, std::move(answer), static_cast<std::size_t>(size));
}

void AgentSocketHandlerSm::startAnswer(Connection& connection, UniqueFd answer, std::size_t size) {
  connection.answering = true;
  connection.answer = std::move(answer);
  connection.answerSize = size;
  connection.answerSent = 0;
  connection.request.clear();
  auto const id = connection.id;
  scheduler_->fdHandlerIs(connection.socket.get(), POLLOUT,
                          [this, id](short) { onConnectionReady(id); });
  armTimer(connection, connection.limits.stallTimeout, "stall");
  sendAnswer(connection);
}

void AgentSocketHandlerSm::sendAnswer(Connection& connection) {
  bool progress = false;
  while (connection.answerSent < connection.answerSize) {
    std::size_t const want =
        std::min(scratch_.size(), connection.answerSize - connection.answerSent);
    auto const got = ::pread(connection.answer.get(), scratch_.data(), want,
                             static_cast<off_t>(connection.answerSent));
    if (got <= 0) {
      TRACE(orbFacility(), kOrbTraceError, "agent socket ", boundPath_, ": connection ",
            connection.id, ": cannot read the answer: ", errorText(got < 0 ? errno : EIO));
      closeConnection(connection.id);
      return;
    }
    auto const sent = ::send(connection.socket.get(), scratch_.data(),
                             static_cast<std::size_t>(got), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
      int const error = errno;
      if (error == EINTR) {
        continue;
      }
      if (error == EAGAIN || error == EWOULDBLOCK) {
        break;
      }
      TRACE(orbFacility(), kOrbTraceClient, "agent socket ", boundPath_, ": connection ",
            connection.id, " gone after ", connection.answerSent, " of ", connection.answerSize,
            " bytes: ", errorText(error));
      closeConnection(connection.id);
      return;
    }
    connection.answerSent += static_cast<std::size_t>(sent);
    progress = true;
    if (sent < got) {
      break;  // the socket buffer is full
    }
  }
  if (connection.answerSent == connection.answerSize) {
    TRACE(orbFacility(), kOrbTraceDetail, "agent socket ", boundPath_, ": connection ",
          connection.id, " answered, ", connection.answerSize, " bytes");
    closeConnection(connection.id);
    return;
  }
  if (progress) {
    armTimer(connection, connection.limits.stallTimeout, "stall");
  }
}

void AgentSocketHandlerSm::armTimer(Connection& connection, std::chrono::milliseconds delay,
                                    char const* reason) {
  scheduler_->timerDel(connection.timer);
  auto const id = connection.id;
  connection.timer = scheduler_->timerIs(delay, [this, id, reason] {
    auto const it = connections_.find(id);
    if (it == connections_.end()) {
      return;
    }
    Connection& expired = *it->second;
    expired.timer = 0;
    TRACE(orbFacility(), kOrbTraceClient, "agent socket ", boundPath_, ": connection ", id, " ",
          std::string_view(reason), " timeout");
    if (expired.answering) {
      closeConnection(id);
    } else {
      refuse(expired, "error: request timeout\n");
    }
  });
}

void AgentSocketHandlerSm::refuse(Connection& connection, std::string_view errorLine) {
  TRACE(orbFacility(), kOrbTraceClient, "agent socket ", boundPath_, ": connection ", connection.id,
        " refused: ", errorLine.substr(0, errorLine.size() - 1));
  [[maybe_unused]] auto const n = ::send(connection.socket.get(), errorLine.data(),
                                         errorLine.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  closeConnection(connection.id);
}

void AgentSocketHandlerSm::closeConnection(std::uint64_t id) noexcept {
  auto const it = connections_.find(id);
  if (it == connections_.end()) {
    return;
  }
  Connection& connection = *it->second;
  discardInput(connection.socket.get());
  scheduler_->fdHandlerDel(connection.socket.get());
  scheduler_->timerDel(connection.timer);
  connections_.erase(it);  // closes the socket and the answer buffer, once
  if (waitingForRoom_ && connections_.size() < limits_.maxConnections) {
    waitingForRoom_ = false;
    scheduler_->fdHandlerIs(listener_.get(), POLLIN, [this](short) { onListenerReady(); });
  }
}

namespace {
Loom::TypeRegistration const registration(AgentSocketHandlerSm::type());
}

}  // namespace Orb
