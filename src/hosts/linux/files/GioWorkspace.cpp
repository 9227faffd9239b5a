#include "hosts/linux/files/GioWorkspace.h"

#include <gio/gio.h>

#include <memory>
#include <string>
#include <utility>

namespace cadora {

// On a thread of its own, since finding out what opens a URL reads the disk and may ask the bus.
void GioWorkspace::openURL(const URL& url) {
    background_.run(
        [text = url.text()] { g_app_info_launch_default_for_uri(text.c_str(), nullptr, nullptr); });
}

void GioWorkspace::recycle(const std::filesystem::path& item, std::function<void()> handler) {
    background_.run([item, handler = std::move(handler)] {
        const std::unique_ptr<GFile, decltype(&g_object_unref)> file(g_file_new_for_path(item.c_str()),
                                                                     &g_object_unref);
        g_file_trash(file.get(), nullptr, nullptr);
        handler();
    });
}

} // namespace cadora
