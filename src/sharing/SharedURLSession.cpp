#include "sharing/SharedURLSession.h"

#include <utility>

namespace cadora {

SharedURLSession::SharedURLSession(URLSession& session, FileManager& files,
                                   const std::shared_ptr<Rounds>& rounds)
    : session_(session), files_(files), transfers_(rounds) {}

CancelAction SharedURLSession::data(URLRequest request, Completion<Answer> completion) {
    const Transfer transfer{request, {}, {}};
    return share(transfer, std::move(completion),
                 [&session = session_, request = std::move(request)](Completion<Answer> ended) {
                     return session.data(request, std::move(ended));
                 });
}

CancelAction SharedURLSession::upload(URLRequest request, std::filesystem::path fromFile,
                                      Completion<Answer> completion) {
    const auto file = files_.identity(fromFile);
    const Transfer transfer{request, file ? std::filesystem::path() : fromFile, file};
    return share(transfer, std::move(completion),
                 [&session = session_, request = std::move(request),
                  fromFile = std::move(fromFile)](Completion<Answer> ended) {
                     return session.upload(request, fromFile, std::move(ended));
                 });
}

CancelAction SharedURLSession::share(const Transfer& transfer, Completion<Answer> completion,
                                     Operation<Answer> operation) {
    const Share<Answer> share =
        transfers_.ask(transfer, std::move(completion), std::move(operation), Transfers::Begin::atOnce);
    return [share] { share.leave(); };
}

} // namespace cadora
