#pragma once

#include <cstddef>
#include <exception>
#include <string>

namespace cadora {

// The root of the errors that this program throws. An error is a case with a payload and carries no
// prose of its own; text() is its default textual form, the one that an outbox item or a log line shows.
class Error : public std::exception {
public:
    virtual std::string text() const = 0;

    // For debuggers and test frameworks; the pointer lives as long as the error.
    const char* what() const noexcept final;

private:
    mutable std::string what_;
};

// An error that the platform reported, passed on unchanged: whose it is, its number there, and the
// platform's own sentence, which names what failed and why.
class PlatformError : public Error {
public:
    PlatformError(std::string domain, long long code, std::string message);

    const std::string& domain() const { return domain_; }
    long long code() const { return code_; }
    const std::string& message() const { return message_; }

    std::string text() const override { return message_; }

    friend bool operator==(const PlatformError& a, const PlatformError& b) {
        return a.domain_ == b.domain_ && a.code_ == b.code_ && a.message_ == b.message_;
    }

private:
    std::string domain_;
    long long code_;
    std::string message_;
};

// Thrown out of an awaited step whose task was cancelled. Nothing failed: the work was called off.
class CancellationError : public Error {
public:
    std::string text() const override { return "CancellationError()"; }

    friend bool operator==(const CancellationError&, const CancellationError&) { return true; }
};

// The textual form of a case: its name alone, or followed by its payload in parentheses, a text payload
// inside double quotes.
std::string caseText(const char* name, long long payload);
std::string caseText(const char* name, const std::string& payload);

// In bytes. What a server or a file makes of an error is kept with its item and shown.
inline constexpr std::size_t longestErrorText = 1000;

// The textual form of any error that can be caught, cut off with an ellipsis where it is longer. A null
// pointer is a programming error.
std::string errorText(const std::exception_ptr& error);

} // namespace cadora
