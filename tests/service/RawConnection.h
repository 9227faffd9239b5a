#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace cadora::test {

/// A TCP connection to a port of the loopback interface, for what no HTTP client sends. Waits are bounded.
/// Throws std::runtime_error when a wait ends without what was waited for.
class RawConnection {
public:
    explicit RawConnection(std::uint16_t port);
    ~RawConnection();
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;

    /// Sends all bytes.
    void send(std::string_view bytes);
    /// Says that nothing more will be sent; answers can still be read.
    void endSending();
    /// Closes the connection at once.
    void close();

    /// Reads until the bytes read so far by this call contain `end`, and gives them.
    std::string readUntil(std::string_view end);

    enum class Ending { closed, reset };
    struct Rest {
        std::string bytes;
        Ending ending = Ending::closed;
    };
    /// Reads until the peer ends the connection.
    Rest readToEnd();

private:
    int socket_;
};

} // namespace cadora::test
