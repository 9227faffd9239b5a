#include "hosts/linux/network/CurlSockets.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace cadora {

namespace {

int localPort(curl_socket_t socket) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    switch (address.ss_family) {
    case AF_INET:
        return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    case AF_INET6:
        return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    default:
        return 0;
    }
}

} // namespace

void CurlSockets::watch(CURL* easy) {
    curl_easy_setopt(easy, CURLOPT_SOCKOPTFUNCTION, &opened);
    curl_easy_setopt(easy, CURLOPT_SOCKOPTDATA, this);
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &closed);
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
}

std::uint64_t CurlSockets::bytesAcknowledged(CURL* easy) const {
    long port = 0;
    curl_easy_getinfo(easy, CURLINFO_LOCAL_PORT, &port);
    std::uint64_t count = 0;
    for (const curl_socket_t socket : open_) {
        tcp_info info{};
        socklen_t length = sizeof info;
        if (port != 0 && localPort(socket) == port &&
            ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &length) == 0) {
            count += info.tcpi_bytes_acked;
        }
    }
    return count;
}

int CurlSockets::opened(void* sockets, curl_socket_t socket, curlsocktype) {
    static_cast<CurlSockets*>(sockets)->open_.insert(socket);
    return CURL_SOCKOPT_OK;
}

int CurlSockets::closed(void* sockets, curl_socket_t socket) {
    static_cast<CurlSockets*>(sockets)->open_.erase(socket);
    return ::close(socket);
}

} // namespace cadora
