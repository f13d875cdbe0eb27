#include "dblink/RedisConnection.h"

#include <hiredis/hiredis.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace DbLink {

namespace {

using namespace std::chrono_literals;

// One read(2) takes this much at most; a round reads at most kReadChunksPerRound of them, so
// that a flood of replies does not keep the other descriptors waiting.
constexpr std::size_t kReadChunk = 64 * 1024;
constexpr int kReadChunksPerRound = 16;
// The reader moves its unread bytes to the front whenever more than 1 KiB is consumed; feeding
// it in small slices keeps that move short, so parsing stays linear in what arrives.
constexpr std::size_t kFeedSlice = 4 * 1024;
// The reader keeps a buffer up to this size between replies instead of reallocating it.
constexpr std::size_t kReaderKeep = 64 * 1024;
// The output buffer: written-out bytes are dropped from the front once they are both this many
// and at least half of the buffer; an emptied buffer keeps at most kOutKeep of capacity.
constexpr std::size_t kOutCompactAt = 1024 * 1024;
constexpr std::size_t kOutKeep = 4 * 1024 * 1024;

std::string errnoText(int error) {
  return std::generic_category().message(error);
}

bool isKind(RedisReply const& reply, RedisReply::Kind kind, std::string_view text) {
  return reply.kind == kind && reply.text == text;
}

// A subscriber message: ["message", channel, payload] or ["pmessage", pattern, channel, payload].
bool isSubscriberMessage(RedisReply const& reply) {
  if (reply.kind != RedisReply::Kind::array || reply.elements.size() < 3) {
    return false;
  }
  auto const& head = reply.elements.front();
  return isKind(head, RedisReply::Kind::string, "message") ||
         isKind(head, RedisReply::Kind::string, "pmessage");
}

// The last answer to UNSUBSCRIBE/PUNSUBSCRIBE: no subscription left, subscriber mode ends.
bool endsSubscriberMode(RedisReply const& reply) {
  if (reply.kind != RedisReply::Kind::array || reply.elements.size() != 3) {
    return false;
  }
  auto const& head = reply.elements.front();
  auto const& count = reply.elements.back();
  return (isKind(head, RedisReply::Kind::string, "unsubscribe") ||
          isKind(head, RedisReply::Kind::string, "punsubscribe")) &&
         count.kind == RedisReply::Kind::integer && count.integer == 0;
}

bool startsSubscriberMode(std::string const& name) {
  auto const equalsNoCase = [&name](std::string_view word) {
    if (name.size() != word.size()) {
      return false;
    }
    for (std::size_t i = 0; i < word.size(); ++i) {
      if ((name[i] | 0x20) != word[i]) {
        return false;
      }
    }
    return true;
  };
  return equalsNoCase("subscribe") || equalsNoCase("psubscribe");
}

RedisReply convert(redisReply const& from) {
  RedisReply to;
  switch (from.type) {
    case REDIS_REPLY_STRING:
      to.kind = RedisReply::Kind::string;
      to.text.assign(from.str, from.len);
      break;
    case REDIS_REPLY_STATUS:
      to.kind = RedisReply::Kind::status;
      to.text.assign(from.str, from.len);
      break;
    case REDIS_REPLY_ERROR:
      to.kind = RedisReply::Kind::error;
      to.text.assign(from.str, from.len);
      break;
    case REDIS_REPLY_INTEGER:
      to.kind = RedisReply::Kind::integer;
      to.integer = from.integer;
      break;
    case REDIS_REPLY_ARRAY:
      to.kind = RedisReply::Kind::array;
      to.elements.reserve(from.elements);
      for (std::size_t i = 0; i < from.elements; ++i) {
        to.elements.push_back(convert(*from.element[i]));
      }
      break;
    default:
      to.kind = RedisReply::Kind::nil;
      break;
  }
  return to;
}

}  // namespace

RedisConnection::RedisConnection(Orb::TaskSchedulerRoot& scheduler, RedisEndpoint endpoint)
    : scheduler_(scheduler),
      endpoint_(std::move(endpoint)),
      alive_(std::make_shared<bool>(true)),
      reader_(redisReaderCreate(), &redisReaderFree) {
  if (!reader_) {
    throw std::bad_alloc();
  }
  reader_->maxbuf = kReaderKeep;
}

RedisConnection::~RedisConnection() {
  *alive_ = false;
  release();
  if (deferTimer_ != 0) {
    scheduler_.timerDel(deferTimer_);
  }
}

