#pragma once

#include "base/MainActor.h"
#include "hosts/macos/UploadLinks.h"
#include "platform/URLSession.h"

namespace cadora {

// The shared NSURLSession. Answers to these requests, which are POST and PUT, are not cached by it.
//
// It doesn't say when it opens the file of an upload, and may open it again for a redirect. So the upload
// reads a hard link of its own, made within the call, in the user's folder for temporary files; where none
// can be made, because the file is on another volume or is not there, it reads the file itself.
// An upload is redirected with its file or not at all, and a 2xx before all of the file was sent is a
// failure: nothing whole can have been stored.
class NSURLSessionURLSession : public URLSession {
public:
    explicit NSURLSessionURLSession(MainActor& mainActor);

    CancelAction data(URLRequest request, Completion<Answer> completion) override;
    CancelAction upload(URLRequest request, std::filesystem::path fromFile,
                        Completion<Answer> completion) override;

    // Leaves nothing of the uploads under way in the folder for temporary files; their transfers go on.
    void removeTemporaryFiles() noexcept { links_.removeOwn(); }

private:
    MainActor& mainActor_;
    UploadLinks links_;
};

} // namespace cadora
