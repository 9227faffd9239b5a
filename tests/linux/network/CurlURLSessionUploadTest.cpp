#include "fakes/TemporaryDirectory.h"
#include "linux/network/ScriptedServer.h"
#include "linux/network/URLSessionFixture.h"

#include <doctest/doctest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

namespace cadora::test {

namespace {

using Connection = ScriptedServer::Connection;
using namespace std::chrono_literals;

constexpr std::size_t mebibyte = std::size_t{1024} * 1024;

// Content in which no two places look alike.
std::string content(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 1;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return bytes;
}

std::size_t announcedLength(const std::string& head) {
    return std::strtoul(headerField(head, "Content-Length").c_str(), nullptr, 10);
}

void sayContinue(Connection& connection, const std::string& head) {
    if (!headerField(head, "Expect").empty()) {
        connection.send("HTTP/1.1 100 Continue\r\n\r\n");
    }
}

// The greatest amount of memory that the program has held since the last reset, in bytes.
std::size_t peakMemory() {
    const std::string status = readFile("/proc/self/status");
    return std::strtoul(status.c_str() + status.find("VmHWM:") + 6, nullptr, 10) * 1024;
}

void resetPeakMemory() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

struct UploadFixture : URLSessionFixture {
    TemporaryDirectory folder;
    std::filesystem::path recording = folder.file("recording.m4a", content(5 * mebibyte + 1));

