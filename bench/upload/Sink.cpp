// Swallows uploads on a loopback port, printing its URL, until its standard input ends. Given a file, it
// speaks TLS and writes the certificate to trust there.
#include "linux/network/ScriptedServer.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

int main(int count, char** texts) {
    using cadora::test::ScriptedServer;
    ScriptedServer::Options options;
    if (count == 2) {
        options.certificateFor = "127.0.0.1";
    }
    const ScriptedServer server(
        [](ScriptedServer::Connection& connection) {
            const std::string head = connection.readHead();
            if (!cadora::test::headerField(head, "Expect").empty()) {
                connection.send("HTTP/1.1 100 Continue\r\n\r\n");
            }
            connection.discardBody(
                std::strtoul(cadora::test::headerField(head, "Content-Length").c_str(), nullptr, 10));
            connection.send(cadora::test::httpAnswer(200, "", "Connection: close\r\n"));
        },
        options);
    if (count == 2) {
        std::ofstream(texts[1]) << server.certificate();
    }
    std::printf("%s/upload\n", server.origin().c_str());
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
