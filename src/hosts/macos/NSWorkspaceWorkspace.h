#pragma once

#include "platform/Workspace.h"

namespace cadora {

class NSWorkspaceWorkspace : public Workspace {
public:
    void openURL(const URL& url) override;
    // The caller is a job of the main actor: the platform wants to be called from a block of a dispatch
    // queue, and calls the handler there too.
    void recycle(const std::filesystem::path& item, std::function<void()> handler) override;
};

} // namespace cadora
