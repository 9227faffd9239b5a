#pragma once

#include "base/URL.h"

#include <filesystem>
#include <functional>

namespace cadora {

// What the desktop does for its programs. Main actor only.
class Workspace {
public:
    virtual ~Workspace() = default;

    // Opens the URL in the program that the user chose for it; nothing happens where that fails.
    virtual void openURL(const URL& url) = 0;

    // Moves the item to the Trash. The handler is called once, on any thread, whether or not that succeeded.
    virtual void recycle(const std::filesystem::path& item, std::function<void()> handler) = 0;
};

} // namespace cadora
