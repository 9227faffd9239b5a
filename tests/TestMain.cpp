#define DOCTEST_CONFIG_IMPLEMENT_WITH_MAIN
#include <doctest/doctest.h>

#include "SkippedTest.h"

#include <iostream>

namespace cadora::test {

namespace {

std::string reasonToSkip;

// A test that has failed before it found out what is missing has failed.
struct SkippedTests : doctest::IReporter {
    explicit SkippedTests(const doctest::ContextOptions&) {}

    void test_case_start(const doctest::TestCaseData&) override { reasonToSkip.clear(); }
    void test_case_end(const doctest::CurrentTestCaseStats& end) override {
        if (!reasonToSkip.empty() && end.failure_flags == 0) {
            std::cout << "skipped: " << reasonToSkip << std::endl;
        }
    }

    void report_query(const doctest::QueryData&) override {}
    void test_run_start() override {}
    void test_run_end(const doctest::TestRunStats&) override {}
    void test_case_reenter(const doctest::TestCaseData&) override {}
    void test_case_exception(const doctest::TestCaseException&) override {}
    void subcase_start(const doctest::SubcaseSignature&) override {}
    void subcase_end() override {}
    void log_assert(const doctest::AssertData&) override {}
    void log_message(const doctest::MessageData&) override {}
    void test_case_skipped(const doctest::TestCaseData&) override {}
};

REGISTER_LISTENER("skipped tests", 1, SkippedTests);

} // namespace

void skipTest(const std::string& reason) {
    reasonToSkip = reason;
}

} // namespace cadora::test
