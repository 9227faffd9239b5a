#pragma once

#include "platform/FileManager.h"
#include "platform/URLSession.h"
#include "sharing/SharedWork.h"

#include <filesystem>
#include <optional>

namespace cadora {

// A URL session in which requests that are identical in everything (method, URL, headers and so credentials,
// body, or file, the file by its identity) are sent once while one is under way, and answered together.
//
// What the helper sends bears that: the service's calls are idempotent by the item's identifier, and so is
// putting the same bytes to the same URL.
class SharedURLSession : public URLSession {
public:
    SharedURLSession(URLSession& session, FileManager& files, const std::shared_ptr<Rounds>& rounds);

    CancelAction data(URLRequest request, Completion<Answer> completion) override;
    CancelAction upload(URLRequest request, std::filesystem::path fromFile,
                        Completion<Answer> completion) override;

private:
    struct Transfer {
        URLRequest request;
        // Of an upload alone; its name where it can't be identified.
        std::filesystem::path unidentified;
        std::optional<FileIdentity> file;

        friend bool operator==(const Transfer&, const Transfer&) = default;
    };
    using Transfers = SharedWorks<Transfer, Answer>;

    CancelAction share(const Transfer& transfer, Completion<Answer> completion, Operation<Answer> operation);

    URLSession& session_;
    FileManager& files_;
    Transfers transfers_;
};

} // namespace cadora
