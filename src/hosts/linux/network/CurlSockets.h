#pragma once

#include <cstdint>
#include <curl/curl.h>
#include <set>

namespace cadora {

// The sockets that libcurl has open. It tells no socket's number while a transfer is under way, and a
// connection may have been made for an earlier one. Network thread only; outlives the multi handle.
class CurlSockets {
public:
    // Makes libcurl report the sockets that it opens and closes for this transfer.
    void watch(CURL* easy);

    // How many bytes the peer of the transfer's connection has acknowledged, since the connection was made; 0
    // without one.
    std::uint64_t bytesAcknowledged(CURL* easy) const;

private:
    static int opened(void* sockets, curl_socket_t socket, curlsocktype purpose);
    static int closed(void* sockets, curl_socket_t socket);

    std::set<curl_socket_t> open_;
};

} // namespace cadora