void RedisConnection::connect(ConnectHandler connected, CloseHandler closed,
                              std::chrono::milliseconds timeout) {
  if (state_ != State::idle) {
    throw std::logic_error("RedisConnection::connect: the connection to " + endpoint_.text() +
                           " was connected before; make a new one");
  }
  connectHandler_ = std::move(connected);
  closeHandler_ = std::move(closed);
  connectTimeout_ = timeout;
  state_ = State::connecting;
  std::string failure = resolve();
  if (failure.empty()) {
    failure = connectNextAddress();
  }
  if (!failure.empty()) {
    // Reported from a later round: no handler runs inside connect().
    closeWith("cannot connect to " + endpoint_.text() + ": " + failure);
    deliverLater();
    return;
  }
  connectTimer_ = scheduler_.timerIs(timeout, [this, alive = alive_] {
    if (*alive) {
      connectTimer_ = 0;
      fail("cannot connect to " + endpoint_.text() + ": no answer within " +
           std::to_string(connectTimeout_.count()) + " ms");
    }
  });
}

std::string RedisConnection::resolve() {
  addresses_.clear();
  nextAddress_ = 0;
  if (endpoint_.isUnix()) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (endpoint_.unixPath.size() >= sizeof address.sun_path) {
      return errnoText(ENAMETOOLONG);
    }
    std::memcpy(address.sun_path, endpoint_.unixPath.data(), endpoint_.unixPath.size());
    addresses_.emplace_back(reinterpret_cast<char const*>(&address), sizeof address);
    return {};
  }
  // Name resolution blocks the scheduler until the resolver answers. The agent is given
  // numeric addresses as a rule, which resolve at once; a name costs one lookup per connect.
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  int const status =
      ::getaddrinfo(endpoint_.host.c_str(), std::to_string(endpoint_.port).c_str(), &hints, &found);
  if (status != 0) {
    return std::string("cannot resolve ") + endpoint_.host + ": " + ::gai_strerror(status);
  }
  for (addrinfo const* a = found; a != nullptr; a = a->ai_next) {
    addresses_.emplace_back(reinterpret_cast<char const*>(a->ai_addr), a->ai_addrlen);
  }
  ::freeaddrinfo(found);
  return addresses_.empty() ? "no address for " + endpoint_.host : std::string{};
}

