#pragma once

#include "platform/BackgroundExecutor.h"
#include "platform/Workspace.h"

namespace cadora {

// The desktop's default programs and its Trash, through GIO.
class GioWorkspace : public Workspace {
public:
    // The executor must outlive the workspace.
    explicit GioWorkspace(BackgroundExecutor& background) : background_(background) {}

    void openURL(const URL& url) override;

    // The handler is called on a thread of the executor.
    void recycle(const std::filesystem::path& item, std::function<void()> handler) override;

private:
    BackgroundExecutor& background_;
};

} // namespace cadora
