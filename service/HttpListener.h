#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include <httplib.h>

namespace cadora::service {

/// The library's server with its connections laid open: it accepts, parses requests and writes answers,
/// but what reads and writes the bytes of a connection is the caller's.
class HttpListener final : private httplib::Server {
public:
    /// Serves one accepted connection to its end, on a thread of the listener. The listener closes the
    /// socket afterwards.
    using ServeConnection = std::function<void(int socket)>;
    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    /// `handler` answers every request. `keptAlive` is how long an idle connection is served, which
    /// clients are told.
    HttpListener(std::chrono::seconds keptAlive, ServeConnection serveConnection, Handler handler);

    /// Takes a port of the loopback interface, any free one for 0. Gives -1 when it can't be had.
    int bind(std::uint16_t port);

    /// Accepts connections until end() is called.
    void accept();
    /// Ends accept(), also when it has not begun yet. Connections go on.
    void end();

    /// Reads one request from the stream, has it handled and writes the answer. `prepare` sees the request
    /// when its head was read. False when the stream can't be used for another.
    bool process(httplib::Stream& stream, bool& closedByPeer,
                 const std::function<void(httplib::Request&)>& prepare);

private:
    bool process_and_close_socket(socket_t socket) override;

    ServeConnection serveConnection_;
};

} // namespace cadora::service