std::string RedisConnection::connectNextAddress() {
  if (fd_) {
    scheduler_.fdHandlerDel(fd_.get());
    fd_.reset();
    watched_ = 0;
  }
  while (nextAddress_ < addresses_.size()) {
    std::string const& raw = addresses_[nextAddress_++];
    auto const* address = reinterpret_cast<sockaddr const*>(raw.data());
    Orb::UniqueFd fd(::socket(address->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd) {
      lastConnectError_ = errnoText(errno);
      continue;
    }
    if (address->sa_family != AF_UNIX) {
      int const one = 1;
      ::setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    int result;
    do {
      result = ::connect(fd.get(), address, static_cast<socklen_t>(raw.size()));
    } while (result != 0 && errno == EINTR);
    if (result == 0 || errno == EINPROGRESS) {
      // Completion (or an immediate success) is reported by POLLOUT, in a later round.
      fd_ = std::move(fd);
      watch(POLLOUT);
      return {};
    }
    lastConnectError_ = errnoText(errno);
  }
  return lastConnectError_;
}

void RedisConnection::command(std::vector<std::string> const& args, ReplyHandler handler) {
  if (args.empty()) {
    throw std::invalid_argument("RedisConnection::command: no arguments");
  }
  if (args.size() > INT_MAX) {
    throw std::invalid_argument("RedisConnection::command: too many arguments");
  }
  if (state_ == State::closed) {
    if (handler) {
      deferred_.push_back(std::move(handler));
      deliverLater();
    }
    return;
  }
  appendCommand(out_, args);
  waiting_.push_back(Waiting{std::move(handler), 1});
  ++waitingReplies_;
  if (!subscriber_ && startsSubscriberMode(args.front())) {
    subscriber_ = true;
  }
  if (state_ == State::connected) {
    watch(POLLIN | POLLOUT);
  }
}

void RedisConnection::command(std::vector<std::string> const& args) {
  command(args, ReplyHandler{});
}

void RedisConnection::formatted(std::string_view commands, std::size_t replies,
                                ReplyHandler handler) {
  if (replies == 0) {
    throw std::invalid_argument("RedisConnection::formatted: no replies");
  }
  if (state_ == State::closed) {
    if (handler) {
      deferred_.push_back(std::move(handler));
      deliverLater();
    }
    return;
  }
  out_.append(commands);
  waiting_.push_back(Waiting{std::move(handler), replies});
  waitingReplies_ += replies;
  if (state_ == State::connected) {
    watch(POLLIN | POLLOUT);
  }
}

namespace {

template <class Args>
void appendArgs(std::string& out, Args const& args) {
  char number[24];
  auto const appendNumber = [&](char kind, std::size_t n) {
    out += kind;
    auto const end = std::to_chars(number, number + sizeof number, n).ptr;
    out.append(number, end);
    out += "\r\n";
  };
  appendNumber('*', args.size());
  for (auto const& arg : args) {
    appendNumber('$', arg.size());
    out.append(arg.data(), arg.size());
    out += "\r\n";
  }
}

}  // namespace

void appendCommand(std::string& out, std::vector<std::string> const& args) {
  appendArgs(out, args);
}

void appendCommand(std::string& out, std::initializer_list<std::string_view> args) {
  appendArgs(out, args);
}

void RedisConnection::errorHandlerIs(std::function<void(RedisReply const&)> handler) {
  errorHandler_ = handler ? std::make_shared<ErrorHandler const>(std::move(handler)) : nullptr;
}

void RedisConnection::pushHandlerIs(PushHandler handler) {
  pushHandler_ = handler ? std::make_shared<PushHandler const>(std::move(handler)) : nullptr;
}

void RedisConnection::close() {
  release();
  closeReason_ = "connection to " + endpoint_.text() + " closed";
  waiting_.clear();
  waitingReplies_ = 0;
  if (closePending_) {
    // A failure not reported yet: its waiting handlers are dropped like those above.
    deferred_.erase(deferred_.begin(),
                    deferred_.begin() + static_cast<std::ptrdiff_t>(waitedAtClose_));
  }
  waitedAtClose_ = 0;
  closeHandler_ = nullptr;
  closePending_ = false;
}

void RedisConnection::watch(short events) {
  if (events != watched_) {
    scheduler_.fdHandlerIs(fd_.get(), events, [this](short revents) { onEvents(revents); });
    watched_ = events;
  }
}

void RedisConnection::onEvents(short revents) {
  if (state_ == State::connecting) {
    onConnectReady(revents);
    return;
  }
  if ((revents & POLLNVAL) != 0) {
    fail("connection lost: " + endpoint_.text() + ": descriptor closed underneath");
    return;
  }
  auto const alive = alive_;
  // A hang-up or an error shows up as an end of file or a failed read once the replies that
  // came before it are read.
  if ((revents & (POLLIN | POLLHUP | POLLERR)) != 0 && !readAndDispatch(*alive)) {
    return;
  }
  if ((revents & POLLOUT) != 0) {
    flush();
  }
}

void RedisConnection::onConnectReady(short revents) {
  int error = 0;
  socklen_t length = sizeof error;
  if (::getsockopt(fd_.get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
    error = errno;
  } else if (error == 0 && (revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
    error = ECONNABORTED;
  }
  if (error != 0) {
    lastConnectError_ = errnoText(error);
    if (std::string const failure = connectNextAddress(); !failure.empty()) {
      fail("cannot connect to " + endpoint_.text() + ": " + failure);
    }
    return;
  }
  state_ = State::connected;
  if (connectTimer_ != 0) {
    scheduler_.timerDel(connectTimer_);
    connectTimer_ = 0;
  }
  addresses_.clear();
  watch(unsentBytes() != 0 ? POLLIN | POLLOUT : POLLIN);
  auto const alive = alive_;
  if (auto connected = std::move(connectHandler_)) {
    connectHandler_ = nullptr;
    connected();
    if (!*alive || state_ != State::connected) {
      return;
    }
  }
  if (unsentBytes() != 0) {
    flush();
  }
}

bool RedisConnection::readAndDispatch(bool const& alive) {
  if (!readBuffer_) {
    readBuffer_ = std::make_unique<char[]>(kReadChunk);
  }
  for (int chunk = 0; chunk < kReadChunksPerRound; ++chunk) {
    ssize_t const n = ::recv(fd_.get(), readBuffer_.get(), kReadChunk, 0);
    if (n > 0) {
      if (!feed(readBuffer_.get(), static_cast<std::size_t>(n), alive)) {
        return false;
      }
      if (static_cast<std::size_t>(n) < kReadChunk) {
        break;  // the socket is drained; the next recv would say EAGAIN
      }
      continue;
    }
    if (n == 0) {
      fail("connection lost: " + endpoint_.text() + " closed the connection");
      return false;
    }
    if (errno == EINTR) {
      continue;
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      break;
    }
    fail("connection lost: " + endpoint_.text() + ": " + errnoText(errno));
    return false;
  }
  return true;
}

bool RedisConnection::feed(char const* data, std::size_t size, bool const& alive) {
  for (std::size_t offset = 0; offset < size; offset += kFeedSlice) {
    std::size_t const slice = std::min(kFeedSlice, size - offset);
    if (::redisReaderFeed(reader_.get(), data + offset, slice) != REDIS_OK) {
      fail("connection lost: " + endpoint_.text() + ": out of memory reading replies");
      return false;
    }
    for (;;) {
      void* raw = nullptr;
      if (::redisReaderGetReply(reader_.get(), &raw) != REDIS_OK) {
        fail("connection lost: " + endpoint_.text() + ": protocol error: " + reader_->errstr);
        return false;
      }
      if (raw == nullptr) {
        break;
      }
      auto* const hiredisReply = static_cast<redisReply*>(raw);
      RedisReply reply = convert(*hiredisReply);
      ::freeReplyObject(hiredisReply);
      dispatch(std::move(reply));
      if (!alive || state_ != State::connected) {
        return false;
      }
    }
  }
  return true;
}

void RedisConnection::dispatch(RedisReply&& reply) {
  bool message = false;
  if (subscriber_) {
    message = isSubscriberMessage(reply);
    subscriber_ = !endsSubscriberMode(reply);
  }
  if (message || waiting_.empty()) {
    if (auto const push = pushHandler_) {
      (*push)(std::move(reply));
    }
    return;
  }
  auto& front = waiting_.front();
  --waitingReplies_;
  ReplyHandler handler;
  if (--front.replies == 0) {
    handler = std::move(front.handler);
    waiting_.pop_front();
  } else {
    handler = front.handler;  // a copy: the entry stays for its next reply
  }
  if (handler) {
    handler(std::move(reply));
  } else if (reply.isError()) {
    if (auto const onError = errorHandler_) {
      (*onError)(reply);
    }
  }
}

void RedisConnection::flush() {
  while (outSent_ < out_.size()) {
    ssize_t const n =
        ::send(fd_.get(), out_.data() + outSent_, out_.size() - outSent_, MSG_NOSIGNAL);
    if (n >= 0) {
      outSent_ += static_cast<std::size_t>(n);
      continue;
    }
    if (errno == EINTR) {
      continue;
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      break;
    }
    fail("connection lost: " + endpoint_.text() + ": " + errnoText(errno));
    return;
  }
  if (outSent_ == out_.size()) {
    if (out_.capacity() > kOutKeep) {
      std::string().swap(out_);
    } else {
      out_.clear();
    }
    outSent_ = 0;
  } else if (outSent_ >= kOutCompactAt && outSent_ >= out_.size() / 2) {
    out_.erase(0, outSent_);
    outSent_ = 0;
  }
  watch(unsentBytes() != 0 ? POLLIN | POLLOUT : POLLIN);
}

void RedisConnection::release() {
  if (fd_) {
    scheduler_.fdHandlerDel(fd_.get());
    fd_.reset();
  }
  watched_ = 0;
  if (connectTimer_ != 0) {
    scheduler_.timerDel(connectTimer_);
    connectTimer_ = 0;
  }
  state_ = State::closed;
  connectHandler_ = nullptr;
  addresses_.clear();
  out_.clear();
  outSent_ = 0;
}

void RedisConnection::closeWith(std::string why) {
  release();
  closeReason_ = std::move(why);
  for (auto& entry : waiting_) {
    if (entry.handler) {
      deferred_.push_back(std::move(entry.handler));
    }
  }
  waiting_.clear();
  waitingReplies_ = 0;
  waitedAtClose_ = deferred_.size();
  closePending_ = true;
}

void RedisConnection::fail(std::string why) {
  closeWith(std::move(why));
  deliverDeferred();
}

void RedisConnection::deliverLater() {
  if (deferTimer_ == 0) {
    deferTimer_ = scheduler_.timerIs(0ms, [this, alive = alive_] {
      if (*alive) {
        deferTimer_ = 0;
        deliverDeferred();
      }
    });
  }
}

void RedisConnection::deliverDeferred() {
  if (deferTimer_ != 0) {
    scheduler_.timerDel(deferTimer_);
    deferTimer_ = 0;
  }
  auto const alive = alive_;
  // Handlers queued by these handlers are paid in a later round, not in this loop.
  std::deque<ReplyHandler> owed = std::move(deferred_);
  deferred_.clear();
  std::size_t const waitedAtClose = std::exchange(waitedAtClose_, 0);
  std::string const why = closeReason_;
  // The close handler runs after the handlers that waited when the connection closed and
  // before those of commands queued on the closed connection.
  for (std::size_t i = 0; i <= owed.size(); ++i) {
    if (i == std::min(waitedAtClose, owed.size()) && closePending_) {
      closePending_ = false;
      CloseHandler closed = std::move(closeHandler_);
      closeHandler_ = nullptr;
      if (closed) {
        closed(why);
        if (!*alive) {
          return;
        }
      }
    }
    if (i < owed.size()) {
      owed[i](RedisReply::error(why));
      if (!*alive) {
        return;
      }
    }
  }
}

}  // namespace DbLink
