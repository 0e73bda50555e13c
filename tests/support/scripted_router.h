// An in-process router for the client's tests: it listens on 127.0.0.1 on an
// ephemeral port and plays a script, on a thread of its own, against the
// connections the client makes. A script reads what the client sends (the
// hello, frames) and answers with any frame or raw bytes, so each test can
// play a well-behaved router or a broken one. Every wait is bounded; a
// script that does not get what it expects stops with a failure that the
// test reads from Finish().
//
// The frames are written here byte by byte rather than with the library's
// framer, so the tests check the client against an independent reading of
// the protocol.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "zqsys/zqmsg.h"

namespace zq::test {

using std::chrono::milliseconds;

// A script step that did not get what it expected.
struct ScriptFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Little-endian bytes of integers, for frame bodies.
inline std::string U32(std::uint32_t value) {
  std::string bytes(4, '\0');
  for (int i = 0; i < 4; ++i)
    bytes[i] = static_cast<char>(value >> (8 * i));
  return bytes;
}
inline std::string U64(std::uint64_t value) {
  std::string bytes(8, '\0');
  for (int i = 0; i < 8; ++i)
    bytes[i] = static_cast<char>(value >> (8 * i));
  return bytes;
}
inline std::uint32_t ReadU32(std::string_view bytes, std::size_t at) {
  if (bytes.size() < at + 4)
    throw ScriptFailure("body too short for a u32 at " + std::to_string(at));
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i)
    value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}
inline std::uint64_t ReadU64(std::string_view bytes, std::size_t at) {
  return ReadU32(bytes, at) | static_cast<std::uint64_t>(ReadU32(bytes, at + 4)) << 32;
}

inline constexpr std::string_view kSignature = ";-))";

// A frame: the 20-byte header (signature, version, body length, type,
// flags) and the body.
inline std::string Frame(std::uint32_t type, std::string_view body, std::uint32_t version = 1,
                         std::uint32_t flags = 0, std::string_view signature = kSignature) {
  std::string bytes(signature);
  bytes += U32(version) + U32(static_cast<std::uint32_t>(body.size())) + U32(type) + U32(flags);
  bytes += body;
  return bytes;
}

struct ReceivedFrame {
  std::uint32_t version = 0, length = 0, type = 0, flags = 0;
  std::string signature, body;
};

// The block of a message, for frame bodies.
inline std::string Block(HZQMSG message) {
  std::uint32_t size = 0;
  if (ZqMsgGetMessageBlockSize(message, &size) != 0) throw ScriptFailure("no block size");
  std::string block(size, '\0');
  if (ZqMsgSaveMessageToBlock(message, block.data(), &size) != 0) throw ScriptFailure("no block");
  block.resize(size);
  return block;
}

// A message rebuilt from a frame body at `offset`; the caller frees it.
inline HZQMSG MessageOf(std::string_view body, std::size_t offset = 0) {
  HZQMSG message = nullptr;
  if (body.size() < offset ||
      ZqMsgCreateMessageFromBlock(body.data() + offset,
                                  static_cast<std::uint32_t>(body.size() - offset), &message,
                                  nullptr) != 0) {
    throw ScriptFailure("body holds no message block");
  }
  return message;
}

// The router status body: category "Zq_System", type 1, and the router's
// fields; `admins` null leaves "Zq_ListAdmins" out.
inline std::string RouterStatusBody(const char* node, std::uint32_t state, std::uint32_t loginId,
                                    const char* admins, const char* category = "Zq_System",
                                    std::uint32_t type = 1) {
  HZQMSG message = nullptr;
  ZqMsgCreateMessage(&message);
  ZqMsgSetFieldStr(message, ZQMSG_FIELD_CATEGORY, category);
  ZqMsgSetFieldUINT32(message, ZQMSG_FIELD_TYPE, type);
  if (admins != nullptr) {
    ZqMsgSetField(message, "Zq_ListAdmins", admins,
                  static_cast<std::uint32_t>(std::strlen(admins)));
  }
  ZqMsgSetFieldUINT32(message, "Zq_RouterState", state);
  ZqMsgSetFieldStr(message, "Zq_RouterName", node);
  ZqMsgSetFieldUINT32(message, "Zq_LoginId", loginId);
  std::string block = Block(message);
  ZqMsgFreeMessage(message);
  return block;
}

