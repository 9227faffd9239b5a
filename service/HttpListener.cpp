#include "service/HttpListener.h"

#include <chrono>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

namespace cadora::service {

namespace {

constexpr const char* loopback = "127.0.0.1";
constexpr std::size_t connectionThreads = 48;
constexpr std::chrono::seconds silentPeer(300);

} // namespace

HttpListener::HttpListener(std::chrono::seconds keptAlive, ServeConnection serveConnection, Handler handler)
    : serveConnection_(std::move(serveConnection)) {
    set_pre_routing_handler(
        [handle = std::move(handler)](const httplib::Request& request, httplib::Response& response) {
            handle(request, response);
            return HandlerResponse::Handled;
        });
    // The library's own options would let a second server share a fixed port.
    set_socket_options([](socket_t socket) {
        const int on = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    set_read_timeout(silentPeer);
    set_write_timeout(silentPeer);
    // The library only tells clients of these two; connections are kept by whoever serves them.
    set_keep_alive_timeout(keptAlive.count());
    set_keep_alive_max_count(1000000);
    new_task_queue = [] { return new httplib::ThreadPool(connectionThreads); };
}

int HttpListener::bind(std::uint16_t port) {
    int bound = port;
    if (port == 0) {
        bound = bind_to_any_port(loopback);
    } else if (!bind_to_port(loopback, port)) {
        bound = -1;
    }
    if (bound >= 0) {
        // The library's queue of five holds up a burst of connections by a second.
        ::listen(svr_sock_, SOMAXCONN);
    }
    return bound;
}

void HttpListener::accept() {
    listen_after_bind();
}

void HttpListener::end() {
    // The accepting loop ends by itself when its socket is shut down, at whatever point it is; the
    // library's own stop() only works once the loop runs.
    ::shutdown(svr_sock_, SHUT_RDWR);
}

bool HttpListener::process(httplib::Stream& stream, bool& closedByPeer,
                           const std::function<void(httplib::Request&)>& prepare) {
    return process_request(stream, false, closedByPeer, prepare);
}

bool HttpListener::process_and_close_socket(socket_t socket) {
    serveConnection_(socket);
    ::close(socket);
    return true;
}

} // namespace cadora::service
