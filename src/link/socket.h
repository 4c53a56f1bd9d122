// The socket the link talks through. It mirrors the socket control the link
// was designed around: properties, a handful of operations, and events that
// arrive later through the host's loop, never from inside an operation.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace camrelay::link {

// Socket states, as numbered by the link's callers.
enum SocketState : int {
  sckClosed = 0,
  sckOpen = 1,         // a bound UDP socket
  sckConnecting = 6,
  sckConnected = 7,
  sckClosing = 8,      // the peer closed; ours is still to close
  sckError = 9,
};

// The socket error numbers the link reacts to.
enum SocketErrorNumber : int {
  sckAddressInUse = 10048,
  sckNetworkUnreachable = 10051,
  sckConnectionAborted = 10053,
  sckConnectionReset = 10054,
  sckNotConnected = 10057,
  sckTimedOut = 10060,
  sckConnectionRefused = 10061,
  sckHostUnreachable = 10065,
  sckInvalidOperation = 40006,  // wrong protocol or state for the request
};

// What an operation throws when it cannot be done (a bind to a port in use, a
// send on a closed TCP socket). Callers report what() through OnDebug.
class SocketError : public std::runtime_error {
 public:
  SocketError(int number, const std::string& description)
      : std::runtime_error(description), number_(number) {}
  int number() const { return number_; }

 private:
  int number_;
};

class Socket {
 public:
  virtual ~Socket() = default;

  // 0 TCP, 1 UDP. Changing it closes the socket.
  virtual void setProtocol(int protocol) = 0;
  virtual int protocol() const = 0;
  virtual void setRemoteHost(const std::string& host) = 0;
  virtual std::string remoteHost() const = 0;
  virtual void setRemotePort(int port) = 0;
  virtual int remotePort() const = 0;
  // The port asked for before bind; after bind or connect, the port in use.
  virtual void setLocalPort(int port) = 0;
  virtual int localPort() const = 0;
  virtual std::string localIP() const = 0;
  // Address and port of the peer that sent the last data.
  virtual std::string peerIP() const = 0;
  // The address the remote host resolved to once sent to or connected;
  // before that, the remote host as given.
  virtual std::string remoteHostIP() const = 0;
  virtual int peerPort() const = 0;
  // UDP: whether the last datagram came from the remote host and port.
  virtual bool fromRemote() const = 0;
  virtual int state() const = 0;

  // UDP: bind to the local port (0 picks one); state becomes sckOpen.
  virtual void bind(int localPort) = 0;
  // TCP: start connecting to the remote host and port; state sckConnecting,
  // then onConnect or onError.
  virtual void connect() = 0;
  virtual void close() = 0;
  // Bytes go out unchanged. TCP needs sckConnected; UDP goes to the remote
  // host and port.
  virtual void sendData(const std::string& data) = 0;
  // TCP: every byte received and not yet read. UDP: the oldest datagram not
  // yet read, whole; empty when none waits.
  virtual std::string getData() = 0;

  std::function<void()> onConnect;
  std::function<void()> onClose;
  std::function<void()> onConnectionRequest;
  std::function<void(long bytesTotal)> onDataArrival;
  std::function<void(int number, const std::string& description)> onError;
  std::function<void()> onSendComplete;
};

}  // namespace camrelay::link