// One accepted connection, seen from the router.
class RouterPeer {
 public:
  explicit RouterPeer(int fd) noexcept : fd_(fd) {}
  RouterPeer(RouterPeer&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  RouterPeer& operator=(RouterPeer&&) = delete;
  ~RouterPeer() { Close(); }

  // Reads the hello, "Local", a zero byte, the connection text and a zero
  // byte, and returns the connection text.
  std::string ReadHello(milliseconds timeout = milliseconds(5000)) {
    std::string local = ReadUntilZero(timeout);
    if (local != "Local") throw ScriptFailure("hello starts with '" + local + "'");
    return ReadUntilZero(timeout);
  }

  std::string ReadExact(std::size_t size, milliseconds timeout = milliseconds(5000)) {
    std::string bytes(size, '\0');
    std::size_t got = 0;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (got < size) {
      WaitReadable(deadline);
      const ssize_t n = ::recv(fd_, bytes.data() + got, size - got, 0);
      if (n == 0) throw ScriptFailure("client closed after " + std::to_string(got) + " bytes");
      if (n < 0) {
        if (errno == EINTR || errno == EAGAIN) continue;
        throw ScriptFailure(std::string("recv: ") + std::strerror(errno));
      }
      got += static_cast<std::size_t>(n);
    }
    return bytes;
  }

  ReceivedFrame ReadFrame(milliseconds timeout = milliseconds(5000)) {
    const std::string header = ReadExact(20, timeout);
    ReceivedFrame frame;
    frame.signature = header.substr(0, 4);
    frame.version = ReadU32(header, 4);
    frame.length = ReadU32(header, 8);
    frame.type = ReadU32(header, 12);
    frame.flags = ReadU32(header, 16);
    if (frame.signature != kSignature) throw ScriptFailure("frame with a bad signature");
    frame.body = ReadExact(frame.length, timeout);
    return frame;
  }

  // The next frame that is not a keep-alive ping.
  ReceivedFrame ReadFrameSkippingPings(milliseconds timeout = milliseconds(5000)) {
    for (;;) {
      ReceivedFrame frame = ReadFrame(timeout);
      if (frame.type != 0x1005) return frame;
    }
  }

  // Reads a frame and checks its type.
  ReceivedFrame Expect(std::uint32_t type, milliseconds timeout = milliseconds(5000)) {
    ReceivedFrame frame = ReadFrameSkippingPings(timeout);
    if (frame.type != type) {
      throw ScriptFailure("expected type " + Hex(type) + ", got " + Hex(frame.type));
    }
    return frame;
  }

  void Send(std::string_view bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (n < 0) {
        if (errno == EINTR) continue;
        throw ScriptFailure(std::string("send: ") + std::strerror(errno));
      }
      sent += static_cast<std::size_t>(n);
    }
  }
  void SendFrame(std::uint32_t type, std::string_view body) { Send(Frame(type, body)); }
  // The answer to a hello: a u32 result code.
  void SendAnswer(std::uint32_t code) { Send(U32(code)); }
  // An operation result: the operation number, the result code, then `extra`.
  void SendResult(std::uint32_t type, std::uint32_t operation, std::uint32_t code,
                  std::string_view extra = {}) {
    SendFrame(type, U32(operation) + U32(code) + std::string(extra));
  }
  void SendStatus(const char* node, std::uint32_t state = 0, std::uint32_t loginId = 0,
                  const char* admins = "") {
    SendFrame(0x5002, RouterStatusBody(node, state, loginId, admins));
  }
  // The usual start: the hello read, answer 0, a router status. Returns the
  // connection text.
  std::string Welcome(const char* node = "node1", std::uint32_t state = 0,
                      std::uint32_t loginId = 0, const char* admins = "") {
    std::string text = ReadHello();
    SendAnswer(0);
    SendStatus(node, state, loginId, admins);
    return text;
  }

