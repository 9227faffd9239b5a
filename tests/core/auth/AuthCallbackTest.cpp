#include "auth/AuthCallback.h"

#include <doctest/doctest.h>

using namespace cadora;
using Outcome = AuthCallback::Outcome;
using Success = AuthCallback::Success;

namespace {

Outcome parse(const std::string& query) {
    return AuthCallback::parse(URL::constant("cadora://auth?" + query));
}

const Outcome noAccount = AuthCallback::NoAccount();
const Outcome failed = AuthCallback::Failure();

Outcome success(std::optional<std::string> email) {
    return Success{"t", "u", std::move(email)};
}

} // namespace

TEST_CASE("a callback that reports no account says so, even beside a token") {
    CHECK(parse("error=no_account&token=t&user_id=u") == noAccount);
    CHECK(parse("token=t&user_id=u&error=no_account") == noAccount);
}

TEST_CASE("a callback with any other error is a failure, even beside a token") {
    CHECK(parse("error=denied") == failed);
    CHECK(parse("error=NO_ACCOUNT") == failed);
    CHECK(parse("token=t&user_id=u&error=denied") == failed);
}

TEST_CASE("an error without a value is none") {
    CHECK(parse("error=&token=t&user_id=u") == success(std::nullopt));
    CHECK(parse("error&token=t&user_id=u") == success(std::nullopt));
    CHECK(parse("error=") == failed);
}

TEST_CASE("a callback without a user id is a failure") {
    CHECK(parse("token=t") == failed);
    CHECK(parse("token=t&user_id=") == failed);
}

TEST_CASE("a callback without a token is a failure") {
    CHECK(parse("token=&user_id=u") == failed);
    CHECK(parse("token&user_id=u") == failed);
    CHECK(parse("user_id=u") == failed);
}

TEST_CASE("a callback may carry an e-mail address or not") {
    CHECK(parse("token=t&user_id=u") == success(std::nullopt));
    CHECK(parse("token=t&user_id=u&email=") == success(std::nullopt));
    CHECK(parse("token=t&user_id=u&email=zo%C3%AB%2Bx%40mail.example") == success("zoë+x@mail.example"));
}

TEST_CASE("only the first item of a name counts, even when it is empty") {
    CHECK(parse("token=&token=t&user_id=u") == failed);
    CHECK(parse("token=t&token=x&user_id=u&user_id=y") == success(std::nullopt));
    CHECK(parse("error=&error=no_account&token=t&user_id=u") == success(std::nullopt));
}

TEST_CASE("names are compared exactly") {
    CHECK(parse("Token=t&user_id=u") == failed);
    CHECK(parse("token=t&user%5Fid=u") == success(std::nullopt));
}

TEST_CASE("a value that is not text is none") {
    CHECK(parse("token=%FF&user_id=u") == failed);
    CHECK(parse("token=t&user_id=u&email=%FF") == success(std::nullopt));
}

TEST_CASE("a callback without a query is a failure") {
    CHECK(AuthCallback::parse(URL::constant("cadora://auth")) == failed);
    CHECK(AuthCallback::parse(URL::constant("cadora:token=t")) == failed);
    CHECK(AuthCallback::parse(URL::constant("cadora://auth#token=t&user_id=u")) == failed);
}

TEST_CASE("control characters in what would be stored make the callback a failure") {
    for (const std::string control :
         {"%00", "%0A", "%0D%0AX-Evil:%20y", "%09", "%1F", "%7F", "%C2%80", "%C2%9F"}) {
        CAPTURE(control);
        CHECK(parse("token=t" + control + "&user_id=u") == failed);
        CHECK(parse("token=t&user_id=" + control + "u") == failed);
        CHECK(parse("token=t&user_id=u&email=e" + control + "x") == failed);
    }
    CHECK(parse("token=t&user_id=u&email=%20~%C2%A0") == success(" ~\xC2\xA0"));
}

TEST_CASE("a token, user id or e-mail of absurd length makes the callback a failure") {
    const auto text = [](std::size_t length) { return std::string(length, 'x'); };
    CHECK(parse("token=" + text(8000) + "&user_id=" + text(255) + "&email=" + text(254)) ==
          Outcome(Success{text(8000), text(255), text(254)}));
    CHECK(parse("token=" + text(8001) + "&user_id=u") == failed);
    CHECK(parse("token=t&user_id=" + text(256)) == failed);
    CHECK(parse("token=t&user_id=u&email=" + text(255)) == failed);
}
