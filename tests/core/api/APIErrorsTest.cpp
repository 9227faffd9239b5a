#include "api/AuthError.h"
#include "api/UploadError.h"
#include "upload/TranscodeError.h"

#include <doctest/doctest.h>

#include <exception>

using namespace cadora;

TEST_CASE("every error of the program shows as its case and payload") {
    CHECK(AuthError::http(404).text() == "http(404)");
    CHECK(AuthError::notSignedIn().text() == "notSignedIn");
    CHECK(AuthError::refreshRequiresUI().text() == "refreshRequiresUI");
    CHECK(AuthError::refreshFailed().text() == "refreshFailed");
    CHECK(AuthError::badResponse().text() == "badResponse");
    CHECK(AuthError::noAccount().text() == "noAccount");
    CHECK(UploadError::missingURL("audio").text() == R"(missingURL("audio"))");
    CHECK(UploadError::http(-1).text() == "http(-1)");
    CHECK(TranscodeError::exportFailed("no sound").text() == R"(exportFailed("no sound"))");
    CHECK(TranscodeError::exportFailed(std::nullopt).text() == "exportFailed(nil)");
    CHECK(TranscodeError::cannotCreateExport().text() == "cannotCreateExport");
    CHECK(TranscodeError::noDuration().text() == "noDuration");
}

TEST_CASE("errors are equal when case and payload are") {
    CHECK(AuthError::http(404) == AuthError::http(404));
    CHECK_FALSE(AuthError::http(404) == AuthError::http(500));
    CHECK_FALSE(AuthError::notSignedIn() == AuthError::badResponse());
    CHECK(UploadError::missingURL("a") == UploadError::missingURL("a"));
    CHECK_FALSE(UploadError::missingURL("a") == UploadError::http(1));
    CHECK_FALSE(TranscodeError::exportFailed("a") == TranscodeError::exportFailed(std::nullopt));
}

TEST_CASE("of all that can be caught, only the missing account is told apart") {
    CHECK(isNoAccount(std::make_exception_ptr(AuthError::noAccount())));
    CHECK_FALSE(isNoAccount(std::make_exception_ptr(AuthError::badResponse())));
    CHECK_FALSE(isNoAccount(std::make_exception_ptr(CancellationError())));
    CHECK_FALSE(isNoAccount(std::make_exception_ptr(1)));
}