  // True when the client closes its end within the timeout (any bytes that
  // come first are dropped).
  bool WaitClosed(milliseconds timeout = milliseconds(5000)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    char sink[512];
    for (;;) {
      if (!Readable(deadline)) return false;
      const ssize_t n = ::recv(fd_, sink, sizeof sink, 0);
      if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) return true;
    }
  }

  void Close() noexcept {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  int Fd() const noexcept { return fd_; }

 private:
  static std::string Hex(std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", value);
    return text;
  }

  bool Readable(std::chrono::steady_clock::time_point deadline) {
    for (;;) {
      const auto left =
          std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
      pollfd entry{fd_, POLLIN, 0};
      const int n = ::poll(&entry, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
      if (n > 0) return true;
      if (n == 0) return false;
      if (errno != EINTR) throw ScriptFailure(std::string("poll: ") + std::strerror(errno));
    }
  }
  void WaitReadable(std::chrono::steady_clock::time_point deadline) {
    if (!Readable(deadline)) throw ScriptFailure("nothing came from the client in time");
  }

  std::string ReadUntilZero(milliseconds timeout) {
    std::string text;
    for (;;) {
      const std::string byte = ReadExact(1, timeout);
      if (byte[0] == '\0') return text;
      text += byte;
      if (text.size() > 1024) throw ScriptFailure("hello longer than 1024 bytes");
    }
  }

  int fd_;
};

// A listening TCP socket on 127.0.0.1 with a port of the system's choosing,
// written to `port`; throws when the system refuses.
inline int ListenOnLoopback(std::uint16_t& port, int backlog = 16) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      ::listen(fd, backlog) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    const std::string failure = std::string("listen on 127.0.0.1: ") + std::strerror(errno);
    if (fd >= 0) ::close(fd);
    throw std::runtime_error(failure);
  }
  port = ntohs(address.sin_port);
  return fd;
}

class ScriptedRouter {
 public:
  ScriptedRouter() : listener_(ListenOnLoopback(port_)) {}
  ScriptedRouter(const ScriptedRouter&) = delete;
  ScriptedRouter& operator=(const ScriptedRouter&) = delete;
  ~ScriptedRouter() {
    Finish();
    if (listener_ >= 0) ::close(listener_);
  }

  std::uint16_t Port() const noexcept { return port_; }
  // A connection string for this router.
  std::string ConnectionString(std::string_view app = "app1") const {
    return "APPNAME=" + std::string(app) + ";PORT=" + std::to_string(port_);
  }

  // Plays `script` on the router's thread.
  void Run(std::function<void(ScriptedRouter&)> script) {
    thread_ = std::thread([this, script = std::move(script)] {
      try {
        script(*this);
      } catch (const std::exception& failure) {
        const std::lock_guard<std::mutex> hold(lock_);
        failure_ = failure.what();
      }
    });
  }

  // Waits for the script to end and returns its failure, empty when it ran
  // to its end.
  std::string Finish() {
    if (thread_.joinable()) thread_.join();
    const std::lock_guard<std::mutex> hold(lock_);
    return failure_;
  }

  RouterPeer Accept(milliseconds timeout = milliseconds(5000)) {
    pollfd entry{listener_, POLLIN, 0};
    int n;
    do {
      n = ::poll(&entry, 1, static_cast<int>(timeout.count()));
    } while (n < 0 && errno == EINTR);
    if (n <= 0) throw ScriptFailure("no client connected in time");
    const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) throw ScriptFailure(std::string("accept: ") + std::strerror(errno));
    return RouterPeer(fd);
  }

 private:
  std::uint16_t port_ = 0;  // before the listener, which writes it
  int listener_ = -1;
  std::thread thread_;
  std::mutex lock_;
  std::string failure_;
};

}  // namespace zq::test
