#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <stdexcept>

namespace cadora::service {

/// Accepts connections on a port of the loopback interface and gives each a thread of its own.
class LoopbackListener final {
public:
    /// Serves one accepted connection to its end, on its thread. The listener closes the socket afterwards.
    using ServeConnection = std::function<void(int socket)>;

    /// Takes the port, any free one for 0. Throws std::system_error when it can't be had.
    LoopbackListener(std::uint16_t port, ServeConnection serveConnection);
    ~LoopbackListener();
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    std::uint16_t port() const { return port_; }

    /// Accepts connections until end() is called, and returns when all that it accepted have been served.
    void accept();
    /// Ends accept() from any thread, also when it has not begun yet. Connections go on.
    void end();

private:
    /// Waits until a connection can be accepted. False when accept() shall end.
    bool awaitConnection() const;
    void serve(int socket);

    ServeConnection serveConnection_;
    int socket_ = -1;
    std::uint16_t port_ = 0;
    /// Shutting a listening socket down wakes its accept() on some systems only; a pipe does on all.
    std::array<int, 2> wake_{-1, -1};

    std::mutex mutex_;
    std::condition_variable served_;
    int serving_ = 0;
};

} // namespace cadora::service
