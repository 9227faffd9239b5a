#pragma once

#include "platform/Workspace.h"

namespace cadora {

class NSWorkspaceWorkspace : public Workspace {
public:
    void openURL(const URL& url) override;
    void recycle(const std::filesystem::path& item, std::function<void()> handler) override;
};

} // namespace cadora
