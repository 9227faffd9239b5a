#include "service/ServiceProcess.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>

#include <doctest/doctest.h>

using cadora::test::ServiceProcess;

TEST_CASE("a stand-in starts on a free port and ends with its object") {
    pid_t pid = -1;
    {
        const ServiceProcess first;
        const ServiceProcess second;
        pid = first.pid();
        CHECK(first.port() != second.port());
        CHECK(first.origin().starts_with("http://127.0.0.1:"));
        CHECK(first.requests().empty());
        CHECK(first.posts().empty());
    }
    CHECK(::kill(pid, 0) == -1);
    CHECK(errno == ESRCH);
}

TEST_CASE("a stand-in that was asked to end exits with success") {
    ServiceProcess service;
    CHECK(service.terminate() == 0);
}

TEST_CASE("a stand-in that can't start is reported") {
    ServiceProcess::Options options;
    options.arguments = {"--no-such-option"};
    CHECK_THROWS_AS(ServiceProcess{options}, std::runtime_error);
}

TEST_CASE("a stand-in over HTTPS is reached with its certificate") {
    ServiceProcess::Options options;
    options.transport = cadora::test::ServiceTransport::https;
    const ServiceProcess service(options);
    CHECK(service.origin().starts_with("https://127.0.0.1:"));
    CHECK(service.posts().empty());
}

TEST_CASE("a fault that is not understood is reported to the test that asked for it") {
    ServiceProcess service;
    CHECK_THROWS_AS(service.addFault({{"statsu", 500}}), std::runtime_error);
}
