#include "hosts/linux/media/worker/Answer.h"

#include <doctest/doctest.h>

using namespace cadora;

TEST_CASE("a length is answered in seconds that read back exactly") {
    CHECK(lengthAnswer({441, 44100}) == "{\"seconds\":0.01}\n");
    CHECK(lengthAnswer({132300, 44100}) == "{\"seconds\":3}\n");
    const std::string line = lengthAnswer({887424, 44100});
    CHECK(std::stod(line.substr(line.find(':') + 1)) == 887424.0 / 44100);
}

TEST_CASE("a length that isn't a number is answered as null") {
    CHECK(lengthAnswer({0, 0}) == "{\"seconds\":null}\n");
}

TEST_CASE("an export is answered with its seconds, samples and rate") {
    CHECK(exportAnswer({96000, 48000}) == "{\"seconds\":2,\"samples\":96000,\"rate\":48000}\n");
}

TEST_CASE("an error is answered with its code and its sentence, escaped") {
    const ExportError error(ExportFailure::cannotDecode, "a \"quoted\" back\\slash\nnext");
    CHECK(errorAnswer(error) ==
          "{\"error\":{\"code\":5,\"message\":\"a \\\"quoted\\\" back\\\\slash\\u000anext\"}}\n");
}