    static URLRequest put(const ScriptedServer& server, std::chrono::seconds interval = 60s) {
        URLRequest request = URLSessionFixture::request(server.origin() + secretPath, "PUT");
        request.headers.setValue("audio/mp4", "Content-Type");
        request.timeoutInterval = interval;
        return request;
    }
};

} // namespace

TEST_CASE("a file goes up whole, with its length and never in chunks") {
    std::string received;
    ScriptedServer server([&](Connection& connection) {
        const std::string head = connection.readHead();
        sayContinue(connection, head);
        received = connection.readBody(announcedLength(head));
        connection.send(httpAnswer(201, "stored"));
    });
    UploadFixture fixture;
    const RequestOutcome outcome = fixture.upload(fixture.put(server), fixture.recording);
    CHECK(outcome.status() == 201);
    CHECK((received == readFile(fixture.recording)));
    const std::string head = server.heads().at(0);
    CHECK(head.rfind("PUT " + secretPath + " HTTP/1.1\r\n", 0) == 0);
    CHECK(headerField(head, "Content-Length") == std::to_string(5 * mebibyte + 1));
    CHECK(headerField(head, "Transfer-Encoding").empty());
    CHECK(headerField(head, "Content-Type") == "audio/mp4");
    CHECK(headerField(head, "Expect") == "100-continue");
}

TEST_CASE("an empty file and a file of one byte go up with their length") {
    for (const std::size_t size : {0U, 1U}) {
        ScriptedServer server([&](Connection& connection) {
            const std::string head = connection.readHead();
            CHECK(headerField(head, "Content-Length") == std::to_string(size));
            CHECK(headerField(head, "Transfer-Encoding").empty());
            CHECK(connection.readBody(size) == content(size));
            connection.send(httpAnswer(200));
        });
        UploadFixture fixture;
        CHECK(fixture.upload(fixture.put(server), fixture.folder.file("small", content(size))).status() ==
              200);
    }
}

TEST_CASE("a server that ignores the offer to wait for its word gets the body all the same") {
    ScriptedServer server([&](Connection& connection) {
        connection.readBody(announcedLength(connection.readHead()));
        connection.send(httpAnswer(200));
    });
    UploadFixture fixture;
    CHECK(fixture.upload(fixture.put(server), fixture.recording).status() == 200);
}

TEST_CASE("a server that refuses at once gets no body") {
    std::size_t body = 0;
    ScriptedServer server([&](Connection& connection) {
        connection.readHead();
        connection.send(httpAnswer(403, "no", "Connection: close\r\n"));
        body = connection.drain();
    });
    UploadFixture fixture;
    const RequestOutcome outcome = fixture.upload(fixture.put(server), fixture.recording);
    CHECK(outcome.status() == 403);
    CHECK(fixture.actor.runUntil([&] { return server.endedCount() == 1; }));
    CHECK(body == 0);
}

TEST_CASE("a server that doesn't know the offer is asked again without it") {
    ScriptedServer server([&](Connection& connection) {
        for (;;) {
            const std::string head = connection.readHead();
            if (!headerField(head, "Expect").empty()) {
                connection.send(httpAnswer(417));
            } else {
                connection.readBody(announcedLength(head));
                connection.send(httpAnswer(200));
            }
        }
    });
    UploadFixture fixture;
    CHECK(fixture.upload(fixture.put(server), fixture.recording).status() == 200);
    CHECK(server.heads().size() == 2);
}

TEST_CASE("a refusal in the middle of the body is the answer") {
    ScriptedServer server([&](Connection& connection) {
        sayContinue(connection, connection.readHead());
        connection.readBody(1000);
        connection.send(httpAnswer(507, "full", "Connection: close\r\n"));
        connection.drain();
    });
    UploadFixture fixture;
    CHECK(fixture.upload(fixture.put(server), fixture.recording).status() == 507);
}

TEST_CASE("a file that can't be opened fails after the call, by its name and the reason") {
    ScriptedServer server([](Connection& connection) { connection.drain(); });
    UploadFixture fixture;

    const RequestOutcome missing = fixture.upload(fixture.put(server), fixture.folder.path() / "none.m4a");
    CHECK(missing.failure() == "“none.m4a” couldn’t be opened: No such file or directory");
    CHECK(missing.domain() == "POSIX");
    CHECK(missing.code() == ENOENT);

    CHECK(fixture.upload(fixture.put(server), fixture.recording / "in a file").failure() ==
          "“in a file” couldn’t be opened: Not a directory");
    CHECK(fixture.upload(fixture.put(server), fixture.folder.path() / "bad\xFFname").failure() ==
          "“bad\uFFFDname” couldn’t be opened: No such file or directory");

    if (::geteuid() != 0) {
        ::chmod(fixture.recording.c_str(), 0);
        CHECK(fixture.upload(fixture.put(server), fixture.recording).failure() ==
              "“recording.m4a” couldn’t be opened: Permission denied");
    }
    CHECK(server.connectionCount() == 0);
}

TEST_CASE("only regular files go up, and a pipe that nobody writes to holds nobody up") {
    ScriptedServer server([](Connection& connection) { connection.drain(); });
    UploadFixture fixture;
    const auto pipe = fixture.folder.path() / "pipe";
    REQUIRE(::mkfifo(pipe.c_str(), 0600) == 0);
    CHECK(fixture.upload(fixture.put(server), pipe).failure() ==
          "“pipe” couldn’t be uploaded: it is not a regular file");
    std::filesystem::create_directory(fixture.folder.path() / "folder");
    CHECK(fixture.upload(fixture.put(server), fixture.folder.path() / "folder").failure() ==
          "“folder” couldn’t be uploaded: it is not a regular file");
    CHECK(server.connectionCount() == 0);
}

TEST_CASE("an upload keeps the file that it opened, whatever is renamed or deleted meanwhile") {
    std::string received;
    ScriptedServer server([&](Connection& connection) {
        const std::string head = connection.readHead();
        sayContinue(connection, head);
        received = connection.readBody(announcedLength(head));
        connection.send(httpAnswer(200));
    });
    UploadFixture fixture;
    const std::string before = readFile(fixture.recording);
    const auto outcome = std::make_shared<RequestOutcome>();
    fixture.session->upload(fixture.put(server), fixture.recording, URLSessionFixture::into(outcome));
    std::filesystem::remove(fixture.recording);
    fixture.folder.file("recording.m4a", "another");
    CHECK(fixture.ended(outcome).status() == 200);
    CHECK((received == before));
}

TEST_CASE("a file whose size changes while it goes up is a failure, and the server never has all of it") {
    for (const std::size_t newSize : {std::size_t{0}, 3 * mebibyte, 5 * mebibyte, 5 * mebibyte + 2}) {
        CAPTURE(newSize);
        UploadFixture fixture;
        std::size_t received = 0;
        ScriptedServer server([&](Connection& connection) {
            const std::string head = connection.readHead();
            // The body waits for the word, so nothing of the file has been read.
            std::filesystem::resize_file(fixture.recording, newSize);
            sayContinue(connection, head);
            received = connection.drain();
        });
        const RequestOutcome outcome = fixture.upload(fixture.put(server), fixture.recording);
        CHECK(outcome.failure() ==
              "“recording.m4a” couldn’t be uploaded: its size changed while it was being sent");
        CHECK(fixture.actor.runUntil([&] { return server.endedCount() == 1; }));
        CHECK(received < 5 * mebibyte + 1);
    }
}

TEST_CASE("a connection lost while uploading is a failure that names the file") {
    UploadFixture fixture;
    ScriptedServer server([&](Connection& connection) {
        sayContinue(connection, connection.readHead());
        connection.readBody(1000);
        connection.reset();
    });
    const std::string text = fixture.upload(fixture.put(server), fixture.recording).failure();
    CHECK(text.rfind("The connection to " + server.authority() + " was lost while uploading “recording.m4a”",
                     0) == 0);

    ScriptedServer silent([&](Connection& connection) {
        const std::string head = connection.readHead();
        sayContinue(connection, head);
        connection.readBody(announcedLength(head));
    });
    CHECK(fixture.upload(fixture.put(silent), fixture.recording).failure() ==
          "The connection to " + silent.authority() +
              " was lost while uploading “recording.m4a”: it was closed without an answer");
}

TEST_CASE("a server that stops reading, or never answers, is a time-out") {
    for (const bool readsAll : {false, true}) {
        CAPTURE(readsAll);
        std::atomic<bool> done = false;
        ScriptedServer server(
            [&](Connection& connection) {
                const std::string head = connection.readHead();
                sayContinue(connection, head);
                if (readsAll) {
                    connection.drain();
                }
                while (!done) {
                    std::this_thread::sleep_for(5ms);
                }
            },
            {4096, {}});
        UploadFixture fixture;
        const auto large = fixture.folder.path() / "large.m4a";
        std::ofstream(large).put('x');
        std::filesystem::resize_file(large, 64 * mebibyte);
        const auto outcome = fixture.upload(fixture.put(server, 1s), readsAll ? fixture.recording : large);
        done = true;
        CHECK(outcome.failure() ==
              "The connection to " + server.authority() + " timed out while uploading “" +
                  (readsAll ? "recording.m4a" : "large.m4a") + "”: no progress for 1 second");
    }
}

TEST_CASE("a slow line that takes long over what the kernel holds already is no time-out") {
    // All of the file fits into the sender's socket, so that for seconds no byte moves that libcurl sees.
    const std::size_t size = mebibyte / 4;
    ScriptedServer server(
        [&](Connection& connection) {
            connection.readHead();
            const std::size_t portion = size / 16;
            for (std::size_t rest = size; rest != 0; rest -= portion) {
                std::this_thread::sleep_for(250ms);
                connection.readBody(portion);
            }
            connection.send(httpAnswer(200));
        },
        {4096, {}});
    UploadFixture fixture;
    const auto file = fixture.folder.file("recording.m4a", content(size));
    CHECK(fixture.upload(fixture.put(server, 2s), file).status() == 200);
}

TEST_CASE("a redirect that repeats the request sends the file again from its beginning") {
    for (const int status : {301, 302, 307, 308}) {
        for (const bool takesBodyFirst : {false, true}) {
            CAPTURE(status);
            CAPTURE(takesBodyFirst);
            std::string received;
            ScriptedServer target([&](Connection& connection) {
                const std::string head = connection.readHead();
                sayContinue(connection, head);
                received = connection.readBody(announcedLength(head));
                connection.send(httpAnswer(200, "moved here"));
            });
            ScriptedServer server([&](Connection& connection) {
                const std::string head = connection.readHead();
                if (takesBodyFirst) {
                    sayContinue(connection, head);
                    connection.readBody(announcedLength(head));
                }
                connection.send(httpAnswer(status, "", "Location: " + target.origin() + "/\r\n"));
                connection.drain();
            });
            UploadFixture fixture;
            CHECK(fixture.upload(fixture.put(server), fixture.recording).data() == "moved here");
            CHECK((received == readFile(fixture.recording)));
            const std::string head = target.heads().at(0);
            CHECK(head.rfind("PUT / HTTP/1.1\r\n", 0) == 0);
            CHECK(headerField(head, "Content-Length") == std::to_string(5 * mebibyte + 1));
            CHECK(headerField(head, "Content-Type") == "audio/mp4");
            CHECK(headerField(head, "Authorization").empty());
        }
    }
}

TEST_CASE("an upload that is told to see other is not followed, so that nobody takes it for stored") {
    ScriptedServer server([&](Connection& connection) {
        const std::string head = connection.readHead();
        sayContinue(connection, head);
        connection.readBody(announcedLength(head));
        connection.send(httpAnswer(303, "", "Location: /result\r\n"));
        connection.readHead();
        connection.send(httpAnswer(200));
    });
    UploadFixture fixture;
    CHECK(fixture.upload(fixture.put(server), fixture.recording).status() == 303);
    CHECK(server.heads().size() == 1);
}

TEST_CASE("a success that is claimed before the file was sent whole is a failure") {
    struct Case {
        const char* name;
        std::size_t bytesTaken;
        bool goesOnReading;
    };
    for (const auto& [name, bytesTaken, goesOnReading] :
         {Case{"instead of the word to go on", 0, false},
          Case{"instead of the word, then reading on", 0, true}, Case{"within the body", 1000, false},
          Case{"within the body, then reading on", 1000, true}}) {
        for (const char* connectionField : {"", "Connection: close\r\n"}) {
            CAPTURE(std::string(name));
            CAPTURE(std::string(connectionField));
            ScriptedServer server(
                [&, bytesTaken = bytesTaken, goesOnReading = goesOnReading](Connection& connection) {
                    const std::string head = connection.readHead();
                    if (bytesTaken != 0) {
                        sayContinue(connection, head);
                        connection.readBody(bytesTaken);
                    }
                    connection.send(httpAnswer(200, "stored", connectionField));
                    if (goesOnReading) {
                        connection.drain();
                    }
                },
                {4096, {}});
            UploadFixture fixture;
            // More than the two sockets hold, so that the answer comes before the end of the body.
            std::filesystem::resize_file(fixture.recording, 64 * mebibyte);
            const RequestOutcome outcome = fixture.upload(fixture.put(server), fixture.recording);
            CHECK(outcome.failure() ==
                  server.authority() + " answered before “recording.m4a” had been sent whole");
            CHECK(outcome.domain() == "URLSession");
        }
    }
}

TEST_CASE("an answer that is not HTTP has no status, also to an upload and behind an interim answer") {
    for (const char* bytes :
         {"SSH-2.0-OpenSSH_9.2\r\n", "hidden\r\n\r\nHTTP/1.1 200 OK\r\n\r\n", "HTTX/1.1 200 OK\r\n\r\n",
          "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\nhidden\r\n", "HTTP/1.1 twenty OK\r\n\r\n"}) {
        CAPTURE(std::string(bytes));
        ScriptedServer server([&](Connection& connection) {
            const std::string head = connection.readHead();
            sayContinue(connection, head);
            connection.readBody(announcedLength(head));
            connection.send(bytes);
        });
        UploadFixture fixture;
        const RequestOutcome outcome = fixture.upload(fixture.put(server), fixture.recording);
        REQUIRE(outcome.answer);
        CHECK(!outcome.answer->response.statusCode);
        CHECK(outcome.answer->data.empty());
    }
}

TEST_CASE("an upload whose answer never ends is given up, however slowly its bytes come") {
    for (const auto& [beginning, drop] :
         {std::pair{"HTTP/1.1 200 OK\r\n", "X-Field: x\r\n"}, std::pair{"HTTP/1.1 200 OK\r\n\r\n", "x"}}) {
        ScriptedServer server([beginning = beginning, drop = drop](Connection& connection) {
            const std::string head = connection.readHead();
            sayContinue(connection, head);
            connection.readBody(announcedLength(head));
            connection.send(beginning);
            for (;;) {
                connection.send(drop);
                std::this_thread::sleep_for(50ms);
            }
        });
        UploadFixture fixture;
        fixture.session =
            std::make_unique<CurlURLSession>(fixture.actor, CurlURLSession::Configuration{1000, {}, 20s, 2s});
        CHECK(fixture.upload(fixture.put(server, 1s), fixture.recording).failure() ==
              "The answer of " + server.authority() + " was not complete after 2 seconds");
    }
}

TEST_CASE("the time that an upload's body takes doesn't count as its answer's") {
    const std::size_t size = mebibyte / 4;
    ScriptedServer server(
        [&](Connection& connection) {
            connection.readHead();
            const std::size_t portion = size / 16;
            for (std::size_t rest = size; rest != 0; rest -= portion) {
                std::this_thread::sleep_for(250ms);
                connection.readBody(portion);
            }
            connection.send(httpAnswer(200));
        },
        {4096, {}});
    UploadFixture fixture;
    fixture.session =
        std::make_unique<CurlURLSession>(fixture.actor, CurlURLSession::Configuration{1000, {}, 20s, 2s});
    const auto file = fixture.folder.file("recording.m4a", content(size));
    CHECK(fixture.upload(fixture.put(server, 5s), file).status() == 200);
}

TEST_CASE("an upload's answer is read to its end, however long, and what is too much of it dropped") {
    const std::string tooMuch(5 * mebibyte, 'x');
    for (const std::string& answer : {httpAnswer(200, tooMuch), "HTTP/1.1 200 OK\r\n\r\n" + tooMuch}) {
        ScriptedServer server([&](Connection& connection) {
            const std::string head = connection.readHead();
            sayContinue(connection, head);
            connection.readBody(announcedLength(head));
            connection.send(answer);
        });
        UploadFixture fixture;
        const RequestOutcome outcome = fixture.upload(fixture.put(server), fixture.recording);
        CHECK(outcome.status() == 200);
        CHECK(outcome.data().size() <= 4 * mebibyte);
    }
}

TEST_CASE("cancelling an upload closes the connection in the middle of the body") {
    std::atomic<bool> arrived = false;
    ScriptedServer server(
        [&](Connection& connection) {
            sayContinue(connection, connection.readHead());
            connection.readBody(1000);
            arrived = true;
            connection.drain();
        },
        {4096, {}});
    UploadFixture fixture;
    const auto outcome = std::make_shared<RequestOutcome>();
    const CancelAction cancel =
        fixture.session->upload(fixture.put(server), fixture.recording, URLSessionFixture::into(outcome));
    REQUIRE(fixture.actor.runUntil([&] { return arrived.load(); }));
    cancel();
    CHECK(fixture.actor.runUntil([&] { return server.endedCount() == 1; }));
    CHECK(outcome->calls == 0);
}

TEST_CASE("memory doesn't grow with the size of the file") {
    std::size_t received = 0;
    ScriptedServer server([&](Connection& connection) {
        for (;;) {
            const std::string head = connection.readHead();
            sayContinue(connection, head);
            received = announcedLength(head);
            connection.discardBody(received);
            connection.send(httpAnswer(200));
        }
    });
    UploadFixture fixture;
    const auto peakOfUpload = [&](std::size_t size) {
        const auto file = fixture.folder.file("large.m4a", "x");
        std::filesystem::resize_file(file, size);
        resetPeakMemory();
        CHECK(fixture.upload(fixture.put(server), file).status() == 200);
        CHECK(received == size);
        return peakMemory();
    };
    const std::size_t small = peakOfUpload(32 * mebibyte);
    const std::size_t large = peakOfUpload(768 * mebibyte);
    CHECK(large < small + 16 * mebibyte);
}

} // namespace cadora::test
